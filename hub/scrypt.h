#pragma once

// The frame cipher of the local message hub: a keyed XOR stream with ciphertext chaining, a
// random first byte and a CRC-16 over the plain text, so that a receiver can tell a payload sealed
// with the same key from anything else. Not strong cryptography; both ends of the hub run this
// code, so every byte of the output is fixed.
//
// Output layout of encrypt(P, n): [1][r ^ K0][K1 ^ c1 ^ crcLow][crcHigh ^ K2 ^ c2][chained P...],
// n + 4 bytes. The result of encrypt/decrypt points into the object's buffer and stays valid until
// the next call on the same object. Not thread-safe: one object per hub, used on the hub's thread.
class SCrypt
{
public:
    SCrypt();
    ~SCrypt();
    SCrypt(const SCrypt &) = delete;
    SCrypt &operator=(const SCrypt &) = delete;

    // Makes `buffer` exactly `size` bytes (0 frees it); returns 1 if a buffer of size > 0 exists.
    int newBuffer(unsigned int size);

    // At most 24 bytes of `text` become the key; an empty text switches the cipher off.
    void setKey(const char *text);
    // The key is the Base64 text of `bytes`, cut to 24 characters. `variant` makes no difference.
    void setKey(const unsigned char *bytes, unsigned long length, bool variant);

    // CRC-16/CCITT-FALSE: polynomial 0x1021, start 0xFFFF, no reflection, no final XOR.
    static unsigned int crc16citt(const char *data, unsigned int length);

    // Returns length + 4 bytes, or null without a key or without data.
    char *encrypt(const char *data, unsigned int length);
    // Returns the zero-terminated plain text, or null when the input is not sealed with this key.
    char *decrypt(const char *data, unsigned int length);
    char *decrypt(const char *data, unsigned int length, int *plainLength);

    unsigned int bufferLength() const { return m_bufferLength; }
    unsigned long long keyLength() const { return m_keyLength; }
    const char *key() const { return m_key; }

private:
    static constexpr int KeySize = 24;

    char m_key[KeySize];
    unsigned long long m_keyLength = 0;
    unsigned char *m_buffer = nullptr;
    unsigned int m_bufferLength = 0;
};
