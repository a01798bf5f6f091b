#pragma once

#include <QProcess>
#include <QSignalSpy>
#include <QStringList>

// Command-line peers (net-snmp, liblo's tools) as the tests run them: bounded in time, with the
// event loop kept running so that the code under test can answer them.

struct ToolResult
{
    bool finished = false;
    int exitCode = -1;
    QString out; // standard output and error, merged
};

// Runs a command-line peer while the event loop keeps running; bounded by timeoutMs.
inline ToolResult runTool(const QString &program, const QStringList &args,
                          const QProcessEnvironment &env = QProcessEnvironment::systemEnvironment(),
                          int timeoutMs = 8000)
{
    ToolResult result;
    QProcess process;
    process.setProcessEnvironment(env);
    process.setProcessChannelMode(QProcess::MergedChannels);
    QSignalSpy done(&process, QOverload<int, QProcess::ExitStatus>::of(&QProcess::finished));
    process.start(program, args);
    if (!process.waitForStarted(3000))
        return result;
    result.finished = done.wait(timeoutMs);
    if (!result.finished) {
        process.kill();
        process.waitForFinished(2000);
    }
    result.exitCode = process.exitCode();
    result.out = QString::fromLocal8Bit(process.readAll());
    return result;
}

// Ends a peer started with QProcess: SIGTERM, then SIGKILL when it lingers.
inline void stopProcess(QProcess &process)
{
    if (process.state() == QProcess::NotRunning)
        return;
    process.terminate();
    if (!process.waitForFinished(3000)) {
        process.kill();
        process.waitForFinished(2000);
    }
}

// The environment for net-snmp's tools: no MIB files to look for, configuration and state in `dir`.
inline QProcessEnvironment netSnmpEnvironment(const QString &dir)
{
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert("MIBS", "");
    env.insert("MIBDIRS", "/nonexistent");
    env.insert("SNMP_PERSISTENT_DIR", dir + "/persist");
    env.insert("SNMPCONFPATH", dir + "/conf");
    return env;
}
