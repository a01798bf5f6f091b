// The provider on real TCP connections over loopback: directory answers, parameter writes and
// their echo, invocations, keep-alive, consumers coming and going, and a consumer that stops reading.
#include "ember/emberserver.h"
#include "testconsumer.h"

#include <QSignalSpy>
#include <QTcpServer>
#include <QtTest>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

Q_DECLARE_METATYPE(SGlowValue)

static SGlowValue integerValue(qint64 n)
{
    SGlowValue v;
    glowValue_init(&v);
    v.type = GlowParameterType_Integer;
    v.integer = n;
    return v;
}

static SGlowValue stringValue(const char *text)
{
    SGlowValue v;
    glowValue_init(&v);
    v.type = GlowParameterType_String;
    v.pString = const_cast<char *>(text);
    return v;
}

static SGlowValue booleanValue(bool b)
{
    SGlowValue v;
    glowValue_init(&v);
    v.type = GlowParameterType_Boolean;
    v.boolean = b;
    return v;
}

class TestEmberServer : public QObject
{
    Q_OBJECT

    EmberServer *server = nullptr;
    TestConsumer *first = nullptr;
    TestConsumer *second = nullptr;
    int blocksBefore = 0;

    // Waits for the answer to a GetDirectory on "group": everything the server sent before it to
    // this consumer has arrived by then.
    static bool settle(TestConsumer *consumer)
    {
        auto answer = [consumer] {
            for (int i = 0; i < consumer->elements.size(); i++)
                if (consumer->elements[i].identifier == "group")
                    return i;
            return -1;
        };
        consumer->getDirectory("0.0.6");
        if (!QTest::qWaitFor([&] { return answer() >= 0; }, 5000))
            return false;
        consumer->elements.removeAt(answer());
        consumer->packageFlags.removeLast();
        return true;
    }

private slots:
    void initTestCase()
    {
        qRegisterMetaType<SGlowValue>();
        EmberServer::setNICaddress(QHostAddress(QHostAddress::LocalHost));
    }

    void init()
    {
        blocksBefore = EmberServer::allocatedBlocks();
        server = new EmberServer;
        server->setInstance(42);
        // The port is taken from a probe: a fixed one could be in use on the machine.
        for (int attempt = 0; attempt < 5 && !server->isListening(); attempt++) {
            QTcpServer probe;
            probe.listen(QHostAddress::LocalHost, 0);
            const quint16 port = probe.serverPort();
            probe.close();
            server->emberSocketInit(port);
        }
        QVERIFY(server->isListening());
        first = new TestConsumer;
        second = new TestConsumer;
        QVERIFY(first->connectTo(server->serverPort()));
        QVERIFY(second->connectTo(server->serverPort()));
        QTRY_COMPARE(server->clientCount(), 2);
    }

    void cleanup()
    {
        delete first;
        delete second;
        delete server;
        first = second = nullptr;
        server = nullptr;
        // Posted deletions of the sockets.
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        QCOMPARE(EmberServer::allocatedBlocks(), blocksBefore);
    }

