// The five fields of an instance's status row and the status code published to control systems.
#include "app/manager.h"

#include "ember/emberserver.h"
#include "osc/osc.h"
#include "snmp/snmp.h"

#include <QDebug>

namespace {

// What each reported run state shows in the status row and publishes to control systems. Run
// state 1 shows the instance's own text instead of a fixed one.
struct RunStateShown
{
    int runState;
    const char *text;
    int code;
};

const RunStateShown RunStates[] = {
    {-100, QT_TRANSLATE_NOOP("Manager", "Started.."), 1},
    {-4, QT_TRANSLATE_NOOP("Manager", "connecting..."), 0},
    {-2, QT_TRANSLATE_NOOP("Manager", "Stand by"), 0},
    {-1, QT_TRANSLATE_NOOP("Manager", "Stand by"), 1},
    {0, QT_TRANSLATE_NOOP("Manager", "Waiting for connection"), 7},
    {1, nullptr, 5},
    {2, QT_TRANSLATE_NOOP("Manager", "Stopped..."), 0},
    {3, QT_TRANSLATE_NOOP("Manager", "Call in progress"), 3},
    {4, QT_TRANSLATE_NOOP("Manager", "UDP dropout warning"), 8},
    {5, QT_TRANSLATE_NOOP("Manager", "UDP no input error"), 9},
};

const RunStateShown *runStateShown(int runState)
{
    for (const RunStateShown &entry : RunStates) {
        if (entry.runState == runState)
            return &entry;
    }
    return nullptr;
}

} // namespace

int Manager::instanceMapStatus(int runState)
{
    const RunStateShown *entry = runStateShown(runState);
    return entry ? entry->code : 0;
}

QStringList Manager::StatusPrepMessage(const VX_Instance &record, int runState)
{
    using namespace StatusRecord;
    QStringList fields;
    fields << record.setupPath;

    const QString name = QString::fromUtf8(text(record.state.record, Name, NameWidth));
    fields << (record.emberPort != 0 ? tr("%1 , port: %2").arg(name).arg(record.emberPort) : name);

    QString interfaces = tr("no ember+");
    if (record.emberPort > 0 && record.ember) {
        interfaces = record.ember->isListening() ? tr("E+(%1)").arg(record.ember->clientCount())
                                                 : tr("Port Busy Error");
        if (osc && osc->hostsOk())
            interfaces += tr(", O(%1)").arg(record.index);
        if (snmp && snmp->hostsOk())
            interfaces += tr(", S(%1)").arg(record.index);
    }
    fields << interfaces;

    const QString station = runState == 2
                                ? record.setupPath
                                : QString::fromUtf8(text(record.state.record, Station, StationWidth));
    if (station.isEmpty())
        qWarning() << "StatusPrepMessage strange data";
    fields << station;

    QString status;
    if (runState == 1)
        status = QString::fromUtf8(text(record.state.record, RunStateText, RunStateTextWidth));
    else if (const RunStateShown *entry = runStateShown(runState))
        status = tr(entry->text);
    if (record.flags & InstanceFilesMissing)
        status = tr("Not found !");
    fields << status;
    return fields;
}

void Manager::windowUpdate(uint id)
{
    auto it = instances.constFind(id);
    if (it == instances.constEnd())
        return;
    const QStringList fields = StatusPrepMessage(*it, it->state.runState);
    if (!fields.isEmpty())
        emit StatusUpdate(it->index, fields.join(QStringLiteral(":;")));
}

void Manager::windowUpdate()
{
    const QList<uint> ids = instances.keys();
    for (uint id : ids)
        windowUpdate(id);
}
