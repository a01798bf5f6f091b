#include "berreader.h"

#include "emberhooks.h"

#include <cstring>

void berReader_init(SBerReader *pThis)
{
    memset(pThis, 0, sizeof(*pThis));
    byteBuffer_initDynamic(&pThis->buffer, 0);
}

void berReader_reset(SBerReader *pThis)
{
    pThis->tag = berTag_make(0, 0);
    pThis->type = 0;
    pThis->isContainer = false;
    pThis->length = 0;
    byteBuffer_reset(&pThis->buffer);
}

void berReader_free(SBerReader *pThis)
{
    byteBuffer_free(&pThis->buffer);
    memset(pThis, 0, sizeof(*pThis));
}

// A primitive of the expected type whose stored bytes are all there.
static bool isValue(const SBerReader *pThis, bertype_t type)
{
    return !pThis->isContainer && pThis->type == type && pThis->length >= 0 &&
           pThis->length == pThis->buffer.length;
}

static void openInput(const SBerReader *pThis, SBerMemoryInput *pInput)
{
    berMemoryInput_init(pInput, pThis->buffer.pMemory, pThis->buffer.length);
}

bool berReader_getBoolean(const SBerReader *pThis)
{
    if (!isValue(pThis, BerType_Boolean) || pThis->length != 1) {
        ember_throwError(EmberError_InvalidBoolean);
        return false;
    }
    SBerMemoryInput input;
    openInput(pThis, &input);
    return ber_decodeBoolean(&input.base);
}

int32_t berReader_getInteger(const SBerReader *pThis)
{
    if (!isValue(pThis, BerType_Integer) || pThis->length < 1 || pThis->length > 4) {
        ember_throwError(EmberError_InvalidInteger);
        return 0;
    }
    SBerMemoryInput input;
    openInput(pThis, &input);
    return ber_decodeInteger(&input.base, pThis->length);
}

int64_t berReader_getLong(const SBerReader *pThis)
{
    if (!isValue(pThis, BerType_Integer) || pThis->length < 1 || pThis->length > 8) {
        ember_throwError(EmberError_InvalidLong);
        return 0;
    }
    SBerMemoryInput input;
    openInput(pThis, &input);
    return ber_decodeLong(&input.base, pThis->length);
}

double berReader_getReal(const SBerReader *pThis)
{
    if (!isValue(pThis, BerType_Real)) {
        ember_throwError(EmberError_InvalidReal);
        return 0.0;
    }
    SBerMemoryInput input;
    openInput(pThis, &input);
    return ber_decodeReal(&input.base, pThis->length);
}

int berReader_getString(const SBerReader *pThis, char *pDest, int size)
{
    if (size <= 0)
        return 0;
    if (!isValue(pThis, BerType_UTF8String)) {
        ember_throwError(EmberError_InvalidString);
        pDest[0] = 0;
        return 0;
    }
    const int length = pThis->length < size - 1 ? pThis->length : size - 1;
    SBerMemoryInput input;
    openInput(pThis, &input);
    ber_decodeString(&input.base, pDest, length);
    return length;
}

int berReader_getOctetString(const SBerReader *pThis, unsigned char *pDest, int size)
{
    if (!isValue(pThis, BerType_OctetString)) {
        ember_throwError(EmberError_InvalidOctetString);
        return 0;
    }
    const int length = pThis->length < size ? pThis->length : size;
    SBerMemoryInput input;
    openInput(pThis, &input);
    ber_decodeOctetString(&input.base, pDest, length);
    return length;
}

int berReader_getRelativeOid(const SBerReader *pThis, int *pDest, int capacity)
{
    if (!isValue(pThis, BerType_RelativeOid)) {
        ember_throwError(EmberError_InvalidObjectIdentifier);
        return 0;
    }
    SBerMemoryInput input;
    openInput(pThis, &input);
    return ber_decodeRelativeOid(&input.base, pDest, capacity, pThis->length);
}
