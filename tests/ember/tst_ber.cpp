#include "ember/ber.h"
#include "ember/berreader.h"
#include "ember/bytebuffer.h"
#include "emberhookcapture.h"

#include <QTemporaryFile>
#include <QtTest>
#include <cmath>
#include <cstring>

// The BER codecs against the byte vectors of the encoding, the REAL form round trip, and the
// error of every decoder on input that must raise it.
class TestBer : public QObject
{
    Q_OBJECT

    template <typename F>
    static QByteArray encode(F write)
    {
        unsigned char buffer[64];
        SBerMemoryOutput output;
        berMemoryOutput_init(&output, buffer, sizeof(buffer));
        write(&output.base);
        return bytesOf(buffer, output.position);
    }

    // An item as the BER reader holds it after reading a primitive.
    struct Item
    {
        SBerReader reader;
        Item(bertype_t type, const QByteArray &value)
        {
            berReader_init(&reader);
            reader.type = type;
            reader.length = value.size();
            for (char c : value)
                byteBuffer_add(&reader.buffer, static_cast<unsigned char>(c));
        }
        ~Item() { berReader_free(&reader); }
    };

private slots:
    void init() { EmberHookCapture::install(); }
    void cleanup() { QCOMPARE(EmberHookCapture::allocations(), 0); }

    void tags_data()
    {
        QTest::addColumn<int>("preamble");
        QTest::addColumn<int>("number");
        QTest::addColumn<QByteArray>("bytes");
        QTest::newRow("context 0 constructed") << 0xA0 << 0 << QByteArray::fromHex("a0");
        QTest::newRow("application 11 constructed") << 0x60 << 11 << QByteArray::fromHex("6b");
        QTest::newRow("universal integer") << 0x00 << 2 << QByteArray::fromHex("02");
        QTest::newRow("context 30") << 0x80 << 30 << QByteArray::fromHex("9e");
        QTest::newRow("context 31 constructed") << 0xA0 << 31 << QByteArray::fromHex("bf1f");
        QTest::newRow("context 128 constructed") << 0xA0 << 128 << QByteArray::fromHex("bf8100");
        QTest::newRow("context 16383") << 0x80 << 16383 << QByteArray::fromHex("9fff7f");
    }
    void tags()
    {
        QFETCH(int, preamble);
        QFETCH(int, number);
        QFETCH(QByteArray, bytes);
        const SBerTag tag =
            berTag_make(static_cast<unsigned char>(preamble), static_cast<unsigned int>(number));
        QCOMPARE(encode([&](SBerOutput *o) { ber_encodeTag(o, tag); }), bytes);
        QCOMPARE(ber_getTagLength(tag), bytes.size());
        SBerMemoryInput input;
        berMemoryInput_init(&input, reinterpret_cast<const unsigned char *>(bytes.constData()), bytes.size());
        const SBerTag decoded = ber_decodeTag(&input.base);
        QCOMPARE(int(decoded.preamble), preamble);
        QCOMPARE(int(decoded.number), number);
    }

    void lengths_data()
    {
        QTest::addColumn<int>("length");
        QTest::addColumn<QByteArray>("bytes");
        QTest::newRow("indefinite") << -1 << QByteArray::fromHex("80");
        QTest::newRow("0") << 0 << QByteArray::fromHex("00");
        QTest::newRow("127") << 127 << QByteArray::fromHex("7f");
        QTest::newRow("128") << 128 << QByteArray::fromHex("820080");
        QTest::newRow("255") << 255 << QByteArray::fromHex("8200ff");
        QTest::newRow("256") << 256 << QByteArray::fromHex("820100");
        QTest::newRow("65536") << 65536 << QByteArray::fromHex("83010000");
    }
    void lengths()
    {
        QFETCH(int, length);
        QFETCH(QByteArray, bytes);
        QCOMPARE(encode([&](SBerOutput *o) { ber_encodeLength(o, length); }), bytes);
        if (length >= 0)
            QCOMPARE(ber_getLengthLength(length), bytes.size());
        SBerMemoryInput input;
        berMemoryInput_init(&input, reinterpret_cast<const unsigned char *>(bytes.constData()), bytes.size());
        QCOMPARE(ber_decodeLength(&input.base), length);
        QVERIFY(EmberHookCapture::errors().isEmpty());
    }

