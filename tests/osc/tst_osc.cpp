#include "osc/osc.h"

#include <QElapsedTimer>
#include <QNetworkDatagram>
#include <QProcess>
#include <QUdpSocket>
#include <QtTest>

// The gateway object on its own, against liblo's command-line peers on loopback: oscdump receives
// what we send, oscsend writes to our receive port.

namespace {

QStringList g_log;

void captureMessage(QtMsgType, const QMessageLogContext &, const QString &text)
{
    g_log.append(text);
}

quint16 freePort()
{
    QUdpSocket probe;
    probe.bind(QHostAddress(QHostAddress::LocalHost), 0);
    return probe.localPort();
}

enum : quint32
{
    IdProduct = 0x000000,
    IdGroup = 0x000600,
    IdConnect = 0x010200,
    IdDisconnect = 0x010000,
    IdStation = 0x020400,
    IdVu = 0x020800,
    IdRecord = 0x050000,
    IdLevel = 0x050100,
    IdTrigger = 0x050200,
};

// A small address space shaped like an instance tree: writable and read-only parameters of every
// tag the tree produces, and two commands.
void fillAddressSpace(OSC &osc)
{
    const OSC::__PARAM entries[] = {
        {IdProduct, "/root/identity/product", 'P', 's', 0},
        {IdGroup, "/root/identity/group", 'P', 'i', 1},
        {IdDisconnect, "/root/Commands/Disconnect", 'C', 'N', 1},
        {IdConnect, "/root/Commands/Connect", 'C', 's', 1},
        {IdStation, "/root/Connection Info/Station", 'P', 's', 1},
        {IdVu, "/root/Connection Info/Live Vu values", 'P', 'b', 0},
        {IdRecord, "/root/Recording/On Air", 'P', 'T', 1},
        {IdLevel, "/root/Recording/Level", 'P', 'f', 1},
        {IdTrigger, "/root/Recording/Trigger", 'P', 'N', 0},
    };
    for (OSC::__PARAM entry : entries)
        osc.parameterAdd(entry);
}

// Runs one oscsend and waits for it, bounded.
bool oscsend(quint16 port, const QStringList &message)
{
    QProcess process;
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.start("oscsend", QStringList{"127.0.0.1", QString::number(port)} + message);
    if (!process.waitForFinished(5000)) {
        process.kill();
        process.waitForFinished(2000);
        return false;
    }
    return process.exitStatus() == QProcess::NormalExit && process.exitCode() == 0;
}

} // namespace

class TestOsc : public QObject
{
    Q_OBJECT

private:
    QProcess *m_dump = nullptr;

    // Starts oscdump on a free port and waits until it prints a probe sent to it.
    quint16 startOscdump()
    {
        const quint16 port = freePort();
        m_dump = new QProcess(this);
        m_dump->setProcessChannelMode(QProcess::MergedChannels);
        m_dump->start("oscdump", QStringList{"-L", QString::number(port)});
        if (!m_dump->waitForStarted(5000))
            return 0;
        QUdpSocket probe;
        const QByteArray ping("/probe\0\0,i\0\0\0\0\0\1", 16);
        for (int attempt = 0; attempt < 50; attempt++) {
            probe.writeDatagram(ping, QHostAddress::LocalHost, port);
            if (m_dump->waitForReadyRead(100) || !m_dump->readAll().isEmpty())
                break;
        }
        // Let late probes land, then start from a clean output.
        QTest::qWait(100);
        m_dump->readAll();
        return port;
    }

    // Reads oscdump's lines until one contains marker (bounded), without the time tag column.
    QStringList readOscdumpUntil(const QString &marker)
    {
        QStringList lines;
        QElapsedTimer timer;
        timer.start();
        QByteArray pending;
        while (timer.elapsed() < 5000) {
            m_dump->waitForReadyRead(100);
            pending += m_dump->readAll();
            while (pending.contains('\n')) {
                const int end = pending.indexOf('\n');
                QString line = QString::fromUtf8(pending.left(end));
                pending.remove(0, end + 1);
                if (QRegularExpression("^[0-9a-f]+\\.[0-9a-f]+ ").match(line).hasMatch())
                    line = line.section(' ', 1);
                lines << line;
                if (line.contains(marker))
                    return lines;
            }
        }
        return lines;
    }

private slots:
    void initTestCase()
    {
        qInstallMessageHandler(captureMessage);
        if (QStandardPaths::findExecutable("oscdump").isEmpty() ||
            QStandardPaths::findExecutable("oscsend").isEmpty())
            QSKIP("liblo-tools (oscsend, oscdump) are not installed");
    }
    void init() { g_log.clear(); }
    void cleanup()
    {
        if (m_dump) {
            m_dump->kill();
            m_dump->waitForFinished(2000);
            delete m_dump;
            m_dump = nullptr;
        }
    }

