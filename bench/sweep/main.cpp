// vexa-sweep: the bad-input sweep of the manager's network ports, and the engine of bench/soak.
#include "sweeprun.h"

#include <QCoreApplication>
#include <cstdio>

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    const SweepOptions options = sweepOptions_parse(app.arguments().mid(1));
    if (options.help || !options.problems.isEmpty()) {
        if (!options.problems.isEmpty())
            std::fprintf(stderr, "vexa-sweep: cannot use %s\n", qPrintable(options.problems.join(' ')));
        std::fputs(qPrintable(sweepOptions_usage()), options.help ? stdout : stderr);
        return options.help ? 0 : 2;
    }
    return sweepRun(options);
}
