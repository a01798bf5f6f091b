#pragma once

#include <QString>

class QCoreApplication;

// What the benchmark hosts share with the manager's start-up: the application identity and the
// manager's logging (level and files from the application settings, as the manager reads them),
// and an event loop that ends on SIGTERM or SIGINT.
void benchHostInit(const QString &applicationName);
int benchHostRun(QCoreApplication &app);
