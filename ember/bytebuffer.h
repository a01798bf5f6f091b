#ifndef EMBER_BYTEBUFFER_H
#define EMBER_BYTEBUFFER_H

// A byte store that either lives on a caller's fixed buffer or grows through the memory hooks.
typedef struct SByteBuffer
{
    unsigned char *pMemory;
    int capacity;
    int length;
    bool isDynamic;
} SByteBuffer;

// Fixed store on pMemory; bytes past capacity raise "buffer overrun" and are dropped.
void byteBuffer_init(SByteBuffer *pThis, unsigned char *pMemory, int capacity);

// Growable store starting with initialCapacity bytes (none for 0).
void byteBuffer_initDynamic(SByteBuffer *pThis, int initialCapacity);

// Appends one byte. Returns false when the byte was dropped (fixed store full, or no memory).
bool byteBuffer_add(SByteBuffer *pThis, unsigned char byte);

// Forgets the contents; keeps the storage.
void byteBuffer_reset(SByteBuffer *pThis);

// Frees a growable store's memory (a fixed store belongs to its caller) and zeroes the record.
void byteBuffer_free(SByteBuffer *pThis);

#endif
