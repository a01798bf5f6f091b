#include "hub/multicastsocketserver.h"

#include <QDebug>
#include <QLocalServer>
#include <QMessageAuthenticationCode>
#include <QThread>
#include <QTimer>

namespace {

// The secret behind both the derived socket name and the cipher key.
const QByteArray HubSecret = QByteArrayLiteral("58270413");

// The relay copies frames of any size up to this; the receivers drop what is over their limit.
constexpr int RelayMaxPayload = 1 << 20;

constexpr int ConnectDelayFastMs = 100;
constexpr int ConnectDelaySlowMs = 1000;
constexpr int ProbeTimeoutMs = 500;

} // namespace

MultiCastSocketServer::MultiCastSocketServer(QObject *parent, QString pipeName, int flags)
    : QObject(parent), m_flags(flags)
{
    if (flags & OwnThread) {
        m_thread = new QThread;
        m_thread->setObjectName(pipeName);
        setParent(nullptr);
        moveToThread(m_thread);
        connect(m_thread, &QThread::started, this, &MultiCastSocketServer::onThreadStarted);
        // The thread has not started yet: the key can be set here without a race.
        enableEncryption(!(flags & CipherOff));
        // The parent no longer owns the hub (an object cannot have a parent on another thread),
        // but its end still ends the hub.
        if (parent)
            m_parentWatch = connect(parent, &QObject::destroyed, [this]() { delete this; });
        m_thread->start(QThread::InheritPriority);
    } else {
        initClass(pipeName);
        enableEncryption(!(flags & CipherOff));
    }
}

MultiCastSocketServer::~MultiCastSocketServer()
{
    if (m_parentWatch)
        disconnect(m_parentWatch);
    if (!m_thread) {
        shutdownOnHubThread();
        return;
    }
    if (QThread::currentThread() == m_thread) {
        // Deleted on its own thread: the thread object lives on, and ends itself once it stops.
        shutdownOnHubThread();
        connect(m_thread, &QThread::finished, m_thread, &QObject::deleteLater);
        m_thread->quit();
        return;
    }
    if (m_thread->isRunning())
        QMetaObject::invokeMethod(
            this, [this]() { shutdownOnHubThread(); }, Qt::BlockingQueuedConnection);
    else
        shutdownOnHubThread();
    m_thread->quit();
    m_thread->wait();
    delete m_thread;
}

// Everything with a socket notifier or a timer is torn down on the thread it belongs to.
void MultiCastSocketServer::shutdownOnHubThread()
{
    if (m_clientSocket)
        disconnect(m_clientSocket, nullptr, this, nullptr);
    leaveServer();
    delete m_connectTimer;
    m_connectTimer = nullptr;
    delete m_pingTimer;
    m_pingTimer = nullptr;
    if (m_clientSocket) {
        m_clientSocket->abort();
        delete m_clientSocket;
        m_clientSocket = nullptr;
    }
}

bool MultiCastSocketServer::onHubThread() const
{
    return QThread::currentThread() == thread();
}

QString MultiCastSocketServer::pipeName() const
{
    QMutexLocker lock(&m_nameLock);
    return m_pipeName;
}

void MultiCastSocketServer::onThreadStarted()
{
    initClass(m_thread->objectName());
}

void MultiCastSocketServer::initClass(const QString &name)
{
    m_clientSocket = new QLocalSocket(this);
    m_ownId = 0;
    m_rx.clear();
    m_connectTimer = new QTimer(this);
    m_connectTimer->setSingleShot(true);
    connect(m_connectTimer, &QTimer::timeout, this, &MultiCastSocketServer::ConnectToServer);
    m_pingTimer = new QTimer(this);
    m_pingTimer->setSingleShot(true);
    m_pingTimer->setInterval(100);
    connect(m_pingTimer, &QTimer::timeout, this, &MultiCastSocketServer::ping);

    connect(m_clientSocket, &QLocalSocket::connected, this, &MultiCastSocketServer::serverConnected);
    connect(m_clientSocket, &QLocalSocket::disconnected, this, &MultiCastSocketServer::serverDisconnected);
    connect(m_clientSocket, &QLocalSocket::errorOccurred, this, &MultiCastSocketServer::connectionError);
    connect(m_clientSocket, &QLocalSocket::readyRead, this, &MultiCastSocketServer::readFromServer);
    applyPipeName(name);
}

