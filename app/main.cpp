// Start-up: the single-run guard, the application identity, the manager, then the window (or,
// headless, nothing visible: the service runs until SIGINT or SIGTERM).
#include "app/manager.h"
#include "app/singlerunguard.h"
#include "app/unixsignals.h"
#include "logging/logging.h"
#include "ui/managerwindow.h"

#include <QApplication>
#include <QCommandLineParser>
#include <QSettings>
#include <QStyleFactory>
#include <cstdio>
#include <cstring>
#include <memory>

namespace {

bool hasOption(int argc, char **argv, const char *option)
{
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], option) == 0)
            return true;
    }
    return false;
}

void setIdentity()
{
    QCoreApplication::setOrganizationName(QStringLiteral("CalderWick"));
    QCoreApplication::setOrganizationDomain(QStringLiteral("calderwick.example"));
    QCoreApplication::setApplicationName(QStringLiteral("VEXA Studio Manager"));
    QCoreApplication::setApplicationVersion(QStringLiteral("5.14.0.0"));
    QSettings::setDefaultFormat(QSettings::IniFormat);
}

} // namespace

int main(int argc, char *argv[])
{
    // Headless runs without a display, so the application object is chosen before it is made.
    const bool headless = hasOption(argc, argv, "--headless") || hasOption(argc, argv, "--version") ||
                          hasOption(argc, argv, "--help") || hasOption(argc, argv, "-h");
    std::unique_ptr<QCoreApplication> app(headless ? new QCoreApplication(argc, argv)
                                                   : new QApplication(argc, argv));
    setIdentity();

    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("Supervises VEXA STUDIO instances and publishes them over "
                       "Ember+, OSC and SNMP."));
    parser.addHelpOption();
    parser.addVersionOption();
    const QCommandLineOption headlessOption(
        QStringLiteral("headless"), QStringLiteral("Run as a service: no window, no tray; log lines also go "
                                                   "to standard error; ends on SIGINT or SIGTERM."));
    const QCommandLineOption vxmaOption(
        QStringLiteral("vxma"), QStringLiteral("Use this manager settings file."), QStringLiteral("path"));
    parser.addOption(headlessOption);
    parser.addOption(vxmaOption);
    parser.process(*app);

    SingleRunGuard guard(QStringLiteral("vexastudiomanager"));
    if (!guard.acquire())
        return 0;

    if (!headless) {
        QApplication::setStyle(QStyleFactory::create(QStringLiteral("Fusion")));
        QApplication::setQuitOnLastWindowClosed(false);
    } else {
        Logging::setEchoToStderr(true);
    }

    auto *manager = new Manager(nullptr, parser.value(vxmaOption));
    int result = 0;
    if (headless) {
        UnixSignals unixSignals;
        QObject::connect(&unixSignals, &UnixSignals::terminationRequested, app.get(),
                         &QCoreApplication::quit);
        result = app->exec();
    } else {
        auto *window = new ManagerWindow(nullptr, manager);
        result = app->exec();
        delete window;
    }
    // Deleting the manager is the one shutdown path: instances stopped, settings written, log flushed.
    delete manager;
    return result;
}
