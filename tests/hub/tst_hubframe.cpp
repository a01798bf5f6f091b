#include "hub/hubframe.h"

#include <QtTest>

// The frame layout, and the reader at every split of its input: whole frames out, oversized ones
// skipped without being buffered, the stream still in step afterwards.
class TestHubFrame : public QObject
{
    Q_OBJECT

private:
    struct Seen
    {
        QList<QByteArray> payloads;
        QList<quint32> skipped;
    };

    static Seen readAll(const QByteArray &stream, int chunk, int maxPayload)
    {
        HubFrameReader reader(maxPayload);
        Seen seen;
        HubFrame frame;
        for (int at = 0; at < stream.size(); at += chunk) {
            reader.feed(stream.mid(at, chunk));
            for (;;) {
                const HubFrameReader::Result result = reader.next(&frame);
                if (result == HubFrameReader::NeedMore)
                    break;
                if (result == HubFrameReader::Skipped)
                    seen.skipped.append(frame.count);
                else
                    seen.payloads.append(frame.payload);
            }
        }
        return seen;
    }

private slots:
    void layout()
    {
        const QByteArray frame = hubFrame_encode("abc", 3, 2);
        QCOMPARE(frame.toHex(), QByteArray("00000003"
                                           "0003"
                                           "0002"
                                           "00000003"
                                           "616263"));
        QCOMPARE(hubFrame_encode(QByteArray(), 0xFFFF, 1).toHex(), QByteArray("00000000"
                                                                              "ffff"
                                                                              "0001"
                                                                              "ffffffff"));
    }

    void everySplit_data()
    {
        QTest::addColumn<int>("chunk");
        for (int chunk : {1, 2, 3, 5, 11, 12, 13, 64, 4096, 1 << 20})
            QTest::newRow(qPrintable(QString::number(chunk))) << chunk;
    }
    void everySplit()
    {
        QFETCH(int, chunk);
        QByteArray stream;
        stream += hubFrame_encode("first", 0, 1);
        stream += hubFrame_encode(QByteArray(300, 'o'), 2, 1); // over the limit of 256 below
        stream += hubFrame_encode(QByteArray(), 0, 3);         // a null array counts 0 bytes
        stream += hubFrame_encode(QByteArray(256, 'x'), 4, 1);
        stream += hubFrame_encode("last", 0, 1);

        const Seen seen = readAll(stream, chunk, 256);
        QCOMPARE(seen.skipped, QList<quint32>{300});
        QCOMPARE(seen.payloads, (QList<QByteArray>{"first", QByteArray(), QByteArray(256, 'x'), "last"}));
    }

    void headerFields()
    {
        HubFrameReader reader(100);
        reader.feed(hubFrame_encode("hi", 7, 99));
        HubFrame frame;
        QCOMPARE(reader.next(&frame), HubFrameReader::Frame);
        QCOMPARE(frame.size, 2);
        QCOMPARE(frame.target, quint16(7));
        QCOMPARE(frame.source, quint16(99));
        QCOMPARE(frame.raw, hubFrame_encode("hi", 7, 99));
        QCOMPARE(reader.next(&frame), HubFrameReader::NeedMore);
        QCOMPARE(reader.buffered(), 0);
    }

    // A hostile count of 4 GB is skipped as bytes arrive, never held.
    void hugeCountIsNotBuffered()
    {
        HubFrameReader reader(16383);
        QByteArray header = QByteArray::fromHex("00000010"
                                                "0000"
                                                "0001"
                                                "fffffff0");
        reader.feed(header + QByteArray(100000, 'z'));
        HubFrame frame;
        QCOMPARE(reader.next(&frame), HubFrameReader::Skipped);
        QCOMPARE(frame.count, 0xFFFFFFF0u);
        QCOMPARE(reader.buffered(), 0);
        reader.feed(QByteArray(100000, 'z'));
        QCOMPARE(reader.next(&frame), HubFrameReader::NeedMore);
        QCOMPARE(reader.buffered(), 0);
    }
};

QTEST_GUILESS_MAIN(TestHubFrame)
#include "tst_hubframe.moc"
