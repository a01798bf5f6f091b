#pragma once

#include <QStringList>

// What one run does. The defaults are the full sweep; the CTest run and bench/soak override them
// from the command line (see sweepOptions_usage).
struct SweepOptions
{
    bool soak = false;             // no bad input: a steady site sampled every minute
    double seconds = 120;          // length of the bad-input phase, or of the soak
    int instances = 2;             // stand-ins
    double recordRate = 10;        // status records per second per stand-in
    int tcpConnections = 32;       // concurrent garbage connections to the Ember+ ports
    int tcpChunksPerSecond = 2000; // all garbage connections together
    int datagramsPerSecond = 4000; // per UDP port (SNMP, OSC)
    qint64 maxInputs = 5000000;    // per kind of input; the run also ends there
    int consumersPerInstance = 1;  // well-behaved Ember+ consumers
    int maxGapSeconds = 8;         // longest silence allowed on a well-behaved consumer
    int maxRssGrowthMb = 256;      // a runaway, not a target: the sweep fails past it
    int sampleSeconds = 60;        // soak: one line every this many seconds
    quint32 seed = 0;              // of the bad inputs; 0 = a new one each run (printed)
    bool keep = false;             // keep the work folder (logs) afterwards
    QStringList problems;
    bool help = false;
};

SweepOptions sweepOptions_parse(const QStringList &arguments); // without the program name
QString sweepOptions_usage();
