#include "snmp/snmp.h"

#include <QDataStream>
#include <QDateTime>
#include <QDebug>
#include <QUdpSocket>
#include <climits>
#include <cstring>

namespace {

// 1.3.6.1.4.1.32473.32: the agent's enterprise prefix.
const quint8 kPrefix[] = {0x2B, 0x06, 0x01, 0x04, 0x01, 0x81, 0xFD, 0x59, 0x20};
// 1.3.6.1.6.3.1.1.4.1: the trap OID variable, named without its trailing .0.
const quint8 kTrapOid[] = {0x2B, 0x06, 0x01, 0x06, 0x03, 0x01, 0x01, 0x04, 0x01};
// 1.3.6.1.2.1.1.3, .1.1 and .1.5: uptime, description and name of the system group.
const quint8 kSysUpTime[] = {0x2B, 0x06, 0x01, 0x02, 0x01, 0x01, 0x03};
const quint8 kSysDescr[] = {0x2B, 0x06, 0x01, 0x02, 0x01, 0x01, 0x01};
const quint8 kSysName[] = {0x2B, 0x06, 0x01, 0x02, 0x01, 0x01, 0x05};

// Where an instance OID keeps the agent id, and the agent id until a request or trap sets one.
constexpr int kAgentByte = 9;
constexpr quint8 kDefaultAgent = 1;

const char kVersion[] = {0x02, 0x01, 0x00};
const char kCommunity[] = {0x04, 0x06, 'p', 'u', 'b', 'l', 'i', 'c'};
const char kGenericTrap[] = {0x02, 0x01, 0x06}; // enterpriseSpecific
const char kSpecificTrap[] = {0x02, 0x01, 0x01};

template <size_t N>
void oidSet(__OID &oid, const quint8 (&bytes)[N])
{
    static_assert(N <= SNMP_OID_MAX, "OID store too small");
    std::memcpy(oid.bytes, bytes, N);
    oid.length = N;
}

// prefix.A, and with a variable id prefix.A.N; both sub-identifiers are single raw bytes.
void oidSetInstance(__OID &oid, unsigned id, bool withId)
{
    oidSet(oid, kPrefix);
    oid.bytes[oid.length++] = kDefaultAgent;
    if (withId)
        oid.bytes[oid.length++] = quint8(id);
}

bool isNumberType(quint32 type)
{
    switch (type & 0xFF) {
    case SNMP_INTEGER:
    case SNMP_IPADDRESS:
    case SNMP_COUNTER:
    case SNMP_TIMETICKS:
    case SNMP_UNSIGNED:
        return true;
    default:
        return false;
    }
}

enum class ScanMode
{
    None,
    Get,
    Set
};

} // namespace

SNMP::SNMP(QObject *parent) : QObject(parent), m_sendSocket(new QUdpSocket(this))
{
    for (unsigned id : {103u, 104u, 105u, 102u, 101u, 100u})
        vbAdd(id, false);
}

SNMP::~SNMP()
{
    for (__VB &vb : m_table)
        pduValueFree(vb.value);
}

void SNMP::vbAdd(unsigned id, bool inTrap)
{
    if (m_table.contains(id))
        return;
    __VB vb;
    std::memset(&vb, 0, sizeof(vb));
    vb.id = id;
    vb.inTrap = inTrap;
    switch (id) {
    case 100: // takes the OID of whatever request matched nothing
        vb.value.type = SNMP_NULL;
        break;
    case 101:
        oidSet(vb.oid, kTrapOid);
        vb.value.type = SNMP_OID;
        oidSetInstance(vb.value.v.oid, id, false);
        vb.value.length = vb.value.v.oid.length;
        break;
    case 102:
        oidSet(vb.oid, kSysUpTime);
        vb.value.type = SNMP_TIMETICKS;
        break;
    case 103:
        oidSet(vb.oid, kSysDescr);
        vb.value.type = SNMP_OCTETSTRING;
        break;
    case 104:
        oidSet(vb.oid, kSysName);
        vb.value.type = SNMP_OCTETSTRING;
        break;
    case 105: // agent address of the trap only, no name
        vb.value.type = SNMP_IPADDRESS;
        vb.value.length = 4;
        break;
    case 3:
    case 5:
        oidSetInstance(vb.oid, id, true);
        vb.value.type = SNMP_OCTETSTRING;
        break;
    default:
        oidSetInstance(vb.oid, id, true);
        vb.value.type = SNMP_UNSIGNED;
        vb.value.length = 1;
        break;
    }
    m_table.insert(id, vb);
}

void SNMP::vbSet(unsigned id, unsigned value)
{
    auto it = m_table.find(id);
    if (it == m_table.end())
        return;
    if (!isNumberType(it->value.type)) {
        qWarning().noquote() << "SNMP setVB"
                             << "incorrect syntax for" << id;
        return;
    }
    it->value.v.number = value;
}

