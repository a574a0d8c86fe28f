// HR60000..HR60010: the driver's own table and the relay to HR1300 of the
// listed stations.

#include "driverrig.h"

#include <gmock/gmock.h>

#include <cstring>

namespace {

std::vector<quint16> table(DriverRig &rig)
{
    const QVector<quint16> &t = rig.driver.specialRegisterTable();
    return std::vector<quint16>(t.begin(), t.end());
}

// Stations 5 and 7 in the list, the link's delay 1 and the calls so far
// forgotten.
void listFiveAndSeven(DriverRig &rig)
{
    rig.link.delay = 1;
    ASSERT_TRUE(rig.write(Word, "HR60000", words({ 2, 5, 7 })));
    rig.link.calls.clear();
}

TEST(SpecialWindow, TableReadsAndWritesSendNothing)
{
    DriverRig rig;
    EXPECT_EQ(rig.read(Word, 10, "HR60000"), QByteArray(20, '\0'));
    EXPECT_TRUE(rig.write(Word, "HR60000", words({ 2, 5, 7 })));
    EXPECT_TRUE(rig.write(Word, "FN6HR60009", words({ 3 })));
    EXPECT_EQ(toHex(rig.read(Word, 3, "hr60000")), "02 00 05 00 07 00");
    EXPECT_EQ(toHex(rig.read(Word, 1, "FN6HR60009")), "03 00");
    EXPECT_TRUE(rig.sentNothing());
    EXPECT_FALSE(rig.failed());
}

TEST(SpecialWindow, BoundsOnTheTable)
{
    struct Row
    {
        const char *what;
        std::vector<std::pair<const char *, QByteArray>> writes; // a bit write where the address has a bit
        int index;
        quint16 value;
    } rows[] = {
        { "read-back station above 8 becomes 8", { { "HR60009", words({ 20 }) } }, 9, 8 },
        { "word writes store any station count", { { "HR60000", words({ 20 }) } }, 0, 20 },
        { "a bit write of the count sets 8", { { "HR60000", words({ 3 }) }, { "HR60000.1", hex("00") } }, 0,
            8 },
        { "a bit write elsewhere brings the count down to 8",
            { { "HR60000", words({ 20 }) }, { "HR60003.3", hex("01") } }, 0, 8 },
        { "the bit itself", { { "FN6HR60003.3", hex("01") } }, 3, 8 },
        { "bit 16 and above change nothing", { { "HR60003.16", hex("01") } }, 3, 0 },
        { "a bit write with no data changes no bit", { { "HR60003.2", QByteArray() } }, 3, 0 },
    };
    for (const Row &row : rows) {
        DriverRig rig;
        for (const auto &w : row.writes)
            rig.write(std::strchr(w.first, '.') ? Bit : Word, w.first, w.second);
        EXPECT_EQ(table(rig)[row.index], row.value) << row.what;
        EXPECT_TRUE(rig.sentNothing()) << row.what;
    }
}

// A write to the relay register with stations 5 and 7 listed: the replies
// (without CRC; "" for silence), the calls that follow ("delay", "station", or
// a frame sent, without CRC) and the relay register afterwards.
TEST(SpecialWindow, RelayToEveryListedStation)
{
    const char *to5 = "05 10 05 13 00 01 02 12 34", *to7 = "07 10 05 13 00 01 02 12 34";
    const char *echo5 = "05 10 05 13 00 01", *echo7 = "07 10 05 13 00 01";
    const struct Row
    {
        const char *what;
        int type, retries;
        const char *address;
        QByteArray data;
        std::vector<std::string> replies, calls;
        const char *error; // nullptr: the write succeeds
        quint16 relayRegister;
    } rows[] = {
        { "function 16", Word, 0, "HR60010", words({ 0x1234 }), { echo5, echo7 },
            { "delay", to5, "delay", to7 }, nullptr, 0x1234 },
        { "function 6", Word, 0, "FN6HR60010", words({ 0x1234 }),
            { "05 06 05 13 12 34", "07 06 05 13 12 34" },
            { "delay", "05 06 05 13 12 34", "delay", "07 06 05 13 12 34" }, nullptr, 0x1234 },
        { "station 7 silent: the register changes only once every station has the value", Word, 0, "HR60010",
            words({ 0x1234 }), { echo5 }, { "delay", to5, "delay", to7, "station" },
            "PLC no response (write 1 word to 1-HR60010)", 0 },
        { "the retry resumes with the station that failed", Word, 1, "HR60010", words({ 0x1234 }),
            { echo5, "", echo7 }, { "delay", to5, "delay", to7, "delay", to7 }, nullptr, 0x1234 },
        { "bit 4 set at 5 (holding 1) and 7 (holding 0), then in the table", Bit, 0, "HR60010.4", hex("01"),
            { "05 03 02 00 01", echo5, "07 03 02 00 00", echo7 },
            { "delay", "05 03 05 13 00 01", "delay", "05 10 05 13 00 01 02 00 11", "delay",
                "07 03 05 13 00 01", "delay", "07 10 05 13 00 01 02 00 10" },
            nullptr, 0x10 },
        { "no data with FN6: both written back unchanged, the table too", Bit, 0, "FN6HR60010.3",
            QByteArray(), { "05 03 02 00 01", "05 06 05 13 00 01", "07 03 02 00 00", "07 06 05 13 00 00" },
            { "delay", "05 03 05 13 00 01", "delay", "05 06 05 13 00 01", "delay", "07 03 05 13 00 01",
                "delay", "07 06 05 13 00 00" },
            nullptr, 0 },
    };
    for (const Row &row : rows) {
        DriverRig rig;
        listFiveAndSeven(rig);
        rig.link.retries = row.retries;
        for (const std::string &reply : row.replies)
            reply.empty() ? rig.link.silence() : rig.link.reply(reply.c_str());
        EXPECT_EQ(rig.write(row.type, row.address, row.data), row.error == nullptr) << row.what;
        std::vector<std::string> expected;
        for (const std::string &step : row.calls)
            expected.push_back(step == "delay" ? "delayMs"
                    : step == "station"        ? "stationId"
                                               : "send " + toHex(withCrc(step.c_str())));
        EXPECT_EQ(rig.link.callsOf({ "send", "delayMs", "stationId" }), expected) << row.what;
        EXPECT_EQ(rig.failed(), row.error != nullptr) << row.what;
        if (row.error) {
            EXPECT_EQ(rig.error(), row.error) << row.what;
        }
        EXPECT_EQ(table(rig)[10], row.relayRegister) << row.what;
    }
}

TEST(SpecialWindow, ReadBackFromTheChosenStationOrNoneWithoutStations)
{
    DriverRig none;
    EXPECT_TRUE(none.write(Word, "HR60010", words({ 0x2A })));
    EXPECT_EQ(toHex(none.read(Word, 1, "HR60010")), "2A 00");
    EXPECT_TRUE(none.sentNothing());

    DriverRig rig;
    listFiveAndSeven(rig);
    ASSERT_TRUE(rig.write(Word, "HR60009", words({ 5 })));
    rig.link.reply("05 03 02 00 2A");
    EXPECT_EQ(toHex(rig.read(Word, 2, "HR60009")), "05 00 2A 00");
    EXPECT_EQ(rig.link.sent(), framesWithCrc({ "05 03 05 13 00 01" }));

    // A failed read-back keeps its error and returns the value it had.
    EXPECT_EQ(toHex(rig.read(Word, 1, "HR60010")), "2A 00");
    EXPECT_EQ(rig.error(), "PLC no response (read 1 word(s) from 1-HR60010)");
}

TEST(SpecialWindow, RelayNeverTakesStationsFromBeyondTheList)
{
    DriverRig rig;
    ASSERT_TRUE(rig.write(Word, "HR60000", words({ 20, 11, 12, 13, 14, 15, 16, 17, 18 })));
    ASSERT_TRUE(rig.write(Word, "HR60009", words({ 8 })));
    for (int s = 11; s <= 18; ++s)
        rig.link.line(withCrc(QByteArray(1, char(s)) + hex("10 05 13 00 01")));
    EXPECT_TRUE(rig.write(Word, "HR60010", words({ 1 })));
    ASSERT_EQ(rig.link.sent().size(), 8u);
    for (int i = 0; i < 8; ++i)
        EXPECT_EQ(hex(rig.link.sent()[i].c_str()).at(0), char(11 + i));
}

TEST(SpecialWindow, AccessesPastTheRelayRegisterAreRefused)
{
    struct Row
    {
        const char *what;
        const char *address;
        int count; // a read of so many words where there is no data to write
        QByteArray data;
        const char *error;
    } rows[] = {
        { "read past the table", "HR60005", 7, {},
            "can't read 7 word(s) from HR60005: the special registers end at HR60010 (read 7 word(s) from "
            "1-HR60005)" },
        { "negative count", "HR60000", -1, {},
            "can't read -1 word(s) from HR60000: the special registers end at HR60010 (read -1 word(s) from "
            "1-HR60000)" },
        { "a count that wraps into the table at 16 bits", "HR60001", 65537, {},
            "can't read 65537 word(s) from HR60001: the special registers end at HR60010 (read 65537 "
            "word(s) from 1-HR60001)" },
        { "two words at the relay register", "HR60010", 0, words({ 1, 2 }),
            "can't write 2 word(s) to HR60010: HR60010 takes one word on its own (write 1 word to "
            "1-HR60010)" },
        { "a write reaching the relay register", "HR60009", 0, words({ 1, 2 }),
            "can't write 2 word(s) to HR60009: HR60010 takes one word on its own (write 1 word to "
            "1-HR60009)" },
        { "odd data", "HR60001", 0, hex("01"),
            "can't write 1 byte(s) as words to HR60001 (write 1 word to 1-HR60001)" },
    };
    for (const Row &row : rows) {
        DriverRig rig;
        rig.write(Word, "HR60000", words({ 1, 5 }));
        EXPECT_FALSE(row.data.isEmpty() ? !rig.read(Word, row.count, row.address).isEmpty()
                                        : rig.write(Word, row.address, row.data))
            << row.what;
        EXPECT_TRUE(rig.failed()) << row.what;
        EXPECT_EQ(rig.error(), row.error) << row.what;
        EXPECT_TRUE(rig.sentNothing()) << row.what;
        EXPECT_EQ(table(rig)[10], 0) << row.what;
    }
}

} // namespace
