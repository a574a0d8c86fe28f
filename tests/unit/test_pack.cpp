// The pack/unpack format language: the three engines agree on every type,
// and wrong formats give their defined results without touching memory
// they were not given.

#include "hex.h"
#include "tools.h"

#include <gtest/gtest.h>

#include <cstring>

namespace {

// A buffer with a guard pattern, so that bytes written beyond what an engine
// reports, or under an "X", show up.
struct Buffer
{
    unsigned char bytes[48];
    Buffer() { std::memset(bytes, 0xEE, sizeof bytes); }
    std::string first(int n) const { return toHex(QByteArray(reinterpret_cast<const char *>(bytes), n)); }
};

TEST(Pack, EverySingleTypeInAllEngines)
{
    const char *format = "cCsSvniIlLVNxX";
    const char *packed = "34 FF 56 34 34 12 34 12 12 34 0D 0C 0B 0A FE FF FF FF "
                         "04 03 02 01 04 03 02 01 04 03 02 01 0A 0B 0C 0D 00";
    Buffer buffer;
    EXPECT_EQ(DataPack(buffer.bytes, format, 0x1234, 0xFF, 0x123456, 0x1234, 0x1234, 0x1234, 0x0A0B0C0D, -2,
                  0x01020304, 0x01020304, 0x01020304, 0x0A0B0C0D),
        36);
    EXPECT_EQ(buffer.first(37), std::string(packed) + " EE EE") << "X steps over its byte";
    const QByteArray array = ByteArrayPack(format, 0x1234, 0xFF, 0x123456, 0x1234, 0x1234, 0x1234, 0x0A0B0C0D,
        -2, 0x01020304, 0x01020304, 0x01020304, 0x0A0B0C0D);
    EXPECT_EQ(toHex(array), std::string(packed) + " 00") << "the array's X byte is zero";

    quint8 c[2] = {};
    quint16 s[4] = {};
    quint32 i[6] = {};
    EXPECT_EQ(DataUnpack(reinterpret_cast<const unsigned char *>(array.constData()), format, &c[0], &c[1],
                  &s[0], &s[1], &s[2], &s[3], &i[0], &i[1], &i[2], &i[3], &i[4], &i[5]),
        36);
    EXPECT_EQ(c[0], 0x34);
    EXPECT_EQ(c[1], 0xFF);
    EXPECT_EQ(s[0], 0x3456) << "low 16 bits";
    for (int k = 1; k < 4; ++k)
        EXPECT_EQ(s[k], 0x1234) << k;
    EXPECT_EQ(i[0], 0x0A0B0C0Du);
    EXPECT_EQ(i[1], 0xFFFFFFFEu);
    EXPECT_EQ(i[5], 0x0A0B0C0Du);
}

TEST(Pack, UnpackStoresOnlyTheItemsWidth)
{
    const unsigned char input[] = { 0x12, 0x34, 0xFF };
    quint16 value[2] = { 0, 0x5555 };
    EXPECT_EQ(DataUnpack(input, "nx", &value[0]), 3);
    EXPECT_EQ(value[0], 0x1234);
    EXPECT_EQ(value[1], 0x5555);
}

TEST(Pack, CountedItemsCopyOrSwap)
{
    const quint32 longs[] = { 0x11223344, 0x55667788 };
    const quint16 shorts[] = { 0x1122, 0x3344 };
    const unsigned char raw[] = { 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11 };
    const char *format = "2N2n2V2v11C";
    const std::string packed = "11 22 33 44 55 66 77 88 11 22 33 44 01 02 03 04 05 06 07 08 "
                               "01 02 03 04 01 02 03 04 05 06 07 08 09 0A 0B";
    Buffer buffer;
    EXPECT_EQ(DataPack(buffer.bytes, format, longs, shorts, raw, raw, raw), 35);
    EXPECT_EQ(buffer.first(36), packed + " EE");
    EXPECT_EQ(toHex(ByteArrayPack(format, longs, shorts, raw, raw, raw)), packed);

    quint32 longsBack[2] = {};
    quint16 shortsBack[2] = {};
    unsigned char rawBack[3][11] = {};
    EXPECT_EQ(
        DataUnpack(buffer.bytes, format, longsBack, shortsBack, rawBack[0], rawBack[1], rawBack[2]), 35);
    EXPECT_EQ(0, std::memcmp(longsBack, longs, sizeof longs));
    EXPECT_EQ(0, std::memcmp(shortsBack, shorts, sizeof shorts));
    EXPECT_EQ(0, std::memcmp(rawBack[0], raw, 8));
    EXPECT_EQ(0, std::memcmp(rawBack[2], raw, 11));
}

TEST(Pack, CountedSkips)
{
    Buffer buffer;
    EXPECT_EQ(DataPack(buffer.bytes, "3xc2Xc0x0X", 7, 8), 7);
    EXPECT_EQ(buffer.first(8), "00 00 00 07 EE EE 08 EE");
    quint8 a = 0, b = 0;
    EXPECT_EQ(DataUnpack(buffer.bytes, "3xc2Xc0x", &a, &b), 7);
    EXPECT_EQ(a, 7);
    EXPECT_EQ(b, 8);
    for (const char *format : { "3x", "c2X", "0x" })
        EXPECT_TRUE(ByteArrayPack(format, 1).isEmpty())
            << "the array packer has no counted skips: " << format;
}

TEST(Pack, CountsWrapIn32Bits)
{
    const unsigned char source[] = { 0x41, 0x42, 0x43, 0x44 };
    const unsigned char input[] = { 0x11, 0x22, 0x33, 0x44 };
    const struct Row
    {
        const char *format;
        int packResult;
        const char *packed; // the buffer's first bytes afterwards, guard included
        const char *array; // "": an empty array
        int unpackResult;
        const char *unpacked; // the target's first bytes afterwards, guard included
    } rows[] = {
        { "4294967298x", 2, "00 00 EE", "", 2, "EE EE" },
        { "4294967297C", 1, "41 EE", "41", 1, "11 EE" },
        { "4294967296x4294967297C", 1, "41 EE", "", 1, "11 EE" },
        { "8589934594n", 4, "42 41 44 43 EE", "42 41 44 43", 4, "22 11 44 33 EE" },
        { "4294967296C", -1, "EE", "", -1, "EE" },
    };
    for (const Row &row : rows) {
        Buffer buffer;
        EXPECT_EQ(DataPack(buffer.bytes, row.format, source), row.packResult) << row.format;
        EXPECT_EQ(buffer.first(hex(row.packed).size()), row.packed) << row.format;
        EXPECT_EQ(toHex(ByteArrayPack(row.format, source)), row.array) << row.format;
        Buffer target;
        EXPECT_EQ(DataUnpack(input, row.format, target.bytes), row.unpackResult) << row.format;
        EXPECT_EQ(target.first(hex(row.unpacked).size()), row.unpacked) << row.format;
    }
}

TEST(Pack, BadFormats)
{
    const unsigned char raw[8] = {};
    struct Row
    {
        const char *format;
        int packResult;
    } rows[] = {
        { "c c", 0 }, // blank between items: the first byte is written, then 0
        { "cy", 0 }, { "c/", 0 }, { "12", -1 }, // count at the end
        { "2s", -1 }, { "2i", -1 }, { "3q", -1 }, { "0C", -1 }, { "0n", -1 },
        { "4294967296c", -1 }, // wraps to a count of 0
        { "99999999999999999999999999c", -1 }, { "4294967295x", -1 }, // more bytes than an int counts
        { "2147483000X2147483000X", -1 }, // the same in total
    };
    for (const Row &row : rows) {
        Buffer buffer;
        EXPECT_EQ(DataPack(buffer.bytes, row.format, 0x41, raw), row.packResult) << row.format;
        EXPECT_EQ(buffer.first(2), row.format[0] == 'c' ? "41 EE" : "EE EE") << row.format;
        EXPECT_TRUE(ByteArrayPack(row.format, 0x41, raw).isEmpty()) << row.format;
        EXPECT_EQ(DataUnpack(raw, row.format, buffer.bytes, buffer.bytes), -1) << row.format;
    }
}

TEST(Pack, EmptyAndNullArguments)
{
    unsigned char byte = 0xEE;
    const void *none = nullptr;
    EXPECT_EQ(DataPack(&byte, "") + DataUnpack(&byte, nullptr), 0);
    EXPECT_TRUE(ByteArrayPack("").isEmpty());
    EXPECT_EQ(DataPack(nullptr, "c", 1), -1);
    EXPECT_EQ(DataPack(&byte, "1c", none), -1);
    EXPECT_TRUE(ByteArrayPack("c2c", 1, none).isEmpty());
    EXPECT_EQ(DataUnpack(&byte, "c", none), -1);
    EXPECT_EQ(byte, 0xEE);
}

} // namespace
