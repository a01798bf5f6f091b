// Fuzz target for what an instance sends to the manager: Manager::instanceDataReceive with status
// records of any length and content.
//
// One Manager for the whole run, with one instance registered (not started) and the OSC and SNMP
// sides on, so that every changed value goes through the Ember+ provider, the OSC packet builder
// and the SNMP trap builder. The OSC target and the trap receiver are on 127.0.0.1 (fuzz/run runs
// the targets in a network namespace of their own where it can). The record is a heap copy of
// exactly the input's size, so that ASan guards its end; the cached copy is reset before each
// input so that an input's outcome depends little on the ones before it.

#include "app/manager.h"
#include "fuzz/fuzzqt.h"

#include <QDir>
#include <QFile>

#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace {

constexpr uint kInstance = 0x5EED;

Manager *manager()
{
    static Manager *s_manager = nullptr;
    if (s_manager)
        return s_manager;
    s_manager = fuzzqt::managerWithInstance(QStringLiteral("fuzz-instance-data"), kInstance);
    QString loopback = QStringLiteral("127.0.0.1");
    s_manager->oscSetHost(-1, loopback, 39999);
    s_manager->snmpSetTrapPort(39998);
    s_manager->snmpSetHost(-1, loopback);
    fuzzqt::quiet();
    return s_manager;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    Manager *m = manager();
    m->clientsForceUpdate(kInstance);
    // quint32 alignment for the words, and exactly `size` bytes.
    quint32 *words = static_cast<quint32 *>(malloc(size ? size : 1));
    memcpy(words, data, size);
    m->instanceDataReceive(kInstance, words, int(size));
    free(words);
    fuzzqt::deletePending();
    return 0;
}
