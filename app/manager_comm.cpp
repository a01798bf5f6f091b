// The manager's side of the local message hub: set-up, double-run detection and the dispatch of
// the instances' messages.
#include "app/manager.h"

#include "hub/multicastsocketserver.h"

#include <QCoreApplication>
#include <QDebug>
#include <QFileInfo>
#include <QTimer>

namespace {

// runFlags bit: the cascade is held until running instances had their chance to announce
// themselves to our new relay (their hub clients retry once a second).
constexpr quint32 StartHeld = 0x02;
constexpr int StartHoldMs = 1500;

} // namespace

void Manager::commPipeInit()
{
    hub = new MultiCastSocketServer(nullptr, QStringLiteral("VXMANAGERQT"), 6);
    connect(hub, &MultiCastSocketServer::dataFromServer, this, &Manager::commPipeMessageReceive,
            Qt::QueuedConnection);
    connect(hub, &MultiCastSocketServer::connectedToServer, this, &Manager::commPipeConnectedToServer,
            Qt::QueuedConnection);
    // Instances that outlived an earlier manager reconnect to our relay and announce themselves
    // within one retry period of theirs; they are adopted then (see "syncset"). The cascade waits
    // for that, or its first start would put a second copy beside a running instance.
    runFlags |= 1u | StartHeld;
}

void Manager::shutdownHub()
{
    if (!hub)
        return;
    hub->disconnect(this);
    // The hub's destructor stops its thread and waits for it.
    delete hub;
    hub = nullptr;
}

bool Manager::hubIsServer() const
{
    return hub && hub->isServer();
}

void Manager::commPipeConnectedToServer()
{
    if (hubIsServer()) {
        if (runFlags & StartHeld)
            QTimer::singleShot(StartHoldMs, this, [this] {
                if (runFlags & StartHeld)
                    runFlags &= ~(1u | StartHeld);
            });
        return;
    }
    startQueue.clear();
    qInfo() << "Double run Detected";
    emit doubleDetect();
    QTimer::singleShot(0, QCoreApplication::instance(), &QCoreApplication::quit);
}

void Manager::commPipeMessageSend(const QByteArray &bytes, ushort client)
{
    if (hub)
        hub->sendDataTo(quint16(client), bytes);
}

void Manager::commPipeMessageReceive(QByteArray bytes, quint16 client)
{
    if (!hubIsServer())
        return;
    const int nul = bytes.indexOf('\0');
    const QString text = QString::fromLocal8Bit(nul < 0 ? bytes : bytes.left(nul));

    if (text == QLatin1String("pingrequest") || text == QLatin1String("serverlost"))
        return;

    if (text.startsWith(QLatin1String("syncset"))) {
        const QString path = text.mid(7);
        const uint id = instanceUIUD(path);
        clients[client] = id;
        if (!instances.contains(id)) {
            qInfo().noquote() << "VX Manually started" << path;
            instanceCreate(id, exePath, path, 0, 0, 0);
        } else {
            VX_Instance &record = instances[id];
            if (!exePath.isEmpty())
                record.flags &= ~InstanceStartedOutside;
            // An auto-run instance that announces itself while it still waits in our start queue
            // outlived an earlier manager (killed, then started again). A copy of ours would fight
            // it for the same audio device and ports: supervise the running one instead. The
            // watchdog guards it as usual; its restart starts a process of our own, and
            // processStop asks an adopted instance to end itself, as we hold no handle on it.
            const bool ownRunning = record.process && record.process->state() != QProcess::NotRunning;
            if ((record.flags & InstanceAutoRun) && startQueue.contains(id) && !ownRunning) {
                startQueue.removeAll(id);
                record.flags |= InstanceAdopted;
                // It is alive already: its first record must not move the cascade on, as that
                // record would for a process just started.
                record.aliveCounter = 0;
                qInfo().noquote() << record.index << "|"
                                  << "Adopting running instance" << path;
            }
        }
        auto it = instances.find(id);
        if (it == instances.end())
            return;
        it->clientId = client;
        commPipeMessageSend(QByteArray("VXMANAGER"), client);
        qInfo().noquote() << it->index << "|"
                          << "Starting Data exchange";
        return;
    }

    if (text == QLatin1String("VXMANAGER"))
        return;

    if (text.startsWith(QLatin1String("VXPATH"))) {
        const QFileInfo file(text.mid(6));
        if (!file.exists())
            return;
        if (exePath.isEmpty())
            exePath = file.absoluteFilePath();
        const uint id = clients.value(client, 0);
        auto it = instances.find(id);
        if (id != 0 && it != instances.end() && !(it->flags & InstanceFromSettings)) {
            it->exePath = file.absoluteFilePath();
            settingsWriteVXMA();
        }
        return;
    }

    // A binary status record. Copy it so that the words are aligned whatever the payload's buffer.
    const uint id = clients[client];
    QVector<quint32> words((bytes.size() + 3) / 4, 0);
    if (!bytes.isEmpty())
        memcpy(words.data(), bytes.constData(), size_t(bytes.size()));
    if (!instanceDataReceive(id, words.constData(), bytes.size())) {
        qWarning().noquote() << "unknown data received in m_commPipe from" << client;
        return;
    }
    instanceMarkAlive(id);
    windowUpdate(id);
}
