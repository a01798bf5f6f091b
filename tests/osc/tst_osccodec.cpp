#include "osc/osc.h"
#include "osc/osccodec.h"

#include <QRandomGenerator>
#include <QtTest>

#include <cstdlib>
#include <ctime>

// Byte layouts of the arguments and addresses we send, and the flat scanner on messages, bundles,
// truncated packets and garbage.

#define B(literal) QByteArray(literal, int(sizeof(literal)) - 1)

namespace {

QStringList g_log;

void captureMessage(QtMsgType, const QMessageLogContext &, const QString &text)
{
    g_log.append(text);
}

QByteArray address(const char *text)
{
    QByteArray out(text);
    out.append('\0');
    while (out.size() % 4)
        out.append('\0');
    return out;
}

QByteArray be32(quint32 value)
{
    QByteArray out;
    QDataStream(&out, QIODevice::WriteOnly) << value;
    return out;
}

QByteArray be64(quint64 value)
{
    QByteArray out;
    QDataStream(&out, QIODevice::WriteOnly) << value;
    return out;
}

QByteArray beDouble(double value)
{
    QByteArray out;
    QDataStream(&out, QIODevice::WriteOnly) << value;
    return out;
}

void collect(void *state, const QString &addr, int value, const QByteArray &data)
{
    static_cast<QStringList *>(state)->append(
        QString("%1|%2|%3").arg(addr).arg(value).arg(QString(data.toHex())));
}

QStringList scan(const QByteArray &datagram)
{
    QStringList out;
    packetScan(datagram, collect, &out);
    return out;
}

} // namespace

