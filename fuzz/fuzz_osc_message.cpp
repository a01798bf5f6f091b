// Fuzz target for what an OSC sender sends to the gateway: the packet scanner and
// oscRecieveMessage (OSC::packetParse), and the handling of what they deliver.
//
// One Manager for the whole run, with one instance registered (not started) and its OSC gateway
// made: the address space is the one copied from the instance's Ember+ tree, and every message for
// a writable name goes on to the manager as a command for the instance (Manager::
// oscInstanceDataSend), down to the hub message. The datagram is a heap copy of exactly the
// input's size, so that ASan guards its end.

#include "app/manager.h"
#include "fuzz/fuzzqt.h"
#include "osc/osc.h"

#include <QByteArray>
#include <QDir>
#include <QFile>

#include <cstdint>
#include <cstdlib>

namespace {

constexpr uint kInstance = 0x05C;

Manager *manager()
{
    static Manager *s_manager = nullptr;
    if (s_manager)
        return s_manager;
    s_manager = fuzzqt::managerWithInstance(QStringLiteral("fuzz-osc"), kInstance);
    s_manager->oscCreate();
    fuzzqt::quiet();
    return s_manager;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    Manager *m = manager();
    OSC *osc = m->oscGateway();
    if (!osc || osc->names().isEmpty())
        abort(); // the address space must have been copied from the instance's tree
    const QByteArray datagram(reinterpret_cast<const char *>(data), int(size));
    osc->packetParse(datagram);
    fuzzqt::deletePending();
    return 0;
}
