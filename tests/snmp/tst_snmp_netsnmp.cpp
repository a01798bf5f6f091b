#include "../peertools.h"
#include "snmp/snmp.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QRandomGenerator>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QtTest>

// The agent against an independent peer: net-snmp's snmpget, snmpset and snmpgetnext ask it over
// loopback, and snmptrapd receives its traps. The agent is served the way the manager serves it,
// through direct connections, from a table of this test's own.
class TestSnmpNetSnmp : public QObject
{
    Q_OBJECT

    struct Instance
    {
        unsigned status;
        QByteArray text;
        unsigned jitter;
        QByteArray name;
        unsigned word7;
    };

    SNMP *m_agent = nullptr;
    unsigned m_port = 0;
    QMap<unsigned, Instance> m_instances; // by agent id
    QStringList m_sets;
    unsigned m_lastTicks = 0;
    QString m_dir;

    void serveGet(uint agentId, uint id)
    {
        if (id == 102) {
            m_lastTicks = unsigned(QTime(0, 0).msecsTo(QTime::currentTime()));
            m_agent->vbSet(102, m_lastTicks);
            return;
        }
        if (id > 99)
            return;
        auto it = m_instances.constFind(agentId);
        if (it == m_instances.cend()) {
            for (unsigned zeroed : {2u, 4u, 7u})
                if (zeroed == id)
                    m_agent->vbSet(id, 0u);
            return;
        }
        switch (id) {
        case 2:
            m_agent->vbSet(2, it->status);
            break;
        case 3:
            m_agent->vbSet(3, it->text.constData());
            break;
        case 4:
            m_agent->vbSet(4, it->jitter);
            break;
        case 5:
            m_agent->vbSet(5, it->name.constData());
            break;
        case 7:
            m_agent->vbSet(7, it->word7);
            break;
        default:
            break;
        }
    }

    QProcessEnvironment toolEnvironment() const { return netSnmpEnvironment(m_dir); }

    // Runs a tool while the event loop keeps serving the agent; bounded by timeoutMs.
    ToolResult run(const QString &program, const QStringList &args, int timeoutMs = 8000)
    {
        return runTool(program, args, toolEnvironment(), timeoutMs);
    }

    QStringList common() const
    {
        return {"-v1", "-c", "public", "-On", "-t", "2", "-r", "0", QString("127.0.0.1:%1").arg(m_port)};
    }

    static QString prefix(const QString &more) { return "1.3.6.1.4.1.32473.32." + more; }

    // net-snmp prints one binding per line (tab-separated in the trap log): match a whole one.
    static bool hasLine(const QString &out, const QString &binding)
    {
        return out.contains(QRegularExpression(QRegularExpression::escape(binding) + "(\\s|$)"));
    }

private slots:
    void initTestCase()
    {
        if (QStandardPaths::findExecutable("snmpget").isEmpty() ||
            QStandardPaths::findExecutable("snmptrapd", {"/usr/sbin", "/usr/bin"}).isEmpty())
            QSKIP("net-snmp tools (packages snmp, snmptrapd) are not installed");
        qRegisterMetaType<QProcess::ExitStatus>();
        m_dir = QDir::tempPath() + "/netsnmp";
        QVERIFY(QDir().mkpath(m_dir + "/persist"));
        QVERIFY(QDir().mkpath(m_dir + "/conf"));

        m_instances.insert(1, {3, "Running", 0x00050004, "Studio A", 11});
        m_instances.insert(2, {200, "Connected", 0x00030002, "Studio B", 40000});

        m_agent = new SNMP(this);
        m_agent->vbSet(105, 0x7F000001u);
        m_agent->vbSet(103, "VEXA Studio Manager");
        m_agent->vbSet(104, "Linux");
        connect(m_agent, &SNMP::getValue, this, &TestSnmpNetSnmp::serveGet, Qt::DirectConnection);
        connect(
            m_agent, &SNMP::setValue, this,
            [this](uint a, uint id, uint value) {
                m_sets << QString("%1/%2/%3").arg(a).arg(id).arg(value);
                if (id == 6)
                    m_agent->vbSet(6, value);
            },
            Qt::DirectConnection);
        for (unsigned id : {2u, 3u, 4u, 5u, 7u})
            m_agent->vbAdd(id, true);
        m_agent->vbAdd(6, false);

        // A free high port: another test may hold the first one tried.
        for (int attempt = 0; attempt < 20 && m_agent->hostListenPort() == 0; ++attempt)
            m_agent->hostSetListenPort(20000 + QRandomGenerator::global()->bounded(40000));
        m_port = m_agent->hostListenPort();
        QVERIFY(m_port != 0);
        QVERIFY(m_agent->hostsOk());
    }

    void getSystem()
    {
        const ToolResult r = run("snmpget", common() << "1.3.6.1.2.1.1.1.0"
                                                     << "1.3.6.1.2.1.1.3.0");
        QVERIFY2(r.finished && r.exitCode == 0, qPrintable(r.out));
        QVERIFY2(r.out.contains(".1.3.6.1.2.1.1.1 = STRING: \"VEXA Studio Manager\""), qPrintable(r.out));
        const QRegularExpressionMatch ticks =
            QRegularExpression("\\.1\\.3\\.6\\.1\\.2\\.1\\.1\\.3 = Timeticks: \\((\\d+)\\)").match(r.out);
        QVERIFY2(ticks.hasMatch(), qPrintable(r.out));
        QCOMPARE(ticks.captured(1).toUInt(), m_lastTicks);
    }

