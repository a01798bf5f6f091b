#pragma once

// Small helpers shared by the benchmark drivers: child processes with pipes, figures from /proc,
// percentiles, the stamp that carries a send time inside a value, and the result rows.
#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <dirent.h>
#include <fcntl.h>
#include <string>
#include <sys/prctl.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace bench {

// CLOCK_MONOTONIC in ns: comparable between processes on one machine (Node's hrtime uses it too).
inline int64_t nowNs()
{
    timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return int64_t(ts.tv_sec) * 1000000000LL + ts.tv_nsec;
}

inline void sleepMs(int ms)
{
    timespec ts{ms / 1000, long(ms % 1000) * 1000000L};
    nanosleep(&ts, nullptr);
}

inline void note(const char *format, ...)
{
    va_list args;
    va_start(args, format);
    vfprintf(stderr, format, args);
    va_end(args);
    fputc('\n', stderr);
}

// A child process with its stdin and stdout on pipes; stderr inherited, or into a file.
struct Child
{
    pid_t pid = -1;
    int in = -1;  // write end: the child's stdin
    int out = -1; // read end: the child's stdout
    std::string pending;

    bool start(const std::vector<std::string> &argv, const std::string &errorPath = std::string())
    {
        int toChild[2], fromChild[2];
        if (pipe(toChild) != 0 || pipe(fromChild) != 0)
            return false;
        pid = fork();
        if (pid < 0)
            return false;
        if (pid == 0) {
            // A driver that is killed (a time-out) takes its children with it.
            prctl(PR_SET_PDEATHSIG, SIGTERM);
            dup2(toChild[0], 0);
            dup2(fromChild[1], 1);
            if (!errorPath.empty()) {
                const int file = open(errorPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
                if (file >= 0)
                    dup2(file, 2);
            }
            for (int fd = 3; fd < 1024; ++fd)
                close(fd);
            std::vector<char *> args;
            for (const std::string &a : argv)
                args.push_back(const_cast<char *>(a.c_str()));
            args.push_back(nullptr);
            execvp(args[0], args.data());
            _exit(127);
        }
        close(toChild[0]);
        close(fromChild[1]);
        in = toChild[1];
        out = fromChild[0];
        return true;
    }

    void send(const std::string &line)
    {
        const std::string text = line + "\n";
        if (write(in, text.data(), text.size()) < 0)
            note("write to child %d failed: %s", int(pid), strerror(errno));
    }

    // Reads what the child printed; returns complete lines (non-blocking when `poll` found data).
    bool readLines(std::vector<std::string> *lines)
    {
        char buffer[4096];
        const ssize_t n = read(out, buffer, sizeof(buffer));
        if (n <= 0)
            return false;
        pending.append(buffer, size_t(n));
        size_t end;
        while ((end = pending.find('\n')) != std::string::npos) {
            lines->push_back(pending.substr(0, end));
            pending.erase(0, end + 1);
        }
        return true;
    }

    // Ends the child: SIGTERM, then SIGKILL after `graceMs`.
    void stop(int graceMs = 2000)
    {
        if (pid <= 0)
            return;
        kill(pid, SIGTERM);
        for (int waited = 0; waited < graceMs; waited += 20) {
            if (waitpid(pid, nullptr, WNOHANG) == pid) {
                pid = -1;
                break;
            }
            sleepMs(20);
        }
        if (pid > 0) {
            kill(pid, SIGKILL);
            waitpid(pid, nullptr, 0);
            pid = -1;
        }
        if (in >= 0)
            close(in);
        if (out >= 0)
            close(out);
        in = out = -1;
    }
};

// A "Vm..." or "Rss..." figure of /proc/<pid>/status in kB (0 when the process is gone).
inline long statusKb(pid_t pid, const char *field)
{
    char path[64];
    snprintf(path, sizeof(path), "/proc/%d/status", int(pid));
    FILE *f = fopen(path, "r");
    if (f == nullptr)
        return 0;
    char line[256];
    long kb = 0;
    const size_t length = strlen(field);
    while (fgets(line, sizeof(line), f) != nullptr) {
        if (strncmp(line, field, length) == 0 && line[length] == ':') {
            kb = atol(line + length + 1);
            break;
        }
    }
    fclose(f);
    return kb;
}

// Resident set size: shared library pages included.
inline long rssKb(pid_t pid)
{
    return statusKb(pid, "VmRSS");
}

// The private part of the resident set: heap, stacks and other anonymous memory.
inline long anonKb(pid_t pid)
{
    return statusKb(pid, "RssAnon");
}

// CPU time (user + system) in clock ticks from a /proc/.../stat file.
inline long long statTicks(const char *path)
{
    FILE *f = fopen(path, "r");
    if (f == nullptr)
        return 0;
    char text[2048];
    const size_t n = fread(text, 1, sizeof(text) - 1, f);
    fclose(f);
    text[n] = '\0';
    // The command name may hold blanks: fields are counted after its closing parenthesis.
    const char *p = strrchr(text, ')');
    if (p == nullptr)
        return 0;
    unsigned long long utime = 0, stime = 0;
    if (sscanf(p + 2, "%*c %*d %*d %*d %*d %*d %*u %*u %*u %*u %*u %llu %llu", &utime, &stime) != 2)
        return 0;
    return (long long)(utime + stime);
}

// CPU time (user + system) of a process, all its threads, in clock ticks.
inline long long cpuTicks(pid_t pid)
{
    char path[64];
    snprintf(path, sizeof(path), "/proc/%d/stat", int(pid));
    return statTicks(path);
}

// CPU time of the threads of a process whose name (comm) is `name`, in clock ticks.
inline long long threadTicks(pid_t pid, const char *name)
{
    char path[128];
    snprintf(path, sizeof(path), "/proc/%d/task", int(pid));
    DIR *dir = opendir(path);
    if (dir == nullptr)
        return 0;
    long long ticks = 0;
    while (dirent *entry = readdir(dir)) {
        if (entry->d_name[0] == '.')
            continue;
        char file[320];
        snprintf(file, sizeof(file), "/proc/%d/task/%s/comm", int(pid), entry->d_name);
        FILE *f = fopen(file, "r");
        if (f == nullptr)
            continue;
        char comm[64] = {};
        if (fgets(comm, sizeof(comm), f) != nullptr) {
            comm[strcspn(comm, "\n")] = '\0';
            if (strcmp(comm, name) == 0) {
                snprintf(file, sizeof(file), "/proc/%d/task/%s/stat", int(pid), entry->d_name);
                ticks += statTicks(file);
            }
        }
        fclose(f);
    }
    closedir(dir);
    return ticks;
}

inline double ticksPerSecond()
{
    return double(sysconf(_SC_CLK_TCK));
}

inline double percentile(std::vector<double> values, double p)
{
    if (values.empty())
        return 0;
    std::sort(values.begin(), values.end());
    const size_t at = std::min(values.size() - 1, size_t(p / 100.0 * double(values.size() - 1) + 0.5));
    return values[at];
}

// The middle value; for an even count the mean of the two middle ones.
inline double median(std::vector<double> values)
{
    if (values.empty())
        return 0;
    std::sort(values.begin(), values.end());
    const size_t n = values.size();
    return n % 2 == 1 ? values[n / 2] : (values[n / 2 - 1] + values[n / 2]) / 2;
}

// The send time travels in a text value as "#@<ns>.<sequence>". Both providers put a string value
// on the wire as it is (BER UTF8String, S101 escapes only bytes from 0xF8 up), so a consumer finds
// it by scanning the bytes it receives, whatever the provider.
inline std::string stampText(int64_t ns, unsigned sequence)
{
    char text[64];
    snprintf(text, sizeof(text), "#@%lld.%u", (long long)ns, sequence);
    return text;
}

// Finds stamps in a byte stream that arrives in chunks; a stamp cut by a chunk boundary is found
// once the rest arrives.
struct StampScanner
{
    std::string tail;

