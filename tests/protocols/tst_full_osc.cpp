#include "app/manager.h"
#include "fullprogram.h"
#include "system/sitefixture.h"

#include <QDir>
#include <QStandardPaths>
#include <QtTest>
#include <algorithm>
#include <memory>

// The OSC gateway of the whole program against liblo's tools: a headless manager supervising two
// stand-in instances sends their value changes to oscdump, and oscsend writes to its receive port.
// What a stand-in receives is read from the log in which it records every command.
class TestFullOsc : public QObject
{
    Q_OBJECT

    std::unique_ptr<SiteFixture> m_site;
    QStringList m_setups; // in ascending instance id order: position = agent number
    HeadlessManager m_program;
    QProcess m_dump;
    QByteArray m_dumpPending;
    QStringList m_dumpLines; // oscdump's lines without the time tag column
    quint16 m_inPort = 0;

    void readDump()
    {
        m_dumpPending += m_dump.readAll();
        int end;
        while ((end = m_dumpPending.indexOf('\n')) >= 0) {
            QString line = QString::fromUtf8(m_dumpPending.left(end));
            m_dumpPending.remove(0, end + 1);
            if (QRegularExpression("^[0-9a-f]+\\.[0-9a-f]+ ").match(line).hasMatch())
                line = line.section(' ', 1);
            m_dumpLines << line;
        }
    }
    bool dumpHas(const QString &line) const { return m_dumpLines.contains(line); }
    QString dumpTail() const { return m_dumpLines.mid(qMax(0, m_dumpLines.size() - 40)).join('\n'); }

    // oscdump on a free port, up once it prints a probe sent to it.
    bool startDump(quint16 *port)
    {
        for (int attempt = 0; attempt < 5; ++attempt) {
            *port = freeUdpPort();
            m_dump.start("oscdump", {"-L", QString::number(*port)});
            if (!m_dump.waitForStarted(3000))
                continue;
            QUdpSocket probe;
            const QByteArray ping("/probe\0\0,i\0\0\0\0\0\1", 16);
            for (int wait = 0; wait < 30 && m_dump.state() == QProcess::Running; ++wait) {
                probe.writeDatagram(ping, QHostAddress::LocalHost, *port);
                QTest::qWait(100);
                if (m_dumpLines.filter("/probe").size() > 0)
                    return true;
            }
            stopProcess(m_dump);
        }
        return false;
    }

    bool oscsend(const QStringList &message)
    {
        const ToolResult r =
            runTool("oscsend", QStringList{"127.0.0.1", QString::number(m_inPort)} + message);
        return r.finished && r.exitCode == 0;
    }
    QStringList standInLog(int agent) const { return SiteFixture::standInLog(m_setups[agent]); }

private slots:
    void initTestCase()
    {
        if (QStandardPaths::findExecutable("oscdump").isEmpty() ||
            QStandardPaths::findExecutable("oscsend").isEmpty())
            QSKIP("liblo-tools (oscsend, oscdump) are not installed");
        qRegisterMetaType<QProcess::ExitStatus>();
        m_dump.setProcessChannelMode(QProcess::MergedChannels);
        connect(&m_dump, &QProcess::readyRead, this, &TestFullOsc::readDump);
        quint16 dumpPort = 0;
        QVERIFY2(startDump(&dumpPort), qPrintable(dumpTail()));

        m_site = std::make_unique<SiteFixture>(QDir::tempPath() + "/full-osc");
        QStringList setups = {m_site->dir() + "/studio-a.vxup", m_site->dir() + "/studio-b.vxup"};
        std::sort(setups.begin(), setups.end(), [](const QString &a, const QString &b) {
            return Manager::instanceUIUD(a) < Manager::instanceUIUD(b);
        });
        m_site->setupFile(QFileInfo(setups[0]).completeBaseName(), "Group=3\nStation=Main Studio\n");
        m_site->setupFile(QFileInfo(setups[1]).completeBaseName(), "Group=4\nStation=Booth\n");
        m_setups = setups;

        m_inPort = freeUdpPort();
        QVERIFY(m_inPort != 0);
        QList<SiteFixture::Instance> list;
        for (const QString &setup : qAsConst(m_setups))
            list.append({setup, m_site->standIn(), 0, 10, 1});
        const QString vxma =
            m_site->vxma(list, QString("\n[OSC]\nReceivePort=%1\nTargetIP=127.0.0.1\nTargetPort=%2\n")
                                   .arg(m_inPort)
                                   .arg(dumpPort));
        QVERIFY(m_program.start(vxma));
        QTRY_VERIFY2_WITH_TIMEOUT(m_program.count("Starting Data exchange") == 2,
                                  qPrintable(m_program.tail()), 15000);
        QVERIFY2(m_program.count("Set OSC Receiving port") == 1, qPrintable(m_program.tail()));
    }

    void valueChangesReachTheTarget_data()
    {
        QTest::addColumn<QString>("line");
        QTest::newRow("text, name without blanks") << "/vx/0/ConnectionInfo/Station s \"Main Studio\"";
        QTest::newRow("text of the second instance") << "/vx/1/ConnectionInfo/Station s \"Booth\"";
        QTest::newRow("integer") << "/vx/0/identity/group i 3";
        QTest::newRow("integer of the second instance") << "/vx/1/identity/group i 4";
        QTest::newRow("enumeration: status after the start") << "/vx/1/ConnectionInfo/Status i 7";
        QTest::newRow("octets as a blob")
            << "^/vx/0/ConnectionInfo/LiveVuvalues b \\[8b( 0x[0-9a-f]+| 00){8}\\]$";
    }
    void valueChangesReachTheTarget()
    {
        QFETCH(QString, line);
        if (line.startsWith('^')) {
            const QRegularExpression pattern(line);
            QTRY_VERIFY2_WITH_TIMEOUT(m_dumpLines.indexOf(pattern) >= 0, qPrintable(dumpTail()), 8000);
        } else {
            QTRY_VERIFY2_WITH_TIMEOUT(dumpHas(line), qPrintable(dumpTail()), 8000);
        }
    }

