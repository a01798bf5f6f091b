// The two settings stores: the per-user application settings and the manager settings file
// (".vxma") that lists the instances and the SNMP, OSC and network options.
#include "app/manager.h"

#include "logging/logging.h"
#include "osc/osc.h"
#include "snmp/snmp.h"

#include <QCoreApplication>
#include <QDebug>
#include <QDir>
#include <QFileInfo>
#include <QSettings>

namespace {

// QSettings reads a number written by hand as text; what does not read as a number reads 0.
int readInt(const QSettings *settings, const QString &key, int fallback)
{
    const QVariant value = settings->value(key, fallback);
    bool ok = false;
    const int number = value.toInt(&ok);
    return ok ? number : 0;
}

unsigned readUInt(const QSettings *settings, const QString &key)
{
    bool ok = false;
    const unsigned number = settings->value(key, 0u).toUInt(&ok);
    return ok ? number : 0u;
}

} // namespace

void Manager::settingsRead()
{
    QSettings settings;
    // The studio executable is expected beside the manager, its name in place of ours.
    const QString own = QCoreApplication::applicationFilePath();
    QString fallback = own;
    fallback.replace(QStringLiteral("VEXA Studio Manager"), QStringLiteral("VexaStudio"));
    fallback.replace(QStringLiteral("vexa-studio-manager"), QStringLiteral("VexaStudio"));
    if (fallback == own)
        fallback.clear();
    const QString exe = settings.value(QStringLiteral("Path_To_Exe"), fallback).toString();
    if (!exe.isEmpty() && QFileInfo::exists(exe))
        exePath = QFileInfo(exe).absoluteFilePath();

    if (!m_vxmaOverride.isEmpty()) {
        path_to_vxma(m_vxmaOverride);
        return;
    }
    const QString vxma = settings.value(QStringLiteral("Path_To_VXMA")).toString();
    if (!vxma.isEmpty() && QFileInfo(vxma).isFile())
        path_to_vxma(QFileInfo(vxma).absoluteFilePath());
}

void Manager::settingsWrite()
{
    QSettings settings;
    settings.setValue(QStringLiteral("Path_To_Exe"), exePath);
    settings.setValue(QStringLiteral("Path_To_VXMA"), settingsFile ? settingsFile->fileName() : QString());
    settings.sync();
}

void Manager::setDefaultExePath(const QString &path)
{
    if (!path.isEmpty() && QFileInfo::exists(path))
        exePath = QFileInfo(path).absoluteFilePath();
}

QString Manager::vxmaFileName() const
{
    return settingsFile ? settingsFile->fileName() : QString();
}

void Manager::loggingSet(bool on)
{
    QSettings settings;
    settings.setValue(QStringLiteral("LoggingLevel"), on ? 2 : 0);
    settings.sync();
    logging->SetLogging();
}

void Manager::path_to_vxma(QString path)
{
    if (settingsFile) {
        if (path == QFileInfo(settingsFile->fileName()).absoluteFilePath())
            return;
        if (path.isEmpty())
            path = settingsFile->fileName();
        delete settingsFile;
        settingsFile = nullptr;
    }

    const QFileInfo info(path);
    QString file;
    if (info.isFile())
        file = info.absolutePath() + QLatin1Char('/') + info.completeBaseName() + QStringLiteral(".vxma");
    else
        file = QDir(path).absolutePath() + QLatin1Char('/') + QCoreApplication::applicationName() +
               QStringLiteral(".vxma");

    settingsFile = new QSettings(file, QSettings::IniFormat, QCoreApplication::instance());
    settingsWrite();
    settingsReadVXMA();
}

