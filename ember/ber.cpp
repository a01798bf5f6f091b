#include "ber.h"

#include "emberhooks.h"

#include <climits>
#include <cstring>

SBerTag berTag_make(unsigned char berClass, unsigned int number)
{
    SBerTag tag;
    tag.preamble = berClass;
    tag.number = number;
    return tag;
}

bertype_t berTag_numberAsType(SBerTag tag)
{
    if ((tag.preamble & BER_CLASS_MASK) == BerClass_Application)
        return BerType_ApplicationFlag | tag.number;
    return tag.number;
}

SBerTag berTag_fromType(bertype_t type)
{
    if ((type & BerType_ApplicationFlag) != 0)
        return berTag_make(BerClass_Application, type & ~static_cast<bertype_t>(BerType_ApplicationFlag));
    return berTag_make(BerClass_Universal, type);
}

bool berTag_isContainer(SBerTag tag)
{
    return (tag.preamble & BER_CONTAINER_FLAG) != 0;
}

SBerTag berTag_toContainer(SBerTag tag)
{
    tag.preamble |= BER_CONTAINER_FLAG;
    return tag;
}

unsigned char berTag_getClass(SBerTag tag)
{
    return tag.preamble & BER_CLASS_MASK;
}

bool berTag_equals(SBerTag a, SBerTag b)
{
    return berTag_getClass(a) == berTag_getClass(b) && a.number == b.number;
}

// Base-128 groups of a number, most significant first, continuation bit on all but the last.
static int encodeMultiByte(SBerOutput *pOut, unsigned int value)
{
    unsigned char groups[5];
    int count = 0;
    do {
        groups[count++] = static_cast<unsigned char>(value & 0x7F);
        value >>= 7;
    } while (value != 0 && count < 5);
    for (int i = count - 1; i >= 0; i--)
        pOut->writeByte(pOut, static_cast<unsigned char>(groups[i] | (i > 0 ? 0x80 : 0)));
    return count;
}

static int multiByteLength(unsigned int value)
{
    int count = 1;
    while (value >= 0x80) {
        value >>= 7;
        count++;
    }
    return count;
}

int ber_encodeTag(SBerOutput *pOut, SBerTag tag)
{
    if (tag.number < 31) {
        pOut->writeByte(pOut, static_cast<unsigned char>(tag.preamble | tag.number));
        return 1;
    }
    pOut->writeByte(pOut, static_cast<unsigned char>(tag.preamble | 31));
    return 1 + encodeMultiByte(pOut, tag.number);
}

int ber_getTagLength(SBerTag tag)
{
    return tag.number < 31 ? 1 : 1 + multiByteLength(tag.number);
}

int ber_getIntegerLength(int32_t value)
{
    return ber_getLongLength(value);
}

int ber_getLongLength(int64_t value)
{
    int length = 8;
    // An octet may go while the nine top bits of what is left are all equal.
    while (length > 1) {
        const int64_t top = value >> ((length - 1) * 8 - 1);
        if (top != 0 && top != -1)
            break;
        length--;
    }
    return length;
}

int ber_encodeLength(SBerOutput *pOut, int length)
{
    if (length < 0) {
        pOut->writeByte(pOut, 0x80);
        return 1;
    }
    if (length < 0x80) {
        pOut->writeByte(pOut, static_cast<unsigned char>(length));
        return 1;
    }
    const int octets = ber_getIntegerLength(length);
    pOut->writeByte(pOut, static_cast<unsigned char>(0x80 | octets));
    return 1 + ber_encodeInteger(pOut, length, octets);
}

int ber_getLengthLength(int length)
{
    if (length < 0x80)
        return 1;
    return 1 + ber_getIntegerLength(length);
}

int ber_getHeaderLength(SBerTag tag, int length)
{
    return ber_getTagLength(tag) + ber_getLengthLength(length);
}

int ber_encodeInteger(SBerOutput *pOut, int32_t value, int length)
{
    return ber_encodeLong(pOut, value, length);
}

int ber_encodeLong(SBerOutput *pOut, int64_t value, int length)
{
    if (length < 1)
        length = 1;
    if (length > 8)
        length = 8;
    const uint64_t bits = static_cast<uint64_t>(value);
    for (int i = length - 1; i >= 0; i--)
        pOut->writeByte(pOut, static_cast<unsigned char>(bits >> (i * 8)));
    return length;
}

