// One consumer connection of the provider: its reader, the commands and parameter writes it sends,
// and what is written back to it.
#include "emberserver.h"

#include "ember/emberhooks.h"
#include "ember/glowtags.h"
#include "ember/glowwriter.h"

#include <QDebug>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTimer>

#include <cstring>

static const int s_packageBufferSize = 1024;
static const int s_scratchSize = 128;
static const int s_keepAliveSize = 16;

// ---- set-up and end ----------------------------------------------------------------------------

void EmberServer::clientInit(int key, QTcpSocket *socket)
{
    qInfo().noquote() << QString::number(key) + "|"
                      << "Ember clientInit";
    if (m_clients.contains(key)) {
        qWarning().noquote() << QString::number(key) + "|"
                             << "Adding already existing client";
        clientFree(m_clients.take(key));
    }
    auto *client = new ClientInfo;
    client->key = key;
    client->server = this;
    client->socket = socket;
    client->peer = socket->peerAddress().toString();
    client->localPort = socket->localPort();
    client->reader = static_cast<SGlowReader *>(allocMemory(sizeof(SGlowReader)));
    client->packageBuffer = static_cast<unsigned char *>(allocMemory(s_packageBufferSize));
    client->scratch = static_cast<unsigned char *>(allocMemory(s_scratchSize));
    m_clients.insert(key, client);
    if (client->reader == nullptr || client->packageBuffer == nullptr || client->scratch == nullptr) {
        qWarning().noquote() << QString::number(key) + "|"
                             << "Ember client without memory";
        clientExit(key);
        return;
    }
    glowReader_init(client->reader, nullptr, onParameter, onCommand, nullptr, client, client->packageBuffer,
                    s_packageBufferSize);
    client->reader->onPackageReceived = onPackageReceived;
    client->valid = true;
    emit emberClientAdded(m_instance, tr("Ember+ host: %1 port %2").arg(client->peer).arg(client->localPort));
}

void EmberServer::clientExit(int key)
{
    qInfo().noquote() << QString::number(key) + "|"
                      << "Ember clientExit";
    ClientInfo *client = m_clients.value(key, nullptr);
    if (client == nullptr) {
        qWarning().noquote() << "clientExit unknown client";
        return;
    }
    const bool wasValid = client->valid;
    client->valid = false;
    if (wasValid)
        emit emberClientRemoved(m_instance,
                                tr("Ember- host: %1 port %2").arg(client->peer).arg(client->localPort));
    m_clients.remove(key);
    if (client->socket != nullptr) {
        // Closing emits disconnected(), which must not bring us back here.
        client->socket->disconnect(this);
        client->socket->abort();
        client->socket->deleteLater();
        client->socket = nullptr;
    }
    client->server = nullptr;
    // A connection may end from inside its own reader (through a signal the manager handles at
    // once): the reader is then freed when it returns.
    if (client->feeding)
        client->released = true;
    else
        clientFree(client);
}

void EmberServer::clientFree(ClientInfo *client)
{
    if (client->reader != nullptr)
        glowReader_free(client->reader);
    freeMemory(client->scratch);
    freeMemory(client->packageBuffer);
    freeMemory(client->reader);
    delete client;
}

void EmberServer::emberSocketClientDisconnected()
{
    qInfo().noquote() << "emberSocketClientDisconnected";
    auto *socket = qobject_cast<QTcpSocket *>(sender());
    if (socket == nullptr)
        return;
    clientExit(socket->property("emberKey").toInt());
}

void EmberServer::emberSocketClientError(QAbstractSocket::SocketError error)
{
    // The disconnect that follows ends the connection.
    qWarning().noquote() << "ember Socket Client Error" << error
                         << (m_server != nullptr ? m_server->errorString() : QString());
}

// ---- receiving ---------------------------------------------------------------------------------

void EmberServer::emberSocketReadFromClient()
{
    auto *socket = qobject_cast<QTcpSocket *>(sender());
    if (socket == nullptr)
        return;
    const QByteArray bytes = socket->readAll();
    const int key = socket->property("emberKey").toInt();
    ClientInfo *client = m_clients.value(key, nullptr);
    if (client == nullptr) {
        qWarning().noquote() << QString::number(key) + "|"
                             << "Read data for unknown cient";
        return;
    }
    if (client->closing || !client->valid)
        return;
    client->feeding = true;
    glowReader_readBytes(client->reader, reinterpret_cast<const unsigned char *>(bytes.constData()),
                         bytes.size());
    client->feeding = false;
    if (client->released)
        clientFree(client);
}

// The server behind a reader callback's state, or null when the connection is not (or no longer) up.
static EmberServer *serverOf(void *state)
{
    auto *client = static_cast<EmberServer::ClientInfo *>(state);
    if (client == nullptr || !client->valid || client->server == nullptr)
        return nullptr;
    return qobject_cast<EmberServer *>(client->server);
}

