#pragma once

#include <QByteArray>
#include <QList>
#include <QMap>

// Hand-made SNMP messages for the tests, and a small reader of the messages the agent writes.
// Both are written independently of the agent's codec: the builder only knows short lengths.
namespace snmptest {

inline QByteArray hex(const char *text)
{
    return QByteArray::fromHex(QByteArray(text).replace(' ', ""));
}

// The agent's prefix 1.3.6.1.4.1.32473.32 followed by further raw bytes.
inline QByteArray prefix(const char *more = "")
{
    return hex("2B 06 01 04 01 81 FD 59 20") + hex(more);
}

inline QByteArray tlv(quint8 tag, const QByteArray &content)
{
    Q_ASSERT(content.size() < 128);
    return char(tag) + QByteArray(1, char(content.size())) + content;
}

struct Binding
{
    QByteArray oid;
    QByteArray value; // whole TLV
};

inline QByteArray request(quint8 pdu, const QByteArray &requestId, const QList<Binding> &bindings,
                          quint8 version = 0)
{
    QByteArray list;
    for (const Binding &b : bindings)
        list += tlv(0x30, tlv(0x06, b.oid) + b.value);
    const QByteArray body = tlv(0x02, requestId) + hex("02 01 00 02 01 00") + tlv(0x30, list);
    return tlv(0x30, tlv(0x02, QByteArray(1, char(version))) + tlv(0x04, "public") + tlv(pdu, body));
}

struct Tlv
{
    quint8 tag = 0;
    QByteArray content;
    QByteArray whole() const { return char(tag) + lengthBytes + content; }
    QByteArray lengthBytes;
};

// The elements one after the other in bytes; stops at the first one that does not fit.
inline QList<Tlv> children(const QByteArray &bytes)
{
    QList<Tlv> list;
    int pos = 0;
    while (pos + 2 <= bytes.size()) {
        Tlv t;
        t.tag = quint8(bytes[pos]);
        const int first = quint8(bytes[pos + 1]);
        int length = first;
        int header = 2;
        if (first & 0x80) {
            const int count = first & 0x7F;
            if (count > 2 || pos + 2 + count > bytes.size())
                break;
            length = 0;
            for (int i = 0; i < count; ++i)
                length = (length << 8) | quint8(bytes[pos + 2 + i]);
            header += count;
        }
        if (pos + header + length > bytes.size())
            break;
        t.lengthBytes = bytes.mid(pos + 1, header - 1);
        t.content = bytes.mid(pos + header, length);
        list.append(t);
        pos += header + length;
    }
    return list;
}

// The bindings of a GetResponse or Trap message: OID bytes (hex) -> value TLV (hex).
inline QMap<QByteArray, QByteArray> bindings(const QByteArray &message)
{
    QMap<QByteArray, QByteArray> map;
    const QList<Tlv> top = children(message);
    if (top.size() != 1)
        return map;
    const QList<Tlv> parts = children(top[0].content);
    if (parts.size() != 3)
        return map;
    const QList<Tlv> pdu = children(parts[2].content);
    if (pdu.isEmpty() || pdu.last().tag != 0x30)
        return map;
    for (const Tlv &vb : children(pdu.last().content)) {
        const QList<Tlv> pair = children(vb.content);
        if (pair.size() == 2)
            map.insert(pair[0].content.toHex(' ').toUpper(), pair[1].whole().toHex(' ').toUpper());
    }
    return map;
}

} // namespace snmptest
