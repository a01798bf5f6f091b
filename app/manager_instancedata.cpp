// Status records from the instances and value commands to them. A record is compared with the
// manager's cached copy; every value that changed is passed on to the Ember+, OSC and SNMP sides.
#include "app/manager.h"

#include "ember/emberserver.h"
#include "osc/osc.h"

#include <QDataStream>
#include <QDebug>
#include <QFileInfo>

using namespace StatusRecord;

namespace {

// Codec names by index, as the instances number them ("NI": no codec at that index).
const char *const EncCapsVX5[35] = {"MP2",
                                    "NI",
                                    "NI",
                                    "AAC-HE",
                                    "AAC-HEv2",
                                    "NI",
                                    "NI",
                                    "G711-A",
                                    "G711-u",
                                    "G722",
                                    "Linear 16 bit",
                                    "Linear 16 bit Surround",
                                    "ULCC",
                                    "ULCC-24",
                                    "ULCC-24 Surround",
                                    "NI",
                                    "NI",
                                    "NI",
                                    "ULCC Voice",
                                    "NI",
                                    "Opus Low delay",
                                    "Opus Voice",
                                    "Opus Audio",
                                    "Linear 24 bit",
                                    "Linear 24 bit Surround",
                                    "AAC-LC",
                                    "AAC-LD",
                                    "AAC-LD Surround",
                                    "AAC-ELD",
                                    "AAC-ELD Surround",
                                    "AAC-ELDV2",
                                    "MP2 Dual Mono",
                                    "Follow caller",
                                    "No encoding",
                                    "Keep Alive"};

QByteArray formatText(const char *codec, int sampleRate, int bitRate, const char *mode, bool withCounter,
                      int counter)
{
    const QString text =
        withCounter ? QString::asprintf("\"A\":\"%s\",\"S\":\"%d\",\"B\":\"%d\",\"M\":\"%s\",\"SC\":\"%d\"",
                                        codec, sampleRate, bitRate, mode, counter)
                    : QString::asprintf("\"A\":\"%s\",\"S\":\"%d\",\"B\":\"%d\",\"M\":\"%s\"", codec,
                                        sampleRate, bitRate, mode);
    return text.toLatin1().left(127);
}

} // namespace

QByteArray Manager::codecName(int index)
{
    if (index < 0 || index >= 35)
        return QByteArray("Not framed");
    return QByteArray(EncCapsVX5[index]);
}

