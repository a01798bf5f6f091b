#include "osc/osc.h"

#include "osc/osccodec.h"

#include <QDataStream>
#include <QDebug>
#include <QRegularExpression>
#include <QStringRef>
#include <QUdpSocket>
#include <QVector>

namespace {
constexpr int kMaxDatagram = 65536; // larger than any UDP payload
}

OSC::OSC(QObject *parent) : QObject(parent) {}

OSC::~OSC() = default; // both sockets are children of this object

char OSC::tagFromEmberType(int emberType)
{
    switch (emberType) {
    case 1: // integer
    case 6: // enumeration
        return 'i';
    case 2: // real
        return 'f';
    case 3: // string
        return 's';
    case 4: // boolean
        return 'T';
    case 7: // octets
        return 'b';
    default: // none, trigger, and commands without arguments
        return 'N';
    }
}

void OSC::parameterAdd(__PARAM &param)
{
    static const QRegularExpression removed("[ {}?,*#]");
    const int root = param.name.indexOf("/root/");
    if (root >= 0)
        param.name.remove(root, 6);
    param.name.remove(removed);

    // Drop the name an earlier entry with this id was reachable by, so that one id has one name.
    const auto previous = m_parameters.constFind(param.id);
    if (previous != m_parameters.constEnd() && previous->name != param.name &&
        m_names.value(previous->name) == param.id)
        m_names.remove(previous->name);
    m_parameters.insert(param.id, param);
    m_names.insert(param.name, param.id);
}

void OSC::packetBuild(QByteArray &out, unsigned agent, int parameterId, int value, const char *text)
{
    const __PARAM &param = m_parameters[quint32(parameterId)];
    if (param.kind != 'P')
        return;
    QDataStream stream(&out, QIODevice::WriteOnly | QIODevice::Append);
    stream.setByteOrder(QDataStream::BigEndian);
    packetBuildAddMessage(stream, agent, param.name);
    packetBuildAddValue(stream, param.tag, value, text);
    if (out.size() % 4 != 0) {
        qWarning().noquote() << agent << "|"
                             << "OSC packetBuild had none alligned data" << parameterId;
        packetBuildAllign(stream, out.size());
    }
}

namespace {
void deliverToGateway(void *state, const QString &address, int value, const QByteArray &data)
{
    static_cast<OSC *>(state)->oscRecieveMessage(address, value, data);
}
} // namespace

int OSC::packetParse(const QByteArray &datagram)
{
    packetScan(datagram, deliverToGateway, this);
    return 0;
}

void OSC::inPortSet(unsigned port)
{
    if (port == m_inPort)
        return;
    qInfo().noquote() << "Set OSC Receiving port" << port;
    m_inPort = port;
    if (m_receiveSocket) {
        m_receiveSocket->close();
        m_receiveSocket->deleteLater();
        m_receiveSocket = nullptr;
    }
    if (port == 0)
        return;
    m_receiveSocket = new QUdpSocket(this);
    if (!m_receiveSocket->bind(QHostAddress::AnyIPv4, quint16(port))) {
        qWarning().noquote() << "OSC listen error " << m_receiveSocket->errorString() << port;
        delete m_receiveSocket;
        m_receiveSocket = nullptr;
        m_inPort = 0;
        return;
    }
    connect(m_receiveSocket, &QUdpSocket::readyRead, this, &OSC::readPendingDatagrams);
}

void OSC::hostSet(int index, const QString &text, unsigned port)
{
    QHostAddress address;
    if (text.contains("localhost", Qt::CaseInsensitive))
        address = QHostAddress(QHostAddress::LocalHost);
    else if (!address.setAddress(text))
        return;
    if (!m_sendSocket)
        m_sendSocket = new QUdpSocket(this);
    if (index >= 0 && index < m_targets.size()) {
        m_targets[index] = address;
        m_targetPorts[index] = port;
        qInfo().noquote() << "Set OSC Target" << address.toString() << port;
    } else {
        m_targets.append(address);
        m_targetPorts.append(port);
        qInfo().noquote() << "Add OSC Target" << address.toString() << port;
    }
}

void OSC::hostRemove(int index)
{
    if (index < 0 || index >= m_targets.size())
        return;
    qInfo().noquote() << "Removing OSC target" << m_targets.at(index).toString() << m_targetPorts.at(index);
    m_targets.removeAt(index);
    m_targetPorts.removeAt(index);
}

bool OSC::hostsOk() const
{
    if (m_inPort == 0)
        return !m_targets.isEmpty();
    return m_receiveSocket != nullptr;
}

void OSC::oscSendTo(unsigned agent, int parameterId, int value, const char *text)
{
    if (!m_parameters.contains(quint32(parameterId)) || m_targets.isEmpty())
        return;
    QByteArray packet;
    packetBuild(packet, agent, parameterId, value, text);
    if (!packet.isEmpty())
        hostSend(agent, packet);
}

void OSC::hostSend(unsigned agent, const QByteArray &packet)
{
    Q_UNUSED(agent)
    if (!m_sendSocket)
        return;
    // Send errors are not checked: a target that is down simply misses the value.
    for (int i = 0; i < m_targets.size(); i++)
        m_sendSocket->writeDatagram(packet, m_targets.at(i), quint16(m_targetPorts.at(i)));
}

void OSC::readPendingDatagrams()
{
    // One buffer that holds any UDP datagram, reused for the whole batch: reading into it needs no
    // extra system call that asks for the datagram's size first.
    QByteArray buffer(kMaxDatagram, Qt::Uninitialized);
    while (m_receiveSocket && m_receiveSocket->hasPendingDatagrams()) {
        const qint64 size = m_receiveSocket->readDatagram(buffer.data(), buffer.size());
        if (size > 0)
            packetParse(QByteArray::fromRawData(buffer.constData(), int(size)));
    }
}

void OSC::oscRecieveMessage(QString address, int value, QByteArray data)
{
    // The parts between slashes, empty ones skipped; views into the address, nothing copied.
    const QVector<QStringRef> parts = address.splitRef('/', Qt::SkipEmptyParts);
    if (parts.isEmpty() || parts.at(0) != QLatin1String("vx"))
        return; // not ours: ignored without a word

    bool known = parts.size() >= 3;
    int agent = -1;
    if (known && !parts.at(1).contains('*'))
        agent = parts.at(1).toInt(&known, 10);
    QString name;
    for (int i = 2; i < parts.size(); ++i) {
        if (i > 2)
            name += QLatin1Char('/');
        name += parts.at(i);
    }
    const auto id = m_names.constFind(name);
    if (!known || id == m_names.constEnd()) {
        qWarning().noquote() << "Received OSC Data with unknown address" << address;
        return;
    }
    const __PARAM param = m_parameters.value(id.value());
    if (!param.writable) {
        qWarning().noquote() << agent << "|"
                             << "Received OSC Data that is ReadOnly" << address;
        return;
    }
    QDebug line = qInfo().noquote();
    line << agent << "|"
         << "oscRecieveMessage" << address << value;
    line.quote() << data; // quoted, so that binary bytes show escaped

    emit oscSendToInstance(agent, int(param.id), value, data);
}
