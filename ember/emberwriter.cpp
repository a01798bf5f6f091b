#include "emberwriter.h"

#include "berio.h"

#include <cstring>

void ember_writeContainerBegin(SBerOutput *pOut, SBerTag tag, bertype_t type)
{
    ber_encodeTag(pOut, berTag_toContainer(tag));
    ber_encodeLength(pOut, -1);
    ber_encodeTag(pOut, berTag_toContainer(berTag_fromType(type)));
    ber_encodeLength(pOut, -1);
}

void ember_writeSequenceBegin(SBerOutput *pOut, SBerTag tag)
{
    ember_writeContainerBegin(pOut, tag, BerType_Sequence);
}

void ember_writeSetBegin(SBerOutput *pOut, SBerTag tag)
{
    ember_writeContainerBegin(pOut, tag, BerType_Set);
}

void ember_writeContainerEnd(SBerOutput *pOut)
{
    static const unsigned char terminators[4] = {0, 0, 0, 0};
    pOut->writeBytes(pOut, terminators, sizeof(terminators));
}

// Outer tag with the definite length of the inner encoding, then the universal tag and length.
static void writeHeaders(SBerOutput *pOut, SBerTag tag, bertype_t type, int contentLength)
{
    const SBerTag innerTag = berTag_make(BerClass_Universal, type);
    const int innerLength = ber_getHeaderLength(innerTag, contentLength) + contentLength;
    ber_encodeTag(pOut, berTag_toContainer(tag));
    ber_encodeLength(pOut, innerLength);
    ber_encodeTag(pOut, innerTag);
    ber_encodeLength(pOut, contentLength);
}

void ember_writeBoolean(SBerOutput *pOut, SBerTag tag, bool value)
{
    writeHeaders(pOut, tag, BerType_Boolean, 1);
    ber_encodeBoolean(pOut, value);
}

void ember_writeInteger(SBerOutput *pOut, SBerTag tag, int32_t value)
{
    const int length = ber_getIntegerLength(value);
    writeHeaders(pOut, tag, BerType_Integer, length);
    ber_encodeInteger(pOut, value, length);
}

void ember_writeLong(SBerOutput *pOut, SBerTag tag, int64_t value)
{
    const int length = ber_getLongLength(value);
    writeHeaders(pOut, tag, BerType_Integer, length);
    ber_encodeLong(pOut, value, length);
}

void ember_writeReal(SBerOutput *pOut, SBerTag tag, double value)
{
    // The contents go to a scratch buffer first, to learn their length.
    unsigned char scratch[20];
    SBerMemoryOutput memory;
    berMemoryOutput_init(&memory, scratch, sizeof(scratch));
    const int length = ber_encodeReal(&memory.base, value);
    writeHeaders(pOut, tag, BerType_Real, length);
    if (length > 0)
        pOut->writeBytes(pOut, scratch, length);
}

void ember_writeString(SBerOutput *pOut, SBerTag tag, const char *pValue)
{
    const int length = pValue != nullptr ? static_cast<int>(strlen(pValue)) : 0;
    writeHeaders(pOut, tag, BerType_UTF8String, length);
    ber_encodeString(pOut, pValue);
}

void ember_writeOctetString(SBerOutput *pOut, SBerTag tag, const unsigned char *pValue, int length)
{
    if (pValue == nullptr || length < 0)
        length = 0;
    writeHeaders(pOut, tag, BerType_OctetString, length);
    ber_encodeOctetString(pOut, pValue, length);
}

void ember_writeRelativeOid(SBerOutput *pOut, SBerTag tag, const int *pValues, int count)
{
    const int length = ber_getRelativeOidLength(pValues, count);
    writeHeaders(pOut, tag, BerType_RelativeOid, length);
    ber_encodeRelativeOid(pOut, pValues, count);
}
