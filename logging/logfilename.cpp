#include "logging/logfilename.h"

LogFileChoice logFileFor(int days, const QDate &date, const QString &folder)
{
    LogFileChoice choice;
    const QString numbered = QStringLiteral("%1/log.%2.csv");
    switch (days) {
    case 0:
        choice.path = QStringLiteral("%1/log.csv").arg(folder);
        choice.clearAtOnce = true;
        choice.midnightTimer = false;
        break;
    case 1:
        choice.path = QStringLiteral("%1/log.csv").arg(folder);
        break;
    case 3:
        choice.path = numbered.arg(folder).arg(date.dayOfWeek());
        break;
    case 4:
        choice.path = numbered.arg(folder).arg(date.day(), 2, 10, QLatin1Char('0'));
        break;
    case 5:
        choice.path = numbered.arg(folder).arg(date.dayOfYear(), 3, 10, QLatin1Char('0'));
        break;
    case 6:
        choice.path = QStringLiteral("%1/log.%2.%3.csv")
                          .arg(folder)
                          .arg(date.year())
                          .arg(date.dayOfYear(), 3, 10, QLatin1Char('0'));
        choice.neverCleared = true;
        break;
    default:
        // 2 and 7 or more cycle through `days` files; a negative setting is read as one file a day.
        if (days >= 2)
            choice.path = numbered.arg(folder).arg(date.dayOfYear() % days);
        else
            choice.path = QStringLiteral("%1/log.csv").arg(folder);
        break;
    }
    return choice;
}
