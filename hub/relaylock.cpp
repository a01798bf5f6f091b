#include "hub/relaylock.h"

#include <QDebug>
#include <QDir>
#include <QLockFile>

#ifdef Q_OS_UNIX
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>
#endif

RelayLock::RelayLock() = default;

RelayLock::~RelayLock()
{
    unlock();
}

QString RelayLock::pathFor(const QString &socketName)
{
    // The same folder rule as QLocalServer: a relative name lives in the temp folder.
    const QString socketPath = QDir::isAbsolutePath(socketName)
                                   ? socketName
                                   : QDir::cleanPath(QDir::tempPath()) + QLatin1Char('/') + socketName;
    return socketPath + QStringLiteral(".relaylock");
}

#ifdef Q_OS_UNIX

bool RelayLock::tryLock(const QString &path)
{
    if (m_fd >= 0)
        return true;
    // Close-on-exec: a child process (a started instance) must not keep the lock alive.
    const QByteArray native = QFile::encodeName(path);
    const int fd = ::open(native.constData(), O_RDWR | O_CREAT | O_CLOEXEC, 0666);
    if (fd < 0) {
        qWarning().noquote() << "RelayLock cannot open" << path << std::strerror(errno);
        return false;
    }
    // Every user may serve the hub (the socket is opened for all), so the lock is shared too.
    ::fchmod(fd, 0666);
    if (::flock(fd, LOCK_EX | LOCK_NB) != 0) {
        if (errno != EWOULDBLOCK)
            qWarning().noquote() << "RelayLock cannot lock" << path << std::strerror(errno);
        ::close(fd);
        return false;
    }
    m_fd = fd;
    return true;
}

void RelayLock::unlock()
{
    if (m_fd >= 0) {
        ::flock(m_fd, LOCK_UN);
        ::close(m_fd);
        m_fd = -1;
    }
}

bool RelayLock::isLocked() const
{
    return m_fd >= 0;
}

#else

bool RelayLock::tryLock(const QString &path)
{
    if (m_file)
        return true;
    auto file = std::make_unique<QLockFile>(path);
    // Held for the relay's whole life: only a dead holder makes it stale.
    file->setStaleLockTime(0);
    if (!file->tryLock(0))
        return false;
    m_file = std::move(file);
    return true;
}

void RelayLock::unlock()
{
    m_file.reset();
}

bool RelayLock::isLocked() const
{
    return bool(m_file);
}

#endif
