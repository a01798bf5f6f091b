// Load generator for the UDP services: keeps a window of requests in flight against one
// receiver and counts what comes back within a fixed time.
//
//   vexa_bench_udpload snmp PORT [--seconds S] [--window W] [--oids system|instance]
//   vexa_bench_udpload osc PORT --ack-port A [--seconds S] [--window W] [--ack-every K]
//   vexa_bench_udpload free-ports N
//
// snmp: SNMPv1 GetRequests of one binding each to 127.0.0.1:PORT from one unconnected socket, so
// that a response is taken from whatever port it leaves (our agent answers from another port than
// the one asked). A request is in flight until its response arrives (matched by request id) or
// 200 ms pass (counted as lost and replaced).
//
// osc: single-argument OSC messages to 127.0.0.1:PORT. The receiver acknowledges every K-th
// message it dispatched with an 8-byte datagram holding its running count (host order) sent to
// 127.0.0.1:A; the generator keeps at most W unacknowledged messages out, and writes off the
// window when no acknowledgement comes for 200 ms.
//
// Prints one line on stdout: "rate=<per second> done=<n> lost=<n> p50us=<n> p99us=<n> total=<n>"
// (rate and done over the measured time after a short warm-up, total including the warm-up; the
// latencies for snmp only; lost for osc at most what was out when a window was written off);
// diagnostics on stderr.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kBatch = 64;
constexpr double kWarmupSeconds = 0.25;
constexpr auto kTimeout = std::chrono::milliseconds(200);

struct Options
{
    std::string mode;
    int port = 0;
    int ackPort = 0;
    double seconds = 2.0;
    int window = 64;
    int ackEvery = 16;
    std::string oids = "system";
};

[[noreturn]] void usage()
{
    std::fprintf(stderr,
                 "usage: vexa_bench_udpload snmp PORT [--seconds S] [--window W] [--oids system|instance]\n"
                 "       vexa_bench_udpload osc PORT --ack-port A [--seconds S] [--window W] "
                 "[--ack-every K]\n");
    std::exit(2);
}

Options parseOptions(int argc, char **argv)
{
    if (argc < 3)
        usage();
    Options options;
    options.mode = argv[1];
    options.port = std::atoi(argv[2]);
    for (int i = 3; i + 1 < argc; i += 2) {
        const std::string name = argv[i];
        const char *value = argv[i + 1];
        if (name == "--seconds")
            options.seconds = std::atof(value);
        else if (name == "--window")
            options.window = std::atoi(value);
        else if (name == "--ack-every")
            options.ackEvery = std::atoi(value);
        else if (name == "--ack-port")
            options.ackPort = std::atoi(value);
        else if (name == "--oids")
            options.oids = value;
        else
            usage();
    }
    if ((options.mode != "snmp" && options.mode != "osc") || options.port <= 0 || options.port > 65535 ||
        options.window < 1 || options.window > 1024 || options.seconds <= 0 || options.ackEvery < 1 ||
        (options.mode == "osc" && options.ackPort <= 0))
        usage();
    return options;
}

sockaddr_in loopback(int port)
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(uint16_t(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

int openSocket(int bindPort)
{
    const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_NONBLOCK, 0);
    if (fd < 0) {
        std::perror("socket");
        std::exit(1);
    }
    const int size = 4 << 20;
    setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &size, sizeof(size));
    setsockopt(fd, SOL_SOCKET, SO_SNDBUF, &size, sizeof(size));
    const sockaddr_in address = loopback(bindPort);
    if (bind(fd, reinterpret_cast<const sockaddr *>(&address), sizeof(address)) != 0) {
        std::perror("bind");
        std::exit(1);
    }
    return fd;
}

double secondsSince(Clock::time_point start, Clock::time_point now)
{
    return std::chrono::duration<double>(now - start).count();
}

// Sends a batch of prepared datagrams to one address; a full send buffer is waited out briefly.
void sendBatch(int fd, const sockaddr_in &to, std::vector<std::string> &datagrams)
{
    mmsghdr headers[kBatch];
    iovec parts[kBatch];
    size_t done = 0;
    while (done < datagrams.size()) {
        const size_t count = std::min<size_t>(kBatch, datagrams.size() - done);
        for (size_t i = 0; i < count; ++i) {
            parts[i].iov_base = datagrams[done + i].data();
            parts[i].iov_len = datagrams[done + i].size();
            std::memset(&headers[i], 0, sizeof(headers[i]));
            headers[i].msg_hdr.msg_name = const_cast<sockaddr_in *>(&to);
            headers[i].msg_hdr.msg_namelen = sizeof(to);
            headers[i].msg_hdr.msg_iov = &parts[i];
            headers[i].msg_hdr.msg_iovlen = 1;
        }
        const int sent = sendmmsg(fd, headers, unsigned(count), 0);
        if (sent < 0) {
            if (errno == EAGAIN || errno == EWOULDBLOCK) {
                pollfd wait{fd, POLLOUT, 0};
                poll(&wait, 1, 10);
                continue;
            }
            std::perror("sendmmsg");
            std::exit(1);
        }
        done += size_t(sent);
    }
    datagrams.clear();
}

