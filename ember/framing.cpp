#include "framing.h"

#include "emberhooks.h"

#include <cstring>

// Reflected CRC-16/CCITT (polynomial 0x8408), one table entry per byte value.
static const uint16_t s_crcTable[256] = {
    0x0000, 0x1189, 0x2312, 0x329B, 0x4624, 0x57AD, 0x6536, 0x74BF, 0x8C48, 0x9DC1, 0xAF5A, 0xBED3, 0xCA6C,
    0xDBE5, 0xE97E, 0xF8F7, 0x1081, 0x0108, 0x3393, 0x221A, 0x56A5, 0x472C, 0x75B7, 0x643E, 0x9CC9, 0x8D40,
    0xBFDB, 0xAE52, 0xDAED, 0xCB64, 0xF9FF, 0xE876, 0x2102, 0x308B, 0x0210, 0x1399, 0x6726, 0x76AF, 0x4434,
    0x55BD, 0xAD4A, 0xBCC3, 0x8E58, 0x9FD1, 0xEB6E, 0xFAE7, 0xC87C, 0xD9F5, 0x3183, 0x200A, 0x1291, 0x0318,
    0x77A7, 0x662E, 0x54B5, 0x453C, 0xBDCB, 0xAC42, 0x9ED9, 0x8F50, 0xFBEF, 0xEA66, 0xD8FD, 0xC974, 0x4204,
    0x538D, 0x6116, 0x709F, 0x0420, 0x15A9, 0x2732, 0x36BB, 0xCE4C, 0xDFC5, 0xED5E, 0xFCD7, 0x8868, 0x99E1,
    0xAB7A, 0xBAF3, 0x5285, 0x430C, 0x7197, 0x601E, 0x14A1, 0x0528, 0x37B3, 0x263A, 0xDECD, 0xCF44, 0xFDDF,
    0xEC56, 0x98E9, 0x8960, 0xBBFB, 0xAA72, 0x6306, 0x728F, 0x4014, 0x519D, 0x2522, 0x34AB, 0x0630, 0x17B9,
    0xEF4E, 0xFEC7, 0xCC5C, 0xDDD5, 0xA96A, 0xB8E3, 0x8A78, 0x9BF1, 0x7387, 0x620E, 0x5095, 0x411C, 0x35A3,
    0x242A, 0x16B1, 0x0738, 0xFFCF, 0xEE46, 0xDCDD, 0xCD54, 0xB9EB, 0xA862, 0x9AF9, 0x8B70, 0x8408, 0x9581,
    0xA71A, 0xB693, 0xC22C, 0xD3A5, 0xE13E, 0xF0B7, 0x0840, 0x19C9, 0x2B52, 0x3ADB, 0x4E64, 0x5FED, 0x6D76,
    0x7CFF, 0x9489, 0x8500, 0xB79B, 0xA612, 0xD2AD, 0xC324, 0xF1BF, 0xE036, 0x18C1, 0x0948, 0x3BD3, 0x2A5A,
    0x5EE5, 0x4F6C, 0x7DF7, 0x6C7E, 0xA50A, 0xB483, 0x8618, 0x9791, 0xE32E, 0xF2A7, 0xC03C, 0xD1B5, 0x2942,
    0x38CB, 0x0A50, 0x1BD9, 0x6F66, 0x7EEF, 0x4C74, 0x5DFD, 0xB58B, 0xA402, 0x9699, 0x8710, 0xF3AF, 0xE226,
    0xD0BD, 0xC134, 0x39C3, 0x284A, 0x1AD1, 0x0B58, 0x7FE7, 0x6E6E, 0x5CF5, 0x4D7C, 0xC60C, 0xD785, 0xE51E,
    0xF497, 0x8028, 0x91A1, 0xA33A, 0xB2B3, 0x4A44, 0x5BCD, 0x6956, 0x78DF, 0x0C60, 0x1DE9, 0x2F72, 0x3EFB,
    0xD68D, 0xC704, 0xF59F, 0xE416, 0x90A9, 0x8120, 0xB3BB, 0xA232, 0x5AC5, 0x4B4C, 0x79D7, 0x685E, 0x1CE1,
    0x0D68, 0x3FF3, 0x2E7A, 0xE70E, 0xF687, 0xC41C, 0xD595, 0xA12A, 0xB0A3, 0x8238, 0x93B1, 0x6B46, 0x7ACF,
    0x4854, 0x59DD, 0x2D62, 0x3CEB, 0x0E70, 0x1FF9, 0xF78F, 0xE606, 0xD49D, 0xC514, 0xB1AB, 0xA022, 0x92B9,
    0x8330, 0x7BC7, 0x6A4E, 0x58D5, 0x495C, 0x3DE3, 0x2C6A, 0x1EF1, 0x0F78,
};

