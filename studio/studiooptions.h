#pragma once

#include <QString>
#include <QStringList>

// The stand-in's command line: what the manager gives an instance ("-emberport=N", then the
// percent-encoded setup path) and a few options of its own for tests and demonstrations.
struct StudioOptions
{
    QString setupPath;       // decoded
    int emberPort = -1;      // -1 = not given (the setup file may name one)
    double recordRate = 2.0; // status records per second
    double silentAfter = -1; // seconds; stop sending but stay connected
    double crashAfter = -1;  // seconds; abort()
    double exitAfter = -1;   // seconds; end normally
    QString logPath;         // empty = "<setup path without extension>.log"
    QStringList problems;    // unknown or malformed arguments, for the log
    bool help = false;
};

StudioOptions studioOptions_parse(const QStringList &arguments); // arguments without the program
QString studioOptions_usage();
// The log file for these options.
QString studioOptions_logPath(const StudioOptions &options);
