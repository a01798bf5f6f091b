#include "emberhooks.h"

#include <cstdlib>
#include <cstring>

static throwError_t s_throwError = nullptr;
static failAssertion_t s_failAssertion = nullptr;
static allocMemory_t s_allocMemory = nullptr;
static freeMemory_t s_freeMemory = nullptr;

void ember_init(throwError_t onThrowError, failAssertion_t onFailAssertion, allocMemory_t allocMemory,
                freeMemory_t freeMemory)
{
    s_throwError = onThrowError;
    s_failAssertion = onFailAssertion;
    s_allocMemory = allocMemory;
    s_freeMemory = freeMemory;
}

void throwError(int error, const char *pMessage)
{
    if (s_throwError != nullptr)
        s_throwError(error, pMessage);
}

void failAssertion(const char *pFileName, int lineNumber)
{
    if (s_failAssertion != nullptr)
        s_failAssertion(pFileName, lineNumber);
}

void *allocMemory(size_t size)
{
    if (s_allocMemory != nullptr)
        return s_allocMemory(size);
    // malloc(0) may return null, which callers would take for a failure.
    return malloc(size > 0 ? size : 1);
}

void freeMemory(void *pMemory)
{
    if (pMemory == nullptr)
        return;
    if (s_freeMemory != nullptr)
        s_freeMemory(pMemory);
    else
        free(pMemory);
}

const char *ember_errorText(int error)
{
    switch (error) {
    case EmberError_NonZeroTerminator:
        return "Non-zero byte in terminator";
    case EmberError_ZeroOuterLength:
        return "Zero outer length encountered";
    case EmberError_TagOctetsOutOfBounds:
        return "Number of tag octets out of bounds";
    case EmberError_LengthOctetsOutOfBounds:
        return "Number of length octets out of bounds";
    case EmberError_UnexpectedTerminator:
        return "Unexpected terminator";
    case EmberError_UnexpectedEndOfContainer:
        return "Unexpected end of container";
    case EmberError_UniversalOuterTag:
        return "Universal outer tag encountered";
    case EmberError_PrimitiveOuterTag:
        return "Primitive outer tag encountered";
    case EmberError_InvalidBerType:
        return "Invalid BER type encountered";
    case EmberError_NonUniversalInnerTag:
        return "Non-universal inner tag encountered";
    case EmberError_StackOverflow:
        return "ember tree stack overflow";
    case EmberError_StackUnderflow:
        return "ember tree stack underflow";
    case EmberError_InvalidBoolean:
        return "Invalid Boolean encoding";
    case EmberError_InvalidInteger:
    case EmberError_InvalidLong:
        return "Invalid Integer encoding";
    case EmberError_InvalidReal:
        return "Invalid Real encoding";
    case EmberError_InvalidString:
        return "Invalid String encoding";
    case EmberError_InvalidOctetString:
        return "Invalid OctetString encoding";
    case EmberError_InvalidObjectIdentifier:
        return "Invalid ObjectIdentifier encoding";
    case EmberError_MemoryInputEof:
        return "BerMemoryInput EOF";
    case EmberError_FileInputEof:
        return "BerFileInput EOF";
    case EmberError_MemoryOutputCapacity:
        return "BerMemoryOutput capacity exceeded";
    case EmberError_BufferOverrun:
        return "buffer overrun";
    case GlowError_EmptyPath:
        return "empty path in QualifiedParameter!";
    case GlowError_NonRootQualified:
        return "QualifiedParameter encountered on non-root level!";
    case GlowError_MinMaxType:
        return "GlowMinMax object has unsupported type!";
    case GlowError_ValueType:
        return "GlowValue object has unsupported type!";
    case GlowError_ReaderValueType:
        return "BerReader reports unsupported GlowValue type!";
    case GlowError_InvalidIdentifier:
    case GlowError_ReaderInvalidIdentifier:
        return "identifier must not be NULL!";
    default:
        return "unknown error";
    }
}

void ember_throwError(int error)
{
    throwError(error, ember_errorText(error));
}

char *ember_copyString(const char *pString)
{
    if (pString == nullptr)
        return nullptr;
    const size_t length = strlen(pString);
    char *pCopy = static_cast<char *>(allocMemory(length + 1));
    if (pCopy != nullptr)
        memcpy(pCopy, pString, length + 1);
    return pCopy;
}
