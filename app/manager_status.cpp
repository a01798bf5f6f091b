// The five fields of an instance's status row and the status code published to control systems.
#include "app/manager.h"

#include "ember/emberserver.h"
#include "osc/osc.h"
#include "snmp/snmp.h"

#include <QDebug>

int Manager::instanceMapStatus(int runState)
{
    switch (runState) {
    case -100:
        return 1;
    case -4:
        return 0;
    case -2:
        return 0;
    case -1:
        return 1;
    case 0:
        return 7;
    case 1:
        return 5;
    case 2:
        return 0;
    case 3:
        return 3;
    case 4:
        return 8;
    case 5:
        return 9;
    default:
        return 0;
    }
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
    switch (runState) {
    case -100:
        status = tr("Started..");
        break;
    case -4:
        status = tr("connecting...");
        break;
    case -2:
    case -1:
        status = tr("Stand by");
        break;
    case 0:
        status = tr("Waiting for connection");
        break;
    case 1:
        status = QString::fromUtf8(text(record.state.record, RunStateText, RunStateTextWidth));
        break;
    case 2:
        status = tr("Stopped...");
        break;
    case 3:
        status = tr("Call in progress");
        break;
    case 4:
        status = tr("UDP dropout warning");
        break;
    case 5:
        status = tr("UDP no input error");
        break;
    default:
        break;
    }
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