    void getDirectory_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<int>("mask");
        QTest::addColumn<QList<int>>("flags");
        QTest::addColumn<QStringList>("elements");
        QTest::newRow("top") << "" << 0 << QList<int>{0xC0} << QStringList{"N 0 root -"};
        QTest::newRow("root: one package per child") << "0" << -1 << QList<int>{0x80, 0, 0, 0, 0, 0, 0, 0x40}
                                                     << QStringList{"N 0.0 identity -",
                                                                    "N 0.1 Commands -",
                                                                    "N 0.2 Connection Info -",
                                                                    "N 0.3 SIP and STUN Info -",
                                                                    "N 0.4 Audio IO -",
                                                                    "N 0.5 Recording -",
                                                                    "N 0.6 Play -",
                                                                    "N 0.7 Remote -"};
        QTest::newRow("below a leaf")
            << "0.2.5.7" << 0 << QList<int>{0xC0} << QStringList{"P 0.2.5 Jitter buffer i:0"};
        QTest::newRow("function") << "0.1.2" << 0 << QList<int>{0xC0} << QStringList{"F 0.1.2 Connect -"};
        QTest::newRow("mask without value")
            << "0.5" << 0x3 << QList<int>{0x80, 0, 0x40}
            << QStringList{"P 0.5.0 State -", "P 0.5.1 File name -", "P 0.5.2 Time -"};
        QTest::newRow("octets") << "0.2.8" << 0 << QList<int>{0xC0}
                                << QStringList{"P 0.2.8 Live Vu values o:000000000000"};
    }

    void getDirectory()
    {
        QFETCH(QString, path);
        QFETCH(int, mask);
        QFETCH(QList<int>, flags);
        QFETCH(QStringList, elements);
        first->getDirectory(path, mask);
        QTRY_COMPARE(first->packageFlags.size(), flags.size());
        QTRY_COMPARE(first->summary(), elements);
        QCOMPARE(first->packageFlags, flags);
        // Replies go only to the asking consumer.
        QVERIFY(settle(second));
        QCOMPARE(second->elements.size(), 0);
    }

    void functionArgumentsOnlyWithAllFields()
    {
        first->getDirectory("0.1", -1);
        first->getDirectory("0.1", 0x3);
        QTRY_COMPARE(first->elements.size(), 16);
        QList<int> arguments;
        for (const TestConsumer::Element &e : first->elements)
            arguments << e.arguments;
        QCOMPARE(arguments, (QList<int>{0, 0, 1, 0, 1, 1, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0}));
    }

    void parameterWrites_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<SGlowValue>("value");
        QTest::addColumn<int>("id"); // -1: refused, nothing forwarded
        QTest::addColumn<int>("forwarded");
        QTest::addColumn<QByteArray>("text");
        QTest::addColumn<QString>("echo");
        QTest::addColumn<int>("retag");
        QTest::newRow("group") << "0.0.6" << integerValue(5) << 0x000600 << 5 << QByteArray()
                               << "P 0.0.6  i:5" << 0;
        QTest::newRow("read-only Status") << "0.2.0" << integerValue(3) << -1 << 0 << QByteArray() << "" << 0;
        QTest::newRow("a function") << "0.1.2" << integerValue(3) << -1 << 0 << QByteArray() << "" << 0;
        QTest::newRow("a node") << "0.2" << integerValue(3) << -1 << 0 << QByteArray() << "" << 0;
        QTest::newRow("string into an integer")
            << "0.2.5" << stringValue("abc") << 0x020500 << 0 << QByteArray("abc") << "P 0.2.5  s:abc" << 0;
        QTest::newRow("below a leaf") << "0.2.4.9" << stringValue("Studio 2") << 0x020400 << 0
                                      << QByteArray("Studio 2") << "P 0.2.4  s:Studio 2" << 0;
        // A value of a type the reader does not take (ENUMERATED) arrives as a write without value.
        QTest::newRow("enumerated into TAVRO routing")
            << "0.7.0" << integerValue(1) << -1 << 0 << QByteArray() << "" << 0x0A;
    }

    void parameterWrites()
    {
        QFETCH(QString, path);
        QFETCH(SGlowValue, value);
        QFETCH(int, id);
        QFETCH(int, forwarded);
        QFETCH(QByteArray, text);
        QFETCH(QString, echo);
        QFETCH(int, retag);
        QSignalSpy spy(server, &EmberServer::emberSendToInstance);
        if (retag != 0)
            QTest::ignoreMessage(QtWarningMsg,
                                 "ber error 507: 'BerReader reports unsupported GlowValue type!'");
        else if (id < 0)
            QTest::ignoreMessage(QtWarningMsg, "onParameter is read only");
        first->write(path, value, retag);
        QVERIFY(settle(first));
        QVERIFY(settle(second));
        if (id < 0) {
            QCOMPARE(spy.count(), 0);
            QCOMPARE(first->elements.size(), 0);
            QCOMPARE(second->elements.size(), 0);
            return;
        }
        QCOMPARE(spy.count(), 1);
        QCOMPARE(spy[0][0].toUInt(), 42u);
        QCOMPARE(spy[0][1].toInt(), id);
        QCOMPARE(spy[0][2].toInt(), forwarded);
        QCOMPARE(spy[0][3].toByteArray(), text);
        // The echo goes to every consumer, the writer included.
        QCOMPARE(first->summary(), QStringList{echo});
        QCOMPARE(second->summary(), QStringList{echo});
    }

    void invocations_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<bool>("hasArgument");
        QTest::addColumn<SGlowValue>("argument");
        QTest::addColumn<int>("id"); // -1: nothing forwarded
        QTest::addColumn<int>("value");
        QTest::addColumn<QByteArray>("text");
        QTest::newRow("Connect") << "0.1.2" << true << stringValue("sip:studio@192.0.2.7") << 0x010200 << 0
                                 << QByteArray("sip:studio@192.0.2.7");
        QTest::newRow("Record") << "0.1.5" << true << booleanValue(true) << 0x010500 << 1 << QByteArray();
        QTest::newRow("WarningAcknowledge")
            << "0.1.4" << true << integerValue(2) << 0x010400 << 2 << QByteArray();
        QTest::newRow("Disconnect") << "0.1.0" << false << SGlowValue() << 0x010000 << 0 << QByteArray();
        QTest::newRow("a parameter") << "0.0.6" << true << integerValue(2) << -1 << 0 << QByteArray();
        QTest::newRow("a node") << "0.1" << false << SGlowValue() << -1 << 0 << QByteArray();
    }

    void invocations()
    {
        QFETCH(QString, path);
        QFETCH(bool, hasArgument);
        QFETCH(SGlowValue, argument);
        QFETCH(int, id);
        QFETCH(int, value);
        QFETCH(QByteArray, text);
        QSignalSpy spy(server, &EmberServer::emberSendToInstance);
        first->invoke(path, hasArgument ? &argument : nullptr);
        QVERIFY(settle(first));
        QCOMPARE(first->elements.size(), 0); // no invocation result
        if (id < 0) {
            QCOMPARE(spy.count(), 0);
            return;
        }
        QCOMPARE(spy.count(), 1);
        QCOMPARE(spy[0][1].toInt(), id);
        QCOMPARE(spy[0][2].toInt(), value);
        QCOMPARE(spy[0][3].toByteArray(), text);
    }

    void keepAlive_data()
    {
        QTest::addColumn<int>("slot");
        QTest::addColumn<QByteArray>("response");
        QTest::newRow("slot 0") << 0 << QByteArray::fromHex("000e0201");
        QTest::newRow("slot 5") << 5 << QByteArray::fromHex("050e0201");
    }

    void keepAlive()
    {
        QFETCH(int, slot);
        QFETCH(QByteArray, response);
        unsigned char request[16];
        const int length = emberFraming_writeKeepAliveRequest(request, sizeof(request), slot);
        first->sendRaw(QByteArray(reinterpret_cast<const char *>(request), length));
        QTRY_COMPARE(first->keepAlive.size(), 1);
        QCOMPARE(first->keepAlive[0], response);
        QVERIFY(settle(first));
        QCOMPARE(first->elements.size(), 0);
    }

    void garbageIsDropped()
    {
        QByteArray noise;
        for (int i = 0; i < 4096; i++)
            noise.append(char((i * 7919) ^ (i >> 3)));
        // And a frame with a good CRC around a broken BER payload.
        unsigned char frame[64];
        SBerFramingOutput output;
        berFramingOutput_init(&output, frame, sizeof(frame), 0, S101_DTD_GLOW, nullptr, 0);
        berFramingOutput_writeHeader(&output, S101_FLAG_FIRST | S101_FLAG_LAST);
        const unsigned char payload[] = {0x60, 0x80, 0x6B, 0x03, 0x02, 0x01};
        berFramingOutput_writeBytes(&output.base.base, payload, sizeof(payload));
        const int length = berFramingOutput_finish(&output);
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression("^ber error"));
        first->sendRaw(noise + QByteArray(reinterpret_cast<const char *>(frame), length));
        QVERIFY(settle(first));
        QCOMPARE(server->clientCount(), 2);
    }

    void instanceValuesReachEveryConsumer()
    {
        char name[] = "Studio One";
        server->emberSendTo(0x000500, 0, name);
        QByteArray vu = QByteArray::fromHex("0a0b0c0d0e0f10");
        server->emberSendTo(0x020800, vu.size(), vu.data());
        server->emberSendTo(0x020700, 42, nullptr);
        const QStringList expected{"P 0.0.5 name s:Studio One", "P 0.2.8 Live Vu values o:0a0b0c0d0e0f",
                                   "P 0.2.7 Live jitter buffer i:42"};
        QTRY_COMPARE(first->summary(), expected);
        QTRY_COMPARE(second->summary(), expected);
        QCOMPARE(first->packageFlags, (QList<int>{0xC0, 0xC0, 0xC0}));

        // The live jitter buffer is sent again every 10 s while the instance is silent.
        auto *ping = server->findChild<QTimer *>();
        QVERIFY(ping != nullptr && ping->isActive());
        QCOMPARE(ping->interval(), 10000);
        first->clear();
        server->pingClients();
        QTRY_COMPARE(first->summary(), QStringList{"P 0.2.7 Live jitter buffer i:42"});
    }

    void consumersComeAndGo()
    {
        QSignalSpy added(server, &EmberServer::emberClientAdded);
        QSignalSpy removed(server, &EmberServer::emberClientRemoved);
        const QString port = QString::number(server->serverPort());
        TestConsumer third;
        QVERIFY(third.connectTo(server->serverPort()));
        QTRY_COMPARE(added.count(), 1);
        QCOMPARE(added[0][1].toString(), "Ember+ host: 127.0.0.1 port " + port);
        QCOMPARE(server->clientCount(), 3);
        third.socket.disconnectFromHost();
        QTRY_COMPARE(removed.count(), 1);
        QCOMPARE(removed[0][1].toString(), "Ember- host: 127.0.0.1 port " + port);
        QCOMPARE(server->clientCount(), 2);

        // Port 0 closes the service and every connection.
        server->emberSocketInit(0);
        QVERIFY(!server->isListening());
        QCOMPARE(server->clientCount(), 0);
        QCOMPARE(removed.count(), 3);
        QTRY_COMPARE(first->socket.state(), QAbstractSocket::UnconnectedState);
    }

    // A consumer that never reads must not make our memory grow: past the limit its connection is
    // closed, and the others go on being served.
    void consumerThatStopsReading()
    {
        const int stalled = ::socket(AF_INET, SOCK_STREAM, 0);
        QVERIFY(stalled >= 0);
        int small = 4096;
        setsockopt(stalled, SOL_SOCKET, SO_RCVBUF, &small, sizeof(small));
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(server->serverPort());
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        QCOMPARE(::connect(stalled, reinterpret_cast<sockaddr *>(&address), sizeof(address)), 0);
        QTRY_COMPARE(server->clientCount(), 3);

        QTest::ignoreMessage(QtWarningMsg, QRegularExpression("Ember consumer 127.0.0.1 does not read"));
        QByteArray text(200, 'x');
        int sent = 0;
        // Bounded: far more than the limit and the kernel's buffers together.
        for (; sent < 200000 && server->clientCount() == 3; sent++) {
            text[0] = char('a' + sent % 26);
            server->emberSendTo(0x020900, 0, text.data());
            if (sent % 32 == 0) {
                QCoreApplication::processEvents();
                first->clear(); // the reading consumers keep up; keep their logs short
                second->clear();
            }
        }
        QCOMPARE(server->clientCount(), 2);
        qInfo("stalled consumer closed after %d updates of %d bytes", sent, text.size());
        char last[] = "the last warning";
        server->emberSendTo(0x020900, 0, last);
        QTRY_VERIFY(first->summary().contains("P 0.2.9 WarningMessage s:the last warning"));
        QTRY_VERIFY(second->summary().contains("P 0.2.9 WarningMessage s:the last warning"));
        ::close(stalled);
    }
};

QTEST_GUILESS_MAIN(TestEmberServer)
#include "tst_emberserver.moc"