void Manager::settingsReadVXMA()
{
    if (!settingsFile)
        return;
    QSettings *s = settingsFile;
    if (s->status() != QSettings::NoError)
        qWarning().noquote() << "Settings file could not be read:" << s->fileName();

    s->beginGroup(QStringLiteral("Options"));
    const int nic = readInt(s, QStringLiteral("EmberNetworkNIC"), -1);
    s->endGroup();
    setNetWorkNIC(nic);

    s->beginGroup(QStringLiteral("Instances"));
    const QString groupExe = s->value(QStringLiteral("Path_To_Exe")).toString();
    if (!groupExe.isEmpty() && QFileInfo::exists(groupExe))
        exePath = QFileInfo(groupExe).absoluteFilePath();
    struct Entry
    {
        uint id;
        QString exe, setup;
        int port, timeout, flags;
    };
    QList<Entry> entries;
    for (int n = 0;; ++n) {
        const QString key = QStringLiteral("Instance%1").arg(n);
        if (!s->contains(key))
            break;
        const QString setup = s->value(key).toString();
        const QString exe = s->value(QStringLiteral("%1_exe").arg(key), exePath).toString();
        if (exePath.isEmpty() && QFileInfo::exists(exe))
            exePath = exe;
        const int port = readInt(s, QStringLiteral("%1_emberport").arg(key), 0);
        int timeout = readInt(s, QStringLiteral("%1_inactivitytime").arg(key), 0);
        int flags = (QFileInfo::exists(setup) && QFileInfo::exists(exe))
                        ? InstanceFromSettings
                        : InstanceFromSettings | InstanceFilesMissing;
        const int autostart = readInt(s, QStringLiteral("%1_autostart").arg(key), 1);
        if (autostart != 0 && timeout != 0)
            flags |= InstanceAutoRun;
        else
            timeout = 0;
        entries.append({instanceUIUD(setup), exe, setup, port, timeout, flags});
    }
    s->endGroup();
    // The group is read completely first: creating an instance may write the file.
    for (const Entry &e : qAsConst(entries))
        instanceCreate(e.id, e.exe, e.setup, e.port, e.timeout, e.flags);

    s->beginGroup(QStringLiteral("SNMP"));
    const unsigned snmpListen = readUInt(s, QStringLiteral("ReceivePort"));
    const unsigned snmpTrap = readUInt(s, QStringLiteral("TrapSendPort"));
    QStringList managers;
    QString address = s->value(QStringLiteral("ManagerIP")).toString();
    for (int n = 0; !address.isEmpty(); ++n) {
        managers.append(address);
        address = s->value(QStringLiteral("ManagerIP%1").arg(n)).toString();
    }
    s->endGroup();
    if (snmpListen != 0)
        snmpSetListenPort(snmpListen);
    if (snmpTrap != 0)
        snmpSetTrapPort(snmpTrap);
    for (QString &m : managers)
        snmpSetHost(-1, m);

    s->beginGroup(QStringLiteral("OSC"));
    const unsigned oscIn = readUInt(s, QStringLiteral("ReceivePort"));
    QList<QPair<QString, unsigned>> targets;
    QString target = s->value(QStringLiteral("TargetIP")).toString();
    unsigned targetPort = readUInt(s, QStringLiteral("TargetPort"));
    for (int n = 0; !target.isEmpty(); ++n) {
        targets.append({target, targetPort});
        target = s->value(QStringLiteral("TargetIP%1").arg(n)).toString();
        targetPort = readUInt(s, QStringLiteral("TargetPort%1").arg(n));
    }
    s->endGroup();
    if (oscIn != 0)
        oscSetInPort(oscIn);
    for (auto &t : targets)
        oscSetHost(-1, t.first, t.second);
}

void Manager::settingsWriteVXMA()
{
    if (!settingsFile)
        return;
    if (settingsFile->status() != QSettings::NoError) {
        // QSettings keeps its first error for good: after one failed write (a folder that was
        // read-only for a while) every later one would be reported as failed too. Start over on
        // the same file; this write puts everything from memory anyway.
        const QString name = settingsFile->fileName();
        delete settingsFile;
        settingsFile = new QSettings(name, QSettings::IniFormat, QCoreApplication::instance());
    }
    QSettings *s = settingsFile;

    s->remove(QStringLiteral("Instances"));
    s->beginGroup(QStringLiteral("Instances"));
    int k = 0;
    for (auto it = instances.constBegin(); it != instances.constEnd(); ++it) {
        // Only instances the manager runs and guards are kept: they reload as auto-run.
        if (!(it->flags & InstanceAutoRun) || it->inactivityTime == 0)
            continue;
        const QString key = QStringLiteral("Instance%1").arg(k++);
        s->setValue(key, it->setupPath);
        s->setValue(QStringLiteral("%1_exe").arg(key), it->exePath);
        s->setValue(QStringLiteral("%1_inactivitytime").arg(key), it->inactivityTime);
        s->setValue(QStringLiteral("%1_emberport").arg(key), it->emberPort);
    }
    s->endGroup();

    s->remove(QStringLiteral("SNMP"));
    if (snmp && snmp->hostsOk()) {
        s->beginGroup(QStringLiteral("SNMP"));
        if (snmp->hostListenPort() != 0)
            s->setValue(QStringLiteral("ReceivePort"), snmp->hostListenPort());
        if (snmp->hostTrapPort() != 0)
            s->setValue(QStringLiteral("TrapSendPort"), snmp->hostTrapPort());
        const QList<QHostAddress> hosts = snmp->hostList();
        for (int n = 0; n < hosts.size(); ++n) {
            const QString key =
                n == 0 ? QStringLiteral("ManagerIP") : QStringLiteral("ManagerIP%1").arg(n - 1);
            s->setValue(key, hosts.at(n).toString());
        }
        s->endGroup();
    }

    s->remove(QStringLiteral("OSC"));
    if (osc && (!osc->targets().isEmpty() || osc->inPort() != 0)) {
        s->beginGroup(QStringLiteral("OSC"));
        if (osc->inPort() != 0)
            s->setValue(QStringLiteral("ReceivePort"), osc->inPort());
        const QList<QHostAddress> targets = osc->targets();
        const QList<quint32> ports = osc->targetPorts();
        for (int n = 0; n < targets.size(); ++n) {
            const QString suffix = n == 0 ? QString() : QString::number(n - 1);
            s->setValue(QStringLiteral("TargetIP") + suffix, targets.at(n).toString());
            s->setValue(QStringLiteral("TargetPort") + suffix, n < ports.size() ? ports.at(n) : 0u);
        }
        s->endGroup();
    }

    s->remove(QStringLiteral("Options"));
    s->beginGroup(QStringLiteral("Options"));
    s->setValue(QStringLiteral("EmberNetworkNIC"), nicIndex);
    s->endGroup();

    s->sync();
    if (s->status() != QSettings::NoError)
        qWarning().noquote() << "Settings file could not be written:" << s->fileName();
}
