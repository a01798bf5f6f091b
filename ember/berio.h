#ifndef EMBER_BERIO_H
#define EMBER_BERIO_H

#include <cstdio>

// Byte sinks and sources that the BER codecs work on. The abstract records are the first member
// of every concrete one, so a pointer to the concrete record may be passed where the abstract one
// is expected.

typedef struct SBerOutput SBerOutput;
typedef void (*berOutput_writeByte_t)(SBerOutput *pThis, unsigned char byte);
typedef void (*berOutput_writeBytes_t)(SBerOutput *pThis, const unsigned char *pBytes, int count);

struct SBerOutput
{
    berOutput_writeByte_t writeByte;
    berOutput_writeBytes_t writeBytes;
};

typedef struct SBerInput SBerInput;
typedef unsigned char (*berInput_readByte_t)(SBerInput *pThis);
typedef bool (*berInput_isEof_t)(const SBerInput *pThis);

struct SBerInput
{
    berInput_readByte_t readByte;
    berInput_isEof_t isEof;
};

// Sink on a caller's buffer. Bytes past the capacity raise "BerMemoryOutput capacity exceeded"
// and are dropped.
typedef struct SBerMemoryOutput
{
    SBerOutput base;
    unsigned char *pMemory;
    int size;
    int position;
} SBerMemoryOutput;

void berMemoryOutput_init(SBerMemoryOutput *pThis, unsigned char *pMemory, int size);
void berMemoryOutput_writeByte(SBerOutput *pBase, unsigned char byte);
void berMemoryOutput_writeBytes(SBerOutput *pBase, const unsigned char *pBytes, int count);
void berMemoryOutput_reset(SBerMemoryOutput *pThis);
void berMemoryOutput_free(SBerMemoryOutput *pThis);

// Source on a caller's buffer. Reading past the end raises "BerMemoryInput EOF" and gives 0.
typedef struct SBerMemoryInput
{
    SBerInput base;
    const unsigned char *pMemory;
    int size;
    int position;
} SBerMemoryInput;

void berMemoryInput_init(SBerMemoryInput *pThis, const unsigned char *pMemory, int size);
void berMemoryInput_free(SBerMemoryInput *pThis);

// Source on an open file. Reading past the end raises "BerFileInput EOF" and gives 0.
typedef struct SBerFileInput
{
    SBerInput base;
    FILE *pFile;
    bool isEof;
} SBerFileInput;

void berFileInput_init(SBerFileInput *pThis, FILE *pFile);
void berFileInput_free(SBerFileInput *pThis);

#endif