// Receives what is pending into buffers; returns the number of datagrams and their sizes.
int receiveBatch(int fd, char (*buffers)[1500], int *sizes)
{
    mmsghdr headers[kBatch];
    iovec parts[kBatch];
    for (int i = 0; i < kBatch; ++i) {
        parts[i].iov_base = buffers[i];
        parts[i].iov_len = 1500;
        std::memset(&headers[i], 0, sizeof(headers[i]));
        headers[i].msg_hdr.msg_iov = &parts[i];
        headers[i].msg_hdr.msg_iovlen = 1;
    }
    const int received = recvmmsg(fd, headers, kBatch, MSG_DONTWAIT, nullptr);
    if (received <= 0)
        return 0;
    for (int i = 0; i < received; ++i)
        sizes[i] = int(headers[i].msg_len);
    return received;
}

// ---- SNMP -------------------------------------------------------------------------------------

void berLength(std::string &out, size_t n)
{
    if (n < 0x80) {
        out += char(n);
    } else {
        out += char(0x81);
        out += char(n);
    }
}

void berInteger(std::string &out, uint32_t value)
{
    std::string bytes;
    do {
        bytes.insert(bytes.begin(), char(value & 0xFF));
        value >>= 8;
    } while (value != 0);
    if (uint8_t(bytes[0]) & 0x80)
        bytes.insert(bytes.begin(), char(0));
    out += char(0x02);
    berLength(out, bytes.size());
    out += bytes;
}

std::string wrap(char tag, const std::string &content)
{
    std::string out(1, tag);
    berLength(out, content.size());
    return out + content;
}

// A v1 GetRequest with community "public" and one binding (name, NULL).
std::string getRequest(uint32_t requestId, const std::string &oid)
{
    std::string binding = wrap(0x06, oid) + std::string("\x05\x00", 2);
    std::string pdu;
    berInteger(pdu, requestId);
    pdu += std::string("\x02\x01\x00\x02\x01\x00", 6);
    pdu += wrap(0x30, wrap(0x30, binding));
    std::string message("\x02\x01\x00", 3);
    message += wrap(0x04, "public");
    message += wrap(char(0xA0), pdu);
    return wrap(0x30, message);
}

// Reads one tag-length header at pos; returns the content length or -1.
long berHeader(const uint8_t *data, long size, long &pos, uint8_t &tag)
{
    if (pos + 2 > size)
        return -1;
    tag = data[pos++];
    long length = data[pos++];
    if (length & 0x80) {
        const int count = int(length & 0x7F);
        if (count < 1 || count > 3 || pos + count > size)
            return -1;
        length = 0;
        for (int i = 0; i < count; ++i)
            length = (length << 8) | data[pos++];
    }
    return pos + length <= size ? length : -1;
}

// The request id of a GetResponse, or false when the datagram is not one.
bool responseId(const uint8_t *data, long size, uint32_t &requestId)
{
    long pos = 0;
    uint8_t tag = 0;
    long length = berHeader(data, size, pos, tag);
    if (length < 0 || tag != 0x30)
        return false;
    length = berHeader(data, size, pos, tag); // version
    if (length < 0 || tag != 0x02)
        return false;
    pos += length;
    length = berHeader(data, size, pos, tag); // community
    if (length < 0 || tag != 0x04)
        return false;
    pos += length;
    length = berHeader(data, size, pos, tag);
    if (length < 0 || tag != 0xA2)
        return false;
    length = berHeader(data, size, pos, tag);
    if (length < 1 || length > 5 || tag != 0x02)
        return false;
    uint32_t value = 0;
    for (long i = 0; i < length; ++i)
        value = (value << 8) | data[pos + i];
    requestId = value;
    return true;
}

