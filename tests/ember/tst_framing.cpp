#include "ember/framing.h"
#include "ember/glowwriter.h"
#include "emberhookcapture.h"

#include <QtTest>

// S101 framing: the keep-alive vectors, escaping of every framing byte, and the unframing reader
// on garbage, restarts, bad CRCs, invalid bytes, oversized frames and any split of the stream.
class TestFraming : public QObject
{
    Q_OBJECT

    struct Collector
    {
        QList<QByteArray> packages;
        static void onPackage(const unsigned char *p, int n, void *state)
        {
            static_cast<Collector *>(state)->packages.append(bytesOf(p, n));
        }
    };

    // Feeds stream in pieces of chunk bytes (the whole at once for 0) to a reader on a buffer of
    // capacity bytes, and returns the packages it delivered.
    static QList<QByteArray> unframe(const QByteArray &stream, int chunk = 0, int capacity = 1024)
    {
        QByteArray buffer(capacity, 0);
        Collector collector;
        SEmberFramingReader reader;
        emberFramingReader_init(&reader, reinterpret_cast<unsigned char *>(buffer.data()), capacity,
                                Collector::onPackage, &collector);
        const auto *p = reinterpret_cast<const unsigned char *>(stream.constData());
        const int step = chunk > 0 ? chunk : qMax(1, stream.size());
        for (int i = 0; i < stream.size(); i += step)
            emberFramingReader_readBytes(&reader, p + i, qMin(step, stream.size() - i));
        emberFramingReader_free(&reader);
        return collector.packages;
    }

    // One data package with the given payload, framed by the framing output.
    static QByteArray frame(const QByteArray &payload, unsigned char flags = 0xC0, unsigned char slot = 0)
    {
        unsigned char buffer[1024];
        SBerFramingOutput output;
        const unsigned char app[] = {0x14, 0x02};
        berFramingOutput_init(&output, buffer, sizeof(buffer), slot, 0x01, app, 2);
        berFramingOutput_writeHeader(&output, flags);
        output.base.base.writeBytes(
            &output.base.base, reinterpret_cast<const unsigned char *>(payload.constData()), payload.size());
        const int length = berFramingOutput_finish(&output);
        return bytesOf(buffer, length);
    }

    static QByteArray header(unsigned char flags = 0xC0)
    {
        return QByteArray::fromHex("000e0001") + char(flags) + QByteArray::fromHex("01021402");
    }

private slots:
    void init() { EmberHookCapture::install(); }
    void cleanup() { QCOMPARE(EmberHookCapture::allocations(), 0); }

    void keepAlives()
    {
        unsigned char buffer[16];
        int n = emberFraming_writeKeepAliveRequest(buffer, sizeof(buffer), 0);
        QCOMPARE(bytesOf(buffer, n), QByteArray::fromHex("fe000e010194e4ff"));
        n = emberFraming_writeKeepAliveResponse(buffer, sizeof(buffer), 0);
        QCOMPARE(bytesOf(buffer, n), QByteArray::fromHex("fe000e0201fddcceff"));
        QCOMPARE(emberFraming_writeKeepAliveResponse(buffer, 8, 0), 0); // too small: nothing written
        // The reader hands keep-alives over as four-byte packages with their slot.
        n = emberFraming_writeKeepAliveRequest(buffer, sizeof(buffer), 7);
        QCOMPARE(unframe(bytesOf(buffer, n)), QList<QByteArray>{QByteArray::fromHex("070e0101")});
    }

    void escapes_data()
    {
        QTest::addColumn<QByteArray>("payload");
        QTest::addColumn<QByteArray>("escaped");
        QTest::newRow("BOF") << QByteArray::fromHex("fe") << QByteArray::fromHex("fdde");
        QTest::newRow("EOF") << QByteArray::fromHex("ff") << QByteArray::fromHex("fddf");
        QTest::newRow("CE") << QByteArray::fromHex("fd") << QByteArray::fromHex("fddd");
        QTest::newRow("F8") << QByteArray::fromHex("f8") << QByteArray::fromHex("fdd8");
        QTest::newRow("plain") << QByteArray::fromHex("f7") << QByteArray::fromHex("f7");
    }
    void escapes()
    {
        QFETCH(QByteArray, payload);
        QFETCH(QByteArray, escaped);
        const QByteArray framed = frame(payload);
        QVERIFY(framed.startsWith(QByteArray(1, char(0xFE)) + header()));
        QCOMPARE(framed.mid(1 + header().size(), escaped.size()), escaped);
        QCOMPARE(unframe(framed), QList<QByteArray>{header() + payload});
    }

    void dataPackagesUseSlotZero() { QCOMPARE(frame("x", 0xC0, 9).at(1), char(0)); }

    // Garbage before BOF, a restart inside a frame, a bad CRC, an EOF right after BOF and an
    // unescaped invalid byte; only the good frames come through, at any split of the stream.
    void unframing()
    {
        const QByteArray good1 = frame(QByteArray::fromHex("6080fefdff0000"));
        const QByteArray good2 = frame(QByteArray(300, 'a'));
        QByteArray badCrc = frame("abc");
        badCrc[badCrc.size() - 2] = char(badCrc.at(badCrc.size() - 2) ^ 1);
        QByteArray invalid = frame("abc");
        invalid.insert(5, char(0xF9));

        const QByteArray stream = QByteArray::fromHex("0102ff0311") + good1 + QByteArray::fromHex("fe0102") +
                                  good2 + badCrc + QByteArray::fromHex("feff") + invalid + good1;
        const QList<QByteArray> expected{header() + QByteArray::fromHex("6080fefdff0000"),
                                         header() + QByteArray(300, 'a'),
                                         header() + QByteArray::fromHex("6080fefdff0000")};
        for (int chunk : {0, 1, 2, 3, 7, 64})
            QCOMPARE(unframe(stream, chunk), expected);
        QVERIFY(EmberHookCapture::errors().isEmpty());
    }

    // A frame longer than the buffer: each extra byte raises 401 and is lost; with the CRC still
    // right, the frame comes through cut to the buffer.
    void overrun()
    {
        const QByteArray framed = frame(QByteArray(40, 'b'));
        const QList<QByteArray> packages = unframe(framed, 0, 32);
        QCOMPARE(packages.size(), 1);
        QCOMPARE(packages.first().size(), 32 - 3);
        QCOMPARE(EmberHookCapture::errors(), QVector<int>(1 + 9 + 40 + 2 - 32, 401).toList());
    }

    // An outgoing frame that does not fit: 304 per lost byte, and the capacity stays at 1,024.
    void outputCapacity()
    {
        unsigned char small[10]; // BOF, 7 header bytes, CRC and EOF take 11
        SBerFramingOutput output;
        berFramingOutput_init(&output, small, sizeof(small), 0, 1, nullptr, 0);
        berFramingOutput_writeHeader(&output, 0xC0);
        QCOMPARE(berFramingOutput_finish(&output), 10);
        QCOMPARE(EmberHookCapture::errors(), (QList<int>{304}));

        QByteArray big(4096, 0);
        SGlowOutput glow;
        glowOutput_init(&glow, reinterpret_cast<unsigned char *>(big.data()), big.size(), 0);
        QCOMPARE(glow.base.base.size, 1024);
    }
};

QTEST_APPLESS_MAIN(TestFraming)
#include "tst_framing.moc"
