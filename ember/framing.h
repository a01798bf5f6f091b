#ifndef EMBER_FRAMING_H
#define EMBER_FRAMING_H

#include "berio.h"
#include "bytebuffer.h"

#include <cstdint>

// S101 framing: packages between BOF and EOF, escaped, with a reflected CRC-16/CCITT trailer.

#define S101_BOF 0xFE
#define S101_EOF 0xFF
#define S101_CE 0xFD
#define S101_INVALID 0xF8 // 0xF8 to 0xFC never appear unescaped
#define S101_XOR 0x20

#define S101_MESSAGE_EMBER 0x0E
#define S101_COMMAND_EMBER 0x00
#define S101_COMMAND_KEEPALIVE_REQUEST 0x01
#define S101_COMMAND_KEEPALIVE_RESPONSE 0x02
#define S101_VERSION 0x01
#define S101_FLAG_FIRST 0x80
#define S101_FLAG_LAST 0x40
#define S101_FLAG_EMPTY 0x20
#define S101_DTD_GLOW 0x01

#define S101_CRC_GOOD 0xF0B8
#define S101_MAX_FRAME 1024

uint16_t emberFraming_crcUpdate(uint16_t crc, unsigned char byte);

// The framing output: a memory output whose byte writes go through the CRC and the escaping.
typedef struct SBerFramingOutput
{
    SBerMemoryOutput base;
    uint16_t crc;
    unsigned char slot;
    unsigned char dtd;
    const unsigned char *pAppBytes;
    unsigned char appBytesCount;
} SBerFramingOutput;

// The capacity is cut to S101_MAX_FRAME.
void berFramingOutput_init(SBerFramingOutput *pThis, unsigned char *pMemory, int size, unsigned char slot,
                           unsigned char dtd, const unsigned char *pAppBytes, unsigned char appBytesCount);
void berFramingOutput_writeHeader(SBerFramingOutput *pThis, unsigned char flags);
void berFramingOutput_writeByte(SBerOutput *pBase, unsigned char byte);
void berFramingOutput_writeBytes(SBerOutput *pBase, const unsigned char *pBytes, int count);
// Writes the CRC and EOF; returns the frame's length and rewinds the output (the bytes stay).
int berFramingOutput_finish(SBerFramingOutput *pThis);
void berFramingOutput_free(SBerFramingOutput *pThis);

// Whole keep-alive packages; each returns its length, or 0 when size is too small.
int emberFraming_writeKeepAliveRequest(unsigned char *pBuffer, int size, unsigned char slot);
int emberFraming_writeKeepAliveResponse(unsigned char *pBuffer, int size, unsigned char slot);

// The unframing reader: gathers the bytes of one frame and hands over every frame whose CRC
// is right (the bytes between BOF and the CRC, unescaped).
typedef void (*emberFramingReader_onPackage_t)(const unsigned char *pPackage, int length, void *state);

typedef struct SEmberFramingReader
{
    SByteBuffer buffer;
    bool isEscaped;
    uint16_t crc;
    emberFramingReader_onPackage_t onPackage;
    void *state;
} SEmberFramingReader;

void emberFramingReader_init(SEmberFramingReader *pThis, unsigned char *pMemory, int size,
                             emberFramingReader_onPackage_t onPackage, void *state);
void emberFramingReader_reset(SEmberFramingReader *pThis);
void emberFramingReader_readBytes(SEmberFramingReader *pThis, const unsigned char *pBytes, int count);
void emberFramingReader_free(SEmberFramingReader *pThis);

#endif
