// The manager's side of the SNMP agent: created on demand, fed with instance values, and the one
// writable variable carried out as an instance command.
#include "app/manager.h"

#include "snmp/snmp.h"

#include <QCoreApplication>
#include <QDebug>
#include <QSysInfo>

void Manager::snmpCreate()
{
    if (snmp)
        return;
    snmp = new SNMP(this);
    snmp->vbSet(105, nicAddress.toIPv4Address());
    snmp->vbSet(103, QCoreApplication::applicationName().toLocal8Bit().constData());
    snmp->vbSet(104, QSysInfo::prettyProductName().toLocal8Bit().constData());
    // A response is encoded as soon as getValue returns: the values must be in place by then.
    connect(snmp, &SNMP::getValue, this, &Manager::snmpGet, Qt::DirectConnection);
    connect(snmp, &SNMP::setValue, this, &Manager::snmpSet, Qt::DirectConnection);
    for (unsigned id : {2u, 3u, 4u, 5u, 7u})
        snmp->vbAdd(id, true);
    snmp->vbAdd(6, false);
}

void Manager::snmpSetListenPort(unsigned port)
{
    if (port != 0)
        snmpCreate();
    if (snmp)
        snmp->hostSetListenPort(port);
    windowUpdate();
}

void Manager::snmpSetTrapPort(unsigned port)
{
    if (port != 0)
        snmpCreate();
    if (!snmp)
        return;
    snmp->hostSetTrapPort(port);
    snmpSendTraps();
    windowUpdate();
}

void Manager::snmpSetHost(int index, QString &text)
{
    snmpCreate();
    snmp->hostSet(index, text);
    snmpSendTraps();
    windowUpdate();
}

void Manager::snmpRemoveHost(int index)
{
    if (!snmp)
        return;
    snmp->hostRemove(index);
    if (!snmp->hostsOk()) {
        delete snmp;
        snmp = nullptr;
    }
    windowUpdate();
}

unsigned Manager::snmpListenPort() const
{
    return snmp ? snmp->hostListenPort() : 0;
}

unsigned Manager::snmpTrapPort() const
{
    return snmp ? snmp->hostTrapPort() : 0;
}

void Manager::snmpFillInstance(const VX_Instance *record)
{
    using namespace StatusRecord;
    if (!record) {
        snmp->vbSet(2, 0u);
        snmp->vbSet(4, 0u);
        snmp->vbSet(7, 0u);
        return;
    }
    snmp->vbSet(2, unsigned(record->state.statusCode));
    snmp->vbSet(3, text(record->state.record, RunStateText, RunStateTextWidth).constData());
    snmp->vbSet(4, unsigned(word(record->state.record, JitterBuffers)));
    snmp->vbSet(5, text(record->state.record, Name, NameWidth).constData());
    snmp->vbSet(7, unsigned(word(record->state.record, SnmpWord)));
}

void Manager::snmpGet(uint agentId, uint id)
{
    if (!snmp)
        return;
    if (id == 102) {
        snmp->vbSet(102, SNMP::millisecondsSinceMidnight());
        return;
    }
    if (id > 99)
        return;
    const VX_Instance *found = nullptr;
    for (const VX_Instance &record : qAsConst(instances)) {
        if (record.index == agentId) {
            found = &record;
            break;
        }
    }
    snmpFillInstance(found);
}

void Manager::snmpSet(uint agentId, uint id, uint value)
{
    // The agent id is a position in the ascending key list here (not the row's agent id).
    const QList<uint> keys = instances.keys();
    if (agentId >= uint(keys.size()))
        return;
    if (id != 6) {
        qWarning().noquote() << agentId << "|"
                             << "unsupported snmp command nr " << id;
        return;
    }
    qInfo().noquote() << agentId << "|"
                      << "snmpSet" << 6 << value;
    instanceDataSend(keys.at(int(agentId)), value != 0 ? 0x10100 : 0x10000, 0, QByteArray());
    if (snmp)
        snmp->vbSet(6, value);
}

void Manager::snmpSendTrap(uint instanceKey)
{
    if (!snmp)
        return;
    auto it = instances.constFind(instanceKey);
    if (it == instances.constEnd())
        return;
    snmp->vxiSet(it->index);
    snmp->vbSet(102, SNMP::millisecondsSinceMidnight());
    snmpFillInstance(&it.value());
    snmp->trapSend();
}

void Manager::snmpSendTraps()
{
    if (!snmp)
        return;
    const QList<uint> ids = instances.keys();
    for (uint id : ids) {
        auto it = instances.constFind(id);
        if (it != instances.constEnd() && it->clientId != 0 && clients.value(it->clientId) == id)
            snmpSendTrap(id);
    }
}
