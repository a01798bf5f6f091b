// Site benchmark: the manager with N simulated instances (VexaStudioBench, one process, each
// instance on its own hub connection, 10 status records a second), 4 Ember+ consumers per
// instance, one OSC target and SNMP traps on; and, as the limit, the same records through a bare
// hub relay (bench_site_relay) with nothing behind it. Rounds alternate which goes first.
//
// Every record carries its send time in the warning message text ("#@<ns>.<record number>",
// CLOCK_MONOTONIC); the manager forwards it as the "WarningMessage" value, so each consumer sees
// the delay of every record and the records that went missing (gaps in the numbers).
//
// Rows go to stdout, progress to stderr.
// Usage: bench_site <bin dir> [rounds] [window seconds] [instances]   (instances: one N instead of
// 8, 32 and 64). With BENCH_SITE_TRACE set, every record that arrives later than 20 ms is logged.
#include "bench/provider/benchutil.h"

#include <arpa/inet.h>
#include <memory>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>

using namespace bench;

namespace {

constexpr int ConsumersPerInstance = 4;
// The manager's hub runs on a thread named after the pipe name.
constexpr const char *HubThreadName = "VXMANAGERQT";

struct Consumer
{
    int fd = -1;
    int instance = 0;
    StampScanner scanner;
    unsigned lastSequence = 0;
    bool measuring = false;
    long stamps = 0, frames = 0, lost = 0;
    std::vector<double> *latencies = nullptr;

    ~Consumer()
    {
        if (fd >= 0)
            close(fd);
    }

    void received(const char *data, size_t length)
    {
        const int64_t now = nowNs();
        if (measuring)
            for (size_t i = 0; i < length; ++i)
                frames += (static_cast<unsigned char>(data[i]) == 0xFF); // S101 end of frame
        scanner.scan(data, length, [&](int64_t ns, unsigned sequence) {
            if (measuring) {
                ++stamps;
                if (lastSequence != 0 && sequence > lastSequence + 1)
                    lost += long(sequence - lastSequence - 1);
                latencies->push_back(double(now - ns) / 1e6);
                if (getenv("BENCH_SITE_TRACE") != nullptr && now - ns > 20000000)
                    note("late: instance %d record %u, %.1f ms, at %lld ms", instance, sequence,
                         double(now - ns) / 1e6, (long long)(now / 1000000 % 100000));
            }
            lastSequence = sequence;
        });
    }
};

int tryConnect(int port)
{
    const int fd = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(uint16_t(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (::connect(fd, reinterpret_cast<sockaddr *>(&address), sizeof(address)) != 0) {
        close(fd);
        return -1;
    }
    fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) | O_NONBLOCK);
    return fd;
}

// A UDP socket on 127.0.0.1 and a free port; returns the descriptor, the port in *port.
int udpSink(int *port)
{
    const int fd = socket(AF_INET, SOCK_DGRAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    bind(fd, reinterpret_cast<sockaddr *>(&address), sizeof(address));
    socklen_t length = sizeof(address);
    getsockname(fd, reinterpret_cast<sockaddr *>(&address), &length);
    *port = ntohs(address.sin_port);
    const int size = 4 * 1024 * 1024;
    setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &size, sizeof(size));
    fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) | O_NONBLOCK);
    return fd;
}

bool tcpPortFree(int port)
{
    const int fd = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(uint16_t(port));
    address.sin_addr.s_addr = htonl(INADDR_ANY);
    const bool ok = bind(fd, reinterpret_cast<sockaddr *>(&address), sizeof(address)) == 0;
    close(fd);
    return ok;
}

// N consecutive free TCP ports.
int freePortRange(int count)
{
    srand(unsigned(nowNs()));
    for (int attempt = 0; attempt < 200; ++attempt) {
        const int base = 20000 + rand() % 30000;
        bool ok = true;
        for (int p = base; p < base + count && ok; ++p)
            ok = tcpPortFree(p);
        if (ok)
            return base;
    }
    return -1;
}

