// Fuzz target for what an SNMP manager sends to the agent: the request scanner (pduParse) and the
// handling of the request it found (pduBuildResponce), with getValue answered the way the manager
// answers it, so that every binding is encoded with a value in place.
//
// A fresh agent per input, with the manager's variable table, keeps an input's outcome its own.
// The response must be one well-formed SEQUENCE whose length covers exactly the bytes written.

#include "fuzz/fuzzqt.h"
#include "snmp/snmp.h"

#include <QByteArray>

#include <cstdint>
#include <cstdlib>

namespace {

volatile unsigned s_sink;

// The manager's table: the instance variables 2..7 next to the agent's own 100..105.
void fillTable(SNMP &agent)
{
    for (unsigned id : {2u, 3u, 4u, 5u, 7u})
        agent.vbAdd(id, true);
    agent.vbAdd(6, false);
    agent.vbSet(103, "VEXA Studio Manager");
    agent.vbSet(104, "fuzz host");
    agent.vbSet(105, 0x7F000001u);
}

// As the manager does: the uptime for 102, the instance's values for an instance variable. The
// texts vary with the agent id so that empty, short and long strings are all encoded.
void answer(SNMP &agent, uint agentId, uint id)
{
    if (id == 102) {
        agent.vbSet(102, 123456u + agentId);
        return;
    }
    if (id > 99)
        return;
    static const char *const texts[] = {"", "R", "Running",
                                        "a status text of the longest kind seen in a row"};
    agent.vbSet(2, agentId);
    agent.vbSet(3, texts[agentId % 4]);
    agent.vbSet(4, 0xFFFFFFFFu - agentId);
    agent.vbSet(5, texts[(agentId + 1) % 4]);
    agent.vbSet(7, agentId << 24);
}

// The outer SEQUENCE's definite length must match what follows it.
void checkResponse(const QByteArray &out)
{
    if (out.isEmpty())
        return;
    const auto *p = reinterpret_cast<const unsigned char *>(out.constData());
    const int size = out.size();
    if (size < 2 || p[0] != 0x30)
        abort();
    qint64 length = p[1];
    int header = 2;
    if (p[1] & 0x80) {
        const int n = p[1] & 0x7F;
        if (n == 0 || n > 4 || size < 2 + n)
            abort();
        length = 0;
        for (int i = 0; i < n; ++i)
            length = (length << 8) | p[2 + i];
        header += n;
    }
    if (header + length != size)
        abort();
    for (int i = 0; i < size; ++i)
        s_sink += p[i];
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    fuzzqt::application();
    SNMP agent;
    fillTable(agent);
    QObject::connect(&agent, &SNMP::getValue,
                     [&agent](uint agentId, uint id) { answer(agent, agentId, id); });
    QObject::connect(&agent, &SNMP::setValue,
                     [](uint agentId, uint id, uint value) { s_sink += agentId + id + value; });

    const QByteArray datagram(reinterpret_cast<const char *>(data), int(size));
    const quint32 requestId = agent.pduParse(datagram);
    QByteArray out;
    agent.pduBuildResponce(requestId, out);
    checkResponse(out);
    return 0;
}
