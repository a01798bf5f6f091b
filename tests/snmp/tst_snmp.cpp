#include "snmp/snmp.h"
#include "snmptestutil.h"

#include <QRandomGenerator>
#include <QUdpSocket>
#include <QtTest>

using namespace snmptest;

namespace {

// The agent with the instance variables, served the way the manager serves it: synchronously,
// from a table of its own, recording every signal.
struct Served
{
    SNMP agent;
    QStringList gets;
    QStringList sets;

    Served()
    {
        for (unsigned id : {2u, 3u, 4u, 5u, 7u})
            agent.vbAdd(id, true);
        agent.vbAdd(6, false);
        agent.vbSet(103, "VEXA Studio Manager");
        agent.vbSet(105, 0x7F000001u);
        QObject::connect(&agent, &SNMP::getValue, &agent, [this](uint a, uint id) {
            gets << QString("%1/%2").arg(a).arg(id);
            if (id == 2)
                agent.vbSet(2, 200 + a);
            else if (id == 3)
                agent.vbSet(3, "OK");
            else if (id == 5)
                agent.vbSet(5, "Studio A");
            else if (id == 102)
                agent.vbSet(102, 1234u);
        });
        QObject::connect(&agent, &SNMP::setValue, &agent, [this](uint a, uint id, uint value) {
            sets << QString("%1/%2/%3").arg(a).arg(id).arg(value);
            if (id == 6)
                agent.vbSet(6, value);
        });
    }
};

QStringList answerList(const QByteArray &response)
{
    QStringList list;
    const QMap<QByteArray, QByteArray> map = bindings(response);
    for (auto it = map.cbegin(); it != map.cend(); ++it)
        list << QString::fromLatin1(it.key() + " = " + it.value());
    return list;
}

QString vbText(const QByteArray &oid, const QByteArray &value)
{
    return QString::fromLatin1(oid.toHex(' ').toUpper() + " = " + value.toHex(' ').toUpper());
}

void quietHandler(QtMsgType, const QMessageLogContext &, const QString &) {}

const QByteArray kSysDescr0 = hex("2B 06 01 02 01 01 01 00");
const QByteArray kSysUpTime0 = hex("2B 06 01 02 01 01 03 00");
const QByteArray kUnknown = hex("2B 06 01 04 01 CE 0F 01 00"); // 1.3.6.1.4.1.9999.1.0
const QByteArray kOne = hex("02 01 01");

} // namespace

class TestSnmp : public QObject
{
    Q_OBJECT

private slots:
    void table()
    {
        Served s;
        struct Row
        {
            unsigned id;
            QByteArray oid;
            quint32 type;
            bool inTrap;
        };
        const QList<Row> rows = {
            {2, prefix("01 02"), 0x47, true},
            {3, prefix("01 03"), 0x04, true},
            {4, prefix("01 04"), 0x47, true},
            {5, prefix("01 05"), 0x04, true},
            {6, prefix("01 06"), 0x47, false},
            {7, prefix("01 07"), 0x47, true},
            {100, QByteArray(), 0x05, false},
            {101, hex("2B 06 01 06 03 01 01 04 01"), 0x06, false},
            {102, hex("2B 06 01 02 01 01 03"), 0x43, false},
            {103, hex("2B 06 01 02 01 01 01"), 0x04, false},
            {104, hex("2B 06 01 02 01 01 05"), 0x04, false},
            {105, QByteArray(), 0x40, false},
            {200, prefix("01 C8"), 0x47, false},
        };
        s.agent.vbAdd(200, false);
        s.agent.vbAdd(2, false); // already there: keeps its flag
        for (const Row &row : rows) {
            const __VB *vb = s.agent.vbGet(row.id);
            QVERIFY2(vb, qPrintable(QString::number(row.id)));
            QCOMPARE(QByteArray(reinterpret_cast<const char *>(vb->oid.bytes), int(vb->oid.length)), row.oid);
            QCOMPARE(vb->value.type, row.type);
            QCOMPARE(vb->inTrap, row.inTrap);
        }
        const __VB *enterprise = s.agent.vbGet(101);
        QCOMPARE(QByteArray(reinterpret_cast<const char *>(enterprise->value.v.oid.bytes), 10), prefix("01"));

        // Agent ids go into byte 9 of the instance names and of the enterprise value only.
        s.agent.vxiSet(9);
        QCOMPARE(s.agent.vbGet(7)->oid.bytes[9], quint8(9));
        QCOMPARE(enterprise->value.v.oid.bytes[9], quint8(9));
        QCOMPARE(s.agent.vbGet(102)->oid.length, 7u);
        s.agent.vxiSet(2, 4);
        QCOMPARE(s.agent.vbGet(2)->oid.bytes[9], quint8(4));
        QCOMPARE(s.agent.vbGet(3)->oid.bytes[9], quint8(9));

        // Numbers go only into number types; an empty text makes the binding NULL.
        QTest::ignoreMessage(QtWarningMsg, "SNMP setVB incorrect syntax for 3");
        s.agent.vbSet(3, 5u);
        s.agent.vbSet(3, "");
        QCOMPARE(s.agent.vbGet(3)->value.type, 0x05u);
        s.agent.vbSet(3, static_cast<const char *>(nullptr));
        s.agent.vbSet(999, "ignored");
        QVERIFY(!s.agent.vbGet(999));
    }

