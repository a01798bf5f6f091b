#pragma once

#include <QObject>

class QSocketNotifier;

// Turns SIGINT and SIGTERM into a Qt signal. The POSIX handler only writes one byte to a socket
// pair; the notifier reads it on the event loop, where it is safe to act.
class UnixSignals : public QObject
{
    Q_OBJECT
public:
    explicit UnixSignals(QObject *parent = nullptr);
    ~UnixSignals() override;

signals:
    void terminationRequested(int signalNumber);

private:
    void readSignal();
    static void handler(int signalNumber);
    static int s_fds[2];
    QSocketNotifier *m_notifier = nullptr;
};
