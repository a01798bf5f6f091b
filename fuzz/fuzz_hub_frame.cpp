// Fuzz target for what a hub client sends on its local socket: the frame reader (HubFrameReader).
//
// The first input byte picks the largest payload the reader keeps (small, so that skipping is
// reached as often as keeping), the second the size of the pieces the rest is fed in. Every frame
// given back must be consistent with its header, and the reader never holds more than what it
// was fed and has not handed out.

#include "hub/hubframe.h"

#include <QByteArray>

#include <cstdint>
#include <cstdlib>

namespace {

volatile unsigned s_sink;

void check(const HubFrame &frame, HubFrameReader::Result result, int maxPayload)
{
    if (result == HubFrameReader::Frame) {
        if (frame.count > quint32(maxPayload) || frame.payload.size() != int(frame.count) ||
            frame.raw.size() != HubFrameHeaderSize + int(frame.count) ||
            frame.raw.mid(HubFrameHeaderSize) != frame.payload)
            abort();
    } else if (result == HubFrameReader::Skipped) {
        if (frame.count <= quint32(maxPayload) || !frame.payload.isEmpty())
            abort();
    }
    for (char c : frame.raw)
        s_sink += uchar(c);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size < 2)
        return 0;
    static const int maxima[] = {0, 1, 16, 64, 255, HubMaxPayload};
    const int maxPayload = maxima[data[0] % 6];
    const size_t chunk = data[1] == 0 ? size : data[1];
    data += 2;
    size -= 2;

    HubFrameReader reader(maxPayload);
    qint64 fed = 0;
    qint64 handedOut = 0;
    for (size_t i = 0; i < size; i += chunk) {
        const size_t n = size - i < chunk ? size - i : chunk;
        reader.feed(QByteArray(reinterpret_cast<const char *>(data + i), int(n)));
        fed += qint64(n);
        // Each Frame or Skipped consumes at least a header: the loop ends.
        for (;;) {
            HubFrame frame;
            const HubFrameReader::Result result = reader.next(&frame);
            check(frame, result, maxPayload);
            if (result == HubFrameReader::NeedMore)
                break;
            handedOut += HubFrameHeaderSize;
            if (result == HubFrameReader::Frame)
                handedOut += frame.count;
        }
        if (reader.buffered() < 0 || reader.buffered() > fed - handedOut)
            abort();
    }
    // A round trip through the encoder: a frame made here reads back whole.
    if (size <= size_t(HubMaxPayload)) {
        const QByteArray payload(reinterpret_cast<const char *>(data), int(size));
        HubFrameReader again(HubMaxPayload);
        again.feed(hubFrame_encode(payload, 3, 7));
        HubFrame frame;
        if (again.next(&frame) != HubFrameReader::Frame || frame.payload != payload || frame.target != 3 ||
            frame.source != 7 || frame.size != int(size) || again.buffered() != 0)
            abort();
    }
    return 0;
}
