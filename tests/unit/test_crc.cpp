// Block checksums and the CRC family, checked against the published check
// values and against bit-by-bit reference implementations.

#include "tools.h"

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <thread>
#include <vector>

namespace {

const unsigned char check[] = { '1', '2', '3', '4', '5', '6', '7', '8', '9' };

template <typename Update> unsigned int run(Update update, unsigned int start)
{
    unsigned int crc = start;
    for (unsigned char c : check)
        crc = update(crc, c);
    return crc;
}

// Bit-by-bit forms of the same CRCs, without tables.
unsigned short reflected16(unsigned short crc, unsigned char c, unsigned short polynomial)
{
    crc ^= c;
    for (int bit = 0; bit < 8; ++bit)
        crc = (crc & 1) ? static_cast<unsigned short>((crc >> 1) ^ polynomial)
                        : static_cast<unsigned short>(crc >> 1);
    return crc;
}

unsigned short ccittBitwise(unsigned short crc, unsigned char c)
{
    crc ^= static_cast<unsigned short>(c << 8);
    for (int bit = 0; bit < 8; ++bit)
        crc = (crc & 0x8000) ? static_cast<unsigned short>((crc << 1) ^ 0x1021)
                             : static_cast<unsigned short>(crc << 1);
    return crc;
}

unsigned int crc32Bitwise(unsigned int crc, unsigned char c)
{
    crc ^= c;
    for (int bit = 0; bit < 8; ++bit)
        crc = (crc & 1) ? (crc >> 1) ^ 0xEDB88320u : crc >> 1;
    return crc;
}

struct Family
{
    const char *name;
    std::function<unsigned int(unsigned int, unsigned char)> table;
    std::function<unsigned int(unsigned int, unsigned char)> bitwise;
    unsigned int mask;
};

std::vector<Family> families()
{
    return {
        { "crc16", [](unsigned int r, unsigned char c) { return unsigned(update_crc_16(r, c)); },
            [](unsigned int r, unsigned char c) { return unsigned(reflected16(r, c, 0xA001)); }, 0xFFFF },
        { "ccitt", [](unsigned int r, unsigned char c) { return unsigned(update_crc_ccitt(r, c)); },
            [](unsigned int r, unsigned char c) { return unsigned(ccittBitwise(r, c)); }, 0xFFFF },
        { "kermit", [](unsigned int r, unsigned char c) { return unsigned(update_crc_kermit(r, c)); },
            [](unsigned int r, unsigned char c) { return unsigned(reflected16(r, c, 0x8408)); }, 0xFFFF },
        { "dnp", [](unsigned int r, unsigned char c) { return unsigned(update_crc_dnp(r, c)); },
            [](unsigned int r, unsigned char c) { return unsigned(reflected16(r, c, 0xA6BC)); }, 0xFFFF },
        { "crc32", [](unsigned int r, unsigned char c) { return update_crc_32(r, c); }, crc32Bitwise,
            0xFFFFFFFFu },
    };
}

// Every byte value from a spread of registers; a wrong table entry or step
// shows up as a mismatch with the bitwise form.
bool agreesWithBitwise(const Family &family)
{
    const unsigned int registers[] = { 0, 1, 0x8000, 0xFFFF, 0x1D0F, 0x12345678u, 0xFFFFFFFFu };
    for (unsigned int start : registers) {
        const unsigned int r = start & family.mask;
        for (int c = 0; c < 256; ++c) {
            if (family.table(r, static_cast<unsigned char>(c))
                != family.bitwise(r, static_cast<unsigned char>(c)))
                return false;
        }
    }
    return true;
}

TEST(Crc, CheckValuesOver123456789)
{
    struct Row
    {
        const char *what;
        unsigned int value;
        unsigned int expected;
    } rows[] = {
        { "CRC16Calculate", CRC16Calculate(check, 9), 0xBB3D },
        { "crc16 from FFFF", run(update_crc_16, 0xFFFF), 0x4B37 },
        { "ccitt from 0", run(update_crc_ccitt, 0), 0x31C3 },
        { "ccitt from FFFF", run(update_crc_ccitt, 0xFFFF), 0x29B1 },
        { "ccitt from 1D0F", run(update_crc_ccitt, 0x1D0F), 0xE5CC },
        { "kermit from 0", run(update_crc_kermit, 0), 0x2189 },
        { "dnp from 0", run(update_crc_dnp, 0), 0x157D },
        { "dnp complemented", run(update_crc_dnp, 0) ^ 0xFFFF, 0xEA82 },
        { "crc32", run(update_crc_32, 0xFFFFFFFFu) ^ 0xFFFFFFFFu, 0xCBF43926u },
    };
    for (const Row &row : rows)
        EXPECT_EQ(row.value, row.expected) << row.what;
}

TEST(Crc, FirstTableEntries)
{
    EXPECT_EQ(update_crc_16(0, 1), 0xC0C1);
    EXPECT_EQ(update_crc_ccitt(0, 1), 0x1021);
    EXPECT_EQ(update_crc_kermit(0, 1), 0x1189);
    EXPECT_EQ(update_crc_dnp(0, 1), 0x365E);
    EXPECT_EQ(update_crc_32(0, 1), 0x77073096u);
}

TEST(Crc, TablesAgreeWithBitwiseForms)
{
    for (const Family &family : families())
        EXPECT_TRUE(agreesWithBitwise(family)) << family.name;
}

// Under CTest every test runs in its own process, so here the threads make
// the first calls and race to build the tables.
TEST(Crc, TablesBuiltConcurrentlyOnFirstUse)
{
    const std::vector<Family> all = families();
    const int threadCount = 8;
    std::atomic<int> ready(0);
    std::atomic<bool> go(false);
    std::vector<int> mismatches(threadCount, 0);
    std::vector<std::thread> threads;
    for (int t = 0; t < threadCount; ++t) {
        threads.emplace_back([&, t] {
            ++ready;
            while (!go.load())
                std::this_thread::yield();
            // Each thread starts with a different CRC, so that several tables
            // are built at once as well as each by several threads.
            for (size_t k = 0; k < all.size(); ++k) {
                const Family &family = all[(t + k) % all.size()];
                if (!agreesWithBitwise(family))
                    ++mismatches[t];
            }
        });
    }
    while (ready.load() < threadCount)
        std::this_thread::yield();
    go = true;
    for (std::thread &thread : threads)
        thread.join();
    for (int t = 0; t < threadCount; ++t)
        EXPECT_EQ(mismatches[t], 0) << "thread " << t;
}

TEST(Crc, Sick)
{
    EXPECT_EQ(update_crc_sick(0x8001, 0x12, 0x34), 0xB415) << "bit 15 set: polynomial folded in";
    EXPECT_EQ(update_crc_sick(0x4001, 0x12, 0x34), 0xB410) << "bit 15 clear: shift only";
    EXPECT_EQ(update_crc_sick(0xFFFF, 0, 0), 0x7FFB) << "cut to 16 bits";
}

TEST(CheckSum, Sums)
{
    EXPECT_EQ(UInt8CheckSum(check, 9), 0xDD);
    EXPECT_EQ(UShortCheckSum(check, 9), 0x01DD);
    EXPECT_EQ(XorUInt8CheckSum(check, 9), 0x31);

    std::vector<unsigned char> ones(300, 0xFF);
    EXPECT_EQ(UShortCheckSum(ones.data(), 300), (300 * 0xFF) & 0xFFFF);
    EXPECT_EQ(UInt8CheckSum(ones.data(), 300), (300 * 0xFF) & 0xFF);
}

TEST(CheckSum, NothingCoveredGivesZero)
{
    for (int len : { 0, -1, -100 }) {
        EXPECT_EQ(UInt8CheckSum(check, len), 0) << len;
        EXPECT_EQ(UShortCheckSum(check, len), 0) << len;
        EXPECT_EQ(XorUInt8CheckSum(check, len), 0) << len;
        EXPECT_EQ(CRC16Calculate(check, len), 0) << len;
    }
    EXPECT_EQ(CRC16Calculate(nullptr, 9), 0);
}

} // namespace
