#include "app/manager.h"
#include "fullprogram.h"
#include "system/sitefixture.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QHostAddress>
#include <QSettings>
#include <QStandardPaths>
#include <QTime>
#include <QtTest>
#include <algorithm>
#include <memory>

// The SNMP agent of the whole program against net-snmp: a headless manager supervising two
// stand-in instances is asked by snmpget, snmpset and snmpgetnext, and snmptrapd receives the traps
// that the stand-ins' status changes cause. The one step that has no channel into a headless
// process, adding a trap receiver at run time, is done with a manager in this process.
namespace {

const QString Prefix = QStringLiteral(".1.3.6.1.4.1.32473.32.");

// One trap as snmptrapd logs it: a header line, then tab-separated parts on the next line(s).
struct Trap
{
    QString agentAddress;
    QString enterprise;
    QString kind;                    // "Enterprise Specific Trap (1)"
    QMap<QString, QString> bindings; // OID -> value as net-snmp prints it
};

QList<Trap> parseTraps(const QString &log)
{
    QList<Trap> traps;
    for (const QString &line : log.split('\n')) {
        if (line.contains(QLatin1String("TRAP, SNMP v1"))) {
            Trap trap;
            trap.agentAddress = line.section(' ', 2, 2);
            traps.append(trap);
            continue;
        }
        if (traps.isEmpty() || !line.startsWith('\t'))
            continue;
        for (const QString &part : line.split('\t', Qt::SkipEmptyParts)) {
            const int equals = part.indexOf(QLatin1String(" = "));
            if (part.contains(QLatin1String(" Trap (")) && equals < 0) {
                traps.last().enterprise = part.section(' ', 0, 0);
                traps.last().kind = part.section(' ', 1).section(QLatin1String(" Uptime:"), 0, 0);
            } else if (equals > 0) {
                traps.last().bindings.insert(part.left(equals), part.mid(equals + 3).trimmed());
            }
        }
    }
    return traps;
}

} // namespace

class TestFullSnmp : public QObject
{
    Q_OBJECT

    QString m_dir;
    std::unique_ptr<SiteFixture> m_site;
    QStringList m_setups; // in ascending instance id order: position = agent id
    HeadlessManager m_program;
    QProcess m_trapd;
    QString m_trapLog;
    quint16 m_trapPort = 0;
    quint16 m_agentPort = 0;

    QProcessEnvironment toolEnvironment() const { return netSnmpEnvironment(m_dir); }
    QStringList target(int timeoutSeconds = 2) const
    {
        return {"-v1", "-c", "public",
                "-On", "-t", QString::number(timeoutSeconds),
                "-r",  "0",  QString("127.0.0.1:%1").arg(m_agentPort)};
    }
    ToolResult snmp(const QString &tool, const QStringList &args, int timeoutSeconds = 2)
    {
        return runTool(tool, target(timeoutSeconds) + args, toolEnvironment());
    }
    QList<Trap> traps() const
    {
        QFile file(m_trapLog);
        return file.open(QIODevice::ReadOnly) ? parseTraps(QString::fromLocal8Bit(file.readAll()))
                                              : QList<Trap>();
    }
    // The status numbers (variable 2) that the traps of agent `agent` carried, in order.
    QList<int> statusTraps(int agent, int from = 0) const
    {
        QList<int> statuses;
        const QString enterprise = Prefix + QString::number(agent);
        for (const Trap &t : traps().mid(from)) {
            if (t.enterprise == enterprise)
                statuses << t.bindings.value(enterprise + ".2", "-1").toInt();
        }
        return statuses;
    }
    QString trapText() const
    {
        QFile file(m_trapLog);
        return file.open(QIODevice::ReadOnly) ? QString::fromLocal8Bit(file.readAll()).right(3000)
                                              : QString();
    }
    static bool hasLine(const QString &out, const QString &binding)
    {
        return out.contains(
            QRegularExpression("(^|\\n)" + QRegularExpression::escape(binding) + "(\\r?\\n|$)"));
    }

