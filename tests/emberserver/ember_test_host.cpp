// A small provider host for the consumer tests: one EmberServer on 127.0.0.1, fed from stdin, with
// everything it emits printed on stdout, one line each.
//
//   stdout: "PORT <n>", "SEND <id hex> <value> <text hex>", "ADDED <text>", "REMOVED <text>"
//   stdin:  "value <id hex> <number> [text]"   a number or a text reported by the instance
//           "octets <id hex> <bytes hex>"      an octets value
//           "flood <id hex> <count> <text>"    count reports of a text, as fast as possible
//           "clients"                          prints "CLIENTS <n>"
//           "quit"
#include "ember/emberserver.h"

#include <QCoreApplication>
#include <QSocketNotifier>
#include <QTcpServer>
#include <QTextStream>

#include <cstdio>
#include <unistd.h>

static void say(const QString &line)
{
    fprintf(stdout, "%s\n", line.toUtf8().constData());
    fflush(stdout);
}

static quint16 freePort()
{
    QTcpServer probe;
    probe.listen(QHostAddress::LocalHost, 0);
    return probe.serverPort();
}

static void command(EmberServer &server, const QByteArray &line)
{
    const QList<QByteArray> words = line.trimmed().split(' ');
    const QByteArray verb = words.value(0);
    const int id = words.value(1).toInt(nullptr, 16);
    if (verb == "value") {
        const int number = words.value(2).toInt();
        // The rest of the line, blanks included, is the text.
        const int at = line.indexOf(' ', line.indexOf(' ', line.indexOf(' ') + 1) + 1);
        QByteArray text = at > 0 ? line.mid(at + 1).trimmed() : QByteArray();
        server.emberSendTo(id, number, at > 0 ? text.data() : nullptr);
    } else if (verb == "octets") {
        QByteArray bytes = QByteArray::fromHex(words.value(2));
        server.emberSendTo(id, bytes.size(), bytes.data());
    } else if (verb == "flood") {
        const int count = words.value(2).toInt();
        QByteArray text = words.value(3);
        for (int i = 0; i < count; i++) {
            server.emberSendTo(id, 0, text.data());
            if (i % 64 == 0)
                QCoreApplication::processEvents();
        }
        say(QStringLiteral("FLOODED %1").arg(count));
    } else if (verb == "clients") {
        say(QStringLiteral("CLIENTS %1").arg(server.clientCount()));
    } else if (verb == "quit") {
        QCoreApplication::quit();
    }
}

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    EmberServer::setNICaddress(QHostAddress(QHostAddress::LocalHost));
    auto *owned = new EmberServer;
    EmberServer &server = *owned;
    server.setInstance(7);
    QObject::connect(&server, &EmberServer::emberSendToInstance,
                     [](uint, int id, int value, const QByteArray &text) {
                         say(QStringLiteral("SEND %1 %2 %3")
                                 .arg(id, 6, 16, QLatin1Char('0'))
                                 .arg(value)
                                 .arg(QString::fromLatin1(text.toHex())));
                     });
    QObject::connect(&server, &EmberServer::emberClientAdded,
                     [](uint, const QString &text) { say(QStringLiteral("ADDED ") + text); });
    QObject::connect(&server, &EmberServer::emberClientRemoved,
                     [](uint, const QString &text) { say(QStringLiteral("REMOVED ") + text); });

    int port = argc > 1 ? QByteArray(argv[1]).toInt() : 0;
    for (int attempt = 0; attempt < 5 && !server.isListening(); attempt++)
        server.emberSocketInit(port > 0 ? port : freePort());
    if (!server.isListening())
        return 2;
    say(QStringLiteral("PORT %1").arg(server.serverPort()));

    QByteArray pending;
    QSocketNotifier input(STDIN_FILENO, QSocketNotifier::Read);
    QObject::connect(&input, &QSocketNotifier::activated, [&] {
        char chunk[4096];
        const ssize_t n = read(STDIN_FILENO, chunk, sizeof(chunk));
        if (n <= 0) {
            QCoreApplication::quit();
            return;
        }
        pending.append(chunk, static_cast<int>(n));
        int end;
        while ((end = pending.indexOf('\n')) >= 0) {
            const QByteArray line = pending.left(end);
            pending.remove(0, end + 1);
            command(server, line);
        }
    });
    const int rc = app.exec();
    delete owned; // what the Ember+ layers still hold after this is a leak
    say(QStringLiteral("BLOCKS %1").arg(EmberServer::allocatedBlocks()));
    return rc;
}