std::vector<std::string> snmpOids(const std::string &set)
{
    // sysDescr.0, sysUpTime.0, sysName.0: answered by both agents.
    if (set == "system")
        return {std::string("\x2B\x06\x01\x02\x01\x01\x01\x00", 8),
                std::string("\x2B\x06\x01\x02\x01\x01\x03\x00", 8),
                std::string("\x2B\x06\x01\x02\x01\x01\x05\x00", 8)};
    // The instance variables of our agent: status, status text and name of agents 0..7.
    std::vector<std::string> oids;
    const std::string prefix("\x2B\x06\x01\x04\x01\x81\xFD\x59\x20", 9);
    for (char agent = 0; agent < 8; ++agent) {
        for (char variable : {2, 3, 5})
            oids.push_back(prefix + agent + variable + std::string(1, '\0'));
    }
    return oids;
}

int runSnmp(const Options &options)
{
    const int fd = openSocket(0);
    const sockaddr_in target = loopback(options.port);
    const std::vector<std::string> oids = snmpOids(options.oids);

    // Request ids carry their window slot in the low 10 bits, so a response finds its slot.
    struct Slot
    {
        uint32_t requestId = 0;
        Clock::time_point sent;
    };
    std::vector<Slot> slots(size_t(options.window));
    uint32_t generation = 1;
    size_t next = 0;
    std::vector<std::string> outgoing;
    auto issue = [&](size_t slot, Clock::time_point now) {
        const uint32_t requestId = ((generation++ & 0x1FFFFF) << 10) | uint32_t(slot);
        slots[slot].requestId = requestId;
        slots[slot].sent = now;
        outgoing.push_back(getRequest(requestId, oids[next++ % oids.size()]));
    };

    const Clock::time_point start = Clock::now();
    for (size_t i = 0; i < slots.size(); ++i)
        issue(i, start);
    sendBatch(fd, target, outgoing);

    long answered = 0, lost = 0, stray = 0, total = 0;
    std::vector<int> latencies;
    latencies.reserve(1 << 20);
    Clock::time_point measureStart, measureEnd;
    bool measuring = false;
    static char buffers[kBatch][1500];
    int sizes[kBatch];
    Clock::time_point lastScan = start;
    for (;;) {
        pollfd wait{fd, POLLIN, 0};
        poll(&wait, 1, 10);
        const Clock::time_point now = Clock::now();
        const double elapsed = secondsSince(start, now);
        if (!measuring && elapsed >= kWarmupSeconds) {
            measuring = true;
            measureStart = now;
            answered = lost = 0;
            latencies.clear();
        }
        if (measuring && elapsed >= kWarmupSeconds + options.seconds) {
            measureEnd = now;
            break;
        }
        int received;
        while ((received = receiveBatch(fd, buffers, sizes)) > 0) {
            for (int i = 0; i < received; ++i) {
                uint32_t requestId = 0;
                if (!responseId(reinterpret_cast<const uint8_t *>(buffers[i]), sizes[i], requestId)) {
                    ++stray;
                    continue;
                }
                const size_t slot = requestId & 0x3FF;
                if (slot >= slots.size() || slots[slot].requestId != requestId) {
                    ++stray; // late answer to a request already written off
                    continue;
                }
                ++answered;
                ++total;
                latencies.push_back(int(
                    std::chrono::duration_cast<std::chrono::microseconds>(now - slots[slot].sent).count()));
                issue(slot, now);
            }
            sendBatch(fd, target, outgoing);
        }
        if (now - lastScan >= std::chrono::milliseconds(20)) {
            lastScan = now;
            for (size_t slot = 0; slot < slots.size(); ++slot) {
                if (now - slots[slot].sent >= kTimeout) {
                    ++lost;
                    issue(slot, now);
                }
            }
            sendBatch(fd, target, outgoing);
        }
    }
    close(fd);

    const double seconds = secondsSince(measureStart, measureEnd);
    std::sort(latencies.begin(), latencies.end());
    auto percentile = [&](double p) {
        return latencies.empty() ? 0
                                 : latencies[std::min(latencies.size() - 1, size_t(p * latencies.size()))];
    };
    if (stray)
        std::fprintf(stderr, "udpload: %ld datagrams were no current GetResponse\n", stray);
    std::printf("rate=%.0f done=%ld lost=%ld p50us=%d p99us=%d total=%ld\n", answered / seconds, answered,
                lost, percentile(0.50), percentile(0.99), total);
    return answered > 0 ? 0 : 1;
}

// ---- OSC --------------------------------------------------------------------------------------

void oscString(std::string &out, const std::string &text)
{
    out += text;
    out += '\0';
    while (out.size() % 4)
        out += '\0';
}

