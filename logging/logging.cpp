#include "logging/logging.h"

#include "logging/filelogthread.h"
#include "logging/logfilename.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QDebug>
#include <QDesktopServices>
#include <QDir>
#include <QFileInfo>
#include <QSettings>
#include <QStandardPaths>
#include <QTimer>
#include <QUrl>
#include <cstdio>

int Logging::TraceLevel = 0;
FileLogInThread *Logging::s_logger = nullptr;
QElapsedTimer Logging::s_clock;
std::atomic<bool> Logging::va_recursv{false};
QTimer *Logging::nextAlarm = nullptr;
bool Logging::s_echo = false;

namespace {

QString stamp()
{
    return QStringLiteral("%1|").arg(QDateTime::currentDateTime().toString(Qt::ISODate));
}

// Takes the line guard. A concurrent line is waited for at most until the millisecond count
// changes; then this line is given up (returns false).
bool takeGuard(std::atomic<bool> &guard, const QElapsedTimer &clock, bool waitForever)
{
    const qint64 start = clock.isValid() ? clock.elapsed() : 0;
    bool expected = false;
    while (!guard.compare_exchange_weak(expected, true, std::memory_order_acquire)) {
        expected = false;
        if (!waitForever && clock.isValid() && clock.elapsed() != start)
            return false;
    }
    return true;
}

} // namespace

Logging::Logging(QObject *parent) : QObject(parent)
{
    m_flag = 0;
    m_shown.clear();
    SetLogging();
}

Logging::~Logging() = default;

void Logging::setEchoToStderr(bool on)
{
    s_echo = on;
}

QString Logging::logFolder()
{
    const QString docs = QStandardPaths::writableLocation(QStandardPaths::DocumentsLocation);
    return docs + QStringLiteral("/VexaStudio-Logs/") + QCoreApplication::applicationName();
}

QString Logging::currentFile()
{
    if (!s_logger)
        return QString();
    QMutexLocker lock(&s_logger->mutex);
    return s_logger->file.fileName();
}

void Logging::SetLogging()
{
    QSettings settings;
    bool ok = false;
    int level = settings.value(QStringLiteral("LoggingLevel"), 0).toInt(&ok);
    if (!ok)
        level = 0;
    int days = settings.value(QStringLiteral("LoggingDays"), 5).toInt(&ok);
    if (!ok)
        days = 5;

    const QString folder = logFolder();
    QDir().mkpath(folder);
    const QString absolute = QDir(folder).absolutePath();

    if (m_flag == 0) {
        if (level != 0 || s_echo)
            qInstallMessageHandler(myMessageOutput);
        else
            qInstallMessageHandler(nullptr);
    }

    const QDate today = QDate::currentDate();
    const LogFileChoice choice = logFileFor(days, today, absolute);
    jInit(level, choice.path);
    if (choice.clearAtOnce) {
        jClear();
    } else {
        const QFileInfo info(choice.path);
        if (info.exists() && !choice.neverCleared) {
            const QDateTime born = info.birthTime();
            const bool earlierCycle =
                (born.isValid() && born.date() < today) || info.lastModified().date() < today;
            if (earlierCycle)
                jClear();
        }
        if (!nextAlarm) {
            nextAlarm = new QTimer(QCoreApplication::instance());
            nextAlarm->setSingleShot(true);
        }
        // Every Logging object re-reads the settings at midnight; the last one made is enough.
        nextAlarm->disconnect();
        connect(nextAlarm, &QTimer::timeout, this, &Logging::SetLogging);
        const QTime now = QTime::currentTime();
        const qint64 sinceMidnight = now.isValid() ? now.msecsSinceStartOfDay() : 0;
        nextAlarm->setInterval(int(86401000 - sinceMidnight));
        nextAlarm->start();
    }

    jLog(1, stamp() + QStringLiteral("Log|| ' csv value sperarator |'"));
    jLog(1, stamp() + QStringLiteral("Log|| csv text delimiter '"));
    jLog(1, stamp() + QStringLiteral("Log|| Level Set to %1").arg(level));
    // After the first run the handler that is in place is left alone.
    m_flag = 1;
}

