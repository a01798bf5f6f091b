// The manager's side of the OSC gateway: created on demand, its address space copied from an
// instance's Ember+ tree, received values carried to the instances.
#include "app/manager.h"

#include "ember/emberserver.h"
#include "osc/osc.h"

#include <QDebug>

void Manager::oscCreate()
{
    if (osc)
        return;
    osc = new OSC(this);
    connect(osc, &OSC::oscSendToInstance, this, &Manager::oscInstanceDataSend);
    if (!instances.isEmpty())
        oscCopyInstanceTree(instances.firstKey());
}

void Manager::oscSetInPort(unsigned port)
{
    oscCreate();
    osc->inPortSet(port);
    windowUpdate();
}

void Manager::oscSetHost(int index, QString &text, unsigned port)
{
    oscCreate();
    osc->hostSet(index, text, port);
    windowUpdate();
}

void Manager::oscRemoveHost(int index)
{
    if (!osc)
        return;
    osc->hostRemove(index);
    if (osc->targets().isEmpty()) {
        // Receiving ends with the last target too.
        osc->deleteLater();
        osc = nullptr;
    }
    windowUpdate();
}

void Manager::oscCopyInstanceTree(uint id)
{
    auto it = instances.constFind(id);
    if (osc && it != instances.constEnd() && it->ember)
        oscCopyTree(it->ember->rootNode(), QString());
}

void Manager::oscCopyTree(EmberServer::__SampleNode *node, QString path)
{
    if (!osc || !node)
        return;
    // The address space is copied once, from the first instance that has a tree.
    if (path.isEmpty() && !osc->names().isEmpty())
        return;
    oscCopyTree(osc, node, path);
}

void Manager::oscCopyTree(OSC *gateway, const EmberServer::__SampleNode *node, const QString &path)
{
    for (int i = 0; i < node->childCount; ++i) {
        const EmberServer::__SampleNode *child = node->children[i];
        if (!child)
            continue;
        const QString name = path + QLatin1Char('/') + QString::fromUtf8(child->element.node.pIdentifier);
        OSC::__PARAM param;
        param.id = quint32(child->id);
        param.name = name;
        if (child->type == 1) {
            param.kind = 'P';
            param.tag = OSC::tagFromEmberType(child->element.parameter.value.type);
            param.writable = child->element.parameter.access > 1 ? 1 : 0;
            gateway->parameterAdd(param);
        } else if (child->type == 3) {
            const SGlowFunction &function = child->element.function;
            param.kind = 'C';
            param.tag =
                function.argumentsLength > 0 ? OSC::tagFromEmberType(function.pArguments[0].type) : 'N';
            param.writable = 1;
            gateway->parameterAdd(param);
        } else {
            oscCopyTree(gateway, child, name);
        }
    }
}
