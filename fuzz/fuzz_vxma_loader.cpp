// Fuzz target for the manager settings file: the input is written to a ".vxma" file that a Manager
// loads with path_to_vxma (which reads it with settingsReadVXMA): instances, SNMP and OSC options
// and the network interface, all of it as the file says.
//
// One Manager for the whole run. Between inputs the registry is emptied and the SNMP agent and the
// OSC gateway are removed, so that each input starts from a manager without instances. Each input
// gets a file of its own name (the settings layer caches files by name and time stamp), and the
// file of the input before is removed. No event loop runs, so no instance is ever started; objects
// given to deleteLater() are deleted after each input. Ports and trap receivers come from the
// input: fuzz/run runs the targets in a network namespace of their own where it can.

#include "app/manager.h"
#include "fuzz/fuzzqt.h"
#include "osc/osc.h"
#include "snmp/snmp.h"

#include <QDir>
#include <QFile>

#include <cstdint>
#include <cstdlib>

namespace {

QString s_dir;

Manager *manager()
{
    static Manager *s_manager = nullptr;
    if (s_manager)
        return s_manager;
    fuzzqt::application();
    s_dir = QDir::tempPath() + QStringLiteral("/fuzz-vxma");
    QDir(s_dir).removeRecursively();
    QDir().mkpath(s_dir);
    s_manager = new Manager(nullptr, s_dir + QStringLiteral("/start.vxma"));
    fuzzqt::quiet();
    return s_manager;
}

void clean(Manager *m)
{
    const QList<uint> ids = m->instanceMap().keys();
    for (uint id : ids)
        m->instanceDelete(id);
    m->snmpSetListenPort(0);
    for (int n = 0; m->snmpAgent() && n < 1000; ++n)
        m->snmpRemoveHost(0);
    m->oscSetInPort(0);
    for (int n = 0; m->oscGateway() && n < 1000; ++n)
        m->oscRemoveHost(0);
    m->setNetWorkNIC(-1);
    fuzzqt::deletePending();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static unsigned s_count = 0;
    Manager *m = manager();
    const QString path = s_dir + QStringLiteral("/in-%1.vxma").arg(++s_count);
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly))
        abort();
    file.write(reinterpret_cast<const char *>(data), qint64(size));
    file.close();

    m->path_to_vxma(path);
    clean(m);

    // The file before this one is no longer the manager's: remove it (its settings object was
    // deleted, and may have written it back, when this one was loaded).
    if (s_count > 1)
        QFile::remove(s_dir + QStringLiteral("/in-%1.vxma").arg(s_count - 1));
    return 0;
}
