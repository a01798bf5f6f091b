// The stand-in's benchmark mode: many simulated instances in one process, each with its own hub
// connection and its own Ember+ port. Writes nothing but a line "READY" on stdout once every
// instance sends records, and "SENT <records>" for each line read on stdin; ends when stdin
// closes or on SIGTERM.
//
//   VexaStudioBench --instances N [--rate R] [--first-port P] [--dir D] [--relay]
//     N instances with setup paths D/bench-<k>.vxup (the files need not exist), R records a second
//     each (10), Ember+ ports P, P+1, ... (0 = none); --relay: no manager, records go to hub id 1.
#include "studio/benchinstance.h"

#include <QCoreApplication>
#include <QLoggingCategory>
#include <QSocketNotifier>
#include <QTimer>
#include <csignal>
#include <cstdio>
#include <unistd.h>

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("VexaStudioBench"));
    QLoggingCategory::setFilterRules(QStringLiteral("default.info=false"));
    std::signal(SIGTERM, [](int) { _exit(0); });

    int count = 1;
    double rate = 10;
    int firstPort = 0;
    QString dir = QStringLiteral("/tmp");
    bool toRelay = false;
    const QStringList args = app.arguments().mid(1);
    for (int i = 0; i < args.size(); ++i) {
        const QString &a = args.at(i);
        const QString value = args.value(i + 1);
        if (a == QLatin1String("--instances"))
            count = value.toInt(), ++i;
        else if (a == QLatin1String("--rate"))
            rate = value.toDouble(), ++i;
        else if (a == QLatin1String("--first-port"))
            firstPort = value.toInt(), ++i;
        else if (a == QLatin1String("--dir"))
            dir = value, ++i;
        else if (a == QLatin1String("--relay"))
            toRelay = true;
        else {
            fprintf(stderr, "unknown argument %s\n", qPrintable(a));
            return 2;
        }
    }
    if (count < 1 || rate <= 0) {
        fprintf(stderr, "bad --instances or --rate\n");
        return 2;
    }

    QList<BenchInstance *> instances;
    for (int k = 0; k < count; ++k) {
        StudioSetup setup;
        setup.name = QStringLiteral("Bench %1").arg(k + 1);
        setup.emberPort = firstPort > 0 ? firstPort + k : 0;
        setup.autoConnect = true; // a call up: network meters and the dynamic jitter move too
        instances.append(new BenchInstance(QStringLiteral("%1/bench-%2.vxup").arg(dir).arg(k + 1), setup,
                                           int(1000.0 / rate), toRelay, &app));
    }

    auto sent = [&instances] {
        qint64 total = 0;
        for (BenchInstance *i : instances)
            total += i->recordsSent();
        return total;
    };
    QTimer ready;
    ready.setInterval(100);
    QObject::connect(&ready, &QTimer::timeout, [&] {
        for (BenchInstance *i : instances)
            if (i->recordsSent() == 0)
                return;
        ready.stop();
        fprintf(stdout, "READY\n");
        fflush(stdout);
    });
    ready.start();

    QSocketNotifier input(STDIN_FILENO, QSocketNotifier::Read);
    QObject::connect(&input, &QSocketNotifier::activated, [&] {
        char chunk[256];
        const ssize_t n = read(STDIN_FILENO, chunk, sizeof(chunk));
        if (n <= 0) {
            QCoreApplication::quit();
            return;
        }
        for (ssize_t i = 0; i < n; ++i)
            if (chunk[i] == '\n')
                fprintf(stdout, "SENT %lld\n", static_cast<long long>(sent()));
        fflush(stdout);
    });
    return app.exec();
}
