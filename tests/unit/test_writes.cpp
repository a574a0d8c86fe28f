// Register, coil and register-bit writes, through the runtime's write and the
// link double.

#include "driverrig.h"

#include <gmock/gmock.h>

#include <cstring>

namespace {

// The drive's answer to a function-5, 6, 15 or 16 request: its first six
// bytes echoed, with a fresh CRC.
void echo(LinkDouble &link, const std::string &request) { link.reply(request.substr(0, 17).c_str()); }

TEST(Writes, FramesOnTheWire)
{
    const struct Row
    {
        const char *what;
        int type;
        const char *address;
        QByteArray data;
        std::vector<std::string> frames; // without CRC
        const char *registersRead = nullptr; // register bits: the registers' data read first
    } rows[] = {
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
        { "dword with FN6", DoubleWord, "FN6HR100", hex("78 56 34 12"),
            { "01 06 00 63 56 78", "01 06 00 64 12 34" } },
        { "three words with FN6", Word, "FN6HR10", hex("01 00 02 00 03 00"),
            { "01 06 00 09 00 01", "01 06 00 0A 00 02", "01 06 00 0B 00 03" } },
        { "no words with FN6", Word, "FN6HR1", QByteArray(), {} },
        { "coils", Bit, "DO20", hex("01 00 01 01 00 00 01 01 01 00"), { "01 0F 00 13 00 0A 02 CD 01" } },
        { "single coils; any non-zero byte is on", Bit, "FN5DO1", hex("01 00 02 80"),
            { "01 05 00 00 FF 00", "01 05 00 01 00 00", "01 05 00 02 FF 00", "01 05 00 03 FF 00" } },
        { "no single coils", Bit, "FN5DO1", QByteArray(), {} },
        // Register bits: HR100 holds 0x0100, read and written back.
        { "set bit 3", Bit, "HR100.3", hex("01"), { "01 10 00 63 00 01 02 01 08" }, "01 00" },
        { "set bit 3 with FN6", Bit, "FN6HR100.3", hex("01"), { "01 06 00 63 01 08" }, "01 00" },
        { "clear bit 8", Bit, "HR100.8", hex("00"), { "01 10 00 63 00 01 02 00 00" }, "01 00" },
        { "0x80 sets like 1", Bit, "hr100.0", hex("80"), { "01 10 00 63 00 01 02 01 01" }, "01 00" },
        { "bit 20 is bit 4 of the next register", Bit, "HR100.20", hex("01"),
            { "01 10 00 63 00 02 04 01 00 00 10" }, "01 00 00 00" },
        { "bits 15 and 16", Bit, "HR100.15", hex("01 01"), { "01 10 00 63 00 02 04 81 00 00 01" },
            "01 00 00 00" },
    };
    for (const auto &row : rows) {
        DriverRig rig;
        std::vector<std::string> expected = framesWithCrc(row.frames);
        if (row.registersRead) {
            const QByteArray registers = hex(row.registersRead);
            rig.link.line(withCrc(hex("01 03") + char(registers.size()) + registers));
            expected.insert(expected.begin(),
                toHex(withCrc(("01 03 00 63 00 0" + std::to_string(registers.size() / 2)).c_str())));
        }
        for (const std::string &f : row.frames)
            echo(rig.link, f);
        EXPECT_TRUE(rig.write(row.type, row.address, row.data)) << row.what << ": " << rig.error();
        EXPECT_EQ(rig.link.sent(), expected) << row.what;
    }
}

TEST(Writes, LimitsDataSizesAndTheStation)
{
    // Register writes check the range before the station; coil writes the
    // station first.
    const struct Row
    {
        int type;
        const char *address;
        QByteArray data;
        const char *error; // nullptr: accepted and sent
        int station;
    } rows[] = {
        { Word, "HR1", repeated("01 00", 123), nullptr, 1 },
        { Word, "HR1", repeated("01 00", 124), "can't write any word to HR1 (write 1 word to 1-HR1)", 1 },
        { Word, "HR0", hex("01 00"), nullptr, 1 },
        { Word, "HR0", hex("01 00 02 00"), "can't write any word to HR65536 (write 1 word to 1-HR0)", 1 },
        { Word, "FN6HR1", repeated("01 00", 124), "can't write any word to HR1 (write 1 word to 1-FN6HR1)",
            1 },
        { Word, "HR1", hex("01 02 03"), "can't write 3 byte(s) as words to HR1 (write 1 word to 1-HR1)", 1 },
        { Word, "FN6HR1", hex("01"), "can't write 1 byte(s) as words to HR1 (write 1 word to 1-FN6HR1)", 1 },
        { Byte, "HR1", repeated("01", 246), nullptr, 1 },
        { Byte, "HR1", repeated("01", 247), "can't write any byte to HR1 (write 1 byte to 1-HR1)", 1 },
        { Byte, "FN6HR1", repeated("01", 247), "can't write any byte to HR1 (write 1 byte to 1-FN6HR1)", 1 },
        { DoubleWord, "HR100", repeated("01 00 00 00", 61), nullptr, 1 },
        { DoubleWord, "HR100", repeated("01 00 00 00", 62),
            "can't write any double word to HR100 (write 1 dword to 1-HR100)", 1 },
        { DoubleWord, "HR1", hex("01 02 03 04 05 06"),
            "can't write 6 byte(s) as double words to HR1 (write 1 dword to 1-HR1)", 1 },
        { DoubleWord, "FN6HR1SW", hex("01 02"),
            "can't write 2 byte(s) as double words to HR1 (write 1 dword to 1-FN6HR1SW)", 1 },
        { Bit, "DO1", repeated("01", 1976), nullptr, 1 },
        { Bit, "DO1", repeated("01", 1977), "can't write 1977 bits to DO1 (write 1 bit to 1-DO1)", 1 },
        { Bit, "FN5DO1", repeated("01", 1977), "can't write 1977 bits to DO1 (write 1 bit to 1-FN5DO1)", 1 },
        { Bit, "DO0", hex("01"), nullptr, 1 },
        { Bit, "DO0", hex("01 01"), "can't write 2 bits to DO65536 (write 1 bit to 1-DO0)", 1 },
        { Word, "HR1", repeated("01 00", 124), "can't write any word to HR1 (write 1 word to 0-HR1)", 256 },
        { Word, "HR1", hex("01 00"), "invalid slave id:256 (write 1 word to 0-HR1)", 256 },
        { Word, "FN6HR1", hex("01 00"), "invalid slave id:256 (write 1 word to 0-FN6HR1)", 256 },
        { Bit, "DO1", repeated("01", 1977), "invalid slave id:256 (write 1 bit to 0-DO1)", 256 },
        { Bit, "FN5DO1", hex("01"), "invalid slave id:256 (write 1 bit to 0-FN5DO1)", 256 },
        { Bit, "HR1.3", hex("01"), "invalid slave id:256 (write 1 bit to 0-HR1.3)", 256 },
    };
    for (const auto &row : rows) {
        DriverRig rig;
        rig.link.station = row.station;
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

TEST(Writes, DelaysFailuresAndEmptyDataThatStillWritesBackTheCoveredRegisters)
{
    // A register-bit write: the link's delay comes before the write-back and
    // between two function-6 requests, not after the last. No bits to change:
    // the registers from start up to the bit index are read and written back
    // all the same; with bit index 0 none are covered, and the read of none
    // ends with false. One request per element stops at the first failure.
    const struct Row
    {
        const char *what;
        int type;
        const char *address;
        QByteArray data;
        int station;
        std::vector<std::string> replies; // without CRC
        std::vector<std::string> sequence; // "delay", or a frame sent, without CRC
        bool result;
        const char *error; // nullptr: none
    } rows[] = {
        { "HR100 read and written back unchanged", Bit, "HR100.3", QByteArray(), 1,
            { "01 03 02 01 00", "01 10 00 63 00 01" },
            { "delay", "01 03 00 63 00 01", "delay", "01 10 00 63 00 01 02 01 00" }, true, nullptr },
        { "FN6 pauses between the two registers", Bit, "FN6HR100.17", hex("01"), 1,
            { "01 03 04 01 00 AB CD", "01 06 00 63 01 00", "01 06 00 64 AB CF" },
            { "delay", "01 03 00 63 00 02", "delay", "01 06 00 63 01 00", "delay", "01 06 00 64 AB CF" },
            true, nullptr },
        { "the read checks the station", Bit, "HR100.3", QByteArray(), 300, {}, { "delay" }, false,
            "invalid slave id:300 (write 1 bit to 44-HR100.3)" },
        { "bit 0: a read of no register, nothing written", Bit, "HR100", QByteArray(), 1, { "01 03 00" },
            { "delay", "01 03 00 63 00 00" }, false, nullptr },
        { "a failed read writes nothing", Bit, "FN6HR100.3", hex("01"), 1, { "01 83 02" },
            { "delay", "01 03 00 63 00 01" }, false, "exception code:0x02 (write 1 bit to 1-FN6HR100.3)" },
        { "a run too wide for one read", Bit, "HR1", repeated("01", 2001), 1, {}, { "delay" }, false,
            "can't read any word from HR1 (write 1 bit to 1-HR1)" },
        { "function 6 stops at the first failure", Word, "FN6HR10", hex("01 00 02 00 03 00"), 1,
            { "01 06 00 09 00 01", "01 86 04" }, { "delay", "01 06 00 09 00 01", "01 06 00 0A 00 02" }, false,
            "exception code:0x04 (write 1 word to 1-FN6HR10)" },
        { "function 5 stops at the first failure", Bit, "FN5DO1", hex("01 01 01"), 1, { "01 05 00 00 FF 00" },
            { "delay", "01 05 00 00 FF 00", "01 05 00 01 FF 00" }, false,
            "PLC no response (write 1 bit to 1-FN5DO1)" },
    };
    for (const auto &row : rows) {
        DriverRig rig;
        rig.link.delay = 1;
        rig.link.station = row.station;
        for (const std::string &reply : row.replies)
            rig.link.reply(reply.c_str());
        EXPECT_EQ(rig.write(row.type, row.address, row.data), row.result) << row.what << ": " << rig.error();
        std::vector<std::string> expected;
        for (const std::string &step : row.sequence)
            expected.push_back(step == "delay" ? "delayMs" : "send " + toHex(withCrc(step.c_str())));
        EXPECT_EQ(rig.link.callsOf({ "send", "delayMs" }), expected) << row.what;
        EXPECT_EQ(rig.error(), row.error ? row.error : "") << row.what;
    }
}

} // namespace