void EmberServer::onPackageReceived(const unsigned char *package, int length, void *state)
{
    EmberServer *server = serverOf(state);
    if (server == nullptr) {
        qWarning().noquote() << "onPackageReceived without valid clientinfo";
        return;
    }
    if (length < 4 || package[1] != S101_MESSAGE_EMBER || package[2] != S101_COMMAND_KEEPALIVE_REQUEST)
        return;
    unsigned char response[s_keepAliveSize];
    const int size = emberFraming_writeKeepAliveResponse(response, sizeof(response), package[0]);
    auto *client = static_cast<ClientInfo *>(state);
    server->clientWrite(client, reinterpret_cast<const char *>(response), size);
}

void EmberServer::onCommand(const SGlowCommand *command, const int *path, int pathLength, void *state)
{
    EmberServer *server = serverOf(state);
    if (server == nullptr) {
        qWarning().noquote() << "onCommand without valid clientinfo";
        return;
    }
    server->receiveCommand(static_cast<ClientInfo *>(state), command, path, pathLength);
}

void EmberServer::onParameter(const SGlowParameter *parameter, EGlowFieldFlags fields, const int *path,
                              int pathLength, void *state)
{
    EmberServer *server = serverOf(state);
    if (server == nullptr) {
        qWarning().noquote() << "onParameter without valid clientinfo";
        return;
    }
    server->receiveParameter(static_cast<ClientInfo *>(state), parameter, fields, path, pathLength);
}

// ---- commands ----------------------------------------------------------------------------------

void EmberServer::receiveCommand(ClientInfo *client, const SGlowCommand *command, const int *path,
                                 int pathLength)
{
    int found = pathLength < GLOW_MAX_PATH ? pathLength : GLOW_MAX_PATH;
    __SampleNode *element = ::findNode(&m_root, path, &found);
    if (element == nullptr) {
        qWarning().noquote() << "onCommand unknown path";
        return;
    }
    switch (command->number) {
    case GlowCommandType_Invoke:
        if (element->type == SampleNodeType_Function)
            emberRecieveCommand(client->key, element, command->invocation);
        break;
    case GlowCommandType_GetDirectory:
        answerGetDirectory(client, element, path, found, command->dirFieldMask);
        break;
    default: // subscriptions: every consumer gets every value anyway
        break;
    }
}

void EmberServer::answerGetDirectory(ClientInfo *client, __SampleNode *element, const int *path,
                                     int pathLength, int fieldMask)
{
    // A mask of 0 asks for everything, as does a missing one.
    const int mask = fieldMask == 0 ? GlowFieldFlag_All : fieldMask;
    int childPath[GLOW_MAX_PATH];
    memcpy(childPath, path, sizeof(int) * static_cast<size_t>(pathLength));
    unsigned char *buffer = static_cast<unsigned char *>(allocMemory(EmberServer::replyBufferSize));
    if (buffer == nullptr)
        return;
    SGlowOutput output;
    glowOutput_init(&output, buffer, EmberServer::replyBufferSize, 0);

    auto writeElement = [&output](const __SampleNode *node, int fields, const int *elementPath, int length) {
        const EGlowFieldFlags masked = static_cast<EGlowFieldFlags>(fields);
        switch (node->type) {
        case SampleNodeType_Parameter:
            glow_writeQualifiedParameter(&output, &node->element.parameter, masked, elementPath, length);
            break;
        case SampleNodeType_Function:
            glow_writeQualifiedFunction(&output, &node->element.function, masked, elementPath, length);
            break;
        default:
            glow_writeQualifiedNode(&output, &node->element.node, masked, elementPath, length);
            break;
        }
    };

    auto send = [this, client, &output, buffer] {
        const int length = glowOutput_finishPackage(&output);
        clientWrite(client, reinterpret_cast<const char *>(buffer), length);
    };

    if (element->type == SampleNodeType_Node && element->childCount > 0 && pathLength < GLOW_MAX_PATH) {
        // One package per child, all of them one message: a node never has to fit one frame.
        for (int i = 0; i < element->childCount && !client->closing; i++) {
            const __SampleNode *child = element->children[i];
            glowOutput_beginPackage(&output, i == element->childCount - 1);
            childPath[pathLength] = i;
            writeElement(child, child->fields & mask, childPath, pathLength + 1);
            send();
        }
    } else {
        glowOutput_beginPackage(&output, true);
        writeElement(element, element->type == SampleNodeType_Node ? 0 : element->fields & mask, childPath,
                     pathLength);
        send();
    }
    glowOutput_free(&output);
    freeMemory(buffer);
}

