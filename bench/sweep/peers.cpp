#include "peers.h"

#include "badinput.h"

#include <QNetworkDatagram>

GoodConsumer::GoodConsumer(quint16 port, QObject *parent) : QObject(parent), m_port(port)
{
    glowReader_init(&m_reader, nullptr, onParameter, nullptr, nullptr, this, m_buffer, sizeof(m_buffer));
    m_reader.onPackageReceived = onPackage;
    connect(&m_socket, &QTcpSocket::readyRead, this, &GoodConsumer::received);
    connect(&m_socket, &QTcpSocket::connected, this, [this] {
        ++m_connects;
        glowReader_reset(&m_reader);
        m_socket.write(badinput::s101Frame(badinput::glowPackage(badinput::glowGetDirectory({0}))));
    });
    connect(&m_socket, &QTcpSocket::disconnected, this,
            [this] { QTimer::singleShot(200, this, &GoodConsumer::connectNow); });
    connect(&m_socket, &QTcpSocket::errorOccurred, this, [this](QAbstractSocket::SocketError) {
        if (m_socket.state() == QAbstractSocket::UnconnectedState)
            QTimer::singleShot(200, this, &GoodConsumer::connectNow);
    });
    m_keepAlive.setInterval(1000);
    connect(&m_keepAlive, &QTimer::timeout, this, [this] {
        if (m_socket.state() == QAbstractSocket::ConnectedState)
            m_socket.write(badinput::keepAliveRequest());
    });
}

GoodConsumer::~GoodConsumer()
{
    m_socket.abort();
    glowReader_free(&m_reader);
}

void GoodConsumer::start()
{
    m_sinceUpdate.start();
    m_keepAlive.start();
    connectNow();
}

void GoodConsumer::resetGap()
{
    m_longestGapMs = 0;
    m_sinceUpdate.restart();
}

double GoodConsumer::longestGapSeconds() const
{
    return qMax(m_longestGapMs, m_sinceUpdate.elapsed()) / 1000.0;
}

void GoodConsumer::connectNow()
{
    if (m_socket.state() == QAbstractSocket::UnconnectedState)
        m_socket.connectToHost(QHostAddress::LocalHost, m_port);
}

void GoodConsumer::received()
{
    const QByteArray bytes = m_socket.readAll();
    m_bytes += bytes.size();
    glowReader_readBytes(&m_reader, reinterpret_cast<const unsigned char *>(bytes.constData()), bytes.size());
}

void GoodConsumer::onParameter(const SGlowParameter *, EGlowFieldFlags fields, const int *, int, void *state)
{
    auto *self = static_cast<GoodConsumer *>(state);
    if (!(fields & GlowFieldFlag_Value))
        return;
    ++self->m_updates;
    self->m_longestGapMs = qMax(self->m_longestGapMs, self->m_sinceUpdate.restart());
}

void GoodConsumer::onPackage(const unsigned char *package, int length, void *state)
{
    if (length >= 3 && package[1] == S101_MESSAGE_EMBER && package[2] == S101_COMMAND_KEEPALIVE_RESPONSE)
        ++static_cast<GoodConsumer *>(state)->m_keepAlives;
}

UdpCounter::UdpCounter(QObject *parent) : QObject(parent)
{
    m_socket.bind(QHostAddress(QHostAddress::LocalHost), 0);
    connect(&m_socket, &QUdpSocket::readyRead, this, [this] {
        while (m_socket.hasPendingDatagrams()) {
            m_socket.receiveDatagram();
            ++m_datagrams;
        }
    });
}
