#pragma once

// What every fuzz target that needs Qt shares: one QCoreApplication for the whole run, made on the
// first input, and a message handler that drops every log line (a line per bad input would cost
// more than the input itself). FUZZ_VERBOSE=1 in the environment keeps the lines, on stderr.

#include "app/manager.h"

#include <QCoreApplication>
#include <QDir>
#include <QEvent>
#include <QFile>
#include <QSettings>

#include <cstdlib>

namespace fuzzqt {

inline void dropMessage(QtMsgType, const QMessageLogContext &, const QString &) {}

// Installs the dropping handler again (a Manager's logging installs its own).
inline void quiet()
{
    const char *verbose = std::getenv("FUZZ_VERBOSE");
    if (!verbose || verbose[0] != '1')
        qInstallMessageHandler(dropMessage);
}

inline QCoreApplication *application()
{
    static int s_argc = 1;
    static char s_name[] = "vexa-fuzz";
    static char *s_argv[] = {s_name, nullptr};
    static QCoreApplication *s_app = nullptr;
    if (!s_app) {
        QCoreApplication::setOrganizationName(QStringLiteral("VexaFuzz"));
        QCoreApplication::setApplicationName(QStringLiteral("VEXA Studio Manager"));
        QSettings::setDefaultFormat(QSettings::IniFormat);
        s_app = new QCoreApplication(s_argc, s_argv);
        quiet();
    }
    return s_app;
}

// A Manager for the whole run, in a folder of its own below the temporary folder, with one
// instance (`id`) registered from a small setup file. It starts no process.
inline Manager *managerWithInstance(const QString &folder, uint id)
{
    application();
    const QString dir = QDir::tempPath() + QLatin1Char('/') + folder;
    QDir().mkpath(dir);
    const QString setup = dir + QStringLiteral("/Studio 1.vxup");
    QFile file(setup);
    if (file.open(QIODevice::WriteOnly))
        file.write("[Instance]\nName=Studio 1\n");
    file.close();
    auto *manager = new Manager(nullptr, dir);
    manager->instanceCreate(id, QStringLiteral("/bin/true"), setup, 0, 0, 0);
    return manager;
}

// Objects given to deleteLater() are deleted here: the fuzz loop runs no event loop, and nothing
// else (no timer, no socket) is dispatched.
inline void deletePending()
{
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
}

} // namespace fuzzqt