    // Calls found(ns, sequence) for every complete stamp.
    template <typename F>
    void scan(const char *data, size_t length, F found)
    {
        std::string joined;
        const char *p = data;
        size_t n = length;
        if (!tail.empty()) {
            joined = tail;
            joined.append(data, length);
            p = joined.data();
            n = joined.size();
            tail.clear();
        }
        size_t i = 0;
        size_t keepFrom = n;
        while (i + 1 < n) {
            const void *hit = memchr(p + i, '#', n - i - 1);
            if (hit == nullptr)
                break;
            i = size_t(static_cast<const char *>(hit) - p);
            if (p[i + 1] != '@') {
                ++i;
                continue;
            }
            size_t j = i + 2;
            int64_t ns = 0;
            while (j < n && p[j] >= '0' && p[j] <= '9')
                ns = ns * 10 + (p[j++] - '0');
            if (j >= n) {
                keepFrom = i;
                break;
            }
            if (p[j] != '.') {
                i = j;
                continue;
            }
            ++j;
            unsigned sequence = 0;
            const size_t digits = j;
            while (j < n && p[j] >= '0' && p[j] <= '9')
                sequence = sequence * 10 + unsigned(p[j++] - '0');
            if (j >= n) {
                keepFrom = i;
                break;
            }
            if (j > digits)
                found(ns, sequence);
            i = j;
        }
        if (keepFrom == n && n > 0 && p[n - 1] == '#')
            keepFrom = n - 1;
        if (keepFrom < n && n - keepFrom < 64)
            tail.assign(p + keepFrom, n - keepFrom);
    }
};

// One result row: | scenario | metric | ours | peer | ratio | target | met |
inline void row(const std::string &scenario, const std::string &metric, const std::string &ours,
                const std::string &peer = "-", const std::string &ratio = "-",
                const std::string &target = "-", const std::string &met = "-")
{
    printf("| %s | %s | %s | %s | %s | %s | %s |\n", scenario.c_str(), metric.c_str(), ours.c_str(),
           peer.c_str(), ratio.c_str(), target.c_str(), met.c_str());
    fflush(stdout);
}

inline std::string fmt(double value, int decimals = 1)
{
    char text[64];
    snprintf(text, sizeof(text), "%.*f", decimals, value);
    return text;
}

} // namespace bench
