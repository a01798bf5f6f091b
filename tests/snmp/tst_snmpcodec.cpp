#include "snmp/snmpcodec.h"

#include <QDataStream>
#include <QtTest>
#include <climits>
#include <cstring>

// The byte vectors of the encoders and decoders, including the non-minimal unsigned form, the
// single-byte OID length and the lone tag of an unsupported type.
class TestSnmpCodec : public QObject
{
    Q_OBJECT

private:
    static QByteArray hex(const char *text) { return QByteArray::fromHex(QByteArray(text).replace(' ', "")); }

private slots:
    void sizeEncoded_data()
    {
        QTest::addColumn<quint32>("n");
        QTest::addColumn<QByteArray>("bytes");
        QTest::newRow("0") << 0u << hex("00");
        QTest::newRow("127") << 127u << hex("7F");
        QTest::newRow("128") << 128u << hex("81 80");
        QTest::newRow("255") << 255u << hex("81 FF");
        QTest::newRow("256") << 256u << hex("82 01 00");
        QTest::newRow("65535") << 65535u << hex("82 FF FF");
        QTest::newRow("65536") << 65536u << hex("83 01 00 00");
        QTest::newRow("16777216") << 16777216u << hex("84 01 00 00 00");
    }
    void sizeEncoded()
    {
        QFETCH(quint32, n);
        QFETCH(QByteArray, bytes);
        QByteArray out("x");
        QCOMPARE(pduSizeBERencoded(out, n), bytes.size());
        QCOMPARE(out, "x" + bytes);

        QDataStream stream(bytes);
        QCOMPARE(pduSizeBERdecode(stream), n);
        QVERIFY(stream.atEnd());
    }

    void unsignedEncoded_data()
    {
        QTest::addColumn<quint32>("value");
        QTest::addColumn<QByteArray>("bytes");
        QTest::newRow("0") << 0u << hex("01 00");
        QTest::newRow("200 without leading zero") << 200u << hex("01 C8");
        QTest::newRow("255") << 255u << hex("01 FF");
        QTest::newRow("256") << 256u << hex("02 01 00");
        QTest::newRow("40000") << 40000u << hex("02 9C 40");
        QTest::newRow("0xFFFFFF") << 0xFFFFFFu << hex("03 FF FF FF");
        QTest::newRow("0x7FFFFFFF") << 0x7FFFFFFFu << hex("04 7F FF FF FF");
        QTest::newRow("2147483648") << 2147483648u << hex("05 00 80 00 00 00");
        QTest::newRow("0xFFFFFFFF") << 0xFFFFFFFFu << hex("05 00 FF FF FF FF");
    }
    void unsignedEncoded()
    {
        QFETCH(quint32, value);
        QFETCH(QByteArray, bytes);
        QByteArray out;
        QCOMPARE(pduValueBERencoded(out, unsigned(value)), bytes.size());
        QCOMPARE(out, bytes);

        // The decoder reads its own encoding back, the leading zero of length 5 included.
        QDataStream stream(bytes);
        const quint32 n = pduSizeBERdecode(stream);
        QCOMPARE(pduValueBERdecode(stream, n), value);
        QVERIFY(stream.atEnd());
    }

    void signedEncoded_data()
    {
        QTest::addColumn<int>("value");
        QTest::addColumn<QByteArray>("bytes");
        QTest::newRow("0") << 0 << hex("01 00");
        QTest::newRow("127") << 127 << hex("01 7F");
        QTest::newRow("128") << 128 << hex("02 00 80");
        QTest::newRow("-1") << -1 << hex("01 FF");
        QTest::newRow("-128") << -128 << hex("01 80");
        QTest::newRow("-129") << -129 << hex("02 FF 7F");
        QTest::newRow("32768") << 32768 << hex("03 00 80 00");
        QTest::newRow("INT_MAX") << INT_MAX << hex("04 7F FF FF FF");
        QTest::newRow("INT_MIN") << INT_MIN << hex("04 80 00 00 00");
    }
    void signedEncoded()
    {
        QFETCH(int, value);
        QFETCH(QByteArray, bytes);
        QByteArray out;
        QCOMPARE(pduValueBERencoded(out, value), bytes.size());
        QCOMPARE(out, bytes);
    }

