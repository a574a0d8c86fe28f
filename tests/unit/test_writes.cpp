// Register, coil and register-bit writes, through the runtime's write and the
// link double.

#include "driverrig.h"

#include <gmock/gmock.h>

#include <cstring>

using testing::ElementsAre;

namespace {

QByteArray repeated(const char *bytes, int times)
{
    QByteArray out;
    for (int i = 0; i < times; ++i)
        out += hex(bytes);
    return out;
}

// The drive's answer to a function-5, 6, 15 or 16 request: its first six
// bytes echoed, with a fresh CRC.
QByteArray echoOf(const std::string &request) { return withCrc(request.substr(0, 17).c_str()); }

struct FrameRow
{
    const char *what;
    int type;
    const char *address;
    QByteArray data;
    std::vector<std::string> frames; // without CRC
};

TEST(Writes, FramesOnTheWire)
{
    const FrameRow rows[] = {
        { "two words", Word, "HR17", hex("0A 00 02 01"), { "01 10 00 10 00 02 04 00 0A 01 02" } },
        { "no words", Word, "HR1", QByteArray(), { "01 10 00 00 00 00 00" } },
        { "odd bytes: high byte of the last register 0", Byte, "HR1", hex("01 02 03"),
            { "01 10 00 00 00 02 04 02 01 00 03" } },
        { "bytes with FN6", Block, "FN6HR1", hex("01 02 03"), { "01 06 00 00 02 01", "01 06 00 01 00 03" } },
        { "dword, SW: high half first", DoubleWord, "HR100SW", hex("78 56 34 12"),
            { "01 10 00 63 00 02 04 12 34 56 78" } },
        { "dword: low half first", DoubleWord, "HR100", hex("78 56 34 12"),
            { "01 10 00 63 00 02 04 56 78 12 34" } },
        { "dword with FN6, SW", DoubleWord, "fn6hr100sw", hex("78 56 34 12"),
            { "01 06 00 63 12 34", "01 06 00 64 56 78" } },
        { "one word with FN6", Word, "FN6HR2", hex("03 00"), { "01 06 00 01 00 03" } },
        { "three words with FN6", Word, "FN6HR10", hex("01 00 02 00 03 00"),
            { "01 06 00 09 00 01", "01 06 00 0A 00 02", "01 06 00 0B 00 03" } },
        { "FN6 wraps past register 65535", Word, "FN6HR0", hex("01 00"), { "01 06 FF FF 00 01" } },
        { "coils", Bit, "DO20", hex("01 00 01 01 00 00 01 01 01 00"), { "01 0F 00 13 00 0A 02 CD 01" } },
        { "no coils", BitBlock, "DO1", QByteArray(), { "01 0F 00 00 00 00 00" } },
        { "single coils; any non-zero byte is on", Bit, "FN5DO1", hex("01 00 02 80"),
            { "01 05 00 00 FF 00", "01 05 00 01 00 00", "01 05 00 02 FF 00", "01 05 00 03 FF 00" } },
    };
    for (const FrameRow &row : rows) {
        DriverRig rig;
        for (const std::string &f : row.frames)
            rig.link.line(echoOf(f));
        EXPECT_TRUE(rig.write(row.type, row.address, row.data)) << row.what << ": " << rig.error();
        std::vector<std::string> expected;
        for (const std::string &f : row.frames)
            expected.push_back(toHex(withCrc(f.c_str())));
        EXPECT_EQ(rig.link.sent(), expected) << row.what;
    }
}

struct RefusalRow
{
    int type;
    const char *address;
    QByteArray data;
    const char *error; // nullptr: accepted and sent
};

TEST(Writes, LimitsAndDataSizes)
{
    const RefusalRow rows[] = {
        { Word, "HR1", repeated("01 00", 123), nullptr },
        { Word, "HR1", repeated("01 00", 124), "can't write any word to HR1 (write 1 word to 1-HR1)" },
        { Word, "HR0", hex("01 00"), nullptr },
        { Word, "HR0", hex("01 00 02 00"), "can't write any word to HR65536 (write 1 word to 1-HR0)" },
        { Word, "FN6HR1", repeated("01 00", 124), "can't write any word to HR1 (write 1 word to 1-FN6HR1)" },
        { Word, "HR1", hex("01 02 03"), "can't write 3 byte(s) as words to HR1 (write 1 word to 1-HR1)" },
        { Word, "FN6HR1", hex("01"), "can't write 1 byte(s) as words to HR1 (write 1 word to 1-FN6HR1)" },
        { Byte, "HR1", repeated("01", 246), nullptr },
        { Byte, "HR1", repeated("01", 247), "can't write any byte to HR1 (write 1 byte to 1-HR1)" },
        { Byte, "FN6HR1", repeated("01", 247), "can't write any byte to HR1 (write 1 byte to 1-FN6HR1)" },
        { DoubleWord, "HR100", repeated("01 00 00 00", 61), nullptr },
        { DoubleWord, "HR100", repeated("01 00 00 00", 62),
            "can't write any double word to HR100 (write 1 dword to 1-HR100)" },
        { DoubleWord, "HR1", hex("01 02 03 04 05 06"),
            "can't write 6 byte(s) as double words to HR1 (write 1 dword to 1-HR1)" },
        { DoubleWord, "FN6HR1SW", hex("01 02"),
            "can't write 2 byte(s) as double words to HR1 (write 1 dword to 1-FN6HR1SW)" },
        { Bit, "DO1", repeated("01", 1976), nullptr },
        { Bit, "DO1", repeated("01", 1977), "can't write 1977 bits to DO1 (write 1 bit to 1-DO1)" },
        { Bit, "FN5DO1", repeated("01", 1977), "can't write 1977 bits to DO1 (write 1 bit to 1-FN5DO1)" },
        { Bit, "DO0", hex("01"), nullptr },
        { Bit, "DO0", hex("01 01"), "can't write 2 bits to DO65536 (write 1 bit to 1-DO0)" },
    };
    for (const RefusalRow &row : rows) {
        DriverRig rig;
        rig.write(row.type, row.address, row.data);
        const std::string what
            = std::string(row.address) + " with " + std::to_string(row.data.size()) + " bytes";
        if (row.error) {
            EXPECT_TRUE(rig.sentNothing()) << what;
            EXPECT_EQ(rig.error(), row.error) << what;
        } else {
            EXPECT_FALSE(rig.sentNothing()) << what;
            EXPECT_EQ(rig.error().substr(0, 15), "PLC no response") << what;
        }
    }
}

TEST(Writes, FullSizeCoilFrameIs256Bytes)
{
    DriverRig rig;
    rig.write(Bit, "DO1", repeated("01", 1976));
    ASSERT_EQ(rig.link.sent().size(), 1u);
    const QByteArray frame = hex(rig.link.sent()[0].c_str());
    EXPECT_EQ(frame.size(), 256);
    EXPECT_EQ(static_cast<unsigned char>(frame.at(6)), 247);
}

TEST(Writes, StationCheckOrder)
{
    // Register writes check the range first; coil writes the station first.
    struct Row
    {
        int type;
        const char *address;
        QByteArray data;
        const char *error;
    } rows[] = {
        { Word, "HR1", repeated("01 00", 124), "can't write any word to HR1" },
        { Word, "HR1", hex("01 00"), "invalid slave id:256" },
        { Bit, "DO1", repeated("01", 1977), "invalid slave id:256" },
        { Bit, "FN5DO1", hex("01"), "invalid slave id:256" },
        { Bit, "HR1.3", hex("01"), "invalid slave id:256" },
        { Word, "FN6HR1", hex("01 00"), "invalid slave id:256" },
    };
    for (const auto &row : rows) {
        DriverRig rig;
        rig.link.station = 256;
        EXPECT_FALSE(rig.write(row.type, row.address, row.data));
        EXPECT_TRUE(rig.sentNothing());
        EXPECT_EQ(rig.error().substr(0, std::strlen(row.error)), row.error) << row.address;
    }
}

TEST(Writes, EmptyDataForOneRequestPerElementSendsNothing)
{
    const struct Row
    {
        int type;
        const char *address;
    } rows[] = { { Word, "FN6HR1" }, { Bit, "FN5DO1" } };
    for (const Row &row : rows) {
        DriverRig rig;
        EXPECT_TRUE(rig.write(row.type, row.address, QByteArray())) << row.address;
        EXPECT_TRUE(rig.sentNothing()) << row.address;
    }
}

TEST(Writes, OneRegisterAtATimeStopsAtTheFirstFailure)
{
    DriverRig rig;
    rig.link.line(withCrc("01 06 00 09 00 01"));
    rig.link.line(withCrc("01 86 04"));
    EXPECT_FALSE(rig.write(Word, "FN6HR10", hex("01 00 02 00 03 00")));
    EXPECT_EQ(rig.link.sent().size(), 2u);
    EXPECT_EQ(rig.error(), "exception code:0x04 (write 1 word to 1-FN6HR10)");

    DriverRig coils;
    coils.link.line(withCrc("01 05 00 00 FF 00"));
    EXPECT_FALSE(coils.write(Bit, "FN5DO1", hex("01 01 01")));
    EXPECT_EQ(coils.link.sent().size(), 2u);
    EXPECT_EQ(coils.error(), "PLC no response (write 1 bit to 1-FN5DO1)");

    DriverRig exception;
    exception.link.line("01 8F 02 C5 F1");
    EXPECT_FALSE(exception.write(Bit, "DO1", hex("01")));
    EXPECT_EQ(exception.error(), "exception code:0x02 (write 1 bit to 1-DO1)");
}

// Register 99 (HR100) holds 0x0100 in these rows.
struct BitRow
{
    const char *what;
    const char *address;
    QByteArray data;
    const char *registersRead; // the reply's data, without header and CRC
    std::vector<std::string> writes; // without CRC
};

TEST(RegisterBits, ReadModifyWrite)
{
    const BitRow rows[] = {
        { "set bit 3", "HR100.3", hex("01"), "01 00", { "01 10 00 63 00 01 02 01 08" } },
        { "set bit 3 with FN6", "FN6HR100.3", hex("01"), "01 00", { "01 06 00 63 01 08" } },
        { "clear bit 8", "HR100.8", hex("00"), "01 00", { "01 10 00 63 00 01 02 00 00" } },
        { "0x80 sets like 1", "hr100.0", hex("80"), "01 00", { "01 10 00 63 00 01 02 01 01" } },
        { "bit 20 is bit 4 of the next register", "HR100.20", hex("01"), "01 00 00 00",
            { "01 10 00 63 00 02 04 01 00 00 10" } },
        { "bits 15 and 16", "HR100.15", hex("01 01"), "01 00 00 00", { "01 10 00 63 00 02 04 81 00 00 01" } },
        { "FN6 writes every register back", "FN6HR100.15", hex("01 00"), "01 00 FF FF",
            { "01 06 00 63 81 00", "01 06 00 64 FF FE" } },
    };
    for (const BitRow &row : rows) {
        DriverRig rig;
        const QByteArray registers = hex(row.registersRead);
        QByteArray reply = hex("01 03");
        reply.append(char(registers.size()));
        reply.append(registers);
        rig.link.line(withCrc(reply));
        for (const std::string &w : row.writes)
            rig.link.line(echoOf(w));
        EXPECT_TRUE(rig.write(Bit, row.address, row.data)) << row.what << ": " << rig.error();
        const std::vector<std::string> sent = rig.link.sent();
        ASSERT_EQ(sent.size(), row.writes.size() + 1) << row.what;
        EXPECT_EQ(hex(sent[0].c_str()).mid(1, 1), hex("03")) << row.what << ": read with function 3";
        for (size_t i = 0; i < row.writes.size(); ++i)
            EXPECT_EQ(sent[i + 1], toHex(withCrc(row.writes[i].c_str()))) << row.what;
    }
}

TEST(RegisterBits, EmptyDataStillReadsAndWritesBackTheCoveredRegisters)
{
    // No bits to change, but the registers from start up to the bit index
    // are read and written back all the same; with bit index 0 none are
    // covered, and the read of none ends the write with false.
    const struct Row
    {
        const char *what;
        const char *address;
        int station;
        std::vector<std::string> replies; // without CRC
        std::vector<std::string> sequence; // "delay", or a frame sent, without CRC
        bool result;
        const char *error; // nullptr: none
    } rows[] = {
        { "HR100 read and written back unchanged", "HR100.3", 1, { "01 03 02 01 00", "01 10 00 63 00 01" },
            { "delay", "01 03 00 63 00 01", "delay", "01 10 00 63 00 01 02 01 00" }, true, nullptr },
        { "with FN6 written back with function 6", "FN6HR100.3", 1, { "01 03 02 01 00", "01 06 00 63 01 00" },
            { "delay", "01 03 00 63 00 01", "delay", "01 06 00 63 01 00" }, true, nullptr },
        { "bit 20 covers two registers", "HR100.20", 1, { "01 03 04 01 00 AB CD", "01 10 00 63 00 02" },
            { "delay", "01 03 00 63 00 02", "delay", "01 10 00 63 00 02 04 01 00 AB CD" }, true, nullptr },
        { "FN6 pauses between the two registers", "FN6HR100.17", 1,
            { "01 03 04 01 00 AB CD", "01 06 00 63 01 00", "01 06 00 64 AB CD" },
            { "delay", "01 03 00 63 00 02", "delay", "01 06 00 63 01 00", "delay", "01 06 00 64 AB CD" },
            true, nullptr },
        { "the read checks the station", "HR100.3", 300, {}, { "delay" }, false,
            "invalid slave id:300 (write 1 bit to 44-HR100.3)" },
        { "bit 0: a read of no register, nothing written", "HR100", 1, { "01 03 00" },
            { "delay", "01 03 00 63 00 00" }, false, nullptr },
        { "bit 0: the drive refuses the read of none", "FN6HR100.0", 1, { "01 83 03" },
            { "delay", "01 03 00 63 00 00" }, false, "exception code:0x03 (write 1 bit to 1-FN6HR100.0)" },
    };
    for (const Row &row : rows) {
        DriverRig rig;
        rig.link.delay = 1;
        rig.link.station = row.station;
        for (const std::string &reply : row.replies)
            rig.link.line(withCrc(reply.c_str()));
        EXPECT_EQ(rig.write(Bit, row.address, QByteArray()), row.result) << row.what << ": " << rig.error();
        std::vector<std::string> expected;
        for (const std::string &step : row.sequence)
            expected.push_back(step == "delay" ? "delayMs" : "send " + toHex(withCrc(step.c_str())));
        EXPECT_EQ(rig.link.callsOf({ "send", "delayMs" }), expected) << row.what;
        EXPECT_EQ(rig.failed(), row.error != nullptr) << row.what;
        if (row.error) {
            EXPECT_EQ(rig.error(), row.error) << row.what;
        }
    }
}

TEST(RegisterBits, PublishedExchangeWithDelays)
{
    DriverRig rig;
    rig.link.delay = 1;
    rig.link.line("01 03 02 01 00 B9 D4");
    rig.link.line("01 10 00 63 00 01 F1 D7");
    EXPECT_TRUE(rig.write(Bit, "HR100.3", hex("01")));
    EXPECT_THAT(rig.link.callsOf({ "send", "delayMs" }),
        ElementsAre(
            "delayMs", "send 01 03 00 63 00 01 74 14", "delayMs", "send 01 10 00 63 00 01 02 01 08 AF 95"));
}

TEST(RegisterBits, FN6PausesBetweenWritesButNotAfterTheLast)
{
    DriverRig rig;
    rig.link.line(withCrc("01 03 06 00 00 00 00 00 00"));
    rig.link.line(withCrc("01 06 00 00 00 01"));
    rig.link.line(withCrc("01 06 00 01 00 00"));
    rig.link.line(withCrc("01 06 00 02 80 00"));
    EXPECT_TRUE(rig.write(Bit, "FN6HR1", repeated("00", 47) + hex("01")));
    std::vector<std::string> kinds;
    for (const std::string &c : rig.link.callsOf({ "send", "delayMs" }))
        kinds.push_back(c.substr(0, 4));
    EXPECT_THAT(kinds, ElementsAre("dela", "send", "dela", "send", "dela", "send", "dela", "send"));
}

TEST(RegisterBits, FailedReadWritesNothing)
{
    DriverRig rig;
    rig.link.line("01 83 02 C0 F1");
    EXPECT_FALSE(rig.write(Bit, "HR100.3", hex("01")));
    EXPECT_EQ(rig.link.sent().size(), 1u);
    EXPECT_EQ(rig.error(), "exception code:0x02 (write 1 bit to 1-HR100.3)");

    DriverRig tooWide;
    tooWide.write(Bit, "HR1", repeated("01", 2001));
    EXPECT_TRUE(tooWide.sentNothing());
    EXPECT_EQ(tooWide.error(), "can't read any word from HR1 (write 1 bit to 1-HR1)");
}

} // namespace
