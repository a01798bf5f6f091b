#ifndef EMBER_BERREADER_H
#define EMBER_BERREADER_H

#include "ber.h"
#include "bytebuffer.h"

// The item that a BER reader has just read: its outer tag, inner type, whether it is a container,
// its declared length (-1 indefinite) and, for a primitive, its value bytes.
typedef struct SBerReader
{
    SBerTag tag;
    bertype_t type;
    bool isContainer;
    int length;
    SByteBuffer buffer;
} SBerReader;

void berReader_init(SBerReader *pThis);
void berReader_reset(SBerReader *pThis);
void berReader_free(SBerReader *pThis);

// Value getters: each checks that the item is a primitive of a fitting type and length, raises
// the error of its type otherwise (201 to 207) and then returns zero / empty.
bool berReader_getBoolean(const SBerReader *pThis);
int32_t berReader_getInteger(const SBerReader *pThis);
int64_t berReader_getLong(const SBerReader *pThis);
double berReader_getReal(const SBerReader *pThis);
// Copies at most size - 1 bytes and terminates; returns the copied length.
int berReader_getString(const SBerReader *pThis, char *pDest, int size);
// Copies at most size bytes; returns the copied length.
int berReader_getOctetString(const SBerReader *pThis, unsigned char *pDest, int size);
// Decodes at most capacity numbers; returns the count.
int berReader_getRelativeOid(const SBerReader *pThis, int *pDest, int capacity);

#endif