uint16_t emberFraming_crcUpdate(uint16_t crc, unsigned char byte)
{
    return static_cast<uint16_t>((crc >> 8) ^ s_crcTable[(crc ^ byte) & 0xFF]);
}

// Writes one byte of the frame body, escaped if it is one of the framing bytes.
static void writeEscaped(SBerMemoryOutput *pMemory, unsigned char byte)
{
    if (byte >= S101_INVALID) {
        berMemoryOutput_writeByte(&pMemory->base, S101_CE);
        berMemoryOutput_writeByte(&pMemory->base, static_cast<unsigned char>(byte ^ S101_XOR));
    } else {
        berMemoryOutput_writeByte(&pMemory->base, byte);
    }
}

void berFramingOutput_init(SBerFramingOutput *pThis, unsigned char *pMemory, int size, unsigned char slot,
                           unsigned char dtd, const unsigned char *pAppBytes, unsigned char appBytesCount)
{
    berMemoryOutput_init(&pThis->base, pMemory, size > S101_MAX_FRAME ? S101_MAX_FRAME : size);
    pThis->base.base.writeByte = berFramingOutput_writeByte;
    pThis->base.base.writeBytes = berFramingOutput_writeBytes;
    pThis->crc = 0xFFFF;
    pThis->slot = slot;
    pThis->dtd = dtd;
    pThis->pAppBytes = pAppBytes;
    pThis->appBytesCount = pAppBytes != nullptr ? appBytesCount : 0;
}

void berFramingOutput_writeByte(SBerOutput *pBase, unsigned char byte)
{
    SBerFramingOutput *pThis = reinterpret_cast<SBerFramingOutput *>(pBase);
    pThis->crc = emberFraming_crcUpdate(pThis->crc, byte);
    writeEscaped(&pThis->base, byte);
}

void berFramingOutput_writeBytes(SBerOutput *pBase, const unsigned char *pBytes, int count)
{
    for (int i = 0; i < count; i++)
        berFramingOutput_writeByte(pBase, pBytes[i]);
}

void berFramingOutput_writeHeader(SBerFramingOutput *pThis, unsigned char flags)
{
    SBerOutput *pOut = &pThis->base.base;
    pThis->crc = 0xFFFF;
    berMemoryOutput_writeByte(&pThis->base.base, S101_BOF);
    // Data packages always go to slot 0; the slot is used by keep-alives only.
    const unsigned char header[] = {0x00,  S101_MESSAGE_EMBER, S101_COMMAND_EMBER, S101_VERSION,
                                    flags, pThis->dtd};
    berFramingOutput_writeBytes(pOut, header, sizeof(header));
    if (pThis->appBytesCount > 0) {
        berFramingOutput_writeByte(pOut, pThis->appBytesCount);
        berFramingOutput_writeBytes(pOut, pThis->pAppBytes, pThis->appBytesCount);
    } else {
        berFramingOutput_writeByte(pOut, 0);
    }
}

int berFramingOutput_finish(SBerFramingOutput *pThis)
{
    const uint16_t crc = static_cast<uint16_t>(~pThis->crc);
    writeEscaped(&pThis->base, static_cast<unsigned char>(crc & 0xFF));
    writeEscaped(&pThis->base, static_cast<unsigned char>(crc >> 8));
    berMemoryOutput_writeByte(&pThis->base.base, S101_EOF);
    const int length = pThis->base.position;
    pThis->base.position = 0;
    return length;
}

