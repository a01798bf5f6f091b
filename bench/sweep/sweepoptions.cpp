#include "sweepoptions.h"

namespace {

// "--name value" or "--name=value"; advances `i` past a separate value.
bool takeValue(const QStringList &args, int &i, const QString &name, QString *value)
{
    const QString arg = args.at(i);
    if (arg == name) {
        if (i + 1 >= args.size())
            return false;
        *value = args.at(++i);
        return true;
    }
    if (arg.startsWith(name + QLatin1Char('='))) {
        *value = arg.mid(name.size() + 1);
        return true;
    }
    return false;
}

template <typename T>
void takeNumber(const QString &arg, const QString &text, T min, T max, T *out, QStringList *problems)
{
    bool ok = false;
    const double number = text.toDouble(&ok);
    if (!ok || number < double(min) || number > double(max))
        problems->append(arg);
    else
        *out = T(number);
}

} // namespace

SweepOptions sweepOptions_parse(const QStringList &args)
{
    SweepOptions o;
    for (int i = 0; i < args.size(); ++i) {
        const QString arg = args.at(i);
        QString v;
        if (arg == QLatin1String("--soak")) {
            o.soak = true;
        } else if (arg == QLatin1String("--keep")) {
            o.keep = true;
        } else if (arg == QLatin1String("--help") || arg == QLatin1String("-h")) {
            o.help = true;
        } else if (takeValue(args, i, QStringLiteral("--seconds"), &v)) {
            takeNumber(arg, v, 1.0, 7 * 86400.0, &o.seconds, &o.problems);
        } else if (takeValue(args, i, QStringLiteral("--minutes"), &v)) {
            takeNumber(arg, v, 0.1, 7 * 1440.0, &o.seconds, &o.problems);
            o.seconds *= 60;
        } else if (takeValue(args, i, QStringLiteral("--instances"), &v)) {
            takeNumber(arg, v, 1, 64, &o.instances, &o.problems);
        } else if (takeValue(args, i, QStringLiteral("--rate"), &v)) {
            takeNumber(arg, v, 0.1, 1000.0, &o.recordRate, &o.problems);
        } else if (takeValue(args, i, QStringLiteral("--connections"), &v)) {
            takeNumber(arg, v, 0, 1000, &o.tcpConnections, &o.problems);
        } else if (takeValue(args, i, QStringLiteral("--chunks-per-second"), &v)) {
            takeNumber(arg, v, 1, 1000000, &o.tcpChunksPerSecond, &o.problems);
        } else if (takeValue(args, i, QStringLiteral("--datagrams-per-second"), &v)) {
            takeNumber(arg, v, 0, 1000000, &o.datagramsPerSecond, &o.problems);
        } else if (takeValue(args, i, QStringLiteral("--max-inputs"), &v)) {
            takeNumber(arg, v, qint64(1), qint64(1) << 40, &o.maxInputs, &o.problems);
        } else if (takeValue(args, i, QStringLiteral("--consumers"), &v)) {
            takeNumber(arg, v, 1, 64, &o.consumersPerInstance, &o.problems);
        } else if (takeValue(args, i, QStringLiteral("--max-gap"), &v)) {
            takeNumber(arg, v, 1, 3600, &o.maxGapSeconds, &o.problems);
        } else if (takeValue(args, i, QStringLiteral("--max-rss-growth-mb"), &v)) {
            takeNumber(arg, v, 1, 1 << 20, &o.maxRssGrowthMb, &o.problems);
        } else if (takeValue(args, i, QStringLiteral("--seed"), &v)) {
            takeNumber(arg, v, quint32(1), quint32(0xFFFFFFFFu), &o.seed, &o.problems);
        } else if (takeValue(args, i, QStringLiteral("--sample-seconds"), &v)) {
            takeNumber(arg, v, 1, 3600, &o.sampleSeconds, &o.problems);
        } else {
            o.problems.append(arg);
        }
    }
    return o;
}

QString sweepOptions_usage()
{
    return QStringLiteral(
        "vexa-sweep [--seconds S | --minutes M] [--instances N] [--rate R] [--connections C]\n"
        "           [--chunks-per-second K] [--datagrams-per-second D] [--max-inputs X]\n"
        "           [--consumers P] [--max-gap S] [--max-rss-growth-mb MB] [--seed N] [--keep]\n"
        "vexa-sweep --soak --minutes M [--instances N] [--rate R] [--consumers P] [--sample-seconds S]\n"
        "\n"
        "Starts a headless vexa-studio-manager (from this program's folder) with N VexaStudio stand-ins,\n"
        "Ember+, SNMP and OSC on loopback ports, in a private TMPDIR/HOME. The sweep then sends random\n"
        "bytes and broken frames to the Ember+ ports from C connections, random and mutated datagrams\n"
        "to the SNMP and OSC ports, and keeps one Ember+ consumer that never reads, while well-behaved\n"
        "consumers check that values keep coming. It prints the inputs sent, crashes and the manager's\n"
        "RSS as Markdown table rows and exits 1 when the manager fell over or stopped supervising.\n"
        "--soak sends nothing bad: P consumers per instance, an OSC target and SNMP traps, and one line\n"
        "of RSS and CPU every S seconds (default 60).\n");
}
