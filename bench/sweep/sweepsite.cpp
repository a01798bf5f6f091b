#include "sweepsite.h"

#include <QCoreApplication>
#include <QDir>
#include <QDirIterator>
#include <QElapsedTimer>
#include <QFile>
#include <QNetworkInterface>
#include <QTcpServer>
#include <QUdpSocket>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

void writeFile(const QString &path, const QString &text)
{
    QFile file(path);
    if (file.open(QIODevice::WriteOnly | QIODevice::Truncate))
        file.write(text.toUtf8());
}

// A port that is free on loopback for TCP (Ember+) or UDP (SNMP, OSC) right now.
quint16 freeTcpPort()
{
    QTcpServer probe;
    return probe.listen(QHostAddress::LocalHost, 0) ? probe.serverPort() : 0;
}

quint16 freeUdpPort()
{
    QUdpSocket probe;
    return probe.bind(QHostAddress(QHostAddress::LocalHost), 0) ? probe.localPort() : 0;
}

// The pids of a process's children, space-separated.
QByteArray readChildren(qint64 pid)
{
    QFile children(QStringLiteral("/proc/%1/task/%1/children").arg(pid));
    return pid != 0 && children.open(QIODevice::ReadOnly) ? children.readAll().simplified() : QByteArray();
}

// The loopback interface's index, so that the providers listen on 127.0.0.1 only; -1 (all
// interfaces) when there is none.
int loopbackIndex()
{
    const auto all = QNetworkInterface::allInterfaces();
    for (const QNetworkInterface &nic : all) {
        if (nic.flags() & QNetworkInterface::IsLoopBack)
            return nic.index();
    }
    return -1;
}

} // namespace

SweepSite::SweepSite(int instances, double recordRate, bool keep, QObject *parent)
    : QObject(parent), m_instances(instances), m_rate(recordRate),
      m_dir(QDir::temp().filePath(QStringLiteral("vexa-sweep-XXXXXX")))
{
    m_dir.setAutoRemove(!keep);
    m_process.setProcessChannelMode(QProcess::MergedChannels);
    connect(&m_process, QOverload<int, QProcess::ExitStatus>::of(&QProcess::finished), this,
            [this](int code, QProcess::ExitStatus status) {
                if (!m_stopping) {
                    ++m_unexpectedExits;
                    qWarning().noquote() << QStringLiteral("manager ended unexpectedly: %1 %2")
                                                .arg(status == QProcess::CrashExit ? "crash" : "exit")
                                                .arg(code);
                }
            });
}

SweepSite::~SweepSite()
{
    if (running())
        stopManager(5000);
    endReader();
}

bool SweepSite::prepare(quint16 oscTarget, quint16 trap, QString *error)
{
    if (!m_dir.isValid()) {
        *error = QStringLiteral("cannot create a work folder in ") + QDir::tempPath();
        return false;
    }
    const QString root = m_dir.path();
    for (const char *sub : {"home/Documents", "tmp", "config", "run"})
        QDir().mkpath(root + "/" + sub);
    QFile::setPermissions(root + "/run",
                          QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);
    // File logging on, as on a site that keeps logs: what bad input costs on disk shows.
    QDir().mkpath(root + "/config/CalderWick");
    writeFile(root + "/config/CalderWick/VEXA Studio Manager.ini",
              QStringLiteral("[General]\nLoggingLevel=2\n"));
    m_fifo = root + QStringLiteral("/manager-stderr");
    if (::mkfifo(QFile::encodeName(m_fifo).constData(), 0600) != 0) {
        *error = QStringLiteral("cannot make the FIFO ") + m_fifo;
        return false;
    }

    const QString standIn = QCoreApplication::applicationDirPath() + QStringLiteral("/VexaStudio");
    if (!QFileInfo::exists(standIn)) {
        *error = standIn + QStringLiteral(" is not built");
        return false;
    }
    // The manager gives an instance only its port and setup file: a wrapper adds the record rate.
    const QString wrapper = root + QStringLiteral("/VexaStudio.sh");
    writeFile(wrapper, QStringLiteral("#!/bin/sh\nexec '%1' --rate %2 \"$@\"\n").arg(standIn).arg(m_rate));
    QFile::setPermissions(wrapper, QFile::permissions(wrapper) | QFileDevice::ExeOwner);

    m_ports.oscTarget = oscTarget;
    m_ports.trap = trap;
    m_ports.snmp = freeUdpPort();
    m_ports.osc = freeUdpPort();
    while (m_ports.osc == m_ports.snmp)
        m_ports.osc = freeUdpPort();
    QString instances = QStringLiteral("[Instances]\n");
    for (int n = 0; n < m_instances; ++n) {
        quint16 port = freeTcpPort();
        while (m_ports.ember.contains(port))
            port = freeTcpPort();
        m_ports.ember.append(port);
        const QString setup = root + QStringLiteral("/studio-%1.vxup").arg(n + 1);
        writeFile(setup, QStringLiteral("[Instance]\nName=Studio %1\nGroup=%1\n").arg(n + 1));
        instances += QStringLiteral("Instance%1=%2\nInstance%1_exe=%3\nInstance%1_emberport=%4\n"
                                    "Instance%1_inactivitytime=5\nInstance%1_autostart=1\n")
                         .arg(n)
                         .arg(setup, wrapper)
                         .arg(port);
    }
    if (m_ports.snmp == 0 || m_ports.osc == 0 || m_ports.ember.contains(0)) {
        *error = QStringLiteral("no free loopback ports");
        return false;
    }
    m_vxma = root + QStringLiteral("/site.vxma");
    writeFile(m_vxma, QStringLiteral("[Options]\nEmberNetworkNIC=%1\n\n%2\n"
                                     "[SNMP]\nReceivePort=%3\nTrapSendPort=%4\nManagerIP=127.0.0.1\n\n"
                                     "[OSC]\nReceivePort=%5\nTargetIP=127.0.0.1\nTargetPort=%6\n")
                          .arg(loopbackIndex())
                          .arg(instances)
                          .arg(m_ports.snmp)
                          .arg(m_ports.trap)
                          .arg(m_ports.osc)
                          .arg(m_ports.oscTarget));
    return true;
}