void berFramingOutput_free(SBerFramingOutput *pThis)
{
    memset(pThis, 0, sizeof(*pThis));
}

static int writeKeepAlive(unsigned char *pBuffer, int size, unsigned char slot, unsigned char command)
{
    // BOF, four header bytes and the CRC, each of them escaped at worst, and EOF.
    if (pBuffer == nullptr || size < 1 + 2 * 6 + 1)
        return 0;
    SBerMemoryOutput output;
    berMemoryOutput_init(&output, pBuffer, size);
    const unsigned char header[] = {slot, S101_MESSAGE_EMBER, command, S101_VERSION};
    uint16_t crc = 0xFFFF;
    berMemoryOutput_writeByte(&output.base, S101_BOF);
    for (unsigned char byte : header) {
        crc = emberFraming_crcUpdate(crc, byte);
        writeEscaped(&output, byte);
    }
    crc = static_cast<uint16_t>(~crc);
    writeEscaped(&output, static_cast<unsigned char>(crc & 0xFF));
    writeEscaped(&output, static_cast<unsigned char>(crc >> 8));
    berMemoryOutput_writeByte(&output.base, S101_EOF);
    return output.position;
}

int emberFraming_writeKeepAliveRequest(unsigned char *pBuffer, int size, unsigned char slot)
{
    return writeKeepAlive(pBuffer, size, slot, S101_COMMAND_KEEPALIVE_REQUEST);
}

int emberFraming_writeKeepAliveResponse(unsigned char *pBuffer, int size, unsigned char slot)
{
    return writeKeepAlive(pBuffer, size, slot, S101_COMMAND_KEEPALIVE_RESPONSE);
}

void emberFramingReader_init(SEmberFramingReader *pThis, unsigned char *pMemory, int size,
                             emberFramingReader_onPackage_t onPackage, void *state)
{
    byteBuffer_init(&pThis->buffer, pMemory, size);
    pThis->isEscaped = false;
    pThis->crc = 0xFFFF;
    pThis->onPackage = onPackage;
    pThis->state = state;
}

void emberFramingReader_reset(SEmberFramingReader *pThis)
{
    byteBuffer_reset(&pThis->buffer);
    pThis->isEscaped = false;
    pThis->crc = 0xFFFF;
}

void emberFramingReader_readBytes(SEmberFramingReader *pThis, const unsigned char *pBytes, int count)
{
    for (int i = 0; i < count; i++) {
        unsigned char byte = pBytes[i];
        if (byte == S101_BOF) {
            emberFramingReader_reset(pThis);
            byteBuffer_add(&pThis->buffer, byte);
            continue;
        }
        if (pThis->buffer.length == 0)
            continue; // outside a frame
        if (byte == S101_EOF) {
            // At least BOF and the two CRC bytes, so that the package length is never negative.
            if (pThis->buffer.length >= 3 && pThis->crc == S101_CRC_GOOD && pThis->onPackage != nullptr)
                pThis->onPackage(pThis->buffer.pMemory + 1, pThis->buffer.length - 3, pThis->state);
            emberFramingReader_reset(pThis);
            continue;
        }
        if (byte == S101_CE) {
            pThis->isEscaped = true;
            continue;
        }
        if (byte >= S101_INVALID) {
            emberFramingReader_reset(pThis);
            continue;
        }
        if (pThis->isEscaped) {
            pThis->isEscaped = false;
            byte ^= S101_XOR;
        }
        // A byte that does not fit is lost (and reported), but still counts for the CRC.
        byteBuffer_add(&pThis->buffer, byte);
        pThis->crc = emberFraming_crcUpdate(pThis->crc, byte);
    }
}

void emberFramingReader_free(SEmberFramingReader *pThis)
{
    byteBuffer_free(&pThis->buffer);
    memset(pThis, 0, sizeof(*pThis));
}
