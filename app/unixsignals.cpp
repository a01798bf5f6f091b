#include "app/unixsignals.h"

#include <QSocketNotifier>
#include <csignal>
#include <sys/socket.h>
#include <unistd.h>

int UnixSignals::s_fds[2] = {-1, -1};

UnixSignals::UnixSignals(QObject *parent) : QObject(parent)
{
    if (::socketpair(AF_UNIX, SOCK_STREAM, 0, s_fds) != 0)
        return;
    m_notifier = new QSocketNotifier(s_fds[1], QSocketNotifier::Read, this);
    connect(m_notifier, &QSocketNotifier::activated, this, &UnixSignals::readSignal);
    struct sigaction action = {};
    action.sa_handler = &UnixSignals::handler;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
}

UnixSignals::~UnixSignals()
{
    signal(SIGINT, SIG_DFL);
    signal(SIGTERM, SIG_DFL);
    if (s_fds[0] >= 0) {
        ::close(s_fds[0]);
        ::close(s_fds[1]);
        s_fds[0] = s_fds[1] = -1;
    }
}

void UnixSignals::handler(int signalNumber)
{
    const char byte = char(signalNumber);
    if (s_fds[0] >= 0) {
        const ssize_t written = ::write(s_fds[0], &byte, 1);
        (void)written;
    }
}

void UnixSignals::readSignal()
{
    char byte = 0;
    if (::read(s_fds[1], &byte, 1) == 1)
        emit terminationRequested(int(byte));
}