bool Manager::instanceDataReceive(uint id, const quint32 *words, int bytes)
{
    const int count = bytes / 4;
    if (count < MinimumWords)
        return false;
    auto it = instances.find(id);
    if (it == instances.end() || !words)
        return false;

    // The record as it came, zero-filled to the full layout so that every offset can be read.
    QByteArray in(reinterpret_cast<const char *>(words), count * 4);
    if (in.size() < FullBytes)
        in.append(QByteArray(FullBytes - in.size(), '\0'));
    if (qint8(in.at(Version)) <= 6)
        return false;

    const qint32 runState = word(in, RunState);

    // A freshly started instance reports the Ember+ port it was given: open the provider on it.
    const qint32 port = word(in, EmberPort);
    if (runState == -100) {
        const bool changed = port != it->emberPort;
        const bool closed = port > 0 && it->ember && !it->ember->isListening();
        if (changed || closed) {
            it->emberPort = port;
            emberSocketInit(id);
            clientsForceUpdate(id);
            it = instances.find(id);
            if (it == instances.end())
                return false;
        }
    }
    QByteArray &cache = it->state.record;

    auto number = [&](int offset, int parameter) {
        const qint32 value = word(in, offset);
        if (value == word(cache, offset))
            return;
        setWord(cache, offset, value);
        clientsUpdate(id, parameter, value, nullptr);
    };
    auto textField = [&](int offset, int width, int parameter, bool fullWidth = false) {
        const QByteArray value = text(in, offset, width);
        const bool same = fullWidth ? in.mid(offset, width) == cache.mid(offset, width)
                                    : value == text(cache, offset, width);
        if (same)
            return;
        cache.replace(offset, width, in.mid(offset, width));
        clientsUpdate(id, parameter, 0, value.constData());
    };
    auto bytesField = [&](int offset, int width, int parameter) {
        const QByteArray value = in.mid(offset, width);
        if (value == cache.mid(offset, width))
            return;
        cache.replace(offset, width, value);
        clientsUpdate(id, parameter, width, value.constData());
    };

    // Incoming format text, with the counter in the longest records.
    const int inCodec = word(in, InCodec);
    const bool withCounter = count >= FullWords;
    const QByteArray inFormat =
        // kbit/s to bit/s wraps around in 32 bits for a value no instance sends (defined, never UB).
        formatText(codecName(inCodec).constData(), word(in, InSampleRate),
                   int(quint32(word(in, InBitRate)) * 1000u), word(in, InChannelMode) == 2 ? "S" : "M",
                   withCounter, word(in, InCounter));
    if (inFormat != it->state.inFormat) {
        it->state.inFormat = inFormat;
        clientsUpdate(id, 0x20200, 0, inFormat.constData());
    }
    setWord(cache, InCodec, inCodec);

    textField(Name, NameWidth, 0x500);

    // Outgoing format text; its codec index is taken as it comes (an unknown one reads "NI").
    const int outCodec = word(in, OutCodec);
    const bool outKnown = outCodec >= 0 && outCodec <= 32;
    const QByteArray outFormat = formatText(
        outCodec >= 0 && outCodec < 35 ? EncCapsVX5[outCodec] : "NI", outKnown ? word(in, OutSampleRate) : 0,
        outKnown ? word(in, OutBitRate) : 0, word(in, OutChannelMode) == 2 ? "S" : "M", false, 0);
    if (outFormat != it->state.outFormat) {
        it->state.outFormat = outFormat;
        clientsUpdate(id, 0x20300, 0, outFormat.constData());
    }

    textField(AudioInput, AudioNameWidth, 0x40000);
    textField(AudioOutput, AudioNameWidth, 0x40100);
    textField(Station, StationWidth, 0x20400);
    textField(SipUri, SipUriWidth, 0x30100);
    textField(Destination, DestinationWidth, 0x20100);
    number(SipStatus, 0x30000);

    if (in.mid(VersionMajor, 12) != cache.mid(VersionMajor, 12)) {
        cache.replace(VersionMajor, 12, in.mid(VersionMajor, 12));
        const QByteArray version = QString::asprintf("%d.%d.%d", word(in, VersionMajor),
                                                     word(in, VersionMinor), word(in, VersionPatch))
                                       .toLatin1();
        clientsUpdate(id, 0x300, 0, version.constData());
    }

    const qint32 jitter = word(in, JitterBuffers);
    if (jitter != word(cache, JitterBuffers)) {
        setWord(cache, JitterBuffers, jitter);
        clientsUpdate(id, 0x20500, int(quint16(quint32(jitter) & 0xFFFF)), nullptr);
        clientsUpdate(id, 0x20600, int(qint16(quint32(jitter) >> 16)), nullptr);
    }
    setWord(cache, SnmpWord, word(in, SnmpWord));
    textField(AudioDriver, AudioDriverWidth, 0x40200);
    setWord(cache, EmberPort, port);
    number(LiveJitter, 0x20700);
    bytesField(LiveVu, LiveVuWidth, 0x20800);
    textField(WarningMessage, WarningWidth, 0x20900);
    number(GroupTag, 0x600);
    number(RecordState, 0x50000);
    textField(RecordFile, RecordFileWidth, 0x50100, true);
    textField(RecordTime, RecordTimeWidth, 0x50200, true);
    textField(ConnectionTime, ConnectionTimeWidth, 0x20A00);
    number(DroppedPackets, 0x20B00);
    number(SequenceErrors, 0x20C00);
    number(BufferUnderrun, 0x20D00);
    number(BufferStatus, 0x20E00);
    number(PeakJitterIn, 0x20F00);
    number(PeakJitterOut, 0x21000);
    bytesField(MicVu, VuWidth, 0x21100);
    bytesField(NetVu, VuWidth, 0x21200);
    if (count > 316)
        number(RoutingState, 0x70000);
    if (count > 317) {
        number(PlayState, 0x60000);
        textField(PlayFile, PlayFileWidth, 0x60100, true);
        textField(PlayTime, PlayTimeWidth, 0x60200, true);
    }
    if (count > 338) {
        const QByteArray raw = in.mid(StationId, 4);
        if (raw != cache.mid(StationId, 4)) {
            cache.replace(StationId, 4, raw);
            const QByteArray station = raw + QByteArray(1, '\0');
            clientsUpdate(id, 0x70100, 0, station.constData());
        }
    }
    if (count > 339)
        textField(SipResponse, SipResponseWidth, 0x30200);
    if (withCounter)
        setWord(cache, InCounter, word(in, InCounter));

    cache.replace(RunStateText, RunStateTextWidth, in.mid(RunStateText, RunStateTextWidth));
    if (runState == -2)
        return true;
    const int code = instanceMapStatus(runState);
    it = instances.find(id);
    if (it == instances.end())
        return true;
    const bool statusChanged = code != it->state.statusCode;
    it->state.runState = runState;
    it->state.statusCode = code;
    setWord(it->state.record, RunState, runState);
    if (statusChanged)
        clientsUpdate(id, 0x20000, code, nullptr);
    return true;
}

