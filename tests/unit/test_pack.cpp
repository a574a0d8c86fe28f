// The pack/unpack format language: packing into a buffer and into an array,
// unpacking, and the results for formats that are wrong.

#include "hex.h"
#include "tools.h"

#include <gtest/gtest.h>

#include <cstring>

namespace {

// A buffer with a guard pattern, so that a test sees bytes written beyond
// what the engine reports and bytes that "X" must leave alone.
struct Buffer
{
    unsigned char bytes[32];
    Buffer() { std::memset(bytes, 0xEE, sizeof bytes); }
    QByteArray first(int n) const { return QByteArray(reinterpret_cast<const char *>(bytes), n); }
};

TEST(DataPack, SingleItemsInEachByteOrder)
{
    struct Row
    {
        const char *what;
        const char *format;
        int value;
        const char *bytes;
    } rows[] = {
        { "c takes the low byte", "c", 0x1234, "34" },
        { "C like c", "C", 0xFF, "FF" },
        { "s little-endian low 16 bits", "s", 0x123456, "56 34" },
        { "S like s", "S", 0x1234, "34 12" },
        { "v like s", "v", 0x1234, "34 12" },
        { "n big-endian", "n", 0x1234, "12 34" },
        { "i little-endian", "i", 0x0A0B0C0D, "0D 0C 0B 0A" },
        { "I like i", "I", -2, "FE FF FF FF" },
        { "l like i", "l", 0x01020304, "04 03 02 01" },
        { "L like i", "L", 0x01020304, "04 03 02 01" },
        { "V like i", "V", 0x01020304, "04 03 02 01" },
        { "N big-endian", "N", 0x0A0B0C0D, "0A 0B 0C 0D" },
    };
    for (const Row &row : rows) {
        Buffer buffer;
        const QByteArray expected = hex(row.bytes);
        EXPECT_EQ(DataPack(buffer.bytes, row.format, row.value), expected.size()) << row.what;
        EXPECT_EQ(toHex(buffer.first(expected.size() + 1)), toHex(expected + '\xEE')) << row.what;
        EXPECT_EQ(toHex(ByteArrayPack(row.format, row.value)), toHex(expected)) << row.what;
    }
}

TEST(DataPack, MixedFormats)
{
    Buffer buffer;
    EXPECT_EQ(DataPack(buffer.bytes, "CnN", 0x01, 0x1234, 0x0A0B0C0D), 7);
    EXPECT_EQ(toHex(buffer.first(7)), "01 12 34 0A 0B 0C 0D");

    const unsigned char ab[] = { 0x41, 0x42 };
    Buffer second;
    EXPECT_EQ(DataPack(second.bytes, "vx2c", 0x1234, ab), 5);
    EXPECT_EQ(toHex(second.first(6)), "34 12 00 41 42 EE");
    EXPECT_EQ(toHex(ByteArrayPack("vx2c", 0x1234, ab)), "34 12 00 41 42");
}

TEST(DataPack, CountedItemsCopyOrSwap)
{
    const quint32 longs[] = { 0x11223344, 0x55667788 };
    const quint16 shorts[] = { 0x1122, 0x3344 };
    const unsigned char raw[] = { 1, 2, 3, 4, 5, 6, 7, 8 };
    struct Row
    {
        const char *what;
        const char *format;
        const void *from;
        const char *bytes;
    } rows[] = {
        { "2N reverses each value", "2N", longs, "11 22 33 44 55 66 77 88" },
        { "2n swaps each value", "2n", shorts, "11 22 33 44" },
        { "2V copies unchanged", "2V", raw, "01 02 03 04 05 06 07 08" },
        { "2v copies unchanged", "2v", raw, "01 02 03 04" },
        { "3C copies bytes", "3C", raw, "01 02 03" },
        { "10c reads a two-digit count", "10c", "0123456789", "30 31 32 33 34 35 36 37 38 39" },
        { "leading zero in a count", "03c", raw, "01 02 03" },
    };
    for (const Row &row : rows) {
        Buffer buffer;
        const QByteArray expected = hex(row.bytes);
        EXPECT_EQ(DataPack(buffer.bytes, row.format, row.from), expected.size()) << row.what;
        EXPECT_EQ(toHex(buffer.first(expected.size() + 1)), toHex(expected + '\xEE')) << row.what;
        EXPECT_EQ(toHex(ByteArrayPack(row.format, row.from)), toHex(expected)) << row.what;
    }
}

TEST(DataPack, SkipItems)
{
    Buffer buffer;
    EXPECT_EQ(DataPack(buffer.bytes, "cXc", 1, 2), 3) << "X counts but does not write";
    EXPECT_EQ(toHex(buffer.first(4)), "01 EE 02 EE");
    EXPECT_EQ(toHex(ByteArrayPack("cXc", 1, 2)), "01 00 02") << "the array gets a zero byte";

    Buffer counted;
    EXPECT_EQ(DataPack(counted.bytes, "3xc2Xc", 7, 8), 7);
    EXPECT_EQ(toHex(counted.first(8)), "00 00 00 07 EE EE 08 EE");

    Buffer zero;
    EXPECT_EQ(DataPack(zero.bytes, "0xc0X", 5), 1) << "a count of 0 before x or X packs nothing";
    EXPECT_EQ(toHex(zero.first(2)), "05 EE");
}

TEST(DataPack, BadFormats)
{
    const unsigned char raw[8] = {};
    struct Row
    {
        const char *what;
        const char *format;
        int packResult;
    } rows[] = {
        { "blank between items", "c c", 0 },
        { "unknown letter", "q", 0 },
        { "character above x", "cy", 0 },
        { "character below 0", "c/", 0 },
        { "count at the end", "12", -1 },
        { "count before a type without counted form", "2s", -1 },
        { "count before 2i", "2i", -1 },
        { "count before an unknown character", "3q", -1 },
        { "count of 0 before C", "0C", -1 },
        { "count of 0 before n", "0n", -1 },
        { "count beyond 32 bits", "4294967296c", -1 },
        { "many digits", "99999999999999999999999999c", -1 },
        { "item beyond the int range", "4294967295x", -1 },
        { "total beyond the int range", "2147483000X2147483000X", -1 },
    };
    for (const Row &row : rows) {
        Buffer buffer;
        EXPECT_EQ(DataPack(buffer.bytes, row.format, 0x41, raw), row.packResult) << row.what;
        EXPECT_TRUE(ByteArrayPack(row.format, 0x41, raw).isEmpty()) << row.what;
        EXPECT_EQ(DataUnpack(raw, row.format, buffer.bytes, buffer.bytes), -1) << row.what;
    }
}

TEST(DataPack, KeepsWhatWasWrittenBeforeAnError)
{
    Buffer buffer;
    EXPECT_EQ(DataPack(buffer.bytes, "c c", 0x41, 0x42), 0);
    EXPECT_EQ(toHex(buffer.first(2)), "41 EE");
}

TEST(DataPack, EmptyAndNullArguments)
{
    unsigned char byte = 0xEE;
    EXPECT_EQ(DataPack(&byte, ""), 0);
    EXPECT_EQ(DataPack(&byte, nullptr), 0);
    EXPECT_EQ(DataPack(nullptr, "c", 1), -1);
    EXPECT_EQ(DataPack(&byte, "1c", static_cast<const void *>(nullptr)), -1);
    EXPECT_EQ(byte, 0xEE);
    EXPECT_TRUE(ByteArrayPack("").isEmpty());
    EXPECT_TRUE(ByteArrayPack(nullptr).isEmpty());
    EXPECT_TRUE(ByteArrayPack("c2c", 1, static_cast<const void *>(nullptr)).isEmpty());
    EXPECT_EQ(DataUnpack(&byte, ""), 0);
    EXPECT_EQ(DataUnpack(nullptr, "c", &byte), -1);
    EXPECT_EQ(DataUnpack(&byte, "c", static_cast<void *>(nullptr)), -1);
}

TEST(ByteArrayPack, HasNoCountedSkips)
{
    EXPECT_TRUE(ByteArrayPack("3x").isEmpty());
    EXPECT_TRUE(ByteArrayPack("c2X", 1).isEmpty());
    EXPECT_TRUE(ByteArrayPack("0x").isEmpty());
    EXPECT_EQ(toHex(ByteArrayPack("xX")), "00 00");
}

TEST(DataUnpack, SingleItems)
{
    const QByteArray input = hex("01 34 12 12 34 0D 0C 0B 0A 0A 0B 0C 0D AA BB");
    quint8 c = 0;
    quint16 little = 0, big = 0;
    quint32 longLittle = 0, longBig = 0;
    EXPECT_EQ(DataUnpack(reinterpret_cast<const unsigned char *>(input.constData()), "cvnVNxX", &c, &little,
                  &big, &longLittle, &longBig),
        15);
    EXPECT_EQ(c, 0x01);
    EXPECT_EQ(little, 0x1234);
    EXPECT_EQ(big, 0x1234);
    EXPECT_EQ(longLittle, 0x0A0B0C0Du);
    EXPECT_EQ(longBig, 0x0A0B0C0Du);
}

TEST(DataUnpack, StoresOnlyTheItemsWidth)
{
    const unsigned char input[] = { 0x12, 0x34, 0xFF };
    quint16 value[2] = { 0, 0x5555 };
    EXPECT_EQ(DataUnpack(input, "nx", &value[0]), 3);
    EXPECT_EQ(value[0], 0x1234);
    EXPECT_EQ(value[1], 0x5555);

    unsigned char narrow[2] = { 0, 0x55 };
    EXPECT_EQ(DataUnpack(input, "C", &narrow[0]), 1);
    EXPECT_EQ(toHex(QByteArray(reinterpret_cast<char *>(narrow), 2)), "12 55");
}

TEST(DataUnpack, CountedItems)
{
    const QByteArray input = hex("11 22 33 44 55 66 77 88 41 42 43 99");
    const unsigned char *in = reinterpret_cast<const unsigned char *>(input.constData());
    quint16 shorts[2] = {};
    unsigned char text[4] = {};
    EXPECT_EQ(DataUnpack(in, "2n4X3c1x", shorts, text), 12);
    EXPECT_EQ(shorts[0], 0x1122);
    EXPECT_EQ(shorts[1], 0x3344);
    EXPECT_EQ(QByteArray(reinterpret_cast<char *>(text)), QByteArray("ABC"));

    quint32 longs[2] = {};
    EXPECT_EQ(DataUnpack(in, "2N", longs), 8);
    EXPECT_EQ(longs[0], 0x11223344u);
    EXPECT_EQ(longs[1], 0x55667788u);

    quint16 copied[2] = {};
    EXPECT_EQ(DataUnpack(in, "2v", copied), 4);
    EXPECT_EQ(copied[0], 0x2211);
    EXPECT_EQ(copied[1], 0x4433);
}

TEST(DataUnpack, PackedRecordRoundTrips)
{
    const char *format = "CvnVN3cx";
    const char name[] = "XYZ";
    const QByteArray packed = ByteArrayPack(format, 0x7F, 0xBEEF, 0xCAFE, 0x12345678, 0x9ABCDEF0, name);
    ASSERT_EQ(packed.size(), 1 + 2 + 2 + 4 + 4 + 3 + 1);
    quint8 c = 0;
    quint16 v = 0, n = 0;
    quint32 bigV = 0, bigN = 0;
    char back[4] = {};
    EXPECT_EQ(DataUnpack(reinterpret_cast<const unsigned char *>(packed.constData()), format, &c, &v, &n,
                  &bigV, &bigN, back),
        packed.size());
    EXPECT_EQ(c, 0x7F);
    EXPECT_EQ(v, 0xBEEF);
    EXPECT_EQ(n, 0xCAFE);
    EXPECT_EQ(bigV, 0x12345678u);
    EXPECT_EQ(bigN, 0x9ABCDEF0u);
    EXPECT_STREQ(back, "XYZ");
}

} // namespace
