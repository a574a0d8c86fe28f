// The runtime's read and write: selection by data type, prefix and register,
// attempts, delays, retries and the command descriptions.

#include "driverrig.h"

#include <gmock/gmock.h>

using testing::ElementsAre;

namespace {

// What a command turned into: the first request's station, function code and
// start register, or the error text when nothing was sent.
std::string outcome(DriverRig &rig)
{
    return rig.sentNothing() ? rig.error() : rig.link.sent()[0].substr(0, 11);
}

TEST(Selection, ByDataTypePrefixAndRegisterAndTheirDescriptions)
{
    const struct Row
    {
        bool write;
        int type;
        const char *address;
        const char *expected;
        int count = 1;
        int station = 1;
    } rows[] = {
        { false, Bit, "fn5do5", "01 01 00 04" },
        { false, Bit, "HR60000", "01 03 EA 5F" }, // the window serves words only
        { false, Block, "IR5", "01 04 00 04" },
        { false, Byte, "HR60000", "01 03 EA 5F" },
        { false, Word, "HR59999", "01 03 EA 5E" },
        { false, Word, "HR60011", "01 03 EA 6A" },
        { false, Word, "IR60000", "01 04 EA 5F" },
        { false, Word, "DO5", "01 04 00 04" },
        { false, DoubleWord, "HR60000", "01 03 EA 5F" },
        { false, DoubleWord, "IR5SW", "01 04 00 04" },
        { false, Word, "Fn6Hr1", "01 03 00 00" },
        { false, Word, "HRX1", "01 03 00 00" },
        { false, Word, "H1", "01 04 00 00" },
        { true, BitBlock, "fn5do7", "01 05 00 06" },
        { true, Bit, "DI5", "can't write any bit to DI5 (write 1 bit to 1-DI5)" },
        { true, Byte, "HR60000", "01 10 EA 5F" },
        { true, Byte, "DO3", "can't write any byte to DO3 (write 2 byte to 1-DO3)", 2 },
        { true, Word, "HR59999", "01 10 EA 5E" },
        { true, Word, "HR60011", "01 10 EA 6A" },
        { true, Word, "IR100", "can't write any word to IR100 (write 1 word to 1-IR100)" },
        { true, DoubleWord, "DO3", "can't write any double word to DO3 (write 1 dword to 1-DO3)" },
        // Descriptions by data type, with the station's low byte.
        { false, Byte, "HR1", "invalid slave id:300 (read 4 byte(s) from 44-HR1)", 4, 300 },
        { true, Byte, "HR1", "invalid slave id:300 (write 4 byte to 44-HR1)", 4, 300 },
        { false, DoubleWord, "HR100", "invalid slave id:300 (read 2 dword(s) from 44-HR100)", 2, 300 },
        { true, DoubleWord, "HR100", "invalid slave id:300 (write 2 dword to 44-HR100)", 2, 300 },
        { false, Block, "HR1", "invalid slave id:300", 4, 300 },
        { true, Block, "HR1", "invalid slave id:300", 4, 300 },
        { false, BitBlock, "DO1", "invalid slave id:300", 4, 300 },
        { true, BitBlock, "DO1", "invalid slave id:300", 4, 300 },
    };
    for (const Row &row : rows) {
        DriverRig rig;
        rig.link.station = row.station;
        const QByteArray data = row.type == DoubleWord ? hex("01 00 00 00")
            : row.type == Bit || row.type == BitBlock  ? hex("01")
                                                       : hex("01 00");
        if (row.write)
            rig.write(row.type, row.address, data, row.count);
        else
            rig.read(row.type, row.count, row.address);
        EXPECT_EQ(outcome(rig), row.expected) << row.type << " " << row.address;
    }
}

TEST(Attempts, RetryCountDecidesHowOftenAFailureIsRepeated)
{
    for (int retries : { 3, 0, -1 }) {
        const int attempts = retries > 0 ? retries + 1 : 1;
        DriverRig rig;
        rig.link.retries = retries;
        EXPECT_TRUE(rig.read(Word, 1, "HR100").isEmpty());
        EXPECT_EQ(rig.link.countOf("delayMs"), attempts) << retries;
        EXPECT_EQ(rig.link.countOf("send"), attempts) << retries;
        EXPECT_EQ(rig.link.countOf("retryCount"), attempts) << retries;
        EXPECT_EQ(rig.error(), "PLC no response (read 1 word(s) from 1-HR100)");

        DriverRig writer;
        writer.link.retries = retries;
        EXPECT_FALSE(writer.write(Bit, "DI5", hex("01")));
        EXPECT_EQ(writer.link.countOf("delayMs"), attempts) << retries;
        EXPECT_TRUE(writer.sentNothing());
    }
}

TEST(Attempts, ALaterAttemptThatSucceedsClearsTheFlagAndKeepsTheText)
{
    DriverRig rig;
    rig.link.retries = 3;
    rig.link.line("01 03 02 00 2A"); // the CRC never comes: packet loss
    rig.link.silence();
    rig.link.reply("01 03 02 00 2A");
    EXPECT_EQ(toHex(rig.read(Word, 1, "HR100")), "2A 00");
    EXPECT_FALSE(rig.failed());
    EXPECT_EQ(rig.error(), "packet loss");
    EXPECT_EQ(rig.link.countOf("send"), 2);

    DriverRig writer;
    writer.link.retries = 1;
    writer.link.reply("01 90 06");
    writer.link.reply("01 10 00 63 00 01");
    EXPECT_TRUE(writer.write(Word, "HR100", hex("01 00")));
    EXPECT_FALSE(writer.failed());
    EXPECT_EQ(writer.error(), "exception code:0x06");
}

TEST(Attempts, UnsupportedTypesCostOneDelayAndAskNothingElse)
{
    for (int type : { int(QuadWord), 7, -1 }) {
        DriverRig rig;
        rig.link.retries = 3;
        rig.read(type, 1, "HR1");
        EXPECT_THAT(rig.link.calls, ElementsAre("delayMs")) << type;
        EXPECT_EQ(rig.error(), "unsupported data type: HR1");
        DriverRig writer;
        EXPECT_FALSE(writer.write(type, "HR1", hex("01 00")));
        EXPECT_THAT(writer.link.calls, ElementsAre("delayMs")) << type;
        EXPECT_EQ(writer.error(), "unsupported data type: HR1");
    }
}

} // namespace
