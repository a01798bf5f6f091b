#pragma once

#include <QElapsedTimer>
#include <QProcess>
#include <QStringList>
#include <QtTest>
#include <functional>

// One hubpeer process: its report lines and a bounded wait for the next that matches.
class HubPeerProcess
{
public:
    explicit HubPeerProcess(int flags, const QString &name = QStringLiteral("TESTHUB"))
    {
        m_process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        QObject::connect(&m_process, &QProcess::readyReadStandardOutput, [this]() { collect(); });
        m_process.start(QStringLiteral(VEXA_BIN_DIR "/hubpeer"),
                        {"--name", name, "--flags", QString::number(flags)});
    }
    ~HubPeerProcess()
    {
        if (m_process.state() != QProcess::NotRunning) {
            m_process.kill();
            m_process.waitForFinished(3000);
        }
    }

    void command(const QByteArray &line) { m_process.write(line + '\n'); }
    void kill()
    {
        m_process.kill();
        m_process.waitForFinished(3000);
    }
    qint64 pid() const { return m_process.processId(); }

    // Waits (bounded) for a report line starting with `prefix`, consuming the lines before it.
    QByteArray waitFor(const QByteArray &prefix, int timeoutMs = 5000)
    {
        QElapsedTimer clock;
        clock.start();
        for (;;) {
            while (m_read < m_lines.size()) {
                const QByteArray line = m_lines.at(m_read++);
                if (line.startsWith(prefix))
                    return line;
            }
            if (clock.elapsed() > timeoutMs || m_process.state() == QProcess::NotRunning)
                return QByteArray();
            QTest::qWait(5);
        }
    }
    // All lines so far (consumed or not).
    const QList<QByteArray> &lines() const { return m_lines; }
    // The id from the latest "id" line, 0 if none.
    int id() const
    {
        for (int i = m_lines.size() - 1; i >= 0; --i) {
            if (m_lines[i].startsWith("id "))
                return m_lines[i].mid(3).toInt();
        }
        return 0;
    }
    bool isServer() const
    {
        for (int i = m_lines.size() - 1; i >= 0; --i) {
            if (m_lines[i].startsWith("server "))
                return m_lines[i] == "server 1";
        }
        return false;
    }

private:
    void collect()
    {
        m_pending += m_process.readAllStandardOutput();
        int end;
        while ((end = m_pending.indexOf('\n')) >= 0) {
            m_lines.append(m_pending.left(end));
            m_pending.remove(0, end + 1);
        }
    }

    QProcess m_process;
    QByteArray m_pending;
    QList<QByteArray> m_lines;
    int m_read = 0;
};
