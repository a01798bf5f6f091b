#include "app/statusrecord.h"
#include "hub/multicastsocketserver.h"
#include "studio/studiosimulation.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QScopeGuard>
#include <QtTest>
#include <memory>

using namespace StatusRecord;

// The stand-in instance as the manager meets it: a real VexaStudio process on the hub, started
// with the manager's command line, greeted, reading its records and sending it commands.
class TestStudio : public QObject
{
    Q_OBJECT

private:
    struct Message
    {
        QByteArray data;
        quint16 source;
    };

    std::unique_ptr<MultiCastSocketServer> m_hub;
    QList<Message> m_inbox;
    std::unique_ptr<QProcess> m_studio;
    QString m_setupPath, m_logPath;
    quint16 m_studioId = 0;
    QByteArray m_firstRecord;

    void startManagerHub()
    {
        m_hub = std::make_unique<MultiCastSocketServer>(nullptr, "VXMANAGERQT", 6);
        connect(m_hub.get(), &MultiCastSocketServer::dataFromServer, this,
                [this](QByteArray data, quint16 source) {
                    m_inbox.append({data, source});
                });
        QTRY_VERIFY_WITH_TIMEOUT(m_hub->isServer() && m_hub->ownId() != 0, 5000);
    }

    // Waits (bounded) for a message that satisfies `match`, dropping the ones before it.
    template <typename Match>
    bool waitMessage(Match match, Message *found, int timeoutMs = 5000)
    {
        QElapsedTimer clock;
        clock.start();
        while (clock.elapsed() < timeoutMs) {
            while (!m_inbox.isEmpty()) {
                const Message message = m_inbox.takeFirst();
                if (match(message)) {
                    *found = message;
                    return true;
                }
            }
            QTest::qWait(5);
        }
        return false;
    }

    bool waitRecord(QByteArray *record, int timeoutMs = 5000)
    {
        Message m;
        if (!waitMessage(
                [this](const Message &x) { return x.source == m_studioId && x.data.size() == FullBytes; }, &m,
                timeoutMs))
            return false;
        *record = m.data;
        return true;
    }

    // Greets the stand-in after its announcement; returns its hub id (0 if none came).
    quint16 greet()
    {
        Message m;
        const QByteArray announce = (SYNCSET + m_setupPath).toUtf8();
        if (!waitMessage([&](const Message &x) { return x.data == announce; }, &m))
            return 0;
        m_hub->sendDataTo(m.source, VXMANAGER);
        return m.source;
    }

    QByteArray log() const
    {
        QFile file(m_logPath);
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    }

    std::unique_ptr<QProcess> startStudio(const QStringList &extra)
    {
        auto process = std::make_unique<QProcess>();
        const QByteArray encoded = m_setupPath.toUtf8().toPercentEncoding("/");
        process->start(VEXA_BIN_DIR "/VexaStudio", extra + QStringList{QString::fromLatin1(encoded)});
        process->waitForStarted(3000);
        return process;
    }

    void sendCommand(qint32 id, qint32 value, const QByteArray &text)
    {
        StudioCommand command;
        command.id = id;
        command.value = value;
        command.text = text;
        m_hub->sendDataTo(m_studioId, studioCommand_encode(command));
    }

private slots:
    void initTestCase()
    {
        // A folder and a file name with blanks and non-ASCII letters, as the manager may pass them.
        const QString folder = QDir::temp().filePath(QString::fromUtf8("Studios \xc3\x9c"
                                                                       "bung"));
        QVERIFY(QDir().mkpath(folder));
        m_setupPath = folder + QStringLiteral("/Studio One.vxup");
        m_logPath = folder + QStringLiteral("/Studio One.log");
        QFile setup(m_setupPath);
        QVERIFY(setup.open(QIODevice::WriteOnly));
        setup.write("[Instance]\nName=Studio One\nGroup=3\nDestination=sip:two@192.0.2.10\n"
                    "SipUri=sip:one@192.0.2.1\nStation=Studio Two\nInCodec=25\nOutCodec=20\nBitRate=96\n"
                    "SampleRate=44100\nStereo=true\nStaticJitter=70\nDynamicJitter=20\nAudioInput=Mic A\n"
                    "AudioOutput=Line B\nAudioDriver=JACK\nWarning=Check clock\n");
        setup.close();

        startManagerHub();
        m_studio = startStudio({"-emberport=9123", "--rate", "20"});
        m_studioId = greet();
        QVERIFY(m_studioId != 0);
        Message path;
        QVERIFY(waitMessage([](const Message &x) { return x.data.startsWith("VXPATH"); }, &path));
        QCOMPARE(QString::fromUtf8(path.data.mid(6)),
                 QFileInfo(VEXA_BIN_DIR "/VexaStudio").canonicalFilePath());
        QVERIFY(waitRecord(&m_firstRecord));
    }

