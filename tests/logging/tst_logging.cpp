#include "logging/logfilename.h"
#include "logging/logging.h"

#include <QCoreApplication>
#include <QFile>
#include <QSettings>
#include <QtTest>

// The log file cycle for every "LoggingDays" value, the level filter and the de-duplication of
// status rows, against the real files in a private documents folder.
class TestLogging : public QObject
{
    Q_OBJECT

private:
    static QByteArray readLog()
    {
        Logging::jSync();
        QFile file(Logging::currentFile());
        if (!file.open(QIODevice::ReadOnly))
            return QByteArray();
        return file.readAll();
    }

private slots:
    void initTestCase()
    {
        QCoreApplication::setOrganizationName("CalderWick");
        QCoreApplication::setApplicationName("VEXA Studio Manager");
        QSettings::setDefaultFormat(QSettings::IniFormat);
    }

    void fileNames_data()
    {
        QTest::addColumn<int>("days");
        QTest::addColumn<QDate>("date");
        QTest::addColumn<QString>("name");
        QTest::addColumn<bool>("neverCleared");
        // 2026-11-25 is a Wednesday, day 329 of its year.
        QTest::newRow("0 current run") << 0 << QDate(2026, 11, 25) << "log.csv" << false;
        QTest::newRow("1 one file") << 1 << QDate(2026, 11, 25) << "log.csv" << false;
        QTest::newRow("2 day of year mod 2") << 2 << QDate(2026, 11, 25) << "log.1.csv" << false;
        QTest::newRow("3 wednesday") << 3 << QDate(2026, 11, 25) << "log.3.csv" << false;
        QTest::newRow("3 sunday") << 3 << QDate(2026, 11, 29) << "log.7.csv" << false;
        QTest::newRow("4 day of month") << 4 << QDate(2026, 2, 5) << "log.05.csv" << false;
        QTest::newRow("5 day of year") << 5 << QDate(2026, 2, 5) << "log.036.csv" << false;
        QTest::newRow("6 year and day") << 6 << QDate(2026, 2, 5) << "log.2026.036.csv" << true;
        QTest::newRow("7 cycle") << 7 << QDate(2026, 1, 8) << "log.1.csv" << false;
        QTest::newRow("10 day 125") << 10 << QDate(2026, 5, 5) << "log.5.csv" << false;
    }
    void fileNames()
    {
        QFETCH(int, days);
        QFETCH(QDate, date);
        QFETCH(QString, name);
        QFETCH(bool, neverCleared);
        const LogFileChoice choice = logFileFor(days, date, "/logs");
        QCOMPARE(choice.path, "/logs/" + name);
        QCOMPARE(choice.neverCleared, neverCleared);
        QCOMPARE(choice.clearAtOnce, days == 0);
    }

    void levels_data()
    {
        QTest::addColumn<int>("level");
        QTest::addColumn<bool>("info");
        QTest::addColumn<bool>("warning");
        QTest::addColumn<bool>("toolkitWarning");
        QTest::newRow("1 headers only") << 1 << false << false << false;
        QTest::newRow("2 adds infos and warnings") << 2 << true << true << false;
        QTest::newRow("3 adds the toolkit's warnings") << 3 << true << true << true;
    }
    void levels()
    {
        QFETCH(int, level);
        QFETCH(bool, info);
        QFETCH(bool, warning);
        QFETCH(bool, toolkitWarning);
        QSettings settings;
        settings.setValue("LoggingLevel", level);
        settings.setValue("LoggingDays", 0);
        settings.sync();
        Logging logging;
        qInfo() << "plain info line";
        qInfo().noquote() << 4 << "|"
                          << "instance line";
        qWarning() << "our warning";
        qWarning() << "QSocketNotifier: toolkit warning";
        const QByteArray log = readLog();
        QVERIFY(log.contains("|Log|| ' csv value sperarator |'\n"));
        QVERIFY(log.contains("|Log|| csv text delimiter '\n"));
        QVERIFY(log.contains(QStringLiteral("|Log|| Level Set to %1\n").arg(level).toUtf8()));
        QCOMPARE(log.contains("|Info|| plain info line"), info);
        QCOMPARE(log.contains("|Info| 4 | instance line"), info);
        QCOMPARE(log.contains("|Warning| our warning"), warning);
        QCOMPARE(log.contains("|Warning| QSocketNotifier: toolkit warning"), toolkitWarning);
        Logging::jInit(0, QString());
        qInstallMessageHandler(nullptr);
    }

    void earlierCycleIsCleared()
    {
        QSettings settings;
        settings.setValue("LoggingLevel", 2);
        settings.setValue("LoggingDays", 3);
        settings.sync();
        const QString path = logFileFor(3, QDate::currentDate(), Logging::logFolder()).path;
        QDir().mkpath(Logging::logFolder());
        {
            QFile old(path);
            QVERIFY(old.open(QIODevice::WriteOnly));
            old.write("last week's line\n");
            old.flush();
            old.setFileTime(QDateTime::currentDateTime().addDays(-7), QFileDevice::FileModificationTime);
        }
        Logging logging;
        qInfo() << "this week";
        const QByteArray log = readLog();
        QVERIFY(!log.contains("last week's line"));
        QVERIFY(log.contains("this week"));
        Logging::jInit(0, QString());
        qInstallMessageHandler(nullptr);
    }

    void repeatedStatusIsLoggedOnce()
    {
        QSettings settings;
        settings.setValue("LoggingLevel", 2);
        settings.setValue("LoggingDays", 0);
        settings.sync();
        Logging logging;
        logging.infoUpdate(2, "path:;name:;E+(0):;station:;Stand by");
        logging.infoUpdate(2, "path:;name:;E+(0):;station:;Stand by");
        logging.infoUpdate(3, "path:;name:;E+(0):;station:;Stand by");
        logging.infoUpdate(2, "path:;name:;E+(1):;station:;Stand by");
        const QByteArray log = readLog();
        QCOMPARE(log.count("|Info| 2 | path - name - E+(0) - station - Stand by"), 1);
        QCOMPARE(log.count("|Info| 3 | path - name - E+(0) - station - Stand by"), 1);
        QCOMPARE(log.count("|Info| 2 | path - name - E+(1) - station - Stand by"), 1);
        Logging::jInit(0, QString());
        qInstallMessageHandler(nullptr);
    }
};

QTEST_GUILESS_MAIN(TestLogging)
#include "tst_logging.moc"
