#ifndef EMBER_EMBERSERVER_H
#define EMBER_EMBERSERVER_H

#include "ember/glowreader.h"
#include "ember/sampletree.h"

#include <QAbstractSocket>
#include <QByteArray>
#include <QHostAddress>
#include <QMap>
#include <QObject>
#include <QString>

class QTcpServer;
class QTcpSocket;
class QTimer;

// The Ember+ provider of one instance: publishes the instance's parameter tree on a TCP port,
// answers GetDirectory, forwards invocations and accepted parameter writes to the manager, and
// pushes every value the instance reports to all connected consumers.
class EmberServer : public QObject
{
    Q_OBJECT
public:
    typedef SSampleNode __SampleNode;

    // One connected consumer. The reader's callbacks get the record back as their state.
    struct ClientInfo
    {
        QTcpSocket *socket = nullptr;
        SGlowReader *reader = nullptr;
        unsigned char *packageBuffer = nullptr;
        unsigned char *scratch = nullptr;
        QObject *server = nullptr; // the owning EmberServer; cleared on exit
        bool valid = false;
        int key = 0;
        QString peer; // kept: the socket forgets its addresses once closed
        quint16 localPort = 0;
        bool closing = false;  // over its send limit, being closed
        bool feeding = false;  // its reader is running
        bool released = false; // exited while its reader ran: freed once the reader returns
    };

    // Bytes queued for one consumer beyond which it is taken for a consumer that stopped reading.
    static constexpr qint64 maxQueuedBytes = 4 * 1024 * 1024;
    // Every reply and every value push is one framed package built in a buffer of this size; a
    // package that does not fit is sent cut short (and its consumer drops it on the checksum).
    static constexpr int replyBufferSize = 512;

    explicit EmberServer(QObject *parent = nullptr);
    ~EmberServer() override;

    void setInstance(uint id);
    uint instance() const;
    void emberSocketInit(int port);
    void emberSocketShutdown();
    static bool setNICaddress(QHostAddress address);
    void emberSendTo(int id, int value, char *data);
    bool isListening() const;
    int clientCount() const;
    quint16 serverPort() const; // 0 when not listening
    __SampleNode *rootNode();
    static __SampleNode *findNode(__SampleNode *root, const int *path, int *length);
    // Blocks still allocated through the Ember+ memory hooks, process-wide.
    static int allocatedBlocks();

signals:
    void emberSendToInstance(uint instance, int id, int value, QByteArray text);
    void emberClientAdded(uint instance, QString text);
    void emberClientRemoved(uint instance, QString text);
    void emberInfo(const QString &text);

public slots:
    void pingClients();
    void emberSocketInitClient();
    void emberSocketReadFromClient();
    void emberSocketClientDisconnected();
    void emberSocketAcceptError(QAbstractSocket::SocketError error);
    void emberSocketClientError(QAbstractSocket::SocketError error);

private:
    // Connections (emberclient.cpp).
    void clientInit(int key, QTcpSocket *socket);
    void clientExit(int key);
    static void clientFree(ClientInfo *client);
    void clientsSendToAll(char *data, int length);
    bool clientWrite(ClientInfo *client, const char *data, qint64 length);
    void emberRecieveCommand(int key, __SampleNode *function, SGlowInvocation invocation);
    void emberRecieveParameter(int key, __SampleNode *parameter);
    void answerGetDirectory(ClientInfo *client, __SampleNode *element, const int *path, int pathLength,
                            int fieldMask);
    void receiveCommand(ClientInfo *client, const SGlowCommand *command, const int *path, int pathLength);
    void receiveParameter(ClientInfo *client, const SGlowParameter *parameter, EGlowFieldFlags fields,
                          const int *path, int pathLength);

    // Reader callbacks; state is the connection's ClientInfo.
    static void onParameter(const SGlowParameter *parameter, EGlowFieldFlags fields, const int *path,
                            int pathLength, void *state);
    static void onCommand(const SGlowCommand *command, const int *path, int pathLength, void *state);
    static void onPackageReceived(const unsigned char *package, int length, void *state);

    uint m_instance = 0;
    __SampleNode m_root;
    QTcpServer *m_server = nullptr;
    QTimer *m_pingTimer = nullptr;
    int m_liveJitter = 0;
    QMap<int, ClientInfo *> m_clients;
    int m_nextKey = 1;

    static QHostAddress NICaddress;
    static int instcount;
};

#endif