    void getInstance_data()
    {
        QTest::addColumn<QString>("oid");
        QTest::addColumn<QString>("answer");
        QTest::newRow("status, application 7 read as unsigned")
            << prefix("2.2.0") << "." + prefix("2.2") + " = 200";
        QTest::newRow("40000 without a leading zero") << prefix("2.7.0") << "." + prefix("2.7") + " = 40000";
        QTest::newRow("status text") << prefix("2.3.0") << "." + prefix("2.3") + " = STRING: \"Connected\"";
        QTest::newRow("name of agent 1")
            << prefix("1.5.0") << "." + prefix("1.5") + " = STRING: \"Studio A\"";
        QTest::newRow("agent without instance") << prefix("9.2.0") << "." + prefix("9.2") + " = 0";
        QTest::newRow("unknown OID is NULL") << "1.3.6.1.4.1.9999.1.0"
                                             << ".1.3.6.1.4.1.9999.1.0 = NULL";
    }
    void getInstance()
    {
        QFETCH(QString, oid);
        QFETCH(QString, answer);
        const ToolResult r = run("snmpget", common() << oid);
        QVERIFY2(r.finished && r.exitCode == 0, qPrintable(r.out));
        QVERIFY2(hasLine(r.out, answer), qPrintable(r.out));
        QVERIFY2(!r.out.contains("Error"), qPrintable(r.out));
    }

    void set()
    {
        m_sets.clear();
        const ToolResult r = run("snmpset", common() << prefix("2.6") << "i"
                                                     << "1");
        QVERIFY2(r.finished && r.exitCode == 0, qPrintable(r.out));
        QCOMPARE(m_sets, QStringList{"2/6/1"});
        QVERIFY2(r.out.contains("." + prefix("2.6") + " = INTEGER: 1"), qPrintable(r.out));
    }

    void getNextUnanswered()
    {
        m_sets.clear();
        const ToolResult r =
            run("snmpgetnext", QStringList{"-v1", "-c", "public", "-On", "-t", "1", "-r", "0",
                                           QString("127.0.0.1:%1").arg(m_port), "1.3.6.1.2.1.1.1"});
        QVERIFY(r.finished);
        QVERIFY(r.exitCode != 0);
        QVERIFY2(r.out.contains("Timeout"), qPrintable(r.out));
        // The agent still answers afterwards.
        const ToolResult again = run("snmpget", common() << prefix("1.2.0"));
        QVERIFY2(hasLine(again.out, "." + prefix("1.2") + " = 3"), qPrintable(again.out));
    }

    void trap()
    {
        const QString log = m_dir + "/traps.log";
        QFile::remove(log);
        QFile conf(m_dir + "/snmptrapd.conf");
        QVERIFY(conf.open(QIODevice::WriteOnly));
        conf.write("disableAuthorization yes\n");
        conf.close();

        // snmptrapd on a free high port: started until one stays up, each wait bounded.
        QProcess trapd;
        trapd.setProcessEnvironment(toolEnvironment());
        trapd.setProcessChannelMode(QProcess::MergedChannels);
        unsigned trapPort = 0;
        for (int attempt = 0; attempt < 5 && trapPort == 0; ++attempt) {
            const unsigned port = 20000 + QRandomGenerator::global()->bounded(40000);
            trapd.start("snmptrapd", {"-f", "-On", "-Lf", log, "-C", "-c", conf.fileName(),
                                      "--disableAuthorization=yes", QString("udp:127.0.0.1:%1").arg(port)});
            if (!trapd.waitForStarted(3000))
                continue;
            for (int wait = 0; wait < 50 && trapd.state() == QProcess::Running; ++wait) {
                QFile file(log);
                if (file.open(QIODevice::ReadOnly) && file.readAll().contains("NET-SNMP version")) {
                    trapPort = port;
                    break;
                }
                QTest::qWait(100);
            }
            if (trapPort == 0 && trapd.state() != QProcess::NotRunning) {
                trapd.kill();
                trapd.waitForFinished(2000);
            }
        }
        QVERIFY2(trapPort != 0, qPrintable(QString::fromLocal8Bit(trapd.readAll())));

        // What the manager does for one instance, then send.
        m_agent->hostSet(-1, "127.0.0.1");
        m_agent->hostSetTrapPort(trapPort);
        m_agent->vxiSet(2);
        serveGet(2, 102);
        for (unsigned id : {2u, 3u, 4u, 5u, 7u})
            serveGet(2, id);

        QByteArray text;
        for (int attempt = 0; attempt < 5 && !text.contains("32473.32.2.7 ="); ++attempt) {
            m_agent->trapSend();
            for (int wait = 0; wait < 10 && !text.contains("32473.32.2.7 ="); ++wait) {
                QTest::qWait(100);
                QFile file(log);
                if (file.open(QIODevice::ReadOnly))
                    text = file.readAll();
            }
        }
        trapd.terminate();
        if (!trapd.waitForFinished(3000)) {
            trapd.kill();
            trapd.waitForFinished(2000);
        }

        const QString got = QString::fromLocal8Bit(text);
        QVERIFY2(got.contains("TRAP, SNMP v1, community public"), qPrintable(got));
        QVERIFY2(got.contains("." + prefix("2") + " Enterprise Specific Trap (1) Uptime:"), qPrintable(got));
        for (const QString &binding :
             {"." + prefix("2.2") + " = 200", "." + prefix("2.3") + " = STRING: \"Connected\"",
              "." + prefix("2.4") + " = 196610", "." + prefix("2.5") + " = STRING: \"Studio B\"",
              "." + prefix("2.7") + " = 40000"})
            QVERIFY2(hasLine(got, binding), qPrintable(binding + "\n" + got));
        QVERIFY2(!got.contains("." + prefix("2.6")), qPrintable(got));
    }

    void cleanupTestCase()
    {
        delete m_agent;
        m_agent = nullptr;
    }
};

QTEST_GUILESS_MAIN(TestSnmpNetSnmp)
#include "tst_snmp_netsnmp.moc"
