// The 1-second watchdog: counts silent seconds, restarts silent or commanded instances, shows the
// countdown in the status row and moves the cascaded start forward.
#include "app/manager.h"

#include <QDebug>

void Manager::watchdogOnTimer()
{
    // Steps below delete and re-create records: walk a copy of the ids.
    const QList<uint> ids = instances.keys();
    for (uint id : ids) {
        auto it = instances.find(id);
        if (it == instances.end())
            continue;
        int c = it->aliveCounter;
        const int t = it->inactivityTime;

        if (c > 86399) {
            qInfo().noquote() << it->index << "|"
                              << "Restart due to command";
            instanceRestart(id);
            continue;
        }
        if (t != 0 && c > t + 1) {
            qInfo().noquote() << it->index << "|"
                              << "Restart due to timeout";
            processStop(id, true);
            it = instances.find(id);
            if (it == instances.end())
                continue;
            it->aliveCounter = -1;
            processStart(id);
            continue;
        }
        if (t == 0 && it->state.runState == 2) {
            instanceDelete(id);
            continue;
        }
        if (c < 0)
            continue;
        it->aliveCounter = ++c;
        if (c <= 3)
            continue;

        const int status = instanceMapStatus(2);
        it->state.statusCode = status;
        clientsUpdate(id, 0x20000, status, nullptr);
        it = instances.find(id);
        if (it == instances.end())
            continue;
        QStringList fields = StatusPrepMessage(*it, 2);
        if (fields.size() < 5)
            continue;
        fields[3] = tr("Non-responsive...");
        fields[4] = tr("No Watchdog Inactivitytime set");
        if (t != 0) {
            const int r = t + 2 - c;
            fields[4] = r < 1 ? tr("Restarting...") : tr("Restart in %1").arg(r);
        }
        emit StatusUpdate(it->index, fields.join(QStringLiteral(":;")));
    }
    if (!(runFlags & 1u) && !startQueue.isEmpty())
        processStartCascaded();
}
