// Provider benchmark: our EmberServer (provider_host) against a provider on the npm package
// emberplus-connection (npm_provider.js), both serving the instance tree, measured by the same
// consumers in this program. For 1, 8 and 32 consumers and several rounds, alternating which
// provider goes first:
//   - walk: every consumer walks the whole tree with GetDirectory, level by level (the requests of
//     one level are pipelined); the time from the first request to the last answer;
//   - updates: the provider pushes "WarningMessage" values as fast as it takes them for a while;
//     the rate that each consumer receives, the slowest consumer counting;
//   - latency: 200 values a second, each stamped with its send time; receive time minus stamp;
//   - RSS: the provider's largest resident set during the round.
// Rows go to stdout, progress to stderr. Usage: bench_provider <bin dir> <source dir> [rounds]
#include "bench/provider/benchutil.h"
#include "ember/glowreader.h"
#include "ember/glowtags.h"
#include "ember/glowwriter.h"

#include <arpa/inet.h>
#include <map>
#include <memory>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <set>
#include <sys/socket.h>

using namespace bench;

namespace {

constexpr int FloodMs = 2000;
constexpr int PaceCount = 200;
constexpr int PaceIntervalMs = 5;

struct Consumer
{
    int fd = -1;
    SGlowReader reader;
    unsigned char packageBuffer[8192];
    bool walking = false;
    int awaiting = 0;
    int repliesEnded = 0;
    std::vector<std::vector<int>> toExpand;
    std::set<std::vector<int>> expanded;
    int64_t walkStart = 0;
    double walkMs = -1;
    int elements = 0;

    StampScanner scanner;
    long stamps = 0;
    int64_t firstAt = 0, lastAt = 0;
    bool latency = false;
    std::vector<double> latencies;

    Consumer()
    {
        glowReader_init(&reader, onNode, onParameter, nullptr, nullptr, this, packageBuffer,
                        sizeof(packageBuffer));
        reader.base.onFunction = onFunction;
        reader.onPackageReceived = onPackage;
    }
    ~Consumer()
    {
        glowReader_free(&reader);
        if (fd >= 0)
            close(fd);
    }

    bool connectTo(int port)
    {
        fd = socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(uint16_t(port));
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        if (::connect(fd, reinterpret_cast<sockaddr *>(&address), sizeof(address)) != 0)
            return false;
        const int one = 1;
        setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof(one));
        fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) | O_NONBLOCK);
        return true;
    }

    void getDirectory(const std::vector<int> &path)
    {
        SGlowCommand command;
        glowCommand_init(&command);
        command.number = GlowCommandType_GetDirectory;
        unsigned char out[512];
        SGlowOutput output;
        glowOutput_init(&output, out, sizeof(out), 0);
        glowOutput_beginPackage(&output, true);
        glow_writeQualifiedCommand(&output, &command, path.data(), int(path.size()));
        const int length = glowOutput_finishPackage(&output);
        glowOutput_free(&output);
        if (write(fd, out, size_t(length)) != length)
            note("consumer: short write");
        ++awaiting;
    }

    void startWalk()
    {
        walking = true;
        walkStart = nowNs();
        getDirectory({});
    }

    // A reply ended: when the level is answered, ask for the next one.
    void replyDone()
    {
        if (--awaiting > 0)
            return;
        if (toExpand.empty()) {
            walking = false;
            walkMs = double(nowNs() - walkStart) / 1e6;
            return;
        }
        std::vector<std::vector<int>> level;
        level.swap(toExpand);
        for (const auto &path : level)
            getDirectory(path);
    }

    void received(const char *data, size_t length)
    {
        if (walking) {
            glowReader_readBytes(&reader, reinterpret_cast<const unsigned char *>(data), int(length));
            // The package hook runs before a package is decoded: a reply counts as answered once
            // the bytes at hand have been decoded.
            const int ended = repliesEnded;
            repliesEnded = 0;
            for (int i = 0; i < ended && walking; ++i)
                replyDone();
            return;
        }
        const int64_t now = nowNs();
        scanner.scan(data, length, [&](int64_t ns, unsigned) {
            ++stamps;
            if (firstAt == 0)
                firstAt = now;
            lastAt = now;
            if (latency)
                latencies.push_back(double(now - ns) / 1e6);
        });
    }

    static void onNode(const SGlowNode *, EGlowFieldFlags, const int *path, int length, void *state)
    {
        auto *self = static_cast<Consumer *>(state);
        ++self->elements;
        std::vector<int> p(path, path + length);
        if (self->expanded.insert(p).second)
            self->toExpand.push_back(p);
    }
    static void onParameter(const SGlowParameter *, EGlowFieldFlags, const int *, int, void *state)
    {
        ++static_cast<Consumer *>(state)->elements;
    }
    static void onFunction(const SGlowFunction *, EGlowFieldFlags, const int *, int, void *state)
    {
        ++static_cast<Consumer *>(state)->elements;
    }
    static void onPackage(const unsigned char *package, int length, void *state)
    {
        // Glow data packages: slot, message type, command, version, flags, ...; the package with
        // the "last" flag ends a reply.
        if (length >= 5 && package[1] == S101_MESSAGE_EMBER && package[2] == S101_COMMAND_EMBER &&
            (package[4] & 0x40) != 0)
            ++static_cast<Consumer *>(state)->repliesEnded;
    }
};

