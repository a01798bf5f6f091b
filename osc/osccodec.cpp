#include "osc/osccodec.h"

#include <QDateTime>
#include <QDebug>
#include <QIODevice>

#include <climits>
#include <cstring>

namespace {

int tagNumber(char tag)
{
    return int(quint8(tag));
}

void writeZeros(QDataStream &stream, int count)
{
    static const char zeros[4] = {0, 0, 0, 0};
    if (count > 0)
        stream.writeRawData(zeros, count);
}

// Float-to-int conversion is undefined outside the int range, and a datagram can carry anything:
// NaN reads as 0 and out-of-range values saturate.
qint32 truncateToInt(double value)
{
    if (value != value)
        return 0;
    if (value >= double(INT_MAX))
        return INT_MAX;
    if (value <= double(INT_MIN))
        return INT_MIN;
    return qint32(value);
}

// Reads up to and including stop (or to the end) and returns the bytes before it. The device is
// looked into a block at a time: a datagram's text is found with one search instead of a stream
// read a byte.
QByteArray readUntil(QDataStream &stream, quint8 stop)
{
    QByteArray out;
    QIODevice *device = stream.device();
    char block[256];
    while (device && !stream.atEnd()) {
        const qint64 seen = device->peek(block, qint64(sizeof(block)));
        if (seen <= 0)
            break;
        const char *found = static_cast<const char *>(std::memchr(block, stop, size_t(seen)));
        const int length = found ? int(found - block) : int(seen);
        out.append(block, length);
        stream.skipRawData(found ? length + 1 : length);
        if (found)
            break;
    }
    return out;
}

void warnUnparseable(char tag)
{
    qWarning().noquote() << "Received OSC Data with unparseable syntax" << tagNumber(tag);
}

} // namespace

void packetBuildAllign(QDataStream &stream, int n)
{
    writeZeros(stream, (4 - n % 4) % 4);
}

void packetBuildAddMessage(QDataStream &stream, unsigned agent, const QString &name)
{
    const QByteArray address = QString("/vx/%1/").arg(agent).toUtf8() + name.toUtf8();
    stream.writeRawData(address.constData(), address.size() + 1); // with its NUL
    packetBuildAllign(stream, address.size() + 1);
}

void packetBuildAddValue(QDataStream &stream, char tag, int value, const char *text)
{
    stream << quint8(',') << quint8(tag) << quint8(0) << quint8(0);
    const char *safeText = text ? text : "";
    switch (tag) {
    case 'i':
    case 'm':
    case 'r':
    case 't':
    case 'T': // boolean tags carry the value as a 4-byte payload; our receivers rely on it
    case 'F':
        stream << qint32(value);
        break;
    case 'h':
        stream << qint64(value);
        break;
    case 'I':
    case 'N':
    case ']':
        break;
    case 's':
    case 'S': {
        const int length = int(strlen(safeText)) + 1;
        stream.writeRawData(safeText, length);
        packetBuildAllign(stream, length);
        break;
    }
    case 'b': {
        const int length = (text && value > 0) ? value : 0;
        stream << qint32(length);
        stream.writeRawData(safeText, length);
        packetBuildAllign(stream, length);
        break;
    }
    case 'c': {
        // The character as a sign-extended word, three zero bytes, then the text as a string. The
        // result is deliberately not word aligned; packetBuild pads the packet afterwards.
        stream << qint32(qint8(value));
        writeZeros(stream, 3);
        const int length = int(strlen(safeText)) + 1;
        stream.writeRawData(safeText, length);
        packetBuildAllign(stream, length);
        break;
    }
    case 'd':
        stream << double(value);
        break;
    case 'f':
        // At the stream's default double precision this writes 8 bytes although the tag says 'f'.
        stream << float(value);
        break;
    case '[': {
        int length = 0;
        if (text)
            length = value > 0 ? value : int(strlen(text));
        stream << qint32(91);
        stream.writeRawData(safeText, length);
        packetBuildAllign(stream, length);
        stream << qint32(93);
        packetBuildAllign(stream, length + 2);
        break;
    }
    default:
        qWarning().noquote() << "OSC packetBuildAddValue unknown syntax" << tagNumber(tag);
        break;
    }
}