    void integers_data()
    {
        QTest::addColumn<qint64>("value");
        QTest::addColumn<QByteArray>("bytes");
        QTest::newRow("0") << qint64(0) << QByteArray::fromHex("00");
        QTest::newRow("127") << qint64(127) << QByteArray::fromHex("7f");
        QTest::newRow("128") << qint64(128) << QByteArray::fromHex("0080");
        QTest::newRow("-1") << qint64(-1) << QByteArray::fromHex("ff");
        QTest::newRow("-128") << qint64(-128) << QByteArray::fromHex("80");
        QTest::newRow("-129") << qint64(-129) << QByteArray::fromHex("ff7f");
        QTest::newRow("int32 max") << qint64(INT32_MAX) << QByteArray::fromHex("7fffffff");
        QTest::newRow("int32 min") << qint64(INT32_MIN) << QByteArray::fromHex("80000000");
        QTest::newRow("2^32") << qint64(1) * 0x100000000LL << QByteArray::fromHex("0100000000");
        QTest::newRow("int64 min") << qint64(INT64_MIN) << QByteArray::fromHex("8000000000000000");
    }
    void integers()
    {
        QFETCH(qint64, value);
        QFETCH(QByteArray, bytes);
        QCOMPARE(encode([&](SBerOutput *o) { ber_encodeLong(o, value, ber_getLongLength(value)); }), bytes);
        Item item(BerType_Integer, bytes);
        QCOMPARE(qint64(berReader_getLong(&item.reader)), value);
        if (value >= INT32_MIN && value <= INT32_MAX) {
            QCOMPARE(ber_getIntegerLength(int32_t(value)), bytes.size());
            QCOMPARE(qint64(berReader_getInteger(&item.reader)), value);
        }
        QVERIFY(EmberHookCapture::errors().isEmpty());
    }

    void reals_data()
    {
        QTest::addColumn<double>("value");
        QTest::addColumn<QByteArray>("bytes");
        QTest::newRow("1.0") << 1.0 << QByteArray::fromHex("800001");
        QTest::newRow("0.0") << 0.0 << QByteArray();
        QTest::newRow("+inf") << double(INFINITY) << QByteArray::fromHex("40");
        // The exponent stays the IEEE one: 3.0 = 1.1b * 2^1 gives exponent 1, mantissa 3.
        QTest::newRow("3.0") << 3.0 << QByteArray::fromHex("800103");
        QTest::newRow("-0.5") << -0.5 << QByteArray::fromHex("c0ff01");
        QTest::newRow("1024.0") << 1024.0 << QByteArray::fromHex("800a01");
        QTest::newRow("2^200") << std::ldexp(1.0, 200)
                               << QByteArray::fromHex("8100c801"); // two exponent octets
    }
    void reals()
    {
        QFETCH(double, value);
        QFETCH(QByteArray, bytes);
        QCOMPARE(encode([&](SBerOutput *o) { ber_encodeReal(o, value); }), bytes);
        Item item(BerType_Real, bytes);
        QCOMPARE(berReader_getReal(&item.reader), value);
        QVERIFY(EmberHookCapture::errors().isEmpty());
    }

    // Whatever the bits, our decoder gives back what our encoder was given.
    void realRoundTrip()
    {
        const double values[] = {0.1,       -123.456, 1e-300, 4.9e-324, 1.7976931348623157e308,
                                 -INFINITY, 440.0,    -0.0};
        for (double value : values) {
            const QByteArray bytes = encode([&](SBerOutput *o) { ber_encodeReal(o, value); });
            Item item(BerType_Real, bytes);
            const double decoded = berReader_getReal(&item.reader);
            QCOMPARE(memcmp(&decoded, &value, sizeof(double)), 0);
        }
        // The fixed minus-infinity pattern is 0x41 and reads back as minus infinity.
        uint64_t bits = 0x8FF0000000000000ULL;
        double odd;
        memcpy(&odd, &bits, sizeof(odd));
        QCOMPARE(encode([&](SBerOutput *o) { ber_encodeReal(o, odd); }), QByteArray::fromHex("41"));
        QVERIFY(EmberHookCapture::errors().isEmpty());
    }

