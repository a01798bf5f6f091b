#pragma once

#include <QList>
#include <QMutex>
#include <QObject>
#include <QProcess>
#include <QStringList>
#include <QTemporaryDir>
#include <atomic>
#include <thread>

// The site under test: a private folder (TMPDIR, HOME and XDG folders of its own, so that the hub
// socket, the single-run guard and the settings never meet another manager's), stand-in setup files,
// a ".vxma" that lists them with Ember+ ports, SNMP and OSC, and the headless manager process with
// file logging on. Its standard error goes through a FIFO to a reader thread of ours, so that a
// manager logging hundreds of thousands of lines never waits for this program's busy event loop.
class SweepSite : public QObject
{
    Q_OBJECT
public:
    struct Ports
    {
        QList<quint16> ember;  // one per instance
        quint16 snmp = 0;      // the agent's request port
        quint16 osc = 0;       // the gateway's receive port
        quint16 oscTarget = 0; // where the gateway sends values (ours)
        quint16 trap = 0;      // where traps go (ours)
    };

    SweepSite(int instances, double recordRate, bool keep, QObject *parent = nullptr);
    ~SweepSite() override;

    // Chooses free loopback ports (except the two given, which our peers hold) and writes the files.
    bool prepare(quint16 oscTarget, quint16 trap, QString *error);
    bool startManager(QString *error);
    // SIGTERM, then SIGKILL after timeoutMs. True when the manager ended by itself with status 0.
    bool stopManager(int timeoutMs);

    const Ports &ports() const { return m_ports; }
    QString folder() const { return m_dir.path(); }
    qint64 pid() const { return m_pid; }
    bool running() const { return m_process.state() == QProcess::Running; }
    int unexpectedExits() const { return m_unexpectedExits; }
    QString stopReport() const { return m_stopReport; } // how stopManager went

    long rssKb() const;        // VmRSS of the manager, 0 when gone
    double cpuSeconds() const; // user + system time of the manager
    // Time the manager's main thread was ready to run but waited for a CPU (other load).
    double runQueueSeconds() const;
    int standInCount() const;     // live children of the manager
    qint64 logFilesBytes() const; // the manager's log files on disk

    qint64 logLines() const;
    qint64 warningLines() const;
    // Lines seen so far that contain the text (only the texts given to watch() before the start
    // are counted).
    int watched(const QString &text) const;
    void watch(const QString &text) { m_watch.append({text, 0}); }
    QStringList lastLines() const;

private:
    void readLog(); // the reader thread
    void line(const QByteArray &text);
    void endReader();

    int m_instances;
    double m_rate;
    QTemporaryDir m_dir;
    Ports m_ports;
    QString m_vxma;
    QProcess m_process;
    qint64 m_pid = 0;
    bool m_stopping = false;
    int m_unexpectedExits = 0;
    QString m_stopReport;
    QString m_fifo;
    std::thread m_reader;
    std::atomic<bool> m_readerStop{false};
    mutable QMutex m_mutex; // the counts below, written by the reader thread
    qint64 m_logLines = 0;
    qint64 m_warningLines = 0;
    QList<QPair<QString, int>> m_watch;
    QStringList m_last;
};
