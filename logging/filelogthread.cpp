#include "logging/filelogthread.h"

#include <QThread>

FileLogInThread::FileLogInThread(const QString &name)
{
    m_thread = new QThread;
    m_thread->setObjectName(name);
    moveToThread(m_thread);
    connect(m_thread, &QThread::started, this, &FileLogInThread::process);
    connect(m_thread, &QThread::finished, m_thread, &QObject::deleteLater);
    m_thread->start();
}

FileLogInThread::~FileLogInThread()
{
    stop();
    QMutexLocker lock(&mutex);
    if (file.isOpen())
        file.close();
}

void FileLogInThread::stop()
{
    if (!m_thread)
        return;
    m_running.storeRelease(0);
    m_thread->quit();
    m_thread->wait();
    // finished() scheduled the thread's deletion on the thread that owns it.
    m_thread = nullptr;
}

void FileLogInThread::process()
{
    // Sleep in short steps so that stop() does not wait a whole period.
    int slept = 0;
    while (m_running.loadAcquire()) {
        QThread::msleep(50);
        slept += 50;
        if (slept < 550)
            continue;
        slept = 0;
        QMutexLocker lock(&mutex);
        if (file.isOpen()) {
            file.flush();
            unflushedBytes = 0;
        }
    }
}
