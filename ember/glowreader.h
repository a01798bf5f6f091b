#ifndef EMBER_GLOWREADER_H
#define EMBER_GLOWREADER_H

#include "framing.h"
#include "glowdecoder.h"

// The reader of one consumer connection: unframes the TCP byte stream into S101 packages, hands
// every package to the package hook, and decodes the Glow ones, across package borders.

typedef void (*onPackageReceived_t)(const unsigned char *pPackage, int length, void *state);

typedef struct SGlowReader
{
    SNonFramingGlowReader base;
    SEmberFramingReader framing;
    onPackageReceived_t onPackageReceived; // set after init; called before decoding
} SGlowReader;

// pBuffer/size: the caller's unframing buffer (a frame longer than that is cut, with an error).
// Any callback may be null; state is passed back to all of them, the package hook included.
void glowReader_init(SGlowReader *pThis, onNode_t onNode, onParameter_t onParameter, onCommand_t onCommand,
                     onStreamEntry_t onStreamEntry, void *state, unsigned char *pBuffer, int size);
void glowReader_readBytes(SGlowReader *pThis, const unsigned char *pBytes, int count);
void glowReader_reset(SGlowReader *pThis);
// Frees what the reader holds (not the caller's buffer) and zeroes it.
void glowReader_free(SGlowReader *pThis);

#endif
