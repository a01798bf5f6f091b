// Our side of the provider benchmark: one EmberServer with the instance tree on 127.0.0.1, driven
// from stdin. Values go to "WarningMessage" (0.2.9) as stamped texts (see benchutil.h).
//
//   stdout: "PORT <n>", "FLOODED <count>", "PACED <count>"
//   stdin:  "flood <ms>"              updates as fast as the provider takes them, for ms
//           "pace <count> <ms>"       count updates, one every ms
//           "quit"
//
// "As fast as the provider takes them": values are pushed in bursts; when any consumer has more
// than a quarter of a megabyte queued, the host lets the event loop drain the sockets first, so
// that a consumer is measured on what it can receive and is never closed for lagging.
#include "bench/provider/benchutil.h"
#include "ember/emberserver.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QLoggingCategory>
#include <QSocketNotifier>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTimer>

namespace {

constexpr int WarningMessageId = 0x020900;
constexpr qint64 QueueLimit = 256 * 1024;
constexpr int Burst = 32;

unsigned g_sequence = 0;

void say(const QByteArray &line)
{
    fprintf(stdout, "%s\n", line.constData());
    fflush(stdout);
}

void push(EmberServer &server)
{
    std::string text = bench::stampText(bench::nowNs(), ++g_sequence);
    server.emberSendTo(WarningMessageId, 0, &text[0]);
}

qint64 mostQueued(EmberServer &server)
{
    qint64 most = 0;
    for (QTcpSocket *socket : server.findChildren<QTcpSocket *>())
        most = qMax(most, socket->bytesToWrite());
    return most;
}

void flood(EmberServer &server, int ms)
{
    QElapsedTimer clock;
    clock.start();
    int count = 0;
    while (clock.elapsed() < ms) {
        if (mostQueued(server) > QueueLimit) {
            QCoreApplication::processEvents(QEventLoop::AllEvents, 1);
            continue;
        }
        for (int i = 0; i < Burst; ++i)
            push(server);
        count += Burst;
        QCoreApplication::processEvents();
    }
    // Let the sockets drain before reporting, so the driver counts everything that was taken.
    while (mostQueued(server) > 0 && clock.elapsed() < ms + 5000)
        QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
    say("FLOODED " + QByteArray::number(count));
}

void command(EmberServer &server, const QByteArray &line)
{
    const QList<QByteArray> words = line.trimmed().split(' ');
    const QByteArray verb = words.value(0);
    if (verb == "flood") {
        flood(server, words.value(1).toInt());
    } else if (verb == "pace") {
        const int count = words.value(1).toInt();
        auto *timer = new QTimer;
        timer->setTimerType(Qt::PreciseTimer);
        timer->setInterval(words.value(2).toInt());
        auto *left = new int(count);
        QObject::connect(timer, &QTimer::timeout, [&server, timer, left, count] {
            push(server);
            if (--*left <= 0) {
                timer->stop();
                timer->deleteLater();
                delete left;
                say("PACED " + QByteArray::number(count));
            }
        });
        timer->start();
    } else if (verb == "quit") {
        QCoreApplication::quit();
    }
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    // Connection log lines would only cost time here.
    QLoggingCategory::setFilterRules(QStringLiteral("default.info=false"));
    EmberServer::setNICaddress(QHostAddress(QHostAddress::LocalHost));
    EmberServer server;
    server.setInstance(1);
    for (int attempt = 0; attempt < 5 && !server.isListening(); attempt++) {
        QTcpServer probe;
        probe.listen(QHostAddress::LocalHost, 0);
        const quint16 port = probe.serverPort();
        probe.close();
        server.emberSocketInit(port);
    }
    if (!server.isListening())
        return 2;
    say("PORT " + QByteArray::number(server.serverPort()));

    QByteArray pending;
    QSocketNotifier input(STDIN_FILENO, QSocketNotifier::Read);
    QObject::connect(&input, &QSocketNotifier::activated, [&] {
        char chunk[1024];
        const ssize_t n = read(STDIN_FILENO, chunk, sizeof(chunk));
        if (n <= 0) {
            QCoreApplication::quit();
            return;
        }
        pending.append(chunk, int(n));
        int end;
        while ((end = pending.indexOf('\n')) >= 0) {
            const QByteArray line = pending.left(end);
            pending.remove(0, end + 1);
            command(server, line);
        }
    });
    return app.exec();
}
