// Byte order and bit-array conversions, where faults hide: odd sizes, shifts
// of more than 7 bits, rotation, bits beyond a count.

#include "hex.h"
#include "tools.h"

#include <gmock/gmock.h>

#include <climits>

namespace {

TEST(SingleValues, BitsAndNumbers)
{
    EXPECT_EQ(setBit(static_cast<unsigned short>(0x0001), 15), 0x8001);
    EXPECT_EQ(setBit(static_cast<unsigned short>(0x0001), 16), 0x0001);
    EXPECT_EQ(clearBit(static_cast<unsigned short>(0xFFFF), 15), 0x7FFF);
    EXPECT_FALSE(getBit(static_cast<unsigned char>(0xFF), 8));
    EXPECT_EQ(setBit(0u, 31), 0x80000000u);
    EXPECT_EQ(setBit(0u, 32), 0u);

    EXPECT_EQ(QByteArrayToInt(hex("01 02 03")), 0x030201);
    EXPECT_EQ(QByteArrayToInt(hex("01 02 03 04 05")), 0x04030201);
    EXPECT_EQ(QByteArrayToShort(hex("FF 80")), -32513);
    EXPECT_EQ(QByteArrayToWord(hex("34")), 0x34);
    EXPECT_EQ(toHex(wordToByteArray(0x1234)), "34 12");
    EXPECT_EQ(toHex(intToByteArray(INT_MIN)), "00 00 00 80");
    QByteArray a = hex("AA");
    EXPECT_EQ(toHex(appendBigEndianUShort(a, 0x1234)), "AA 12 34");
    EXPECT_FALSE(getBitData(QByteArray()));
    EXPECT_TRUE(getBitData(hex("03")));
}

TEST(WordArrays, SwapsPairsAndGroupsWithPadding)
{
    const unsigned char wire[] = { 0x12, 0x34, 0x56, 0x78 };
    EXPECT_EQ(toHex(fromBigEndianUShortArray(wire, 2)), "34 12 78 56");
    EXPECT_EQ(toHex(fromBigEndianULongArray(wire, 1)), "78 56 34 12");
    EXPECT_TRUE(fromBigEndianULongArray(wire, -3).isEmpty());

    struct Row
    {
        const char *in, *ushort, *ulong;
    } rows[] = {
        { "34 12 78 56", "12 34 56 78", "56 78 12 34" },
        { "01 02 03", "02 01 00 03", "00 03 02 01" },
        { "01 02 03 04 05", "02 01 04 03 00 05", "04 03 02 01 00 00 00 05" },
    };
    for (const Row &row : rows) {
        EXPECT_EQ(toHex(toBigEndianUShortArray(hex(row.in))), row.ushort) << row.in;
        EXPECT_EQ(toHex(toBigEndianULongArray(hex(row.in))), row.ulong) << row.in;
        QByteArray inPlace = hex(row.in), inPlace4 = hex(row.in);
        EXPECT_EQ(toHex(toLittleEndianUShortArray(inPlace)), row.ushort) << row.in;
        EXPECT_EQ(toHex(toLittleEndianULongArray(inPlace4)), row.ulong) << row.in;
    }
}

TEST(Counting, RoundsUpInUnsigned32BitsAndSizesCommands)
{
    EXPECT_EQ(NumOfBitsToNumOfWords(3, 13), 1u);
    EXPECT_EQ(NumOfBitsToNumOfWords(3, 14), 2u);
    EXPECT_EQ(NumOfBitsToNumOfDWords(1, 32), 2u);
    EXPECT_EQ(NumOfBitsToNumOfBytes(7, 2), 2u);
    EXPECT_EQ(NumOfBytesToNumOfWords(0xFFFFFFFFu), 0x80000000u);
    EXPECT_EQ(NumOfBytesToNumOfDWords(5), 2u);
    EXPECT_EQ(NumOfBytesToNumOfQuadWords(9), 2u);

    struct Row
    {
        int type, count, length;
    } rows[] = { { Bit, 9, 2 }, { BitBlock, 16, 2 }, { Byte, 3, 3 }, { Block, 0, 0 }, { Word, 3, 6 },
        { DoubleWord, 2, 8 }, { QuadWord, 1, 8 }, { 7, 5, 0 }, { Bit, -1, 536870912 } };
    for (const Row &row : rows)
        EXPECT_EQ(GetSafeDataLen(CommunicatorCommand(row.type, row.count, "HR1")), row.length)
            << row.type << "/" << row.count;
    const CommunicatorCommand words(Word, 3, "HR1");
    EXPECT_EQ(toHex(ToSafeData(words, hex("01 02 03 04"))), "01 02 03 04 00 00");
    EXPECT_EQ(toHex(ToSafeData(words, hex("01 02 03 04 05 06 07 08"))), "01 02 03 04 05 06");
    EXPECT_TRUE(ToSafeData(CommunicatorCommand(Word, INT_MIN, "HR1"), hex("01")).isEmpty());
    EXPECT_EQ(To64bitsData(hex("01 02 03 04 05")).size(), 8);
    EXPECT_EQ(toHex(To16bitsData(hex("01"))), "01 00");
    EXPECT_EQ(To32bitsData(hex("01 02 03 04")).size(), 4);
}

TEST(BitArrays, GetSetCopyExpandFitAndClearStayInsideTheArray)
{
    QByteArray a = hex("00 00");
    setBit(a, 9, true);
    setBit(a, 16, true); // beyond the array: ignored
    setBit(a, -1, true);
    EXPECT_EQ(toHex(a), "00 02");
    EXPECT_TRUE(getBit(a, 9));
    EXPECT_FALSE(getBit(a, 16));

    QByteArray dst = hex("40"), src = hex("05");
    CopyBits(dst, src, 5, 3);
    EXPECT_EQ(toHex(dst), "A0");
    CopyBits(dst, src, 6, 8); // runs off the end of dst
    EXPECT_EQ(toHex(dst), "60");

    EXPECT_EQ(toHex(ExpandBitsToBytes(hex("05 80"), 15, 3)), "01 00 00");
    EXPECT_TRUE(ExpandBitsToBytes(hex("05"), 0, -2).isEmpty());

    QByteArray b = hex("FF FF FF FF");
    FitBitArray(b, 16);
    EXPECT_EQ(b.size(), 2);
    FitBitArray(b, 17);
    EXPECT_EQ(toHex(b), "FF FF 00");

    struct Row
    {
        const char *in;
        int bits;
        const char *out;
    } rows[] = { { "FF FF", 11, "FF 07" }, { "FF FF", 16, "FF FF" }, { "FF FF", 1, "01 FF" },
        { "FF", 9, "FF" }, { "FF", -3, "FF" } };
    for (const Row &row : rows) {
        QByteArray c = hex(row.in);
        clearUnnecessaryBits(c, row.bits);
        EXPECT_EQ(toHex(c), row.out) << row.in << " / " << row.bits;
    }
}

TEST(BitArrays, RightShiftAcrossBytesAndRotation)
{
    struct Row
    {
        const char *in;
        int n;
        const char *out;
    } rows[] = {
        { "A5 0F", 4, "FA 00" },
        { "01 02 03", 8, "02 03 01" },
        { "01 02 03", 12, "30 00 01" },
        { "80", 7, "01" },
        { "01 02 03", 24, "01 02 03" },
        { "01 02 03", 99, "01 02 03" },
        { "34 12 78 56", 15, "F0 AC 00 34" },
    };
    for (const Row &row : rows) {
        QByteArray a = hex(row.in);
        RightShiftNBits(a, row.n);
        EXPECT_EQ(toHex(a), row.out) << row.in << " >> " << row.n;
    }

    unsigned char p[] = { 1, 2, 3, 4, 5 };
    RotateArray(p, 2, 3);
    EXPECT_THAT(p, testing::ElementsAre(3, 4, 5, 1, 2));
    EXPECT_EQ(toHex(reverseArray(hex("01 02 03"))), "03 02 01");
}

} // namespace