    void everyAddressIsOneWord()
    {
        // An address with a blank would split oscdump's line differently: path, one type, value.
        const QRegularExpression shape("^/vx/[01]/[A-Za-z0-9/]+ [isb] ");
        int seen = 0;
        for (const QString &line : qAsConst(m_dumpLines)) {
            if (line.startsWith("/probe"))
                continue;
            QVERIFY2(shape.match(line).hasMatch(), qPrintable(line));
            ++seen;
        }
        QVERIFY(seen > 20);
    }

    void writableNameReachesInstance_data()
    {
        QTest::addColumn<int>("agent");
        QTest::addColumn<QStringList>("message");
        QTest::addColumn<QString>("command");
        QTest::addColumn<QString>("echo"); // the value change the stand-in reports afterwards
        QTest::newRow("integer") << 0 << QStringList{"/vx/0/identity/group", "i", "42"}
                                 << "command 0x000600 value 42 text \"\""
                                 << "/vx/0/identity/group i 42";
        QTest::newRow("text") << 1 << QStringList{"/vx/1/ConnectionInfo/Station", "s", "Studio Nine"}
                              << "command 0x020400 value 0 text \"Studio Nine\""
                              << "/vx/1/ConnectionInfo/Station s \"Studio Nine\"";
        QTest::newRow("function with a text argument")
            << 0 << QStringList{"/vx/0/Commands/Connect", "s", "sip:far@192.0.2.99"}
            << "command 0x010200 value 0 text \"sip:far@192.0.2.99\""
            << "/vx/0/ConnectionInfo/Destination s \"sip:far@192.0.2.99\"";
    }
    void writableNameReachesInstance()
    {
        QFETCH(int, agent);
        QFETCH(QStringList, message);
        QFETCH(QString, command);
        QFETCH(QString, echo);
        QVERIFY(oscsend(message));
        QTRY_VERIFY2_WITH_TIMEOUT(standInLog(agent).filter(command).size() == 1,
                                  qPrintable(standInLog(agent).join('\n')), 5000);
        QCOMPARE(standInLog(1 - agent).filter(command).size(), 0);
        QTRY_VERIFY2_WITH_TIMEOUT(dumpHas(echo), qPrintable(dumpTail()), 5000);
    }

    void readOnlyNameIsRefused()
    {
        QVERIFY(oscsend({"/vx/0/ConnectionInfo/Destination", "s", "sip:nobody@192.0.2.1"}));
        QTRY_VERIFY2_WITH_TIMEOUT(
            m_program.count("0 | Received OSC Data that is ReadOnly vx/0/ConnectionInfo/Destination") == 1,
            qPrintable(m_program.tail()), 5000);
        // A writable value sent after it arrives; the refused one never does.
        QVERIFY(oscsend({"/vx/0/identity/group", "i", "43"}));
        QTRY_VERIFY_WITH_TIMEOUT(standInLog(0).filter("command 0x000600 value 43").size() == 1, 5000);
        QCOMPARE(standInLog(0).filter("command 0x020100").size(), 0);
    }

    void wildcardReachesEveryInstance()
    {
        QVERIFY(oscsend({"/vx/*/identity/group", "i", "77"}));
        for (int agent = 0; agent < 2; ++agent) {
            QTRY_VERIFY2_WITH_TIMEOUT(
                standInLog(agent).filter("command 0x000600 value 77 text \"\"").size() == 1,
                qPrintable(standInLog(agent).join('\n')), 5000);
            QTRY_VERIFY2_WITH_TIMEOUT(dumpHas(QString("/vx/%1/identity/group i 77").arg(agent)),
                                      qPrintable(dumpTail()), 5000);
        }
    }

    void upperCaseIsIgnoredSilently()
    {
        const int mark = m_program.lineCount();
        QVERIFY(oscsend({"/VX/0/identity/group", "i", "55"}));
        QVERIFY(oscsend({"/vx/0/identity/group", "i", "56"}));
        QTRY_VERIFY_WITH_TIMEOUT(standInLog(0).filter("command 0x000600 value 56").size() == 1, 5000);
        QCOMPARE(standInLog(0).filter("value 55").size(), 0);
        QCOMPARE(standInLog(1).filter("value 55").size(), 0);
        // The only line about OSC since the mark is the one about the lower-case message.
        const QStringList lines = m_program.lines().mid(mark).filter("OSC", Qt::CaseInsensitive);
        QCOMPARE(m_program.lines().mid(mark).filter("VX/0").size(), 0);
        QCOMPARE(lines.filter("Received OSC Data").size(), 0);
        QCOMPARE(m_program.count("oscRecieveMessage vx/0/identity/group 56", mark), 1);
    }

    void cleanupTestCase()
    {
        m_program.stop();
        stopProcess(m_dump);
    }
};

QTEST_GUILESS_MAIN(TestFullOsc)
#include "tst_full_osc.moc"
