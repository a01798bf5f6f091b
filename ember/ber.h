#ifndef EMBER_BER_H
#define EMBER_BER_H

#include "berio.h"

#include <cstdint>

// BER tags, lengths and values as the Ember+ encoding uses them (ITU-T X.690 subset): every field
// is an outer context or application tag wrapping one universal value or a container.

typedef unsigned int bertype_t;

enum EBerClass
{
    BerClass_Universal = 0x00,
    BerClass_Application = 0x40,
    BerClass_Context = 0x80,
    BerClass_Private = 0xC0,
};

#define BER_CLASS_MASK 0xC0
#define BER_CONTAINER_FLAG 0x20

// Universal type numbers used by the Ember+ encoding.
enum EBerType
{
    BerType_EndOfContents = 0,
    BerType_Boolean = 1,
    BerType_Integer = 2,
    BerType_OctetString = 4,
    BerType_Null = 5,
    BerType_ObjectIdentifier = 6,
    BerType_Real = 9,
    BerType_UTF8String = 12,
    BerType_RelativeOid = 13,
    BerType_Sequence = 16,
    BerType_Set = 17,
    // An APPLICATION tag number n used as a type is 0x8000 | n.
    BerType_ApplicationFlag = 0x8000,
};

typedef struct SBerTag
{
    unsigned char preamble; // class in the top two bits, constructed bit 0x20
    unsigned int number;
} SBerTag;

SBerTag berTag_make(unsigned char berClass, unsigned int number);
// Universal tags give their number, APPLICATION tags 0x8000 | number.
bertype_t berTag_numberAsType(SBerTag tag);
SBerTag berTag_fromType(bertype_t type); // the inverse, as a constructed-less tag
bool berTag_isContainer(SBerTag tag);
SBerTag berTag_toContainer(SBerTag tag);
unsigned char berTag_getClass(SBerTag tag);
bool berTag_equals(SBerTag a, SBerTag b); // class and number; the constructed bit is ignored

// Encoding: every function returns the number of bytes written.
int ber_encodeTag(SBerOutput *pOut, SBerTag tag);
int ber_encodeLength(SBerOutput *pOut, int length); // -1 is the indefinite form
int ber_encodeInteger(SBerOutput *pOut, int32_t value, int length);
int ber_encodeLong(SBerOutput *pOut, int64_t value, int length);
int ber_encodeBoolean(SBerOutput *pOut, bool value);
int ber_encodeString(SBerOutput *pOut, const char *pValue); // without the terminating zero
int ber_encodeOctetString(SBerOutput *pOut, const unsigned char *pValue, int length);
int ber_encodeRelativeOid(SBerOutput *pOut, const int *pValues, int count);
int ber_encodeReal(SBerOutput *pOut, double value);

// Sizes, for writing definite lengths before the contents.
int ber_getTagLength(SBerTag tag);
int ber_getLengthLength(int length);
int ber_getIntegerLength(int32_t value); // fewest two's-complement octets, 1..4
int ber_getLongLength(int64_t value);    // 1..8
int ber_getRelativeOidLength(const int *pValues, int count);
int ber_getHeaderLength(SBerTag tag, int length);

// Decoding. Errors go through the error hook; the functions then return what they have.
SBerTag ber_decodeTag(SBerInput *pIn);
int ber_decodeLength(SBerInput *pIn); // -1 for the indefinite form
int32_t ber_decodeInteger(SBerInput *pIn, int length);
int64_t ber_decodeLong(SBerInput *pIn, int length);
bool ber_decodeBoolean(SBerInput *pIn);
double ber_decodeReal(SBerInput *pIn, int length);
// Copies length bytes into pDest and terminates them: pDest holds length + 1 bytes.
void ber_decodeString(SBerInput *pIn, char *pDest, int length);
void ber_decodeOctetString(SBerInput *pIn, unsigned char *pDest, int length);
// Reads numbers until capacity numbers or byteLength bytes are read; returns the count.
int ber_decodeRelativeOid(SBerInput *pIn, int *pDest, int capacity, int byteLength);

#endif
