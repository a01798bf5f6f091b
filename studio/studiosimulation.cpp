#include "studio/studiosimulation.h"

#include "app/statusrecord.h"

#include <QDataStream>
#include <QDateTime>
#include <QIODevice>

using namespace StatusRecord;

namespace {

constexpr qint64 StartPhaseMs = 1000; // run state -100 with the Ember+ port, then ready
constexpr qint64 CallSetupMs = 1000;  // run state 3 before the call is up
constexpr qint64 RegisterMs = 1000;

QByteArray clock(qint64 ms, bool hours)
{
    const qint64 s = qMax<qint64>(0, ms / 1000);
    if (hours)
        return QString::asprintf("%02lld:%02lld:%02lld", s / 3600, (s / 60) % 60, s % 60).toLatin1();
    return QString::asprintf("%02lld:%02lld", s / 60, s % 60).toLatin1();
}

// The four raw bytes of "selected station id": printable, derived from the station's name.
QByteArray stationId(const QByteArray &station)
{
    return QByteArray::number(qChecksum(station.constData(), uint(station.size())), 16)
        .rightJustified(4, '0');
}

void setBytes(QByteArray &record, int offset, const void *bytes, int width)
{
    record.replace(offset, width, static_cast<const char *>(bytes), width);
}

} // namespace

bool studioCommand_decode(const QByteArray &bytes, StudioCommand *command)
{
    if (bytes.size() < 16)
        return false;
    QDataStream in(bytes);
    in.setVersion(QDataStream::Qt_5_6);
    in.setByteOrder(QDataStream::BigEndian);
    qint32 id = 0, value = 0, length = 0;
    QByteArray text;
    in >> id >> value >> length >> text;
    if (in.status() != QDataStream::Ok || !in.atEnd() || length != text.size())
        return false;
    command->id = id;
    command->value = value;
    command->text = text;
    return true;
}

QByteArray studioCommand_encode(const StudioCommand &command)
{
    QByteArray bytes;
    QDataStream out(&bytes, QIODevice::WriteOnly);
    out.setVersion(QDataStream::Qt_5_6);
    out.setByteOrder(QDataStream::BigEndian);
    out << command.id << command.value << qint32(command.text.size()) << command.text;
    return bytes;
}

StudioSimulation::StudioSimulation(const StudioSetup &setup, int emberPort)
    : m_name(setup.name.toUtf8()), m_group(setup.group), m_emberPort(emberPort),
      m_destination(setup.destination.toUtf8()), m_sipUri(setup.sipUri.toUtf8()),
      m_station(setup.station.toUtf8()), m_inCodec(setup.inCodec), m_outCodec(setup.outCodec),
      m_bitRate(setup.bitRate), m_sampleRate(setup.sampleRate), m_channelMode(setup.stereo ? 2 : 1),
      m_staticJitter(quint16(setup.staticJitter)), m_dynamicJitter(qint16(setup.dynamicJitter)),
      m_audioInput(setup.audioInput.toUtf8()), m_audioOutput(setup.audioOutput.toUtf8()),
      m_audioDriver(setup.audioDriver.toUtf8()), m_warning(setup.warning.toUtf8()),
      m_playFileName(setup.playFile.toUtf8()), m_autoConnect(setup.autoConnect)
{
    m_liveJitter = m_staticJitter;
}

quint32 StudioSimulation::nextRandom()
{
    // xorshift32: cheap, and the same sequence for every run of an instance.
    m_random ^= m_random << 13;
    m_random ^= m_random >> 17;
    m_random ^= m_random << 5;
    return m_random;
}

void StudioSimulation::connectCall(qint64 nowMs, const QByteArray &destination)
{
    if (!destination.isEmpty())
        m_destination = destination;
    m_runState = 3;
    m_callStartedAt = nowMs;
    m_connectedAt = -1;
    m_sipStatus = 2; // calling
    m_sipResponse = "100 Trying";
}

