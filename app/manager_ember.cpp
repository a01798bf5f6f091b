// The manager's side of the Ember+ providers: one per instance, listening on the instance's port.
#include "app/manager.h"

#include "ember/emberserver.h"

#include <QDebug>

void Manager::emberCreate(uint id)
{
    auto it = instances.find(id);
    if (it == instances.end())
        return;
    auto *server = new EmberServer(this);
    connect(server, &EmberServer::emberSendToInstance, this, &Manager::instanceDataSend);
    connect(server, &EmberServer::emberClientAdded, this, &Manager::clientAdded);
    connect(server, &EmberServer::emberClientRemoved, this, &Manager::clientRemoved);
    connect(server, &EmberServer::emberInfo, this, &Manager::StatusMessage);
    server->setInstance(id);
    it->ember = server;
    if (it->emberPort != 0)
        server->emberSocketInit(it->emberPort);
}

void Manager::emberSocketInit(uint id)
{
    auto it = instances.find(id);
    if (it != instances.end() && it->ember)
        it->ember->emberSocketInit(it->emberPort);
}

void Manager::clientAdded(uint id, QString text)
{
    emit StatusMessage(text);
    windowUpdate(id);
}

void Manager::clientRemoved(uint id, QString text)
{
    emit StatusMessage(text);
    // The provider forgets the consumer right after telling us: count it once that is done.
    QMetaObject::invokeMethod(
        this, [this, id] { windowUpdate(id); }, Qt::QueuedConnection);
}