    void strings()
    {
        QCOMPARE(encode([](SBerOutput *o) { ber_encodeString(o, "root"); }), QByteArray("root"));
        const unsigned char octets[] = {0, 1, 0, 0xFF};
        QCOMPARE(encode([&](SBerOutput *o) { ber_encodeOctetString(o, octets, 4); }), bytesOf(octets, 4));
        QCOMPARE(encode([](SBerOutput *o) { ber_encodeBoolean(o, true); }), QByteArray::fromHex("ff"));

        Item text(BerType_UTF8String, QByteArray("Jitter buffer"));
        char out[8];
        QCOMPARE(berReader_getString(&text.reader, out, sizeof(out)), 7); // cut to the caller's size
        QCOMPARE(QByteArray(out), QByteArray("Jitter "));
    }

    void relativeOids_data()
    {
        QTest::addColumn<QList<int>>("path");
        QTest::addColumn<QByteArray>("bytes");
        QTest::newRow("0.2.5") << QList<int>{0, 2, 5} << QByteArray::fromHex("000205");
        QTest::newRow("200") << QList<int>{200} << QByteArray::fromHex("8148");
        QTest::newRow("1.16384") << QList<int>{1, 16384} << QByteArray::fromHex("01818000");
    }
    void relativeOids()
    {
        QFETCH(QList<int>, path);
        QFETCH(QByteArray, bytes);
        QVector<int> numbers = path.toVector();
        QCOMPARE(
            encode([&](SBerOutput *o) { ber_encodeRelativeOid(o, numbers.constData(), numbers.size()); }),
            bytes);
        QCOMPARE(ber_getRelativeOidLength(numbers.constData(), numbers.size()), bytes.size());
        Item item(BerType_RelativeOid, bytes);
        int decoded[8];
        const int count = berReader_getRelativeOid(&item.reader, decoded, 8);
        QCOMPARE(QList<int>(decoded, decoded + count), path);
        // The capacity bounds the count.
        QCOMPARE(berReader_getRelativeOid(&item.reader, decoded, 1), 1);
    }

    void headerLength()
    {
        const SBerTag tag = berTag_make(BerClass_Context, 0);
        QCOMPARE(ber_getHeaderLength(tag, 5), 2);
        QCOMPARE(ber_getHeaderLength(tag, 128), 4);
        QCOMPARE(ber_getHeaderLength(berTag_make(BerClass_Context, 31), 300), 5);
        QCOMPARE(berTag_numberAsType(berTag_make(BerClass_Application, 9)), bertype_t(0x8009));
        QCOMPARE(berTag_numberAsType(berTag_make(BerClass_Universal, 17)), bertype_t(17));
    }

    // Every value error is raised by an item that must raise it, and the getter gives zero.
    void valueErrors_data()
    {
        QTest::addColumn<int>("type");
        QTest::addColumn<QByteArray>("value");
        QTest::addColumn<int>("getter");
        QTest::addColumn<int>("error");
        QTest::newRow("boolean of 2 bytes")
            << int(BerType_Boolean) << QByteArray::fromHex("ff00") << 0 << 201;
        QTest::newRow("integer of 5 bytes")
            << int(BerType_Integer) << QByteArray::fromHex("0100000000") << 1 << 202;
        QTest::newRow("integer of 0 bytes") << int(BerType_Integer) << QByteArray() << 1 << 202;
        QTest::newRow("long of 9 bytes") << int(BerType_Integer) << QByteArray(9, 1) << 2 << 203;
        QTest::newRow("decimal real") << int(BerType_Real) << QByteArray::fromHex("0331") << 3 << 204;
        QTest::newRow("real base 8") << int(BerType_Real) << QByteArray::fromHex("900001") << 3 << 204;
        QTest::newRow("real without mantissa")
            << int(BerType_Real) << QByteArray::fromHex("8000") << 3 << 204;
        QTest::newRow("string from integer") << int(BerType_Integer) << QByteArray::fromHex("01") << 4 << 205;
        QTest::newRow("octets from string") << int(BerType_UTF8String) << QByteArray("x") << 5 << 206;
        QTest::newRow("oid cut short") << int(BerType_RelativeOid) << QByteArray::fromHex("0081") << 6 << 207;
        QTest::newRow("oid from integer") << int(BerType_Integer) << QByteArray::fromHex("01") << 6 << 207;
    }
    void valueErrors()
    {
        QFETCH(int, type);
        QFETCH(QByteArray, value);
        QFETCH(int, getter);
        QFETCH(int, error);
        Item item(bertype_t(type), value);
        char text[8];
        unsigned char octets[8];
        int path[8];
        switch (getter) {
        case 0:
            QCOMPARE(berReader_getBoolean(&item.reader), false);
            break;
        case 1:
            QCOMPARE(berReader_getInteger(&item.reader), 0);
            break;
        case 2:
            QCOMPARE(berReader_getLong(&item.reader), int64_t(0));
            break;
        case 3:
            QCOMPARE(berReader_getReal(&item.reader), 0.0);
            break;
        case 4:
            QCOMPARE(berReader_getString(&item.reader, text, sizeof(text)), 0);
            break;
        case 5:
            QCOMPARE(berReader_getOctetString(&item.reader, octets, sizeof(octets)), 0);
            break;
        default:
            berReader_getRelativeOid(&item.reader, path, 8);
            break;
        }
        QCOMPARE(EmberHookCapture::errors(), QList<int>{error});
    }

