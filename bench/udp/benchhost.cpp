#include "benchhost.h"

#include "logging/logging.h"

#include <QCoreApplication>
#include <QSettings>
#include <QSocketNotifier>
#include <csignal>
#include <sys/socket.h>
#include <unistd.h>

namespace {

int s_signalPipe[2] = {-1, -1};

void onSignal(int)
{
    const char byte = 1;
    // Nothing else is safe in a signal handler; the event loop reads the byte.
    [[maybe_unused]] const ssize_t written = ::write(s_signalPipe[1], &byte, 1);
}

} // namespace

void benchHostInit(const QString &applicationName)
{
    QCoreApplication::setOrganizationName(QStringLiteral("CalderWick"));
    QCoreApplication::setApplicationName(applicationName);
    QSettings::setDefaultFormat(QSettings::IniFormat);
    // Lives as long as the process, like the manager's: its writer thread flushes the file.
    new Logging(QCoreApplication::instance());
}

int benchHostRun(QCoreApplication &app)
{
    if (::socketpair(AF_UNIX, SOCK_STREAM, 0, s_signalPipe) != 0)
        return 1;
    QSocketNotifier notifier(s_signalPipe[0], QSocketNotifier::Read);
    QObject::connect(&notifier, &QSocketNotifier::activated, &app, &QCoreApplication::quit);
    struct sigaction action = {};
    action.sa_handler = onSignal;
    sigaction(SIGTERM, &action, nullptr);
    sigaction(SIGINT, &action, nullptr);
    const int result = app.exec();
    Logging::jSync();
    return result;
}
