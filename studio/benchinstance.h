#pragma once

#include "studio/studiosetup.h"
#include "studio/studiosimulation.h"

#include <QElapsedTimer>
#include <QObject>
#include <QTimer>

class MultiCastSocketServer;

// One simulated instance of the benchmark mode: like StudioInstance, it announces itself, waits
// for the manager's greeting and then sends its status record at a steady rate, but many of them
// share one process, each with its own hub connection. Every record carries its send time in the
// warning message text, "#@<CLOCK_MONOTONIC ns>.<record number>", so that a consumer of the
// manager's outputs can measure the delay and count records that went missing.
//
// Without a manager (`toRelay`), the records go straight to hub id 1, the relay's own client,
// as soon as the relay has given this instance an id: the traffic of a site with nothing behind
// the hub.
class BenchInstance : public QObject
{
    Q_OBJECT
public:
    BenchInstance(const QString &setupPath, const StudioSetup &setup, int periodMs, bool toRelay,
                  QObject *parent = nullptr);
    ~BenchInstance() override;

    qint64 recordsSent() const { return m_sent; }

private:
    void onData(const QByteArray &data, quint16 source);
    void onIdAssigned(quint16 id);
    void announce();
    void sendRecord();
    void startRecords();

    QString m_setupPath;
    StudioSimulation m_simulation;
    MultiCastSocketServer *m_hub = nullptr;
    QElapsedTimer m_clock;
    QTimer m_recordTimer;
    QTimer m_announceTimer;
    bool m_toRelay;
    quint16 m_targetId = 0; // 0 = nobody to send to yet
    bool m_haveId = false;
    quint32 m_sequence = 0;
    qint64 m_sent = 0;
};
