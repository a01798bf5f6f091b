#pragma once

#include <QString>

// Texts that travel through the local message hub. The first group belongs to the hub itself;
// a payload that starts with "_" is a hub control message, anything else is content.
inline const QString PASSID = QStringLiteral("_passid");        // relay -> new client: "_passid=<id>"
inline const QString NEWCLIENT = QStringLiteral("pingrequest"); // broadcast once a client has its id
inline const QString NEWNAME = QStringLiteral("newname");       // sent before moving to another name
inline const QString SYNCSET = QStringLiteral("syncset");       // instance -> manager: "syncset<setup path>"
inline const QString SERVERLOST = QStringLiteral("serverlost"); // delivered locally when the relay goes

// Content keywords between the manager and its studio instances.
inline const QString VXMANAGER = QStringLiteral("VXMANAGER");     // manager's greeting to an instance
inline const QString VXPATH = QStringLiteral("VXPATH");           // instance -> manager: "VXPATH<exe path>"
inline const QString VXTERMINATE = QStringLiteral("VXTERMINATE"); // manager -> instance: end yourself