struct RoundResult
{
    bool ok = false;
    double walkP50 = 0, walkP95 = 0;
    double updatesPerSecond = 0; // slowest consumer
    double latencyP50 = 0, latencyP99 = 0;
    double rssMb = 0;
    double anonMb = 0;
    int elements = 0;
};

// Runs the event loop until done() or the time is up; feeds consumers and collects the
// provider's lines. Returns false on time-out.
template <typename Done>
bool pump(Child &provider, std::vector<std::unique_ptr<Consumer>> &consumers, std::vector<std::string> &lines,
          int timeoutMs, long *rssPeakKb, long *anonPeakKb, Done done)
{
    static std::vector<char> buffer(256 * 1024);
    const int64_t end = nowNs() + int64_t(timeoutMs) * 1000000;
    int64_t nextSample = 0;
    std::vector<pollfd> fds;
    while (!done()) {
        const int64_t now = nowNs();
        if (now > end)
            return false;
        if (now >= nextSample) {
            *rssPeakKb = std::max(*rssPeakKb, rssKb(provider.pid));
            *anonPeakKb = std::max(*anonPeakKb, anonKb(provider.pid));
            nextSample = now + 50000000;
        }
        fds.clear();
        fds.push_back({provider.out, POLLIN, 0});
        for (auto &c : consumers)
            fds.push_back({c->fd, POLLIN, 0});
        if (poll(fds.data(), nfds_t(fds.size()), 20) <= 0)
            continue;
        if (fds[0].revents & (POLLIN | POLLHUP))
            if (!provider.readLines(&lines))
                return false;
        for (size_t i = 1; i < fds.size(); ++i) {
            if (!(fds[i].revents & (POLLIN | POLLHUP)))
                continue;
            for (;;) {
                const ssize_t n = read(fds[i].fd, buffer.data(), buffer.size());
                if (n <= 0)
                    break;
                consumers[i - 1]->received(buffer.data(), size_t(n));
                if (size_t(n) < buffer.size())
                    break;
            }
        }
    }
    return true;
}

bool hasLine(const std::vector<std::string> &lines, const char *prefix)
{
    for (const std::string &l : lines)
        if (l.rfind(prefix, 0) == 0)
            return true;
    return false;
}

