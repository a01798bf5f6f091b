#include "app/manager.h"
#include "hub/multicastsocketserver.h"
#include "sitefixture.h"

#include <QCoreApplication>
#include <QProcess>
#include <QSettings>
#include <QSignalSpy>
#include <QTcpServer>
#include <QtTest>
#include <csignal>
#include <memory>

// The manager supervising real stand-in instances over the real hub: the cascaded start, the
// watchdog, restarts, hand-started instances, value commands and the acceptance of records.
class TestSupervision : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<SiteFixture> m_site;
    std::unique_ptr<Manager> m_manager;

    Manager *start(const QString &vxma)
    {
        m_manager = std::make_unique<Manager>(nullptr, vxma);
        LogCapture::install();
        return m_manager.get();
    }
    // The line the manager logs about the instance in row `index`.
    static QString line(int index, const QString &text)
    {
        return QStringLiteral("%1 | %2").arg(index).arg(text);
    }
    bool alive(uint id)
    {
        const VX_Instance *r = m_manager ? m_manager->instance(id) : nullptr;
        return r && r->aliveCounter >= 0 && r->aliveCounter < 86400;
    }

private slots:
    void initTestCase()
    {
        QCoreApplication::setOrganizationName("CalderWick");
        QCoreApplication::setApplicationName("VEXA Studio Manager");
        QSettings::setDefaultFormat(QSettings::IniFormat);
        QSettings().setValue("Path_To_Exe", VEXA_BIN_DIR "/VexaStudio");
    }
    void init()
    {
        m_site = std::make_unique<SiteFixture>(QDir::homePath() + "/" + QTest::currentTestFunction());
    }
    void cleanup()
    {
        m_manager.reset();
        qInstallMessageHandler(nullptr);
    }

    void cascadeStartsOneAfterAnother()
    {
        QList<SiteFixture::Instance> list;
        for (int n = 0; n < 3; ++n)
            list.append({m_site->setupFile(QStringLiteral("cascade%1").arg(n)), m_site->standIn(), 0, 30, 1});
        Manager *m = start(m_site->vxma(list));
        QTRY_VERIFY_WITH_TIMEOUT(LogCapture::count("Starting Data exchange") == 3, 20000);
        int previousExchange = -1;
        for (int index = 0; index < 3; ++index) {
            const int started = LogCapture::find(line(index, "startProcess"));
            const int exchange = LogCapture::find(line(index, "Starting Data exchange"));
            QVERIFY2(started > previousExchange,
                     qPrintable(QString("instance %1 started too early").arg(index)));
            QVERIFY(exchange > started);
            previousExchange = exchange;
        }
        for (uint id : m->instanceMap().keys())
            QTRY_VERIFY_WITH_TIMEOUT(alive(id), 5000);
    }

    void failedStartLetsTheNextOneGo()
    {
        // The instance that comes first (lowest id) has an executable that does not exist.
        QString a = m_site->setupFile("brokenA"), b = m_site->setupFile("brokenB");
        if (Manager::instanceUIUD(a) > Manager::instanceUIUD(b))
            std::swap(a, b);
        Manager *m = start(m_site->vxma(
            {{a, m_site->dir() + "/no-such-program", 0, 30, 1}, {b, m_site->standIn(), 0, 30, 1}}));
        QTRY_VERIFY_WITH_TIMEOUT(LogCapture::count("processError") >= 1, 10000);
        QTRY_VERIFY_WITH_TIMEOUT(alive(Manager::instanceUIUD(b)), 10000);
        QVERIFY(m->instance(Manager::instanceUIUD(a))->flags & InstanceFilesMissing);
        const QStringList fields = m->StatusPrepMessage(*m->instance(Manager::instanceUIUD(a)), 0);
        QCOMPARE(fields.value(4), QString("Not found !"));
    }

    void silentInstanceIsRestarted()
    {
        const QString setup = m_site->setupFile("silent");
        Manager *m = start(m_site->vxma({{setup, m_site->standIn({"--silent-after", "1"}), 0, 3, 1}}));
        QSignalSpy rows(m, &Manager::StatusUpdate);
        const uint id = Manager::instanceUIUD(setup);
        QTRY_VERIFY_WITH_TIMEOUT(alive(id), 10000);
        QTRY_VERIFY_WITH_TIMEOUT(LogCapture::count("Restart due to timeout") >= 1, 15000);
        // The row counted down before the restart.
        QStringList texts;
        for (const QList<QVariant> &r : qAsConst(rows))
            texts << r.at(1).toString();
        const int countdown = texts.indexOf(QRegularExpression(".*Non-responsive\\.\\.\\.:;Restart in 1$"));
        const int restarting =
            texts.indexOf(QRegularExpression(".*Non-responsive\\.\\.\\.:;Restarting\\.\\.\\.$"));
        QVERIFY2(countdown >= 0, qPrintable(texts.join('\n')));
        QVERIFY(restarting > countdown);
        // Killed and started in place: it announces itself again.
        QTRY_VERIFY_WITH_TIMEOUT(LogCapture::count("Starting Data exchange") >= 2, 10000);
    }

    void killedInstanceIsRestarted()
    {
        const QString setup = m_site->setupFile("killed");
        Manager *m = start(m_site->vxma({{setup, m_site->standIn(), 0, 2, 1}}));
        const uint id = Manager::instanceUIUD(setup);
        QTRY_VERIFY_WITH_TIMEOUT(alive(id), 10000);
        const qint64 pid = m->instance(id)->process->processId();
        QVERIFY(pid > 0);
        ::kill(pid_t(pid), SIGKILL);
        QTRY_VERIFY_WITH_TIMEOUT(LogCapture::count("Restart due to timeout") >= 1, 15000);
        QTRY_VERIFY_WITH_TIMEOUT(LogCapture::count("Starting Data exchange") >= 2, 10000);
        QTRY_VERIFY_WITH_TIMEOUT(alive(id), 5000);
        QVERIFY(m->instance(id)->process->processId() != pid);
    }

    void handStartedInstanceIsServedThenTerminated()
    {
        Manager *m = start(m_site->vxma({}));
        const QString setup = m_site->setupFile("byhand");
        QProcess standIn;
        standIn.start(VEXA_BIN_DIR "/VexaStudio", {setup});
        const uint id = Manager::instanceUIUD(setup);
        QTRY_VERIFY_WITH_TIMEOUT(alive(id), 10000);
        QCOMPARE(m->instance(id)->flags, 0);
        QCOMPARE(m->instance(id)->inactivityTime, 0);
        QVERIFY(LogCapture::count("VX Manually started") == 1);
        // A value command arrives with its absolute value.
        m->instanceDataSend(id, 0x600, -5, QByteArray());
        QTRY_VERIFY_WITH_TIMEOUT(
            SiteFixture::standInLog(setup).filter("command 0x000600 value 5").size() == 1, 5000);
        // Deleting an instance the manager does not run asks it to end itself.
        m->instanceDelete(id);
        QVERIFY(standIn.waitForFinished(5000));
        QCOMPARE(standIn.exitCode(), 0);
        QVERIFY(!m->instance(id));
    }

    void restartCommandRecreatesAsAutoRun()
    {
        Manager *m = start(m_site->vxma({}));
        const QString setup = m_site->setupFile("restarted");
        QProcess standIn;
        standIn.start(VEXA_BIN_DIR "/VexaStudio", {setup});
        const uint id = Manager::instanceUIUD(setup);
        QTRY_VERIFY_WITH_TIMEOUT(alive(id), 10000);
        m->instanceDataSend(id, 0x10700, 0, QByteArray());
        QCOMPARE(m->instance(id)->aliveCounter, 86400);
        QTRY_VERIFY_WITH_TIMEOUT(LogCapture::count("Restart due to command") == 1, 5000);
        // The hand-started copy was told to end; the manager starts and runs its own.
        QTRY_VERIFY2_WITH_TIMEOUT(standIn.state() == QProcess::NotRunning,
                                  qPrintable(LogCapture::snapshot().join('\n')), 5000);
        QTRY_VERIFY_WITH_TIMEOUT(m->instance(id) && (m->instance(id)->flags & InstanceAutoRun), 5000);
        QTRY_VERIFY_WITH_TIMEOUT(alive(id) && m->instance(id)->process, 10000);
        QCOMPARE(m->instance(id)->process->state(), QProcess::Running);
    }

    void recordsAreCheckedBeforeUse()
    {
        Manager *m = start(m_site->vxma({}));
        // A participant of our own that announces itself and sends records of every shape.
        MultiCastSocketServer peer(nullptr, "VXMANAGERQT", 1 | 2 | 4);
        QTRY_VERIFY_WITH_TIMEOUT(peer.ownId() != 0 && m->hubIsServer(), 5000);
        const QString path = m_site->dir() + "/peer.vxup";
        const uint id = Manager::instanceUIUD(path);
        QSignalSpy greeting(&peer, &MultiCastSocketServer::dataFromServer);
        // Announce until registered, as an instance does.
        bool registered = false;
        for (int attempt = 0; attempt < 60 && !registered; ++attempt) {
            peer.broadcastData(QString("syncset") + path);
            registered = QTest::qWaitFor([&] { return m->instance(id) != nullptr; }, 500);
        }
        QVERIFY(m->instance(id));
        QTRY_VERIFY_WITH_TIMEOUT(
            !greeting.isEmpty() && greeting.last().at(0).toByteArray().startsWith("VXMANAGER"), 5000);

        QByteArray record(StatusRecord::FullBytes, '\0');
        record[0] = 7;
        StatusRecord::setText(record, StatusRecord::Name, StatusRecord::NameWidth, "Peer One");
        peer.broadcastData(record.left(315 * 4));
        QTRY_COMPARE_WITH_TIMEOUT(LogCapture::count("unknown data received in m_commPipe from"), 1, 5000);
        record[0] = 6;
        peer.broadcastData(record);
        QTRY_COMPARE_WITH_TIMEOUT(LogCapture::count("unknown data received in m_commPipe from"), 2, 5000);
        QCOMPARE(m->instance(id)->aliveCounter, -1);
        record[0] = 7;
        peer.broadcastData(record.left(316 * 4));
        QTRY_COMPARE_WITH_TIMEOUT(m->instance(id)->aliveCounter, 0, 5000);
        QCOMPARE(
            StatusRecord::text(m->instance(id)->state.record, StatusRecord::Name, StatusRecord::NameWidth),
            QByteArray("Peer One"));
    }

    void statusTexts_data()
    {
        QTest::addColumn<int>("runState");
        QTest::addColumn<int>("emberPort");
        QTest::addColumn<int>("flags");
        QTest::addColumn<QString>("interfaces");
        QTest::addColumn<QString>("status");
        QTest::addColumn<int>("code");
        QTest::newRow("-100") << -100 << 0 << 0 << "no ember+"
                              << "Started.." << 1;
        QTest::newRow("-4") << -4 << 0 << 0 << "no ember+"
                            << "connecting..." << 0;
        QTest::newRow("-2") << -2 << 0 << 0 << "no ember+"
                            << "Stand by" << 0;
        QTest::newRow("-1") << -1 << 0 << 0 << "no ember+"
                            << "Stand by" << 1;
        QTest::newRow("0") << 0 << 0 << 0 << "no ember+"
                           << "Waiting for connection" << 7;
        QTest::newRow("1 own text") << 1 << 0 << 0 << "no ember+"
                                    << "own words" << 5;
        QTest::newRow("2") << 2 << 0 << 0 << "no ember+"
                           << "Stopped..." << 0;
        QTest::newRow("3") << 3 << 0 << 0 << "no ember+"
                           << "Call in progress" << 3;
        QTest::newRow("4") << 4 << 0 << 0 << "no ember+"
                           << "UDP dropout warning" << 8;
        QTest::newRow("5") << 5 << 0 << 0 << "no ember+"
                           << "UDP no input error" << 9;
        QTest::newRow("other") << 17 << 0 << 0 << "no ember+"
                               << "" << 0;
        QTest::newRow("files missing") << 3 << 0 << int(InstanceFilesMissing) << "no ember+"
                                       << "Not found !" << 3;
        QTest::newRow("ember listening") << 0 << -1 << 0 << "E+(0)"
                                         << "Waiting for connection" << 7;
    }
    void statusTexts()
    {
        QFETCH(int, runState);
        QFETCH(int, emberPort);
        QFETCH(int, flags);
        QFETCH(QString, interfaces);
        QFETCH(QString, status);
        QFETCH(int, code);
        if (emberPort < 0) {
            // A port that was free a moment ago.
            QTcpServer probe;
            QVERIFY(probe.listen(QHostAddress::Any, 0));
            emberPort = probe.serverPort();
        }
        Manager *m = start(m_site->vxma({}));
        const QString setup = m_site->dir() + "/texts.vxup";
        const uint id = Manager::instanceUIUD(setup);
        m->instanceCreate(id, "/x/VexaStudio", setup, emberPort, 0, flags);
        VX_Instance *r = m->instance(id);
        StatusRecord::setText(r->state.record, StatusRecord::RunStateText, 64, "own words");
        StatusRecord::setText(r->state.record, StatusRecord::Station, 68, "Station X");
        const QStringList fields = m->StatusPrepMessage(*r, runState);
        QCOMPARE(fields.size(), 5);
        QCOMPARE(fields[0], setup);
        QCOMPARE(fields[1],
                 emberPort ? QString("start: texts , port: %1").arg(emberPort) : QString("start: texts"));
        QCOMPARE(fields[2], interfaces);
        QCOMPARE(fields[3], runState == 2 ? setup : QString("Station X"));
        QCOMPARE(fields[4], status);
        QCOMPARE(Manager::instanceMapStatus(runState), code);
    }

    void busyEmberPort()
    {
        QTcpServer squatter;
        QVERIFY(squatter.listen(QHostAddress::Any, 0));
        Manager *m = start(m_site->vxma({}));
        const QString setup = m_site->dir() + "/busy.vxup";
        const uint id = Manager::instanceUIUD(setup);
        m->instanceCreate(id, "/x/VexaStudio", setup, squatter.serverPort(), 0, 0);
        QCOMPARE(m->StatusPrepMessage(*m->instance(id), 0).value(2), QString("Port Busy Error"));
    }

    // Last: the second manager asks the application to quit.
    void secondManagerQuits()
    {
        start(m_site->vxma({}));
        QTRY_VERIFY_WITH_TIMEOUT(m_manager->hubIsServer(), 5000);
        Manager second(nullptr, m_site->dir() + "/second");
        LogCapture::install(); // the second manager's logging took the handler back
        QSignalSpy detected(&second, &Manager::doubleDetect);
        QTRY_COMPARE_WITH_TIMEOUT(detected.count(), 1, 5000);
        QVERIFY(LogCapture::count("Double run Detected") == 1);
        QVERIFY(m_manager->hubIsServer());
    }
};

QTEST_GUILESS_MAIN(TestSupervision)
#include "tst_supervision.moc"
