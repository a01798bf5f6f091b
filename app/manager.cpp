#include "app/manager.h"

#include "logging/logging.h"
#include "osc/osc.h"
#include "snmp/snmp.h"

#include <QCoreApplication>
#include <QDebug>
#include <QRegularExpression>
#include <QSettings>
#include <QTimer>

Manager::Manager(QObject *parent, const QString &vxmaPath) : QObject(parent), m_vxmaOverride(vxmaPath)
{
    logging = new Logging(this);
    connect(this, &Manager::StatusMessage, logging, &Logging::infoShowMessage);
    connect(this, &Manager::StatusUpdate, logging, &Logging::infoUpdate);

    qInfo() << "******************Starting Program";
    settingsRead();
    qInfo().noquote() << "Path to executable" << exePath;

    commPipeInit();

    watchdogTimer = new QTimer(this);
    connect(watchdogTimer, &QTimer::timeout, this, &Manager::watchdogOnTimer);
    watchdogTimer->start(1000);
}

Manager::~Manager()
{
    qInfo() << "Quiting Program";
    watchdogTimer->stop();
    const QList<uint> ids = instances.keys();
    for (uint id : ids)
        instanceDelete(id);
    settingsWrite();
    qInfo() << "******************Program Quit";
    Logging::jSync();

    shutdownHub();
    delete snmp;
    snmp = nullptr;
    delete osc;
    osc = nullptr;
    delete settingsFile;
    settingsFile = nullptr;
}

uint Manager::instanceAt(int index) const
{
    for (auto it = instances.constBegin(); it != instances.constEnd(); ++it) {
        if (it->index == index)
            return it.key();
    }
    return 0;
}

VX_Instance *Manager::instance(uint id)
{
    auto it = instances.find(id);
    return it == instances.end() ? nullptr : &it.value();
}

void Manager::instanceCreate(uint id, const QString &exe, const QString &setup, int emberPort,
                             int inactivityTime, int flags)
{
    const bool known = instances.contains(id);
    VX_Instance &record = instances[id];
    record.exePath = exe;
    record.setupPath = setup;
    record.emberPort = emberPort;
    record.inactivityTime = inactivityTime;
    record.flags = flags;
    if (known) {
        windowUpdate(id);
        return;
    }

    clientsForceUpdate(id);
    instanceReVXI();
    qInfo().noquote() << instances[id].index << "|"
                      << "Adding Instance" << exe << setup << "Ember port:" << emberPort
                      << "Timeout:" << inactivityTime;

    emberCreate(id);
    oscCopyInstanceTree(id);
    if (flags & InstanceAutoRun)
        processEnque(id);
    windowUpdate(id);
}

void Manager::instanceDelete(uint id)
{
    auto it = instances.find(id);
    if (it == instances.end()) {
        instanceReVXI();
        return;
    }
    if (it->flags & InstanceAutoRun) {
        if (!(it->flags & InstanceStartedOutside))
            processStop(id, false);
    } else {
        for (auto c = clients.constBegin(); c != clients.constEnd(); ++c) {
            if (c.value() == id) {
                commPipeMessageSend(QByteArray("VXTERMINATE"), ushort(c.key()));
                break;
            }
        }
    }
    startQueue.removeAll(id);

    it = instances.find(id); // processStop may have run the event loop's signals
    if (it == instances.end())
        return;
    delete it->ember;
    it->ember = nullptr;
    if (QProcess *process = it->process) {
        it->process = nullptr;
        process->disconnect(this);
        // A process that did not end within the wait is ended with its object.
        process->deleteLater();
    }
    const int index = it->index;
    emit StatusRemove(index);
    instances.erase(it);
    instanceReVXI();
}

uint Manager::instanceUIUD(const QString &path)
{
    static const QRegularExpression notAlphanumeric(QStringLiteral("[^a-zA-Z0-9]"));
    QString plain = path;
    plain.remove(notAlphanumeric);
    return sortedHashValue(plain.toLower());
}

uint Manager::sortedHashValue(const QString &s)
{
    QString text;
    quint32 number = 0;
    for (const QChar c : s) {
        const ushort u = c.unicode();
        const bool asciiDigit = u >= '0' && u <= '9';
        if (asciiDigit || (u >= 0x80 && c.category() == QChar::Number_DecimalDigit)) {
            number = number * 10u + quint32(c.digitValue());
        } else {
            text.append(c);
        }
    }
    text.append(QStringLiteral("%1").arg(number, 10, 10, QLatin1Char('0')));
    return qHash(text, 0);
}
