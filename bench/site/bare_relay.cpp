// The limit of the site benchmark: the hub relay with nothing behind it. It takes the relay role on
// the manager's pipe name, as the manager does (cipher off, hub on a thread of its own), and its
// own client receives the records addressed to it and drops them.
#include "hub/multicastsocketserver.h"

#include <QCoreApplication>
#include <QLoggingCategory>
#include <csignal>
#include <unistd.h>

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    QLoggingCategory::setFilterRules(QStringLiteral("default.info=false"));
    std::signal(SIGTERM, [](int) { _exit(0); });
    auto *hub =
        new MultiCastSocketServer(&app, QStringLiteral("VXMANAGERQT"),
                                  MultiCastSocketServer::CipherOff | MultiCastSocketServer::OwnThread);
    QObject::connect(hub, &MultiCastSocketServer::dataFromServer, &app, [](const QByteArray &, quint16) {});
    return app.exec();
}
