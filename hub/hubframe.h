#pragma once

#include <QByteArray>
#include <QtGlobal>

// One frame on a hub connection, as QDataStream (version 17, big-endian) writes it:
//   qint32 size | qint16 target | qint16 source | quint32 count | count payload bytes
// `size` is the payload size as the sender declared it; `count` is the length of the serialised
// byte array that follows (0xFFFFFFFF, a null array, counts as 0).
struct HubFrame
{
    qint32 size = 0;
    quint16 target = 0;
    quint16 source = 0;
    quint32 count = 0;
    QByteArray payload; // empty for a skipped frame
    QByteArray raw;     // the whole frame as it arrived, header included
};

constexpr int HubFrameHeaderSize = 12;
constexpr int HubMaxPayload = 16383;

QByteArray hubFrame_encode(const QByteArray &payload, quint16 target, quint16 source);

// Cuts a byte stream into frames without trusting it: a frame whose count is above `maxPayload` is
// skipped as its bytes arrive (never buffered), so a bad or hostile length costs no memory.
class HubFrameReader
{
public:
    enum Result
    {
        NeedMore,
        Frame,
        Skipped
    };

    explicit HubFrameReader(int maxPayload) : m_maxPayload(maxPayload) {}

    void feed(const QByteArray &bytes);
    // Frame: `frame` holds a whole frame. Skipped: `frame` holds the header of an oversized frame
    // whose payload is being discarded. NeedMore: call again after the next feed.
    Result next(HubFrame *frame);
    qint64 buffered() const { return m_buffer.size() - m_pos; }
    void clear();

private:
    void compact();

    int m_maxPayload;
    QByteArray m_buffer;
    int m_pos = 0;
    qint64 m_skip = 0;
};