// A fresh directory for HOME, TMPDIR and the XDG folders, so that the hub socket, the single-run
// guard, settings and logs of a run meet nothing of another.
std::string isolate(const std::string &root, const std::string &name)
{
    const std::string dir = root + "/" + name;
    mkdir(dir.c_str(), 0700);
    for (const char *sub : {"/h", "/t", "/c", "/r"})
        mkdir((dir + sub).c_str(), 0700);
    setenv("HOME", (dir + "/h").c_str(), 1);
    setenv("TMPDIR", (dir + "/t").c_str(), 1);
    setenv("XDG_CONFIG_HOME", (dir + "/c").c_str(), 1);
    setenv("XDG_RUNTIME_DIR", (dir + "/r").c_str(), 1);
    setenv("QT_QPA_PLATFORM", "offscreen", 1);
    return dir;
}

struct Result
{
    bool ok = false;
    double cpuPercent = 0, rssMb = 0;
    double hubCpuPercent = 0;                           // the manager's hub thread (relay and its own client)
    double standInCpuPercent = 0, driverCpuPercent = 0; // for the log: who else took the cores
    double recordsSent = 0, recordsAccepted = 0, emberUpdates = 0, oscMessages = 0, traps = 0;
    double latencyP50 = 0, latencyP99 = 0;
    long lost = 0;
};

struct Site
{
    std::string binDir, root;
    int windowS = 8;
    int run = 0;

    // Waits for a line from the child that starts with prefix; false on time-out.
    bool waitLine(Child &child, const char *prefix, int timeoutMs, std::string *line = nullptr)
    {
        const int64_t end = nowNs() + int64_t(timeoutMs) * 1000000;
        std::vector<std::string> lines;
        while (nowNs() < end) {
            pollfd p{child.out, POLLIN, 0};
            if (poll(&p, 1, 50) > 0 && !child.readLines(&lines))
                return false;
            for (const std::string &l : lines)
                if (l.rfind(prefix, 0) == 0) {
                    if (line != nullptr)
                        *line = l;
                    return true;
                }
            lines.clear();
        }
        return false;
    }

    long sentSoFar(Child &standIn)
    {
        standIn.send("");
        std::string line;
        return waitLine(standIn, "SENT ", 5000, &line) ? atol(line.c_str() + 5) : -1;
    }

