#include "app/singlerunguard.h"

SingleRunGuard::SingleRunGuard(const QString &key) : m_memory(key) {}

bool SingleRunGuard::acquire()
{
    {
        // Attaching and detaching again removes a segment that no live process is attached to:
        // the one a killed manager left behind.
        QSharedMemory stale(m_memory.key());
        if (stale.attach())
            stale.detach();
    }
    if (m_memory.attach(QSharedMemory::ReadWrite))
        return false;
    if (m_memory.create(1, QSharedMemory::ReadWrite))
        return true;
    // Lost a race with another start, or the system refused the segment: only a live holder keeps
    // us out.
    return m_memory.error() != QSharedMemory::AlreadyExists;
}
