#include "berio.h"

#include "emberhooks.h"

#include <cstring>

void berMemoryOutput_init(SBerMemoryOutput *pThis, unsigned char *pMemory, int size)
{
    pThis->base.writeByte = berMemoryOutput_writeByte;
    pThis->base.writeBytes = berMemoryOutput_writeBytes;
    pThis->pMemory = pMemory;
    pThis->size = pMemory != nullptr && size > 0 ? size : 0;
    pThis->position = 0;
}

void berMemoryOutput_writeByte(SBerOutput *pBase, unsigned char byte)
{
    SBerMemoryOutput *pThis = reinterpret_cast<SBerMemoryOutput *>(pBase);
    if (pThis->position >= pThis->size) {
        ember_throwError(EmberError_MemoryOutputCapacity);
        return;
    }
    pThis->pMemory[pThis->position++] = byte;
}

void berMemoryOutput_writeBytes(SBerOutput *pBase, const unsigned char *pBytes, int count)
{
    for (int i = 0; i < count; i++)
        berMemoryOutput_writeByte(pBase, pBytes[i]);
}

void berMemoryOutput_reset(SBerMemoryOutput *pThis)
{
    pThis->position = 0;
}

void berMemoryOutput_free(SBerMemoryOutput *pThis)
{
    memset(pThis, 0, sizeof(*pThis));
}

static unsigned char memoryInput_readByte(SBerInput *pBase)
{
    SBerMemoryInput *pThis = reinterpret_cast<SBerMemoryInput *>(pBase);
    if (pThis->position >= pThis->size) {
        ember_throwError(EmberError_MemoryInputEof);
        return 0;
    }
    return pThis->pMemory[pThis->position++];
}

static bool memoryInput_isEof(const SBerInput *pBase)
{
    const SBerMemoryInput *pThis = reinterpret_cast<const SBerMemoryInput *>(pBase);
    return pThis->position >= pThis->size;
}

void berMemoryInput_init(SBerMemoryInput *pThis, const unsigned char *pMemory, int size)
{
    pThis->base.readByte = memoryInput_readByte;
    pThis->base.isEof = memoryInput_isEof;
    pThis->pMemory = pMemory;
    pThis->size = pMemory != nullptr && size > 0 ? size : 0;
    pThis->position = 0;
}

void berMemoryInput_free(SBerMemoryInput *pThis)
{
    memset(pThis, 0, sizeof(*pThis));
}

static unsigned char fileInput_readByte(SBerInput *pBase)
{
    SBerFileInput *pThis = reinterpret_cast<SBerFileInput *>(pBase);
    const int c = pThis->pFile != nullptr ? fgetc(pThis->pFile) : EOF;
    if (c == EOF) {
        pThis->isEof = true;
        ember_throwError(EmberError_FileInputEof);
        return 0;
    }
    return static_cast<unsigned char>(c);
}

static bool fileInput_isEof(const SBerInput *pBase)
{
    const SBerFileInput *pThis = reinterpret_cast<const SBerFileInput *>(pBase);
    return pThis->isEof || pThis->pFile == nullptr || feof(pThis->pFile);
}

void berFileInput_init(SBerFileInput *pThis, FILE *pFile)
{
    pThis->base.readByte = fileInput_readByte;
    pThis->base.isEof = fileInput_isEof;
    pThis->pFile = pFile;
    pThis->isEof = false;
}

void berFileInput_free(SBerFileInput *pThis)
{
    memset(pThis, 0, sizeof(*pThis));
}
