#include "snmp/snmp.h"

#include <QDebug>
#include <QUdpSocket>

// The socket side of the agent: the receiving port, the trap port and receivers, and the two
// places where bytes meet the network.

namespace {
constexpr int kMaxDatagram = 65536; // larger than any UDP payload
}

void SNMP::hostSetListenPort(unsigned port)
{
    if (port == m_listenPort)
        return;
    qInfo().noquote() << "Set SNMP Receiving port" << port;
    m_listenPort = port;
    if (m_listenSocket) {
        m_listenSocket->close();
        m_listenSocket->deleteLater();
        m_listenSocket = nullptr;
    }
    if (port == 0)
        return;
    m_listenSocket = new QUdpSocket(this);
    if (!m_listenSocket->bind(QHostAddress::AnyIPv4, quint16(port),
                              QUdpSocket::ShareAddress | QUdpSocket::ReuseAddressHint)) {
        qWarning().noquote() << "SNMP listen error " + m_listenSocket->errorString() << port;
        delete m_listenSocket;
        m_listenSocket = nullptr;
        m_listenPort = 0;
        return;
    }
    connect(m_listenSocket, &QUdpSocket::readyRead, this, &SNMP::readPendingDatagrams);
}

void SNMP::hostSetTrapPort(unsigned port)
{
    m_trapPort = port;
    qInfo().noquote() << "Set SNMP Trap send Port" << port;
}

void SNMP::hostSet(int index, const QString &text)
{
    QHostAddress address;
    if (text.contains("localhost", Qt::CaseInsensitive))
        address = QHostAddress(QHostAddress::LocalHost);
    else if (!address.setAddress(text))
        return;
    if (index >= 0 && index < m_hosts.size()) {
        m_hosts[index] = address;
        qInfo().noquote() << "Set SNMP Server" << address.toString();
    } else {
        m_hosts.append(address);
        qInfo().noquote() << "Add SNMP Server" << address.toString();
    }
    if (m_trapPort == 0)
        hostSetTrapPort(162);
}

void SNMP::hostRemove(int index)
{
    if (index >= 0 && index < m_hosts.size()) {
        qInfo().noquote() << "Removing SNMP Server" << m_hosts.at(index).toString();
        m_hosts.removeAt(index);
    }
    if (m_hosts.isEmpty())
        m_trapPort = 0;
}

bool SNMP::hostsOk() const
{
    if (m_listenPort != 0 && !m_listenSocket)
        return false;
    if (m_trapPort == 0)
        return m_listenPort != 0;
    return !m_hosts.isEmpty();
}

void SNMP::trapSend()
{
    if (m_trapPort == 0)
        return;
    QByteArray trap;
    pduBuildTrap(trap);
    const __VB *enterprise = vbGet(101);
    const unsigned agentId =
        enterprise && enterprise->value.v.oid.length > 9 ? enterprise->value.v.oid.bytes[9] : 0;
    for (const QHostAddress &host : qAsConst(m_hosts)) {
        qInfo().noquote() << QString("%1|Sending SNMP Trap to %2").arg(agentId).arg(host.toString());
        m_sendSocket->writeDatagram(trap, host, quint16(m_trapPort));
    }
}

void SNMP::readPendingDatagrams()
{
    // One buffer that holds any UDP datagram, reused for the whole batch: reading into it needs no
    // extra system call that asks for the datagram's size first.
    QByteArray buffer(kMaxDatagram, Qt::Uninitialized);
    // Bounded by what the socket holds; the socket can go away in a handler, so ask it each time.
    while (m_listenSocket && m_listenSocket->hasPendingDatagrams()) {
        QHostAddress sender;
        quint16 senderPort = 0;
        const qint64 size = m_listenSocket->readDatagram(buffer.data(), buffer.size(), &sender, &senderPort);
        if (size <= 0)
            continue;
        const quint32 requestId = pduParse(QByteArray::fromRawData(buffer.constData(), int(size)));
        QByteArray response;
        // Answers leave from the send socket, so from another local port than the one asked.
        if (pduBuildResponce(requestId, response))
            m_sendSocket->writeDatagram(response, sender, senderPort);
    }
}
