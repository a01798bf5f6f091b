// Fuzz target for what the hub reads from a client before anything else: SCrypt::decrypt.
//
// The first input byte picks the mode and the key:
//   mode 0: the rest is given to decrypt as it came (nearly always refused by the CRC);
//   mode 1: the rest is sealed with encrypt first and must decrypt back to itself, and with one
//           byte changed (position and value from the input's second and third bytes) decrypt must
//           either refuse it or give back a plain text of the right length.
// Every plain text given back must be zero-terminated at its length and lie in the object's
// buffer; the input is a heap copy of exactly its size so that ASan guards its end.

#include "hub/scrypt.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace {

volatile unsigned s_sink;

void checkPlain(const SCrypt &cipher, const char *plain, int length, unsigned int cipherLength)
{
    if (!plain)
        return;
    if (length < 0 || unsigned(length) + 4 != cipherLength || unsigned(length) + 1 != cipher.bufferLength() ||
        plain[length] != 0)
        abort();
    for (int i = 0; i < length; ++i)
        s_sink += static_cast<unsigned char>(plain[i]);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size < 3 || size > 1 << 16)
        return 0;
    static const char *const keys[] = {"k", "VXMANAGERQT", "a key of exactly 24 chars",
                                       "a key longer than twenty-four characters"};
    const int mode = data[0] & 1;
    SCrypt cipher;
    if (data[0] & 8) {
        const unsigned char bytes[] = {0x00, 0xFF, 0x10, 0x80, 0x7F};
        cipher.setKey(bytes, 1 + (data[0] >> 4) % 5, true);
    } else {
        cipher.setKey(keys[(data[0] >> 1) % 4]);
    }
    const size_t at = data[1];
    const char flip = char(data[2] == 0 ? 1 : data[2]);
    data += 3;
    size -= 3;

    if (mode == 0) {
        char *input = static_cast<char *>(malloc(size ? size : 1));
        memcpy(input, data, size);
        int length = -1;
        const char *plain = cipher.decrypt(input, unsigned(size), &length);
        checkPlain(cipher, plain, length, unsigned(size));
        free(input);
        return 0;
    }

    if (size == 0)
        return 0;
    const char *sealed = cipher.encrypt(reinterpret_cast<const char *>(data), unsigned(size));
    if (!sealed)
        abort(); // a key is set and there are data
    const unsigned int sealedLength = unsigned(size) + 4;
    char *copy = static_cast<char *>(malloc(sealedLength));
    memcpy(copy, sealed, sealedLength);

    int length = -1;
    const char *plain = cipher.decrypt(copy, sealedLength, &length);
    if (!plain || size_t(length) != size || memcmp(plain, data, size) != 0)
        abort(); // the round trip must give back what was sealed
    checkPlain(cipher, plain, length, sealedLength);

    copy[at % sealedLength] ^= flip;
    plain = cipher.decrypt(copy, sealedLength, &length);
    checkPlain(cipher, plain, length, sealedLength);
    free(copy);
    return 0;
}