void Manager::instanceDataSend(uint id, int parameter, int value, QByteArray extra)
{
    if (parameter == Restart) {
        instanceRestart(id);
        return;
    }
    auto it = instances.find(id);
    if (it == instances.end())
        return;

    QByteArray message;
    QDataStream out(&message, QIODevice::WriteOnly);
    out.setVersion(17);
    out.setByteOrder(QDataStream::BigEndian);
    // The magnitude in 64 bits: the most negative value a peer may send stays itself, defined.
    out << qint32(parameter) << qint32(qAbs(qint64(value))) << qint32(extra.size()) << extra;
    commPipeMessageSend(message, it->clientId);

    // Anticipate the instance's answer so that the next record shows the change.
    QByteArray &cache = it->state.record;
    switch (parameter) {
    case 0x20400:
        setText(cache, Station, StationWidth, "connecting..");
        break;
    case 0x20500:
    case 0x20600:
        setWord(cache, JitterBuffers, -1);
        break;
    case 0x500:
        setText(cache, Name, NameWidth, " ");
        break;
    case 0x600:
        setWord(cache, GroupTag, -1);
        break;
    default:
        break;
    }
}

void Manager::oscInstanceDataSend(int agent, int parameter, int value, QByteArray data)
{
    const QList<uint> keys = instances.keys();
    if (agent < 0) {
        for (uint id : keys)
            instanceDataSend(id, parameter, value, data);
        return;
    }
    if (agent >= keys.size())
        return;
    instanceDataSend(keys.at(agent), parameter, value, data);
}

void Manager::clientsUpdate(uint id, int parameter, int value, const char *text)
{
    auto it = instances.find(id);
    if (it == instances.end())
        return;
    if (it->ember)
        it->ember->emberSendTo(parameter, value, const_cast<char *>(text));
    if (osc)
        osc->oscSendTo(it->index, parameter, value, const_cast<char *>(text));
    if (parameter == 0x20000)
        snmpSendTrap(id);
}

void Manager::clientsForceUpdate(uint id)
{
    auto it = instances.find(id);
    if (it == instances.end())
        return;
    QByteArray &cache = it->state.record;
    const QByteArray blank(" ");
    for (const auto &field :
         {std::make_pair(RunStateText, int(RunStateTextWidth)),
          std::make_pair(AudioInput, int(AudioNameWidth)), std::make_pair(AudioOutput, int(AudioNameWidth)),
          std::make_pair(SipUri, int(SipUriWidth)), std::make_pair(Destination, int(DestinationWidth)),
          std::make_pair(AudioDriver, int(AudioDriverWidth)),
          std::make_pair(WarningMessage, int(WarningWidth)), std::make_pair(RecordFile, int(RecordFileWidth)),
          std::make_pair(RecordTime, int(RecordTimeWidth)),
          std::make_pair(ConnectionTime, int(ConnectionTimeWidth)),
          std::make_pair(PlayFile, int(PlayFileWidth)), std::make_pair(PlayTime, int(PlayTimeWidth)),
          std::make_pair(SipResponse, int(SipResponseWidth))})
        setText(cache, field.first, field.second, blank);
    setText(cache, Name, NameWidth,
            QStringLiteral("start: %1").arg(QFileInfo(it->setupPath).baseName()).toUtf8());
    setText(cache, Station, StationWidth, "connecting..");
    setWord(cache, RunState, -4);
    it->state.runState = -4;
    it->state.inFormat = blank;
    it->state.outFormat = blank;
    setWord(cache, VersionMajor, -1); // the version text is sent again
}