RoundResult runRound(const std::vector<std::string> &command, int consumerCount)
{
    RoundResult result;
    Child provider;
    if (!provider.start(command)) {
        note("cannot start %s", command[0].c_str());
        return result;
    }
    std::vector<std::string> lines;
    std::vector<std::unique_ptr<Consumer>> consumers;
    long rssPeak = 0, anonPeak = 0;
    auto finish = [&]() {
        provider.send("quit");
        provider.stop();
        return result;
    };
    if (!pump(provider, consumers, lines, 10000, &rssPeak, &anonPeak,
              [&] { return hasLine(lines, "PORT "); })) {
        note("%s did not start", command[0].c_str());
        return finish();
    }
    int port = 0;
    for (const std::string &l : lines)
        if (l.rfind("PORT ", 0) == 0)
            port = atoi(l.c_str() + 5);
    for (int i = 0; i < consumerCount; ++i) {
        consumers.emplace_back(new Consumer);
        if (!consumers.back()->connectTo(port)) {
            note("cannot connect to port %d", port);
            return finish();
        }
    }

    // Walk, all consumers at once.
    for (auto &c : consumers)
        c->startWalk();
    auto walked = [&] {
        for (auto &c : consumers)
            if (c->walking)
                return false;
        return true;
    };
    if (!pump(provider, consumers, lines, 10000, &rssPeak, &anonPeak, walked)) {
        note("walk did not finish");
        return finish();
    }
    std::vector<double> walks;
    for (auto &c : consumers)
        walks.push_back(c->walkMs);
    result.walkP50 = percentile(walks, 50);
    result.walkP95 = percentile(walks, 95);
    result.elements = consumers[0]->elements;

    // Updates as fast as the provider takes them.
    lines.clear();
    provider.send("flood " + std::to_string(FloodMs));
    if (!pump(provider, consumers, lines, FloodMs + 15000, &rssPeak, &anonPeak,
              [&] { return hasLine(lines, "FLOODED"); })) {
        note("flood did not finish");
        return finish();
    }
    // What is still on its way: until nothing has arrived for 200 ms.
    auto quiet = [&] {
        int64_t last = 0;
        for (auto &c : consumers)
            last = std::max(last, c->lastAt);
        return nowNs() - last > 200000000;
    };
    pump(provider, consumers, lines, 5000, &rssPeak, &anonPeak, quiet);
    double slowest = -1;
    for (auto &c : consumers) {
        const double seconds = double(c->lastAt - c->firstAt) / 1e9;
        const double rate = seconds > 0 ? double(c->stamps) / seconds : 0;
        slowest = slowest < 0 ? rate : std::min(slowest, rate);
    }
    result.updatesPerSecond = slowest;

    // Latency at a steady pace.
    lines.clear();
    for (auto &c : consumers)
        c->latency = true;
    provider.send("pace " + std::to_string(PaceCount) + " " + std::to_string(PaceIntervalMs));
    if (!pump(provider, consumers, lines, 20000, &rssPeak, &anonPeak,
              [&] { return hasLine(lines, "PACED"); })) {
        note("pace did not finish");
        return finish();
    }
    const int64_t after = nowNs() + 200000000;
    pump(provider, consumers, lines, 300, &rssPeak, &anonPeak, [&] { return nowNs() > after; });
    std::vector<double> latencies;
    for (auto &c : consumers)
        latencies.insert(latencies.end(), c->latencies.begin(), c->latencies.end());
    result.latencyP50 = percentile(latencies, 50);
    result.latencyP99 = percentile(latencies, 99);
    result.rssMb = double(rssPeak) / 1024.0;
    result.anonMb = double(anonPeak) / 1024.0;
    result.ok = !latencies.empty() && result.updatesPerSecond > 0;
    return finish();
}

struct Summary
{
    std::vector<RoundResult> rounds;
    double med(double RoundResult::*field) const
    {
        std::vector<double> v;
        for (const RoundResult &r : rounds)
            if (r.ok)
                v.push_back(r.*field);
        return median(v);
    }
};

std::string ratioText(double ratio)
{
    return ratio > 0 ? fmt(ratio, 1) + "x" : "-";
}

} // namespace

