#include "studio/studiooptions.h"

#include <QDir>
#include <QFileInfo>

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

} // namespace

StudioOptions studioOptions_parse(const QStringList &args)
{
    StudioOptions options;
    for (int i = 0; i < args.size(); ++i) {
        const QString arg = args.at(i);
        QString value;
        bool ok = true;
        if (arg.startsWith(QLatin1String("-emberport="))) {
            options.emberPort = arg.mid(11).toInt(&ok);
            if (!ok || options.emberPort < 0 || options.emberPort > 65535) {
                options.problems << arg;
                options.emberPort = -1;
            }
        } else if (takeValue(args, i, QStringLiteral("--rate"), &value)) {
            const double rate = value.toDouble(&ok);
            if (ok && rate > 0 && rate <= 1000)
                options.recordRate = rate;
            else
                options.problems << arg;
        } else if (takeValue(args, i, QStringLiteral("--silent-after"), &value)) {
            options.silentAfter = value.toDouble(&ok);
            if (!ok)
                options.problems << arg;
        } else if (takeValue(args, i, QStringLiteral("--crash-after"), &value)) {
            options.crashAfter = value.toDouble(&ok);
            if (!ok)
                options.problems << arg;
        } else if (takeValue(args, i, QStringLiteral("--exit-after"), &value)) {
            options.exitAfter = value.toDouble(&ok);
            if (!ok)
                options.problems << arg;
        } else if (takeValue(args, i, QStringLiteral("--log"), &value)) {
            options.logPath = value;
        } else if (arg == QLatin1String("--help") || arg == QLatin1String("-h")) {
            options.help = true;
        } else if (!arg.startsWith(QLatin1Char('-')) && options.setupPath.isEmpty()) {
            // The manager writes the path's UTF-8 bytes percent-encoded.
            options.setupPath = QString::fromUtf8(QByteArray::fromPercentEncoding(arg.toUtf8()));
        } else {
            options.problems << arg;
        }
    }
    return options;
}

QString studioOptions_usage()
{
    return QStringLiteral(
        "VexaStudio [-emberport=N] [--rate R] [--silent-after S] [--crash-after S] [--exit-after S]\n"
        "           [--log FILE] SETUP\n"
        "A stand-in studio instance: joins the manager's hub, reports a simulated instance from its\n"
        "setup file (percent-encoded path) and applies the commands it receives.\n");
}

QString studioOptions_logPath(const StudioOptions &options)
{
    if (!options.logPath.isEmpty())
        return options.logPath;
    if (options.setupPath.isEmpty())
        return QDir::temp().filePath(QStringLiteral("VexaStudio.log"));
    const QFileInfo setup(options.setupPath);
    return setup.dir().filePath(setup.completeBaseName() + QStringLiteral(".log"));
}