    void find_data()
    {
        QTest::addColumn<QByteArray>("oid");
        QTest::addColumn<unsigned>("id");
        QTest::newRow("sysDescr.0") << kSysDescr0 << 103u;
        QTest::newRow("sysUpTime.0") << kSysUpTime0 << 102u;
        QTest::newRow("sysName") << hex("2B 06 01 02 01 01 05") << 104u;
        QTest::newRow("trap OID.0") << hex("2B 06 01 06 03 01 01 04 01 00") << 101u;
        QTest::newRow("status of agent 7, with .0") << prefix("07 02 00") << 2u;
        QTest::newRow("writable of agent 200") << prefix("C8 06") << 6u;
        QTest::newRow("agent prefix alone") << prefix("01") << 100u;
        QTest::newRow("unknown variable") << prefix("01 09 00") << 100u;
        QTest::newRow("other enterprise") << kUnknown << 100u;
        QTest::newRow("sysDescr cut short") << hex("2B 06 01 02 01 01") << 100u;
        QTest::newRow("empty") << QByteArray() << 100u;
    }
    void find()
    {
        QFETCH(QByteArray, oid);
        QFETCH(unsigned, id);
        Served s;
        QCOMPARE(s.agent.vbFind(oid), id);
    }

    void scan_data()
    {
        QTest::addColumn<QByteArray>("datagram");
        QTest::addColumn<quint32>("requestId");
        QTest::addColumn<QStringList>("answer");
        QTest::addColumn<QStringList>("gets");
        QTest::addColumn<QStringList>("sets");
        QTest::addColumn<QString>("warning");

        const QByteArray rid = hex("30 39"); // 12345
        QTest::newRow("get system group")
            << request(0xA0, rid, {{kSysDescr0, hex("05 00")}, {kSysUpTime0, hex("05 00")}}) << 12345u
            << QStringList{vbText(hex("2B 06 01 02 01 01 01"), hex("04 13") + "VEXA Studio Manager"),
                           vbText(hex("2B 06 01 02 01 01 03"), hex("43 02 04 D2"))}
            << QStringList{"0/102", "0/103"} << QStringList() << QString();
        QTest::newRow("get instance variables, answered without .0")
            << request(0xA0, rid,
                       {{prefix("03 02 00"), hex("05 00")},
                        {prefix("03 03 00"), hex("05 00")},
                        {prefix("03 05 00"), hex("05 00")}})
            << 12345u
            << QStringList{vbText(prefix("03 02"), hex("47 01 CB")),
                           vbText(prefix("03 03"), hex("04 02") + "OK"),
                           vbText(prefix("03 05"), hex("04 08") + "Studio A")}
            << QStringList{"3/2", "3/3", "3/5"} << QStringList() << QString();
        QTest::newRow("duplicate ids collapse onto the last agent id")
            << request(0xA0, rid, {{prefix("03 02 00"), hex("05 00")}, {prefix("05 02 00"), hex("05 00")}})
            << 12345u << QStringList{vbText(prefix("05 02"), hex("47 01 CD"))} << QStringList{"5/2"}
            << QStringList() << QString();
        QTest::newRow("unknown OID answered with NULL")
            << request(0xA0, rid, {{kUnknown, hex("05 00")}}) << 12345u
            << QStringList{vbText(kUnknown, hex("05 00"))} << QStringList{"0/100"} << QStringList()
            << QString();
        QTest::newRow("long-form OID length")
            << hex("30 2B 02 01 00 04 06") + "public" +
                   hex("A0 1E 02 01 07 02 01 00 02 01 00 30 13 30 11 06 81 0C") + prefix("02 05 00") +
                   hex("05 00")
            << 7u << QStringList{vbText(prefix("02 05"), hex("04 08") + "Studio A")} << QStringList{"2/5"}
            << QStringList() << QString();
        QTest::newRow("OID of 20 bytes ignored")
            << request(
                   0xA0, rid,
                   {{prefix("01 02 03 04 05 06 07 08 09 0A 0B"), hex("05 00")}, {kSysDescr0, hex("05 00")}})
            << 12345u
            << QStringList{vbText(hex("2B 06 01 02 01 01 01"), hex("04 13") + "VEXA Studio Manager")}
            << QStringList{"0/103"} << QStringList()
            << QString("SNMP request OID of 20 bytes is longer than 12 and is ignored");
        QTest::newRow("GetNext gets no answer")
            << request(0xA1, rid, {{kSysDescr0, hex("05 00")}}) << 0u << QStringList() << QStringList()
            << QStringList() << QString();
        QTest::newRow("GetBulk gets no answer")
            << request(0xA5, rid, {{kSysDescr0, hex("05 00")}}, 1) << 0u << QStringList() << QStringList()
            << QStringList() << QString();
        QTest::newRow("set the writable variable") << request(0xA3, hex("4D"), {{prefix("02 06"), kOne}})
                                                   << 77u << QStringList{vbText(prefix("02 06"), kOne)}
                                                   << QStringList{"2/6"} << QStringList{"2/6/1"} << QString();
        QTest::newRow("set with application 7 answers so")
            << request(0xA3, hex("4D"), {{prefix("02 06 00"), hex("47 01 C8")}}) << 77u
            << QStringList{vbText(prefix("02 06"), hex("47 01 C8"))} << QStringList{"2/6"}
            << QStringList{"2/6/200"} << QString();
        QTest::newRow("set with request id 0 applies nothing")
            << request(0xA3, hex("00"), {{prefix("02 06"), hex("02 01 09")}}) << 9u << QStringList()
            << QStringList() << QStringList() << QString();
        QTest::newRow("set with request id 0: only later bindings apply")
            << request(0xA3, hex("00"),
                       {{prefix("01 06"), hex("02 01 09")}, {prefix("02 06"), hex("02 01 04")}})
            << 9u << QStringList{vbText(prefix("02 06"), hex("02 01 04"))} << QStringList{"2/6"}
            << QStringList{"2/6/4"} << QString();
        QTest::newRow("set of a Counter is not applied")
            << request(0xA3, hex("4D"), {{prefix("02 06"), hex("41 01 05")}}) << 77u << QStringList()
            << QStringList() << QStringList() << QString();
        QTest::newRow("set of an unknown OID: raw bytes 9 and 10")
            << request(0xA3, hex("4D"), {{hex("2B 06 01 04 01 CE 0F 01 02 03 04"), kOne}}) << 77u
            << QStringList{vbText(hex("2B 06 01 04 01 CE 0F 01 02 03 04"), hex("05 00"))}
            << QStringList{"3/100"} << QStringList{"3/4/1"} << QString();
        QTest::newRow("set after an OID of 20 bytes is not applied")
            << request(0xA3, hex("4D"), {{prefix("01 06 03 04 05 06 07 08 09 0A 0B"), kOne}}) << 77u
            << QStringList() << QStringList() << QStringList()
            << QString("SNMP request OID of 20 bytes is longer than 12 and is ignored");
        QTest::newRow("truncated inside the second OID")
            << request(0xA0, rid, {{prefix("03 02 00"), hex("05 00")}, {prefix("03 05 00"), hex("05 00")}})
                   .left(55)
            << 12345u << QStringList{vbText(prefix("03 02"), hex("47 01 CB"))} << QStringList{"3/2"}
            << QStringList() << QString("SNMP request of 55 bytes ends early");
    }
    void scan()
    {
        QFETCH(QByteArray, datagram);
        QFETCH(quint32, requestId);
        QFETCH(QStringList, answer);
        QFETCH(QStringList, gets);
        QFETCH(QStringList, sets);
        QFETCH(QString, warning);
        Served s;
        if (!warning.isEmpty())
            QTest::ignoreMessage(QtWarningMsg, qPrintable(warning));
        QCOMPARE(s.agent.pduParse(datagram), requestId);
        QCOMPARE(s.sets, sets);
        QByteArray response;
        QCOMPARE(s.agent.pduBuildResponce(requestId, response), answer.isEmpty() ? 0 : 1);
        s.gets.sort();
        QCOMPARE(s.gets, gets);
        QStringList got = answerList(response);
        got.sort();
        answer.sort();
        QCOMPARE(got, answer);
        // Nothing is left over for the next request.
        QByteArray again;
        QCOMPARE(s.agent.pduBuildResponce(requestId, again), 0);
    }