    Result manager(int instances)
    {
        Result result;
        const std::string dir = isolate(root, "m" + std::to_string(instances) + "-" + std::to_string(++run));
        int oscPort = 0, trapPort = 0, snmpPort = 0;
        const int oscSink = udpSink(&oscPort);
        const int trapSink = udpSink(&trapPort);
        const int snmpProbe = udpSink(&snmpPort);
        close(snmpProbe);
        const int firstPort = freePortRange(instances);
        const std::string vxma = dir + "/site.vxma";
        FILE *f = fopen(vxma.c_str(), "w");
        fprintf(f,
                "[Options]\nEmberNetworkNIC=-1\n\n[SNMP]\nReceivePort=%d\nTrapSendPort=%d\nManagerIP=127.0.0."
                "1\n\n"
                "[OSC]\nTargetIP=127.0.0.1\nTargetPort=%d\n",
                snmpPort, trapPort, oscPort);
        fclose(f);

        Child program, standIn;
        std::vector<std::unique_ptr<Consumer>> consumers;
        std::vector<double> latencies;
        auto finish = [&]() {
            consumers.clear();
            standIn.stop();
            program.stop(3000);
            close(oscSink);
            close(trapSink);
            return result;
        };
        program.start({binDir + "/vexa-studio-manager", "--headless", "--vxma", vxma}, dir + "/manager.log");
        sleepMs(500);
        standIn.start({binDir + "/VexaStudioBench", "--instances", std::to_string(instances), "--rate", "10",
                       "--first-port", std::to_string(firstPort), "--dir", dir},
                      dir + "/standin.log");
        if (!waitLine(standIn, "READY", 30000)) {
            note("site: the instances were not all greeted by the manager (see %s)", dir.c_str());
            return finish();
        }
        for (int k = 0; k < instances; ++k) {
            for (int c = 0; c < ConsumersPerInstance; ++c) {
                int fd = -1;
                for (int attempt = 0; attempt < 300 && fd < 0; ++attempt) {
                    fd = tryConnect(firstPort + k);
                    if (fd < 0)
                        sleepMs(50);
                }
                if (fd < 0) {
                    note("site: nothing listens on port %d", firstPort + k);
                    return finish();
                }
                consumers.emplace_back(new Consumer);
                consumers.back()->fd = fd;
                consumers.back()->instance = k;
                consumers.back()->latencies = &latencies;
            }
        }

        std::vector<char> buffer(256 * 1024);
        std::vector<pollfd> fds;
        long oscCount = 0, trapCount = 0;
        bool measuring = false;
        auto pumpFor = [&](int ms) {
            const int64_t end = nowNs() + int64_t(ms) * 1000000;
            while (nowNs() < end) {
                fds.clear();
                fds.push_back({oscSink, POLLIN, 0});
                fds.push_back({trapSink, POLLIN, 0});
                for (auto &c : consumers)
                    fds.push_back({c->fd, POLLIN, 0});
                if (poll(fds.data(), nfds_t(fds.size()), 20) <= 0)
                    continue;
                for (int k = 0; k < 2; ++k)
                    if (fds[size_t(k)].revents & POLLIN)
                        while (recv(fds[size_t(k)].fd, buffer.data(), buffer.size(), 0) > 0)
                            if (measuring)
                                ++(k == 0 ? oscCount : trapCount);
                for (size_t i = 2; i < fds.size(); ++i) {
                    if (!(fds[i].revents & (POLLIN | POLLHUP)))
                        continue;
                    const ssize_t n = read(fds[i].fd, buffer.data(), buffer.size());
                    if (n > 0)
                        consumers[i - 2]->received(buffer.data(), size_t(n));
                }
            }
        };
        pumpFor(2000); // the first records, forced updates and connections settle
        const long sentBefore = sentSoFar(standIn);
        const long long ticksBefore = cpuTicks(program.pid);
        const long long hubBefore = threadTicks(program.pid, HubThreadName);
        const long long standInBefore = cpuTicks(standIn.pid), driverBefore = cpuTicks(getpid());
        const int64_t start = nowNs();
        measuring = true;
        for (auto &c : consumers)
            c->measuring = true;
        long rssPeak = 0;
        for (int s = 0; s < windowS * 4; ++s) {
            pumpFor(250);
            rssPeak = std::max(rssPeak, rssKb(program.pid));
        }
        const double seconds = double(nowNs() - start) / 1e9;
        const long long ticksAfter = cpuTicks(program.pid);
        const long long hubAfter = threadTicks(program.pid, HubThreadName);
        const long long standInAfter = cpuTicks(standIn.pid), driverAfter = cpuTicks(getpid());
        measuring = false;
        for (auto &c : consumers)
            c->measuring = false;
        const long sentAfter = sentSoFar(standIn);

        long firstConsumerStamps = 0, frames = 0;
        for (auto &c : consumers) {
            frames += c->frames;
            result.lost += c->lost;
        }
        for (size_t i = 0; i < consumers.size(); i += ConsumersPerInstance)
            firstConsumerStamps += consumers[i]->stamps;
        result.cpuPercent = double(ticksAfter - ticksBefore) / ticksPerSecond() / seconds * 100.0;
        result.hubCpuPercent = double(hubAfter - hubBefore) / ticksPerSecond() / seconds * 100.0;
        result.standInCpuPercent = double(standInAfter - standInBefore) / ticksPerSecond() / seconds * 100.0;
        result.driverCpuPercent = double(driverAfter - driverBefore) / ticksPerSecond() / seconds * 100.0;
        result.rssMb = double(rssPeak) / 1024.0;
        result.recordsSent = double(sentAfter - sentBefore) / seconds;
        result.recordsAccepted = double(firstConsumerStamps) / seconds;
        result.emberUpdates = double(frames) / seconds;
        result.oscMessages = double(oscCount) / seconds;
        result.traps = double(trapCount) / seconds;
        result.latencyP50 = percentile(latencies, 50);
        result.latencyP99 = percentile(latencies, 99);
        result.ok = firstConsumerStamps > 0 && ticksAfter > 0;
        return finish();
    }

