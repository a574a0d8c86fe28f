// Block checksums and the CRC family against the published check values
// over "123456789", including concurrent first use of the tables.

#include "tools.h"

#include <gtest/gtest.h>

#include <atomic>
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

struct CheckValue
{
    const char *what;
    unsigned int (*compute)();
    unsigned int expected;
};

const CheckValue checkValues[] = {
    { "CRC16Calculate", [] { return unsigned(CRC16Calculate(check, 9)); }, 0xBB3D },
    { "crc16 from FFFF", [] { return run(update_crc_16, 0xFFFF); }, 0x4B37 },
    { "ccitt from 0", [] { return run(update_crc_ccitt, 0); }, 0x31C3 },
    { "ccitt from FFFF", [] { return run(update_crc_ccitt, 0xFFFF); }, 0x29B1 },
    { "ccitt from 1D0F", [] { return run(update_crc_ccitt, 0x1D0F); }, 0xE5CC },
    { "kermit from 0", [] { return run(update_crc_kermit, 0); }, 0x2189 },
    { "dnp from 0", [] { return run(update_crc_dnp, 0); }, 0x157D },
    { "dnp complemented", [] { return run(update_crc_dnp, 0) ^ 0xFFFF; }, 0xEA82 },
    { "crc32", [] { return run(update_crc_32, 0xFFFFFFFFu) ^ 0xFFFFFFFFu; }, 0xCBF43926u },
    { "crc16 table entry 1", [] { return unsigned(update_crc_16(0, 1)); }, 0xC0C1 },
    { "ccitt table entry 1", [] { return unsigned(update_crc_ccitt(0, 1)); }, 0x1021 },
    { "kermit table entry 1", [] { return unsigned(update_crc_kermit(0, 1)); }, 0x1189 },
    { "dnp table entry 1", [] { return unsigned(update_crc_dnp(0, 1)); }, 0x365E },
    { "crc32 table entry 1", [] { return update_crc_32(0, 1); }, 0x77073096u },
};

TEST(Crc, CheckValues)
{
    for (const CheckValue &value : checkValues)
        EXPECT_EQ(value.compute(), value.expected) << value.what;
}

// Under CTest every test runs in its own process, so here the threads make
// the first calls and race to build the tables.
TEST(Crc, TablesBuiltConcurrentlyOnFirstUse)
{
    const int threadCount = 8;
    const int valueCount = sizeof checkValues / sizeof checkValues[0];
    std::atomic<int> ready(0);
    std::atomic<bool> go(false);
    std::vector<int> mismatches(threadCount, 0);
    std::vector<std::thread> threads;
    for (int t = 0; t < threadCount; ++t) {
        threads.emplace_back([&, t] {
            ++ready;
            while (!go.load())
                std::this_thread::yield();
            // Each thread starts at a different CRC, so that several tables
            // are built at once, and each by several threads.
            for (int k = 0; k < valueCount; ++k) {
                const CheckValue &value = checkValues[(t + k) % valueCount];
                mismatches[t] += value.compute() != value.expected;
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
}

TEST(CheckSum, SumsWrapAndEmptyGivesZero)
{
    EXPECT_EQ(UInt8CheckSum(check, 9), 0xDD);
    EXPECT_EQ(UShortCheckSum(check, 9), 0x01DD);
    EXPECT_EQ(XorUInt8CheckSum(check, 9), 0x31);
    const std::vector<unsigned char> ones(300, 0xFF);
    EXPECT_EQ(UShortCheckSum(ones.data(), 300), (300 * 0xFF) & 0xFFFF);
    for (int len : { 0, -1 }) {
        EXPECT_EQ(UInt8CheckSum(check, len) + UShortCheckSum(check, len) + XorUInt8CheckSum(check, len)
                + CRC16Calculate(check, len),
            0)
            << len;
    }
}

} // namespace