void MultiCastSocketServer::setPipeName(const QString &name)
{
    if (!onHubThread()) {
        QMetaObject::invokeMethod(
            this, [this, name]() { applyPipeName(name); }, Qt::QueuedConnection);
        return;
    }
    applyPipeName(name);
}

void MultiCastSocketServer::applyPipeName(const QString &name)
{
    if (name.isEmpty()) {
        qWarning().noquote() << "MultiCastSocketServer empty pipename error";
        return;
    }
    const QString derived = QString::fromLatin1(
        QMessageAuthenticationCode::hash(name.toLocal8Bit(), HubSecret, QCryptographicHash::Md5).toHex());
    if (derived == m_pipeName)
        return;
    if (!m_pipeName.isEmpty()) {
        writeToSocket(m_clientSocket, NEWNAME.toLocal8Bit(), true, 0);
        // The relay role and its lock belong to the old name.
        if (m_server)
            killServer();
    }
    {
        QMutexLocker lock(&m_nameLock);
        m_pipeName = derived;
    }
    delayedConnectToServer();
}

void MultiCastSocketServer::enableEncryption(bool on)
{
    if (m_thread && m_thread->isRunning() && !onHubThread()) {
        QMetaObject::invokeMethod(
            this, [this, on]() { enableEncryption(on); }, Qt::QueuedConnection);
        return;
    }
    if (on)
        m_scrypt.setKey(reinterpret_cast<const unsigned char *>(HubSecret.constData()),
                        (unsigned long)HubSecret.size(), false);
    else
        m_scrypt.setKey("");
}

// ---- connecting ----

void MultiCastSocketServer::delayedConnectToServer()
{
    // Id 2 retries as fast as a newcomer: it is usually the first to take a lost relay over.
    const quint16 id = m_ownId;
    if (m_connectTimer)
        m_connectTimer->start((id == 0 || id == 2) ? ConnectDelayFastMs : ConnectDelaySlowMs);
}

void MultiCastSocketServer::ConnectToServer()
{
    if (!m_clientSocket || m_pipeName.isEmpty())
        return;
    if (m_clientSocket->state() == QLocalSocket::ConnectedState && m_clientSocket->serverName() == m_pipeName)
        return;
    m_clientSocket->abort();
    m_rx.clear();
    m_clientSocket->connectToServer(m_pipeName, QIODevice::ReadWrite);
}

void MultiCastSocketServer::serverConnected()
{
    emit connectedToServer();
}

void MultiCastSocketServer::connectionError(QLocalSocket::LocalSocketError error)
{
    const QLocalSocket::LocalSocketState state = m_clientSocket->state();
    if (error != QLocalSocket::ConnectionRefusedError && error != QLocalSocket::ServerNotFoundError)
        qWarning().noquote() << "MultiCastSocketServer::connectionError" << error << state;
    if (state == QLocalSocket::UnconnectedState || state == QLocalSocket::ConnectingState)
        launchServer();
}

void MultiCastSocketServer::serverDisconnected()
{
    m_rx.clear();
    emit dataFromServer(SERVERLOST.toLatin1(), 1);
    qInfo().noquote() << "serverDisconnected" << m_clientSocket->socketDescriptor();
    delayedConnectToServer();
}

// A relay that answers on the name, whatever lock it holds or does not hold.
bool MultiCastSocketServer::liveRelayAnswers()
{
    QLocalSocket probe;
    probe.connectToServer(m_pipeName, QIODevice::ReadWrite);
    if (probe.waitForConnected(ProbeTimeoutMs)) {
        probe.abort();
        return true;
    }
    const QLocalSocket::LocalSocketError error = probe.error();
    probe.abort();
    // Only "nobody there" counts as dead: a slow or foreign relay is left alone.
    return error != QLocalSocket::ServerNotFoundError && error != QLocalSocket::ConnectionRefusedError;
}

