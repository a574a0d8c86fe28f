// Address texts, reply lengths and the CRC. The request frames are checked
// where the runtime sends them (test_reads, test_writes).

#include "hex.h"
#include "modbusrtu.h"

#include <gmock/gmock.h>

#include <random>

namespace {

TEST(AddressParser, SplitsPrefixNumberAndBit)
{
    const struct Row
    {
        const char *text;
        const char *prefix;
        unsigned short registerNumber;
        int bitIndex; // -1: left as the caller gave it
    } rows[] = {
        { "hr100", "hr", 99, -1 },
        { "FN6HR1200", "FN6HR", 1199, -1 },
        { "F12345", "F12", 344, -1 },
        { "FN", "FN", 65535, -1 },
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
        { "F", "F", 65535, -1 },
        { ".", "", 65535, 0 },
        { "HR99999999999999999999", "HR", 0xFFFE, -1 }, // wraps in 32 bits, as the panel's parser does
        { "H\xc3\xa9R5", "H", 65535, -1 }, // non-ASCII is neither letter nor digit
        { "FN6\xc3\xa9", "FN6", 65535, -1 },
    };
    for (const auto &row : rows) {
        QByteArray prefix;
        unsigned short number = 1234;
        unsigned char bit = 77;
        ModbusRTUSlaveParseAddress(QString::fromUtf8(row.text), prefix, number, bit);
        EXPECT_EQ(prefix, QByteArray(row.prefix)) << row.text;
        EXPECT_EQ(number, row.registerNumber) << row.text;
        EXPECT_EQ(int(bit), row.bitIndex < 0 ? 77 : row.bitIndex) << row.text;
    }
}

TEST(ReplyLengths, FollowFromTheRequestsFunctionCodeAndQuantity)
{
    const struct Row
    {
        const char *what;
        QByteArray request;
        int length;
    } rows[] = {
        { "125 input registers", ModbusRTUSlaveBuildReadDevicesRequest(1, 4, 0, 125), 255 },
        { "1 coil", ModbusRTUSlaveBuildReadDevicesRequest(1, 1, 0, 1), 6 },
        { "2008 inputs", ModbusRTUSlaveBuildReadDevicesRequest(1, 2, 0, 2008), 256 },
        { "write 123 registers", ModbusRTUSlaveBuildFn16Request(1, 0, 123, QByteArray(246, '\0')), 8 },
        { "write 1976 coils", ModbusRTUSlaveBuildFn15Request(1, 0, QByteArray(1976, '\0')), 8 },
        { "a code the driver never sends", ModbusRTUSlaveBuildReadDevicesRequest(1, 0x2B, 0, 10), 5 },
        { "too short to be a request", hex("01 03"), 5 },
    };
    for (const auto &row : rows)
        EXPECT_EQ(ModbusRTUSlaveReplyLength(row.request), row.length) << row.what;
    EXPECT_EQ(ModbusRTUSlaveBuildFn15Request(1, 0, QByteArray(1976, '\1')).size(), 256);
}

TEST(ModbusCrc, CheckValueAndAgreementWithABitwiseCrc)
{
    unsigned char first, second;
    ModbusRTUSlaveCRC(reinterpret_cast<const unsigned char *>("123456789"), 9, first, second);
    EXPECT_EQ(first | second << 8, 0x4B37);
    unsigned char one = 0;
    EXPECT_FALSE(ModbusRTUSlaveCheckCRC(&one, 1));

    std::mt19937 random(20261122);
    for (int n = 0; n < 2000; ++n) {
        QByteArray frame(int(random() % 257), '\0');
        for (int i = 0; i < frame.size(); ++i)
            frame[i] = char(random());
        ModbusRTUSlaveCRC(
            reinterpret_cast<const unsigned char *>(frame.constData()), frame.size(), first, second);
        ASSERT_EQ(first | second << 8, bitwiseCrc16(frame)) << toHex(frame);
        QByteArray whole = withCrc(frame);
        ASSERT_TRUE(ModbusRTUSlaveCheckCRC(reinterpret_cast<unsigned char *>(whole.data()), whole.size()));
    }
}

} // namespace