    void decoders_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<quint32>("length");
        QTest::addColumn<quint32>("value");
        QTest::addColumn<bool>("complete");
        QTest::newRow("no content") << hex("00") << 0u << 0u << true;
        QTest::newRow("-1 reads as 255, no sign extension") << hex("01 FF") << 1u << 255u << true;
        QTest::newRow("indefinite length is 0") << hex("80 AA") << 0u << 0u << false;
        QTest::newRow("long-form length") << hex("81 02 01 2C") << 2u << 300u << true;
        QTest::newRow("six bytes keep the low 32 bits")
            << hex("06 01 02 03 04 05 06") << 6u << 0x03040506u << true;
        QTest::newRow("content cut short") << hex("04 01 02") << 4u << 0x10200u << false;
        QTest::newRow("length cut short") << hex("82 01") << 256u << 0u << false;
        QTest::newRow("huge length, no data") << hex("84 FF FF FF FF 01") << 0xFFFFFFFFu << 0x100u << false;
        QTest::newRow("length of 127 bytes, none there") << hex("FF") << 0u << 0u << false;
    }
    void decoders()
    {
        QFETCH(QByteArray, bytes);
        QFETCH(quint32, length);
        QFETCH(quint32, value);
        QFETCH(bool, complete);
        QDataStream stream(bytes);
        const quint32 n = pduSizeBERdecode(stream);
        QCOMPARE(n, length);
        QCOMPARE(pduValueBERdecode(stream, n), value);
        QCOMPARE(stream.status() == QDataStream::Ok && stream.atEnd(), complete);
    }

    void blockSize()
    {
        // A constructed element gets its length inserted after the fact, innermost first.
        QByteArray out("\x30", 1);
        const int outer = out.size();
        out.append('\x30');
        const int inner = out.size();
        out.append(QByteArray(130, 'a'));
        QCOMPARE(pduSetBlockSize(out, inner), 2);
        QCOMPARE(pduSetBlockSize(out, outer), 2);
        QCOMPARE(out.left(6), hex("30 81 85 30 81 82"));
        QCOMPARE(out.size(), 6 + 130);
    }

    void values_data()
    {
        QTest::addColumn<quint32>("type");
        QTest::addColumn<quint32>("number");
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<bool>("ok");
        QTest::newRow("INTEGER -1") << 0x02u << 0xFFFFFFFFu << hex("02 01 FF") << true;
        QTest::newRow("INTEGER 128") << 0x02u << 128u << hex("02 02 00 80") << true;
        QTest::newRow("NULL") << 0x05u << 0u << hex("05 00") << true;
        QTest::newRow("IpAddress") << 0x40u << 0xC0A80102u << hex("40 04 C0 A8 01 02") << true;
        QTest::newRow("Counter") << 0x41u << 300u << hex("41 02 01 2C") << true;
        QTest::newRow("TimeTicks") << 0x43u << 0x80000000u << hex("43 05 00 80 00 00 00") << true;
        QTest::newRow("application 7") << 0x47u << 200u << hex("47 01 C8") << true;
        QTest::newRow("Gauge: lone tag") << 0x42u << 5u << hex("42") << false;
        QTest::newRow("Opaque: lone tag") << 0x44u << 5u << hex("44") << false;
    }
    void values()
    {
        QFETCH(quint32, type);
        QFETCH(quint32, number);
        QFETCH(QByteArray, bytes);
        QFETCH(bool, ok);
        __VALUE value;
        std::memset(&value, 0, sizeof(value));
        value.type = type;
        value.length = type == 0x40 ? 4 : 0;
        value.v.number = number;
        if (!ok)
            QTest::ignoreMessage(QtWarningMsg,
                                 qPrintable(QString("SNMP setVB incorrect syntax %1").arg(type)));
        QByteArray out;
        QCOMPARE(pduAddValue(out, value), ok);
        QCOMPARE(out, bytes);
    }

    void strings()
    {
        __VALUE value;
        std::memset(&value, 0, sizeof(value));
        char text[] = "Studio 1";
        pduValueSetText(value, text);
        text[0] = 'X';                           // the record holds its own copy
        pduValueSetText(value, "Studio 2 long"); // the first copy is freed
        QCOMPARE(value.type, 0x04u);
        QCOMPARE(value.length, 13u);
        QByteArray out;
        QVERIFY(pduAddValue(out, value));
        QCOMPARE(out, hex("04 0D") + "Studio 2 long");

        // A string of 200 bytes gets a long-form length.
        pduValueSetText(value, QByteArray(200, 'z').constData());
        out.clear();
        pduAddValue(out, value);
        QCOMPARE(out.left(3), hex("04 81 C8"));
        QCOMPARE(out.size(), 203);

        pduValueSetText(value, ""); // an empty text is NULL
        QCOMPARE(value.type, 0x05u);
        QVERIFY(value.v.text == nullptr);
        pduValueFree(value);
    }

    void oids()
    {
        // As a name the length is one byte; as a value it is a BER length.
        __OID oid;
        std::memset(&oid, 0, sizeof(oid));
        const QByteArray bytes = hex("2B 06 01 04 01 81 FD 59 20 02");
        std::memcpy(oid.bytes, bytes.constData(), size_t(bytes.size()));
        oid.length = quint32(bytes.size());
        QByteArray out;
        QCOMPARE(pduAddOID(out, oid), 12);
        QCOMPARE(out, hex("06 0A") + bytes);

        __VB vb;
        std::memset(&vb, 0, sizeof(vb));
        vb.oid = oid;
        vb.value.type = 0x06;
        vb.value.v.oid = oid;
        out.clear();
        QVERIFY(pduAddVB(out, vb));
        QCOMPARE(out, hex("30 18 06 0A") + bytes + hex("06 0A") + bytes);
    }
};

QTEST_APPLESS_MAIN(TestSnmpCodec)
#include "tst_snmpcodec.moc"
