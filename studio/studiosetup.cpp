#include "studio/studiosetup.h"

#include <QFileInfo>
#include <QSettings>

StudioSetup studioSetup_read(const QString &path)
{
    StudioSetup setup;
    const QFileInfo info(path);
    setup.name = info.completeBaseName().isEmpty() ? QStringLiteral("Vexa Studio") : info.completeBaseName();
    if (!info.isFile())
        return setup;
    setup.found = true;

    QSettings ini(path, QSettings::IniFormat);
    ini.beginGroup(QStringLiteral("Instance"));
    auto text = [&](const char *key, QString *value) {
        *value = ini.value(QLatin1String(key), *value).toString();
    };
    auto number = [&](const char *key, int *value) {
        bool ok = false;
        const int read = ini.value(QLatin1String(key), *value).toInt(&ok);
        if (ok)
            *value = read;
    };
    text("Name", &setup.name);
    number("Group", &setup.group);
    number("EmberPort", &setup.emberPort);
    text("Destination", &setup.destination);
    text("SipUri", &setup.sipUri);
    text("Station", &setup.station);
    number("InCodec", &setup.inCodec);
    number("OutCodec", &setup.outCodec);
    number("BitRate", &setup.bitRate);
    number("SampleRate", &setup.sampleRate);
    setup.stereo = ini.value(QStringLiteral("Stereo"), setup.stereo).toBool();
    number("StaticJitter", &setup.staticJitter);
    number("DynamicJitter", &setup.dynamicJitter);
    text("AudioInput", &setup.audioInput);
    text("AudioOutput", &setup.audioOutput);
    text("AudioDriver", &setup.audioDriver);
    text("Warning", &setup.warning);
    text("PlayFile", &setup.playFile);
    setup.autoConnect = ini.value(QStringLiteral("AutoConnect"), setup.autoConnect).toBool();
    // The codec table has 35 rows; anything else would name no codec.
    if (setup.inCodec < 0 || setup.inCodec > 34)
        setup.inCodec = 22;
    if (setup.outCodec < 0 || setup.outCodec > 34)
        setup.outCodec = 22;
    return setup;
}
