#include "hub/hubframe.h"

#include <QDataStream>
#include <QtEndian>

static_assert(QDataStream::Qt_5_6 == 17, "the hub's frames are written with stream version 17");

QByteArray hubFrame_encode(const QByteArray &payload, quint16 target, quint16 source)
{
    QByteArray frame;
    frame.reserve(HubFrameHeaderSize + payload.size());
    QDataStream out(&frame, QIODevice::WriteOnly);
    out.setVersion(QDataStream::Qt_5_6);
    out.setByteOrder(QDataStream::BigEndian);
    out << qint32(payload.size()) << qint16(target) << qint16(source) << payload;
    return frame;
}

void HubFrameReader::feed(const QByteArray &bytes)
{
    int from = 0;
    if (m_skip > 0) {
        const qint64 dropped = qMin<qint64>(m_skip, bytes.size());
        m_skip -= dropped;
        from = int(dropped);
    }
    if (from < bytes.size())
        m_buffer.append(bytes.constData() + from, bytes.size() - from);
}

void HubFrameReader::clear()
{
    m_buffer.clear();
    m_pos = 0;
    m_skip = 0;
}

void HubFrameReader::compact()
{
    if (m_pos == m_buffer.size()) {
        m_buffer.clear();
        m_pos = 0;
    } else if (m_pos > 4096 && m_pos > m_buffer.size() / 2) {
        m_buffer.remove(0, m_pos);
        m_pos = 0;
    }
}

HubFrameReader::Result HubFrameReader::next(HubFrame *frame)
{
    if (m_skip > 0)
        return NeedMore;
    const int available = m_buffer.size() - m_pos;
    if (available < HubFrameHeaderSize)
        return NeedMore;
    const uchar *head = reinterpret_cast<const uchar *>(m_buffer.constData() + m_pos);
    const qint32 size = qFromBigEndian<qint32>(head);
    const quint16 target = qFromBigEndian<quint16>(head + 4);
    const quint16 source = qFromBigEndian<quint16>(head + 6);
    quint32 count = qFromBigEndian<quint32>(head + 8);
    if (count == 0xFFFFFFFFu)
        count = 0;

    frame->size = size;
    frame->target = target;
    frame->source = source;
    frame->count = count;
    frame->payload.clear();
    frame->raw.clear();

    if (count > quint32(m_maxPayload)) {
        const qint64 inBuffer = qMin<qint64>(count, available - HubFrameHeaderSize);
        m_skip = qint64(count) - inBuffer;
        m_pos += HubFrameHeaderSize + int(inBuffer);
        compact();
        return Skipped;
    }
    if (available - HubFrameHeaderSize < int(count))
        return NeedMore;
    frame->raw = m_buffer.mid(m_pos, HubFrameHeaderSize + int(count));
    frame->payload = frame->raw.mid(HubFrameHeaderSize);
    m_pos += HubFrameHeaderSize + int(count);
    compact();
    return Frame;
}
