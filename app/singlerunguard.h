#pragma once

#include <QSharedMemory>

// The single-run guard: a one-byte shared-memory segment that exists while a manager runs.
// A segment left by a manager that was killed (SysV segments outlive their process) is cleared
// first, so only a live manager keeps a second start out.
class SingleRunGuard
{
public:
    explicit SingleRunGuard(const QString &key);
    // True when this process now holds the guard; false when another live process does.
    bool acquire();

private:
    QSharedMemory m_memory;
};
