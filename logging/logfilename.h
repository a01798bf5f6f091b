#pragma once

#include <QDate>
#include <QString>

// Which log file a day writes to, for each value of "LoggingDays". Pure, so that the cycle can be
// checked for any date.
struct LogFileChoice
{
    QString path;
    bool clearAtOnce = false;  // "LoggingDays" 0: the file holds only the current run
    bool neverCleared = false; // "LoggingDays" 6: one file per day of every year
    bool midnightTimer = true; // re-target one second after the next midnight
};

LogFileChoice logFileFor(int days, const QDate &date, const QString &folder);
