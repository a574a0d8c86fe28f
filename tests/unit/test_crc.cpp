// Block checksums and the CRC family: one published check value over
// "123456789" per variant, also with the tables built concurrently.

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

const struct CheckValue
{
    const char *what;
    unsigned int (*compute)();
    unsigned int expected;
} checkValues[] = {
    { "CRC-16/ARC", [] { return unsigned(CRC16Calculate(check, 9)); }, 0xBB3D },
    { "XMODEM", [] { return run(update_crc_ccitt, 0); }, 0x31C3 },
    { "KERMIT", [] { return run(update_crc_kermit, 0); }, 0x2189 },
    { "DNP", [] { return run(update_crc_dnp, 0) ^ 0xFFFF; }, 0xEA82 },
    { "CRC-32", [] { return run(update_crc_32, 0xFFFFFFFFu) ^ 0xFFFFFFFFu; }, 0xCBF43926u },
};

// Under CTest every test runs in its own process, so here the threads make
// the first calls and race to build the tables; each starts at another CRC,
// so that several tables are built at once, and each by several threads.
TEST(Crc, CheckValuesWithTablesBuiltConcurrently)
{
    const int threadCount = 8, valueCount = sizeof checkValues / sizeof checkValues[0];
    std::atomic<int> ready(0);
    std::atomic<bool> go(false);
    std::vector<std::vector<unsigned>> got(threadCount, std::vector<unsigned>(valueCount));
    std::vector<std::thread> threads;
    for (int t = 0; t < threadCount; ++t)
        threads.emplace_back([&, t] {
            ++ready;
            while (!go.load())
                std::this_thread::yield();
            for (int k = 0; k < valueCount; ++k)
                got[t][(t + k) % valueCount] = checkValues[(t + k) % valueCount].compute();
        });
    while (ready.load() < threadCount)
        std::this_thread::yield();
    go = true;
    for (std::thread &thread : threads)
        thread.join();
    for (int t = 0; t < threadCount; ++t)
        for (int k = 0; k < valueCount; ++k)
            EXPECT_EQ(got[t][k], checkValues[k].expected) << checkValues[k].what << ", thread " << t;

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
    EXPECT_EQ(UInt8CheckSum(check, -1) + UShortCheckSum(check, 0) + XorUInt8CheckSum(check, -1)
            + CRC16Calculate(check, -1),
        0);
}

} // namespace