    bool startTrapd()
    {
        QFile conf(m_dir + "/snmptrapd.conf");
        if (!conf.open(QIODevice::WriteOnly))
            return false;
        conf.write("disableAuthorization yes\n");
        conf.close();
        m_trapd.setProcessEnvironment(toolEnvironment());
        m_trapd.setProcessChannelMode(QProcess::MergedChannels);
        // A port found free may be taken before snmptrapd binds it: try a few.
        for (int attempt = 0; attempt < 5; ++attempt) {
            QFile::remove(m_trapLog);
            const quint16 port = freeUdpPort();
            m_trapd.start("snmptrapd", {"-f", "-On", "-Lf", m_trapLog, "-C", "-c", conf.fileName(),
                                        "--disableAuthorization=yes", QString("udp:127.0.0.1:%1").arg(port)});
            if (!m_trapd.waitForStarted(3000))
                continue;
            for (int wait = 0; wait < 50 && m_trapd.state() == QProcess::Running; ++wait) {
                QFile file(m_trapLog);
                if (file.open(QIODevice::ReadOnly) && file.readAll().contains("NET-SNMP version")) {
                    m_trapPort = port;
                    return true;
                }
                QTest::qWait(100);
            }
            stopProcess(m_trapd);
        }
        return false;
    }

    // Two stand-ins; the first in id order reports a jitter word of 200, which the agent encodes
    // 01 C8, the second 40000 (02 9C 40): neither may be read as a negative number.
    void writeSite(const QString &name)
    {
        m_site = std::make_unique<SiteFixture>(m_dir + "/" + name);
        QStringList setups = {m_site->setupFile("studio-a"), m_site->setupFile("studio-b")};
        std::sort(setups.begin(), setups.end(), [](const QString &a, const QString &b) {
            return Manager::instanceUIUD(a) < Manager::instanceUIUD(b);
        });
        const QStringList extra = {
            "StaticJitter=200\nDynamicJitter=0\nDestination=sip:first@192.0.2.10\n",
            "StaticJitter=40000\nDynamicJitter=0\nDestination=sip:second@192.0.2.20\n"};
        for (int n = 0; n < 2; ++n) {
            const QString base = QFileInfo(setups[n]).completeBaseName();
            m_site->setupFile(base, extra[n]);
        }
        m_setups = setups;
    }
    QString names(int agent) const { return QFileInfo(m_setups[agent]).completeBaseName(); }

private slots:
    void initTestCase()
    {
        if (QStandardPaths::findExecutable("snmpget").isEmpty() ||
            QStandardPaths::findExecutable("snmptrapd", {"/usr/sbin", "/usr/bin"}).isEmpty())
            QSKIP("net-snmp tools (packages snmp, snmptrapd) are not installed");
        qRegisterMetaType<QProcess::ExitStatus>();
        QCoreApplication::setOrganizationName("CalderWick");
        QCoreApplication::setApplicationName("VEXA Studio Manager");
        QSettings::setDefaultFormat(QSettings::IniFormat);

        m_dir = QDir::tempPath() + "/full-snmp";
        QVERIFY(QDir().mkpath(m_dir + "/persist"));
        QVERIFY(QDir().mkpath(m_dir + "/conf"));
        m_trapLog = m_dir + "/traps.log";
        QVERIFY2(startTrapd(), qPrintable(QString::fromLocal8Bit(m_trapd.readAll())));

        writeSite("headless");
        m_agentPort = freeUdpPort();
        QVERIFY(m_agentPort != 0);
        QList<SiteFixture::Instance> list;
        for (const QString &setup : qAsConst(m_setups))
            list.append({setup, m_site->standIn(), 0, 10, 1});
        const QString vxma =
            m_site->vxma(list, QString("\n[SNMP]\nReceivePort=%1\nTrapSendPort=%2\nManagerIP=127.0.0.1\n")
                                   .arg(m_agentPort)
                                   .arg(m_trapPort));
        QVERIFY(m_program.start(vxma));
        QTRY_VERIFY2_WITH_TIMEOUT(m_program.count("Starting Data exchange") == 2,
                                  qPrintable(m_program.tail()), 15000);
        QVERIFY2(m_program.count("Set SNMP Receiving port") == 1, qPrintable(m_program.tail()));
    }

