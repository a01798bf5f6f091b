#ifndef EMBER_GLOWDECODER_H
#define EMBER_GLOWDECODER_H

#include "emberasyncreader.h"
#include "glow.h"

// Decodes a Glow BER stream, byte by byte, into parameters, nodes, functions, commands and stream
// entries, each handed over with the full path of its element. The records passed to the
// callbacks belong to the decoder and are freed when the callback returns.

#define GLOW_MAX_PATH 32

typedef void (*onNode_t)(const SGlowNode *pNode, EGlowFieldFlags fields, const int *pPath, int pathLength,
                         void *state);
typedef void (*onParameter_t)(const SGlowParameter *pParameter, EGlowFieldFlags fields, const int *pPath,
                              int pathLength, void *state);
typedef void (*onFunction_t)(const SGlowFunction *pFunction, EGlowFieldFlags fields, const int *pPath,
                             int pathLength, void *state);
typedef void (*onCommand_t)(const SGlowCommand *pCommand, const int *pPath, int pathLength, void *state);
typedef void (*onStreamEntry_t)(const SGlowStreamEntry *pStreamEntry, void *state);
// A primitive field the decoder does not use.
typedef void (*onUnknownItem_t)(const SBerReader *pItem, void *state);

typedef struct SNonFramingGlowReader
{
    SEmberAsyncReader base;

    int path[GLOW_MAX_PATH];
    int pathLength;
    // The path length when the container at each depth was opened, restored when it closes.
    int pathLengthAtDepth[EMBER_ASYNC_STACK_SIZE];

    SGlowParameter parameter;
    EGlowFieldFlags parameterFields;
    SGlowNode node;
    EGlowFieldFlags nodeFields;
    SGlowFunction function;
    EGlowFieldFlags functionFields;
    SGlowCommand command;
    bool hasDirFieldMask;
    SGlowStreamEntry streamEntry;

    onNode_t onNode;
    onParameter_t onParameter;
    onCommand_t onCommand;
    onStreamEntry_t onStreamEntry;
    onFunction_t onFunction;       // not part of _init; set it afterwards if wanted
    onUnknownItem_t onUnknownItem; // likewise
    void *state;
} SNonFramingGlowReader;

// Any callback may be null.
void nonFramingGlowReader_init(SNonFramingGlowReader *pThis, onNode_t onNode, onParameter_t onParameter,
                               onCommand_t onCommand, onStreamEntry_t onStreamEntry, void *state);
void nonFramingGlowReader_readBytes(SNonFramingGlowReader *pThis, const unsigned char *pBytes, int count);
// Drops the element under way and the BER state; the next byte starts a new stream.
void nonFramingGlowReader_reset(SNonFramingGlowReader *pThis);
void nonFramingGlowReader_free(SNonFramingGlowReader *pThis);

#endif