int ber_encodeBoolean(SBerOutput *pOut, bool value)
{
    pOut->writeByte(pOut, value ? 0xFF : 0x00);
    return 1;
}

int ber_encodeString(SBerOutput *pOut, const char *pValue)
{
    const int length = pValue != nullptr ? static_cast<int>(strlen(pValue)) : 0;
    if (length > 0)
        pOut->writeBytes(pOut, reinterpret_cast<const unsigned char *>(pValue), length);
    return length;
}

int ber_encodeOctetString(SBerOutput *pOut, const unsigned char *pValue, int length)
{
    if (pValue == nullptr || length <= 0)
        return 0;
    pOut->writeBytes(pOut, pValue, length);
    return length;
}

int ber_encodeRelativeOid(SBerOutput *pOut, const int *pValues, int count)
{
    int written = 0;
    for (int i = 0; i < count; i++)
        written += encodeMultiByte(pOut, static_cast<unsigned int>(pValues[i]));
    return written;
}

int ber_getRelativeOidLength(const int *pValues, int count)
{
    int length = 0;
    for (int i = 0; i < count; i++)
        length += multiByteLength(static_cast<unsigned int>(pValues[i]));
    return length;
}

// The REAL form of this encoder: binary base 2, exponent = unbiased IEEE exponent, mantissa = the
// 53 significant bits stripped of their trailing zeros. The exponent is deliberately not adjusted
// for that stripping; ber_decodeReal reverses exactly this form, so our own peers agree, while a
// strict X.690 decoder reads a different number for anything but powers of two.
int ber_encodeReal(SBerOutput *pOut, double value)
{
    uint64_t bits;
    memcpy(&bits, &value, sizeof(bits));
    if (bits == 0)
        return 0;
    if (bits == 0x7FF0000000000000ULL) {
        pOut->writeByte(pOut, 0x40);
        return 1;
    }
    if (bits == 0x8FF0000000000000ULL) { // fixed pattern for minus infinity, kept as it is
        pOut->writeByte(pOut, 0x41);
        return 1;
    }
    const bool negative = (bits >> 63) != 0;
    const int32_t exponent = static_cast<int32_t>((bits >> 52) & 0x7FF) - 1023;
    uint64_t mantissa = (bits & 0x000FFFFFFFFFFFFFULL) | 0x0010000000000000ULL;
    while ((mantissa & 0xFF) == 0)
        mantissa >>= 8;
    while ((mantissa & 1) == 0)
        mantissa >>= 1;

    const int exponentLength = ber_getIntegerLength(exponent);
    int mantissaLength = 1;
    while (mantissaLength < 8 && (mantissa >> (mantissaLength * 8)) != 0)
        mantissaLength++;

    pOut->writeByte(pOut, static_cast<unsigned char>(0x80 | (negative ? 0x40 : 0) | (exponentLength - 1)));
    ber_encodeInteger(pOut, exponent, exponentLength);
    for (int i = mantissaLength - 1; i >= 0; i--)
        pOut->writeByte(pOut, static_cast<unsigned char>(mantissa >> (i * 8)));
    return 1 + exponentLength + mantissaLength;
}

SBerTag ber_decodeTag(SBerInput *pIn)
{
    const unsigned char first = pIn->readByte(pIn);
    SBerTag tag = berTag_make(first & 0xE0, first & 0x1F);
    if (tag.number != 31)
        return tag;
    unsigned int number = 0;
    for (int i = 0; i < 5; i++) {
        const unsigned char byte = pIn->readByte(pIn);
        number = (number << 7) | (byte & 0x7F);
        if ((byte & 0x80) == 0) {
            tag.number = number;
            return tag;
        }
    }
    ember_throwError(EmberError_TagOctetsOutOfBounds);
    tag.number = number;
    return tag;
}

int ber_decodeLength(SBerInput *pIn)
{
    const unsigned char first = pIn->readByte(pIn);
    if ((first & 0x80) == 0)
        return first;
    const int octets = first & 0x7F;
    if (octets == 0)
        return -1;
    if (octets > 4) {
        ember_throwError(EmberError_LengthOctetsOutOfBounds);
        return 0;
    }
    uint32_t length = 0;
    for (int i = 0; i < octets; i++)
        length = (length << 8) | pIn->readByte(pIn);
    if (length > static_cast<uint32_t>(INT_MAX)) {
        ember_throwError(EmberError_LengthOctetsOutOfBounds);
        return 0;
    }
    return static_cast<int>(length);
}