    void statusChangeSendsTrap()
    {
        // Each stand-in reports run state -100 (status 1) first, then 0 (status 7): one trap each.
        for (int agent = 0; agent < 2; ++agent) {
            QTRY_VERIFY2_WITH_TIMEOUT(statusTraps(agent).contains(7), qPrintable(trapText()), 10000);
            QCOMPARE(statusTraps(agent), QList<int>({1, 7}));
        }
        const QString e = Prefix + "1";
        Trap trap;
        for (const Trap &t : traps()) {
            if (t.enterprise == e && t.bindings.value(e + ".2") == "7")
                trap = t;
        }
        QCOMPARE(trap.kind, QString("Enterprise Specific Trap (1)"));
        QVERIFY2(!QHostAddress(trap.agentAddress).isNull() &&
                     QHostAddress(trap.agentAddress).protocol() == QAbstractSocket::IPv4Protocol,
                 qPrintable(trap.agentAddress));
        const QMap<QString, QString> expected = {{e + ".2", "7"},
                                                 {e + ".3", "NULL"}, // no status text while idle
                                                 {e + ".4", "40000"},
                                                 {e + ".5", QString("STRING: \"%1\"").arg(names(1))},
                                                 {e + ".7", "0"}};
        QCOMPARE(trap.bindings, expected);
    }

    void getSystem()
    {
        const unsigned before = unsigned(QTime::currentTime().msecsSinceStartOfDay());
        const ToolResult r = snmp("snmpget", {"1.3.6.1.2.1.1.1.0", "1.3.6.1.2.1.1.3.0"});
        const unsigned after = unsigned(QTime::currentTime().msecsSinceStartOfDay());
        QVERIFY2(r.finished && r.exitCode == 0, qPrintable(r.out));
        QVERIFY2(hasLine(r.out, ".1.3.6.1.2.1.1.1 = STRING: \"VEXA Studio Manager\""), qPrintable(r.out));
        const QRegularExpressionMatch ticks =
            QRegularExpression("\\.1\\.3\\.6\\.1\\.2\\.1\\.1\\.3 = Timeticks: \\((\\d+)\\)").match(r.out);
        QVERIFY2(ticks.hasMatch(), qPrintable(r.out));
        // Milliseconds since midnight, not hundredths since start (a run across midnight wraps).
        if (before <= after) {
            QVERIFY2(ticks.captured(1).toUInt() >= before && ticks.captured(1).toUInt() <= after,
                     qPrintable(QString("%1 not in %2..%3").arg(ticks.captured(1)).arg(before).arg(after)));
        }
    }

