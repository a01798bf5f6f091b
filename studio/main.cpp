// The stand-in studio instance: a real program that the manager can start, supervise and command
// without the studio application. It writes nothing to stdout or stderr (see studiolog.h).
#include "app/unixsignals.h"
#include "studio/studioinstance.h"
#include "studio/studiolog.h"
#include "studio/studiooptions.h"
#include "studio/studiosetup.h"

#include <QCoreApplication>
#include <QDebug>
#include <QTimer>
#include <cstdio>
#include <cstdlib>

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("VexaStudio"));

    const StudioOptions options = studioOptions_parse(app.arguments().mid(1));
    if (options.help) {
        std::fputs(qPrintable(studioOptions_usage()), stdout);
        return 0;
    }
    studioLog_open(studioOptions_logPath(options));
    qInfo().noquote() << "start" << app.arguments().mid(1).join(QLatin1Char(' '));
    for (const QString &problem : options.problems)
        qWarning().noquote() << "ignored argument" << problem;

    const StudioSetup setup = studioSetup_read(options.setupPath);
    if (!setup.found)
        qWarning().noquote() << "setup file not found, using defaults:" << options.setupPath;
    qInfo().noquote() << "instance" << setup.name << "ember port"
                      << (options.emberPort >= 0 ? options.emberPort : setup.emberPort);

    StudioInstance instance(options, setup);
    QObject::connect(&instance, &StudioInstance::terminateRequested, &app,
                     []() { QCoreApplication::exit(0); });

    // The manager stops an instance with SIGTERM: end like a real program, not like a crash.
    UnixSignals unixSignals;
    QObject::connect(&unixSignals, &UnixSignals::terminationRequested, &app, [](int signalNumber) {
        qInfo().noquote() << "terminated by signal" << signalNumber;
        QCoreApplication::exit(0);
    });

    auto after = [&app](double seconds, auto action) {
        if (seconds >= 0)
            QTimer::singleShot(int(seconds * 1000), &app, action);
    };
    after(options.silentAfter, [&instance]() { instance.goSilent(); });
    after(options.crashAfter, []() {
        qWarning().noquote() << "crash as asked";
        std::abort();
    });
    after(options.exitAfter, []() {
        qInfo().noquote() << "exit as asked";
        QCoreApplication::exit(0);
    });

    const int rc = app.exec();
    qInfo().noquote() << "end" << rc;
    studioLog_close();
    return rc;
}
