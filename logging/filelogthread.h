#pragma once

#include <QAtomicInt>
#include <QFile>
#include <QMutex>
#include <QObject>

class QThread;

// The log file and the thread that keeps it flushed. Lines are written by whichever thread logs
// (under `mutex`); the writer's own thread only flushes every 550 ms, so a crash loses at most
// that much of the log.
class FileLogInThread : public QObject
{
    Q_OBJECT
public:
    explicit FileLogInThread(const QString &name);
    ~FileLogInThread() override;

    // Stops the flushing loop and waits for the thread to end.
    void stop();

    QFile file;
    qint64 unflushedBytes = 0;
    qint64 fileSize = 0;
    QMutex mutex;

public slots:
    void process();

private:
    QThread *m_thread = nullptr;
    QAtomicInt m_running{1};
};
