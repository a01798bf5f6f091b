// Hosts the SNMP agent for the benchmark the way the manager does: an `SNMP` object with the
// manager's variables, its getValue/setValue served synchronously from a table of instances whose
// values come from their status records. The manager's own hub, processes and window are left out:
// a GET never reaches them.
//
//   vexa_bench_snmphost PORT [INSTANCES]
//
// Runs until SIGTERM or SIGINT.
#include "benchhost.h"
#include "snmp/snmp.h"

#include <QCoreApplication>
#include <QHostAddress>
#include <QMap>
#include <QSysInfo>
#include <QtEndian>
#include <cstdio>
#include <cstring>

namespace {

// The parts of a status record the agent reports: the offsets of the manager's status record.
constexpr int kRecordBytes = 1424;
constexpr int kName = 28, kNameWidth = 64;
constexpr int kRunStateText = 96, kRunStateTextWidth = 64;
constexpr int kJitterBuffers = 848, kSnmpWord = 852;

struct Instance
{
    unsigned index = 0; // SNMP agent id
    int statusCode = 0;
    QByteArray record;
};

QByteArray recordText(const QByteArray &record, int offset, int width)
{
    const char *start = record.constData() + offset;
    return QByteArray(start, int(qstrnlen(start, uint(width))));
}

quint32 recordWord(const QByteArray &record, int offset)
{
    return qFromLittleEndian<quint32>(record.constData() + offset);
}

void recordSetText(char *record, int offset, int width, const QByteArray &text)
{
    std::memcpy(record + offset, text.constData(), size_t(qMin(text.size(), width - 1)));
}

// The manager's side of the agent: the variables of the instance with the asked agent id.
class SnmpHost : public QObject
{
public:
    SnmpHost(unsigned port, int count)
    {
        for (int i = 0; i < count; ++i) {
            Instance instance;
            instance.index = unsigned(i);
            instance.statusCode = i % 10;
            char record[kRecordBytes] = {};
            recordSetText(record, kName, kNameWidth, QByteArray("Studio line ") + QByteArray::number(i + 1));
            recordSetText(record, kRunStateText, kRunStateTextWidth, "Connected");
            qToLittleEndian<quint32>(0x00280050u + quint32(i), record + kJitterBuffers);
            qToLittleEndian<quint32>(quint32(i * 7), record + kSnmpWord);
            instance.record = QByteArray(record, kRecordBytes);
            m_instances.insert(0x1000u * unsigned(i + 1), instance); // keys: instance ids
        }
        m_agent.vbSet(105, QHostAddress(QHostAddress::LocalHost).toIPv4Address());
        m_agent.vbSet(103, QCoreApplication::applicationName().toLocal8Bit().constData());
        m_agent.vbSet(104, QSysInfo::prettyProductName().toLocal8Bit().constData());
        connect(&m_agent, &SNMP::getValue, this, &SnmpHost::snmpGet, Qt::DirectConnection);
        connect(&m_agent, &SNMP::setValue, this, &SnmpHost::snmpSet, Qt::DirectConnection);
        for (unsigned id : {2u, 3u, 4u, 5u, 7u})
            m_agent.vbAdd(id, true);
        m_agent.vbAdd(6, false);
        m_agent.hostSetListenPort(port);
    }

    bool listening() const { return m_agent.hostListenPort() != 0; }

private:
    void snmpGet(uint agentId, uint id)
    {
        if (id == 102) {
            m_agent.vbSet(102, SNMP::millisecondsSinceMidnight());
            return;
        }
        if (id > 99)
            return;
        const Instance *found = nullptr;
        for (const Instance &instance : qAsConst(m_instances)) {
            if (instance.index == agentId) {
                found = &instance;
                break;
            }
        }
        if (!found) {
            m_agent.vbSet(2, 0u);
            m_agent.vbSet(4, 0u);
            m_agent.vbSet(7, 0u);
            return;
        }
        m_agent.vbSet(2, unsigned(found->statusCode));
        m_agent.vbSet(3, recordText(found->record, kRunStateText, kRunStateTextWidth).constData());
        m_agent.vbSet(4, unsigned(recordWord(found->record, kJitterBuffers)));
        m_agent.vbSet(5, recordText(found->record, kName, kNameWidth).constData());
        m_agent.vbSet(7, unsigned(recordWord(found->record, kSnmpWord)));
    }

    void snmpSet(uint agentId, uint id, uint value)
    {
        if (id == 6 && agentId < uint(m_instances.size()))
            m_agent.vbSet(6, value);
    }

    SNMP m_agent;
    QMap<uint, Instance> m_instances;
};

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    if (argc < 2) {
        std::fprintf(stderr, "usage: vexa_bench_snmphost PORT [INSTANCES]\n");
        return 2;
    }
    benchHostInit(QStringLiteral("VEXA Studio Manager"));
    SnmpHost host(QByteArray(argv[1]).toUInt(), argc > 2 ? QByteArray(argv[2]).toInt() : 8);
    if (!host.listening())
        return 1;
    return benchHostRun(app);
}
