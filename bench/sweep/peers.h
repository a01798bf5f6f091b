#pragma once

#include "ember/glowreader.h"

#include <QElapsedTimer>
#include <QObject>
#include <QTcpSocket>
#include <QTimer>
#include <QUdpSocket>

// A well-behaved Ember+ consumer: asks for the tree once, then reads everything the provider pushes
// and sends a keep-alive request every second. It counts value updates and keep-alive answers and
// remembers the longest time without either, which is how the sweep sees the instance's values
// still flowing through the manager. It reconnects when the connection drops.
class GoodConsumer : public QObject
{
    Q_OBJECT
public:
    GoodConsumer(quint16 port, QObject *parent = nullptr);
    ~GoodConsumer() override;

    void start();
    // Starts measuring gaps afresh (after the site came up).
    void resetGap();

    qint64 updates() const { return m_updates; }
    qint64 keepAliveAnswers() const { return m_keepAlives; }
    qint64 connects() const { return m_connects; }
    qint64 bytesRead() const { return m_bytes; }
    double longestGapSeconds() const;
    double currentGapSeconds() const { return m_sinceUpdate.elapsed() / 1000.0; }

private:
    void connectNow();
    void received();
    static void onParameter(const SGlowParameter *parameter, EGlowFieldFlags fields, const int *path,
                            int length, void *state);
    static void onPackage(const unsigned char *package, int length, void *state);

    quint16 m_port;
    QTcpSocket m_socket;
    QTimer m_keepAlive;
    SGlowReader m_reader;
    unsigned char m_buffer[4096];
    qint64 m_updates = 0;
    qint64 m_keepAlives = 0;
    qint64 m_connects = 0;
    qint64 m_bytes = 0;
    QElapsedTimer m_sinceUpdate;
    qint64 m_longestGapMs = 0;
};

// A UDP port that counts what arrives: the OSC target and the SNMP trap receiver.
class UdpCounter : public QObject
{
    Q_OBJECT
public:
    explicit UdpCounter(QObject *parent = nullptr);
    quint16 port() const { return m_socket.localPort(); }
    qint64 datagrams() const { return m_datagrams; }

private:
    QUdpSocket m_socket;
    qint64 m_datagrams = 0;
};