void MultiCastSocketServer::launchServer()
{
    if (m_pipeName.isEmpty())
        return;
    if (m_server) {
        if (m_server->errorString().isEmpty())
            return;
        qWarning().noquote() << "launchServer error " + m_server->errorString();
        killServer();
    }
    if (m_flags & ClientOnly) {
        m_connectTimer->start(ConnectDelaySlowMs);
        return;
    }
    // One take-over at a time, and never under a live relay: listening with socket options would
    // rename a new socket file over the one that the live relay serves.
    if (!m_relayLock.tryLock(RelayLock::pathFor(m_pipeName))) {
        m_connectTimer->start(ConnectDelayFastMs);
        return;
    }
    if (liveRelayAnswers()) {
        m_relayLock.unlock();
        m_connectTimer->start(ConnectDelayFastMs);
        return;
    }
    m_server = new QLocalServer(this);
    m_server->setSocketOptions(QLocalServer::WorldAccessOption);
    connect(m_server, &QLocalServer::newConnection, this, &MultiCastSocketServer::serverNewConnection);
    if (!m_server->listen(m_pipeName)) {
        qWarning().noquote() << "launchServer listen error " + m_server->errorString();
        delete m_server;
        m_server = nullptr;
        m_relayLock.unlock();
    } else {
        m_isServer = true;
        qInfo().noquote() << "MultiCastSocketServer relaying on" << m_server->fullServerName();
    }
    m_connectTimer->start(ConnectDelayFastMs);
}

void MultiCastSocketServer::killServer()
{
    if (m_server) {
        for (QLocalSocket *socket : qAsConst(m_clients)) {
            if (socket) {
                disconnect(socket, nullptr, this, nullptr);
                socket->abort();
            }
        }
        m_clients.clear();
        qDeleteAll(m_relayReaders);
        m_relayReaders.clear();
        m_server->close();
        delete m_server; // the accepted sockets are its children
        m_server = nullptr;
    }
    m_isServer = false;
    m_relayLock.unlock();
}

void MultiCastSocketServer::leaveServer()
{
    if (!onHubThread()) {
        QMetaObject::invokeMethod(this, &MultiCastSocketServer::leaveServer, Qt::QueuedConnection);
        return;
    }
    {
        QMutexLocker lock(&m_nameLock);
        m_pipeName.clear();
    }
    if (m_connectTimer)
        m_connectTimer->stop();
    if (m_clientSocket)
        m_clientSocket->disconnectFromServer();
    if (m_server)
        killServer();
}

// ---- relay side ----

void MultiCastSocketServer::serverNewConnection()
{
    while (m_server && m_server->hasPendingConnections()) {
        QLocalSocket *socket = m_server->nextPendingConnection();
        connect(socket, &QLocalSocket::disconnected, this, &MultiCastSocketServer::clientDisconnected);
        connect(socket, &QLocalSocket::errorOccurred, this, &MultiCastSocketServer::clientError);
        connect(socket, &QLocalSocket::readyRead, this, &MultiCastSocketServer::readFromClient);
        int index = m_clients.indexOf(nullptr);
        if (index < 0) {
            m_clients.append(socket);
            index = m_clients.size() - 1;
        } else {
            m_clients[index] = socket;
        }
        m_relayReaders.insert(socket, new HubFrameReader(RelayMaxPayload));
        writeToSocket(socket, (PASSID + QStringLiteral("=%1")).arg(index + 1).toLatin1(), true, 0);
    }
}

// The relay copies whole frames only, so that frames from different senders never interleave;
// it does not look into them.
void MultiCastSocketServer::readFromClient()
{
    QLocalSocket *socket = qobject_cast<QLocalSocket *>(sender());
    HubFrameReader *reader = m_relayReaders.value(socket);
    if (!socket || !reader)
        return;
    reader->feed(socket->readAll());
    HubFrame frame;
    for (;;) {
        const HubFrameReader::Result result = reader->next(&frame);
        if (result == HubFrameReader::NeedMore)
            break;
        if (result == HubFrameReader::Skipped) {
            qWarning().noquote() << "MultiCastSocketServer relay dropped a frame of" << frame.count
                                 << "bytes from" << frame.source;
            continue;
        }
        for (QLocalSocket *client : qAsConst(m_clients)) {
            if (client)
                writeToSocket(client, frame.raw, false, 0);
        }
        // Writing to a participant whose process has just died ends its connection on the spot,
        // and the sender itself gets every frame back: when that was the sender, its reader is gone.
        if (m_relayReaders.value(socket) != reader)
            return;
    }
}

void MultiCastSocketServer::clientDisconnected()
{
    QLocalSocket *socket = qobject_cast<QLocalSocket *>(sender());
    if (!socket)
        return;
    for (int i = 0; i < m_clients.size(); ++i) {
        if (m_clients[i] == socket)
            m_clients[i] = nullptr;
    }
    delete m_relayReaders.take(socket);
    disconnect(socket, nullptr, this, nullptr);
    socket->deleteLater();
}