    void names_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<QString>("name");
        QTest::newRow("root prefix") << "/root/Audio/Input/Gain"
                                     << "Audio/Input/Gain";
        QTest::newRow("blanks") << "/root/Connection Info/Station"
                                << "ConnectionInfo/Station";
        QTest::newRow("pattern characters") << "/root/a{b}c?d,e*f#g h"
                                            << "abcdefgh";
        QTest::newRow("first /root/ only") << "/root/root/x"
                                           << "root/x";
        QTest::newRow("no /root/ keeps its slash") << "/Gain"
                                                   << "/Gain";
    }
    void names()
    {
        QFETCH(QString, path);
        QFETCH(QString, name);
        OSC osc;
        OSC::__PARAM entry{0x100, path, 'P', 'i', 1};
        osc.parameterAdd(entry);
        QCOMPARE(osc.parameters().value(0x100).name, name);
        QCOMPARE(osc.names().value(name), 0x100u);

        // A later entry with the same id replaces the earlier one under its new name only.
        OSC::__PARAM again{0x100, "/root/Other", 'P', 's', 0};
        osc.parameterAdd(again);
        QCOMPARE(osc.parameters().size(), 1);
        QCOMPARE(osc.names().keys(), QStringList{"Other"});
    }

    void portsAndTargets()
    {
        OSC osc;
        QVERIFY(!osc.hostsOk());

        osc.hostSet(-1, "LocalHost", 9000);
        osc.hostSet(0, "not an address", 9100); // changes nothing
        osc.hostSet(7, "10.1.2.3", 9001);       // beyond the list: appended
        osc.hostSet(1, "::1", 9002);            // replaces the second
        QCOMPARE(osc.targets(), (QList<QHostAddress>{QHostAddress("127.0.0.1"), QHostAddress("::1")}));
        QCOMPARE(osc.targetPorts(), (QList<quint32>{9000, 9002}));
        QVERIFY(osc.hostsOk());

        // A port already in use leaves receiving off; with targets the gateway is still usable.
        QUdpSocket squatter;
        QVERIFY(squatter.bind(QHostAddress(QHostAddress::AnyIPv4), 0));
        osc.inPortSet(squatter.localPort());
        QCOMPARE(osc.inPort(), 0u);
        QVERIFY(!osc.receiving());
        QVERIFY(osc.hostsOk());

        osc.hostRemove(5);
        osc.hostRemove(0);
        osc.hostRemove(0);
        QVERIFY(osc.targets().isEmpty());
        QVERIFY(!osc.hostsOk());

        const quint16 port = freePort();
        osc.inPortSet(port);
        osc.inPortSet(port); // unchanged: not even logged
        QVERIFY(osc.receiving());
        QVERIFY(osc.hostsOk()); // receiving alone is enough
        osc.inPortSet(0);
        QVERIFY(!osc.receiving());

        QCOMPARE(g_log.size(), 9);
        QCOMPARE(g_log.mid(0, 3), QStringList({"Add OSC Target 127.0.0.1 9000",
                                               "Add OSC Target 10.1.2.3 9001", "Set OSC Target ::1 9002"}));
        QCOMPARE(g_log.at(3), QString("Set OSC Receiving port %1").arg(squatter.localPort()));
        QVERIFY2(g_log.at(4).startsWith("OSC listen error  ") &&
                     g_log.at(4).endsWith(QString::number(squatter.localPort())),
                 qPrintable(g_log.at(4)));
        QCOMPARE(g_log.mid(5),
                 QStringList({"Removing OSC target 127.0.0.1 9000", "Removing OSC target ::1 9002",
                              QString("Set OSC Receiving port %1").arg(port), "Set OSC Receiving port 0"}));
    }

    // Every value change of a parameter reaches every target; liblo parses what is standard and
    // refuses our 4-byte 'T' payload and 8-byte 'f'.
    void sendToOscdump()
    {
        const quint16 dumpPort = startOscdump();
        QVERIFY(dumpPort != 0);
        QUdpSocket second;
        QVERIFY(second.bind(QHostAddress(QHostAddress::LocalHost), 0));

        OSC osc;
        fillAddressSpace(osc);
        osc.oscSendTo(3, IdGroup, 42, nullptr); // no target yet: nothing
        QString target("127.0.0.1");
        osc.hostSet(-1, target, dumpPort);
        osc.hostSet(-1, target, second.localPort());

        const char vu[8] = {0, 60, 0, 80, 1, 0, 0, 7};
        osc.oscSendTo(3, IdGroup, 42, nullptr);
        osc.oscSendTo(3, IdProduct, 0, "Vexa Studio"); // read-only values are sent too
        osc.oscSendTo(0, IdVu, 8, vu);
        osc.oscSendTo(1, IdTrigger, 0, nullptr);
        osc.oscSendTo(3, IdRecord, 1, nullptr);
        osc.oscSendTo(3, IdLevel, 2, nullptr);
        osc.oscSendTo(3, IdConnect, 0, "sip:x"); // commands are never sent
        osc.oscSendTo(3, 0x123400, 5, nullptr);  // not in the address space
        osc.oscSendTo(3, IdStation, 0, "end");

        const QStringList lines = readOscdumpUntil("/vx/3/ConnectionInfo/Station");
        QCOMPARE(lines, QStringList({
                            "/vx/3/identity/group i 42",
                            "/vx/3/identity/product s \"Vexa Studio\"",
                            "/vx/0/ConnectionInfo/LiveVuvalues b [8b 00 0x3c 00 0x50 0x1 00 00 0x7]",
                            "/vx/1/Recording/Trigger N Nil",
                            "liblo server error 9911 in path /vx/3/Recording/OnAir: Invalid message received",
                            "liblo server error 9911 in path /vx/3/Recording/Level: Invalid message received",
                            "/vx/3/ConnectionInfo/Station s \"end\"",
                        }));

        // The second target got the same seven datagrams, byte for byte.
        QList<QByteArray> received;
        for (int attempt = 0; attempt < 50 && received.size() < 7; attempt++) {
            if (!second.hasPendingDatagrams())
                second.waitForReadyRead(100);
            while (second.hasPendingDatagrams())
                received << second.receiveDatagram().data();
        }
        QCOMPARE(received.size(), 7);
        QByteArray expected;
        osc.packetBuild(expected, 3, IdLevel, 2, nullptr);
        QCOMPARE(received.at(5), expected);
        QCOMPARE(expected.size(), 36); // 24-byte address, ",f" 00 00, 8-byte double
    }

    void receiveFromOscsend_data()
    {
        QTest::addColumn<QStringList>("message");
        QTest::addColumn<bool>("emitted");
        QTest::addColumn<int>("agent");
        QTest::addColumn<int>("id");
        QTest::addColumn<int>("value");
        QTest::addColumn<QByteArray>("data");
        QTest::addColumn<QString>("logLine"); // empty: no line at all

        QTest::newRow("writable i") << QStringList{"/vx/1/identity/group", "i", "42"} << true << 1
                                    << int(IdGroup) << 42 << QByteArray()
                                    << "1 | oscRecieveMessage vx/1/identity/group 42 \"\"";
        QTest::newRow("wildcard agent")
            << QStringList{"/vx/*/identity/group", "i", "7"} << true << -1 << int(IdGroup) << 7
            << QByteArray() << "-1 | oscRecieveMessage vx/*/identity/group 7 \"\"";
        QTest::newRow("string") << QStringList{"/vx/0/ConnectionInfo/Station", "s", "Studio A"} << true << 0
                                << int(IdStation) << 0 << QByteArray("Studio A")
                                << "0 | oscRecieveMessage vx/0/ConnectionInfo/Station 0 \"Studio A\"";
        QTest::newRow("T") << QStringList{"/vx/2/Recording/OnAir", "T"} << true << 2 << int(IdRecord) << 1
                           << QByteArray() << "2 | oscRecieveMessage vx/2/Recording/OnAir 1 \"\"";
        QTest::newRow("F") << QStringList{"/vx/2/Recording/OnAir", "F"} << true << 2 << int(IdRecord) << 0
                           << QByteArray() << "2 | oscRecieveMessage vx/2/Recording/OnAir 0 \"\"";
        QTest::newRow("command") << QStringList{"/vx/0/Commands/Connect", "s", "sip:a@b"} << true << 0
                                 << int(IdConnect) << 0 << QByteArray("sip:a@b")
                                 << "0 | oscRecieveMessage vx/0/Commands/Connect 0 \"sip:a@b\"";
        QTest::newRow("h") << QStringList{"/vx/1/identity/group", "h", "-3"} << true << 1 << int(IdGroup)
                           << -3 << QByteArray() << "1 | oscRecieveMessage vx/1/identity/group -3 \"\"";
        QTest::newRow("d") << QStringList{"/vx/1/Recording/Level", "d", "2.75"} << true << 1 << int(IdLevel)
                           << 2 << QByteArray() << "1 | oscRecieveMessage vx/1/Recording/Level 2 \"\"";
        // liblo's 4-byte float is short of the 8 bytes we read: it arrives as 0.
        QTest::newRow("liblo f reads 0")
            << QStringList{"/vx/1/Recording/Level", "f", "2.5"} << true << 1 << int(IdLevel) << 0
            << QByteArray() << "1 | oscRecieveMessage vx/1/Recording/Level 0 \"\"";
        QTest::newRow("read-only") << QStringList{"/vx/1/identity/product", "s", "x"} << false << 0 << 0 << 0
                                   << QByteArray()
                                   << "1 | Received OSC Data that is ReadOnly vx/1/identity/product";
        QTest::newRow("upper-case VX ignored silently") << QStringList{"/VX/1/identity/group", "i", "1"}
                                                        << false << 0 << 0 << 0 << QByteArray() << QString();
        QTest::newRow("unknown name")
            << QStringList{"/vx/1/identity/nothing", "i", "1"} << false << 0 << 0 << 0 << QByteArray()
            << "Received OSC Data with unknown address vx/1/identity/nothing";
        QTest::newRow("agent not a number")
            << QStringList{"/vx/one/identity/group", "i", "1"} << false << 0 << 0 << 0 << QByteArray()
            << "Received OSC Data with unknown address vx/one/identity/group";
    }
    void receiveFromOscsend()
    {
        QFETCH(QStringList, message);
        QFETCH(bool, emitted);
        QFETCH(int, agent);
        QFETCH(int, id);
        QFETCH(int, value);
        QFETCH(QByteArray, data);
        QFETCH(QString, logLine);

        OSC osc;
        fillAddressSpace(osc);
        const quint16 port = freePort();
        osc.inPortSet(port);
        QVERIFY(osc.receiving());
        QSignalSpy spy(&osc, &OSC::oscSendToInstance);
        g_log.clear();

        // The message under test, then a marker: once the marker is through, so is the message.
        QVERIFY(oscsend(port, message));
        QVERIFY(oscsend(port, {"/vx/9/ConnectionInfo/Station", "s", "marker"}));
        QTRY_VERIFY_WITH_TIMEOUT(!spy.isEmpty() && spy.last().at(0).toInt() == 9, 5000);

        spy.removeLast();
        QCOMPARE(g_log.last(), QString("9 | oscRecieveMessage vx/9/ConnectionInfo/Station 0 \"marker\""));
        g_log.removeLast();
        QCOMPARE(g_log, logLine.isEmpty() ? QStringList() : QStringList{logLine});
        QCOMPARE(spy.size(), emitted ? 1 : 0);
        if (emitted) {
            QCOMPARE(spy.at(0).at(0).toInt(), agent);
            QCOMPARE(spy.at(0).at(1).toInt(), id);
            QCOMPARE(spy.at(0).at(2).toInt(), value);
            QCOMPARE(spy.at(0).at(3).toByteArray(), data);
        }
    }
};

QTEST_GUILESS_MAIN(TestOsc)
#include "tst_osc.moc"