void SNMP::vbSet(unsigned id, const char *text)
{
    auto it = m_table.find(id);
    if (it == m_table.end() || !text)
        return;
    pduValueSetText(it->value, text);
}

void SNMP::vxiSet(unsigned id, unsigned agentId)
{
    auto it = m_table.find(id);
    if (it == m_table.end())
        return;
    if (id <= 99 && it->oid.length > kAgentByte)
        it->oid.bytes[kAgentByte] = quint8(agentId);
    else if (id == 101 && (it->value.type & 0xFF) == SNMP_OID && it->value.v.oid.length > kAgentByte)
        it->value.v.oid.bytes[kAgentByte] = quint8(agentId);
}

void SNMP::vxiSet(unsigned agentId)
{
    const QList<quint32> ids = m_table.keys();
    for (quint32 id : ids)
        vxiSet(id, agentId);
}

unsigned SNMP::vbFind(const QByteArray &oid) const
{
    for (auto it = m_table.cbegin(); it != m_table.cend(); ++it) {
        const __OID &name = it->oid;
        // Binding 100 only echoes the last unknown OID: it must never capture a later request.
        if (name.length == 0 || it.key() == 100)
            continue;
        bool match = true;
        for (quint32 i = 0; i < name.length && match; ++i) {
            if (i == kAgentByte)
                continue; // any agent id matches
            const quint8 asked = int(i) < oid.size() ? quint8(oid.at(int(i))) : 0;
            match = asked == name.bytes[i];
        }
        if (match)
            return it.key();
    }
    return 100;
}

unsigned SNMP::millisecondsSinceMidnight()
{
    // The local offset from UTC is looked up at most once a second: every local-time conversion
    // makes the C library check the time zone file again, which cost more than the rest of a GET.
    // After a change of the offset (daylight saving) the old one is used for up to one second.
    static qint64 offset = 0;
    static qint64 validUntil = 0;
    const qint64 now = QDateTime::currentMSecsSinceEpoch();
    if (now >= validUntil || now < validUntil - 1000) {
        offset = qint64(QDateTime::fromMSecsSinceEpoch(now, Qt::LocalTime).offsetFromUtc()) * 1000;
        validUntil = now + 1000;
    }
    constexpr qint64 day = 24 * 3600 * 1000;
    return unsigned(((now + offset) % day + day) % day);
}

const __VB *SNMP::vbGet(unsigned id) const
{
    auto it = m_table.constFind(id);
    return it == m_table.cend() ? nullptr : &*it;
}

int SNMP::pduBuildResponce(quint32 requestId, QByteArray &out)
{
    if (m_pending.isEmpty())
        return 0;
    // Taken out first: the getValue handlers run in the middle of the loop.
    const QHash<quint32, quint32> pending = m_pending;
    m_pending.clear();

    out.append(char(SNMP_SEQUENCE));
    const int message = out.size();
    out.append(kVersion, sizeof(kVersion));
    out.append(kCommunity, sizeof(kCommunity));
    out.append(char(0xA2)); // GetResponse-PDU
    const int pdu = out.size();
    out.append(char(SNMP_INTEGER));
    pduValueBERencoded(out, int(requestId));
    out.append(char(SNMP_INTEGER)); // error-status: always noError
    pduValueBERencoded(out, 0);
    out.append(char(SNMP_INTEGER)); // error-index
    pduValueBERencoded(out, 0);
    out.append(char(SNMP_SEQUENCE));
    const int list = out.size();
    for (auto it = pending.cbegin(); it != pending.cend(); ++it) {
        emit getValue(it.value(), it.key());
        auto vb = m_table.constFind(it.key());
        if (vb != m_table.cend())
            pduAddVB(out, *vb);
    }
    pduSetBlockSize(out, list);
    pduSetBlockSize(out, pdu);
    pduSetBlockSize(out, message);
    return 1;
}

int SNMP::pduBuildTrap(QByteArray &out)
{
    out.append(char(SNMP_SEQUENCE));
    const int message = out.size();
    out.append(kVersion, sizeof(kVersion));
    out.append(kCommunity, sizeof(kCommunity));
    out.append(char(0xA4)); // Trap-PDU
    const int pdu = out.size();
    const __VB empty{};
    const __VB *enterprise = vbGet(101);
    const __VB *address = vbGet(105);
    const __VB *time = vbGet(102);
    pduAddOID(out, enterprise ? enterprise->value.v.oid : empty.oid);
    pduAddValue(out, address ? address->value : empty.value);
    out.append(kGenericTrap, sizeof(kGenericTrap));
    out.append(kSpecificTrap, sizeof(kSpecificTrap));
    pduAddValue(out, time ? time->value : empty.value);
    out.append(char(SNMP_SEQUENCE));
    const int list = out.size();
    for (const __VB &vb : qAsConst(m_table)) {
        if (vb.inTrap)
            pduAddVB(out, vb);
    }
    pduSetBlockSize(out, list);
    pduSetBlockSize(out, pdu);
    pduSetBlockSize(out, message);
    return 1;
}

