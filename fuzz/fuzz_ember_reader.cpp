// Fuzz target for everything that reads what an Ember+ consumer sends: the S101 unframing reader,
// the byte-driven BER reader and the Glow decoder.
//
// The first input byte picks the mode, the second the size of the pieces the rest is fed in:
//   mode 0: the rest is a TCP stream for the Glow reader (unframing, CRC, package hook, decoding);
//   mode 1: the rest is a BER stream for the Glow decoder directly;
//   mode 2: the rest is a BER stream that is framed here, with a good CRC, into packages of
//           the size given by the third byte, and then read as in mode 0.
// The connection buffer is 1,024 bytes as in the provider; ASan checks every access, and the
// allocation count must come back to zero once the reader is freed.

#include "ember/emberhooks.h"
#include "ember/framing.h"
#include "ember/glowreader.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>

static long s_allocations = 0;

static void onThrowError(int, const char *) {}
static void onFailAssertion(const char *, int) {}
static void *allocCounted(size_t size)
{
    s_allocations++;
    return malloc(size);
}
static void freeCounted(void *p)
{
    s_allocations--;
    free(p);
}

// The callbacks look at everything they are given, so that ASan sees any bad pointer.
static volatile unsigned s_sink;

static void touchValue(const SGlowValue *pValue)
{
    if (pValue->type == GlowParameterType_String && pValue->pString != nullptr)
        s_sink += static_cast<unsigned>(strlen(pValue->pString));
    if (pValue->type == GlowParameterType_Octets)
        for (int i = 0; i < pValue->octets.length; i++)
            s_sink += pValue->octets.pOctets[i];
}

static void touchPath(const int *pPath, int pathLength)
{
    if (pathLength < 0 || pathLength > GLOW_MAX_PATH)
        abort();
    for (int i = 0; i < pathLength; i++)
        s_sink += static_cast<unsigned>(pPath[i]);
}

static void onParameter(const SGlowParameter *p, EGlowFieldFlags, const int *pPath, int pathLength, void *)
{
    touchPath(pPath, pathLength);
    touchValue(&p->value);
    if (p->pIdentifier != nullptr)
        s_sink += static_cast<unsigned>(strlen(p->pIdentifier));
    if (p->pDescription != nullptr)
        s_sink += static_cast<unsigned>(strlen(p->pDescription));
}

static void onNode(const SGlowNode *p, EGlowFieldFlags, const int *pPath, int pathLength, void *)
{
    touchPath(pPath, pathLength);
    if (p->pIdentifier != nullptr)
        s_sink += static_cast<unsigned>(strlen(p->pIdentifier));
}

static void onFunction(const SGlowFunction *p, EGlowFieldFlags, const int *pPath, int pathLength, void *)
{
    touchPath(pPath, pathLength);
    for (int i = 0; i < p->argumentsLength; i++)
        if (p->pArguments[i].pName != nullptr)
            s_sink += static_cast<unsigned>(strlen(p->pArguments[i].pName));
}

static void onCommand(const SGlowCommand *p, const int *pPath, int pathLength, void *)
{
    touchPath(pPath, pathLength);
    for (int i = 0; i < p->invocation.argumentsLength; i++)
        touchValue(&p->invocation.pArguments[i]);
}

static void onStreamEntry(const SGlowStreamEntry *p, void *)
{
    touchValue(&p->streamValue);
}

static void onPackage(const unsigned char *pPackage, int length, void *)
{
    if (length < 0 || length > 1024)
        abort();
    for (int i = 0; i < length; i++)
        s_sink += pPackage[i];
}

static void feedReader(const uint8_t *pData, size_t size, size_t chunk)
{
    unsigned char *pBuffer = static_cast<unsigned char *>(malloc(1024)); // exact size, for ASan
    SGlowReader reader;
    glowReader_init(&reader, onNode, onParameter, onCommand, onStreamEntry, nullptr, pBuffer, 1024);
    reader.base.onFunction = onFunction;
    reader.onPackageReceived = onPackage;
    for (size_t i = 0; i < size; i += chunk)
        glowReader_readBytes(&reader, pData + i, static_cast<int>(size - i < chunk ? size - i : chunk));
    glowReader_free(&reader);
    free(pBuffer);
}

static void feedDecoder(const uint8_t *pData, size_t size, size_t chunk)
{
    SNonFramingGlowReader reader;
    nonFramingGlowReader_init(&reader, onNode, onParameter, onCommand, onStreamEntry, nullptr);
    reader.onFunction = onFunction;
    for (size_t i = 0; i < size; i += chunk)
        nonFramingGlowReader_readBytes(&reader, pData + i,
                                       static_cast<int>(size - i < chunk ? size - i : chunk));
    nonFramingGlowReader_free(&reader);
}

static void feedFramed(const uint8_t *pData, size_t size, size_t chunk, size_t packageSize)
{
    static const unsigned char app[] = {0x14, 0x02};
    unsigned char *pStream = static_cast<unsigned char *>(malloc(size * 3 + 64));
    size_t streamLength = 0;
    for (size_t start = 0; start < size || start == 0; start += packageSize) {
        unsigned char frame[1024];
        SBerFramingOutput output;
        berFramingOutput_init(&output, frame, sizeof(frame), 0, 0x01, app, 2);
        unsigned char flags = start == 0 ? S101_FLAG_FIRST : 0;
        const size_t n = size - start < packageSize ? size - start : packageSize;
        if (start + n >= size)
            flags |= S101_FLAG_LAST;
        berFramingOutput_writeHeader(&output, flags);
        berFramingOutput_writeBytes(&output.base.base, pData + start, static_cast<int>(n));
        const int length = berFramingOutput_finish(&output);
        memcpy(pStream + streamLength, frame, static_cast<size_t>(length));
        streamLength += static_cast<size_t>(length);
        if (size == 0)
            break;
    }
    feedReader(pStream, streamLength, chunk);
    free(pStream);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *pData, size_t size)
{
    static bool s_isInitialised = false;
    if (!s_isInitialised) {
        ember_init(onThrowError, onFailAssertion, allocCounted, freeCounted);
        s_isInitialised = true;
    }
    if (size < 3)
        return 0;
    const int mode = pData[0] % 3;
    const size_t chunk = pData[1] == 0 ? size : pData[1];
    const size_t packageSize = 16 + pData[2] * 2; // up to 526 bytes, doubled at worst by escapes
    s_allocations = 0;
    if (mode == 0)
        feedReader(pData + 2, size - 2, chunk);
    else if (mode == 1)
        feedDecoder(pData + 2, size - 2, chunk);
    else
        feedFramed(pData + 3, size - 3, chunk, packageSize);
    if (s_allocations != 0)
        abort(); // the reader did not give back what it took
    return 0;
}
