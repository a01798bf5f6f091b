#include "sweeprun.h"

#include "attackers.h"
#include "peers.h"
#include "sweepsite.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QTimer>
#include <cstdio>
#include <functional>
#include <memory>
#include <vector>

namespace {

// Log texts of the manager worth counting.
const QString s_restart = QStringLiteral("Restart due to timeout");
const QString s_started = QStringLiteral("startProcess done");
const QString s_leak = QStringLiteral("Ember Memory leakage");
const QString s_stalled = QStringLiteral("does not read");
const QString s_berError = QStringLiteral("ber error");
const QString s_assertion = QStringLiteral("Debug assertion failed");

void progress(const QString &text)
{
    std::fprintf(stderr, "[%s] %s\n", qPrintable(QTime::currentTime().toString(QStringLiteral("HH:mm:ss"))),
                 qPrintable(text));
    std::fflush(stderr);
}

void row(const char *scenario, const QString &metric, const QString &ours, const QString &target = "-",
         const QString &met = "-")
{
    std::printf("| %s | %s | %s | - | - | %s | %s |\n", scenario, qPrintable(metric), qPrintable(ours),
                qPrintable(target), qPrintable(met));
    std::fflush(stdout);
}

// Runs the event loop for ms, or until done() holds (checked every 50 ms). True when it held.
bool runFor(int ms, const std::function<bool()> &done = nullptr)
{
    QElapsedTimer clock;
    clock.start();
    QEventLoop loop;
    QTimer poll;
    poll.setInterval(50);
    QObject::connect(&poll, &QTimer::timeout, &loop, [&] {
        if ((done && done()) || clock.elapsed() >= ms)
            loop.quit();
    });
    poll.start();
    loop.exec();
    return done && done();
}

QString mb(long kb)
{
    return QString::number(kb / 1024.0, 'f', 1) + " MB";
}

struct Peers
{
    UdpCounter oscTarget;
    UdpCounter traps;
    std::vector<std::unique_ptr<GoodConsumer>> consumers;

