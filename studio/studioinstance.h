#pragma once

#include "studio/studiooptions.h"
#include "studio/studiosimulation.h"

#include <QElapsedTimer>
#include <QObject>
#include <QTimer>

class MultiCastSocketServer;

// One stand-in studio instance on the manager's hub: it announces itself until the manager
// greets it, then reports its status record to the manager at a steady rate and applies the
// commands it receives. It joins only as a client with the cipher off, so it never takes the
// relay from a manager; while no manager relays it keeps trying, and after "serverlost" it
// announces itself again once the new relay has given it an id.
class StudioInstance : public QObject
{
    Q_OBJECT
public:
    StudioInstance(const StudioOptions &options, const StudioSetup &setup, QObject *parent = nullptr);
    ~StudioInstance() override;

    // Stops the records and announcements, but stays connected.
    void goSilent();

signals:
    // "VXTERMINATE" arrived.
    void terminateRequested();

private:
    void onData(const QByteArray &data, quint16 source);
    void onIdAssigned(quint16 id);
    void announce();
    void sendRecord();
    void lostManager();

    QString m_setupPath;
    StudioSimulation m_simulation;
    MultiCastSocketServer *m_hub = nullptr;
    QElapsedTimer m_clock;
    QTimer m_recordTimer;
    QTimer m_announceTimer;
    quint16 m_managerId = 0; // 0 = not greeted
    bool m_haveId = false;
    bool m_silent = false;
};
