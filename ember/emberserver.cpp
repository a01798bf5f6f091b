// The provider's life: the Ember+ hooks, the listening socket, the instance's values and the ping
// timer. What happens on one consumer connection is in emberclient.cpp.
#include "emberserver.h"

#include "ember/emberhooks.h"
#include "ember/glowwriter.h"

#include <QDebug>
#include <QElapsedTimer>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTimer>

#include <cstdlib>
#include <cstring>

QHostAddress EmberServer::NICaddress = QHostAddress(QHostAddress::Any);
int EmberServer::instcount = 0;

static const int s_liveJitterId = 0x020700;
static const int s_pingPeriodMs = 10000;

// ---- the hooks of the Ember+ layers ------------------------------------------------------------

static int s_allocatedBlocks = 0;

// A consumer that sends garbage makes the decoder report every broken element, and a frame over
// the buffer one error per byte: logged one by one, a hostile or broken peer would drown the log
// and keep the main thread busy writing it. Every error is still counted; past a few lines a
// second, the rest of that second is summed up in one line.
static void onThrowError(int error, const char *pMessage)
{
    static const int LinesPerSecond = 20;
    static QElapsedTimer window;
    static int linesInWindow = 0;
    static int suppressed = 0;
    if (!window.isValid() || window.elapsed() >= 1000) {
        if (suppressed > 0)
            qWarning().noquote() << QString::asprintf(
                "ber error: %d more errors in the last second not logged", suppressed);
        window.start();
        linesInWindow = 0;
        suppressed = 0;
    }
    if (linesInWindow >= LinesPerSecond) {
        ++suppressed;
        return;
    }
    ++linesInWindow;
    qWarning().noquote() << QString::asprintf("ber error %d: '%s'", error, pMessage);
}

static void onFailAssertion(const char *pFileName, int lineNumber)
{
    qWarning().noquote() << QString::asprintf("Debug assertion failed @ '%s' line %d", pFileName, lineNumber);
}

static void *allocMemoryImpl(size_t size)
{
    void *pMemory = malloc(size > 0 ? size : 1);
    if (pMemory != nullptr)
        s_allocatedBlocks++;
    return pMemory;
}

static void freeMemoryImpl(void *pMemory)
{
    s_allocatedBlocks--;
    free(pMemory);
}

int EmberServer::allocatedBlocks()
{
    return s_allocatedBlocks;
}

// ---- lifecycle ---------------------------------------------------------------------------------

EmberServer::EmberServer(QObject *parent) : QObject(parent)
{
    if (instcount++ == 0)
        ember_init(onThrowError, onFailAssertion, allocMemoryImpl, freeMemoryImpl);
    m_pingTimer = new QTimer(this);
    connect(m_pingTimer, &QTimer::timeout, this, &EmberServer::pingClients);
    memset(&m_root, 0, sizeof(m_root));
    buildTree(&m_root);
}

EmberServer::~EmberServer()
{
    emberSocketShutdown();
    sampleNode_free(&m_root);
    memset(&m_root, 0, sizeof(m_root));
    if (--instcount == 0 && s_allocatedBlocks != 0)
        qWarning().noquote() << QString::asprintf("Ember Memory leakage %d", s_allocatedBlocks);
}

void EmberServer::setInstance(uint id)
{
    m_instance = id;
}

uint EmberServer::instance() const
{
    return m_instance;
}

bool EmberServer::isListening() const
{
    return m_server != nullptr;
}

int EmberServer::clientCount() const
{
    return m_clients.size();
}

quint16 EmberServer::serverPort() const
{
    return m_server != nullptr ? m_server->serverPort() : 0;
}

EmberServer::__SampleNode *EmberServer::rootNode()
{
    return &m_root;
}

EmberServer::__SampleNode *EmberServer::findNode(__SampleNode *root, const int *path, int *length)
{
    return ::findNode(root, path, length);
}

// ---- listening ---------------------------------------------------------------------------------