qint32 packetParseAsInt(QDataStream &stream, char tag)
{
    switch (tag) {
    case 'i': {
        qint32 value = 0;
        stream >> value;
        return value;
    }
    case 'h': {
        qint64 value = 0;
        stream >> value;
        return qint32(quint32(quint64(value) & 0xFFFFFFFFu));
    }
    case 'd': {
        double value = 0;
        stream >> value;
        return truncateToInt(value);
    }
    case 'f': {
        float value = 0; // 8 bytes at the stream's default precision
        stream >> value;
        return truncateToInt(double(value));
    }
    default:
        warnUnparseable(tag);
        return 0;
    }
}

quint32 packetParseAsUInt(QDataStream &stream, char tag)
{
    switch (tag) {
    case 'r':
    case 'm': {
        quint32 value = 0;
        stream >> value;
        return value;
    }
    case 't': {
        quint32 seconds = 0;
        quint32 fraction = 0;
        stream >> seconds >> fraction;
        if (seconds == 0)
            return 0;
        // The divisor 4291845 is what senders of this system expect; it is not 2^32 / 1000.
        const QDateTime epoch(QDate(1900, 1, 1), QTime(0, 0, 0), Qt::LocalTime);
        const QDateTime when = epoch.addSecs(qint64(seconds)).addMSecs(qint64(fraction / 4291845u));
        return quint32(when.time().msecsSinceStartOfDay());
    }
    default:
        warnUnparseable(tag);
        return 0;
    }
}

QByteArray packetParseAsBuffer(QDataStream &stream, char tag)
{
    switch (tag) {
    case 's':
    case 'S':
        return readUntil(stream, 0);
    case '[':
        return readUntil(stream, ']');
    case 'b': {
        quint32 length = 0;
        stream >> length;
        // A garbage length must not allocate or read more than the datagram holds.
        const qint64 available = stream.device() ? stream.device()->bytesAvailable() : 0;
        const int count = int(qMin<qint64>(qint64(length), qMax<qint64>(available, 0)));
        QByteArray out(count, '\0');
        if (count > 0)
            stream.readRawData(out.data(), count);
        return out;
    }
    case 'c': {
        QByteArray out;
        for (int i = 0; i < 4 && !stream.atEnd(); i++) {
            quint8 byte = 0;
            stream >> byte;
            if (byte != 0)
                out.append(char(byte));
        }
        return out;
    }
    default:
        warnUnparseable(tag);
        return QByteArray();
    }
}

void packetScan(const QByteArray &datagram, packetMessageCallback deliver, void *state)
{
    QDataStream stream(datagram);
    stream.setByteOrder(QDataStream::BigEndian);
    QString address;
    while (!stream.atEnd()) {
        quint8 byte = 0;
        stream >> byte;
        switch (byte) {
        case '/':
            address = QString::fromUtf8(packetParseAsBuffer(stream, 's'));
            break;
        case '#': {
            // "#bundle" and its NUL, then the time tag and the first element's size: all ignored.
            stream.skipRawData(7);
            qint32 seconds = 0, fraction = 0, size = 0;
            stream >> seconds >> fraction >> size;
            break;
        }
        case ',': {
            // One argument is assumed: the tag and the two bytes that end the type tag string.
            quint8 tagByte = 0, unused = 0;
            stream >> tagByte >> unused >> unused;
            const char tag = char(tagByte);
            switch (tag) {
            case 'i':
            case 'h':
            case 'd':
            case 'f':
                deliver(state, address, packetParseAsInt(stream, tag), QByteArray());
                break;
            case 'm':
            case 'r':
            case 't':
                deliver(state, address, int(packetParseAsUInt(stream, tag)), QByteArray());
                break;
            case 'T':
                deliver(state, address, 1, QByteArray());
                break;
            case 'F':
                deliver(state, address, 0, QByteArray());
                break;
            case 's':
            case 'S':
            case 'b':
            case 'c':
            case '[':
                deliver(state, address, 0, packetParseAsBuffer(stream, tag));
                break;
            default:
                deliver(state, address, 0, QByteArray());
                break;
            }
            break;
        }
        default: // padding and anything unknown
            break;
        }
    }
}
