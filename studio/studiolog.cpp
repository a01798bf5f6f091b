#include "studio/studiolog.h"

#include <QDateTime>
#include <QFile>
#include <QMutex>
#include <QMutexLocker>

namespace {

QMutex s_lock;
QFile *s_file = nullptr;

void writeLine(QtMsgType type, const QMessageLogContext &, const QString &message)
{
    const char *kind = "Info";
    switch (type) {
    case QtDebugMsg:
        return;
    case QtInfoMsg:
        break;
    case QtWarningMsg:
        kind = "Warning";
        break;
    case QtCriticalMsg:
        kind = "Critical";
        break;
    case QtFatalMsg:
        kind = "Fatal";
        break;
    }
    QMutexLocker lock(&s_lock);
    if (!s_file)
        return;
    const QByteArray line =
        QDateTime::currentDateTime().toString(QStringLiteral("yyyy-MM-dd hh:mm:ss.zzz")).toUtf8() + '|' +
        kind + '|' + message.toUtf8() + '\n';
    s_file->write(line);
    s_file->flush();
}

} // namespace

void studioLog_open(const QString &path)
{
    {
        QMutexLocker lock(&s_lock);
        delete s_file;
        s_file = new QFile(path);
        if (!s_file->open(QIODevice::WriteOnly | QIODevice::Append | QIODevice::Text)) {
            delete s_file;
            s_file = nullptr;
        }
    }
    // Without a file the messages are dropped: still nothing on stdout or stderr.
    qInstallMessageHandler(writeLine);
}

void studioLog_close()
{
    QMutexLocker lock(&s_lock);
    delete s_file;
    s_file = nullptr;
}
