// HR60000..HR60010: the driver's own table and the relay to HR1300 of the
// listed stations.

#include "driverrig.h"

#include <gmock/gmock.h>

#include <climits>

using testing::ElementsAre;

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
        void (*act)(DriverRig &);
        int index;
        quint16 value;
    } rows[] = {
        { "read-back station above 8 becomes 8",
            [](DriverRig &r) { r.write(Word, "HR60009", words({ 20 })); }, 9, 8 },
        { "word writes store any station count",
            [](DriverRig &r) { r.write(Word, "HR60000", words({ 20 })); }, 0, 20 },
        { "a bit write of the count sets 8",
            [](DriverRig &r) {
                r.write(Word, "HR60000", words({ 3 }));
                r.write(Bit, "HR60000.1", QByteArray(1, '\0'));
            },
            0, 8 },
        { "a bit write elsewhere brings the count down to 8",
            [](DriverRig &r) {
                r.write(Word, "HR60000", words({ 20 }));
                r.write(Bit, "HR60003.3", QByteArray(1, 1));
            },
            0, 8 },
        { "the bit itself", [](DriverRig &r) { r.write(Bit, "FN6HR60003.3", QByteArray(1, 1)); }, 3, 8 },
        { "bit 16 and above change nothing",
            [](DriverRig &r) { r.write(Bit, "HR60003.16", QByteArray(1, 1)); }, 3, 0 },
        { "a bit write with no data changes no bit",
            [](DriverRig &r) { r.write(Bit, "HR60003.2", QByteArray()); }, 3, 0 },
    };
    for (const Row &row : rows) {
        DriverRig rig;
        row.act(rig);
        EXPECT_EQ(table(rig)[row.index], row.value) << row.what;
        EXPECT_TRUE(rig.sentNothing()) << row.what;
    }
}

TEST(SpecialWindow, RelayToEveryListedStation)
{
    struct Row
    {
        const char *address;
        std::vector<std::string> frames;
    } rows[] = {
        { "HR60010", { "05 10 05 13 00 01 02 12 34", "07 10 05 13 00 01 02 12 34" } },
        { "FN6HR60010", { "05 06 05 13 12 34", "07 06 05 13 12 34" } },
    };
    for (const Row &row : rows) {
        DriverRig rig;
        listFiveAndSeven(rig);
        for (const std::string &f : row.frames)
            rig.link.line(withCrc(hex(f.c_str()).left(6)));
        EXPECT_TRUE(rig.write(Word, row.address, words({ 0x1234 }))) << rig.error();
        const std::vector<std::string> sent = framesWithCrc(row.frames);
        EXPECT_THAT(rig.link.callsOf({ "send", "delayMs", "stationId" }),
            ElementsAre("delayMs", "send " + sent[0], "delayMs", "send " + sent[1]))
            << row.address;
        EXPECT_EQ(table(rig)[10], 0x1234);
    }
}

