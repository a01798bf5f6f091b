#pragma once

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QRegularExpression>
#include <QStringList>
#include <QTcpServer>
#include <QTcpSocket>
#include <QtTest>
#include <csignal>
#include <sys/types.h>

// Helpers for fault tests that run the real program: a site on disk, the headless manager as a
// child process whose log lines are kept, the stand-in processes found through /proc, and Ember+
// consumers that only count what reaches them.
namespace faults {

inline QString binDir()
{
    return QStringLiteral(VEXA_BIN_DIR);
}

inline void writeFile(const QString &path, const QByteArray &content)
{
    QFile file(path);
    QVERIFY2(file.open(QIODevice::WriteOnly), qPrintable(path));
    file.write(content);
}

inline QByteArray readFile(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// A TCP port that was free a moment ago.
inline quint16 freePort()
{
    QTcpServer probe;
    probe.listen(QHostAddress::LocalHost, 0);
    return probe.serverPort();
}

struct Instance
{
    QString setup;
    QString exe;
    int emberPort = 0;
    int inactivity = 3;
};

// Setup files, stand-in wrappers and the ".vxma" of a small site in one folder.
class Site
{
public:
    explicit Site(const QString &dir) : m_dir(dir) { QDir().mkpath(dir); }
    QString dir() const { return m_dir; }

    QString setup(const QString &name)
    {
        const QString path = m_dir + "/" + name + ".vxup";
        writeFile(path, QStringLiteral("[Instance]\nName=%1\n").arg(name).toUtf8());
        return path;
    }
    // The stand-in itself, or a script that starts it with extra options.
    QString standIn(const QStringList &options = QStringList())
    {
        if (options.isEmpty())
            return binDir() + "/VexaStudio";
        const QString path = m_dir + QStringLiteral("/VexaStudio-%1.sh").arg(++m_scripts);
        writeFile(path, QStringLiteral("#!/bin/sh\nexec '%1/VexaStudio' %2 \"$@\"\n")
                            .arg(binDir(), options.join(' '))
                            .toUtf8());
        QFile::setPermissions(path, QFile::permissions(path) | QFileDevice::ExeOwner | QFileDevice::ExeGroup |
                                        QFileDevice::ExeOther);
        return path;
    }
    static QByteArray vxmaText(const QList<Instance> &list)
    {
        QString text = "[Options]\nEmberNetworkNIC=-1\n\n[Instances]\n";
        for (int n = 0; n < list.size(); ++n)
            text += QStringLiteral("Instance%1=%2\nInstance%1_exe=%3\nInstance%1_emberport=%4\n"
                                   "Instance%1_inactivitytime=%5\n")
                        .arg(n)
                        .arg(list[n].setup, list[n].exe)
                        .arg(list[n].emberPort)
                        .arg(list[n].inactivity);
        return text.toUtf8();
    }
    QString vxma(const QList<Instance> &list, const QString &dir = QString())
    {
        const QString path = (dir.isEmpty() ? m_dir : dir) + "/site.vxma";
        writeFile(path, vxmaText(list));
        return path;
    }
    // What the stand-in of `setup` logged.
    static QString standInLog(const QString &setup)
    {
        QString path = setup;
        path.chop(5); // ".vxup"
        return QString::fromUtf8(readFile(path + ".log"));
    }

private:
    QString m_dir;
    int m_scripts = 0;
};

// The process's parent and state letter from /proc; ppid -1 when it is gone.
inline qint64 parentOf(qint64 pid, char *state = nullptr)
{
    const QByteArray stat = readFile(QStringLiteral("/proc/%1/stat").arg(pid));
    const int close = stat.lastIndexOf(')');
    if (close < 0)
        return -1;
    const QList<QByteArray> fields = stat.mid(close + 2).split(' ');
    if (fields.size() < 2)
        return -1;
    if (state)
        *state = fields[0].isEmpty() ? '?' : fields[0][0];
    return fields[1].toLongLong();
}

// The live (not zombie) stand-in processes started for `setup`.
inline QList<qint64> standIns(const QString &setup)
{
    QList<qint64> pids;
    const QStringList entries = QDir("/proc").entryList(QDir::Dirs);
    for (const QString &entry : entries) {
        bool number = false;
        const qint64 pid = entry.toLongLong(&number);
        if (!number)
            continue;
        const QList<QByteArray> args = readFile("/proc/" + entry + "/cmdline").split('\0');
        if (args.isEmpty() || !args.first().endsWith("VexaStudio"))
            continue;
        bool forSetup = false;
        for (const QByteArray &a : args)
            forSetup = forSetup || QByteArray::fromPercentEncoding(a) == setup.toUtf8();
        char state = '?';
        if (forSetup && parentOf(pid, &state) >= 0 && state != 'Z')
            pids.append(pid);
    }
    return pids;
}

inline bool running(qint64 pid)
{
    char state = '?';
    return parentOf(pid, &state) >= 0 && state != 'Z';
}

// The headless program as a child process; every line it logs is kept.
class ManagerProcess
{
public:
    ManagerProcess()
    {
        m_process.setProcessChannelMode(QProcess::MergedChannels);
        QObject::connect(&m_process, &QProcess::readyRead, [this] {
            m_buffer += m_process.readAll();
            const int end = m_buffer.lastIndexOf('\n');
            if (end < 0)
                return;
            m_lines += QString::fromUtf8(m_buffer.left(end)).split('\n', Qt::SkipEmptyParts);
            m_buffer.remove(0, end + 1);
        });
    }
    ~ManagerProcess() { stopHard(); }

    // `wrapper`: a program and its options that run the manager (for another user, for example).
    void start(const QString &vxma, const QStringList &wrapper = QStringList(),
               const QProcessEnvironment &env = QProcessEnvironment::systemEnvironment())
    {
        QStringList args = wrapper;
        args << binDir() + "/vexa-studio-manager"
             << "--headless"
             << "--vxma" << vxma;
        m_process.setProcessEnvironment(env);
        m_process.start(args.takeFirst(), args);
        QVERIFY2(m_process.waitForStarted(5000), qPrintable(m_process.errorString()));
    }
    qint64 pid() const { return m_process.processId(); }
    QProcess &process() { return m_process; }
    QStringList lines() const { return m_lines; }
    int count(const QString &needle) const { return m_lines.filter(needle).size(); }
    QString tail(int n = 40) const
    {
        return QStringList(m_lines.mid(qMax(0, m_lines.size() - n))).join('\n');
    }
    bool isRunning() const { return m_process.state() == QProcess::Running; }
    void signal(int sig) { ::kill(pid_t(m_process.processId()), sig); }
    // SIGTERM, the program's clean end; true when it ended with code 0.
    bool stop(int ms = 10000)
    {
        if (!isRunning())
            return false;
        signal(SIGTERM);
        return m_process.waitForFinished(ms) && m_process.exitStatus() == QProcess::NormalExit &&
               m_process.exitCode() == 0;
    }
    void stopHard()
    {
        if (isRunning()) {
            signal(SIGCONT);
            m_process.kill();
            m_process.waitForFinished(3000);
        }
    }
    // The row index of the instance of `setup`, from the last status row about it
    // ("...| N | setup - ..."): rows are renumbered whenever an instance is added.
    int indexOf(const QString &setup) const
    {
        const QRegularExpression row(
            QStringLiteral("\\| (\\d+) \\| %1 - ").arg(QRegularExpression::escape(setup)));
        for (int i = m_lines.size() - 1; i >= 0; --i) {
            const QRegularExpressionMatch m = row.match(m_lines.at(i));
            if (m.hasMatch())
                return m.captured(1).toInt();
        }
        return -1;
    }

private:
    QProcess m_process;
    QByteArray m_buffer;
    QStringList m_lines;
};

// An Ember+ consumer that only connects and counts: the provider pushes every value change to
// every consumer, so bytes that keep arriving on a connection that never dropped show that it
// stayed served.
class CountingConsumer
{
public:
    explicit CountingConsumer(quint16 port)
    {
        QObject::connect(&socket, &QTcpSocket::readyRead, [this] { bytes += socket.readAll().size(); });
        QObject::connect(&socket, &QTcpSocket::disconnected, [this] { ++drops; });
        socket.connectToHost(QHostAddress::LocalHost, port);
        socket.waitForConnected(3000);
    }
    bool connected() const { return socket.state() == QAbstractSocket::ConnectedState; }

    QTcpSocket socket;
    qint64 bytes = 0;
    int drops = 0;
};

} // namespace faults
