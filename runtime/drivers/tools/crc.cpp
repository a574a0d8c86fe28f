// Block checksums and the per-byte CRC family.
//
// Each CRC has its own 256-entry table, built by the first call of its update
// function. The build runs as the initialiser of a function-local static (the
// table's init flag): the compiler guards it, so a second thread that arrives
// during the build waits until the table is complete, and later calls cost
// one load of the flag.

#include "tools.h"

namespace {

quint16 crc_tab16[256];
quint16 crc_tabccitt[256];
quint16 crc_tabkermit[256];
quint16 crc_tabdnp[256];
quint32 crc_tab32[256];

// Table of a reflected (least significant bit first) 16-bit CRC.
bool buildReflected16(quint16 *table, quint16 polynomial)
{
    for (unsigned int i = 0; i < 256; ++i) {
        quint16 crc = 0;
        unsigned int c = i;
        for (int bit = 0; bit < 8; ++bit) {
            if ((crc ^ c) & 0x0001)
                crc = static_cast<quint16>((crc >> 1) ^ polynomial);
            else
                crc = static_cast<quint16>(crc >> 1);
            c >>= 1;
        }
        table[i] = crc;
    }
    return true;
}

bool buildCcitt(quint16 *table)
{
    for (unsigned int i = 0; i < 256; ++i) {
        quint16 crc = 0;
        quint16 c = static_cast<quint16>(i << 8);
        for (int bit = 0; bit < 8; ++bit) {
            if ((crc ^ c) & 0x8000)
                crc = static_cast<quint16>((crc << 1) ^ 0x1021);
            else
                crc = static_cast<quint16>(crc << 1);
            c = static_cast<quint16>(c << 1);
        }
        table[i] = crc;
    }
    return true;
}

bool buildCrc32(quint32 *table)
{
    for (quint32 i = 0; i < 256; ++i) {
        quint32 crc = i;
        for (int bit = 0; bit < 8; ++bit) {
            if (crc & 1)
                crc = (crc >> 1) ^ 0xEDB88320u;
            else
                crc >>= 1;
        }
        table[i] = crc;
    }
    return true;
}

unsigned short reflectedStep(const quint16 *table, unsigned short crc, unsigned char c)
{
    return static_cast<unsigned short>(table[(crc ^ c) & 0xFF] ^ (crc >> 8));
}

} // namespace

unsigned char UInt8CheckSum(const unsigned char *data, int len)
{
    unsigned char sum = 0;
    for (int i = 0; data && i < len; ++i)
        sum = static_cast<unsigned char>(sum + data[i]);
    return sum;
}

unsigned short UShortCheckSum(const unsigned char *data, int len)
{
    unsigned short sum = 0;
    for (int i = 0; data && i < len; ++i)
        sum = static_cast<unsigned short>(sum + data[i]);
    return sum;
}

unsigned char XorUInt8CheckSum(const unsigned char *data, int len)
{
    unsigned char x = 0;
    for (int i = 0; data && i < len; ++i)
        x ^= data[i];
    return x;
}

unsigned short CRC16Calculate(const unsigned char *data, int len)
{
    unsigned short crc = 0;
    for (int i = 0; data && i < len; ++i)
        crc = update_crc_16(crc, data[i]);
    return crc;
}

extern "C" {

unsigned short update_crc_16(unsigned short crc, unsigned char c)
{
    static const bool crc_tab16_init = buildReflected16(crc_tab16, 0xA001);
    (void)crc_tab16_init;
    return reflectedStep(crc_tab16, crc, c);
}

unsigned short update_crc_ccitt(unsigned short crc, unsigned char c)
{
    static const bool crc_tabccitt_init = buildCcitt(crc_tabccitt);
    (void)crc_tabccitt_init;
    return static_cast<unsigned short>(crc_tabccitt[((crc >> 8) ^ c) & 0xFF] ^ (crc << 8));
}

unsigned short update_crc_kermit(unsigned short crc, unsigned char c)
{
    static const bool crc_tabkermit_init = buildReflected16(crc_tabkermit, 0x8408);
    (void)crc_tabkermit_init;
    return reflectedStep(crc_tabkermit, crc, c);
}

unsigned short update_crc_dnp(unsigned short crc, unsigned char c)
{
    static const bool crc_tabdnp_init = buildReflected16(crc_tabdnp, 0xA6BC);
    (void)crc_tabdnp_init;
    return reflectedStep(crc_tabdnp, crc, c);
}

unsigned int update_crc_32(unsigned int crc, unsigned char c)
{
    static const bool crc_tab32_init = buildCrc32(crc_tab32);
    (void)crc_tab32_init;
    return crc_tab32[(crc ^ c) & 0xFF] ^ (crc >> 8);
}

unsigned short update_crc_sick(unsigned short crc, unsigned char c, unsigned char previousByte)
{
    unsigned short shifted = static_cast<unsigned short>(crc << 1);
    if (crc & 0x8000)
        shifted ^= 0x8005;
    return static_cast<unsigned short>(shifted ^ ((previousByte << 8) | c));
}

} // extern "C"
