#include "faultsite.h"

#include <QCoreApplication>
#include <QRandomGenerator>
#include <QStandardPaths>
#include <QtTest>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>

using namespace faults;

// Faults with real processes: the headless program supervising real stand-ins, killed, stopped,
// blocked and denied its settings folder, and what its instances and Ember+ consumers see of it.
class TestFaults : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<Site> m_site;
    std::unique_ptr<ManagerProcess> m_manager;
    QList<QProcess *> m_handStarted;

    // Waits for `count` lines with `needle`, or fails with the program's last lines.
    bool waitForLines(ManagerProcess &m, const QString &needle, int count, int ms)
    {
        QElapsedTimer clock;
        clock.start();
        while (m.count(needle) < count && clock.elapsed() < ms)
            QTest::qWait(50);
        if (m.count(needle) >= count)
            return true;
        qWarning().noquote() << "waited for" << count << "x" << needle << "; the program said:\n" << m.tail();
        return false;
    }
    static void pause(int ms) { QTest::qWait(ms); }

private slots:
    void init() { m_site = std::make_unique<Site>(QDir::homePath() + "/" + QTest::currentTestFunction()); }
    void cleanup()
    {
        if (QTest::currentTestFailed() && m_manager) {
            QProcess &p = m_manager->process();
            qWarning().noquote() << "the program" << (p.state() == QProcess::Running ? "runs" : "ended")
                                 << "exit status" << p.exitStatus() << "code" << p.exitCode()
                                 << "; it said:\n"
                                 << m_manager->tail(80);
        }
        m_manager.reset();
        for (QProcess *p : qAsConst(m_handStarted)) {
            p->kill();
            p->waitForFinished(2000);
            delete p;
        }
        m_handStarted.clear();
    }

    // Stand-ins that report fast are killed one at a time at random moments; each is started
    // again by the watchdog, and the consumers of every instance's provider never notice more
    // than a pause in the values.
    void standInsKilledUnderLoad()
    {
        const int instances = 3, kills = 5;
        QList<Instance> list;
        const QString exe = m_site->standIn({"--rate", "25"});
        for (int n = 0; n < instances; ++n)
            list.append({m_site->setup(QStringLiteral("load%1").arg(n)), exe, freePort(), 2});
        m_manager = std::make_unique<ManagerProcess>();
        ManagerProcess &m = *m_manager;
        m.start(m_site->vxma(list));
        QVERIFY(waitForLines(m, "Starting Data exchange", instances, 20000));

        std::vector<std::unique_ptr<CountingConsumer>> consumers;
        for (const Instance &i : list)
            for (int c = 0; c < 2; ++c)
                consumers.push_back(std::make_unique<CountingConsumer>(quint16(i.emberPort)));
        for (auto &c : consumers)
            QTRY_VERIFY_WITH_TIMEOUT(c->connected() && c->bytes > 0, 5000);

        const quint32 seed = QRandomGenerator::global()->generate();
        QRandomGenerator random(seed);
        qInfo() << "kill order seed" << seed;
        // An instance is killed again only once its restarted copy has spoken: a process that
        // dies before its first message is, by design, not timed out by the watchdog.
        QVector<int> exchanges(instances, 1);
        QVector<qint64> readySince(instances, -1);
        QElapsedTimer clock;
        clock.start();
        for (int k = 0; k < kills;) {
            QVERIFY2(clock.elapsed() < 35000,
                     qPrintable(QStringLiteral("only %1 kills in time\n%2").arg(k).arg(m.tail())));
            pause(200 + int(random.bounded(1300)));
            // Ready: its current process announced itself half a second ago or more, so that its
            // records flow and the watchdog counts.
            QList<int> ready;
            for (int n = 0; n < instances; ++n) {
                const int index = m.indexOf(list[n].setup);
                const bool spoke =
                    m.count(QStringLiteral("| %1 | Starting Data exchange").arg(index)) >= exchanges[n] &&
                    standIns(list[n].setup).size() == 1;
                if (!spoke)
                    readySince[n] = -1;
                else if (readySince[n] < 0)
                    readySince[n] = clock.elapsed();
                if (spoke && clock.elapsed() - readySince[n] >= 500)
                    ready.append(n);
            }
            if (ready.isEmpty())
                continue;
            const int victim = ready.at(int(random.bounded(ready.size())));
            const QList<qint64> pids = standIns(list[victim].setup);
            QCOMPARE(parentOf(pids.first()), m.pid());
            ::kill(pid_t(pids.first()), SIGKILL);
            ++exchanges[victim];
            readySince[victim] = -1;
            ++k;
        }

        QVERIFY(waitForLines(m, "Restart due to timeout", kills, 30000));
        QVERIFY(waitForLines(m, "Starting Data exchange", instances + kills, 15000));
        for (const Instance &i : list) {
            QTRY_COMPARE_WITH_TIMEOUT(standIns(i.setup).size(), 1, 5000);
            QCOMPARE(parentOf(standIns(i.setup).first()), m.pid());
        }
        for (auto &c : consumers)
            c->bytes = 0;
        for (auto &c : consumers) {
            QTRY_VERIFY_WITH_TIMEOUT(c->bytes > 0, 5000);
            QCOMPARE(c->drops, 0);
            QVERIFY(c->connected());
        }
        QVERIFY(m.isRunning());
        QCOMPARE(m.count("emberSocketClientDisconnected"), 0);
        QVERIFY(m.stop());
    }

    // The manager killed outright: its instances live on, and the next manager takes them over
    // instead of starting copies; it guards them, restarts one that dies with a process of its
    // own, and asks the adopted one to end when it quits.
    void managerKilledIsReplacedWithoutCopies()
    {
        const QList<Instance> list = {{m_site->setup("adoptA"), m_site->standIn(), freePort(), 3},
                                      {m_site->setup("adoptB"), m_site->standIn(), freePort(), 3}};
        const QString vxma = m_site->vxma(list);
        auto first = std::make_unique<ManagerProcess>();
        first->start(vxma);
        QVERIFY(waitForLines(*first, "Starting Data exchange", 2, 20000));
        QList<qint64> pids;
        for (const Instance &i : list) {
            QTRY_COMPARE_WITH_TIMEOUT(standIns(i.setup).size(), 1, 5000);
            pids << standIns(i.setup).first();
        }
        first->signal(SIGKILL);
        QVERIFY(first->process().waitForFinished(5000));
        first.reset();
        for (int n = 0; n < 2; ++n)
            QTRY_VERIFY_WITH_TIMEOUT(Site::standInLog(list[n].setup).contains("manager lost"), 5000);
        for (qint64 pid : qAsConst(pids))
            QVERIFY(running(pid));

        m_manager = std::make_unique<ManagerProcess>();
        ManagerProcess &m = *m_manager;
        m.start(vxma);
        QVERIFY(waitForLines(m, "relaying on", 1, 10000)); // the guard and the hub are ours again
        QVERIFY(waitForLines(m, "Adopting running instance", 2, 10000));
        QVERIFY(waitForLines(m, "Starting Data exchange", 2, 5000));
        // Several watchdog ticks later there is still one process per instance, and none of ours.
        pause(4000);
        for (int n = 0; n < 2; ++n)
            QCOMPARE(standIns(list[n].setup), QList<qint64>{pids[n]});
        QCOMPARE(m.count("startProcess"), 0);
        QCOMPARE(m.count("Restart due to"), 0);
        // The new providers serve what the adopted instances report.
        for (const Instance &i : list) {
            CountingConsumer consumer(quint16(i.emberPort));
            QTRY_VERIFY_WITH_TIMEOUT(consumer.bytes > 0, 5000);
        }

        // Still supervised: an adopted instance that dies is started again, now as our child.
        ::kill(pid_t(pids[0]), SIGKILL);
        QVERIFY(waitForLines(m, "Restart due to timeout", 1, 15000));
        QVERIFY(waitForLines(m, "Starting Data exchange", 3, 10000));
        QTRY_COMPARE_WITH_TIMEOUT(standIns(list[0].setup).size(), 1, 5000);
        const qint64 own = standIns(list[0].setup).first();
        QCOMPARE(parentOf(own), m.pid());

        // On quit our child is terminated and the adopted instance is asked to end itself.
        QVERIFY(m.stop());
        QTRY_VERIFY_WITH_TIMEOUT(!running(pids[1]), 5000);
        QVERIFY(Site::standInLog(list[1].setup).contains("terminate requested"));
        QTRY_VERIFY_WITH_TIMEOUT(!running(own), 5000);
    }

    // The manager frozen for 10 s and continued: nothing is restarted or lost, the consumers
    // stay connected and the values flow again.
    void managerStoppedAndContinued()
    {
        const QList<Instance> list = {{m_site->setup("stopA"), m_site->standIn(), freePort(), 3},
                                      {m_site->setup("stopB"), m_site->standIn(), freePort(), 3}};
        m_manager = std::make_unique<ManagerProcess>();
        ManagerProcess &m = *m_manager;
        m.start(m_site->vxma(list));
        QVERIFY(waitForLines(m, "Starting Data exchange", 2, 20000));
        QList<qint64> pids;
        std::vector<std::unique_ptr<CountingConsumer>> consumers;
        for (const Instance &i : list) {
            QTRY_COMPARE_WITH_TIMEOUT(standIns(i.setup).size(), 1, 5000);
            pids << standIns(i.setup).first();
            consumers.push_back(std::make_unique<CountingConsumer>(quint16(i.emberPort)));
        }
        for (auto &c : consumers)
            QTRY_VERIFY_WITH_TIMEOUT(c->bytes > 0, 5000);

        m.signal(SIGSTOP);
        pause(10000);
        for (auto &c : consumers)
            c->bytes = 0;
        m.signal(SIGCONT);

        for (auto &c : consumers)
            QTRY_VERIFY_WITH_TIMEOUT(c->bytes > 0, 5000);
        pause(4000); // longer than the instances' inactivity time
        for (int n = 0; n < 2; ++n)
            QCOMPARE(standIns(list[n].setup), QList<qint64>{pids[n]});
        for (auto &c : consumers) {
            QCOMPARE(c->drops, 0);
            QVERIFY(c->connected());
        }
        QCOMPARE(m.count("Restart due to"), 0);
        QCOMPARE(m.count("Starting Data exchange"), 2);
        QVERIFY(m.stop());
    }

    // An Ember+ port that another program holds: that instance's row says so, and the other
    // instance, its provider and the squatter carry on.
    void busyEmberPort()
    {
        QTcpServer squatter;
        QVERIFY(squatter.listen(QHostAddress::Any, 0));
        const QList<Instance> list = {{m_site->setup("busy"), m_site->standIn(), squatter.serverPort(), 3},
                                      {m_site->setup("free"), m_site->standIn(), freePort(), 3}};
        m_manager = std::make_unique<ManagerProcess>();
        ManagerProcess &m = *m_manager;
        m.start(m_site->vxma(list));
        QVERIFY(waitForLines(m, "Starting Data exchange", 2, 20000));
        QVERIFY(m.count("emberSocketInit listen error") >= 1);
        QVERIFY(waitForLines(m,
                             QStringLiteral("%1 - busy , port: %2 - Port Busy Error")
                                 .arg(list[0].setup)
                                 .arg(list[0].emberPort),
                             1, 5000));
        QCOMPARE(m.lines().filter(list[1].setup + " - ").filter("Port Busy Error").size(), 0);
        QVERIFY(waitForLines(
            m, QStringLiteral("%1 - free , port: %2 - E+(").arg(list[1].setup).arg(list[1].emberPort), 1,
            5000));

        CountingConsumer consumer(quint16(list[1].emberPort));
        QTRY_VERIFY_WITH_TIMEOUT(consumer.bytes > 0, 5000);
        QTcpSocket probe; // the squatter still has its port
        probe.connectToHost(QHostAddress::LocalHost, squatter.serverPort());
        QVERIFY(probe.waitForConnected(3000));
        QVERIFY(squatter.waitForNewConnection(3000));
        pause(3000);
        QCOMPARE(m.count("Restart due to"), 0);
        for (const Instance &i : list)
            QCOMPARE(standIns(i.setup).size(), 1);
        QVERIFY(m.stop());
    }

    // The folder of the ".vxma" turns read-only while the manager runs: the write that follows
    // fails with a warning, the file on disk is left whole, and the next write once the folder is
    // writable again still holds every instance. Root ignores permission bits, so as root the
    // program runs as the unprivileged user "nobody".
    void readOnlySettingsFolder()
    {
        const bool root = ::geteuid() == 0;
        const uid_t uid = 65534;
        const gid_t gid = 65534;
        QStringList wrapper;
        QString base = QDir::homePath() + "/ro";
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        if (root) {
            if (QStandardPaths::findExecutable("setpriv").isEmpty())
                QFAIL("running as root needs setpriv (util-linux) to drop to an unprivileged user");
            // "nobody" must reach its own folders below the test's private root.
            const QByteArray top = qgetenv("VEXA_TEST_ROOT");
            if (top.isEmpty())
                QFAIL("VEXA_TEST_ROOT is not set: run this test through scripts/run-isolated");
            base = QString::fromLocal8Bit(top) + "/nobody";
            QVERIFY(::chmod(top.constData(), 0711) == 0);
            wrapper << "setpriv" << QStringLiteral("--reuid=%1").arg(uid)
                    << QStringLiteral("--regid=%1").arg(gid) << "--clear-groups";
        }
        const QString settings = base + "/settings", site = base + "/site";
        for (const QString &dir : QStringList{"home/Documents", "tmp", "config", "run", "settings", "site"})
            QVERIFY(QDir().mkpath(base + "/" + dir));
        env.insert("HOME", base + "/home");
        env.insert("TMPDIR", base + "/tmp");
        env.insert("XDG_CONFIG_HOME", base + "/config");
        env.insert("XDG_RUNTIME_DIR", base + "/run");

        Site files(site);
        const QList<Instance> list = {{files.setup("roA"), files.standIn(), freePort(), 5},
                                      {files.setup("roB"), files.standIn(), freePort(), 5}};
        const QString vxma = files.vxma(list, settings);
        if (root) {
            QProcess chown;
            chown.start("chown", {"-R", QStringLiteral("%1:%2").arg(uid).arg(gid), base});
            QVERIFY(chown.waitForFinished(5000) && chown.exitCode() == 0);
            ::chmod(QFile::encodeName(base + "/run").constData(), 0700);
            // Check that the drop works here at all: a write below root's own folder must fail.
            QProcess check;
            check.start("setpriv", wrapper.mid(1) + QStringList{"touch", QDir::homePath() + "/root-only"});
            check.waitForFinished(5000);
            QVERIFY2(check.exitCode() != 0,
                     "setpriv did not drop root's rights: the test cannot make a folder "
                     "read-only for the program");
        }

        m_manager = std::make_unique<ManagerProcess>();
        ManagerProcess &m = *m_manager;
        m.start(vxma, wrapper, env);
        QVERIFY(waitForLines(m, "Starting Data exchange", 2, 20000));
        const QByteArray before = readFile(vxma);
        QVERIFY(before.contains("roA.vxup") && before.contains("roB.vxup"));

        // A hand-started instance reports its executable, which makes the manager write the file.
        auto handStart = [&](const QString &name) {
            auto *p = new QProcess;
            p->setProcessEnvironment(env);
            const QString setup = files.setup(name);
            if (root)
                ::chown(QFile::encodeName(setup).constData(), uid, gid);
            QStringList args = wrapper;
            args << binDir() + "/VexaStudio" << setup;
            p->start(args.takeFirst(), args);
            m_handStarted.append(p);
        };

        QVERIFY(::chmod(QFile::encodeName(vxma).constData(), 0444) == 0);
        QVERIFY(::chmod(QFile::encodeName(settings).constData(), 0555) == 0);
        handStart("handOne");
        QVERIFY(waitForLines(m, "Settings file could not be written", 1, 10000));
        QCOMPARE(readFile(vxma), before);
        QVERIFY(m.isRunning());
        QCOMPARE(m.count("Restart due to"), 0);

        QVERIFY(::chmod(QFile::encodeName(settings).constData(), 0755) == 0);
        QVERIFY(::chmod(QFile::encodeName(vxma).constData(), 0644) == 0);
        handStart("handTwo");
        QVERIFY(waitForLines(m, "VX Manually started", 2, 10000));
        QTRY_VERIFY_WITH_TIMEOUT(readFile(vxma) != before, 5000);
        if (m.count("Settings file could not be written") != 1)
            qWarning().noquote() << m.lines().join('\n');
        QCOMPARE(m.count("Settings file could not be written"), 1);
        QVERIFY(m.stop());

        // Every instance is still in the file, as it was: the program reads it back in full.
        const QByteArray after = readFile(vxma);
        for (const Instance &i : list) {
            QVERIFY2(after.contains(i.setup.toUtf8()), after.constData());
            QVERIFY2(after.contains(QByteArray::number(i.emberPort)), after.constData());
        }
        ManagerProcess again;
        again.start(vxma, wrapper, env);
        QVERIFY(waitForLines(again, "Adding Instance", 2, 10000));
        QVERIFY(again.indexOf(list[0].setup) >= 0 && again.indexOf(list[1].setup) >= 0);
        QVERIFY(again.stop());
    }
};

QTEST_GUILESS_MAIN(TestFaults)
#include "tst_faults.moc"