    void responseBytes()
    {
        // An SNMPv2c request is answered as SNMPv1 with community "public"; the request id goes
        // through the signed encoder.
        Served s;
        const QByteArray datagram = request(0xA0, hex("00 80"), {{prefix("04 02 00"), hex("05 00")}}, 1);
        QCOMPARE(s.agent.pduParse(datagram), 128u);
        QByteArray response;
        QCOMPARE(s.agent.pduBuildResponce(128, response), 1);
        const QByteArray pdu = hex("02 02 00 80 02 01 00 02 01 00") +
                               tlv(0x30, tlv(0x30, tlv(0x06, prefix("04 02")) + hex("47 01 CC")));
        QCOMPARE(response.toHex(' '),
                 tlv(0x30, hex("02 01 00") + tlv(0x04, "public") + tlv(0xA2, pdu)).toHex(' '));
    }

    void trapBytes()
    {
        SNMP agent;
        agent.vbAdd(2, true);
        agent.vbAdd(6, false);
        agent.vbSet(105, 0x7F000001u);
        agent.vbSet(102, 1000u);
        agent.vxiSet(4);
        agent.vbSet(2, 200u);
        QByteArray trap;
        QCOMPARE(agent.pduBuildTrap(trap), 1);
        const QByteArray pdu = tlv(0x06, prefix("04")) +
                               hex("40 04 7F 00 00 01 02 01 06 02 01 01 43 02 03 E8") +
                               tlv(0x30, tlv(0x30, tlv(0x06, prefix("04 02")) + hex("47 01 C8")));
        QCOMPARE(trap.toHex(' '),
                 tlv(0x30, hex("02 01 00") + tlv(0x04, "public") + tlv(0xA4, pdu)).toHex(' '));

        // With the whole table: every binding flagged for traps, and no other.
        Served s;
        s.agent.vxiSet(3);
        s.agent.vbSet(3, "Running");
        trap.clear();
        s.agent.pduBuildTrap(trap);
        QStringList names;
        for (const QByteArray &oid : bindings(trap).keys())
            names << QString::fromLatin1(oid);
        QStringList expected;
        for (const char *n : {"03 02", "03 03", "03 04", "03 05", "03 07"})
            expected << QString::fromLatin1(prefix(n).toHex(' ').toUpper());
        QCOMPARE(names, expected);
    }

