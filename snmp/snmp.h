#pragma once

#include "snmp/snmpcodec.h"

#include <QHash>
#include <QHostAddress>
#include <QList>
#include <QObject>

class QUdpSocket;

// The SNMPv1 agent: one variable table for all instances, a socket that receives GetRequest and
// SetRequest, a socket that sends every response and trap, and the list of trap receivers.
// An instance variable is named prefix.A.N (prefix 1.3.6.1.4.1.32473.32), where A is the
// instance's SNMP agent id and N the variable id. The owner serves getValue/setValue through
// direct connections: a response is encoded as soon as getValue returns.
class SNMP : public QObject
{
    Q_OBJECT
public:
    explicit SNMP(QObject *parent = nullptr);
    ~SNMP() override;

    // The variable table.
    void vbAdd(unsigned id, bool inTrap);
    void vbSet(unsigned id, unsigned value);
    void vbSet(unsigned id, int value) { vbSet(id, unsigned(value)); }
    void vbSet(unsigned id, const char *text);
    void vxiSet(unsigned id, unsigned agentId);
    void vxiSet(unsigned agentId);
    unsigned vbFind(const QByteArray &oid) const;
    const __VB *vbGet(unsigned id) const; // nullptr when id is not in the table

    // Messages. The scanner fills the pending answers that the response builder consumes.
    int pduBuildResponce(quint32 requestId, QByteArray &out);
    int pduBuildTrap(QByteArray &out);
    quint32 pduParse(const QByteArray &datagram);

    // Ports and trap receivers.
    void hostSetListenPort(unsigned port);
    unsigned hostListenPort() const { return m_listenPort; }
    void hostSetTrapPort(unsigned port);
    unsigned hostTrapPort() const { return m_trapPort; }
    void hostSet(int index, const QString &text);
    void hostRemove(int index);
    bool hostsOk() const;
    QList<QHostAddress> hostList() const { return m_hosts; }

    void trapSend();

    // Milliseconds since local midnight now: the agent's time stamp (variable 102).
    static unsigned millisecondsSinceMidnight();

public slots:
    void readPendingDatagrams();

signals:
    void getValue(uint agentId, uint id);
    void setValue(uint agentId, uint id, uint value);

private:
    void pduGetOid(const __OID &oid);
    void pduSetOid(const __OID &oid, quint32 tag, quint32 value);

    unsigned m_listenPort = 0;
    QUdpSocket *m_listenSocket = nullptr;
    unsigned m_trapPort = 0;
    QUdpSocket *m_sendSocket = nullptr;
    QList<QHostAddress> m_hosts;
    QHash<quint32, __VB> m_table;
    QHash<quint32, quint32> m_pending; // variable id -> agent id asked for
};
