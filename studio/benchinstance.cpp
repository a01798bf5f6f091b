#include "studio/benchinstance.h"

#include "app/statusrecord.h"
#include "hub/multicastsocketserver.h"

#include <QRandomGenerator>
#include <ctime>

namespace {

constexpr int AnnounceIntervalMs = 1500;
constexpr quint16 RelayClientId = 1;

qint64 monotonicNs()
{
    timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return qint64(ts.tv_sec) * 1000000000LL + ts.tv_nsec;
}

} // namespace

BenchInstance::BenchInstance(const QString &setupPath, const StudioSetup &setup, int periodMs, bool toRelay,
                             QObject *parent)
    : QObject(parent), m_setupPath(setupPath), m_simulation(setup, setup.emberPort), m_toRelay(toRelay)
{
    m_clock.start();
    m_hub = new MultiCastSocketServer(this, QStringLiteral("VXMANAGERQT"),
                                      MultiCastSocketServer::ClientOnly | MultiCastSocketServer::CipherOff);
    connect(m_hub, &MultiCastSocketServer::dataFromServer, this, &BenchInstance::onData);
    connect(m_hub, &MultiCastSocketServer::idAssigned, this, &BenchInstance::onIdAssigned);

    m_recordTimer.setTimerType(Qt::PreciseTimer);
    m_recordTimer.setInterval(qMax(1, periodMs));
    connect(&m_recordTimer, &QTimer::timeout, this, &BenchInstance::sendRecord);
    m_announceTimer.setInterval(AnnounceIntervalMs);
    connect(&m_announceTimer, &QTimer::timeout, this, &BenchInstance::announce);
    if (!m_toRelay)
        m_announceTimer.start();
}

BenchInstance::~BenchInstance() = default;

void BenchInstance::onIdAssigned(quint16 id)
{
    m_haveId = true;
    if (m_toRelay && id != RelayClientId) {
        m_targetId = RelayClientId;
        startRecords();
    } else if (!m_targetId) {
        announce();
    }
}

void BenchInstance::announce()
{
    if (m_targetId || !m_haveId)
        return;
    m_hub->broadcastData(SYNCSET + m_setupPath);
}

// The instances of one process start out of step, as separate programs would.
void BenchInstance::startRecords()
{
    if (m_recordTimer.isActive())
        return;
    const int phase = int(QRandomGenerator::global()->bounded(m_recordTimer.interval()));
    QTimer::singleShot(phase, this, [this] {
        sendRecord();
        m_recordTimer.start();
    });
}

void BenchInstance::sendRecord()
{
    if (!m_targetId)
        return;
    m_simulation.advance(m_clock.elapsed());
    QByteArray record = m_simulation.record();
    const QByteArray stamp =
        "#@" + QByteArray::number(monotonicNs()) + '.' + QByteArray::number(++m_sequence);
    record.replace(StatusRecord::WarningMessage, stamp.size(), stamp);
    m_hub->sendDataTo(m_targetId, record);
    ++m_sent;
}

void BenchInstance::onData(const QByteArray &data, quint16 source)
{
    const int nul = data.indexOf('\0');
    const QByteArray text = nul < 0 ? data : data.left(nul);
    if (text == SERVERLOST.toLatin1()) {
        m_targetId = 0;
        m_haveId = false;
        m_recordTimer.stop();
    } else if (text == VXMANAGER.toLatin1() && !m_toRelay) {
        m_targetId = source;
        m_announceTimer.stop();
        startRecords();
    } else if (text.isEmpty()) {
        StudioCommand command;
        if (studioCommand_decode(data, &command))
            m_simulation.apply(command, m_clock.elapsed());
    }
}
