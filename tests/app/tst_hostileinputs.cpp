#include "app/manager.h"
#include "osc/osc.h"

#include <QDir>
#include <QFile>
#include <QtTest>

#include <limits>

// Inputs that once broke the manager (kept by the fuzzers as fuzz/crashes/<target>/regression-*)
// and the valid inputs the fuzzers start from, replayed on a real Manager. In the sanitizer build
// (make test-asan) a bad read or an undefined operation ends the test; in every build the
// manager must go on answering afterwards.
class TestHostileInputs : public QObject
{
    Q_OBJECT

private:
    static constexpr uint kInstance = 0x5EED;
    Manager *m_manager = nullptr;

    static void addFiles(const QString &folder, const QStringList &patterns)
    {
        const QFileInfoList files = QDir(folder).entryInfoList(patterns, QDir::Files, QDir::Name);
        for (const QFileInfo &info : files) {
            QFile file(info.absoluteFilePath());
            QVERIFY(file.open(QIODevice::ReadOnly));
            QTest::newRow(qPrintable(info.fileName())) << file.readAll();
        }
    }

    static QByteArray record(int words, qint32 inBitRate)
    {
        QByteArray in(words * 4, '\0');
        in[StatusRecord::Version] = char(StatusRecord::CurrentVersion);
        StatusRecord::setWord(in, StatusRecord::InCodec, 25);
        StatusRecord::setWord(in, StatusRecord::InBitRate, inBitRate);
        StatusRecord::setWord(in, StatusRecord::InSampleRate, 48000);
        StatusRecord::setWord(in, StatusRecord::RunState, 1);
        return in;
    }

    bool receive(const QByteArray &bytes)
    {
        // A heap copy of exactly the record's size, aligned for the words.
        QVector<quint32> words((bytes.size() + 3) / 4);
        memcpy(words.data(), bytes.constData(), size_t(bytes.size()));
        return m_manager->instanceDataReceive(kInstance, words.constData(), bytes.size());
    }

private slots:
    void initTestCase()
    {
        QCoreApplication::setOrganizationName("CalderWick");
        QCoreApplication::setApplicationName("VEXA Studio Manager");
        QSettings::setDefaultFormat(QSettings::IniFormat);
        const QString dir = QDir::homePath() + "/site";
        QDir().mkpath(dir);
        m_manager = new Manager(nullptr, dir);
        m_manager->instanceCreate(kInstance, "/bin/true", dir + "/Studio 1.vxup", 0, 0, 0);
        QVERIFY(m_manager->instance(kInstance));
    }

    void cleanupTestCase()
    {
        delete m_manager;
        m_manager = nullptr;
    }

    void statusRecords_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        addFiles(VEXA_SOURCE_DIR "/fuzz/crashes/fuzz_instance_data", {"regression-*"});
        addFiles(VEXA_SOURCE_DIR "/fuzz/corpus/fuzz_instance_data", {"*"});
    }
    void statusRecords()
    {
        QFETCH(QByteArray, bytes);
        m_manager->clientsForceUpdate(kInstance);
        const bool taken = receive(bytes);
        const bool acceptable = bytes.size() / 4 >= StatusRecord::MinimumWords && qint8(bytes.at(0)) > 6;
        QCOMPARE(taken, acceptable);
        // A plain record is still taken afterwards.
        QVERIFY(receive(record(StatusRecord::FullWords, 64)));
        QVERIFY(m_manager->instance(kInstance));
    }

    // The incoming bit rate is sent as bit/s: kbit/s times 1000 in 32 bits, wrapping for values no
    // instance sends instead of overflowing.
    void incomingBitRate_data()
    {
        QTest::addColumn<qint32>("kbits");
        QTest::addColumn<QByteArray>("shown");
        QTest::newRow("usual") << 64 << QByteArray("\"B\":\"64000\"");
        QTest::newRow("largest without wrap") << 2147483 << QByteArray("\"B\":\"2147483000\"");
        QTest::newRow("wraps") << 1636827206 << QByteArray("\"B\":\"444666224\"");
        QTest::newRow("negative wraps") << -2147483647 - 1 << QByteArray("\"B\":\"0\"");
    }
    void incomingBitRate()
    {
        QFETCH(qint32, kbits);
        QFETCH(QByteArray, shown);
        m_manager->clientsForceUpdate(kInstance);
        QVERIFY(receive(record(StatusRecord::MinimumWords, kbits)));
        const QByteArray format = m_manager->instance(kInstance)->state.inFormat;
        QVERIFY2(format.contains(shown), format.constData());
    }

    // A value command from a peer (OSC, Ember+) carries any 32-bit number: its magnitude goes to the
    // instance, the most negative number included, and the cached record anticipates the answer.
    void commandValues_data()
    {
        QTest::addColumn<int>("value");
        QTest::newRow("zero") << 0;
        QTest::newRow("negative") << -5;
        QTest::newRow("largest") << std::numeric_limits<int>::max();
        QTest::newRow("most negative") << std::numeric_limits<int>::min();
    }
    void commandValues()
    {
        QFETCH(int, value);
        m_manager->instanceDataSend(kInstance, 0x600, value, QByteArray());
        QCOMPARE(StatusRecord::word(m_manager->instance(kInstance)->state.record, StatusRecord::GroupTag),
                 -1);
        m_manager->oscInstanceDataSend(-1, 0x600, value, QByteArray("x"));
        m_manager->oscInstanceDataSend(0, 0x600, value, QByteArray());
        QVERIFY(m_manager->instance(kInstance));
    }

    // Datagrams for the OSC gateway, whose address space is copied from the instance's tree:
    // whatever they carry reaches the manager's command path without harm.
    void oscDatagrams_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        addFiles(VEXA_SOURCE_DIR "/fuzz/crashes/fuzz_osc_message", {"regression-*"});
        addFiles(VEXA_SOURCE_DIR "/fuzz/corpus/fuzz_osc_message", {"*"});
    }
    void oscDatagrams()
    {
        QFETCH(QByteArray, bytes);
        m_manager->oscCreate();
        QVERIFY(m_manager->oscGateway());
        m_manager->oscGateway()->packetParse(bytes);
        QVERIFY(m_manager->instance(kInstance));
    }

    // The most negative number, sent over OSC to a writable parameter, reaches the instance.
    void oscMostNegativeValue()
    {
        m_manager->oscCreate();
        QVERIFY(receive(record(StatusRecord::FullWords, 64))); // group tag 0 in the cached record
        QFile file(VEXA_SOURCE_DIR "/fuzz/crashes/fuzz_osc_message/regression-int-min-value");
        QVERIFY(file.open(QIODevice::ReadOnly));
        m_manager->oscGateway()->packetParse(file.readAll());
        // Sending the group tag to the instance marks it as awaited in the cached record.
        QCOMPARE(StatusRecord::word(m_manager->instance(kInstance)->state.record, StatusRecord::GroupTag),
                 -1);
    }
};

QTEST_GUILESS_MAIN(TestHostileInputs)
#include "tst_hostileinputs.moc"