    void recordWords_data()
    {
        QTest::addColumn<int>("offset");
        QTest::addColumn<int>("value");
        QTest::newRow("run state: started") << int(RunState) << -100;
        QTest::newRow("ember port") << int(EmberPort) << 9123;
        QTest::newRow("in codec") << int(InCodec) << 25;
        QTest::newRow("in bit rate") << int(InBitRate) << 96;
        QTest::newRow("in channels") << int(InChannelMode) << 2;
        QTest::newRow("out codec") << int(OutCodec) << 20;
        QTest::newRow("out sample rate") << int(OutSampleRate) << 44100;
        QTest::newRow("out bit rate") << int(OutBitRate) << 96;
        QTest::newRow("out channels") << int(OutChannelMode) << 2;
        QTest::newRow("in sample rate") << int(InSampleRate) << 44100;
        QTest::newRow("sip status: registered") << int(SipStatus) << 5;
        QTest::newRow("version major") << int(VersionMajor) << 5;
        QTest::newRow("version minor") << int(VersionMinor) << 14;
        QTest::newRow("jitter buffers") << int(JitterBuffers) << (70 | (20 << 16));
        QTest::newRow("live jitter") << int(LiveJitter) << 70;
        QTest::newRow("group") << int(GroupTag) << 3;
        QTest::newRow("record state") << int(RecordState) << 0;
        QTest::newRow("routing") << int(RoutingState) << 0;
        QTest::newRow("play state") << int(PlayState) << 0;
        QTest::newRow("counter") << int(InCounter) << 1;
    }
    void recordWords()
    {
        QFETCH(int, offset);
        QFETCH(int, value);
        QCOMPARE(m_firstRecord.size(), FullBytes);
        QCOMPARE(int(m_firstRecord[0]), CurrentVersion);
        QCOMPARE(word(m_firstRecord, offset), value);
    }

    void recordTexts_data()
    {
        QTest::addColumn<int>("offset");
        QTest::addColumn<int>("width");
        QTest::addColumn<QByteArray>("value");
        QTest::newRow("name") << int(Name) << int(NameWidth) << QByteArray("Studio One");
        QTest::newRow("audio input") << int(AudioInput) << int(AudioNameWidth) << QByteArray("Mic A");
        QTest::newRow("audio output") << int(AudioOutput) << int(AudioNameWidth) << QByteArray("Line B");
        QTest::newRow("station") << int(Station) << int(StationWidth) << QByteArray("Studio Two");
        QTest::newRow("sip uri") << int(SipUri) << int(SipUriWidth) << QByteArray("sip:one@192.0.2.1");
        QTest::newRow("destination") << int(Destination) << int(DestinationWidth)
                                     << QByteArray("sip:two@192.0.2.10");
        QTest::newRow("driver") << int(AudioDriver) << int(AudioDriverWidth) << QByteArray("JACK");
        QTest::newRow("warning") << int(WarningMessage) << int(WarningWidth) << QByteArray("Check clock");
        QTest::newRow("connection time")
            << int(ConnectionTime) << int(ConnectionTimeWidth) << QByteArray("00:00:00");
        QTest::newRow("sip response") << int(SipResponse) << int(SipResponseWidth) << QByteArray("200 OK");
        QTest::newRow("station id: 4 bytes")
            << int(StationId) << 4
            << QByteArray::number(qChecksum("Studio Two", 10), 16).rightJustified(4, '0');
    }
    void recordTexts()
    {
        QFETCH(int, offset);
        QFETCH(int, width);
        QFETCH(QByteArray, value);
        QCOMPARE(text(m_firstRecord, offset, width), value);
    }

