#include "attackers.h"

#include <QNetworkDatagram>

namespace {
const int s_tickMs = 10;
}

TcpGarbage::TcpGarbage(const QList<quint16> &ports, int connections, int chunksPerSecond, qint64 budget,
                       quint32 seed, QObject *parent)
    : QObject(parent), m_ports(ports), m_budget(budget), m_rng(seed)
{
    m_links.reserve(connections);
    for (int i = 0; i < connections; ++i)
        m_links.append(Link());
    m_chunksPerTick = qMax(1, chunksPerSecond * s_tickMs / 1000);
    m_timer.setInterval(s_tickMs);
    connect(&m_timer, &QTimer::timeout, this, &TcpGarbage::tick);
}

qint64 TcpGarbage::sentTotal() const
{
    qint64 total = 0;
    for (qint64 n : m_sent)
        total += n;
    return total;
}

void TcpGarbage::start()
{
    for (Link &link : m_links)
        open(link);
    m_timer.start();
}

void TcpGarbage::stop()
{
    m_timer.stop();
    for (Link &link : m_links) {
        if (link.socket) {
            link.socket->abort();
            link.socket->deleteLater();
            link.socket = nullptr;
        }
    }
}

void TcpGarbage::open(Link &link)
{
    if (link.socket)
        link.socket->deleteLater();
    link.socket = new QTcpSocket(this);
    link.left = 1 + int(m_rng.bounded(200));
    QTcpSocket *socket = link.socket;
    // What the provider answers (directory replies to mutated requests) is read and thrown away.
    connect(socket, &QTcpSocket::readyRead, socket, [socket] { socket->readAll(); });
    connect(socket, &QTcpSocket::errorOccurred, this, [this](QAbstractSocket::SocketError error) {
        if (error == QAbstractSocket::ConnectionRefusedError)
            ++m_refused;
    });
    socket->connectToHost(QHostAddress::LocalHost, m_ports.at(m_rng.bounded(m_ports.size())));
    ++m_opened;
}

void TcpGarbage::tick()
{
    if (m_links.isEmpty())
        return;
    for (int n = 0; n < m_chunksPerTick && !spent(); ++n) {
        Link &link = m_links[int(m_rng.bounded(m_links.size()))];
        QTcpSocket *socket = link.socket;
        if (socket->state() == QAbstractSocket::UnconnectedState) {
            open(link);
            continue;
        }
        if (socket->state() != QAbstractSocket::ConnectedState)
            continue;
        // A reader that cannot keep up is not what this attacker tests: skip a backed-up socket.
        if (socket->bytesToWrite() > 256 * 1024)
            continue;
        const badinput::EmberKind kind = badinput::pickEmberKind(m_rng);
        const QByteArray bytes = badinput::ember(kind, m_rng);
        socket->write(bytes);
        ++m_sent[size_t(kind)];
        m_bytes += bytes.size();
        if (--link.left <= 0) {
            // Half the connections end politely, half with a reset.
            if (m_rng.bounded(2) == 0)
                socket->disconnectFromHost();
            else
                socket->abort();
            open(link);
        }
    }
}

UdpFlood::UdpFlood(quint16 port, Maker maker, int perSecond, qint64 budget, quint32 seed, QObject *parent)
    : QObject(parent), m_port(port), m_maker(maker), m_budget(budget), m_rng(seed)
{
    m_perTick = perSecond * s_tickMs / 1000;
    m_socket.bind(QHostAddress(QHostAddress::LocalHost), 0);
    m_timer.setInterval(s_tickMs);
    connect(&m_timer, &QTimer::timeout, this, &UdpFlood::tick);
    connect(&m_socket, &QUdpSocket::readyRead, this, [this] {
        while (m_socket.hasPendingDatagrams()) {
            m_socket.receiveDatagram();
            ++m_answers;
        }
    });
}

qint64 UdpFlood::sentTotal() const
{
    qint64 total = 0;
    for (qint64 n : m_sent)
        total += n;
    return total;
}

void UdpFlood::start()
{
    if (m_perTick > 0)
        m_timer.start();
}

void UdpFlood::stop()
{
    m_timer.stop();
}

void UdpFlood::tick()
{
    for (int n = 0; n < m_perTick && !spent(); ++n) {
        const badinput::DatagramKind kind = badinput::pickDatagramKind(m_rng);
        QByteArray datagram = m_maker(kind, m_rng);
        if (datagram.isEmpty())
            datagram = QByteArray(1, char(0));
        m_socket.writeDatagram(datagram, QHostAddress::LocalHost, m_port);
        ++m_sent[size_t(kind)];
    }
}

StalledConsumer::StalledConsumer(quint16 port, QObject *parent) : QObject(parent), m_port(port)
{
    // Every group of the tree with all its fields: a few kilobytes of answers per round.
    for (int group = 0; group < 7; ++group)
        m_request += badinput::s101Frame(badinput::glowPackage(badinput::glowGetDirectory({0, group})));
    m_timer.setInterval(20);
    connect(&m_timer, &QTimer::timeout, this, [this] {
        if (m_socket && m_socket->state() == QAbstractSocket::ConnectedState) {
            m_socket->write(m_request);
            ++m_requests;
        }
    });
}

void StalledConsumer::start()
{
    m_stopped = false;
    connectNow();
    m_timer.start();
}

void StalledConsumer::stop()
{
    m_stopped = true;
    m_timer.stop();
    if (m_socket)
        m_socket->abort();
}

void StalledConsumer::connectNow()
{
    if (m_socket)
        m_socket->deleteLater();
    m_socket = new QTcpSocket(this);
    // Small buffers on our side, and none of it read: the provider's queue is what fills up.
    m_socket->setReadBufferSize(1);
    m_socket->setSocketOption(QAbstractSocket::ReceiveBufferSizeSocketOption, 4096);
    QTcpSocket *socket = m_socket;
    connect(socket, &QTcpSocket::connected, this, [this] { ++m_connects; });
    connect(socket, &QTcpSocket::errorOccurred, this, [this, socket](QAbstractSocket::SocketError error) {
        if (socket != m_socket || m_stopped)
            return;
        socket->disconnect(this);
        if (error == QAbstractSocket::RemoteHostClosedError || error == QAbstractSocket::NetworkError)
            ++m_cutOff;
        QTimer::singleShot(200, this, &StalledConsumer::connectNow);
    });
    socket->connectToHost(QHostAddress::LocalHost, m_port);
}
