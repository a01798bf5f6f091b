#pragma once

#include <QDir>
#include <QFile>
#include <QMutex>
#include <QRegularExpression>
#include <QStringList>
#include <QtTest>

// A small site on disk for tests: stand-in setup files, executables (the stand-in itself or a
// wrapper script that adds options), and the ".vxma" file that lists them.
class SiteFixture
{
public:
    struct Instance
    {
        QString setup;
        QString exe;
        int emberPort = 0;
        int inactivity = 0;
        int autostart = 1;
    };

    explicit SiteFixture(const QString &dir) : m_dir(dir) { QDir().mkpath(dir); }

    QString dir() const { return m_dir; }

    QString setupFile(const QString &name, const QString &extra = QString())
    {
        const QString path = m_dir + "/" + name + ".vxup";
        write(path, QStringLiteral("[Instance]\nName=%1\n%2").arg(name, extra).toUtf8());
        return path;
    }

    // An executable that starts the stand-in with extra options before the manager's arguments.
    QString standIn(const QStringList &options = QStringList())
    {
        if (options.isEmpty())
            return QStringLiteral(VEXA_BIN_DIR "/VexaStudio");
        const QString path = m_dir + QStringLiteral("/VexaStudio-%1.sh").arg(++m_scripts);
        QString quoted;
        for (const QString &o : options)
            quoted += " '" + o + "'";
        write(
            path,
            QStringLiteral("#!/bin/sh\nexec '" VEXA_BIN_DIR "/VexaStudio'%1 \"$@\"\n").arg(quoted).toUtf8());
        QFile::setPermissions(path, QFile::permissions(path) | QFileDevice::ExeOwner);
        return path;
    }

    QString vxma(const QList<Instance> &instances, const QString &more = QString())
    {
        QString text = "[Instances]\n";
        for (int n = 0; n < instances.size(); ++n) {
            const Instance &i = instances[n];
            text += QStringLiteral("Instance%1=%2\nInstance%1_exe=%3\nInstance%1_emberport=%4\n"
                                   "Instance%1_inactivitytime=%5\nInstance%1_autostart=%6\n")
                        .arg(n)
                        .arg(i.setup, i.exe)
                        .arg(i.emberPort)
                        .arg(i.inactivity)
                        .arg(i.autostart);
        }
        text += more;
        const QString path = m_dir + "/site.vxma";
        write(path, text.toUtf8());
        return path;
    }

    // The lines the stand-in of `setup` logged.
    static QStringList standInLog(const QString &setup)
    {
        QString path = setup;
        path.chop(5); // ".vxup"
        QFile file(path + ".log");
        if (!file.open(QIODevice::ReadOnly))
            return QStringList();
        return QString::fromUtf8(file.readAll()).split('\n', Qt::SkipEmptyParts);
    }

private:
    static void write(const QString &path, const QByteArray &content)
    {
        QFile file(path);
        if (file.open(QIODevice::WriteOnly))
            file.write(content);
    }

    QString m_dir;
    int m_scripts = 0;
};

// Every message the program logs, kept in memory for the test to search.
class LogCapture
{
public:
    static void install()
    {
        lines().clear();
        qInstallMessageHandler(&LogCapture::handler);
    }
    static QStringList snapshot()
    {
        QMutexLocker lock(&mutex());
        return lines();
    }
    static int count(const QString &needle) { return snapshot().filter(needle).size(); }
    // The position of the first line at or after `from` that contains `needle`, or -1.
    static int find(const QString &needle, int from = 0)
    {
        const QStringList all = snapshot();
        for (int i = from; i < all.size(); ++i) {
            if (all[i].contains(needle))
                return i;
        }
        return -1;
    }

private:
    static void handler(QtMsgType, const QMessageLogContext &, const QString &msg)
    {
        QMutexLocker lock(&mutex());
        lines().append(msg);
    }
    static QStringList &lines()
    {
        static QStringList l;
        return l;
    }
    static QMutex &mutex()
    {
        static QMutex m;
        return m;
    }
};