    void startsThenWaits()
    {
        QByteArray record;
        QElapsedTimer clock;
        clock.start();
        do {
            QVERIFY(waitRecord(&record));
        } while (word(record, RunState) == -100 && clock.elapsed() < 5000);
        QCOMPARE(word(record, RunState), 0);
        QVERIFY(word(record, InCounter) > 1);
    }

    // Each command shows in a following record and is logged as one line.
    void commandChangesNextRecord_data()
    {
        QTest::addColumn<int>("id");
        QTest::addColumn<int>("value");
        QTest::addColumn<QByteArray>("argument");
        QTest::addColumn<int>("offset");
        QTest::addColumn<int>("width"); // 0: a word
        QTest::addColumn<QByteArray>("expected");
        QTest::newRow("name") << 0x500 << 0 << QByteArray("Renamed") << int(Name) << int(NameWidth)
                              << QByteArray("Renamed");
        QTest::newRow("group") << 0x600 << 7 << QByteArray() << int(GroupTag) << 0 << QByteArray("7");
        QTest::newRow("station") << 0x20400 << 0 << QByteArray("Studio Nine") << int(Station)
                                 << int(StationWidth) << QByteArray("Studio Nine");
        QTest::newRow("static jitter") << 0x20500 << 80 << QByteArray() << int(JitterBuffers) << 0
                                       << QByteArray::number(80 | (20 << 16));
        QTest::newRow("dynamic jitter") << 0x20600 << 30 << QByteArray() << int(JitterBuffers) << 0
                                        << QByteArray::number(80 | (30 << 16));
        QTest::newRow("routing") << 0x70000 << 1 << QByteArray() << int(RoutingState) << 0 << QByteArray("1");
        QTest::newRow("connect") << int(Connect) << 0 << QByteArray("sip:nine@192.0.2.99") << int(Destination)
                                 << int(DestinationWidth) << QByteArray("sip:nine@192.0.2.99");
        QTest::newRow("call comes up") << 0 << 0 << QByteArray() << int(RunState) << 0 << QByteArray("1");
        QTest::newRow("record") << int(Record) << 1 << QByteArray() << int(RecordState) << 0
                                << QByteArray("2");
        QTest::newRow("play") << int(Play) << 1 << QByteArray() << int(PlayState) << 0 << QByteArray("1");
        QTest::newRow("warning acknowledged") << int(WarningAcknowledge) << 1 << QByteArray()
                                              << int(WarningMessage) << int(WarningWidth) << QByteArray();
        QTest::newRow("disconnect") << int(Disconnect) << 0 << QByteArray() << int(RunState) << 0
                                    << QByteArray("0");
        QTest::newRow("register") << int(Register) << 0 << QByteArray() << int(SipStatus) << 0
                                  << QByteArray("1");
        QTest::newRow("registered") << 0 << 0 << QByteArray() << int(SipStatus) << 0 << QByteArray("5");
    }
    void commandChangesNextRecord()
    {
        QFETCH(int, id);
        QFETCH(int, value);
        QFETCH(QByteArray, argument);
        QFETCH(int, offset);
        QFETCH(int, width);
        QFETCH(QByteArray, expected);

        if (id != 0) { // 0: no command, the change follows from the previous one in time
            sendCommand(id, value, argument);
            const QByteArray line = QStringLiteral("command 0x%1 value %2 text \"%3\"")
                                        .arg(id, 6, 16, QLatin1Char('0'))
                                        .arg(value)
                                        .arg(QString::fromUtf8(argument))
                                        .toUtf8();
            QTRY_VERIFY_WITH_TIMEOUT(log().contains(line), 3000);
        }
        QByteArray record;
        QElapsedTimer clock;
        clock.start();
        auto field = [&]() {
            return width ? text(record, offset, width) : QByteArray::number(word(record, offset));
        };
        do {
            QVERIFY(waitRecord(&record));
        } while (field() != expected && clock.elapsed() < 3000);
        QCOMPARE(field(), expected);
    }

