#pragma once

#include "app/vxinstance.h"
#include "ember/emberserver.h"

#include <QHostAddress>
#include <QList>
#include <QMap>
#include <QObject>
#include <QProcess>
#include <QStringList>
#include <QVector>

class Logging;
class MultiCastSocketServer;
class OSC;
class QSettings;
class QTimer;
class SNMP;

// One entry of the network interface choice offered to the user.
struct NetworkChoice
{
    QString text;
    int index = -1; // operating-system interface index; -1 = "Default"
    bool selected = false;
};

// The supervisor: the registry of instances, their processes and watchdog, the message hub to
// them, their status rows, the settings files, and the wiring of the Ember+, SNMP and OSC sides.
// It never touches a widget: the window and the wizards present it and call its operations.
class Manager : public QObject
{
    Q_OBJECT
public:
    // `vxmaPath`, when given, is used instead of the stored "Path_To_VXMA" (command-line --vxma).
    explicit Manager(QObject *parent = nullptr, const QString &vxmaPath = QString());
    ~Manager() override;

    // Registry.
    void instanceCreate(uint id, const QString &exe, const QString &setup, int emberPort, int inactivityTime,
                        int flags);
    void instanceDelete(uint id);
    VX_Instance *instance(uint id);
    static uint instanceUIUD(const QString &path);
    static uint sortedHashValue(const QString &s);
    const QMap<uint, VX_Instance> &instanceMap() const { return instances; }
    // The id of the instance shown in row `index`; 0 when there is none.
    uint instanceAt(int index) const;

    // Settings.
    void settingsRead();
    void settingsWrite();
    void path_to_vxma(QString path);
    void settingsReadVXMA();
    void settingsWriteVXMA();
    void loggingSet(bool on);
    QString vxmaFileName() const;
    QString defaultExePath() const { return exePath; }
    // The studio executable for instances whose settings name none (saved as "Path_To_Exe").
    void setDefaultExePath(const QString &path);
    Logging *log() const { return logging; }

    // Processes.
    void processCreate(uint id);
    void processEnque(uint id);
    void processStartCascaded();
    void processStart(uint id);
    void processStop(uint id, bool kill);
    void instanceRestart(uint id);
    void instanceMarkAlive(uint id);
    QList<uint> pendingStarts() const { return startQueue; }

    // Messages with the instances.
    void commPipeInit();
    void commPipeMessageSend(const QByteArray &bytes, ushort client);
    bool instanceDataReceive(uint id, const quint32 *words, int bytes);
    void clientsUpdate(uint id, int parameter, int value, const char *text);
    void clientsForceUpdate(uint id);
    bool hubIsServer() const;
    static QByteArray codecName(int index);

    // Status rows.
    QStringList StatusPrepMessage(const VX_Instance &record, int runState);
    static int instanceMapStatus(int runState);
    void windowUpdate(uint id);
    void windowUpdate();

    // Network interface.
    QVector<NetworkChoice> getNetWorkList() const;
    void setNetWorkNIC(int nic);
    void instancesReInitNetwork();
    void instanceReVXI();
    QHostAddress networkAddress() const { return nicAddress; }
    int networkIndex() const { return nicIndex; }

    // SNMP agent.
    void snmpCreate();
    void snmpSetListenPort(unsigned port);
    void snmpSetTrapPort(unsigned port);
    void snmpSetHost(int index, QString &text);
    void snmpRemoveHost(int index);
    unsigned snmpListenPort() const;
    unsigned snmpTrapPort() const;
    void snmpSendTrap(uint instanceKey);
    void snmpSendTraps();
    SNMP *snmpAgent() const { return snmp; }

    // OSC gateway.
    void oscCreate();
    void oscSetInPort(unsigned port);
    void oscSetHost(int index, QString &text, unsigned port);
    void oscRemoveHost(int index);
    void oscCopyTree(EmberServer::__SampleNode *node, QString path);
    // Adds the parameters and functions below `node` to the gateway's address space.
    static void oscCopyTree(OSC *gateway, const EmberServer::__SampleNode *node, const QString &path);
    OSC *oscGateway() const { return osc; }

signals:
    void StatusMessage(const QString &text);
    void StatusUpdate(int index, const QString &text);
    void StatusRemove(int index);
    void EditInstance(int row, int column);
    void doubleDetect();

public slots:
    void watchdogOnTimer();
    void instanceDataSend(uint id, int parameter, int value, QByteArray extra);
    void oscInstanceDataSend(int agent, int parameter, int value, QByteArray data);
    void clientAdded(uint id, QString text);
    void clientRemoved(uint id, QString text);
    void snmpGet(uint agentId, uint id);
    void snmpSet(uint agentId, uint id, uint value);

private slots:
    void commPipeConnectedToServer();
    void commPipeMessageReceive(QByteArray bytes, quint16 client);
    void processStarted();
    void processFinished(int exitCode);
    void processError(QProcess::ProcessError error);
    void processChanged(QProcess::ProcessState state);

private:
    VX_Instance *instanceOfProcess(QObject *sender, uint *id = nullptr);
    void emberCreate(uint id);
    void emberSocketInit(uint id);
    void oscCopyInstanceTree(uint id);
    void snmpFillInstance(const VX_Instance *record);
    void shutdownHub();

    QSettings *settingsFile = nullptr;
    QTimer *watchdogTimer = nullptr;
    MultiCastSocketServer *hub = nullptr;
    QString exePath;
    QMap<uint, VX_Instance> instances;
    QMap<uint, uint> clients;
    QList<uint> startQueue;
    quint32 runFlags = 0;
    Logging *logging = nullptr;
    QHostAddress nicAddress;
    SNMP *snmp = nullptr;
    OSC *osc = nullptr;
    qint32 nicIndex = 0;

    QString m_vxmaOverride;
};
