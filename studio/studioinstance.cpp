#include "studio/studioinstance.h"

#include "hub/multicastsocketserver.h"

#include <QCoreApplication>
#include <QDebug>

namespace {

constexpr int AnnounceIntervalMs = 1500;

} // namespace

StudioInstance::StudioInstance(const StudioOptions &options, const StudioSetup &setup, QObject *parent)
    : QObject(parent), m_setupPath(options.setupPath),
      m_simulation(setup, options.emberPort >= 0 ? options.emberPort : setup.emberPort)
{
    m_clock.start();
    m_hub = new MultiCastSocketServer(this, QStringLiteral("VXMANAGERQT"),
                                      MultiCastSocketServer::ClientOnly | MultiCastSocketServer::CipherOff);
    connect(m_hub, &MultiCastSocketServer::dataFromServer, this, &StudioInstance::onData);
    connect(m_hub, &MultiCastSocketServer::idAssigned, this, &StudioInstance::onIdAssigned);

    m_recordTimer.setInterval(qMax(1, int(1000.0 / options.recordRate)));
    connect(&m_recordTimer, &QTimer::timeout, this, &StudioInstance::sendRecord);
    m_announceTimer.setInterval(AnnounceIntervalMs);
    connect(&m_announceTimer, &QTimer::timeout, this, &StudioInstance::announce);
    m_announceTimer.start();
}

StudioInstance::~StudioInstance() = default;

void StudioInstance::goSilent()
{
    m_silent = true;
    m_recordTimer.stop();
    m_announceTimer.stop();
    qInfo().noquote() << "silent: no more records, staying connected";
}

void StudioInstance::onIdAssigned(quint16 id)
{
    qInfo().noquote() << "hub id" << id;
    m_haveId = true;
    if (!m_managerId)
        announce();
}

void StudioInstance::announce()
{
    if (m_silent || m_managerId || !m_haveId)
        return;
    m_hub->broadcastData(SYNCSET + m_setupPath);
}

void StudioInstance::lostManager()
{
    qInfo().noquote() << "manager lost";
    m_managerId = 0;
    m_haveId = false;
    m_recordTimer.stop();
}

void StudioInstance::sendRecord()
{
    if (m_silent || !m_managerId)
        return;
    m_simulation.advance(m_clock.elapsed());
    m_hub->sendDataTo(m_managerId, m_simulation.record());
}

void StudioInstance::onData(const QByteArray &data, quint16 source)
{
    const int nul = data.indexOf('\0');
    const QByteArray text = nul < 0 ? data : data.left(nul);

    if (!text.isEmpty()) {
        if (text == SERVERLOST.toLatin1()) {
            lostManager();
        } else if (text == VXMANAGER.toLatin1()) {
            if (m_managerId != source)
                qInfo().noquote() << "greeted by the manager, hub id" << source;
            m_managerId = source;
            if (!m_silent) {
                m_hub->sendDataTo(m_managerId, VXPATH + QCoreApplication::applicationFilePath());
                sendRecord();
                m_recordTimer.start();
            }
        } else if (text == VXTERMINATE.toLatin1()) {
            qInfo().noquote() << "terminate requested by hub id" << source;
            emit terminateRequested();
        } else if (!text.startsWith(SYNCSET.toLatin1()) && !text.startsWith(VXPATH.toLatin1()) &&
                   text != NEWCLIENT.toLatin1()) {
            qWarning().noquote() << "dropped unknown text from hub id" << source << ":" << text.left(80);
        }
        return;
    }

    StudioCommand command;
    if (!studioCommand_decode(data, &command)) {
        qWarning().noquote() << "dropped unknown message of" << data.size() << "bytes from hub id" << source;
        return;
    }
    const bool known = m_simulation.apply(command, m_clock.elapsed());
    qInfo().noquote() << QStringLiteral("command 0x%1 value %2 text \"%3\"%4")
                             .arg(uint(command.id), 6, 16, QLatin1Char('0'))
                             .arg(command.value)
                             .arg(QString::fromUtf8(command.text))
                             .arg(known ? QString() : QStringLiteral(" ignored"));
}
