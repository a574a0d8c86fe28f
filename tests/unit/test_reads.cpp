// Register and bit reads, through the runtime's read and the link double:
// request frames, the two-piece exchange and its texts, limits, conversions.

#include "driverrig.h"

#include <gmock/gmock.h>

#include <climits>
#include <cstring>

using testing::ElementsAre;

namespace {

TEST(ReadExchange, WordsArriveInTwoPiecesAndComeBackInPanelOrder)
{
    DriverRig rig;
    rig.link.line("01 03 04 12 34 56 78 81 07");
    EXPECT_EQ(toHex(rig.read(Word, 2, "HR100")), "34 12 78 56");
    EXPECT_FALSE(rig.failed());
    EXPECT_THAT(rig.link.calls,
        ElementsAre("delayMs", "stationId", "setParameter 12 0 int", "send 01 03 00 63 00 02 34 15",
            "receive 5", "receive 4"));
}

TEST(ReadExchange, EveryFailureHasItsText)
{
    struct Row
    {
        const char *what;
        void (*script)(LinkDouble &);
        const char *error;
        int receives;
    } rows[] = {
        { "nothing comes", [](LinkDouble &) {}, "PLC no response", 1 },
        { "link reports -1", [](LinkDouble &l) { l.piece("", -1); }, "PLC no response", 1 },
        { "three bytes", [](LinkDouble &l) { l.piece("01 03 04"); }, "received bytes < 5", 1 },
        { "link reports more than asked", [](LinkDouble &l) { l.piece("01 03 04 12 34", 9); },
            "received bytes < 5", 1 },
        { "another station", [](LinkDouble &l) { l.line("02 03 04 12 34 56 78 81 07"); },
            "invalid slave id:2", 1 },
        { "station 255 answers", [](LinkDouble &l) { l.line("FF 03 04 12 34"); }, "invalid slave id:255", 1 },
        { "exception", [](LinkDouble &l) { l.line("01 83 02 C0 F1"); }, "exception code:0x02", 1 },
        { "exception with bad CRC", [](LinkDouble &l) { l.line("01 83 02 C0 F2"); }, "CRC error", 1 },
        { "another function code", [](LinkDouble &l) { l.line("01 04 04 12 34 56 78 00 00"); },
            "invalid response", 1 },
        { "exception of another code", [](LinkDouble &l) { l.line("01 84 02 C2 C1"); }, "invalid response",
            1 },
        { "rest cut short", [](LinkDouble &l) { l.line("01 03 04 12 34 56 78 81"); }, "packet loss", 2 },
        { "rest reported long",
            [](LinkDouble &l) {
                l.piece("01 03 04 12 34");
                l.piece("56 78 81 07", 6);
            },
            "packet loss", 2 },
        { "last byte changed", [](LinkDouble &l) { l.line("01 03 04 12 34 56 78 81 08"); }, "CRC error", 2 },
    };
    for (const Row &row : rows) {
        DriverRig rig;
        row.script(rig.link);
        EXPECT_TRUE(rig.read(Word, 2, "HR100").isEmpty()) << row.what;
        EXPECT_TRUE(rig.failed()) << row.what;
        EXPECT_EQ(rig.error(), std::string(row.error) + " (read 2 word(s) from 1-HR100)") << row.what;
        EXPECT_EQ(rig.link.countOf("receive"), row.receives) << row.what;
    }
}

TEST(ReadLimits, CountsAtAndPastEachLimitAndTheStation)
{
    const struct Row
    {
        int type;
        const char *address;
        int count;
        const char *request; // first six bytes of the request, or nullptr: refused
        const char *refusal;
        int station;
    } rows[] = {
        { Word, "HR1", 125, "01 03 00 00 00 7D", nullptr, 1 },
        { Word, "HR1", 126, nullptr, "can't read any word from HR1", 1 },
        { Word, "HR0", 1, "01 03 FF FF 00 01", nullptr, 1 },
        { Word, "HR0", 2, nullptr, "can't read any word from HR65536", 1 },
        { Word, "IR1", 0, "01 04 00 00 00 00", nullptr, 1 },
        { Word, "HR1", -1, nullptr, "can't read any word from HR1", 1 },
        { DoubleWord, "HR100", 62, "01 03 00 63 00 7C", nullptr, 1 },
        { DoubleWord, "HR100", 63, nullptr, "can't read any double word from HR100", 1 },
        { DoubleWord, "HR100", INT_MIN, nullptr, "can't read any double word from HR100", 1 },
        { DoubleWord, "HR65536", 1, nullptr, "can't read any double word from HR65536", 1 },
        { Byte, "HR1", 250, "01 03 00 00 00 7D", nullptr, 1 },
        { Byte, "HR1", 251, nullptr, "can't read any byte from HR1", 1 },
        { Byte, "hr7", -1, nullptr, "can't read any byte from hr7", 1 },
        { Bit, "DO1", 2008, "01 01 00 00 07 D8", nullptr, 1 },
        { Bit, "DO1", 2009, nullptr, "can't read 2009 bits from DO1", 1 },
        { Bit, "DI1", -1, nullptr, "can't read -1 bits from DI1", 1 },
        { BitBlock, "DO0", 1, "01 01 FF FF 00 01", nullptr, 1 },
        { Bit, "DO0", 2, nullptr, "can't read 2 bits from DO65536", 1 },
        { Bit, "HR1", 2000, "01 03 00 00 00 7D", nullptr, 1 },
        { Bit, "HR1", 2001, nullptr, "can't read any word from HR1", 1 },
        { Bit, "HR1.255", 1745, "01 03 00 00 00 7D", nullptr, 1 },
        { Bit, "HR1.255", 1746, nullptr, "can't read any word from HR1", 1 },
        { Word, "HR1", 1, nullptr, "invalid slave id:256 (read 1 word(s) from 0-HR1)", 256 },
        { Word, "HR1", 1, nullptr, "invalid slave id:-1 (read 1 word(s) from 255-HR1)", -1 },
    };
    for (const Row &row : rows) {
        DriverRig rig;
        rig.link.station = row.station;
        rig.read(row.type, row.count, row.address);
        const std::string what = std::string(row.address) + " x" + std::to_string(row.count);
        if (row.request) {
            ASSERT_EQ(rig.link.sent().size(), 1u) << what;
            EXPECT_EQ(rig.link.sent()[0].substr(0, 17), row.request) << what;
            EXPECT_EQ(rig.error().substr(0, 15), "PLC no response") << what;
        } else {
            EXPECT_TRUE(rig.sentNothing()) << what;
            EXPECT_EQ(rig.error().substr(0, std::strlen(row.refusal)), row.refusal) << what;
        }
    }
}

TEST(ReadLimits, RefusalTextsCarryTheWholePrefix)
{
    // The parser takes any run of letters as the prefix, and the refusal
    // texts repeat it as written, however long it is.
    const std::string address = "HR" + std::string(3000, 'x') + "Y100";
    const std::string bits = "DO" + std::string(3000, 'x') + "Y1";
    DriverRig rig;
    rig.read(Word, 126, address.c_str());
    EXPECT_EQ(
        rig.error(), "can't read any word from " + address + " (read 126 word(s) from 1-" + address + ")");
    rig.read(Bit, 2009, bits.c_str());
    EXPECT_EQ(rig.error(), "can't read 2009 bits from " + bits + " (read 2009 bit(s) from 1-" + bits + ")");
    EXPECT_TRUE(rig.sentNothing());
}

TEST(ReadConversions, ResultsInPanelOrderAndRegisterBitCounts)
{
    const struct Row
    {
        const char *what;
        int type;
        const char *address;
        int count;
        const char *request; // without CRC; nullptr: nothing sent
        const char *reply; // without CRC; nullptr: none
        const char *result;
        const char *error = nullptr;
        int station = 1;
    } rows[] = {
        { "a byte count that disagrees is neither used as a length nor refused", Word, "HR100", 2,
            "01 03 00 63 00 02", "01 03 FF 12 34 56 78", "34 12 78 56" },
        { "dword, SW: first register high", DoubleWord, "HR100SW", 1, "01 03 00 63 00 02",
            "01 03 04 00 01 00 02", "02 00 01 00" },
        { "dword: first register low", DoubleWord, "hr100", 1, "01 03 00 63 00 02", "01 03 04 00 01 00 02",
            "01 00 02 00" },
        { "two dwords", DoubleWord, "HR1sw", 2, "01 03 00 00 00 04", "01 03 08 12 34 56 78 9A BC DE F0",
            "78 56 34 12 F0 DE BC 9A" },
        { "odd byte count", Byte, "HR1", 3, "01 03 00 00 00 02", "01 03 04 11 22 33 44", "22 11 44" },
        { "coils, bits past the count cleared", Bit, "DO1", 10, "01 01 00 00 00 0A", "01 01 02 FF FF",
            "FF 03" },
        { "inputs as they stand", Bit, "DI5", 16, "01 02 00 04 00 10", "01 02 02 A5 5A", "A5 5A" },
        { "register bit 3 set", Bit, "HR100.3", 1, "01 03 00 63 00 01", "01 03 02 00 08", "01" },
        { "register bit 3 clear", Bit, "HR100.3", 1, "01 03 00 63 00 01", "01 03 02 FF F7", "00" },
        { "bit 15 and the next register's bit 0", Bit, "HR100.15", 2, "01 03 00 63 00 02",
            "01 03 04 80 00 00 01", "03" },
        { "bit index 20 is bit 4 of the next register", Bit, "HR100.20", 1, "01 03 00 63 00 02",
            "01 03 04 FF FF 00 10", "01" },
        { "sixteen bits from bit 0", BitBlock, "HR1", 16, "01 03 00 00 00 01", "01 03 02 12 34", "34 12" },
        { "no bit part reads from bit 0", Bit, "HR1", 3, "01 03 00 00 00 01", "01 03 02 00 0D", "05" },
        { "run across three registers", Bit, "IR1.14", 20, "01 04 00 00 00 03", "01 04 06 C0 00 FF FF 00 03",
            "FF FF 0F" },
        // Register bits: W = (bit index + count) / 16 rounded up, wrapping in
        // 32 bits; the word read then checks, sends and records as for any W.
        { "bit 1 with -1 wraps to no register", Bit, "HR100.1", -1, "01 03 00 63 00 00", "01 03 00", "" },
        { "the drive refuses a read of no register", Bit, "HR100.1", -1, "01 03 00 63 00 00", "01 83 03", "",
            "exception code:0x03 (read -1 bit(s) from 1-HR100.1)" },
        { "no register, but the station is checked", Bit, "HR100.1", -1, nullptr, nullptr, "",
            "invalid slave id:300 (read -1 bit(s) from 44-HR100.1)", 300 },
        { "bit 20 with -3 wraps to two registers", Bit, "IR100.20", -3, "01 04 00 63 00 02",
            "01 04 04 12 34 56 78", "" },
        { "bit 0 with -1 needs 2^28 registers", Bit, "HR1", -1, nullptr, nullptr, "",
            "can't read any word from HR1 (read -1 bit(s) from 1-HR1)" },
    };
    for (const Row &row : rows) {
        DriverRig rig;
        rig.link.station = row.station;
        if (row.reply)
            rig.link.reply(row.reply);
        EXPECT_EQ(toHex(rig.read(row.type, row.count, row.address)), row.result) << row.what;
        EXPECT_EQ(rig.link.sent(),
            framesWithCrc(
                row.request ? std::vector<std::string> { row.request } : std::vector<std::string> {}))
            << row.what;
        EXPECT_EQ(rig.failed(), row.error != nullptr) << row.what << ": " << rig.error();
        EXPECT_EQ(rig.error(), row.error ? row.error : "") << row.what;
    }
}

} // namespace