int main(int argc, char **argv)
{
    if (argc < 3) {
        fprintf(stderr, "usage: %s <bin dir> <source dir> [rounds]\n", argv[0]);
        return 2;
    }
    const std::string binDir = argv[1];
    const std::string sourceDir = argv[2];
    const int rounds = argc > 3 ? atoi(argv[3]) : 3;
    signal(SIGPIPE, SIG_IGN);

    const std::vector<std::string> ours = {binDir + "/bench_provider_host"};
    const std::vector<std::string> peer = {"node", sourceDir + "/bench/provider/npm_provider.js"};
    const char *scenario = "provider";

    for (int consumers : {1, 8, 32}) {
        Summary our, their;
        for (int r = 0; r < rounds; ++r) {
            const bool oursFirst = r % 2 == 0;
            for (int k = 0; k < 2; ++k) {
                const bool isOurs = (k == 0) == oursFirst;
                RoundResult result = runRound(isOurs ? ours : peer, consumers);
                note("provider %s, %d consumers, round %d: walk %.2f/%.2f ms (%d elements), %.0f updates/s, "
                     "latency %.2f/%.2f ms, RSS %.1f MB (private %.1f)%s",
                     isOurs ? "ours" : "npm", consumers, r + 1, result.walkP50, result.walkP95,
                     result.elements, result.updatesPerSecond, result.latencyP50, result.latencyP99,
                     result.rssMb, result.anonMb, result.ok ? "" : " (failed)");
                (isOurs ? our : their).rounds.push_back(result);
            }
        }
        const std::string n = std::to_string(consumers);
        const std::string suffix = " (" + n + (consumers == 1 ? " consumer)" : " consumers)");
        const bool targeted = consumers >= 8;

        const double walkOurs = our.med(&RoundResult::walkP50), walkPeer = their.med(&RoundResult::walkP50);
        const double walkRatio = walkOurs > 0 ? walkPeer / walkOurs : 0;
        row(scenario, "full walk p50, ms" + suffix, fmt(walkOurs, 2), fmt(walkPeer, 2), ratioText(walkRatio),
            ">= 5x faster", walkRatio >= 5 ? "yes" : "no");
        const double walk95Ours = our.med(&RoundResult::walkP95),
                     walk95Peer = their.med(&RoundResult::walkP95);
        row(scenario, "full walk p95, ms" + suffix, fmt(walk95Ours, 2), fmt(walk95Peer, 2),
            ratioText(walk95Ours > 0 ? walk95Peer / walk95Ours : 0));

        const double upOurs = our.med(&RoundResult::updatesPerSecond),
                     upPeer = their.med(&RoundResult::updatesPerSecond);
        const double upRatio = upPeer > 0 ? upOurs / upPeer : 0;
        row(scenario, "updates/s each consumer receives" + suffix, fmt(upOurs, 0), fmt(upPeer, 0),
            ratioText(upRatio), targeted ? ">= 10x" : "-", targeted ? (upRatio >= 10 ? "yes" : "no") : "-");

        const double l50Ours = our.med(&RoundResult::latencyP50),
                     l50Peer = their.med(&RoundResult::latencyP50);
        row(scenario, "update latency p50, ms" + suffix, fmt(l50Ours, 3), fmt(l50Peer, 3),
            ratioText(l50Ours > 0 ? l50Peer / l50Ours : 0));
        const double l99Ours = our.med(&RoundResult::latencyP99),
                     l99Peer = their.med(&RoundResult::latencyP99);
        row(scenario, "update latency p99, ms" + suffix, fmt(l99Ours, 3), fmt(l99Peer, 3),
            ratioText(l99Ours > 0 ? l99Peer / l99Ours : 0));

        const double rssOurs = our.med(&RoundResult::rssMb), rssPeer = their.med(&RoundResult::rssMb);
        const double rssRatio = rssOurs > 0 ? rssPeer / rssOurs : 0;
        row(scenario, "provider RSS, MB" + suffix, fmt(rssOurs, 1), fmt(rssPeer, 1), ratioText(rssRatio),
            "<= 1/5 of peer", rssRatio >= 5 ? "yes" : "no");
        const double anonOurs = our.med(&RoundResult::anonMb), anonPeer = their.med(&RoundResult::anonMb);
        row(scenario, "provider private memory (RssAnon), MB" + suffix, fmt(anonOurs, 1), fmt(anonPeer, 1),
            ratioText(anonOurs > 0 ? anonPeer / anonOurs : 0));
    }
    return 0;
}
