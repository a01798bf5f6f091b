#pragma once

#include <QString>

// The stand-in's setup file (*.vxup): a small INI file, group [Instance]. Every key is optional;
// a missing file gives the defaults, with the name taken from the file's base name.
//
//   [Instance]
//   Name=Studio One          Group=1              EmberPort=9000
//   Destination=sip:...      SipUri=sip:...       Station=Studio Two
//   InCodec=22  OutCodec=22  BitRate=128  SampleRate=48000  Stereo=true
//   StaticJitter=60          DynamicJitter=40
//   AudioInput=...  AudioOutput=...  AudioDriver=ALSA
//   Warning=...              PlayFile=jingle.wav  AutoConnect=false
struct StudioSetup
{
    bool found = false;
    QString name;
    int group = 1;
    int emberPort = 0;
    QString destination = QStringLiteral("sip:studio@192.0.2.10");
    QString sipUri = QStringLiteral("sip:vexa@192.0.2.1");
    QString station = QStringLiteral("Idle");
    int inCodec = 22; // "Opus Audio"
    int outCodec = 22;
    int bitRate = 128; // kbit/s
    int sampleRate = 48000;
    bool stereo = true;
    int staticJitter = 60;
    int dynamicJitter = 40;
    QString audioInput = QStringLiteral("Input 1/2");
    QString audioOutput = QStringLiteral("Output 1/2");
    QString audioDriver = QStringLiteral("ALSA");
    QString warning;
    QString playFile = QStringLiteral("jingle.wav");
    bool autoConnect = false;
};

StudioSetup studioSetup_read(const QString &path);
