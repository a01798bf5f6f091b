#pragma once

#include <QByteArray>
#include <QtEndian>
#include <cstring>

// The binary status record that a studio instance sends to the manager over the hub: the
// instance's fixed structure as raw bytes, little-endian 32-bit words, offsets in bytes. Texts
// are NUL-terminated within their width. Records of fewer than 316 words or with a format
// version of 6 or less are refused; the trailing fields exist only in longer records.
namespace StatusRecord {

constexpr int MinimumWords = 316;
constexpr int FullWords = 356;
constexpr int FullBytes = FullWords * 4;
constexpr int CurrentVersion = 7;

enum Offset : int
{
    Version = 0,        // 1 byte, signed
    InCodec = 4,        // index into the codec table
    InBitRate = 8,      // kbit/s
    InChannelMode = 12, // 2 = stereo
    RunState = 20,      // signed
    Name = 28,          // 64
    RunStateText = 96,  // 64, shown for run state 1
    OutCodec = 160,
    OutSampleRate = 164,
    OutBitRate = 168,
    OutChannelMode = 172,
    InSampleRate = 176,
    AudioInput = 180,  // 128
    AudioOutput = 308, // 128
    Station = 436,     // 68, the call-state text
    SipUri = 504,      // 68
    Destination = 572, // 260
    SipStatus = 832,
    VersionMajor = 836,
    VersionMinor = 840,
    VersionPatch = 844,
    JitterBuffers = 848, // low 16 bits static (unsigned), high 16 bits dynamic (signed)
    SnmpWord = 852,      // cached only; reported by the SNMP agent as variable 7
    AudioDriver = 856,   // 64
    EmberPort = 920,
    LiveJitter = 924,
    LiveVu = 928,         // 8 bytes
    WarningMessage = 936, // 128
    GroupTag = 1064,
    RecordState = 1068,
    RecordFile = 1072,     // 64
    RecordTime = 1136,     // 16
    ConnectionTime = 1152, // 64
    DroppedPackets = 1216,
    SequenceErrors = 1220,
    BufferUnderrun = 1224,
    BufferStatus = 1228,
    PeakJitterIn = 1232,
    PeakJitterOut = 1236,
    MicVu = 1240,        // 9 bytes
    NetVu = 1252,        // 9 bytes
    RoutingState = 1264, // records of more than 316 words
    PlayState = 1268,    // more than 317 words
    PlayFile = 1272,     // 64
    PlayTime = 1336,     // 16
    StationId = 1352,    // more than 338 words; four raw bytes
    SipResponse = 1356,  // 64, more than 339 words
    InCounter = 1420,    // 356 words or more
};

enum Width : int
{
    NameWidth = 64,
    RunStateTextWidth = 64,
    AudioNameWidth = 128,
    StationWidth = 68,
    SipUriWidth = 68,
    DestinationWidth = 260,
    AudioDriverWidth = 64,
    LiveVuWidth = 8,
    WarningWidth = 128,
    RecordFileWidth = 64,
    RecordTimeWidth = 16,
    ConnectionTimeWidth = 64,
    VuWidth = 9,
    PlayFileWidth = 64,
    PlayTimeWidth = 16,
    SipResponseWidth = 64,
};

// Value ids of the instance commands that have no tree parameter of their own.
enum Command : int
{
    Disconnect = 0x010000,
    Accept = 0x010100,
    Connect = 0x010200,
    Register = 0x010300,
    WarningAcknowledge = 0x010400,
    Record = 0x010500,
    Play = 0x010600,
    Restart = 0x010700,
};

inline qint32 word(const QByteArray &record, int offset)
{
    if (offset < 0 || offset + 4 > record.size())
        return 0;
    return qFromLittleEndian<qint32>(record.constData() + offset);
}

inline void setWord(QByteArray &record, int offset, qint32 value)
{
    if (offset >= 0 && offset + 4 <= record.size())
        qToLittleEndian<qint32>(value, record.data() + offset);
}

// The text at `offset`, up to its NUL or the end of its width.
inline QByteArray text(const QByteArray &record, int offset, int width)
{
    if (offset < 0 || offset >= record.size())
        return QByteArray();
    const int available = qMin(width, record.size() - offset);
    const char *start = record.constData() + offset;
    const void *nul = std::memchr(start, 0, size_t(available));
    return QByteArray(start, nul ? int(static_cast<const char *>(nul) - start) : available);
}

// Writes `value` NUL-terminated into its width (cut to width - 1 bytes).
inline void setText(QByteArray &record, int offset, int width, const QByteArray &value)
{
    if (offset < 0 || offset + width > record.size() || width <= 0)
        return;
    char *start = record.data() + offset;
    std::memset(start, 0, size_t(width));
    std::memcpy(start, value.constData(), size_t(qMin(value.size(), width - 1)));
}

} // namespace StatusRecord