void StudioSimulation::hangUp()
{
    m_runState = 0;
    m_callStartedAt = -1;
    m_connectedAt = -1;
    m_sipStatus = 5; // registered
    m_sipResponse = "200 OK";
}

void StudioSimulation::advance(qint64 nowMs)
{
    m_now = nowMs;
    ++m_counter;
    if (!m_started && nowMs >= StartPhaseMs) {
        m_started = true;
        m_runState = 0;
        if (m_autoConnect)
            connectCall(nowMs, QByteArray());
    }
    if (m_runState == 3 && m_callStartedAt >= 0 && nowMs - m_callStartedAt >= CallSetupMs) {
        m_runState = 1;
        m_connectedAt = nowMs;
        m_sipStatus = 4; // call in progress
        m_sipResponse = "200 OK";
    }
    if (m_registerStartedAt >= 0 && nowMs - m_registerStartedAt >= RegisterMs) {
        m_registerStartedAt = -1;
        if (m_runState != 1 && m_runState != 3)
            m_sipStatus = 5;
        m_sipResponse = "200 OK";
    }

    // Meters: the microphone moves always, the network side only during a call.
    const bool inCall = m_runState == 1;
    auto level = [this](int low, int high) {
        return quint8(low + int(nextRandom() % quint32(high - low + 1)));
    };
    m_micVu[0] = 2;
    m_micVu[1] = level(25, 55);
    m_micVu[2] = level(25, 55);
    m_netVu[0] = inCall ? 2 : 0;
    m_netVu[1] = inCall ? level(20, 50) : 0;
    m_netVu[2] = inCall ? level(20, 50) : 0;
    m_liveVu[0] = m_micVu[1];
    m_liveVu[1] = qMax(m_micVu[1], m_micVu[2]);
    m_liveVu[2] = m_netVu[1];
    m_liveVu[3] = qMax(m_netVu[1], m_netVu[2]);
    const int dynamicPart =
        (inCall && m_dynamicJitter > 0) ? int(nextRandom() % quint32(m_dynamicJitter + 1)) : 0;
    m_liveJitter = m_staticJitter + dynamicPart;
    m_liveVu[4] = quint8(qMin(60, m_liveJitter / 4));
    m_liveVu[5] = quint8(qMin(60, dynamicPart / 2));
    if (inCall) {
        if (nextRandom() % 20 == 0)
            ++m_droppedPackets;
        if (nextRandom() % 50 == 0)
            ++m_sequenceErrors;
        m_bufferStatus = 40 + int(nextRandom() % 20);
        m_peakJitterIn = qMax(m_peakJitterIn, dynamicPart);
        m_peakJitterOut = qMax(m_peakJitterOut, int(nextRandom() % 10));
    } else {
        m_bufferStatus = 0;
    }
}

bool StudioSimulation::apply(const StudioCommand &command, qint64 nowMs)
{
    switch (command.id) {
    case 0x000500: // name
        m_name = command.text;
        return true;
    case 0x000600: // group tag
        m_group = command.value;
        return true;
    case 0x020400: // station chosen
        m_station = command.text;
        return true;
    case 0x020500: // static jitter buffer
        m_staticJitter = quint16(command.value & 0xFFFF);
        return true;
    case 0x020600: // dynamic jitter buffer
        m_dynamicJitter = qint16(command.value & 0xFFFF);
        return true;
    case 0x070000: // routing
        m_routing = command.value;
        return true;
    case Disconnect:
        hangUp();
        return true;
    case Accept:
        if (m_runState == 0)
            connectCall(nowMs, QByteArray());
        return true;
    case Connect:
        connectCall(nowMs, command.text);
        return true;
    case Register:
        m_registerStartedAt = nowMs;
        if (m_runState != 1 && m_runState != 3)
            m_sipStatus = 1; // registering
        m_sipResponse = "100 Trying";
        return true;
    case WarningAcknowledge:
        m_warning.clear();
        return true;
    case Record:
        if (command.value) {
            m_recordState = 2;
            m_recordStartedAt = nowMs;
            m_recordFile = m_name + '-' +
                           QDateTime::currentDateTime().toString(QStringLiteral("yyyyMMdd-hhmmss")).toUtf8() +
                           ".wav";
        } else {
            m_recordState = 0;
            m_recordStartedAt = -1;
        }
        return true;
    case Play:
        if (command.value) {
            m_playState = 1;
            m_playStartedAt = nowMs;
            m_playFile = m_playFileName;
        } else {
            m_playState = 0;
            m_playStartedAt = -1;
        }
        return true;
    default:
        return false;
    }
}