void Logging::jInit(int level, const QString &path)
{
    TraceLevel = level;
    if (level == 0 || (s_logger && path.isEmpty())) {
        if (s_logger) {
            // Wait for a line being written, then take the writer away from every thread.
            takeGuard(va_recursv, s_clock, true);
            FileLogInThread *old = s_logger;
            s_logger = nullptr;
            va_recursv.store(false, std::memory_order_release);
            old->stop();
            delete old;
        }
        return;
    }
    if (!s_logger) {
        s_logger = new FileLogInThread(QStringLiteral("LoggingFileLogInThread"));
        s_clock.start();
    }
    QMutexLocker lock(&s_logger->mutex);
    if (s_logger->file.fileName() == path)
        return;
    if (s_logger->file.isOpen())
        s_logger->file.close();
    QDir().mkpath(QFileInfo(path).absolutePath());
    s_logger->file.setFileName(path);
    s_logger->unflushedBytes = 0;
    s_logger->fileSize = 0;
    s_logger->file.open(QIODevice::Append | QIODevice::Text);
    s_logger->fileSize = s_logger->file.size();
}

void Logging::jLog(int level, const QString &text)
{
    if (level > TraceLevel || !s_logger)
        return;
    if (!takeGuard(va_recursv, s_clock, false))
        return;
    FileLogInThread *writer = s_logger;
    if (writer) {
        if (text.isEmpty()) {
            QMutexLocker lock(&writer->mutex);
            if (writer->file.isOpen())
                writer->file.flush();
            writer->unflushedBytes = 0;
        } else {
            const QByteArray bytes = text.toUtf8();
            {
                QMutexLocker lock(&writer->mutex);
                if (writer->file.isOpen()) {
                    // Counted, not asked: QFile::size() would flush the buffer on every line.
                    writer->file.write(bytes);
                    writer->unflushedBytes += bytes.size();
                    writer->fileSize += bytes.size();
                }
            }
            {
                QMutexLocker lock(&writer->mutex);
                if (writer->file.isOpen()) {
                    writer->file.write("\n", 1);
                    writer->unflushedBytes += 1;
                    writer->fileSize += 1;
                }
            }
        }
    }
    va_recursv.store(false, std::memory_order_release);
}

void Logging::jClear()
{
    if (!s_logger)
        return;
    QMutexLocker lock(&s_logger->mutex);
    QFile &file = s_logger->file;
    if (file.fileName().isEmpty())
        return;
    if (file.isOpen()) {
        const QIODevice::OpenMode mode = file.openMode();
        file.close();
        file.remove();
        file.open(mode);
    } else {
        file.remove();
    }
    s_logger->fileSize = 0;
    s_logger->unflushedBytes = 0;
}

void Logging::jSync()
{
    jLog(0, QString());
}

void Logging::myMessageOutput(QtMsgType type, const QMessageLogContext &context, const QString &msg)
{
    int level = 2;
    QString line;
    const bool toolkit = msg.startsWith(QLatin1Char('Q'));
    switch (type) {
    case QtDebugMsg:
        return;
    case QtInfoMsg:
        line =
            msg.contains(QLatin1Char('|')) ? QStringLiteral("Info| ") + msg : QStringLiteral("Info|| ") + msg;
        break;
    case QtWarningMsg:
        line = QStringLiteral("Warning| ") + msg;
        level = toolkit ? 3 : 2;
        break;
    case QtCriticalMsg:
    case QtFatalMsg:
        line = QStringLiteral("%1| %2 (%3:%4, %5)")
                   .arg(type == QtFatalMsg ? QStringLiteral("Fatal") : QStringLiteral("Critical"), msg,
                        QString::fromUtf8(context.file ? context.file : ""))
                   .arg(context.line)
                   .arg(QString::fromUtf8(context.function ? context.function : ""));
        level = type == QtFatalMsg ? 1 : (toolkit ? 3 : 2);
        break;
    }
    line.prepend(stamp());
    jLog(level, line);
    if (type == QtCriticalMsg || type == QtFatalMsg)
        jSync();
    if (s_echo && (level <= TraceLevel || level <= 2)) {
        const QByteArray bytes = line.toLocal8Bit();
        fprintf(stderr, "%s\n", bytes.constData());
        fflush(stderr);
    }
}

void Logging::infoShowMessage(const QString &text)
{
    qInfo().noquote() << text;
}

void Logging::infoUpdate(int id, const QString &text)
{
    QString shown = text;
    shown.replace(QStringLiteral(":;"), QStringLiteral(" - "));
    const auto it = m_shown.constFind(uint(id));
    if (it != m_shown.constEnd() && *it == shown)
        return;
    qInfo().noquote() << id << "|" << shown;
    m_shown.insert(uint(id), shown);
}

void Logging::loggingOpenLoc()
{
    jSync();
    const QString folder =
        QFileInfo(currentFile().isEmpty() ? logFolder() + "/log.csv" : currentFile()).absolutePath();
    QDesktopServices::openUrl(QUrl(QStringLiteral("file:///%1").arg(folder)));
}