bool EmberServer::setNICaddress(QHostAddress address)
{
    if (address == NICaddress)
        return false;
    NICaddress = address;
    qInfo().noquote() << "setNetWork" << address.toString();
    return true;
}

void EmberServer::emberSocketInit(int port)
{
    if (m_server != nullptr)
        emberSocketShutdown();
    if (port == 0)
        return;
    qInfo().noquote() << "emberSocketInit on port" << port;
    m_server = new QTcpServer(this);
    if (!m_server->listen(NICaddress, static_cast<quint16>(port))) {
        qWarning().noquote() << "emberSocketInit listen error " + m_server->errorString() << port;
        delete m_server;
        m_server = nullptr;
        return;
    }
    connect(m_server, &QTcpServer::newConnection, this, &EmberServer::emberSocketInitClient);
    connect(m_server, &QTcpServer::acceptError, this, &EmberServer::emberSocketAcceptError);
}

void EmberServer::emberSocketShutdown()
{
    qInfo().noquote() << "emberSocketShutdown";
    const QList<int> keys = m_clients.keys();
    for (int key : keys)
        clientExit(key);
    if (m_server != nullptr) {
        m_server->disconnect(this);
        m_server->close();
        m_server->deleteLater();
        m_server = nullptr;
    }
}

void EmberServer::emberSocketInitClient()
{
    auto *server = qobject_cast<QTcpServer *>(sender());
    if (server == nullptr)
        return;
    while (server->hasPendingConnections()) {
        QTcpSocket *socket = server->nextPendingConnection();
        if (socket == nullptr)
            break;
        // Descriptors are gone once a socket closes; a key of our own names the connection from
        // accept to disconnect.
        const int key = m_nextKey++;
        socket->setProperty("emberKey", key);
        connect(socket, &QTcpSocket::disconnected, this, &EmberServer::emberSocketClientDisconnected);
        connect(socket, &QTcpSocket::errorOccurred, this, &EmberServer::emberSocketClientError);
        connect(socket, &QTcpSocket::readyRead, this, &EmberServer::emberSocketReadFromClient);
        clientInit(key, socket);
    }
}

void EmberServer::emberSocketAcceptError(QAbstractSocket::SocketError error)
{
    qWarning().noquote() << "ember Socket Accept Error" << error
                         << (m_server != nullptr ? m_server->errorString() : QString());
}

// ---- values from the instance ------------------------------------------------------------------

void EmberServer::emberSendTo(int id, int value, char *data)
{
    int path[3];
    int pathLength = 0;
    __SampleNode *node = sampleTree_findById(&m_root, id, path, &pathLength);
    if (node == nullptr || node->type != SampleNodeType_Parameter) {
        qWarning().noquote() << "SendToEmber unknown parameter"
                             << "0x" + QString::number(id, 16);
        return;
    }
    if (!sampleNode_storeValue(node, value, data)) {
        qWarning().noquote() << "SendToEmbe unsupported data type" << node->element.parameter.type;
        return;
    }

    unsigned char *buffer = static_cast<unsigned char *>(allocMemory(EmberServer::replyBufferSize));
    if (buffer != nullptr) {
        SGlowOutput output;
        glowOutput_init(&output, buffer, EmberServer::replyBufferSize, 0);
        glowOutput_beginPackage(&output, true);
        glow_writeQualifiedParameter(&output, &node->element.parameter,
                                     static_cast<EGlowFieldFlags>(node->fields), path, pathLength);
        const int length = glowOutput_finishPackage(&output);
        clientsSendToAll(reinterpret_cast<char *>(buffer), length);
        glowOutput_free(&output);
        freeMemory(buffer);
    }

    if ((id & ~0xFF) == s_liveJitterId) {
        m_liveJitter = value;
        m_pingTimer->start(s_pingPeriodMs);
    }
}

void EmberServer::pingClients()
{
    emberSendTo(s_liveJitterId, m_liveJitter, nullptr);
}
