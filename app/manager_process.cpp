// The instance processes: cascaded start, stop with a bounded wait, restart, signs of life.
#include "app/manager.h"

#include <QDebug>
#include <QMetaEnum>
#include <QUrl>

void Manager::processEnque(uint id)
{
    if (!instances.contains(id) || startQueue.contains(id))
        return;
    if (startQueue.isEmpty())
        runFlags &= ~1u;
    if (!instances[id].process)
        processCreate(id);
    startQueue.append(id);
}

void Manager::processCreate(uint id)
{
    auto it = instances.find(id);
    if (it == instances.end())
        return;
    qInfo().noquote() << it->index << "|"
                      << "createProcess for" << it->setupPath;
    if (it->process)
        qWarning().noquote() << it->index << "|"
                             << "double process attached";
    auto *process = new QProcess;
    process->setObjectName(it->setupPath);
    // Nobody reads what an instance prints; drain it so that a full pipe never blocks the instance.
    process->setProcessChannelMode(QProcess::MergedChannels);
    connect(process, &QProcess::readyReadStandardOutput, process,
            [process] { process->readAllStandardOutput(); });
    connect(process, &QProcess::errorOccurred, this, &Manager::processError);
    connect(process, &QProcess::started, this, &Manager::processStarted);
    connect(process, QOverload<int, QProcess::ExitStatus>::of(&QProcess::finished), this,
            &Manager::processFinished);
    connect(process, &QProcess::stateChanged, this, &Manager::processChanged);
    it->process = process;
}

void Manager::processStartCascaded()
{
    if (startQueue.isEmpty())
        return;
    runFlags |= 1u;
    processStart(startQueue.takeFirst());
}

void Manager::processStart(uint id)
{
    auto it = instances.find(id);
    if (it == instances.end() || !it->process)
        return;
    // From here on the instance runs as a process of our own, even if it was adopted before.
    it->flags &= ~InstanceAdopted;
    clientsForceUpdate(id);
    windowUpdate(id);
    it = instances.find(id);
    qInfo().noquote() << it->index << "|"
                      << "startProcess";
    QStringList arguments;
    if (it->emberPort > 0)
        arguments << QStringLiteral("-emberport=%1").arg(it->emberPort);
    arguments << QString::fromLatin1(QUrl::toPercentEncoding(it->setupPath, "/"));
    QProcess *process = it->process;
    const int index = it->index;
    process->start(it->exePath, arguments, QIODevice::ReadWrite);
    process->waitForStarted(2000);
    qInfo().noquote() << index << "|"
                      << "startProcess done";
}

void Manager::processStop(uint id, bool kill)
{
    auto it = instances.find(id);
    if (it == instances.end())
        return;
    if (it->flags & InstanceAdopted) {
        // We hold no handle on an adopted instance: ask it to end itself, if its connection is
        // still the one it announced itself on.
        if (it->clientId != 0 && clients.value(it->clientId) == id)
            commPipeMessageSend(QByteArray("VXTERMINATE"), it->clientId);
        qInfo().noquote() << it->index << "|"
                          << "stopProcess adopted";
        return;
    }
    if (!it->process)
        return;
    const int index = it->index;
    QProcess *process = it->process;
    qInfo().noquote() << index << "|"
                      << "stopProcess";
    if (kill)
        process->kill();
    else
        process->terminate();
    process->waitForFinished(2000);
    qInfo().noquote() << index << "|"
                      << "stopProcess done";
}

void Manager::instanceRestart(uint id)
{
    auto it = instances.find(id);
    if (it == instances.end())
        return;
    if (it->aliveCounter < 86400) {
        it->aliveCounter = 86400;
        return;
    }
    const VX_Instance copy = *it;
    instanceDelete(id);
    instanceCreate(id, copy.exePath, copy.setupPath, copy.emberPort, copy.inactivityTime,
                   copy.flags | InstanceAutoRun);
}

void Manager::instanceMarkAlive(uint id)
{
    auto it = instances.find(id);
    if (it == instances.end())
        return;
    if (it->aliveCounter < 0) {
        processStartCascaded();
        it = instances.find(id);
        if (it == instances.end())
            return;
    }
    if (it->aliveCounter <= 86399)
        it->aliveCounter = 0;
}

VX_Instance *Manager::instanceOfProcess(QObject *sender, uint *id)
{
    auto *process = qobject_cast<QProcess *>(sender);
    if (!process)
        return nullptr;
    for (auto it = instances.begin(); it != instances.end(); ++it) {
        if (it->process == process) {
            if (id)
                *id = it.key();
            return &it.value();
        }
    }
    return nullptr;
}

void Manager::processStarted()
{
    auto *process = qobject_cast<QProcess *>(sender());
    if (!process)
        return;
    const VX_Instance *record = instanceOfProcess(process);
    qInfo().noquote() << (record ? record->index : -1) << "|"
                      << "processStarted" << process->program() << process->arguments().join(", ");
    emit StatusMessage(tr("processStarted: %1").arg(process->objectName()));
}

void Manager::processFinished(int exitCode)
{
    auto *process = qobject_cast<QProcess *>(sender());
    if (!process)
        return;
    const VX_Instance *record = instanceOfProcess(process);
    qInfo().noquote() << (record ? record->index : -1) << "|"
                      << "processFinished" << process->objectName() << "exitcode" << exitCode;
    emit StatusMessage(tr("processFinished: %1").arg(process->objectName()));
}

void Manager::processError(QProcess::ProcessError error)
{
    auto *process = qobject_cast<QProcess *>(sender());
    if (!process)
        return;
    const VX_Instance *record = instanceOfProcess(process);
    const char *name = QMetaEnum::fromType<QProcess::ProcessError>().valueToKey(error);
    qInfo().noquote() << (record ? record->index : -1) << "|"
                      << "processError" << name << process->program() << process->arguments().join(", ");
    emit StatusMessage(tr("processError = %1 : %2 %3")
                           .arg(int(error))
                           .arg(process->program(), process->arguments().join(QLatin1Char(' '))));
    runFlags &= ~1u;
}

void Manager::processChanged(QProcess::ProcessState state)
{
    auto *process = qobject_cast<QProcess *>(sender());
    if (!process)
        return;
    const VX_Instance *record = instanceOfProcess(process);
    const char *name = QMetaEnum::fromType<QProcess::ProcessState>().valueToKey(state);
    qInfo().noquote() << (record ? record->index : -1) << "|"
                      << "Process state" << name << process->objectName();
}