void MultiCastSocketServer::clientError(QLocalSocket::LocalSocketError error)
{
    if (error != QLocalSocket::PeerClosedError)
        qWarning().noquote() << "MultiCastSocketServer::clientError" << error;
    clientDisconnected();
}

// ---- sending ----

void MultiCastSocketServer::broadcastData(const QByteArray &data)
{
    sendFramed(0, data);
}

void MultiCastSocketServer::broadcastData(const QString &text)
{
    sendFramed(0, text.toLocal8Bit());
}

void MultiCastSocketServer::sendDataTo(quint16 id, const QByteArray &data)
{
    sendFramed(id, data);
}

void MultiCastSocketServer::sendDataTo(quint16 id, const QString &text)
{
    sendFramed(id, text.toLocal8Bit());
}

void MultiCastSocketServer::ping()
{
    broadcastData(NEWCLIENT);
}

void MultiCastSocketServer::sendFramed(quint16 target, const QByteArray &data)
{
    if (!onHubThread()) {
        QMetaObject::invokeMethod(
            this, [this, target, data]() { sendFramed(target, data); }, Qt::QueuedConnection);
        return;
    }
    // Messages sent while not connected to the relay are lost.
    if (m_clientSocket && m_clientSocket->state() == QLocalSocket::ConnectedState &&
        m_clientSocket->serverName() == m_pipeName)
        writeToSocket(m_clientSocket, data, true, target);
}

void MultiCastSocketServer::writeToSocket(QLocalSocket *socket, const QByteArray &data, bool framed,
                                          quint16 target)
{
    if (!socket || !socket->isValid())
        return;
    if (!framed) {
        // The relay's copies are left to the socket's write notifier instead of being flushed one
        // by one: everything queued for a participant during one pass of the event loop then
        // leaves in one write, where a flush per frame costs a system call per frame and participant.
        socket->write(data);
        return;
    }
    const char *sealed = m_scrypt.encrypt(data.constData(), unsigned(data.size()));
    const QByteArray payload = sealed ? QByteArray(sealed, data.size() + 4) : data;
    socket->write(hubFrame_encode(payload, target, m_ownId));
    socket->flush();
}

// ---- receiving ----

void MultiCastSocketServer::readFromServer()
{
    m_rx.feed(m_clientSocket->readAll());
    HubFrame frame;
    for (;;) {
        const HubFrameReader::Result result = m_rx.next(&frame);
        if (result == HubFrameReader::NeedMore)
            break;
        if (result == HubFrameReader::Skipped) {
            qWarning().noquote() << "MultiCastSocketServer dropped a frame of" << frame.count << "bytes from"
                                 << frame.source << "to" << frame.target;
            continue;
        }
        deliver(frame);
    }
}

void MultiCastSocketServer::deliver(const HubFrame &frame)
{
    if (frame.size == 0)
        qWarning().noquote() << "MultiCastSocketServer reading 0 bytes" << frame.source << frame.target;
    if (frame.size != qint32(frame.count)) {
        qWarning().noquote() << "MultiCastSocketServer frame size" << frame.size << "but" << frame.count
                             << "bytes from" << frame.source;
        return;
    }
    const quint16 own = m_ownId;
    if (frame.target != 0 && frame.target != own)
        return;
    if (frame.size < 1 || frame.size > HubMaxPayload || frame.source > 99)
        return;

    QByteArray payload = frame.payload;
    int plainLength = 0;
    // A sealed payload is delivered with the terminating zero of the plain text.
    if (const char *plain = m_scrypt.decrypt(payload.constData(), unsigned(payload.size()), &plainLength))
        payload = QByteArray(plain, plainLength + 1);

    if (payload.startsWith('_'))
        controlMessage(payload);
    else
        emit dataFromServer(payload, frame.source);
}

void MultiCastSocketServer::controlMessage(const QByteArray &payload)
{
    const int nul = payload.indexOf('\0');
    const QByteArray text = nul < 0 ? payload : payload.left(nul);
    if (!text.contains(PASSID.toLatin1()))
        return;
    const int equals = text.indexOf('=');
    bool ok = false;
    const uint id = equals < 0 ? 0 : text.mid(equals + 1).toUInt(&ok);
    if (!ok || id == 0 || id > 0xFFFF) {
        qWarning().noquote() << "MultiCastSocketServer bad id message" << text.left(64);
        return;
    }
    m_ownId = quint16(id);
    emit idAssigned(quint16(id));
    m_pingTimer->start();
}
