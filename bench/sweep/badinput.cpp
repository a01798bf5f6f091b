#include "badinput.h"

#include "ember/framing.h"

#include <QVector>

namespace badinput {

namespace {

QByteArray randomBytes(QRandomGenerator &rng, int count)
{
    QByteArray bytes(count, Qt::Uninitialized);
    for (int i = 0; i < count; ++i)
        bytes[i] = char(rng.bounded(256));
    return bytes;
}

// A definite-length BER element.
QByteArray tlv(unsigned char tag, const QByteArray &content)
{
    QByteArray out(1, char(tag));
    const int n = content.size();
    if (n < 0x80) {
        out.append(char(n));
    } else if (n < 0x100) {
        out.append(char(0x81)).append(char(n));
    } else {
        out.append(char(0x82)).append(char(n >> 8)).append(char(n & 0xFF));
    }
    return out + content;
}

QByteArray berInteger(int value)
{
    QByteArray content;
    do {
        content.prepend(char(value & 0xFF));
        value >>= 8;
    } while (value != 0 && value != -1);
    return tlv(0x02, content);
}

QByteArray berPath(const QList<int> &path)
{
    // RELATIVE-OID: base-128 sub-identifiers.
    QByteArray content;
    for (int n : path) {
        QByteArray part(1, char(n & 0x7F));
        for (n >>= 7; n > 0; n >>= 7)
            part.prepend(char(0x80 | (n & 0x7F)));
        content += part;
    }
    return tlv(0x0D, content);
}

// The Glow root: application 0, then the root element collection (application 11) holding one
// element, all with indefinite lengths as the providers' consumers write them.
QByteArray glowRoot(const QByteArray &element)
{
    return QByteArray::fromHex("60806b80") + element + QByteArray(4, 0);
}

QByteArray glowQualifiedCommand(const QList<int> &path, int number)
{
    // QualifiedNode [APPLICATION 10] { path [0], children [2] { element [0] { Command [APPLICATION 2]
    // { number [0] } } } }: the command addressed to the node at the path.
    const QByteArray command = tlv(0x62, tlv(0xA0, berInteger(number)));
    const QByteArray children = tlv(0xA2, tlv(0x64, tlv(0xA0, command)));
    if (path.isEmpty())
        return tlv(0xA0, command); // a bare command at the root
    return tlv(0xA0, tlv(0x6A, tlv(0xA0, berPath(path)) + children));
}

QByteArray glowQualifiedWrite(const QList<int> &path, const QByteArray &value)
{
    // QualifiedParameter [APPLICATION 9] { path [0], contents [1] SET { value [2] } }.
    const QByteArray contents = tlv(0xA1, tlv(0x31, tlv(0xA2, value)));
    return tlv(0xA0, tlv(0x69, tlv(0xA0, berPath(path)) + contents));
}

// Valid Glow messages a consumer sends: directory requests at several depths, and writes of each
// value type to parameters of the instance tree.
QByteArray glowSeed(QRandomGenerator &rng)
{
    static const QList<QList<int>> paths = {{}, {0}, {0, 0}, {0, 1}, {0, 2}, {0, 2, 5}, {0, 2, 5, 7}, {0, 7}};
    switch (rng.bounded(4)) {
    case 0:
        return glowRoot(glowQualifiedCommand(paths.at(rng.bounded(paths.size())), 32));
    case 1:
        return glowRoot(glowQualifiedWrite({0, 0, 6}, berInteger(int(rng.bounded(100)))));
    case 2:
        return glowRoot(
            glowQualifiedWrite({0, 2, 4}, tlv(0x0C, "Station " + QByteArray::number(rng.bounded(9)))));
    default:
        return glowRoot(glowQualifiedWrite({0, 7, 0}, tlv(0x0A, QByteArray(1, char(rng.bounded(4))))));
    }
}

// Changes a valid message the ways a broken peer would: flipped bits, random bytes, huge or
// indefinite lengths, cut or duplicated ranges.
QByteArray mutate(QByteArray bytes, QRandomGenerator &rng)
{
    const int edits = 1 + int(rng.bounded(4));
    for (int e = 0; e < edits && !bytes.isEmpty(); ++e) {
        const int at = int(rng.bounded(bytes.size()));
        switch (rng.bounded(7)) {
        case 0:
            bytes[at] = char(bytes.at(at) ^ (1 << rng.bounded(8)));
            break;
        case 1:
            bytes[at] = char(rng.bounded(256));
            break;
        case 2:
            bytes.insert(at, randomBytes(rng, 1 + int(rng.bounded(8))));
            break;
        case 3:
            bytes.remove(at, 1 + int(rng.bounded(8)));
            break;
        case 4: // a length that claims far more than there is
            bytes.insert(at, QByteArray::fromHex("84ffffff7f"));
            break;
        case 5:
            bytes.truncate(at);
            break;
        default:
            bytes.insert(at, bytes.mid(at, 1 + int(rng.bounded(32))));
            break;
        }
    }
    return bytes;
}

// SNMPv1 messages to the agent: GET of the instance variables and the system ones, and the one SET.
QByteArray snmpSeed(QRandomGenerator &rng)
{
    static const QByteArray prefix = QByteArray::fromHex("2b0601040181fd5920");
    QByteArray oid;
    QByteArray value = QByteArray::fromHex("0500");
    unsigned char pdu = 0xA0; // GetRequest
    switch (rng.bounded(5)) {
    case 0:
        oid = prefix + char(rng.bounded(4)) + char(2 + rng.bounded(6)) + char(0);
        break;
    case 1:
        oid = QByteArray::fromHex("2b06010201010300"); // sysUpTime.0
        break;
    case 2:
        oid = QByteArray::fromHex("2b06010201010100"); // sysDescr.0
        break;
    case 3:
        oid = prefix + char(rng.bounded(4)) + char(6);
        value = berInteger(int(rng.bounded(2)));
        pdu = 0xA3; // SetRequest
        break;
    default:
        oid = prefix + randomBytes(rng, int(rng.bounded(6)));
        break;
    }
    const QByteArray binding = tlv(0x30, tlv(0x06, oid) + value);
    const QByteArray body = berInteger(int(rng.bounded(1 << 30))) + berInteger(0) + berInteger(0) +
                            tlv(0x30, binding + (rng.bounded(3) == 0 ? binding : QByteArray()));
    return tlv(0x30, berInteger(0) + tlv(0x04, "public") + tlv(pdu, body));
}

QByteArray oscString(const QByteArray &text)
{
    QByteArray out = text;
    out.append(char(0));
    while (out.size() % 4 != 0)
        out.append(char(0));
    return out;
}

QByteArray oscInt(quint32 value)
{
    QByteArray out(4, 0);
    for (int i = 0; i < 4; ++i)
        out[i] = char(value >> (24 - 8 * i));
    return out;
}

QByteArray oscMessage(QRandomGenerator &rng)
{
    // Writable and read-only parameters, a function, an unknown name, and the wildcard agent.
    static const QList<QByteArray> names = {
        "identity/group",        "identity/name",   "ConnectionInfo/Station", "ConnectionInfo/Jitterbuffer",
        "ConnectionInfo/Status", "Commands/Record", "Play/PlayState",         "nothing/here"};
    static const QList<QByteArray> agents = {"0", "1", "2", "*", "99", "x"};
    const QByteArray address =
        "/vx/" + agents.at(rng.bounded(agents.size())) + "/" + names.at(rng.bounded(names.size()));
    switch (rng.bounded(5)) {
    case 0:
        return oscString(address) + oscString(",i") + oscInt(rng.generate());
    case 1:
        return oscString(address) + oscString(",s") +
               oscString("Station " + QByteArray::number(rng.bounded(9)));
    case 2:
        return oscString(address) + oscString(",T");
    case 3:
        return oscString(address) + oscString(",f") + oscInt(rng.generate());
    default:
        return oscString(address) + oscString(",b") + oscInt(8) + randomBytes(rng, 8);
    }
}

QByteArray oscSeed(QRandomGenerator &rng)
{
    if (rng.bounded(4) != 0)
        return oscMessage(rng);
    QByteArray bundle = oscString("#bundle") + QByteArray(7, 0) + char(1);
    const int count = 1 + int(rng.bounded(3));
    for (int i = 0; i < count; ++i) {
        const QByteArray element = oscMessage(rng);
        bundle += oscInt(quint32(element.size())) + element;
    }
    return bundle;
}

} // namespace

const char *emberKindName(EmberKind kind)
{
    static const char *names[] = {"noise",       "half frame",   "bad CRC",
                                  "random Glow", "mutated Glow", "oversize frame"};
    return names[int(kind)];
}

EmberKind pickEmberKind(QRandomGenerator &rng)
{
    // Oversize frames are rare: every byte past the package buffer is one log line.
    const int r = int(rng.bounded(1000));
    if (r < 5)
        return EmberKind::Oversize;
    return EmberKind(r % 5);
}

QByteArray ember(EmberKind kind, QRandomGenerator &rng)
{
    switch (kind) {
    case EmberKind::Noise:
        return randomBytes(rng, 1 + int(rng.bounded(2048)));
    case EmberKind::HalfFrame: {
        const QByteArray frame = s101Frame(glowPackage(glowSeed(rng)));
        return frame.left(1 + int(rng.bounded(frame.size() - 1)));
    }
    case EmberKind::BadCrc: {
        QByteArray frame = s101Frame(glowPackage(glowSeed(rng)));
        frame[frame.size() - 2] = char(frame.at(frame.size() - 2) ^ 0x01);
        return frame;
    }
    case EmberKind::RandomGlow: {
        static const unsigned char flags[] = {0x00, 0x40, 0x80, 0xC0, 0x20};
        return s101Frame(glowPackage(randomBytes(rng, int(rng.bounded(600))), flags[rng.bounded(5)]));
    }
    case EmberKind::MutatedGlow: {
        QByteArray package = glowPackage(glowSeed(rng));
        // Now and then the header too, so that slot, command, DTD and app byte count are wrong.
        package = rng.bounded(4) == 0 ? mutate(package, rng) : package.left(9) + mutate(package.mid(9), rng);
        return s101Frame(package);
    }
    case EmberKind::Oversize:
    default: {
        QByteArray body(1100 + int(rng.bounded(1000)), Qt::Uninitialized);
        for (int i = 0; i < body.size(); ++i)
            body[i] = char(rng.bounded(0xF8));
        return char(S101_BOF) + glowPackage(QByteArray()).left(9) + body + char(S101_EOF);
    }
    }
}

const char *datagramKindName(DatagramKind kind)
{
    static const char *names[] = {"noise", "mutated", "valid"};
    return names[int(kind)];
}

DatagramKind pickDatagramKind(QRandomGenerator &rng)
{
    const int r = int(rng.bounded(10));
    return r < 4 ? DatagramKind::Noise : r < 9 ? DatagramKind::Mutated : DatagramKind::Valid;
}

QByteArray snmp(DatagramKind kind, QRandomGenerator &rng)
{
    if (kind == DatagramKind::Noise)
        return randomBytes(rng, 1 + int(rng.bounded(600)));
    const QByteArray seed = snmpSeed(rng);
    return kind == DatagramKind::Valid ? seed : mutate(seed, rng);
}

QByteArray osc(DatagramKind kind, QRandomGenerator &rng)
{
    if (kind == DatagramKind::Noise)
        return randomBytes(rng, 1 + int(rng.bounded(600)));
    const QByteArray seed = oscSeed(rng);
    return kind == DatagramKind::Valid ? seed : mutate(seed, rng);
}

QByteArray s101Frame(const QByteArray &package)
{
    uint16_t crc = 0xFFFF;
    for (char c : package)
        crc = emberFraming_crcUpdate(crc, static_cast<unsigned char>(c));
    crc = static_cast<uint16_t>(~crc);
    QByteArray data = package;
    data.append(char(crc & 0xFF)).append(char(crc >> 8));
    QByteArray frame(1, char(S101_BOF));
    for (char c : data) {
        const auto b = static_cast<unsigned char>(c);
        if (b >= S101_INVALID) {
            frame.append(char(S101_CE));
            frame.append(char(b ^ S101_XOR));
        } else {
            frame.append(c);
        }
    }
    frame.append(char(S101_EOF));
    return frame;
}

QByteArray glowPackage(const QByteArray &glow, unsigned char flags)
{
    static const unsigned char header[] = {
        0x00, S101_MESSAGE_EMBER, S101_COMMAND_EMBER, S101_VERSION, 0x00, S101_DTD_GLOW, 0x02, 0x14, 0x02};
    QByteArray package(reinterpret_cast<const char *>(header), sizeof(header));
    package[4] = char(flags);
    return package + glow;
}

QByteArray glowGetDirectory(const QList<int> &path)
{
    return glowRoot(glowQualifiedCommand(path, 32));
}

QByteArray keepAliveRequest()
{
    unsigned char buffer[16];
    const int length = emberFraming_writeKeepAliveRequest(buffer, sizeof(buffer), 0);
    return QByteArray(reinterpret_cast<const char *>(buffer), length);
}

} // namespace badinput