    qint64 updates() const
    {
        qint64 n = 0;
        for (const auto &c : consumers)
            n += c->updates();
        return n;
    }
    double longestGap() const
    {
        double gap = 0;
        for (const auto &c : consumers)
            gap = qMax(gap, c->longestGapSeconds());
        return gap;
    }
    void resetGaps()
    {
        for (auto &c : consumers)
            c->resetGap();
    }
};

// Starts the manager and the well-behaved peers and waits until every consumer gets values.
bool bringUp(const SweepOptions &o, SweepSite &site, Peers &peers)
{
    for (const QString &text : {s_restart, s_started, s_leak, s_stalled, s_berError, s_assertion})
        site.watch(text);
    QString error;
    if (!site.prepare(peers.oscTarget.port(), peers.traps.port(), &error) || !site.startManager(&error)) {
        progress("cannot start the site: " + error);
        return false;
    }
    progress(QStringLiteral("manager %1 with %2 stand-ins in %3")
                 .arg(site.pid())
                 .arg(o.instances)
                 .arg(site.folder()));
    for (quint16 port : site.ports().ember) {
        for (int n = 0; n < o.consumersPerInstance; ++n) {
            peers.consumers.push_back(std::make_unique<GoodConsumer>(port));
            peers.consumers.back()->start();
        }
    }
    const bool up = runFor(60000, [&] {
        if (!site.running())
            return true;
        for (const auto &c : peers.consumers) {
            if (c->updates() == 0)
                return false;
        }
        return true;
    });
    if (!up || !site.running()) {
        progress("the site did not come up; the manager's last lines:\n" + site.lastLines().join('\n'));
        return false;
    }
    progress(QStringLiteral("every consumer gets values; %1 stand-ins running").arg(site.standInCount()));
    runFor(2000); // let start-up settle before the baseline
    return true;
}

int runSweep(const SweepOptions &o)
{
    SweepSite site(o.instances, o.recordRate, o.keep);
    Peers peers;
    if (!bringUp(o, site, peers))
        return 2;

    const long rssBefore = site.rssKb();
    const double cpuBefore = site.cpuSeconds();
    const double waitBefore = site.runQueueSeconds();
    const quint32 seed = o.seed != 0 ? o.seed : QRandomGenerator::global()->bounded(1u, 0xFFFFFFF0u);
    progress(QStringLiteral("RSS before %1; sweeping for %2 s (seed %3)")
                 .arg(mb(rssBefore))
                 .arg(o.seconds)
                 .arg(seed));

    const SweepSite::Ports &ports = site.ports();
    TcpGarbage tcp(ports.ember, o.tcpConnections, o.tcpChunksPerSecond, o.maxInputs, seed);
    UdpFlood snmp(ports.snmp, badinput::snmp, o.datagramsPerSecond, o.maxInputs, seed + 1);
    UdpFlood osc(ports.osc, badinput::osc, o.datagramsPerSecond, o.maxInputs, seed + 2);
    StalledConsumer stalled(ports.ember.first());
    const qint64 updatesBefore = peers.updates();
    peers.resetGaps();
    tcp.start();
    snmp.start();
    osc.start();
    stalled.start();

    QElapsedTimer clock;
    clock.start();
    long rssMax = rssBefore;
    qint64 nextReport = 5000;
    const qint64 length = qint64(o.seconds * 1000);
    while (clock.elapsed() < length && site.running() && !(tcp.spent() && snmp.spent() && osc.spent())) {
        runFor(int(qMin<qint64>(1000, length - clock.elapsed())));
        rssMax = qMax(rssMax, site.rssKb());
        if (clock.elapsed() >= nextReport) {
            nextReport += 5000;
            progress(
                QStringLiteral("%1 s: RSS %2, TCP inputs %3, SNMP %4, OSC %5, updates %6, longest gap %7 s")
                    .arg(clock.elapsed() / 1000)
                    .arg(mb(site.rssKb()))
                    .arg(tcp.sentTotal())
                    .arg(snmp.sentTotal())
                    .arg(osc.sentTotal())
                    .arg(peers.updates() - updatesBefore)
                    .arg(peers.longestGap(), 0, 'f', 1));
        }
    }
    const double sweptSeconds = clock.elapsed() / 1000.0;
    tcp.stop();
    snmp.stop();
    osc.stop();
    stalled.stop();
    const double gapDuringSweep = peers.longestGap();
    const double cpuSweep = site.cpuSeconds() - cpuBefore;
    const double waitSweep = site.runQueueSeconds() - waitBefore;

    // Afterwards the values must still flow to every consumer.
    std::vector<qint64> before;
    for (const auto &c : peers.consumers)
        before.push_back(c->updates());
    const bool flowing = runFor(10000, [&] {
        for (size_t i = 0; i < peers.consumers.size(); ++i) {
            if (peers.consumers[i]->updates() <= before[i])
                return false;
        }
        return true;
    });
    runFor(2000);
    const long rssAfter = site.rssKb();
    rssMax = qMax(rssMax, rssAfter);
    const bool upAtEnd = site.running();
    const int standIns = site.standInCount();
    const bool cleanStop = site.stopManager(30000);
    const int crashes = site.unexpectedExits();

    const char *s = "sweep";
    row(s, "duration", QString::number(sweptSeconds, 'f', 0) + " s");
    row(s, "instances (stand-ins at the end)", QStringLiteral("%1 (%2)").arg(o.instances).arg(standIns));
    for (int k = 0; k < int(badinput::EmberKind::Count); ++k) {
        const auto kind = badinput::EmberKind(k);
        row(s, QStringLiteral("Ember+ TCP inputs: %1").arg(badinput::emberKindName(kind)),
            QString::number(tcp.sent(kind)));
    }
    row(s, "Ember+ TCP inputs: total (bytes)",
        QStringLiteral("%1 (%2)").arg(tcp.sentTotal()).arg(tcp.bytes()));
    row(s, "Ember+ TCP connections opened", QString::number(tcp.connections()));
    for (int k = 0; k < int(badinput::DatagramKind::Count); ++k) {
        const auto kind = badinput::DatagramKind(k);
        row(s, QStringLiteral("SNMP datagrams: %1").arg(badinput::datagramKindName(kind)),
            QString::number(snmp.sent(kind)));
    }
    row(s, "SNMP datagrams: total (answers)",
        QStringLiteral("%1 (%2)").arg(snmp.sentTotal()).arg(snmp.answers()));
    for (int k = 0; k < int(badinput::DatagramKind::Count); ++k) {
        const auto kind = badinput::DatagramKind(k);
        row(s, QStringLiteral("OSC datagrams: %1").arg(badinput::datagramKindName(kind)),
            QString::number(osc.sent(kind)));
    }
    row(s, "OSC datagrams: total", QString::number(osc.sentTotal()));
    row(s, "non-reading consumer: requests (connections, cut off)",
        QStringLiteral("%1 (%2, %3)").arg(stalled.requests()).arg(stalled.connects()).arg(stalled.cutOff()));
    row(s, "crashes", QString::number(crashes), "0", crashes == 0 ? "yes" : "no");
    row(s, "manager up at the end; SIGTERM",
        QStringLiteral("%1; %2").arg(upAtEnd ? "yes" : "no", site.stopReport()), "yes; exit 0",
        upAtEnd && cleanStop ? "yes" : "no");
    row(s, "RSS before", mb(rssBefore));
    row(s, "RSS after", mb(rssAfter));
    const long growthKb = rssMax - rssBefore;
    row(s, "RSS peak", mb(rssMax), QStringLiteral("< before + %1 MB").arg(o.maxRssGrowthMb),
        growthKb < o.maxRssGrowthMb * 1024L ? "yes" : "no");
    row(s, "manager CPU during the sweep", QString::number(100.0 * cpuSweep / sweptSeconds, 'f', 0) + " %");
    row(s, "manager's main thread waiting for a CPU (other load)",
        QString::number(100.0 * waitSweep / sweptSeconds, 'f', 0) + " % of the time");
    row(s, "value updates to well-behaved consumers", QString::number(peers.updates() - updatesBefore));
    row(s, "longest gap without updates", QString::number(gapDuringSweep, 'f', 1) + " s",
        QStringLiteral("<= %1 s").arg(o.maxGapSeconds), gapDuringSweep <= o.maxGapSeconds ? "yes" : "no");
    row(s, "values still flowing afterwards", flowing ? "yes" : "no", "yes", flowing ? "yes" : "no");
    row(s, "instance starts (restarts for silence)",
        QStringLiteral("%1 (%2)").arg(site.watched(s_started)).arg(site.watched(s_restart)));
    row(s, "manager log lines (warnings)",
        QStringLiteral("%1 (%2)").arg(site.logLines()).arg(site.warningLines()));
    row(s, "manager log files on disk", mb(long(site.logFilesBytes() / 1024)));
    row(s, "log: ber errors / assertions / non-reading consumers cut",
        QStringLiteral("%1 / %2 / %3")
            .arg(site.watched(s_berError))
            .arg(site.watched(s_assertion))
            .arg(site.watched(s_stalled)));
    row(s, "log: Ember+ memory leakage", QString::number(site.watched(s_leak)), "0",
        site.watched(s_leak) == 0 ? "yes" : "no");

    const bool sent =
        tcp.sentTotal() > 0 && (o.datagramsPerSecond == 0 || (snmp.sentTotal() > 0 && osc.sentTotal() > 0));
    const bool ok = crashes == 0 && upAtEnd && cleanStop && growthKb < o.maxRssGrowthMb * 1024L &&
                    gapDuringSweep <= o.maxGapSeconds && flowing && site.watched(s_leak) == 0 && sent;
    if (!ok)
        progress("FAILED; the manager's last lines:\n" + site.lastLines().join('\n'));
    progress(ok ? QStringLiteral("sweep passed") : QStringLiteral("sweep failed"));
    return ok ? 0 : 1;
}

int runSoak(const SweepOptions &o)
{
    SweepSite site(o.instances, o.recordRate, o.keep);
    Peers peers;
    if (!bringUp(o, site, peers))
        return 2;

    struct Sample
    {
        double minute;
        long rssKb;
        double cpuPercent;
    };
    QList<Sample> samples;
    QElapsedTimer clock;
    clock.start();
    double cpuLast = site.cpuSeconds();
    qint64 lastMs = 0;
    samples.append({0, site.rssKb(), 0});
    std::printf("# soak: %d stand-ins at %g records/s, %d consumers each, OSC target, SNMP traps\n",
                o.instances, o.recordRate, o.consumersPerInstance);
    std::printf("# minute  RSS(MB)  CPU(%%)  stand-ins  updates  OSC-datagrams  traps\n");
    std::printf("%8.1f %8.1f %7s %10d %8lld %14lld %6lld\n", 0.0, samples.first().rssKb / 1024.0, "-",
                site.standInCount(), peers.updates(), peers.oscTarget.datagrams(), peers.traps.datagrams());
    std::fflush(stdout);
    const qint64 length = qint64(o.seconds * 1000);
    while (clock.elapsed() < length && site.running()) {
        const qint64 next = qMin(length, lastMs + o.sampleSeconds * 1000LL);
        runFor(int(next - clock.elapsed()));
        const qint64 now = clock.elapsed();
        const double cpu = site.cpuSeconds();
        const Sample sample{now / 60000.0, site.rssKb(), 100.0 * (cpu - cpuLast) / ((now - lastMs) / 1000.0)};
        cpuLast = cpu;
        lastMs = now;
        if (!site.running())
            break;
        samples.append(sample);
        std::printf("%8.1f %8.1f %7.1f %10d %8lld %14lld %6lld\n", sample.minute, sample.rssKb / 1024.0,
                    sample.cpuPercent, site.standInCount(), peers.updates(), peers.oscTarget.datagrams(),
                    peers.traps.datagrams());
        std::fflush(stdout);
    }
    const bool upAtEnd = site.running();
    const bool cleanStop = site.stopManager(30000);

    // Growth over the last 20 minutes (or over the second half of a shorter run).
    const Sample last = samples.last();
    const double window = last.minute >= 25 ? 20 : last.minute / 2;
    Sample from = samples.first();
    for (const Sample &sample : samples) {
        if (sample.minute <= last.minute - window + 1e-6)
            from = sample;
    }
    double cpuSum = 0;
    for (int i = 1; i < samples.size(); ++i)
        cpuSum += samples[i].cpuPercent;
    const char *s = "soak";
    row(s, "duration", QString::number(last.minute, 'f', 1) + " min");
    row(s, "manager up at the end; SIGTERM",
        QStringLiteral("%1; %2").arg(upAtEnd ? "yes" : "no", site.stopReport()));
    row(s, "crashes", QString::number(site.unexpectedExits()), "0",
        site.unexpectedExits() == 0 ? "yes" : "no");
    row(s, "RSS at the start / end", mb(samples.first().rssKb) + " / " + mb(last.rssKb));
    row(s, QStringLiteral("RSS growth over the last %1 min").arg(window, 0, 'f', 1),
        QString::number((last.rssKb - from.rssKb) / 1024.0, 'f', 1) + " MB", "flat");
    row(s, "manager CPU, mean of the samples",
        samples.size() > 1 ? QString::number(cpuSum / (samples.size() - 1), 'f', 1) + " %" : "-");
    row(s, "value updates to consumers", QString::number(peers.updates()));
    row(s, "OSC datagrams to the target / traps",
        QStringLiteral("%1 / %2").arg(peers.oscTarget.datagrams()).arg(peers.traps.datagrams()));
    row(s, "instance starts (restarts for silence)",
        QStringLiteral("%1 (%2)").arg(site.watched(s_started)).arg(site.watched(s_restart)));
    row(s, "log: Ember+ memory leakage", QString::number(site.watched(s_leak)), "0");
    return upAtEnd && cleanStop && site.unexpectedExits() == 0 ? 0 : 1;
}

} // namespace

int sweepRun(const SweepOptions &options)
{
    return options.soak ? runSoak(options) : runSweep(options);
}