// The first argument of an invocation, or the value of a written parameter, as the instance takes it.
static void valueForInstance(const SGlowValue *value, int *number, QByteArray *text)
{
    *number = 0;
    text->clear();
    if (value == nullptr)
        return;
    switch (value->type) {
    case GlowParameterType_Boolean:
        *number = value->boolean ? 1 : 0;
        break;
    case GlowParameterType_Integer:
        *number = static_cast<int>(value->integer);
        break;
    case GlowParameterType_String:
        if (value->pString != nullptr)
            *text = QByteArray(value->pString);
        break;
    default:
        break;
    }
}

void EmberServer::emberRecieveCommand(int key, __SampleNode *function, SGlowInvocation invocation)
{
    const QString identifier = QString::fromUtf8(function->element.function.pIdentifier);
    if (function->id < 0) {
        qWarning().noquote() << QString::number(key) + "|"
                             << "emberRecieveCommand is unknown" << identifier;
        return;
    }
    int value = 0;
    QByteArray text;
    valueForInstance(invocation.argumentsLength > 0 ? &invocation.pArguments[0] : nullptr, &value, &text);
    qInfo().noquote() << QString::number(key) + "|"
                      << "emberRecieveCommand" << identifier;
    emit emberSendToInstance(m_instance, function->id, value, text);
}

// ---- parameter writes --------------------------------------------------------------------------

void EmberServer::receiveParameter(ClientInfo *client, const SGlowParameter *parameter,
                                   EGlowFieldFlags fields, const int *path, int pathLength)
{
    int found = pathLength < GLOW_MAX_PATH ? pathLength : GLOW_MAX_PATH;
    __SampleNode *element = ::findNode(&m_root, path, &found);
    const bool isParameter = element->type == SampleNodeType_Parameter;
    if (!isParameter || element->element.parameter.access < GlowAccess_Write) {
        qWarning().noquote() << "onParameter is read only";
        return;
    }
    if (!(fields & GlowFieldFlag_Value))
        return;
    // The value is taken as it comes, whatever its type; the instance judges it.
    SGlowValue *stored = &element->element.parameter.value;
    glowValue_free(stored);
    glowValue_copyFrom(stored, &parameter->value);
    emberRecieveParameter(client->key, element);

    unsigned char *buffer = static_cast<unsigned char *>(allocMemory(EmberServer::replyBufferSize));
    if (buffer == nullptr)
        return;
    SGlowOutput output;
    glowOutput_init(&output, buffer, EmberServer::replyBufferSize, 0);
    glowOutput_beginPackage(&output, true);
    glow_writeQualifiedParameter(&output, &element->element.parameter, GlowFieldFlag_Value, path, found);
    const int length = glowOutput_finishPackage(&output);
    clientsSendToAll(reinterpret_cast<char *>(buffer), length);
    glowOutput_free(&output);
    freeMemory(buffer);
}

void EmberServer::emberRecieveParameter(int key, __SampleNode *parameter)
{
    const QString identifier = QString::fromUtf8(parameter->element.parameter.pIdentifier);
    if (parameter->id < 0) {
        qWarning().noquote() << QString::number(key) + "|"
                             << "emberRecieveParameter is unknown" << identifier;
        return;
    }
    int value = 0;
    QByteArray text;
    valueForInstance(&parameter->element.parameter.value, &value, &text);
    qInfo().noquote() << QString::number(key) + "|"
                      << "emberRecieveParameter" << identifier;
    emit emberSendToInstance(m_instance, parameter->id, value, text);
}

// ---- sending -----------------------------------------------------------------------------------

void EmberServer::clientsSendToAll(char *data, int length)
{
    // The map may change under a write (a connection over its limit is closed later, not here),
    // so walk a copy of the keys.
    const QList<int> keys = m_clients.keys();
    for (int key : keys) {
        ClientInfo *client = m_clients.value(key, nullptr);
        if (client == nullptr)
            continue;
        if (!client->valid || client->socket == nullptr) {
            qWarning().noquote() << QString::number(key) + "|"
                                 << "Ember Client not Ready yet";
            continue;
        }
        clientWrite(client, data, length);
    }
}

// A consumer that stops reading would make its queue, and our memory, grow without end: past the
// limit its connection is closed (from the event loop, never from inside its own reader).
bool EmberServer::clientWrite(ClientInfo *client, const char *data, qint64 length)
{
    if (client->closing || client->socket == nullptr || length <= 0)
        return false;
    QTcpSocket *socket = client->socket;
    if (socket->bytesToWrite() + length > maxQueuedBytes) {
        client->closing = true;
        qWarning().noquote()
            << QString::number(client->key) + "|"
            << QString("Ember consumer %1 does not read: %2 bytes queued, closing the connection")
                   .arg(client->peer)
                   .arg(socket->bytesToWrite());
        QTimer::singleShot(0, socket, [socket] { socket->abort(); });
        return false;
    }
    return socket->write(data, length) == length;
}