QByteArray StudioSimulation::record() const
{
    QByteArray r(FullBytes, '\0');
    r[Version] = char(CurrentVersion);
    setWord(r, InCodec, m_inCodec);
    setWord(r, InBitRate, m_bitRate);
    setWord(r, InChannelMode, m_channelMode);
    setWord(r, RunState, m_runState);
    setText(r, Name, NameWidth, m_name);
    setText(r, RunStateText, RunStateTextWidth,
            m_runState == 1 ? "Connected to " + m_destination : QByteArray());
    setWord(r, OutCodec, m_outCodec);
    setWord(r, OutSampleRate, m_sampleRate);
    setWord(r, OutBitRate, m_bitRate);
    setWord(r, OutChannelMode, m_channelMode);
    setWord(r, InSampleRate, m_sampleRate);
    setText(r, AudioInput, AudioNameWidth, m_audioInput);
    setText(r, AudioOutput, AudioNameWidth, m_audioOutput);
    setText(r, Station, StationWidth, m_station);
    setText(r, SipUri, SipUriWidth, m_sipUri);
    setText(r, Destination, DestinationWidth, m_destination);
    setWord(r, SipStatus, m_sipStatus);
    setWord(r, VersionMajor, 5);
    setWord(r, VersionMinor, 14);
    setWord(r, VersionPatch, 0);
    setWord(r, JitterBuffers, qint32(quint32(m_staticJitter) | (quint32(quint16(m_dynamicJitter)) << 16)));
    setWord(r, SnmpWord, 0);
    setText(r, AudioDriver, AudioDriverWidth, m_audioDriver);
    setWord(r, EmberPort, m_emberPort);
    setWord(r, LiveJitter, m_liveJitter);
    setBytes(r, LiveVu, m_liveVu, LiveVuWidth);
    setText(r, WarningMessage, WarningWidth, m_warning);
    setWord(r, GroupTag, m_group);
    setWord(r, RecordState, m_recordState);
    setText(r, RecordFile, RecordFileWidth, m_recordFile);
    setText(r, RecordTime, RecordTimeWidth,
            m_recordStartedAt >= 0 ? clock(m_now - m_recordStartedAt, false) : "00:00");
    setText(r, ConnectionTime, ConnectionTimeWidth,
            m_connectedAt >= 0 ? clock(m_now - m_connectedAt, true) : "00:00:00");
    setWord(r, DroppedPackets, m_droppedPackets);
    setWord(r, SequenceErrors, m_sequenceErrors);
    setWord(r, BufferUnderrun, m_bufferUnderrun);
    setWord(r, BufferStatus, m_bufferStatus);
    setWord(r, PeakJitterIn, m_peakJitterIn);
    setWord(r, PeakJitterOut, m_peakJitterOut);
    setBytes(r, MicVu, m_micVu, VuWidth);
    setBytes(r, NetVu, m_netVu, VuWidth);
    setWord(r, RoutingState, m_routing);
    setWord(r, PlayState, m_playState);
    setText(r, PlayFile, PlayFileWidth, m_playFile);
    setText(r, PlayTime, PlayTimeWidth,
            m_playStartedAt >= 0 ? clock(m_now - m_playStartedAt, false) : "00:00");
    setBytes(r, StationId, stationId(m_station).constData(), 4);
    setText(r, SipResponse, SipResponseWidth, m_sipResponse);
    setWord(r, InCounter, m_counter);
    return r;
}
