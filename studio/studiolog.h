#pragma once

#include <QString>

// The stand-in never writes to stdout or stderr: its parent does not read them, and a full pipe
// would block it. Every Qt message (info and above) becomes one line of this file, written at
// once, so that a test can read it while the process runs.
void studioLog_open(const QString &path);
void studioLog_close();