bool SweepSite::startManager(QString *error)
{
    const QString program = QCoreApplication::applicationDirPath() + QStringLiteral("/vexa-studio-manager");
    if (!QFileInfo::exists(program)) {
        *error = program + QStringLiteral(" is not built");
        return false;
    }
    const QString root = m_dir.path();
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("HOME"), root + "/home");
    env.insert(QStringLiteral("TMPDIR"), root + "/tmp");
    env.insert(QStringLiteral("XDG_CONFIG_HOME"), root + "/config");
    env.insert(QStringLiteral("XDG_RUNTIME_DIR"), root + "/run");
    m_process.setProcessEnvironment(env);
    m_process.setWorkingDirectory(root);
    m_process.setStandardOutputFile(m_fifo);
    m_readerStop = false;
    m_reader = std::thread([this] { readLog(); });
    m_process.start(program, {QStringLiteral("--headless"), QStringLiteral("--vxma"), m_vxma});
    if (!m_process.waitForStarted(5000)) {
        *error = QStringLiteral("the manager did not start: ") + m_process.errorString();
        endReader();
        return false;
    }
    m_pid = m_process.processId();
    return true;
}

bool SweepSite::stopManager(int timeoutMs)
{
    if (!running())
        return false;
    m_stopping = true;
    QElapsedTimer clock;
    clock.start();
    ::kill(pid_t(m_pid), SIGTERM);
    bool clean = false;
    if (m_process.waitForFinished(timeoutMs)) {
        clean = m_process.exitStatus() == QProcess::NormalExit && m_process.exitCode() == 0;
        m_stopReport = QStringLiteral("%1 %2 after %3 s")
                           .arg(m_process.exitStatus() == QProcess::CrashExit ? "crash" : "exit")
                           .arg(m_process.exitCode())
                           .arg(clock.elapsed() / 1000.0, 0, 'f', 1);
    } else {
        m_stopReport =
            QStringLiteral("still running after %1 s, killed").arg(clock.elapsed() / 1000.0, 0, 'f', 1);
        qWarning().noquote() << "the manager did not end on SIGTERM; its threads:";
        // Where it hangs, when a debugger is at hand.
        QProcess gdb;
        gdb.setProcessChannelMode(QProcess::ForwardedChannels);
        gdb.start(QStringLiteral("gdb"),
                  {QStringLiteral("-p"), QString::number(m_pid), QStringLiteral("-batch"),
                   QStringLiteral("-ex"), QStringLiteral("thread apply all bt")});
        gdb.waitForFinished(30000);
        // Its stand-ins would outlive it: they go with it.
        const QByteArray children = readChildren(m_pid);
        m_process.kill();
        m_process.waitForFinished(2000);
        for (const QByteArray &child : children.split(' ')) {
            if (child.toLongLong() > 0)
                ::kill(pid_t(child.toLongLong()), SIGKILL);
        }
    }
    endReader();
    return clean;
}

