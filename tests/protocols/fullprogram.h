#pragma once

#include <QElapsedTimer>
#include <QProcess>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QStringList>
#include <QUdpSocket>
#include <QtTest>

#include "peertools.h"

// The parts shared by the whole-program tests: free ports, the headless manager as a child
// process whose log lines the test can search, and bounded runs of the peers' command-line tools.

// A UDP port that nobody uses right now: the system picks it for a socket bound to port 0.
inline quint16 freeUdpPort()
{
    QUdpSocket probe;
    if (!probe.bind(QHostAddress(QHostAddress::LocalHost), 0))
        return 0;
    return probe.localPort();
}

// `vexa-studio-manager --headless --vxma FILE`, its log lines (echoed on stderr) kept as they come.
class HeadlessManager
{
public:
    HeadlessManager()
    {
        QObject::connect(&m_process, &QProcess::readyReadStandardError, [this] { readLines(); });
        QObject::connect(&m_process, &QProcess::readyReadStandardOutput, [this] { readLines(); });
    }
    ~HeadlessManager() { stop(); }
    HeadlessManager(const HeadlessManager &) = delete;
    HeadlessManager &operator=(const HeadlessManager &) = delete;

    bool start(const QString &vxma)
    {
        m_process.start(QStringLiteral(VEXA_BIN_DIR "/vexa-studio-manager"),
                        {QStringLiteral("--headless"), QStringLiteral("--vxma"), vxma});
        return m_process.waitForStarted(5000);
    }

    // SIGTERM, as a service manager would end it; killed when it does not end in time.
    void stop()
    {
        if (m_process.state() == QProcess::NotRunning)
            return;
        m_process.terminate();
        if (!m_process.waitForFinished(8000)) {
            m_process.kill();
            m_process.waitForFinished(2000);
        }
        readLines();
    }

    bool running() const { return m_process.state() == QProcess::Running; }
    QStringList lines() const { return m_lines; }
    int lineCount() const { return m_lines.size(); }
    int count(const QString &needle, int from = 0) const { return m_lines.mid(from).filter(needle).size(); }
    QString tail(int n = 40) const { return m_lines.mid(qMax(0, m_lines.size() - n)).join('\n'); }

private:
    void readLines()
    {
        m_pending += m_process.readAllStandardError();
        m_pending += m_process.readAllStandardOutput();
        int end;
        while ((end = m_pending.indexOf('\n')) >= 0) {
            m_lines << QString::fromLocal8Bit(m_pending.left(end));
            m_pending.remove(0, end + 1);
        }
    }

    QProcess m_process;
    QByteArray m_pending;
    QStringList m_lines;
};
