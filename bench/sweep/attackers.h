#pragma once

#include "badinput.h"

#include <QList>
#include <QObject>
#include <QTcpSocket>
#include <QTimer>
#include <QUdpSocket>
#include <array>

// The sending side of the sweep. Every attacker keeps its own counts; all stop on stop() and send
// nothing more once their budget of inputs is spent.

// Many TCP connections to the Ember+ ports, each writing bad inputs on a timer and, after a random
// number of them, ending (closed or reset) and starting over on another port.
class TcpGarbage : public QObject
{
    Q_OBJECT
public:
    TcpGarbage(const QList<quint16> &ports, int connections, int chunksPerSecond, qint64 budget, quint32 seed,
               QObject *parent = nullptr);
    void start();
    void stop();

    qint64 sent(badinput::EmberKind kind) const { return m_sent[size_t(kind)]; }
    qint64 sentTotal() const;
    qint64 bytes() const { return m_bytes; }
    qint64 connections() const { return m_opened; }
    qint64 refused() const { return m_refused; }
    bool spent() const { return sentTotal() >= m_budget; }

private:
    struct Link
    {
        QTcpSocket *socket = nullptr;
        int left = 0; // inputs before this connection ends
    };
    void tick();
    void open(Link &link);

    QList<quint16> m_ports;
    QList<Link> m_links;
    int m_chunksPerTick;
    qint64 m_budget;
    QRandomGenerator m_rng;
    QTimer m_timer;
    std::array<qint64, size_t(badinput::EmberKind::Count)> m_sent{};
    qint64 m_bytes = 0;
    qint64 m_opened = 0;
    qint64 m_refused = 0;
};

// Datagrams to one UDP port at a steady rate; answers (SNMP responses) are read and counted.
class UdpFlood : public QObject
{
    Q_OBJECT
public:
    using Maker = QByteArray (*)(badinput::DatagramKind, QRandomGenerator &);
    UdpFlood(quint16 port, Maker maker, int perSecond, qint64 budget, quint32 seed,
             QObject *parent = nullptr);
    void start();
    void stop();

    qint64 sent(badinput::DatagramKind kind) const { return m_sent[size_t(kind)]; }
    qint64 sentTotal() const;
    qint64 answers() const { return m_answers; }
    bool spent() const { return sentTotal() >= m_budget; }

private:
    void tick();

    quint16 m_port;
    Maker m_maker;
    int m_perTick;
    qint64 m_budget;
    QRandomGenerator m_rng;
    QUdpSocket m_socket;
    QTimer m_timer;
    std::array<qint64, size_t(badinput::DatagramKind::Count)> m_sent{};
    qint64 m_answers = 0;
};

// An Ember+ consumer that asks for the whole tree over and over and never reads a byte of the
// answers: the provider has to keep what it cannot send somewhere, and must not keep it all.
class StalledConsumer : public QObject
{
    Q_OBJECT
public:
    StalledConsumer(quint16 port, QObject *parent = nullptr);
    void start();
    void stop();

    qint64 requests() const { return m_requests; }
    qint64 connects() const { return m_connects; }
    qint64 cutOff() const { return m_cutOff; } // times the provider ended the connection

private:
    void connectNow();

    quint16 m_port;
    QTcpSocket *m_socket = nullptr;
    QTimer m_timer;
    QByteArray m_request;
    qint64 m_requests = 0;
    qint64 m_connects = 0;
    qint64 m_cutOff = 0;
    bool m_stopped = false;
};
