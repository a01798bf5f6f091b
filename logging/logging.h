#pragma once

#include <QElapsedTimer>
#include <QMap>
#include <QObject>
#include <QString>
#include <atomic>

class FileLogInThread;
class QTimer;

// The message handler and the rotating CSV log files. Every subsystem logs through qInfo,
// qWarning, qCritical and qFatal; the handler installed here turns each message into one
// "|"-separated line of the current log file. The file state is process-wide (static) because
// the handler is: any thread may log.
class Logging : public QObject
{
    Q_OBJECT
public:
    explicit Logging(QObject *parent = nullptr);
    ~Logging() override;

    static void jInit(int level, const QString &path);
    static void jLog(int level, const QString &text);
    static void jClear();
    static void jSync();
    static void myMessageOutput(QtMsgType type, const QMessageLogContext &context, const QString &msg);

    // The folder that receives the log files: documents folder/VexaStudio-Logs/application name.
    static QString logFolder();
    // The file that lines go to now; empty while logging is off.
    static QString currentFile();
    // Headless operation: every line that passes the level also goes to standard error, and the
    // handler stays installed even with file logging off so that an operator sees the service.
    static void setEchoToStderr(bool on);

    static int TraceLevel;

public slots:
    void SetLogging();
    void infoShowMessage(const QString &text);
    void infoUpdate(int id, const QString &text);
    void loggingOpenLoc();

private:
    static FileLogInThread *s_logger;
    static QElapsedTimer s_clock;
    static std::atomic<bool> va_recursv;
    static QTimer *nextAlarm;
    static bool s_echo;

    int m_flag = 0;
    QMap<uint, QString> m_shown;
};