    Result relay(int instances)
    {
        Result result;
        const std::string dir = isolate(root, "r" + std::to_string(instances) + "-" + std::to_string(++run));
        Child program, standIn;
        program.start({binDir + "/bench_site_relay"}, dir + "/relay.log");
        sleepMs(500);
        standIn.start({binDir + "/VexaStudioBench", "--instances", std::to_string(instances), "--rate", "10",
                       "--relay", "--dir", dir},
                      dir + "/standin.log");
        if (waitLine(standIn, "READY", 30000)) {
            sleepMs(2000);
            const long sentBefore = sentSoFar(standIn);
            const long long ticksBefore = cpuTicks(program.pid);
            const int64_t start = nowNs();
            long rssPeak = 0;
            for (int s = 0; s < windowS * 4; ++s) {
                sleepMs(250);
                rssPeak = std::max(rssPeak, rssKb(program.pid));
            }
            const double seconds = double(nowNs() - start) / 1e9;
            const long long ticksAfter = cpuTicks(program.pid);
            const long sentAfter = sentSoFar(standIn);
            result.cpuPercent = double(ticksAfter - ticksBefore) / ticksPerSecond() / seconds * 100.0;
            result.rssMb = double(rssPeak) / 1024.0;
            result.recordsSent = double(sentAfter - sentBefore) / seconds;
            result.ok = ticksAfter > 0;
        } else {
            note("site: the instances did not reach the bare relay (see %s)", dir.c_str());
        }
        standIn.stop();
        program.stop();
        return result;
    }
};

std::string loadAverage()
{
    char text[64] = {};
    FILE *f = fopen("/proc/loadavg", "r");
    if (f != nullptr) {
        if (fgets(text, sizeof(text), f) == nullptr)
            text[0] = '\0';
        fclose(f);
    }
    text[strcspn(text, " ")] = '\0';
    return text;
}

template <typename F>
double med(const std::vector<Result> &results, F field)
{
    std::vector<double> v;
    for (const Result &r : results)
        if (r.ok)
            v.push_back(field(r));
    return median(v);
}

} // namespace