    void getInstance_data()
    {
        QTest::addColumn<QStringList>("oids");
        QTest::addColumn<QStringList>("answers");
        QTest::addColumn<QStringList>("absent");
        const QString p = Prefix.mid(1);
        QTest::newRow("status of a live instance")
            << QStringList{p + "0.2.0"} << QStringList{Prefix + "0.2 = 7"} << QStringList();
        QTest::newRow("one binding per variable, with the last agent id asked")
            << QStringList{p + "0.2.0", p + "1.2.0"} << QStringList{Prefix + "1.2 = 7"}
            << QStringList{Prefix + "0.2 "};
        QTest::newRow("status text while idle is NULL")
            << QStringList{p + "0.3.0"} << QStringList{Prefix + "0.3 = NULL"} << QStringList();
        QTest::newRow("jitter word 200, encoded 01 C8")
            << QStringList{p + "0.4.0"} << QStringList{Prefix + "0.4 = 200"} << QStringList();
        QTest::newRow("jitter word 40000, encoded 02 9C 40")
            << QStringList{p + "1.4.0"} << QStringList{Prefix + "1.4 = 40000"} << QStringList();
        QTest::newRow("names by agent id")
            << QStringList{p + "1.5.0"} << QStringList{Prefix + "1.5 = STRING: \"%1\""} << QStringList();
        QTest::newRow("agent id without instance: numbers 0")
            << QStringList{p + "9.2.0", p + "9.7.0"} << QStringList{Prefix + "9.2 = 0", Prefix + "9.7 = 0"}
            << QStringList();
        QTest::newRow("unknown OID: NULL, noError")
            << QStringList{"1.3.6.1.4.1.9999.1.0"} << QStringList{".1.3.6.1.4.1.9999.1.0 = NULL"}
            << QStringList();
    }
    void getInstance()
    {
        QFETCH(QStringList, oids);
        QFETCH(QStringList, answers);
        QFETCH(QStringList, absent);
        for (QString &answer : answers) {
            if (answer.contains("%1"))
                answer = answer.arg(names(1));
        }
        // A live instance's state can move for a moment on a loaded machine (a late record makes the
        // watchdog report it silent): ask again, a bounded number of times, until it has settled.
        ToolResult r;
        for (int attempt = 0; attempt < 5; ++attempt) {
            r = snmp("snmpget", oids);
            bool all = r.finished && r.exitCode == 0;
            for (const QString &answer : qAsConst(answers))
                all = all && hasLine(r.out, answer);
            if (all)
                break;
            QTest::qWait(1000);
        }
        QVERIFY2(r.finished && r.exitCode == 0, qPrintable(r.out));
        for (const QString &answer : qAsConst(answers))
            QVERIFY2(hasLine(r.out, answer), qPrintable(answer + "\n" + r.out));
        for (const QString &missing : absent)
            QVERIFY2(!r.out.contains(missing), qPrintable(r.out));
        QVERIFY2(!r.out.contains("Error"), qPrintable(r.out));
    }

    void unknownAgentKeepsTheTexts()
    {
        // For an agent id that no instance has, 3 and 5 keep what the last instance asked for left.
        const ToolResult first = snmp("snmpget", {Prefix.mid(1) + "0.5.0"});
        QVERIFY2(hasLine(first.out, Prefix + QString("0.5 = STRING: \"%1\"").arg(names(0))),
                 qPrintable(first.out));
        const ToolResult r =
            snmp("snmpget", {Prefix.mid(1) + "9.5.0", Prefix.mid(1) + "9.3.0", Prefix.mid(1) + "9.2.0"});
        QVERIFY2(r.finished && r.exitCode == 0, qPrintable(r.out));
        QVERIFY2(hasLine(r.out, Prefix + QString("9.5 = STRING: \"%1\"").arg(names(0))), qPrintable(r.out));
        QVERIFY2(hasLine(r.out, Prefix + "9.3 = NULL"), qPrintable(r.out));
        QVERIFY2(hasLine(r.out, Prefix + "9.2 = 0"), qPrintable(r.out));
    }

    void setReachesInstance_data()
    {
        QTest::addColumn<int>("agent");
        QTest::addColumn<int>("value");
        QTest::addColumn<QString>("command");
        QTest::newRow("0 sends 0x10000") << 0 << 0 << "command 0x010000 value 0 text \"\"";
        QTest::newRow("1 sends 0x10100") << 1 << 1 << "command 0x010100 value 0 text \"\"";
    }
    void setReachesInstance()
    {
        QFETCH(int, agent);
        QFETCH(int, value);
        QFETCH(QString, command);
        const QString oid = Prefix + QString("%1.6").arg(agent);
        const ToolResult r = snmp("snmpset", {oid.mid(1), "i", QString::number(value)});
        QVERIFY2(r.finished && r.exitCode == 0, qPrintable(r.out));
        QVERIFY2(hasLine(r.out, oid + " = INTEGER: " + QString::number(value)), qPrintable(r.out));
        QTRY_VERIFY2_WITH_TIMEOUT(SiteFixture::standInLog(m_setups[agent]).filter(command).size() == 1,
                                  qPrintable(SiteFixture::standInLog(m_setups[agent]).join('\n')), 5000);
        QCOMPARE(SiteFixture::standInLog(m_setups[1 - agent]).filter(command).size(), 0);
        QCOMPARE(m_program.count(QString("%1 | snmpSet 6 %2").arg(agent).arg(value)), 1);
    }

