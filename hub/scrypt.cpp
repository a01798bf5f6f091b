#include "hub/scrypt.h"

#include <climits>
#include <cstdlib>
#include <cstring>
#include <ctime>

SCrypt::SCrypt()
{
    m_key[0] = 0;
    std::srand(unsigned(std::time(nullptr)));
}

SCrypt::~SCrypt()
{
    newBuffer(0);
}

int SCrypt::newBuffer(unsigned int size)
{
    if (size != m_bufferLength || !m_buffer) {
        delete[] m_buffer;
        m_buffer = nullptr;
        m_bufferLength = 0;
        if (size > 0) {
            m_buffer = new unsigned char[size];
            m_bufferLength = size;
        }
    }
    return (m_buffer && m_bufferLength > 0) ? 1 : 0;
}

void SCrypt::setKey(const char *text)
{
    if (!text)
        text = "";
    std::strncpy(m_key, text, KeySize);
    m_keyLength = strnlen(m_key, KeySize);
}

void SCrypt::setKey(const unsigned char *bytes, unsigned long length, bool variant)
{
    (void)variant; // both variants write the same text
    static const char alphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    char encoded[KeySize];
    unsigned long written = 0;
    auto put = [&](char c) {
        if (written < KeySize)
            encoded[written++] = c;
    };
    for (unsigned long i = 0; bytes && i < length && written < KeySize; i += 3) {
        const unsigned long left = length - i;
        const unsigned int b0 = bytes[i];
        const unsigned int b1 = left > 1 ? bytes[i + 1] : 0;
        const unsigned int b2 = left > 2 ? bytes[i + 2] : 0;
        const unsigned int triple = (b0 << 16) | (b1 << 8) | b2;
        put(alphabet[(triple >> 18) & 0x3F]);
        put(alphabet[(triple >> 12) & 0x3F]);
        put(left > 1 ? alphabet[(triple >> 6) & 0x3F] : '=');
        put(left > 2 ? alphabet[triple & 0x3F] : '=');
    }
    std::memcpy(m_key, encoded, written);
    if (written < KeySize)
        m_key[written] = 0;
    m_keyLength = written;
}

unsigned int SCrypt::crc16citt(const char *data, unsigned int length)
{
    unsigned int crc = 0xFFFF;
    for (unsigned int i = 0; data && i < length; ++i) {
        const unsigned char byte = static_cast<unsigned char>(data[i]);
        for (int bit = 7; bit >= 0; --bit) {
            const bool dataBit = (byte >> bit) & 1;
            const bool shiftedOut = (crc >> 15) & 1;
            crc = (crc << 1) & 0xFFFF;
            if (dataBit != shiftedOut)
                crc ^= 0x1021;
        }
    }
    return crc;
}

char *SCrypt::encrypt(const char *data, unsigned int length)
{
    if (m_key[0] == 0 || m_keyLength == 0 || !data || length == 0 || length > UINT_MAX - 4)
        return nullptr;
    if (!newBuffer(length + 4))
        return nullptr;
    const unsigned char *k = reinterpret_cast<const unsigned char *>(m_key);
    const unsigned char *p = reinterpret_cast<const unsigned char *>(data);
    unsigned char *c = m_buffer;
    const unsigned char r = static_cast<unsigned char>(std::rand() & 0xFF);
    const unsigned int crc = crc16citt(data, length);
    const unsigned long long offset = length % m_keyLength;

    c[0] = 1;
    c[1] = r ^ k[0];
    c[2] = k[1] ^ c[1] ^ static_cast<unsigned char>(crc & 0xFF);
    c[3] = static_cast<unsigned char>((crc >> 8) & 0xFF) ^ k[2] ^ c[2];
    unsigned char prev = c[3];
    for (unsigned int i = 0; i < length; ++i) {
        c[4 + i] = k[(offset + i) % m_keyLength] ^ p[i] ^ prev;
        prev = c[4 + i];
    }
    return reinterpret_cast<char *>(m_buffer);
}

char *SCrypt::decrypt(const char *data, unsigned int length)
{
    return decrypt(data, length, nullptr);
}

char *SCrypt::decrypt(const char *data, unsigned int length, int *plainLength)
{
    if (plainLength)
        *plainLength = 0;
    if (m_key[0] == 0 || m_keyLength == 0 || !data || length < 5 || data[0] != 1)
        return nullptr;
    if (!newBuffer(length - 3))
        return nullptr;
    const unsigned char *k = reinterpret_cast<const unsigned char *>(m_key);
    const unsigned char *c = reinterpret_cast<const unsigned char *>(data);
    unsigned char *p = m_buffer;
    const unsigned long long offset = (length - 4) % m_keyLength;
    const unsigned int low = c[1] ^ c[2] ^ k[1];
    const unsigned int high = c[2] ^ c[3] ^ k[2];

    unsigned char prev = c[3];
    for (unsigned int i = 0; i + 4 < length; ++i) {
        p[i] = k[(offset + i) % m_keyLength] ^ c[4 + i] ^ prev;
        prev = c[4 + i];
    }
    p[length - 4] = 0;
    const unsigned int plain = m_bufferLength - 1;
    if (crc16citt(reinterpret_cast<const char *>(p), plain) != ((high << 8) + low))
        return nullptr;
    if (plainLength)
        *plainLength = int(plain);
    return reinterpret_cast<char *>(m_buffer);
}
