#pragma once

#include <QByteArray>
#include <QtGlobal>

class QDataStream;

// The narrow BER subset of SNMPv1 that the agent needs: the records of its variable table and the
// encoders and decoders that write and read them. Builders append to a QByteArray; decoders read a
// QDataStream one byte at a time, and a stream that runs dry yields zero bytes, never more.

// Tags of the value types the agent writes.
enum : quint32
{
    SNMP_INTEGER = 0x02,
    SNMP_OCTETSTRING = 0x04,
    SNMP_NULL = 0x05,
    SNMP_OID = 0x06,
    SNMP_SEQUENCE = 0x30,
    SNMP_IPADDRESS = 0x40,
    SNMP_COUNTER = 0x41,
    SNMP_TIMETICKS = 0x43,
    SNMP_UNSIGNED = 0x47, // application 7: an unsigned 32-bit number
};

// Size of the store of one object identifier, in encoded content bytes.
constexpr int SNMP_OID_MAX = 12;

// An object identifier kept as its BER content octets (0x2B first for "1.3"), not as numbers.
struct __OID
{
    quint8 bytes[SNMP_OID_MAX];
    quint32 length;
};

// A typed value. The low byte of type is the tag on the wire. For an OCTET STRING, text is a
// NUL-terminated heap copy owned by the record (see pduValueSetText / pduValueFree).
struct __VALUE
{
    quint32 type;
    quint32 length;
    union {
        quint32 number;
        char *text;
        __OID oid;
    } v;
};

// One variable binding of the agent's table.
struct __VB
{
    quint32 id;
    bool inTrap;
    __OID oid;
    __VALUE value;
};

// Values: ownership of the string copy.
void pduValueFree(__VALUE &value);                      // frees a string copy; leaves a zeroed NULL value
void pduValueSetText(__VALUE &value, const char *text); // OCTET STRING copy, or NULL for an empty text

// Encoders. Each returns the number of bytes it appended (or inserted).
int pduSizeBERencoded(QByteArray &out, quint32 n);
int pduSetBlockSize(QByteArray &out, int start);
int pduValueBERencoded(QByteArray &out, int value);
int pduValueBERencoded(QByteArray &out, unsigned value);
int pduAddOID(QByteArray &out, const __OID &oid);
bool pduAddValue(QByteArray &out, const __VALUE &value); // false for an unsupported type
bool pduAddVB(QByteArray &out, const __VB &vb);

// Decoders.
quint32 pduSizeBERdecode(QDataStream &stream);
quint32 pduValueBERdecode(QDataStream &stream, quint32 n);