// Messages with one 32-bit integer argument to writable integer parameters of agents 0..7; the
// value (the last four bytes) is changed on every send.
std::vector<std::string> oscMessages()
{
    const char *names[] = {"identity/group", "ConnectionInfo/Jitterbuffer",
                           "ConnectionInfo/Dynamicjitterbuffer", "Remote/TAVROrouting"};
    std::vector<std::string> messages;
    for (int agent = 0; agent < 8; ++agent) {
        for (const char *name : names) {
            std::string message;
            oscString(message, "/vx/" + std::to_string(agent) + "/" + name);
            oscString(message, ",i");
            message.append(4, '\0');
            messages.push_back(message);
        }
    }
    return messages;
}

int runOsc(const Options &options)
{
    const int fd = openSocket(options.ackPort);
    const sockaddr_in target = loopback(options.port);
    std::vector<std::string> messages = oscMessages();

    long sent = 0;  // messages sent since the start
    long acked = 0; // the receiver's count in its latest acknowledgement
    long writtenOff = 0;
    uint32_t value = 0;
    std::vector<std::string> outgoing;
    auto fill = [&]() {
        const long inFlight = sent - acked - writtenOff;
        for (long i = inFlight; i < options.window; ++i) {
            std::string message = messages[size_t(sent) % messages.size()];
            const uint32_t wire = htonl(value++ & 0xFFFF);
            std::memcpy(&message[message.size() - 4], &wire, 4);
            outgoing.push_back(std::move(message));
            ++sent;
        }
        sendBatch(fd, target, outgoing);
    };

    const Clock::time_point start = Clock::now();
    Clock::time_point lastProgress = start, measureStart, measureEnd;
    // The receiver counts from its own start: its first acknowledgement sets the base.
    long ackedAtStart = 0, lastAckedCount = 0, firstAcked = -1, writeOffs = 0, lost = 0;
    bool measuring = false;
    static char buffers[kBatch][1500];
    int sizes[kBatch];
    fill();
    for (;;) {
        pollfd wait{fd, POLLIN, 0};
        poll(&wait, 1, 10);
        const Clock::time_point now = Clock::now();
        const double elapsed = secondsSince(start, now);
        if (!measuring && elapsed >= kWarmupSeconds) {
            measuring = true;
            measureStart = now;
            ackedAtStart = acked;
            writeOffs = lost = 0;
        }
        if (measuring && elapsed >= kWarmupSeconds + options.seconds) {
            measureEnd = now;
            break;
        }
        int received;
        bool progress = false;
        while ((received = receiveBatch(fd, buffers, sizes)) > 0) {
            for (int i = 0; i < received; ++i) {
                uint64_t count = 0;
                if (sizes[i] != int(sizeof(count)))
                    continue;
                std::memcpy(&count, buffers[i], sizeof(count));
                if (long(count) > acked) {
                    acked = long(count);
                    if (firstAcked < 0)
                        firstAcked = acked - options.ackEvery;
                    progress = true;
                    lastAckedCount = acked;
                }
            }
        }
        if (progress) {
            lastProgress = now;
            if (sent - acked - writtenOff < 0)
                writtenOff = sent - acked; // acknowledgements of messages already written off
            fill();
        } else if (now - lastProgress >= kTimeout) {
            // Lost on the way (or the receiver stalled): give up on what is out and go on.
            lost += sent - acked - writtenOff;
            writtenOff = sent - acked;
            ++writeOffs;
            lastProgress = now;
            fill();
        }
    }
    close(fd);

    // Counted up to the last acknowledgement inside the measured time.
    const double seconds = secondsSince(measureStart, std::max(measureStart, measureEnd));
    const long done = lastAckedCount - ackedAtStart;
    if (writeOffs)
        std::fprintf(stderr, "udpload: the window was written off %ld times (losses)\n", writeOffs);
    std::printf("rate=%.0f done=%ld lost=%ld p50us=0 p99us=0 total=%ld\n", done / seconds, done, lost,
                firstAcked < 0 ? 0 : lastAckedCount - firstAcked);
    return done > 0 ? 0 : 1;
}

} // namespace

// Prints n UDP ports on 127.0.0.1 that are free now, one a line (the kernel's choice).
int freePorts(int n)
{
    std::vector<int> sockets;
    for (int i = 0; i < n; ++i) {
        const int fd = openSocket(0);
        sockaddr_in address{};
        socklen_t length = sizeof(address);
        getsockname(fd, reinterpret_cast<sockaddr *>(&address), &length);
        std::printf("%d\n", ntohs(address.sin_port));
        sockets.push_back(fd);
    }
    for (int fd : sockets)
        close(fd);
    return 0;
}

int main(int argc, char **argv)
{
    if (argc == 3 && std::string(argv[1]) == "free-ports")
        return freePorts(std::atoi(argv[2]));
    const Options options = parseOptions(argc, argv);
    return options.mode == "snmp" ? runSnmp(options) : runOsc(options);
}
