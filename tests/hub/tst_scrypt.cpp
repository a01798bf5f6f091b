#include "hub/scrypt.h"

#include <QtTest>

// The frame cipher: its checksum, its key text, round trips and what it must refuse.
class TestSCrypt : public QObject
{
    Q_OBJECT

private:
    static void hubKey(SCrypt &cipher)
    {
        cipher.setKey(reinterpret_cast<const unsigned char *>("58270413"), 8, false);
    }

private slots:
    void crc_data()
    {
        QTest::addColumn<QByteArray>("data");
        QTest::addColumn<uint>("crc");
        QTest::newRow("check value") << QByteArray("123456789") << 0x29B1u;
        QTest::newRow("empty") << QByteArray() << 0xFFFFu;
        QTest::newRow("A") << QByteArray("A") << 0xB915u;
        QTest::newRow("zero byte") << QByteArray(1, '\0') << 0xE1F0u;
    }
    void crc()
    {
        QFETCH(QByteArray, data);
        QFETCH(uint, crc);
        QCOMPARE(SCrypt::crc16citt(data.constData(), uint(data.size())), crc);
    }

    void keys_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<QByteArray>("key");
        QTest::newRow("hub key") << QByteArray("58270413") << QByteArray("NTgyNzA0MTM=");
        QTest::newRow("one pad") << QByteArray("ab") << QByteArray("YWI=");
        QTest::newRow("two pads") << QByteArray("a") << QByteArray("YQ==");
        QTest::newRow("cut to 24") << QByteArray("0123456789abcdefghijklmnop")
                                   << QByteArray("MDEyMzQ1Njc4OWFiY2RlZmdo");
    }
    void keys()
    {
        QFETCH(QByteArray, bytes);
        QFETCH(QByteArray, key);
        SCrypt cipher;
        cipher.setKey(reinterpret_cast<const unsigned char *>(bytes.constData()), (unsigned long)bytes.size(),
                      true);
        QCOMPARE(QByteArray(cipher.key(), int(cipher.keyLength())), key);
        QCOMPARE(cipher.keyLength(), (unsigned long long)key.size());
    }

    void textKeyIsCutTo24()
    {
        SCrypt cipher;
        cipher.setKey("abcdefghijklmnopqrstuvwxyz");
        QCOMPARE(cipher.keyLength(), 24ull);
        cipher.setKey("short");
        QCOMPARE(cipher.keyLength(), 5ull);
    }

    void roundTrip_data()
    {
        QTest::addColumn<int>("length");
        for (int length : {1, 2, 3, 11, 12, 13, 23, 24, 25, 255, 1000, 16383, 70000})
            QTest::newRow(qPrintable(QString::number(length))) << length;
    }
    void roundTrip()
    {
        QFETCH(int, length);
        QByteArray plain(length, '\0');
        for (int i = 0; i < length; ++i)
            plain[i] = char((i * 131 + 7) & 0xFF);
        SCrypt sender, receiver;
        hubKey(sender);
        hubKey(receiver);

        const char *sealed = sender.encrypt(plain.constData(), uint(length));
        QVERIFY(sealed);
        QCOMPARE(sender.bufferLength(), uint(length + 4));
        QCOMPARE(sealed[0], char(1));
        const QByteArray wire(sealed, length + 4);

        int plainLength = -1;
        const char *opened = receiver.decrypt(wire.constData(), uint(wire.size()), &plainLength);
        QVERIFY(opened);
        QCOMPARE(plainLength, length);
        QCOMPARE(QByteArray(opened, length), plain);
        QCOMPARE(opened[length], '\0');
    }

    void sealedTextsDifferButOpen()
    {
        SCrypt cipher;
        hubKey(cipher);
        QSet<QByteArray> seen;
        for (int i = 0; i < 16; ++i) {
            const QByteArray wire(cipher.encrypt("pingrequest", 11), 15);
            seen.insert(wire);
            QCOMPARE(QByteArray(cipher.decrypt(wire.constData(), 15)), QByteArray("pingrequest"));
        }
        QVERIFY(seen.size() > 1);
    }

    // Chaining spreads a flipped bit into the next byte too; the CRC catches every one.
    void flippedBitFails()
    {
        SCrypt cipher;
        hubKey(cipher);
        const QByteArray plain("syncset/home/studio/one.vxup");
        const QByteArray wire(cipher.encrypt(plain.constData(), uint(plain.size())), plain.size() + 4);
        for (int bit = 0; bit < 8; ++bit) {
            QByteArray marker = wire;
            marker[0] = char(marker[0] ^ (1 << bit));
            QVERIFY(!cipher.decrypt(marker.constData(), uint(marker.size())));
        }
        for (int byte = 4; byte < wire.size(); ++byte) {
            for (int bit = 0; bit < 8; ++bit) {
                QByteArray broken = wire;
                broken[byte] = char(broken[byte] ^ (1 << bit));
                int length = -1;
                QVERIFY2(!cipher.decrypt(broken.constData(), uint(broken.size()), &length),
                         qPrintable(QString("byte %1 bit %2").arg(byte).arg(bit)));
                QCOMPARE(length, 0);
            }
        }
    }

    void refusals()
    {
        SCrypt cipher;
        QVERIFY(!cipher.encrypt("abc", 3)); // no key yet
        QVERIFY(!cipher.decrypt("\x01"
                                "abcd",
                                5));
        hubKey(cipher);
        const QByteArray wire(cipher.encrypt("abc", 3), 7);
        QVERIFY(!cipher.encrypt("", 0));
        QVERIFY(!cipher.encrypt(nullptr, 3));
        QVERIFY(!cipher.decrypt(wire.constData(), 4)); // shorter than 5
        QVERIFY(!cipher.decrypt(nullptr, 7));
        cipher.setKey("");
        QCOMPARE(cipher.keyLength(), 0ull);
        QVERIFY(!cipher.encrypt("abc", 3));
        QVERIFY(!cipher.decrypt(wire.constData(), uint(wire.size())));
        hubKey(cipher);
        QVERIFY(cipher.decrypt(wire.constData(), uint(wire.size())));
    }

    void bufferReuse()
    {
        SCrypt cipher;
        QCOMPARE(cipher.newBuffer(0), 0);
        QCOMPARE(cipher.newBuffer(16), 1);
        QCOMPARE(cipher.newBuffer(16), 1);
        QCOMPARE(cipher.bufferLength(), 16u);
        QCOMPARE(cipher.newBuffer(0), 0);
        QCOMPARE(cipher.bufferLength(), 0u);
    }
};

QTEST_GUILESS_MAIN(TestSCrypt)
#include "tst_scrypt.moc"
