#include "bytebuffer.h"

#include "emberhooks.h"

#include <cstring>

void byteBuffer_init(SByteBuffer *pThis, unsigned char *pMemory, int capacity)
{
    pThis->pMemory = pMemory;
    pThis->capacity = pMemory != nullptr && capacity > 0 ? capacity : 0;
    pThis->length = 0;
    pThis->isDynamic = false;
}

void byteBuffer_initDynamic(SByteBuffer *pThis, int initialCapacity)
{
    pThis->pMemory = nullptr;
    pThis->capacity = 0;
    pThis->length = 0;
    pThis->isDynamic = true;
    if (initialCapacity > 0) {
        pThis->pMemory = static_cast<unsigned char *>(allocMemory(static_cast<size_t>(initialCapacity)));
        if (pThis->pMemory != nullptr)
            pThis->capacity = initialCapacity;
    }
}

// Grows by the current capacity, clamped to 16..64 bytes: small items stay small, and a long
// value costs one step per 64 bytes.
static bool grow(SByteBuffer *pThis)
{
    int step = pThis->capacity;
    if (step < 16)
        step = 16;
    if (step > 64)
        step = 64;
    const int newCapacity = pThis->capacity + step;
    unsigned char *pNew = static_cast<unsigned char *>(allocMemory(static_cast<size_t>(newCapacity)));
    if (pNew == nullptr)
        return false;
    if (pThis->length > 0)
        memcpy(pNew, pThis->pMemory, static_cast<size_t>(pThis->length));
    freeMemory(pThis->pMemory);
    pThis->pMemory = pNew;
    pThis->capacity = newCapacity;
    return true;
}

bool byteBuffer_add(SByteBuffer *pThis, unsigned char byte)
{
    if (pThis->length >= pThis->capacity) {
        if (!pThis->isDynamic || pThis->capacity > 0x7FFFFFFF - 64) {
            ember_throwError(EmberError_BufferOverrun);
            return false;
        }
        if (!grow(pThis))
            return false;
    }
    pThis->pMemory[pThis->length++] = byte;
    return true;
}

void byteBuffer_reset(SByteBuffer *pThis)
{
    pThis->length = 0;
}

void byteBuffer_free(SByteBuffer *pThis)
{
    if (pThis->isDynamic)
        freeMemory(pThis->pMemory);
    memset(pThis, 0, sizeof(*pThis));
}