TEST(SpecialWindow, RepeatedAttemptResumesWithTheStationThatFailed)
{
    DriverRig rig;
    listFiveAndSeven(rig);
    rig.link.reply("05 10 05 13 00 01"); // station 7 stays silent
    EXPECT_FALSE(rig.write(Word, "HR60010", words({ 0x1234 })));
    EXPECT_EQ(rig.error(), "PLC no response (write 1 word to 1-HR60010)");
    EXPECT_EQ(table(rig)[10], 0) << "the relay register changes only after every station has the value";

    // Within one command, the retry writes to station 7 only.
    DriverRig retried;
    retried.link.retries = 1;
    listFiveAndSeven(retried);
    retried.link.reply("05 10 05 13 00 01");
    retried.link.silence();
    retried.link.reply("07 10 05 13 00 01");
    EXPECT_TRUE(retried.write(Word, "HR60010", words({ 0x1234 })));
    EXPECT_EQ(retried.link.sent(),
        framesWithCrc(
            { "05 10 05 13 00 01 02 12 34", "07 10 05 13 00 01 02 12 34", "07 10 05 13 00 01 02 12 34" }));
    EXPECT_EQ(table(retried)[10], 0x1234);
    EXPECT_FALSE(retried.failed());
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

TEST(SpecialWindow, BitOfTheRelayRegisterIsReadModifyWrittenAtEachStation)
{
    // Station 5's register 0x513 holds 0x0001, station 7's 0x0000.
    const struct Row
    {
        const char *what;
        const char *address;
        QByteArray data;
        const char *writeTo5; // without CRC
        const char *writeTo7;
        quint16 relayRegister; // afterwards
    } rows[] = {
        { "bit 4 set at both, then in the table", "HR60010.4", hex("01"), "05 10 05 13 00 01 02 00 11",
            "07 10 05 13 00 01 02 00 10", 0x10 },
        { "no data with FN6: both written back unchanged, the table too", "FN6HR60010.3", QByteArray(),
            "05 06 05 13 00 01", "07 06 05 13 00 00", 0 },
    };
    for (const Row &row : rows) {
        DriverRig rig;
        listFiveAndSeven(rig);
        rig.link.reply("05 03 02 00 01");
        rig.link.line(withCrc(hex(row.writeTo5).left(6)));
        rig.link.reply("07 03 02 00 00");
        rig.link.line(withCrc(hex(row.writeTo7).left(6)));
        EXPECT_TRUE(rig.write(Bit, row.address, row.data)) << row.what << ": " << rig.error();
        const std::vector<std::string> sent
            = framesWithCrc({ "05 03 05 13 00 01", row.writeTo5, "07 03 05 13 00 01", row.writeTo7 });
        EXPECT_THAT(rig.link.callsOf({ "send", "delayMs" }),
            ElementsAre("delayMs", "send " + sent[0], "delayMs", "send " + sent[1], "delayMs",
                "send " + sent[2], "delayMs", "send " + sent[3]))
            << row.what;
        EXPECT_EQ(table(rig)[10], row.relayRegister) << row.what;
    }
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
        bool (*act)(DriverRig &);
        const char *error;
    } rows[] = {
        { "read past the table", [](DriverRig &r) { return !r.read(Word, 7, "HR60005").isEmpty(); },
            "can't read 7 word(s) from HR60005: the special registers end at HR60010 (read 7 word(s) from "
            "1-HR60005)" },
        { "negative count", [](DriverRig &r) { return !r.read(Word, -1, "HR60000").isEmpty(); },
            "can't read -1 word(s) from HR60000: the special registers end at HR60010 (read -1 word(s) from "
            "1-HR60000)" },
        { "a count that wraps into the table at 16 bits",
            [](DriverRig &r) { return !r.read(Word, 65537, "HR60001").isEmpty() || !r.failed(); },
            "can't read 65537 word(s) from HR60001: the special registers end at HR60010 (read 65537 "
            "word(s) from 1-HR60001)" },
        { "two words at the relay register",
            [](DriverRig &r) {
                return r.write(Word, "HR60010", words({ 1, 2 }));
            },
            "can't write 2 word(s) to HR60010: HR60010 takes one word on its own (write 1 word to "
            "1-HR60010)" },
        { "a write reaching the relay register",
            [](DriverRig &r) {
                return r.write(Word, "HR60009", words({ 1, 2 }));
            },
            "can't write 2 word(s) to HR60009: HR60010 takes one word on its own (write 1 word to "
            "1-HR60009)" },
        { "odd data", [](DriverRig &r) { return r.write(Word, "HR60001", hex("01")); },
            "can't write 1 byte(s) as words to HR60001 (write 1 word to 1-HR60001)" },
    };
    for (const Row &row : rows) {
        DriverRig rig;
        rig.write(Word, "HR60000", words({ 1, 5 }));
        EXPECT_FALSE(row.act(rig)) << row.what;
        EXPECT_EQ(rig.error(), row.error) << row.what;
        EXPECT_TRUE(rig.sentNothing()) << row.what;
        EXPECT_EQ(table(rig)[10], 0) << row.what;
    }
}

} // namespace