// A flat tag scanner, not a tree parser: every step consumes at least the tag byte, so a datagram
// of n bytes ends the scan within n steps, and no read goes past its end.
quint32 SNMP::pduParse(const QByteArray &datagram)
{
    QDataStream stream(datagram);
    ScanMode mode = ScanMode::None;
    quint32 requestId = 0;
    bool haveGetId = false;
    __OID current;
    std::memset(&current, 0, sizeof(current));
    m_pending.clear();

    while (!stream.atEnd() && stream.status() == QDataStream::Ok) {
        quint8 tag = 0;
        stream >> tag;
        switch (tag) {
        case SNMP_SEQUENCE:
            pduSizeBERdecode(stream);
            break;
        case 0xA0: // GetRequest
            pduSizeBERdecode(stream);
            mode = ScanMode::Get;
            haveGetId = false;
            break;
        case 0xA3: // SetRequest
            pduSizeBERdecode(stream);
            mode = ScanMode::Set;
            break;
        case SNMP_OCTETSTRING: { // the community, never checked
            const quint32 n = pduSizeBERdecode(stream);
            const int wanted = int(qMin<quint32>(n, INT_MAX));
            if (stream.skipRawData(wanted) != wanted)
                stream.setStatus(QDataStream::ReadPastEnd);
            break;
        }
        case SNMP_NULL: // its length byte, always 0
            if (stream.skipRawData(1) != 1)
                stream.setStatus(QDataStream::ReadPastEnd);
            break;
        case SNMP_OID: {
            const quint32 n = pduSizeBERdecode(stream);
            if (n > SNMP_OID_MAX) {
                qWarning().noquote() << "SNMP request OID of" << n << "bytes is longer than" << SNMP_OID_MAX
                                     << "and is ignored";
                const int wanted = int(qMin<quint32>(n, INT_MAX));
                if (stream.skipRawData(wanted) != wanted)
                    stream.setStatus(QDataStream::ReadPastEnd);
                current.length = 0;
                break;
            }
            current.length = 0;
            if (stream.readRawData(reinterpret_cast<char *>(current.bytes), int(n)) != int(n)) {
                stream.setStatus(QDataStream::ReadPastEnd);
                break;
            }
            current.length = n;
            if (mode == ScanMode::Get)
                pduGetOid(current);
            break;
        }
        case SNMP_INTEGER:
        case SNMP_UNSIGNED: {
            const quint32 n = pduSizeBERdecode(stream);
            const quint32 value = pduValueBERdecode(stream, n);
            if (stream.status() != QDataStream::Ok)
                break;
            if (mode == ScanMode::Get) {
                if (!haveGetId)
                    requestId = value;
                haveGetId = true;
            } else if (mode == ScanMode::Set) {
                // Error-status and error-index come before any OID and are passed over by the
                // length test. A request id of 0 swallows the numbers that follow until one is not 0.
                if (requestId == 0)
                    requestId = value;
                else if (current.length >= 11)
                    pduSetOid(current, tag, value);
            }
            break;
        }
        default: // anything else: the next byte is read as a tag
            break;
        }
    }
    if (stream.status() != QDataStream::Ok)
        qWarning().noquote() << "SNMP request of" << datagram.size() << "bytes ends early";
    return requestId;
}

void SNMP::pduGetOid(const __OID &oid)
{
    const QByteArray bytes(reinterpret_cast<const char *>(oid.bytes), int(oid.length));
    const unsigned id = vbFind(bytes);
    unsigned agentId = 0;
    if (oid.length > kAgentByte) {
        agentId = oid.bytes[kAgentByte];
        vxiSet(id, agentId);
    }
    if (id == 100) {
        auto it = m_table.find(100);
        if (it != m_table.end())
            it->oid = oid;
    }
    m_pending[id] = agentId;
}

void SNMP::pduSetOid(const __OID &oid, quint32 tag, quint32 value)
{
    const unsigned agentId = oid.bytes[kAgentByte];
    const unsigned variable = oid.bytes[kAgentByte + 1];
    const QByteArray bytes(reinterpret_cast<const char *>(oid.bytes), int(oid.length));
    const unsigned id = vbFind(bytes);
    vxiSet(id, agentId);
    auto it = m_table.find(id);
    if (it != m_table.end()) {
        if (id == 100) {
            it->oid = oid;
        } else {
            // The binding is answered with the syntax it was set with; a string it held is dropped.
            if (!isNumberType(it->value.type))
                pduValueFree(it->value);
            it->value.type = tag;
        }
    }
    m_pending[id] = agentId;
    emit setValue(agentId, variable, value);
}
