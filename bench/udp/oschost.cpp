// Hosts the OSC gateway for the benchmark the way the manager does: an `OSC` object whose address
// space is copied from an instance's Ember+ parameter tree, receiving on a UDP port, with
// oscSendToInstance connected to a handler that maps the agent number onto the instance keys as
// the manager does, and counts instead of sending the value over the hub. Every K-th dispatched
// message is acknowledged to the load generator with an 8-byte datagram holding the count.
//
//   vexa_bench_oschost PORT ACK_PORT [K]
//
// Runs until SIGTERM or SIGINT.
#include "app/manager.h"
#include "benchhost.h"
#include "ember/sampletree.h"
#include "osc/osc.h"

#include <QCoreApplication>
#include <QMap>
#include <arpa/inet.h>
#include <cstdio>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

class OscHost : public QObject
{
public:
    OscHost(unsigned port, quint16 ackPort, quint64 ackEvery) : m_ackEvery(ackEvery)
    {
        for (uint i = 1; i <= 8; ++i)
            m_instances.insert(0x1000u * i, 0);
        SSampleNode top;
        sampleNode_init(&top, nullptr);
        buildTree(&top);
        Manager::oscCopyTree(&m_osc, &top, QString());
        sampleNode_free(&top);

        m_ackSocket = ::socket(AF_INET, SOCK_DGRAM, 0);
        m_ackTo.sin_family = AF_INET;
        m_ackTo.sin_port = htons(ackPort);
        m_ackTo.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        connect(&m_osc, &OSC::oscSendToInstance, this, &OscHost::instanceDataSend);
        m_osc.inPortSet(port);
    }
    ~OscHost() override
    {
        std::fprintf(stderr, "oschost: %llu messages dispatched, %d names\n",
                     static_cast<unsigned long long>(m_count), int(m_osc.names().size()));
        if (m_ackSocket >= 0)
            ::close(m_ackSocket);
    }

    bool receiving() const { return m_osc.receiving() && m_ackSocket >= 0; }

private:
    // The manager's oscInstanceDataSend, with the hub send replaced by a count per instance.
    void instanceDataSend(int agent, int parameterId, int value, QByteArray data)
    {
        Q_UNUSED(parameterId)
        Q_UNUSED(value)
        Q_UNUSED(data)
        const QList<uint> keys = m_instances.keys();
        if (agent < 0) {
            for (uint id : keys)
                ++m_instances[id];
        } else if (agent < keys.size()) {
            ++m_instances[keys.at(agent)];
        }
        if (++m_count % m_ackEvery == 0)
            ::sendto(m_ackSocket, &m_count, sizeof(m_count), 0, reinterpret_cast<const sockaddr *>(&m_ackTo),
                     sizeof(m_ackTo));
    }

    OSC m_osc;
    QMap<uint, quint64> m_instances; // instance id -> messages carried to it
    quint64 m_count = 0;
    quint64 m_ackEvery;
    int m_ackSocket = -1;
    sockaddr_in m_ackTo = {};
};

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    if (argc < 3) {
        std::fprintf(stderr, "usage: vexa_bench_oschost PORT ACK_PORT [K]\n");
        return 2;
    }
    benchHostInit(QStringLiteral("VEXA Studio Manager"));
    const quint64 ackEvery = argc > 3 ? qMax(1ull, QByteArray(argv[3]).toULongLong()) : 16;
    OscHost host(QByteArray(argv[1]).toUInt(), quint16(QByteArray(argv[2]).toUInt()), ackEvery);
    if (!host.receiving())
        return 1;
    return benchHostRun(app);
}
