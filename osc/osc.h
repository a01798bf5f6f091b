#pragma once

#include <QByteArray>
#include <QHash>
#include <QHostAddress>
#include <QList>
#include <QObject>
#include <QString>

class QUdpSocket;

// The OSC gateway: an address space of instance parameters, one receiving UDP port and a list of
// targets. Every value change of a parameter goes to every target as /vx/<agent>/<name>; messages
// received for a writable name are handed to the manager through oscSendToInstance.
class OSC : public QObject
{
    Q_OBJECT

public:
    // One entry of the address space.
    struct __PARAM
    {
        quint32 id = 0;    // value id of the instance parameter or command
        QString name;      // address part after /vx/<agent>/
        char kind = 0;     // 'P' parameter, 'C' command
        char tag = 0;      // OSC type tag of the single argument
        char writable = 0; // non-zero when OSC may set it
    };

    explicit OSC(QObject *parent = nullptr);
    ~OSC() override;

    // OSC type tag for an Ember+ parameter type (or a command's first argument type).
    static char tagFromEmberType(int emberType);

    // Normalises the name ("/root/" and the characters " {}?,*#" removed) and stores the entry;
    // a later entry with the same id or name replaces the earlier one.
    void parameterAdd(__PARAM &param);

    // Appends the packet for one value change to out; only a 'P' entry builds anything.
    void packetBuild(QByteArray &out, unsigned agent, int parameterId, int value, const char *text);
    // Delivers every message of one datagram to oscRecieveMessage; always returns 0.
    int packetParse(const QByteArray &datagram);

    void inPortSet(unsigned port);
    void hostSet(int index, const QString &text, unsigned port);
    void hostRemove(int index);
    bool hostsOk() const;

    // Sends one value change of an instance to every target (text may be null; for 'b' entries
    // value is the number of bytes in text).
    void oscSendTo(unsigned agent, int parameterId, int value, const char *text);
    void hostSend(unsigned agent, const QByteArray &packet);

    void oscRecieveMessage(QString address, int value, QByteArray data);

    unsigned inPort() const { return m_inPort; }
    bool receiving() const { return m_receiveSocket != nullptr; }
    const QList<QHostAddress> &targets() const { return m_targets; }
    const QList<quint32> &targetPorts() const { return m_targetPorts; }
    const QHash<quint32, __PARAM> &parameters() const { return m_parameters; }
    const QHash<QString, quint32> &names() const { return m_names; }

signals:
    // agent -1 addresses every instance
    void oscSendToInstance(int agent, int parameterId, int value, QByteArray data);

public slots:
    void readPendingDatagrams();

private:
    QUdpSocket *m_receiveSocket = nullptr;
    quint32 m_inPort = 0;
    QUdpSocket *m_sendSocket = nullptr;
    QList<QHostAddress> m_targets;
    QList<quint32> m_targetPorts;
    QHash<quint32, __PARAM> m_parameters;
    QHash<QString, quint32> m_names;
};