    void robustness()
    {
        // Every prefix of a request and thousands of mutated requests: the scan ends, reads
        // nothing outside the datagram (checked under AddressSanitizer) and never answers with
        // more than the whole request asked for.
        const QByteArray whole = request(0xA3, hex("12 34"),
                                         {{prefix("01 06"), kOne},
                                          {prefix("02 07 00"), hex("47 01 C8")},
                                          {hex("2B 06 01 04 01 CE 0F 01 02 03 04"), kOne}});
        const QtMessageHandler previous = qInstallMessageHandler(quietHandler);
        int lastCount = 0;
        for (int n = 0; n <= whole.size(); ++n) {
            Served s;
            const quint32 id = s.agent.pduParse(whole.left(n));
            QByteArray response;
            s.agent.pduBuildResponce(id, response);
            const int count = bindings(response).size();
            QVERIFY(count >= lastCount && count <= 3);
            lastCount = count;
        }
        QRandomGenerator random(20261123);
        Served s;
        for (int round = 0; round < 5000; ++round) {
            QByteArray datagram = whole.left(int(random.bounded(whole.size() + 1)));
            for (int flips = int(random.bounded(4)); flips >= 0 && !datagram.isEmpty(); --flips)
                datagram[int(random.bounded(datagram.size()))] = char(random.bounded(256));
            const quint32 id = s.agent.pduParse(datagram);
            QByteArray response;
            s.agent.pduBuildResponce(id, response);
        }
        qInstallMessageHandler(previous);
        QCOMPARE(lastCount, 3);
        for (unsigned id : {2u, 3u, 4u, 5u, 6u, 7u, 100u, 101u, 102u, 103u, 104u, 105u})
            QVERIFY(s.agent.vbGet(id)->oid.length <= 12);
    }

