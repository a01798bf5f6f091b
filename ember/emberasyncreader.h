#ifndef EMBER_EMBERASYNCREADER_H
#define EMBER_EMBERASYNCREADER_H

#include "berreader.h"

// Byte-driven BER reader: takes the stream one byte at a time, without ever holding more than
// the current value, and reports each container opened and each item completed (a primitive value,
// or the end of a container) through two callbacks.

#define EMBER_ASYNC_STACK_SIZE 65
// Longer values are consumed but not kept (error "buffer overrun"); nothing in Glow comes near.
#define EMBER_MAX_VALUE_LENGTH 65536

enum EEmberAsyncReaderState
{
    EmberAsyncState_Tag = 0,
    EmberAsyncState_Length = 1,
    EmberAsyncState_Value = 2,
    EmberAsyncState_Terminator = 3,
};

// One open container. Each byte read while it is the innermost one is counted in it; when it is
// closed, what it counted is added to its parent.
typedef struct SEmberAsyncContainer
{
    SBerTag tag;      // outer tag
    bertype_t type;   // inner type (APPLICATION types as 0x8000 | number)
    int outerLength;  // -1 indefinite
    int headerLength; // bytes of the inner tag and length, inside the outer length
    int length;       // inner length, -1 indefinite
    int consumed;     // bytes of the inner contents read so far, terminator included
    int trailing;     // bytes after the inner contents (the outer terminator)
    bool isInnerDone; // the inner contents are complete
    bool isOuterDone; // the outer terminator was read
    bool isPrimitive; // a primitive whose indefinite outer still waits for its terminator
} SEmberAsyncContainer;

typedef struct SEmberAsyncReader SEmberAsyncReader;
typedef void (*emberAsyncReader_onNewContainer_t)(SEmberAsyncReader *pReader);
typedef void (*emberAsyncReader_onItemReady_t)(SEmberAsyncReader *pReader);

struct SEmberAsyncReader
{
    SBerReader base; // the current item; on a container's end, that container

    int state;
    int bytesRead;     // in the current state
    int bytesExpected; // length octets or value bytes still due; the class bits of a long tag
    unsigned int accumulator;
    bool isOuterPending; // an outer tag and length were read; the inner tag comes next
    int pendingOuterLength;
    int pendingOuterConsumed; // bytes read since the pending outer length
    bool isSkippingValue;

    SEmberAsyncContainer stack[EMBER_ASYNC_STACK_SIZE];
    int stackDepth;

    emberAsyncReader_onNewContainer_t onNewContainer;
    emberAsyncReader_onItemReady_t onItemReady;
};

void emberAsyncReader_init(SEmberAsyncReader *pThis, emberAsyncReader_onNewContainer_t onNewContainer,
                           emberAsyncReader_onItemReady_t onItemReady);
void emberAsyncReader_readByte(SEmberAsyncReader *pThis, unsigned char byte);
void emberAsyncReader_readBytes(SEmberAsyncReader *pThis, const unsigned char *pBytes, int count);
void emberAsyncReader_reset(SEmberAsyncReader *pThis);
void emberAsyncReader_free(SEmberAsyncReader *pThis);

// The innermost open container (the parent of the current item), or null at the top level.
const SEmberAsyncContainer *emberAsyncReader_top(const SEmberAsyncReader *pThis);

#endif
