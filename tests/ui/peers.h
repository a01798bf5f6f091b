#pragma once

#include "../peertools.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QRandomGenerator>
#include <QStandardPaths>
#include <QtTest>

// Independent receivers for the wizards' tests: net-snmp's snmptrapd for traps and liblo's
// oscdump for OSC, each on a free loopback port, started and stopped by the test. Every wait is
// bounded.
class PeerProcess
{
public:
    ~PeerProcess() { stop(); }

    // Starts `program` with `args` (in which "%1" becomes the port) until one copy stays up and
    // `ready` shows in its output (empty: up for 300 ms is enough); returns the port or 0.
    unsigned start(const QString &program, const QStringList &args, const QByteArray &ready,
                   const QProcessEnvironment &env = QProcessEnvironment::systemEnvironment())
    {
        m_process.setProcessEnvironment(env);
        m_process.setProcessChannelMode(QProcess::MergedChannels);
        for (int attempt = 0; attempt < 5; ++attempt) {
            const unsigned port = 20000 + QRandomGenerator::global()->bounded(40000);
            QStringList filled;
            for (const QString &a : args)
                filled << QString(a).replace(QLatin1String("%1"), QString::number(port));
            m_output.clear();
            m_process.start(program, filled);
            if (!m_process.waitForStarted(3000))
                continue;
            for (int wait = 0; wait < 30 && m_process.state() == QProcess::Running; ++wait) {
                QTest::qWait(100);
                m_output += m_process.readAll();
                if (ready.isEmpty() ? wait >= 3 : m_output.contains(ready))
                    return port;
            }
            stop();
        }
        return 0;
    }

    // Waits (bounded) until `text` shows in the output; returns everything read so far.
    QByteArray waitFor(const QByteArray &text, int timeoutMs = 5000)
    {
        for (int waited = 0; waited < timeoutMs && !m_output.contains(text); waited += 50) {
            QTest::qWait(50);
            m_output += m_process.readAll();
        }
        return m_output;
    }

    void stop()
    {
        if (m_process.state() == QProcess::NotRunning)
            return;
        m_process.terminate();
        if (!m_process.waitForFinished(3000)) {
            m_process.kill();
            m_process.waitForFinished(2000);
        }
    }

private:
    QProcess m_process;
    QByteArray m_output;
};

inline bool havePeer(const QString &program)
{
    return !QStandardPaths::findExecutable(program, {"/usr/sbin", "/usr/bin", "/usr/local/bin"}).isEmpty();
}

// snmptrapd printing every trap to standard output, without the system's configuration.
inline unsigned startTrapReceiver(PeerProcess &peer, const QString &dir)
{
    QDir().mkpath(dir + "/persist");
    QDir().mkpath(dir + "/conf");
    QFile conf(dir + "/snmptrapd.conf");
    if (!conf.open(QIODevice::WriteOnly))
        return 0;
    conf.write("disableAuthorization yes\n");
    conf.close();
    const QProcessEnvironment env = netSnmpEnvironment(dir);
    return peer.start(
        "snmptrapd",
        {"-f", "-On", "-Lo", "-C", "-c", conf.fileName(), "--disableAuthorization=yes", "udp:127.0.0.1:%1"},
        "NET-SNMP version", env);
}

// oscdump printing every OSC message it receives, one a line.
inline unsigned startOscReceiver(PeerProcess &peer)
{
    return peer.start("oscdump", {"-L", "%1"}, QByteArray());
}