    void receivers()
    {
        SNMP agent;
        QVERIFY(!agent.hostsOk());
        QTest::ignoreMessage(QtInfoMsg, "Add SNMP Server 127.0.0.1");
        QTest::ignoreMessage(QtInfoMsg, "Set SNMP Trap send Port 162");
        agent.hostSet(-1, "LocalHost:162");
        QCOMPARE(agent.hostTrapPort(), 162u);
        QVERIFY(agent.hostsOk());

        agent.hostSet(3, "not an address");
        QTest::ignoreMessage(QtInfoMsg, "Add SNMP Server 127.0.0.3");
        agent.hostSet(7, "127.0.0.3");
        QTest::ignoreMessage(QtInfoMsg, "Set SNMP Server 127.0.0.2");
        agent.hostSet(0, "127.0.0.2");
        QCOMPARE(agent.hostList(),
                 (QList<QHostAddress>{QHostAddress("127.0.0.2"), QHostAddress("127.0.0.3")}));

        agent.hostRemove(5);
        QTest::ignoreMessage(QtInfoMsg, "Removing SNMP Server 127.0.0.2");
        agent.hostRemove(0);
        QCOMPARE(agent.hostTrapPort(), 162u);
        QTest::ignoreMessage(QtInfoMsg, "Removing SNMP Server 127.0.0.3");
        agent.hostRemove(0);
        QCOMPARE(agent.hostTrapPort(), 0u);
        QVERIFY(!agent.hostsOk());
    }

    void listenPort()
    {
        // A port held without sharing cannot be bound: the agent logs it and stays off.
        QUdpSocket holder;
        QVERIFY(holder.bind(QHostAddress::AnyIPv4, 0, QUdpSocket::DontShareAddress));
        const unsigned port = holder.localPort();
        SNMP agent;
        QTest::ignoreMessage(QtInfoMsg, qPrintable(QString("Set SNMP Receiving port %1").arg(port)));
        QTest::ignoreMessage(QtWarningMsg,
                             QRegularExpression(QString("^SNMP listen error .* %1$").arg(port)));
        agent.hostSetListenPort(port);
        QCOMPARE(agent.hostListenPort(), 0u);
        QVERIFY(!agent.hostsOk());

        holder.close();
        QTest::ignoreMessage(QtInfoMsg, qPrintable(QString("Set SNMP Receiving port %1").arg(port)));
        agent.hostSetListenPort(port);
        QCOMPARE(agent.hostListenPort(), port);
        QVERIFY(agent.hostsOk());
        QTest::ignoreMessage(QtInfoMsg, "Set SNMP Receiving port 0");
        agent.hostSetListenPort(0);
        QVERIFY(!agent.hostsOk());
    }
};

QTEST_GUILESS_MAIN(TestSnmp)
#include "tst_snmp.moc"
