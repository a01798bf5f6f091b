#pragma once

#include "app/statusrecord.h"

#include <QByteArray>
#include <QString>

class EmberServer;
class QProcess;

// The manager's mirror of what an instance last reported: the raw status record as it came, plus
// the values derived from it (the two format texts, the published status code). Comparing a new
// record with this copy tells which values changed and must be passed on.
struct InstanceState
{
    InstanceState() : record(StatusRecord::FullBytes, '\0') {}

    QByteArray record;   // the last record, zero-filled to the full length
    QByteArray inFormat; // the last incoming format text passed on
    QByteArray outFormat;
    qint32 runState = 0;
    qint32 statusCode = 0;
};

// Flags of a supervised instance.
enum InstanceFlag : int
{
    InstanceAutoRun = 0x01,      // the manager starts and guards it
    InstanceFromSettings = 0x04, // read from the settings file
    InstanceFilesMissing = 0x10, // setup file or executable not found
    InstanceStartedOutside = 0x20,
    InstanceAdopted = 0x40, // auto-run, found running at start-up: no process handle of ours
};

// One supervised instance: a plain value record held in the manager's registry.
struct VX_Instance
{
    QString exePath;
    QString setupPath;
    QProcess *process = nullptr;
    quint16 clientId = 0;
    quint16 index = 0;
    qint32 inactivityTime = 0;
    qint32 flags = 0;
    qint32 aliveCounter = -1;
    InstanceState state;
    qint32 emberPort = 0;
    EmberServer *ember = nullptr;
};