static int64_t decodeTwosComplement(SBerInput *pIn, int length)
{
    uint64_t bits = 0;
    for (int i = 0; i < length; i++) {
        const unsigned char byte = pIn->readByte(pIn);
        if (i == 0 && (byte & 0x80) != 0)
            bits = ~static_cast<uint64_t>(0); // sign from the first octet
        bits = (bits << 8) | byte;
    }
    return static_cast<int64_t>(bits);
}

int32_t ber_decodeInteger(SBerInput *pIn, int length)
{
    if (length < 1 || length > 4) {
        ember_throwError(EmberError_InvalidInteger);
        return 0;
    }
    return static_cast<int32_t>(decodeTwosComplement(pIn, length));
}

int64_t ber_decodeLong(SBerInput *pIn, int length)
{
    if (length < 1 || length > 8) {
        ember_throwError(EmberError_InvalidLong);
        return 0;
    }
    return decodeTwosComplement(pIn, length);
}

bool ber_decodeBoolean(SBerInput *pIn)
{
    return pIn->readByte(pIn) != 0;
}

static double doubleFromBits(uint64_t bits)
{
    double value;
    memcpy(&value, &bits, sizeof(value));
    return value;
}

double ber_decodeReal(SBerInput *pIn, int length)
{
    if (length <= 0)
        return 0.0;
    const unsigned char first = pIn->readByte(pIn);
    if (length == 1 && first == 0x40)
        return doubleFromBits(0x7FF0000000000000ULL);
    if (length == 1 && first == 0x41)
        return doubleFromBits(0xFFF0000000000000ULL);

    // Only the binary form with base 2, scale 0 and one to three exponent octets is ours.
    const int exponentLength = (first & 0x03) + 1;
    if ((first & 0x80) == 0 || (first & 0x3C) != 0 || exponentLength > 3 || length - 1 - exponentLength < 1 ||
        length - 1 - exponentLength > 7) {
        ember_throwError(EmberError_InvalidReal);
        for (int i = 1; i < length; i++)
            pIn->readByte(pIn);
        return 0.0;
    }
    const int64_t exponent = decodeTwosComplement(pIn, exponentLength);
    uint64_t mantissa = 0;
    for (int i = 0; i < length - 1 - exponentLength; i++)
        mantissa = (mantissa << 8) | pIn->readByte(pIn);

    const int64_t biased = exponent + 1023;
    if (mantissa == 0 || mantissa >= (1ULL << 53) || biased < 0 || biased > 0x7FF) {
        ember_throwError(EmberError_InvalidReal);
        return 0.0;
    }
    // Put the leading 1 back at bit 52; it is the implicit bit of the IEEE form.
    while ((mantissa & 0x0010000000000000ULL) == 0)
        mantissa <<= 1;
    uint64_t bits = (mantissa & 0x000FFFFFFFFFFFFFULL) | (static_cast<uint64_t>(biased) << 52);
    if ((first & 0x40) != 0)
        bits |= 0x8000000000000000ULL;
    return doubleFromBits(bits);
}

void ber_decodeString(SBerInput *pIn, char *pDest, int length)
{
    int i = 0;
    for (; i < length; i++)
        pDest[i] = static_cast<char>(pIn->readByte(pIn));
    pDest[i > 0 ? i : 0] = 0;
}

void ber_decodeOctetString(SBerInput *pIn, unsigned char *pDest, int length)
{
    for (int i = 0; i < length; i++)
        pDest[i] = pIn->readByte(pIn);
}

int ber_decodeRelativeOid(SBerInput *pIn, int *pDest, int capacity, int byteLength)
{
    int count = 0;
    int read = 0;
    while (count < capacity && read < byteLength) {
        uint32_t number = 0;
        int groups = 0;
        unsigned char byte;
        do {
            byte = pIn->readByte(pIn);
            read++;
            groups++;
            number = (number << 7) | (byte & 0x7F);
        } while ((byte & 0x80) != 0 && read < byteLength && groups < 5);
        // The last group of a number has no continuation bit; a number above INT_MAX is no path.
        if ((byte & 0x80) != 0 || number > static_cast<uint32_t>(INT_MAX)) {
            ember_throwError(EmberError_InvalidObjectIdentifier);
            break;
        }
        pDest[count++] = static_cast<int>(number);
    }
    return count;
}
