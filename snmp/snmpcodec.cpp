#include "snmp/snmpcodec.h"

#include <QDataStream>
#include <QDebug>
#include <cstring>

void pduValueFree(__VALUE &value)
{
    if ((value.type & 0xFF) == SNMP_OCTETSTRING)
        delete[] value.v.text;
    std::memset(&value, 0, sizeof(value));
    value.type = SNMP_NULL;
}

void pduValueSetText(__VALUE &value, const char *text)
{
    pduValueFree(value);
    const size_t length = text ? std::strlen(text) : 0;
    if (length == 0)
        return;
    value.type = SNMP_OCTETSTRING;
    value.length = quint32(length);
    value.v.text = qstrdup(text);
}

int pduSizeBERencoded(QByteArray &out, quint32 n)
{
    if (n < 0x80) {
        out.append(char(n));
        return 1;
    }
    int count = 4;
    if (n <= 0xFF)
        count = 1;
    else if (n <= 0xFFFF)
        count = 2;
    else if (n <= 0xFFFFFF)
        count = 3;
    out.append(char(0x80 | count));
    for (int i = count - 1; i >= 0; --i)
        out.append(char((n >> (8 * i)) & 0xFF));
    return count + 1;
}

int pduSetBlockSize(QByteArray &out, int start)
{
    QByteArray size;
    pduSizeBERencoded(size, quint32(out.size() - start));
    out.insert(start, size);
    return size.size();
}

int pduValueBERencoded(QByteArray &out, int value)
{
    // Minimal two's complement: a leading byte may go while it and the next byte's top bit are
    // all zeros or all ones, i.e. the top nine bits agree.
    const qint64 wide = value;
    int count = 8;
    while (count > 1) {
        const quint64 top9 = (quint64(wide) >> (8 * count - 9)) & 0x1FF;
        if (top9 != 0 && top9 != 0x1FF)
            break;
        --count;
    }
    out.append(char(count));
    for (int i = count - 1; i >= 0; --i)
        out.append(char((quint64(wide) >> (8 * i)) & 0xFF));
    return count + 1;
}

int pduValueBERencoded(QByteArray &out, unsigned value)
{
    // The length follows the magnitude only, so 200 is 01 C8 with no leading zero; only values
    // with bit 31 set get one. Peers read these as the unsigned types they are tagged with.
    int count;
    if (value <= 0xFF)
        count = 1;
    else if (value <= 0xFFFF)
        count = 2;
    else if (value <= 0xFFFFFF)
        count = 3;
    else if (value <= 0x7FFFFFFF)
        count = 4;
    else
        count = 5;
    out.append(char(count));
    int bytes = count;
    if (bytes == 5) {
        out.append(char(0));
        --bytes;
    }
    for (int i = bytes - 1; i >= 0; --i)
        out.append(char((value >> (8 * i)) & 0xFF));
    return count + 1;
}

int pduAddOID(QByteArray &out, const __OID &oid)
{
    // The length is always a single byte: the table's names are all short.
    const int length = int(qMin<quint32>(oid.length, SNMP_OID_MAX));
    out.append(char(SNMP_OID));
    out.append(char(length));
    out.append(reinterpret_cast<const char *>(oid.bytes), length);
    return length + 2;
}

bool pduAddValue(QByteArray &out, const __VALUE &value)
{
    const quint32 tag = value.type & 0xFF;
    out.append(char(tag));
    switch (tag) {
    case SNMP_INTEGER:
        pduValueBERencoded(out, int(value.v.number));
        return true;
    case SNMP_OCTETSTRING: {
        const quint32 length = value.v.text ? quint32(std::strlen(value.v.text)) : 0;
        pduSizeBERencoded(out, length);
        out.append(value.v.text, int(length));
        return true;
    }
    case SNMP_NULL:
        out.append(char(0));
        return true;
    case SNMP_OID: {
        const int length = int(qMin<quint32>(value.v.oid.length, SNMP_OID_MAX));
        pduSizeBERencoded(out, quint32(length));
        out.append(reinterpret_cast<const char *>(value.v.oid.bytes), length);
        return true;
    }
    case SNMP_IPADDRESS:
        out.append(char(value.length));
        for (int i = 3; i >= 0; --i)
            out.append(char((value.v.number >> (8 * i)) & 0xFF));
        return true;
    case SNMP_COUNTER:
    case SNMP_TIMETICKS:
    case SNMP_UNSIGNED:
        pduValueBERencoded(out, unsigned(value.v.number));
        return true;
    default:
        // The tag stays in the message on its own: the binding is broken, the rest still goes.
        qWarning().noquote() << "SNMP setVB"
                             << "incorrect syntax" << value.type;
        return false;
    }
}

bool pduAddVB(QByteArray &out, const __VB &vb)
{
    out.append(char(SNMP_SEQUENCE));
    const int start = out.size();
    pduAddOID(out, vb.oid);
    const bool ok = pduAddValue(out, vb.value);
    pduSetBlockSize(out, start);
    return ok;
}

static quint8 readByte(QDataStream &stream)
{
    quint8 byte = 0;
    stream >> byte;
    return stream.status() == QDataStream::Ok ? byte : 0;
}

quint32 pduSizeBERdecode(QDataStream &stream)
{
    const quint8 first = readByte(stream);
    if (first < 0x80)
        return first;
    quint32 n = 0;
    // 0x80 (indefinite form) has no further bytes and gives 0.
    for (int i = 0; i < (first & 0x7F) && stream.status() == QDataStream::Ok; ++i)
        n = (n << 8) | readByte(stream);
    return n;
}

quint32 pduValueBERdecode(QDataStream &stream, quint32 n)
{
    if (n == 5) {
        readByte(stream);
        n = 4;
    }
    quint32 value = 0;
    for (quint32 i = 0; i < n && stream.status() == QDataStream::Ok; ++i)
        value = (value << 8) | readByte(stream);
    return value;
}
