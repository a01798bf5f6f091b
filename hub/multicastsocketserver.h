#pragma once

#include "hub/hubframe.h"
#include "hub/hubkeywords.h"
#include "hub/relaylock.h"
#include "hub/scrypt.h"

#include <QHash>
#include <QList>
#include <QLocalSocket>
#include <QMutex>
#include <QObject>
#include <atomic>

class QLocalServer;
class QThread;
class QTimer;

// A many-to-many message hub between the processes of one machine, over local sockets. Every
// participant creates one object with the same pipe name. The first that can listen becomes the
// relay: it accepts the others, gives each a small id and copies every frame to all of them. Every
// participant, the relay's own process included, is also a client of the relay and keeps only the
// frames addressed to everybody (target 0) or to its own id. When the relay's process ends, the
// clients receive SERVERLOST and one of them takes the relay over.
//
// Flags: 1 = client only (never relay), 2 = frame cipher off, 4 = run on a thread of its own.
//
// Threads: with flag 4 the object lives on its own thread and has no parent (the parent given is
// only watched: when it is destroyed, the hub is deleted with it). Signals reach other threads
// through queued connections. broadcastData, sendDataTo, ping, setPipeName, enableEncryption and
// leaveServer may be called from any thread: off the hub's thread they are queued to it. ownId()
// and isServer() are readable from any thread. Delete the object from the thread that created it
// (or let the watched parent do it); the destructor stops the hub thread and waits for it.
class MultiCastSocketServer : public QObject
{
    Q_OBJECT
public:
    enum Flag
    {
        ClientOnly = 1,
        CipherOff = 2,
        OwnThread = 4
    };

    MultiCastSocketServer(QObject *parent, QString pipeName, int flags);
    ~MultiCastSocketServer() override;

    void setPipeName(const QString &name);
    void enableEncryption(bool on);

    void broadcastData(const QByteArray &data);
    void broadcastData(const QString &text);
    void sendDataTo(quint16 id, const QByteArray &data);
    void sendDataTo(quint16 id, const QString &text);
    // A literal is text.
    void broadcastData(const char *text) { broadcastData(QString::fromLocal8Bit(text)); }
    void sendDataTo(quint16 id, const char *text) { sendDataTo(id, QString::fromLocal8Bit(text)); }

    // This participant's id, 0 until the relay has assigned one.
    quint16 ownId() const { return m_ownId.load(); }
    // True while this participant is the relay (listens on the pipe name).
    bool isServer() const { return m_isServer.load(); }
    // The derived name used for listening and connecting (the local socket's name).
    QString pipeName() const;

signals:
    void dataFromServer(QByteArray data, quint16 sourceId);
    void connectedToServer();
    // The relay gave this participant an id (after every (re)connection).
    void idAssigned(quint16 id);

public slots:
    void ping();
    void leaveServer();
    void killServer();
    void launchServer();
    void ConnectToServer();
    void delayedConnectToServer();

private slots:
    void serverConnected();
    void serverDisconnected();
    void readFromServer();
    void connectionError(QLocalSocket::LocalSocketError error);
    void serverNewConnection();
    void readFromClient();
    void clientDisconnected();
    void clientError(QLocalSocket::LocalSocketError error);
    void onThreadStarted();

private:
    void initClass(const QString &name);
    void applyPipeName(const QString &name);
    void writeToSocket(QLocalSocket *socket, const QByteArray &data, bool framed, quint16 target);
    void sendFramed(quint16 target, const QByteArray &data);
    void deliver(const HubFrame &frame);
    void controlMessage(const QByteArray &payload);
    bool liveRelayAnswers();
    bool onHubThread() const;
    void shutdownOnHubThread();

    QString m_pipeName; // derived name; written on the hub thread only, under m_nameLock
    mutable QMutex m_nameLock;
    int m_flags = 0;
    SCrypt m_scrypt;
    QLocalSocket *m_clientSocket = nullptr;
    std::atomic<quint16> m_ownId{0};
    std::atomic<bool> m_isServer{false};
    HubFrameReader m_rx{HubMaxPayload};
    QLocalServer *m_server = nullptr;
    QList<QLocalSocket *> m_clients; // index i belongs to id i + 1; null = free
    QHash<QLocalSocket *, HubFrameReader *> m_relayReaders;
    RelayLock m_relayLock;
    QTimer *m_connectTimer = nullptr;
    QTimer *m_pingTimer = nullptr;
    QThread *m_thread = nullptr;
    QMetaObject::Connection m_parentWatch;
};