    void badMessagesAreDropped()
    {
        m_hub->sendDataTo(m_studioId, QByteArray("\0\1\2\3\4", 5));
        StudioCommand command;
        command.id = 0x500;
        command.text = "x";
        QByteArray truncated = studioCommand_encode(command);
        truncated.chop(1);
        m_hub->sendDataTo(m_studioId, truncated);
        QTRY_VERIFY_WITH_TIMEOUT(log().contains("dropped unknown message of 5 bytes"), 3000);
        QTRY_VERIFY_WITH_TIMEOUT(log().contains("dropped unknown message of 16 bytes"), 3000);
        QByteArray record;
        QVERIFY(waitRecord(&record));
        QCOMPARE(text(record, Name, NameWidth), QByteArray("Renamed"));
    }

    // The manager goes and comes back: the stand-in never relays, reconnects to the new relay
    // and announces itself again.
    void managerRestart()
    {
        m_hub.reset();
        QTRY_VERIFY_WITH_TIMEOUT(log().contains("manager lost"), 3000);
        QTest::qWait(1500); // the stand-in keeps trying meanwhile, as a client only
        m_inbox.clear();
        startManagerHub();
        m_studioId = greet();
        QVERIFY(m_studioId != 0);
        QByteArray record;
        QVERIFY(waitRecord(&record));
        QCOMPARE(text(record, Name, NameWidth), QByteArray("Renamed"));
    }

    void terminates()
    {
        m_hub->sendDataTo(m_studioId, VXTERMINATE);
        QVERIFY(m_studio->waitForFinished(5000));
        QCOMPARE(m_studio->exitStatus(), QProcess::NormalExit);
        QCOMPARE(m_studio->exitCode(), 0);
        QVERIFY(log().contains("terminate requested"));
        // Nothing ever went to the pipes that the manager does not read.
        QCOMPARE(m_studio->readAllStandardOutput(), QByteArray());
        QCOMPARE(m_studio->readAllStandardError(), QByteArray());
    }

    void silentThenCrash()
    {
        m_logPath = QDir::temp().filePath("silent.log");
        auto studio =
            startStudio({"--rate", "20", "--silent-after", "1.5", "--crash-after", "3", "--log", m_logPath});
        auto stop = qScopeGuard([&]() {
            studio->kill();
            studio->waitForFinished(3000);
        });
        m_studioId = greet();
        QVERIFY(m_studioId != 0);
        QByteArray record;
        QVERIFY(waitRecord(&record));
        QTRY_VERIFY_WITH_TIMEOUT(log().contains("silent: no more records"), 3000);
        QTest::qWait(300);
        m_inbox.clear();
        QVERIFY(!waitRecord(&record, 800)); // connected but quiet
        QCOMPARE(studio->state(), QProcess::Running);
        QVERIFY(studio->waitForFinished(5000));
        QCOMPARE(studio->exitStatus(), QProcess::CrashExit);
    }

    void cleanupTestCase()
    {
        if (m_studio && m_studio->state() != QProcess::NotRunning) {
            m_studio->kill();
            m_studio->waitForFinished(3000);
        }
        m_hub.reset();
    }
};

QTEST_GUILESS_MAIN(TestStudio)
#include "tst_studio.moc"