    void acceptedCallSendsTraps()
    {
        // 0x10100 let the second stand-in take a call: run state 3 (status 3), then 1 (status 5)
        // with its status text.
        const QString e = Prefix + "1";
        QTRY_VERIFY2_WITH_TIMEOUT(statusTraps(1).contains(5), qPrintable(trapText()), 10000);
        QCOMPARE(statusTraps(1), QList<int>({1, 7, 3, 5}));
        QCOMPARE(statusTraps(0), QList<int>({1, 7}));
        const Trap last = traps().last();
        QCOMPARE(last.enterprise, e);
        QCOMPARE(last.bindings.value(e + ".3"), QString("STRING: \"Connected to sip:second@192.0.2.20\""));
        QVERIFY(!last.bindings.contains(e + ".6"));
        const ToolResult r = snmp("snmpget", {e.mid(1) + ".2.0", e.mid(1) + ".3.0"});
        QVERIFY2(hasLine(r.out, e + ".2 = 5"), qPrintable(r.out));
        QVERIFY2(hasLine(r.out, e + ".3 = STRING: \"Connected to sip:second@192.0.2.20\""),
                 qPrintable(r.out));
    }

    void getNextIsNotAnswered()
    {
        const ToolResult r = snmp("snmpgetnext", {"1.3.6.1.2.1.1.1"}, 1);
        QVERIFY(r.finished);
        QVERIFY(r.exitCode != 0);
        QVERIFY2(r.out.contains("Timeout"), qPrintable(r.out));
        const ToolResult again = snmp("snmpget", {"1.3.6.1.2.1.1.1.0"});
        QVERIFY2(again.exitCode == 0 && again.out.contains("VEXA Studio Manager"), qPrintable(again.out));
    }

    void firstReceiverSendsOneTrapPerInstance()
    {
        // Only one manager may serve the hub: the headless one goes first.
        m_program.stop();
        QVERIFY(!m_program.running());
        QSettings().setValue("Path_To_Exe", VEXA_BIN_DIR "/VexaStudio");
        writeSite("inprocess");
        QList<SiteFixture::Instance> list;
        for (const QString &setup : qAsConst(m_setups))
            list.append({setup, m_site->standIn(), 0, 10, 1});
        Manager manager(nullptr, m_site->vxma(list));
        LogCapture::install();
        const uint ids[2] = {Manager::instanceUIUD(m_setups[0]), Manager::instanceUIUD(m_setups[1])};
        // Both past their start phase, so that no status change sends a trap of its own.
        for (uint id : ids)
            QTRY_VERIFY_WITH_TIMEOUT(manager.instance(id) && manager.instance(id)->state.statusCode == 7,
                                     10000);

        manager.snmpSetTrapPort(m_trapPort);
        QVERIFY(manager.snmpAgent());
        QCOMPARE(LogCapture::count("Sending SNMP Trap to"), 0);
        const int before = traps().size();
        QString receiver = "127.0.0.1";
        manager.snmpSetHost(-1, receiver);
        // At once, within the call: one trap per connected instance.
        QCOMPARE(LogCapture::count("Sending SNMP Trap to 127.0.0.1"), 2);
        QCOMPARE(manager.snmpTrapPort(), unsigned(m_trapPort));
        QTRY_VERIFY2_WITH_TIMEOUT(traps().size() >= before + 2, qPrintable(trapText()), 5000);
        QTest::qWait(300);
        const QList<Trap> sent = traps().mid(before);
        QCOMPARE(sent.size(), 2);
        for (int agent = 0; agent < 2; ++agent) {
            const QString e = Prefix + QString::number(agent);
            QCOMPARE(sent[agent].enterprise, e);
            QCOMPARE(sent[agent].bindings.value(e + ".2"), QString("7"));
            QCOMPARE(sent[agent].bindings.value(e + ".5"), QString("STRING: \"%1\"").arg(names(agent)));
        }
        qInstallMessageHandler(nullptr);
    }

    void cleanupTestCase()
    {
        qInstallMessageHandler(nullptr);
        m_program.stop();
        stopProcess(m_trapd);
    }
};

QTEST_GUILESS_MAIN(TestFullSnmp)
#include "tst_full_snmp.moc"
