#ifndef EMBER_EMBERHOOKS_H
#define EMBER_EMBERHOOKS_H

#include <cstddef>

// Process-wide hooks of the Ember+ layers. Every layer reports errors through throwError, broken
// invariants through failAssertion and allocates only through allocMemory/freeMemory, so that the
// provider can log both and count what is still allocated. ember_init installs them once, before
// any codec is used; nothing here is locked.

typedef void (*throwError_t)(int error, const char *pMessage);
typedef void (*failAssertion_t)(const char *pFileName, int lineNumber);
typedef void *(*allocMemory_t)(size_t size);
typedef void (*freeMemory_t)(void *pMemory);

// Error codes raised through the error hook. The codec goes on after each of them, except
// after EmberError_StackUnderflow, which leaves the reader to be reset.
enum EEmberError
{
    EmberError_NonZeroTerminator = 101,
    EmberError_ZeroOuterLength = 102,
    EmberError_TagOctetsOutOfBounds = 103,
    EmberError_LengthOctetsOutOfBounds = 104,
    EmberError_UnexpectedTerminator = 105,
    EmberError_UnexpectedEndOfContainer = 106,
    EmberError_UniversalOuterTag = 107,
    EmberError_PrimitiveOuterTag = 108,
    EmberError_InvalidBerType = 109,
    EmberError_NonUniversalInnerTag = 110,
    EmberError_StackOverflow = 111,
    EmberError_StackUnderflow = 112,

    EmberError_InvalidBoolean = 201,
    EmberError_InvalidInteger = 202,
    EmberError_InvalidLong = 203,
    EmberError_InvalidReal = 204,
    EmberError_InvalidString = 205,
    EmberError_InvalidOctetString = 206,
    EmberError_InvalidObjectIdentifier = 207,

    EmberError_MemoryInputEof = 301,
    EmberError_FileInputEof = 302,
    EmberError_MemoryOutputCapacity = 304,

    EmberError_BufferOverrun = 401,

    GlowError_EmptyPath = 503,
    GlowError_NonRootQualified = 504,
    GlowError_MinMaxType = 505,
    GlowError_ValueType = 506,
    GlowError_ReaderValueType = 507,
    GlowError_InvalidIdentifier = 511,
    GlowError_ReaderInvalidIdentifier = 512,
};

// Installs the four hooks. Any of them may be null: errors and assertions are then dropped and
// memory comes from malloc/free.
void ember_init(throwError_t onThrowError, failAssertion_t onFailAssertion, allocMemory_t allocMemory,
                freeMemory_t freeMemory);

void throwError(int error, const char *pMessage);
void failAssertion(const char *pFileName, int lineNumber);
void *allocMemory(size_t size);
void freeMemory(void *pMemory);

// The fixed text of an error code; codes that have several texts (the Glow path and identifier
// errors) give their first one. Unknown codes give "unknown error".
const char *ember_errorText(int error);

// throwError with the fixed text of the code.
void ember_throwError(int error);

// A heap copy of a zero-terminated string through allocMemory; null for null.
char *ember_copyString(const char *pString);

#define EMBER_ASSERT(condition)                                                                              \
    do {                                                                                                     \
        if (!(condition))                                                                                    \
            failAssertion(__FILE__, __LINE__);                                                               \
    } while (0)

#endif
