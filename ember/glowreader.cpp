#include "glowreader.h"

#include <cstring>

// Offsets in an unframed package (BOF, CRC and EOF removed).
enum
{
    PackageOffset_MessageType = 1,
    PackageOffset_Command = 2,
    PackageOffset_Flags = 4,
    PackageOffset_Dtd = 5,
    PackageOffset_AppBytesCount = 6,
    PackageHeaderLength = 7,
};

static void onPackage(const unsigned char *pPackage, int length, void *state)
{
    SGlowReader *pThis = static_cast<SGlowReader *>(state);
    if (pThis->onPackageReceived != nullptr)
        pThis->onPackageReceived(pPackage, length, pThis->base.state);

    if (length < PackageHeaderLength || pPackage[PackageOffset_MessageType] != S101_MESSAGE_EMBER ||
        pPackage[PackageOffset_Command] != S101_COMMAND_EMBER || pPackage[PackageOffset_Dtd] != S101_DTD_GLOW)
        return;
    const int payload = PackageHeaderLength + pPackage[PackageOffset_AppBytesCount];
    if (payload > length)
        return;
    const unsigned char flags = pPackage[PackageOffset_Flags];
    if (flags & S101_FLAG_FIRST)
        nonFramingGlowReader_reset(&pThis->base);
    nonFramingGlowReader_readBytes(&pThis->base, pPackage + payload, length - payload);
    if (flags & S101_FLAG_LAST)
        glowReader_reset(pThis);
}

void glowReader_init(SGlowReader *pThis, onNode_t onNode, onParameter_t onParameter, onCommand_t onCommand,
                     onStreamEntry_t onStreamEntry, void *state, unsigned char *pBuffer, int size)
{
    memset(pThis, 0, sizeof(*pThis));
    nonFramingGlowReader_init(&pThis->base, onNode, onParameter, onCommand, onStreamEntry, state);
    emberFramingReader_init(&pThis->framing, pBuffer, size, onPackage, pThis);
}

void glowReader_readBytes(SGlowReader *pThis, const unsigned char *pBytes, int count)
{
    emberFramingReader_readBytes(&pThis->framing, pBytes, count);
}

void glowReader_reset(SGlowReader *pThis)
{
    nonFramingGlowReader_reset(&pThis->base);
    emberFramingReader_reset(&pThis->framing);
}

void glowReader_free(SGlowReader *pThis)
{
    nonFramingGlowReader_free(&pThis->base);
    emberFramingReader_free(&pThis->framing);
    memset(pThis, 0, sizeof(*pThis));
}
