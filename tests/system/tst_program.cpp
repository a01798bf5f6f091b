#include "sitefixture.h"

#include <QCoreApplication>
#include <QDirIterator>
#include <QProcess>
#include <QSettings>
#include <QtTest>
#include <csignal>
#include <memory>

// The program itself, as an operator runs it: the single-run guard, headless start and the
// shutdown path on SIGTERM.
class TestProgram : public QObject
{
    Q_OBJECT

private:
    static constexpr const char *Program = VEXA_BIN_DIR "/vexa-studio-manager";

    std::unique_ptr<QProcess> launch(const QStringList &arguments)
    {
        auto p = std::make_unique<QProcess>();
        p->start(Program, arguments);
        p->waitForStarted(5000);
        return p;
    }
    // Waits (bounded) until the process has written `text` to standard error.
    static bool waitForOutput(QProcess *p, const QByteArray &text, QByteArray *seen, int timeoutMs = 10000)
    {
        QElapsedTimer clock;
        clock.start();
        while (clock.elapsed() < timeoutMs) {
            p->waitForReadyRead(100);
            *seen += p->readAllStandardError();
            if (seen->contains(text))
                return true;
            if (p->state() == QProcess::NotRunning)
                return false;
        }
        return false;
    }
    static QByteArray logFiles()
    {
        QByteArray all;
        QDirIterator it(QDir::homePath() + "/Documents/VexaStudio-Logs", {"*.csv"}, QDir::Files,
                        QDirIterator::Subdirectories);
        while (it.hasNext()) {
            QFile f(it.next());
            if (f.open(QIODevice::ReadOnly))
                all += f.readAll();
        }
        return all;
    }

private slots:
    void initTestCase()
    {
        QCoreApplication::setOrganizationName("CalderWick");
        QCoreApplication::setApplicationName("VEXA Studio Manager");
        QSettings::setDefaultFormat(QSettings::IniFormat);
        QSettings settings;
        settings.setValue("LoggingLevel", 2);
        settings.setValue("LoggingDays", 1);
    }

    void version()
    {
        QProcess p;
        p.start(Program, {"--version"});
        QVERIFY(p.waitForFinished(10000));
        QCOMPARE(p.exitCode(), 0);
        QVERIFY(p.readAllStandardOutput().contains("5.14.0.0"));
    }

    void singleRunGuardAndShutdown()
    {
        SiteFixture site(QDir::homePath() + "/site");
        const QString setup = site.setupFile("guarded");
        const QString vxma = site.vxma({{setup, site.standIn(), 0, 30, 1}});

        QByteArray first;
        auto a = launch({"--headless", "--vxma", vxma});
        QVERIFY(waitForOutput(a.get(), "Starting Data exchange", &first));

        // A second start beside a live manager ends at once, silently.
        QProcess second;
        second.start(Program, {"--headless", "--vxma", vxma});
        QVERIFY(second.waitForFinished(5000));
        QCOMPARE(second.exitCode(), 0);
        QCOMPARE(second.readAll(), QByteArray());

        // Killed hard, the manager leaves its guard segment, its hub socket and its stand-in behind;
        // the next start runs all the same.
        ::kill(pid_t(a->processId()), SIGKILL);
        QVERIFY(a->waitForFinished(5000));
        QByteArray third;
        auto c = launch({"--headless", "--vxma", vxma});
        QVERIFY2(waitForOutput(c.get(), "Starting Data exchange", &third, 15000), third.constData());
        QVERIFY(third.contains("******************Starting Program"));

        // SIGTERM goes through the quit path: instances stopped, settings written, log flushed.
        ::kill(pid_t(c->processId()), SIGTERM);
        QVERIFY(c->waitForFinished(15000));
        third += c->readAllStandardError();
        QCOMPARE(c->exitStatus(), QProcess::NormalExit);
        QCOMPARE(c->exitCode(), 0);
        QVERIFY(third.contains("Quiting Program"));
        QVERIFY(third.contains("******************Program Quit"));
        const QByteArray log = logFiles();
        QVERIFY(log.contains("|Info|| ******************Starting Program"));
        QVERIFY(log.contains("|Info|| ******************Program Quit"));
        QSettings settings;
        settings.sync();
        QCOMPARE(settings.value("Path_To_VXMA").toString(), vxma);
        QSettings saved(vxma, QSettings::IniFormat);
        QCOMPARE(saved.value("Instances/Instance0").toString(), setup);
    }
};

QTEST_GUILESS_MAIN(TestProgram)
#include "tst_program.moc"