class TestOscCodec : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        // Time tags are read as local time of day; pin the zone so the expected values hold.
        qputenv("TZ", "UTC");
        tzset();
        qInstallMessageHandler(captureMessage);
    }
    void init() { g_log.clear(); }

    void buildValue_data()
    {
        QTest::addColumn<char>("tag");
        QTest::addColumn<int>("value");
        QTest::addColumn<QByteArray>("text");
        QTest::addColumn<bool>("nullText");
        QTest::addColumn<QByteArray>("payload");

        QTest::newRow("i") << 'i' << 5 << QByteArray() << true << B("\0\0\0\x05");
        QTest::newRow("i negative") << 'i' << -2 << QByteArray() << true << B("\xff\xff\xff\xfe");
        QTest::newRow("m r t are plain words") << 't' << 0x01020304 << QByteArray() << true << B("\1\2\3\4");
        QTest::newRow("h sign-extended")
            << 'h' << -2 << QByteArray() << true << B("\xff\xff\xff\xff\xff\xff\xff\xfe");
        QTest::newRow("T keeps a payload") << 'T' << 1 << QByteArray() << true << B("\0\0\0\1");
        QTest::newRow("F keeps a payload") << 'F' << 0 << QByteArray() << true << B("\0\0\0\0");
        QTest::newRow("f is 8 bytes") << 'f' << 2 << QByteArray() << true << B("\x40\0\0\0\0\0\0\0");
        QTest::newRow("f negative") << 'f' << -3 << QByteArray() << true << B("\xc0\x08\0\0\0\0\0\0");
        QTest::newRow("d") << 'd' << 1 << QByteArray() << true << B("\x3f\xf0\0\0\0\0\0\0");
        QTest::newRow("N") << 'N' << 7 << QByteArray() << true << QByteArray();
        QTest::newRow("s 3 chars") << 's' << 0 << B("abc") << false << B("abc\0");
        QTest::newRow("s 4 chars") << 's' << 0 << B("abcd") << false << B("abcd\0\0\0\0");
        QTest::newRow("s null") << 's' << 0 << QByteArray() << true << B("\0\0\0\0");
        QTest::newRow("b value is the length")
            << 'b' << 8 << B("\1\0\2\0\3\0\4\0") << false << B("\0\0\0\x08\1\0\2\0\3\0\4\0");
        QTest::newRow("b 9 bytes padded")
            << 'b' << 9 << B("\0\1\2\3\4\5\6\7\x08") << false << B("\0\0\0\x09\0\1\2\3\4\5\6\7\x08\0\0\0");
        QTest::newRow("b null text") << 'b' << 8 << QByteArray() << true << B("\0\0\0\0");
        QTest::newRow("c layout") << 'c' << 0x41 << B("hi") << false << B("\0\0\0\x41\0\0\0hi\0\0");
        QTest::newRow("c low byte sign-extended")
            << 'c' << 0x1F0 << B("") << false << B("\xff\xff\xff\xf0\0\0\0\0\0\0\0");
        QTest::newRow("[ strlen") << '[' << 0 << B("abc") << false
                                  << B("\0\0\0\x5b"
                                       "abc\0"
                                       "\0\0\0\x5d\0\0\0");
        QTest::newRow("[ given length") << '[' << 2 << B("abc") << false
                                        << B("\0\0\0\x5b"
                                             "ab\0\0"
                                             "\0\0\0\x5d");
    }
    void buildValue()
    {
        QFETCH(char, tag);
        QFETCH(int, value);
        QFETCH(QByteArray, text);
        QFETCH(bool, nullText);
        QFETCH(QByteArray, payload);
        QByteArray out;
        QDataStream stream(&out, QIODevice::WriteOnly);
        packetBuildAddValue(stream, tag, value, nullText ? nullptr : text.constData());
        QCOMPARE(out.toHex(' '), (QByteArray(",") + tag + B("\0\0") + payload).toHex(' '));
        QVERIFY(g_log.isEmpty());
    }

    void buildUnknownTag()
    {
        QByteArray out;
        QDataStream stream(&out, QIODevice::WriteOnly);
        packetBuildAddValue(stream, 'x', 5, "abc");
        QCOMPARE(out, B(",x\0\0"));
        QCOMPARE(g_log, QStringList() << "OSC packetBuildAddValue unknown syntax 120");
    }

    void buildPacket()
    {
        OSC osc;
        OSC::__PARAM gain{0x600, "/root/Gain", 'P', 'i', 1};
        OSC::__PARAM chr{0x700, "/root/Chr", 'P', 'c', 0};
        OSC::__PARAM cmd{0x10000, "/root/Commands/Disconnect", 'C', 'N', 1};
        osc.parameterAdd(gain);
        osc.parameterAdd(chr);
        osc.parameterAdd(cmd);

        QByteArray out;
        osc.packetBuild(out, 2, 0x600, 5, nullptr);
        QCOMPARE(out.toHex(' '), B("/vx/2/Gain\0\0,i\0\0\0\0\0\x05").toHex(' '));

        // The character layout leaves the packet unaligned: it is padded and the fact logged.
        out.clear();
        osc.packetBuild(out, 3, 0x700, 'A', "xy");
        QCOMPARE(out.toHex(' '), B("/vx/3/Chr\0\0\0,c\0\0\0\0\0\x41\0\0\0xy\0\0\0").toHex(' '));
        QCOMPARE(g_log, QStringList() << "3 | OSC packetBuild had none alligned data 1792");

        out.clear();
        osc.packetBuild(out, 2, 0x10000, 1, nullptr); // commands are never sent
        osc.packetBuild(out, 2, 0x12345, 1, nullptr); // not in the address space
        QVERIFY(out.isEmpty());
    }

    void scanner_data()
    {
        QTest::addColumn<QByteArray>("datagram");
        QTest::addColumn<QStringList>("delivered");

        const QByteArray gain = address("/vx/2/Gain");
        QTest::newRow("i") << gain + B(",i\0\0") + be32(5) << QStringList{"vx/2/Gain|5|"};
        QTest::newRow("h keeps the low word")
            << gain + B(",h\0\0") + be64(0x100000007ull) << QStringList{"vx/2/Gain|7|"};
        QTest::newRow("h negative") << gain + B(",h\0\0") + be64(quint64(-2ll))
                                    << QStringList{"vx/2/Gain|-2|"};
        QTest::newRow("f is 8 bytes, truncated")
            << gain + B(",f\0\0") + beDouble(3.75) + be32(0x2f2f2f2f) << QStringList{"vx/2/Gain|3|"};
        QTest::newRow("f negative") << gain + B(",f\0\0") + beDouble(-2.9) << QStringList{"vx/2/Gain|-2|"};
        QTest::newRow("f of 4 bytes reads as 0")
            << gain + B(",f\0\0\x40\x20\0\0") << QStringList{"vx/2/Gain|0|"};
        QTest::newRow("d") << gain + B(",d\0\0") + beDouble(-7.5) << QStringList{"vx/2/Gain|-7|"};
        QTest::newRow("d out of range saturates")
            << gain + B(",d\0\0") + beDouble(1e20) << QStringList{"vx/2/Gain|2147483647|"};
        QTest::newRow("d NaN") << gain + B(",d\0\0\x7f\xf8\0\0\0\0\0\0") << QStringList{"vx/2/Gain|0|"};
        QTest::newRow("T with payload") << gain + B(",T\0\0") + be32(0) << QStringList{"vx/2/Gain|1|"};
        QTest::newRow("T without payload") << gain + B(",T\0\0") << QStringList{"vx/2/Gain|1|"};
        QTest::newRow("F") << gain + B(",F\0\0") << QStringList{"vx/2/Gain|0|"};
        QTest::newRow("m") << gain + B(",m\0\0") + be32(0x90407f00) << QStringList{"vx/2/Gain|-1874821376|"};
        QTest::newRow("r") << gain + B(",r\0\0") + be32(0x11223344) << QStringList{"vx/2/Gain|287454020|"};
        QTest::newRow("t seconds 0") << gain + B(",t\0\0") + be32(0) + be32(0x80000000)
                                     << QStringList{"vx/2/Gain|0|"};
        // 2026-01-01 12:34:56 is 3976259696 s after 1900; a quarter of the fraction is 250 ms.
        QTest::newRow("t time of day") << gain + B(",t\0\0") + be32(3976259696u) + be32(4291845u * 250)
                                       << QStringList{"vx/2/Gain|45296250|"};
        QTest::newRow("t full fraction is 1000 ms")
            << gain + B(",t\0\0") + be32(3976259696u) + be32(0xffffffffu)
            << QStringList{"vx/2/Gain|45297000|"};
        QTest::newRow("s") << gain + B(",s\0\0") + address("hello") << QStringList{"vx/2/Gain|0|68656c6c6f"};
        QTest::newRow("S") << gain + B(",S\0\0") + address("sym") << QStringList{"vx/2/Gain|0|73796d"};
        QTest::newRow("b") << gain + B(",b\0\0") + be32(3) + B("\1\2\3\0")
                           << QStringList{"vx/2/Gain|0|010203"};
        QTest::newRow("c keeps non-zero bytes")
            << gain + B(",c\0\0\0\0\0\x41") << QStringList{"vx/2/Gain|0|41"};
        QTest::newRow("[ up to ]") << gain + B(",[\0\0\0\0\0\x5b"
                                               "ab\0\0\0\0\0\x5d")
                                   << QStringList{"vx/2/Gain|0|0000005b61620000000000"};
        QTest::newRow("N") << gain + B(",N\0\0") << QStringList{"vx/2/Gain|0|"};
        QTest::newRow("unknown tag") << gain + B(",x\0\0") << QStringList{"vx/2/Gain|0|"};
        QTest::newRow("only the first of two arguments")
            << gain + B(",ii\0") + be32(1) + be32(2) << QStringList{"vx/2/Gain|1|"};
        QTest::newRow("address without type tags") << address("/vx/1/Gain") << QStringList();
        QTest::newRow("bare address, then a message")
            << address("/vx/1/A") + address("/vx/1/B") + B(",i\0\0") + be32(9) << QStringList{"vx/1/B|9|"};

        const QByteArray first = address("/vx/1/Gain") + B(",i\0\0") + be32(11);
        const QByteArray second = address("/vx/*/Station") + B(",s\0\0") + address("abc");
        const QByteArray bundle = B("#bundle\0") + be32(0) + be32(1) + be32(quint32(first.size())) + first +
                                  be32(quint32(second.size())) + second;
        QTest::newRow("bundle of two, in order")
            << bundle << QStringList{"vx/1/Gain|11|", "vx/*/Station|0|616263"};

        QTest::newRow("empty") << QByteArray() << QStringList();
        QTest::newRow("truncated i reads 0") << gain + B(",i\0\0\0\x07") << QStringList{"vx/2/Gain|0|"};
        QTest::newRow("truncated string") << gain + B(",s\0\0ab") << QStringList{"vx/2/Gain|0|6162"};
        QTest::newRow("blob longer than the datagram")
            << gain + B(",b\0\0\xff\xff\xff\xf0\1\2\3") << QStringList{"vx/2/Gain|0|010203"};
        QTest::newRow("truncated bundle header") << B("#bund") << QStringList();
        QTest::newRow("address without NUL") << B("/vx/2/Ga") << QStringList();
    }
    void scanner()
    {
        QFETCH(QByteArray, datagram);
        QFETCH(QStringList, delivered);
        QCOMPARE(scan(datagram), delivered);
    }

    void parseUnknownTags()
    {
        QByteArray data = B("\1\2\3\4\5\6\7\x08");
        QDataStream stream(data);
        QCOMPARE(packetParseAsInt(stream, 's'), 0);
        QCOMPARE(packetParseAsUInt(stream, 'i'), 0u);
        QCOMPARE(packetParseAsBuffer(stream, 'i'), QByteArray());
        QCOMPARE(g_log, QStringList({"Received OSC Data with unparseable syntax 115",
                                     "Received OSC Data with unparseable syntax 105",
                                     "Received OSC Data with unparseable syntax 105"}));
        QVERIFY(!stream.atEnd()); // nothing consumed
    }

    // What we send reads back through our own scanner.
    void roundTrip_data()
    {
        QTest::addColumn<char>("tag");
        QTest::addColumn<int>("value");
        QTest::addColumn<QByteArray>("text");
        QTest::addColumn<QString>("delivered");
        QTest::newRow("i") << 'i' << -123456 << QByteArray() << "vx/4/P|-123456|";
        QTest::newRow("h") << 'h' << -5 << QByteArray() << "vx/4/P|-5|";
        QTest::newRow("f") << 'f' << 77 << QByteArray() << "vx/4/P|77|";
        QTest::newRow("d") << 'd' << -9 << QByteArray() << "vx/4/P|-9|";
        QTest::newRow("T false still reads as true") << 'T' << 0 << QByteArray() << "vx/4/P|1|";
        QTest::newRow("s") << 's' << 0 << B("Studio 1") << "vx/4/P|0|53747564696f2031";
        QTest::newRow("b with NULs") << 'b' << 6 << B("\0\x3c\0\x50\1\0") << "vx/4/P|0|003c00500100";
    }
    void roundTrip()
    {
        QFETCH(char, tag);
        QFETCH(int, value);
        QFETCH(QByteArray, text);
        QFETCH(QString, delivered);
        OSC osc;
        OSC::__PARAM param{0x100, "/root/P", 'P', tag, 0};
        osc.parameterAdd(param);
        QByteArray packet;
        osc.packetBuild(packet, 4, 0x100, value, text.constData());
        QCOMPARE(packet.size() % 4, 0);
        QCOMPARE(scan(packet), QStringList{delivered});
    }

    // Every prefix of a valid bundle and a few thousand random datagrams: the scan ends, and every
    // delivery is backed by at least one byte of the datagram.
    void garbage()
    {
        const QByteArray msg = address("/vx/1/Gain") + B(",b\0\0") + be32(4) + B("\1\2\3\4");
        const QByteArray bundle = B("#bundle\0") + be32(1) + be32(1) + be32(quint32(msg.size())) + msg +
                                  be32(quint32(msg.size())) + msg;
        for (int n = 0; n <= bundle.size(); n++)
            QVERIFY(scan(bundle.left(n)).size() <= 2);

        QRandomGenerator random(20240601);
        const char alphabet[] = {',', '/', '#', 'i', 's', 'b', 'f',  'd',
                                 'h', 't', 'c', '[', ']', 'T', '\0', '\xff'};
        for (int round = 0; round < 3000; round++) {
            QByteArray datagram(int(random.bounded(0, 96)), '\0');
            for (char &byte : datagram)
                byte = random.bounded(2) ? alphabet[random.bounded(int(sizeof(alphabet)))]
                                         : char(random.generate());
            QVERIFY(scan(datagram).size() <= datagram.size());
        }
    }
};

QTEST_GUILESS_MAIN(TestOscCodec)
#include "tst_osccodec.moc"