    void inputAndOutputErrors()
    {
        // 301: a memory input read past its end.
        const unsigned char one[] = {0x05};
        SBerMemoryInput input;
        berMemoryInput_init(&input, one, 1);
        QCOMPARE(ber_decodeInteger(&input.base, 2), 0x0500);
        QCOMPARE(EmberHookCapture::errors(), QList<int>{301});

        // 302: a file input read past its end.
        EmberHookCapture::clear();
        QTemporaryFile file;
        QVERIFY(file.open());
        file.write("\x02", 1);
        file.flush();
        FILE *pFile = fopen(file.fileName().toLocal8Bit().constData(), "rb");
        QVERIFY(pFile != nullptr);
        SBerFileInput fileInput;
        berFileInput_init(&fileInput, pFile);
        QCOMPARE(ber_decodeTag(&fileInput.base).number, 2u);
        QVERIFY(!fileInput.base.isEof(&fileInput.base) || EmberHookCapture::errors().isEmpty());
        ber_decodeLength(&fileInput.base);
        QCOMPARE(EmberHookCapture::errors(), QList<int>{302});
        fclose(pFile);

        // 304: a memory output written past its capacity keeps what fits.
        EmberHookCapture::clear();
        unsigned char small[2];
        SBerMemoryOutput output;
        berMemoryOutput_init(&output, small, sizeof(small));
        ber_encodeLong(&output.base, 0x010203, 3);
        QCOMPARE(output.position, 2);
        QCOMPARE(bytesOf(small, 2), QByteArray::fromHex("0102"));
        QCOMPARE(EmberHookCapture::errors(), QList<int>{304});

        // 401: a fixed byte buffer that is full drops the byte; a growable one grows.
        EmberHookCapture::clear();
        unsigned char storage[1];
        SByteBuffer fixed;
        byteBuffer_init(&fixed, storage, 1);
        QVERIFY(byteBuffer_add(&fixed, 1));
        QVERIFY(!byteBuffer_add(&fixed, 2));
        QCOMPARE(EmberHookCapture::errors(), QList<int>{401});
        SByteBuffer dynamic;
        byteBuffer_initDynamic(&dynamic, 0);
        for (int i = 0; i < 300; i++)
            QVERIFY(byteBuffer_add(&dynamic, static_cast<unsigned char>(i)));
        QCOMPARE(dynamic.length, 300);
        QCOMPARE(int(dynamic.pMemory[299]), 299 & 0xFF);
        byteBuffer_free(&dynamic);
        QCOMPARE(EmberHookCapture::errors(), QList<int>{401});

        // 104: more than four length octets, and lengths that do not fit an int.
        EmberHookCapture::clear();
        const unsigned char longLength[] = {0x85, 1, 0, 0, 0, 0};
        berMemoryInput_init(&input, longLength, sizeof(longLength));
        QCOMPARE(ber_decodeLength(&input.base), 0);
        const unsigned char hugeLength[] = {0x84, 0xFF, 0xFF, 0xFF, 0xFF};
        berMemoryInput_init(&input, hugeLength, sizeof(hugeLength));
        QCOMPARE(ber_decodeLength(&input.base), 0);
        QCOMPARE(EmberHookCapture::errors(), (QList<int>{104, 104}));
    }
};

QTEST_APPLESS_MAIN(TestBer)
#include "tst_ber.moc"
