#pragma once

#include "studio/studiosetup.h"

#include <QByteArray>
#include <QString>
#include <QtGlobal>

// A value command from the manager: the id of a parameter or function, its integer argument and
// its text argument. On the wire (QDataStream version 17, big-endian): qint32 id, qint32 value,
// qint32 text length, then the text as a serialised byte array.
struct StudioCommand
{
    qint32 id = 0;
    qint32 value = 0;
    QByteArray text;
};

// False (and `command` untouched) unless `bytes` is exactly one well-formed command.
bool studioCommand_decode(const QByteArray &bytes, StudioCommand *command);
QByteArray studioCommand_encode(const StudioCommand &command);

// A plausible studio instance without audio: the state that its status record reports, moved on
// by time and by commands. No I/O and no clock of its own: the caller passes the time in ms since
// the instance started, so that many instances can run side by side and tests can step it.
class StudioSimulation
{
public:
    StudioSimulation(const StudioSetup &setup, int emberPort);

    // Advances the time-driven state (start phase, call set-up, counters, meters) to `nowMs`.
    void advance(qint64 nowMs);
    // Applies a command; returns false for an id that this instance does not know.
    bool apply(const StudioCommand &command, qint64 nowMs);
    // The status record: 356 little-endian words, format version 7.
    QByteArray record() const;

    int runState() const { return m_runState; }
    QByteArray name() const { return m_name; }

private:
    void connectCall(qint64 nowMs, const QByteArray &destination);
    void hangUp();
    quint32 nextRandom();

    // Identity and configuration
    QByteArray m_name;
    int m_group;
    int m_emberPort;
    QByteArray m_destination, m_sipUri, m_station;
    int m_inCodec, m_outCodec, m_bitRate, m_sampleRate, m_channelMode;
    quint16 m_staticJitter;
    qint16 m_dynamicJitter;
    QByteArray m_audioInput, m_audioOutput, m_audioDriver;
    QByteArray m_warning;
    QByteArray m_playFileName;
    bool m_autoConnect;

    // Live state
    int m_runState = -100;
    bool m_started = false;
    qint64 m_now = 0;
    qint64 m_callStartedAt = -1;     // call set-up begun (run state 3)
    qint64 m_connectedAt = -1;       // call up (run state 1)
    qint64 m_registerStartedAt = -1; // registration under way
    int m_sipStatus = 5;
    QByteArray m_sipResponse = "200 OK";
    int m_routing = 0;
    int m_recordState = 0;
    qint64 m_recordStartedAt = -1;
    QByteArray m_recordFile;
    int m_playState = 0;
    qint64 m_playStartedAt = -1;
    QByteArray m_playFile;
    int m_liveJitter = 0;
    quint8 m_liveVu[8] = {};
    quint8 m_micVu[9] = {};
    quint8 m_netVu[9] = {};
    int m_droppedPackets = 0, m_sequenceErrors = 0, m_bufferUnderrun = 0, m_bufferStatus = 0;
    int m_peakJitterIn = 0, m_peakJitterOut = 0;
    int m_counter = 0;
    quint32 m_random = 0x2545F491u;
};
