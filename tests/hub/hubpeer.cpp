// A hub participant driven over stdin/stdout, for the multi-process hub tests.
//
//   hubpeer [--name NAME] [--flags N]
//
// Commands (one per line): "bcast TEXT", "send ID TEXT", "fill ID N" (N bytes of 'x' to ID; ID 0 =
// everybody), "quit". Reports (one per line): "id N", "connected", "lost", "server 0|1",
// "recv SOURCE LENGTH HEX".
#include "hub/multicastsocketserver.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QSocketNotifier>
#include <QTimer>
#include <cstdio>
#include <unistd.h>

static void report(const QByteArray &line)
{
    std::fwrite(line.constData(), 1, size_t(line.size()), stdout);
    std::fputc('\n', stdout);
    std::fflush(stdout);
}

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    QCommandLineParser parser;
    parser.addOption({"name", "hub name", "name", "TESTHUB"});
    parser.addOption({"flags", "hub flags", "flags", "2"});
    parser.process(app);

    auto *hub = new MultiCastSocketServer(&app, parser.value("name"), parser.value("flags").toInt());
    QObject::connect(hub, &MultiCastSocketServer::idAssigned, &app,
                     [](quint16 id) { report("id " + QByteArray::number(id)); });
    QObject::connect(hub, &MultiCastSocketServer::connectedToServer, &app, []() { report("connected"); });
    QObject::connect(hub, &MultiCastSocketServer::dataFromServer, &app, [](QByteArray data, quint16 source) {
        if (data == SERVERLOST.toLatin1() && source == 1)
            report("lost");
        report("recv " + QByteArray::number(source) + ' ' + QByteArray::number(data.size()) + ' ' +
               data.toHex());
    });

    // The relay role is reported as soon as it changes.
    bool wasServer = false;
    QTimer roleWatch;
    QObject::connect(&roleWatch, &QTimer::timeout, &app, [&]() {
        if (hub->isServer() != wasServer) {
            wasServer = hub->isServer();
            report(wasServer ? "server 1" : "server 0");
        }
    });
    roleWatch.start(10);

    QByteArray pending;
    QSocketNotifier input(STDIN_FILENO, QSocketNotifier::Read);
    QObject::connect(&input, &QSocketNotifier::activated, &app, [&]() {
        char chunk[4096];
        const ssize_t n = ::read(STDIN_FILENO, chunk, sizeof chunk);
        if (n <= 0) {
            app.quit();
            return;
        }
        pending.append(chunk, int(n));
        int end;
        while ((end = pending.indexOf('\n')) >= 0) {
            const QByteArray line = pending.left(end);
            pending.remove(0, end + 1);
            const QList<QByteArray> words = line.split(' ');
            const QByteArray command = words.value(0);
            if (command == "bcast") {
                hub->broadcastData(line.mid(6));
            } else if (command == "send" && words.size() >= 3) {
                hub->sendDataTo(quint16(words[1].toUInt()), line.mid(6 + words[1].size()));
            } else if (command == "fill" && words.size() == 3) {
                hub->sendDataTo(quint16(words[1].toUInt()), QByteArray(words[2].toInt(), 'x'));
            } else if (command == "quit") {
                app.quit();
            }
        }
    });
    const int rc = app.exec();
    // The hub lives on its own thread with flag 4 and then has no parent.
    if (hub->parent() != &app)
        delete hub;
    return rc;
}