void SweepSite::readLog()
{
    // Blocks until the manager opens its end; endReader opens the other end to release a reader
    // whose manager never came.
    const int fd = ::open(QFile::encodeName(m_fifo).constData(), O_RDONLY);
    if (fd < 0)
        return;
    QByteArray partial;
    char buffer[65536];
    while (true) {
        pollfd p{fd, POLLIN, 0};
        const int ready = ::poll(&p, 1, 200);
        if (ready <= 0) {
            if (m_readerStop)
                break;
            continue; // nothing yet, or a signal (the manager's own SIGCHLD among them)
        }
        const ssize_t n = ::read(fd, buffer, sizeof(buffer));
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            break; // every writer is gone
        partial.append(buffer, int(n));
        int start = 0;
        for (int end = partial.indexOf('\n'); end >= 0; end = partial.indexOf('\n', start)) {
            line(partial.mid(start, end - start));
            start = end + 1;
        }
        partial.remove(0, start);
    }
    ::close(fd);
}

void SweepSite::line(const QByteArray &text)
{
    QMutexLocker lock(&m_mutex);
    ++m_logLines;
    if (text.contains("Warning|"))
        ++m_warningLines;
    for (auto &w : m_watch) {
        if (text.contains(w.first.toUtf8()))
            ++w.second;
    }
    m_last.append(QString::fromUtf8(text));
    if (m_last.size() > 40)
        m_last.removeFirst();
}

void SweepSite::endReader()
{
    if (!m_reader.joinable())
        return;
    m_readerStop = true;
    // A reader still waiting in open() for a writer gets one that closes at once.
    const int fd = ::open(QFile::encodeName(m_fifo).constData(), O_WRONLY | O_NONBLOCK);
    if (fd >= 0)
        ::close(fd);
    m_reader.join();
}

qint64 SweepSite::logLines() const
{
    QMutexLocker lock(&m_mutex);
    return m_logLines;
}

qint64 SweepSite::warningLines() const
{
    QMutexLocker lock(&m_mutex);
    return m_warningLines;
}

QStringList SweepSite::lastLines() const
{
    QMutexLocker lock(&m_mutex);
    return m_last;
}

int SweepSite::watched(const QString &text) const
{
    QMutexLocker lock(&m_mutex);
    for (const auto &w : m_watch) {
        if (w.first == text)
            return w.second;
    }
    return 0;
}

long SweepSite::rssKb() const
{
    QFile status(QStringLiteral("/proc/%1/status").arg(m_pid));
    if (m_pid == 0 || !status.open(QIODevice::ReadOnly))
        return 0;
    for (const QByteArray &line : status.readAll().split('\n')) {
        if (line.startsWith("VmRSS:"))
            return line.mid(6).trimmed().split(' ').value(0).toLong();
    }
    return 0;
}

double SweepSite::cpuSeconds() const
{
    QFile stat(QStringLiteral("/proc/%1/stat").arg(m_pid));
    if (m_pid == 0 || !stat.open(QIODevice::ReadOnly))
        return 0;
    const QByteArray text = stat.readAll();
    // The fields after the command name, which is in parentheses and may hold spaces.
    const QList<QByteArray> fields = text.mid(text.lastIndexOf(')') + 2).split(' ');
    if (fields.size() < 13)
        return 0;
    const double ticks = fields.at(11).toDouble() + fields.at(12).toDouble(); // utime, stime
    return ticks / double(sysconf(_SC_CLK_TCK));
}

double SweepSite::runQueueSeconds() const
{
    // schedstat: time on a CPU, time waiting on a run queue (both ns), time slices.
    QFile stat(QStringLiteral("/proc/%1/schedstat").arg(m_pid));
    if (m_pid == 0 || !stat.open(QIODevice::ReadOnly))
        return 0;
    return stat.readAll().split(' ').value(1).toDouble() / 1e9;
}

int SweepSite::standInCount() const
{
    const QByteArray text = readChildren(m_pid);
    return text.isEmpty() ? 0 : text.count(' ') + 1;
}

qint64 SweepSite::logFilesBytes() const
{
    qint64 total = 0;
    QDirIterator it(m_dir.path() + QStringLiteral("/home"), QDir::Files, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        it.next();
        total += it.fileInfo().size();
    }
    return total;
}
