#pragma once

#include <QString>
#include <memory>

class QLockFile;

// The right to be the relay of one hub name, held for as long as the relay serves. A local socket
// is a file that outlives a relay killed without warning, and QLocalServer::listen with socket
// options replaces that file even under a live relay; so listening is allowed only to the holder
// of this lock. On Unix it is an flock() on a file beside the socket: the kernel releases it the
// moment the holder's process ends, however it ends, so a dead relay never blocks a take-over.
class RelayLock
{
public:
    RelayLock();
    ~RelayLock();
    RelayLock(const RelayLock &) = delete;
    RelayLock &operator=(const RelayLock &) = delete;

    // The lock file that guards the local socket `socketName` (a name in the temp folder or an
    // absolute path, as QLocalServer takes it).
    static QString pathFor(const QString &socketName);

    // Takes the lock without waiting; false if another participant holds it (or on an error,
    // which is logged).
    bool tryLock(const QString &path);
    void unlock();
    bool isLocked() const;

private:
#ifdef Q_OS_UNIX
    int m_fd = -1;
#else
    std::unique_ptr<QLockFile> m_file;
#endif
};