int main(int argc, char **argv)
{
    if (argc < 2) {
        fprintf(stderr, "usage: %s <bin dir> [rounds] [window seconds] [instances]\n", argv[0]);
        return 2;
    }
    signal(SIGPIPE, SIG_IGN);
    Site site;
    site.binDir = argv[1];
    const int rounds = argc > 2 ? atoi(argv[2]) : 2;
    site.windowS = argc > 3 ? atoi(argv[3]) : 8;
    // Directly below /tmp: the hub's local socket lives in each run's TMPDIR, and a socket path
    // may not be longer than 107 bytes.
    std::string pattern = "/tmp/vxsite-XXXXXX";
    if (mkdtemp(&pattern[0]) == nullptr) {
        note("cannot make a work directory");
        return 1;
    }
    site.root = pattern;
    const char *scenario = "site";
    bool failures = false;

    std::vector<int> sizes = {8, 32, 64};
    if (argc > 4)
        sizes = {atoi(argv[4])};
    for (int n : sizes) {
        std::vector<Result> ours, limit;
        for (int r = 0; r < rounds; ++r) {
            for (int k = 0; k < 2; ++k) {
                const bool isManager = (k == 0) == (r % 2 == 0);
                if (isManager) {
                    Result m = site.manager(n);
                    note("site N=%d round %d manager: CPU %.1f%% (hub thread %.1f%%), RSS %.1f MB, records "
                         "%.0f/s sent %.0f/s accepted, "
                         "Ember+ %.0f/s, OSC %.0f/s, traps %.1f/s, latency %.2f/%.2f ms, lost %ld; CPU of "
                         "the stand-ins %.0f%%, "
                         "of the consumers %.0f%%, load %s%s",
                         n, r + 1, m.cpuPercent, m.hubCpuPercent, m.rssMb, m.recordsSent, m.recordsAccepted,
                         m.emberUpdates, m.oscMessages, m.traps, m.latencyP50, m.latencyP99, m.lost,
                         m.standInCpuPercent, m.driverCpuPercent, loadAverage().c_str(),
                         m.ok ? "" : " (failed)");
                    ours.push_back(m);
                } else {
                    Result b = site.relay(n);
                    note("site N=%d round %d bare relay: CPU %.1f%%, RSS %.1f MB, records %.0f/s%s", n, r + 1,
                         b.cpuPercent, b.rssMb, b.recordsSent, b.ok ? "" : " (failed)");
                    limit.push_back(b);
                }
            }
        }
        const bool targeted = n == 64;
        const std::string s = " (N=" + std::to_string(n) + ")";
        if (med(ours, [](const Result &) { return 1.0; }) == 0 ||
            med(limit, [](const Result &) { return 1.0; }) == 0) {
            failures = true;
            row(scenario, "all runs failed" + s, "failed", "-", "-", targeted ? "site targets" : "-",
                targeted ? "no" : "-");
            continue;
        }
        auto verdict = [&](bool ok) { return targeted ? std::string(ok ? "yes" : "no") : std::string("-"); };
        const double cpu = med(ours, [](const Result &r) { return r.cpuPercent; });
        const double cpuRelay = med(limit, [](const Result &r) { return r.cpuPercent; });
        row(scenario, "manager CPU, % of one core; peer = bare relay" + s, fmt(cpu), fmt(cpuRelay),
            cpuRelay > 0 ? fmt(cpu / cpuRelay, 1) + "x relay" : "-", targeted ? "<= 25%" : "-",
            verdict(cpu <= 25));
        const double hub = med(ours, [](const Result &r) { return r.hubCpuPercent; });
        row(scenario, "of which the hub thread (relay), % of one core; peer = bare relay" + s, fmt(hub),
            fmt(cpuRelay), cpuRelay > 0 ? fmt(hub / cpuRelay, 1) + "x relay" : "-");
        const double rss = med(ours, [](const Result &r) { return r.rssMb; });
        row(scenario, "manager RSS, MB; peer = bare relay" + s, fmt(rss),
            fmt(med(limit, [](const Result &r) { return r.rssMb; })), "-", targeted ? "<= 100 MB" : "-",
            verdict(rss <= 100));
        const double sent = med(ours, [](const Result &r) { return r.recordsSent; });
        const double accepted = med(ours, [](const Result &r) { return r.recordsAccepted; });
        row(scenario, "records accepted/s (sent/s in peer column)" + s, fmt(accepted, 0), fmt(sent, 0));
        row(scenario, "Ember+ updates delivered/s, all consumers" + s,
            fmt(med(ours, [](const Result &r) { return r.emberUpdates; }), 0));
        row(scenario, "OSC messages delivered/s" + s,
            fmt(med(ours, [](const Result &r) { return r.oscMessages; }), 0));
        row(scenario, "end-to-end latency p50, ms" + s,
            fmt(med(ours, [](const Result &r) { return r.latencyP50; }), 2));
        const double p99 = med(ours, [](const Result &r) { return r.latencyP99; });
        row(scenario, "end-to-end latency p99, ms" + s, fmt(p99, 2), "-", "-", targeted ? "<= 10 ms" : "-",
            verdict(p99 <= 10));
        long lost = 0;
        for (const Result &r : ours)
            lost = std::max(lost, r.lost);
        row(scenario, "lost updates (worst round)" + s, std::to_string(lost), "-", "-", targeted ? "0" : "-",
            verdict(lost == 0));
        int starved = 0;
        for (const Result &r : ours)
            starved += r.ok && r.recordsSent < 0.98 * 10 * n;
        row(scenario, "manager runs starved of CPU (stand-ins below 98% of their rate)" + s,
            std::to_string(starved) + " of " + std::to_string(ours.size()));
        for (const std::vector<Result> *results : {&ours, &limit})
            for (const Result &r : *results)
                failures = failures || !r.ok;
    }
    if (failures) {
        note("site: logs of the runs kept in %s", site.root.c_str());
        return 1;
    }
    const std::string remove = "rm -rf '" + site.root + "'";
    return system(remove.c_str()) == 0 ? 0 : 1;
}
