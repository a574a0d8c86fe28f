// Address texts, request frames and the CRC.

#include "hex.h"
#include "modbusrtu.h"

#include <gmock/gmock.h>

#include <random>

namespace {

struct AddressRow
{
    const char *text;
    const char *prefix;
    unsigned short registerNumber;
    int bitIndex; // -1: left as the caller gave it
};

TEST(AddressParser, SplitsPrefixNumberAndBit)
{
    const AddressRow rows[] = {
        { "HR100", "HR", 99, -1 },
        { "hr100", "hr", 99, -1 },
        { "FN6HR1200", "FN6HR", 1199, -1 },
        { "fn5do8", "fn5do", 7, -1 },
        { "F12345", "F12", 344, -1 },
        { "FN", "FN", 65535, -1 },
        { "DI1", "DI", 0, -1 },
        { "100", "", 99, -1 },
        { "HR100.3", "HR", 99, 3 },
        { "HR100.12X", "HR", 99, 12 },
        { "HR100.", "HR", 99, 0 },
        { "HR100.300", "HR", 99, 44 },
        { "HR.5", "HR", 65535, 5 },
        { "HR-5", "HR", 65535, -1 },
        { "HR12AB", "HR", 11, -1 },
        { "HR0", "HR", 65535, -1 },
        { "HR65537", "HR", 0, -1 },
        { "HR", "HR", 65535, -1 },
        { "", "", 65535, -1 },
        { "HR100SW", "HR", 99, -1 },
        { "F", "F", 65535, -1 },
        { "ABC", "ABC", 65535, -1 },
        { ".", "", 65535, 0 },
        { "HR4294967297", "HR", 0, -1 },
        { "HR99999999999999999999", "HR", 0xFFFE, -1 }, // wraps in 32 bits, as the panel's parser does
        { "H\xc3\xa9R5", "H", 65535, -1 }, // non-ASCII is neither letter nor digit
        { "FN6\xc3\xa9", "FN6", 65535, -1 },
    };
    for (const AddressRow &row : rows) {
        QByteArray prefix;
        unsigned short number = 1234;
        unsigned char bit = 77;
        ModbusRTUSlaveParseAddress(QString::fromUtf8(row.text), prefix, number, bit);
        EXPECT_EQ(prefix, QByteArray(row.prefix)) << row.text;
        EXPECT_EQ(number, row.registerNumber) << row.text;
        EXPECT_EQ(int(bit), row.bitIndex < 0 ? 77 : row.bitIndex) << row.text;
    }
}

TEST(AddressParser, AppendsToThePrefixItIsGiven)
{
    QByteArray prefix("X");
    unsigned short number = 0;
    unsigned char bit = 0;
    ModbusRTUSlaveParseAddress("DO3", prefix, number, bit);
    EXPECT_EQ(prefix, QByteArray("XDO"));
}

TEST(PrefixMatching, ComparesOverTheNamesLengthIgnoringCase)
{
    struct Row
    {
        const char *prefix, *name;
        bool matches;
    } rows[] = { { "HR", "HR", true }, { "hr", "HR", true }, { "H", "HR", false }, { "HRX", "HR", true },
        { "FN6HR", "HR", false }, { "Fn6Hr", "FN6HR", true }, { "", "DO", false }, { "DI", "DO", false } };
    for (const Row &row : rows)
        EXPECT_EQ(prefixMatches(row.prefix, row.name), row.matches) << row.prefix << " ~ " << row.name;
}

TEST(RequestFrames, MatchTheWireExamples)
{
    struct Row
    {
        const char *what;
        QByteArray frame;
        const char *expected;
    } rows[] = {
        { "read 1 HR at 0", ModbusRTUSlaveBuildReadDevicesRequest(1, 3, 0, 1), "01 03 00 00 00 01 84 0A" },
        { "read 10 HR at 99", ModbusRTUSlaveBuildReadDevicesRequest(1, 3, 99, 10),
            "01 03 00 63 00 0A 35 D3" },
        { "read 2 IR at 99", ModbusRTUSlaveBuildReadDevicesRequest(1, 4, 99, 2), "01 04 00 63 00 02 81 D5" },
        { "read 10 coils at 0", ModbusRTUSlaveBuildReadDevicesRequest(1, 1, 0, 10),
            "01 01 00 00 00 0A BC 0D" },
        { "read 16 inputs at 4", ModbusRTUSlaveBuildReadDevicesRequest(1, 2, 4, 16),
            "01 02 00 04 00 10 38 07" },
        { "write register 1 = 3", ModbusRTUSlaveBuildFn6Request(1, 1, hex("00 03")),
            "01 06 00 01 00 03 98 0B" },
        { "write registers 16, 17", ModbusRTUSlaveBuildFn16Request(1, 16, 2, hex("00 0A 01 02")),
            "01 10 00 10 00 02 04 00 0A 01 02 52 F0" },
        { "write nothing", ModbusRTUSlaveBuildFn16Request(1, 0, 0, QByteArray()),
            "01 10 00 00 00 00 00 09 50" },
        { "write coils 20..29", ModbusRTUSlaveBuildFn15Request(1, 19, hex("01 00 01 01 00 00 01 01 01 00")),
            "01 0F 00 13 00 0A 02 CD 01 72 CB" },
        { "coil states 80 and 02 are on", ModbusRTUSlaveBuildFn15Request(1, 0, hex("80 02")),
            "01 0F 00 00 00 02 01 03 9E 96" },
        { "write no coils", ModbusRTUSlaveBuildFn15Request(1, 0, QByteArray()),
            "01 0F 00 00 00 00 00 0B 3F" },
        { "switch coil 1 on", ModbusRTUSlaveBuildFn5Request(1, 0, true), "01 05 00 00 FF 00 8C 3A" },
        { "switch coil 2 off", ModbusRTUSlaveBuildFn5Request(1, 1, false), "01 05 00 01 00 00 9C 0A" },
        { "switch coil 65536 on", ModbusRTUSlaveBuildFn5Request(1, 65535, true), "01 05 FF FF FF 00 8C 1E" },
    };
    for (const Row &row : rows)
        EXPECT_EQ(toHex(row.frame), row.expected) << row.what;
}

TEST(ReplyLengths, FollowFromTheRequestsFunctionCodeAndQuantity)
{
    struct Row
    {
        const char *what;
        QByteArray request;
        int length;
    } rows[] = {
        { "2 holding registers", ModbusRTUSlaveBuildReadDevicesRequest(1, 3, 99, 2), 9 },
        { "125 input registers", ModbusRTUSlaveBuildReadDevicesRequest(1, 4, 0, 125), 255 },
        { "no registers", ModbusRTUSlaveBuildReadDevicesRequest(1, 3, 0, 0), 5 },
        { "1 coil", ModbusRTUSlaveBuildReadDevicesRequest(1, 1, 0, 1), 6 },
        { "10 coils", ModbusRTUSlaveBuildReadDevicesRequest(1, 1, 0, 10), 7 },
        { "16 inputs", ModbusRTUSlaveBuildReadDevicesRequest(1, 2, 4, 16), 7 },
        { "2008 inputs", ModbusRTUSlaveBuildReadDevicesRequest(1, 2, 0, 2008), 256 },
        { "write 123 registers", ModbusRTUSlaveBuildFn16Request(1, 0, 123, QByteArray(246, '\0')), 8 },
        { "write 1 register", ModbusRTUSlaveBuildFn6Request(1, 0, hex("00 01")), 8 },
        { "write 1976 coils", ModbusRTUSlaveBuildFn15Request(1, 0, QByteArray(1976, '\0')), 8 },
        { "write 1 coil", ModbusRTUSlaveBuildFn5Request(1, 0, true), 8 },
        { "a code the driver never sends", ModbusRTUSlaveBuildReadDevicesRequest(1, 0x2B, 0, 10), 5 },
        { "too short to be a request", hex("01 03"), 5 },
    };
    for (const Row &row : rows)
        EXPECT_EQ(ModbusRTUSlaveReplyLength(row.request), row.length) << row.what;
}

TEST(ModbusCrc, CheckAcceptsGoodFramesAndRefusesAnyChangedByte)
{
    QByteArray exception = hex("01 83 02 C0 F1");
    EXPECT_TRUE(ModbusRTUSlaveCheckCRC(reinterpret_cast<unsigned char *>(exception.data()), 5));
    for (int i = 0; i < exception.size(); ++i)
        for (int bit = 0; bit < 8; ++bit) {
            QByteArray changed = exception;
            changed[i] = char(changed.at(i) ^ (1 << bit));
            EXPECT_FALSE(ModbusRTUSlaveCheckCRC(reinterpret_cast<unsigned char *>(changed.data()), 5))
                << "byte " << i << " bit " << bit;
        }
    QByteArray empty = hex("FF FF");
    EXPECT_TRUE(ModbusRTUSlaveCheckCRC(reinterpret_cast<unsigned char *>(empty.data()), 2));
    unsigned char one = 0;
    EXPECT_FALSE(ModbusRTUSlaveCheckCRC(&one, 1));

    unsigned char first, second;
    ModbusRTUSlaveCRC(reinterpret_cast<const unsigned char *>("123456789"), 9, first, second);
    EXPECT_EQ(first, 0x37);
    EXPECT_EQ(second, 0x4B);
}

TEST(ModbusCrc, TablesAgreeWithABitwiseCrcOverRandomFrames)
{
    std::mt19937 random(20261122);
    for (int n = 0; n < 2000; ++n) {
        QByteArray frame(int(random() % 257), '\0');
        for (int i = 0; i < frame.size(); ++i)
            frame[i] = char(random());
        unsigned char first, second;
        ModbusRTUSlaveCRC(
            reinterpret_cast<const unsigned char *>(frame.constData()), frame.size(), first, second);
        const quint16 expected = bitwiseCrc16(frame);
        ASSERT_EQ(first | second << 8, expected) << toHex(frame);
    }
}

} // namespace
