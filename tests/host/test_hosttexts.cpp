// The texts that people type into the host programs: link settings, address
// texts, fault rules, register maps, command-line values and tags. Accepted
// forms are checked for what they mean; refused ones for a clear sentence.

#include "command.h"
#include "faultrule.h"
#include "hex.h"
#include "registermap.h"
#include "seriallink.h"
#include "simdrive.h"
#include "values.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <optional>

namespace {

// A text refused with a sentence that begins with error.
struct Refusal
{
    const char *text, *error;
};

void expectRefusals(
    std::initializer_list<Refusal> rows, const std::function<bool(const char *, std::string &)> &parse)
{
    for (const Refusal &row : rows) {
        SCOPED_TRACE(row.text);
        std::string error;
        EXPECT_FALSE(parse(row.text, error));
        EXPECT_EQ(error.rfind(row.error, 0), 0u) << error;
    }
}

// A line in the driver's form, or refused with one sentence and left as it was.
TEST(LinkText, ReadsTheDriversFormOfALine)
{
    struct Row
    {
        const char *text, *canonical; // or "!" and the start of the refusal
        int bits = 0;
        int64_t silenceNs = 0;
    } rows[] = {
        { "RS485,9600,NONE,8,2", "RS485,9600,NONE,8,2", 11, 4010416 },
        { " rs232 , 19200 , even , 8 , 1 ", "RS232,19200,EVEN,8,1", 11, 2005208 },
        { "RS422,38400,O,7,1", "RS422,38400,ODD,7,1", 10, 1750000 },
        { "RS485,115200,N,8,1", "RS485,115200,NONE,8,1", 10, 1750000 },
        { "",
            "!malformed link \"\" (expected INTERFACE,BAUD,PARITY,DATABITS,STOPBITS such as "
            "\"RS485,9600,NONE,8,2\")" },
        { "RS485,9600,NONE,8", "!malformed link" },
        { "RS485,9600,NONE,8,2,1", "!malformed link" },
        { "CAN,9600,NONE,8,2", "!unknown interface \"CAN\"" },
        { "RS485,14400,NONE,8,2",
            "!unsupported baud rate \"14400\" in link \"RS485,14400,NONE,8,2\" (the port takes 300, 600, "
            "1200, 2400, 4800, 9600, 19200, 38400, 57600, 115200, 230400, 460800, 921600)" },
        { "RS485,99999999999,NONE,8,2", "!unsupported baud rate" },
        { "RS485,9600,MARK,8,2", "!unknown parity \"MARK\"" },
        { "RS485,9600,NONE,9,2", "!data bits must be 7 or 8, not \"9\"" },
        { "RS485,9600,NONE,8,1.5", "!stop bits must be 1 or 2, not \"1.5\"" },
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.text);
        LinkSettings s;
        std::string error;
        if (*row.canonical == '!') {
            EXPECT_FALSE(LinkSettings::parse(row.text, s, error));
            EXPECT_EQ(error.rfind(row.canonical + 1, 0), 0u) << error;
            EXPECT_EQ(s.text(), "RS485,9600,NONE,8,2") << "left unchanged";
            continue;
        }
        ASSERT_TRUE(LinkSettings::parse(row.text, s, error)) << error;
        EXPECT_EQ(s.text(), row.canonical);
        EXPECT_EQ(s.bitsPerCharacter(), row.bits);
        EXPECT_NEAR(double(s.silenceNs()), double(row.silenceNs), 10.0);
    }
}

TEST(AddressTexts, AcceptThePanelsFormsAndRefuseTypingErrors)
{
    struct Row
    {
        const char *text, *canonical; // or "!" and the start of the refusal
        bool zeroBased; // the number typed is the wire number
        Area area = Area::HoldingRegisters;
        int wire = 0, bit = -1;
        bool swap = false;
    } rows[] = {
        { "HR100", "HR100", false, Area::HoldingRegisters, 99, -1, false },
        // Hexadecimal: the same one-based number.
        { "HR0x0063", "HR99", false, Area::HoldingRegisters, 98, -1, false },
        { "hr0x64.3", "HR100.3", false, Area::HoldingRegisters, 99, 3, false },
        { "HR0x10000", "HR65536", false, Area::HoldingRegisters, 65535, -1, false },
        { "IR0xaSW", "IR10SW", false, Area::InputRegisters, 9, -1, true },
        { "FN6HR0X4B0", "FN6HR1200", false, Area::HoldingRegisters, 1199, -1, false },
        // Wire numbers, as mbpoll counts: the text shown is still the panel's.
        { "HR0", "HR1", true, Area::HoldingRegisters, 0, -1, false },
        { "HR99.3", "HR100.3", true, Area::HoldingRegisters, 99, 3, false },
        { "DO65535", "DO65536", true, Area::Coils, 65535, -1, false },
        { "HR0x63SW", "HR100SW", true, Area::HoldingRegisters, 99, -1, true },
        { "fn5do5", "FN5DO5", false, Area::Coils, 4, -1, false },
        { "DI1", "DI1", false, Area::DiscreteInputs, 0, -1, false },
        { "ir7.15", "IR7.15", false, Area::InputRegisters, 6, 15, false },
        // Refused with one sentence.
        { "", "!unknown address \"\"", false },
        { "HR0", "!address \"HR0\" is out of range: numbers run from 1 to 65536 (one-based: HR1 is the first",
            false },
        { "HR0x", "!unknown address \"HR0x\"", false },
        { "HR0xG1", "!unknown address", false },
        { "HR", "!unknown address \"HR\"", false },
        { "HR65537", "!address \"HR65537\" is out of range", false },
        { "HR123456", "!unknown address", false },
        { "HR100.16", "!bad bit in address \"HR100.16\"", false },
        { "HR100.", "!bad bit in address", false },
        { "HR100.3SW", "!unknown address", false },
        { "DO5.1", "!address \"DO5.1\" names a bit of a coil area", false },
        { "DI5SW", "!unknown address", false },
        { "HR100 ", "!unknown address", false },
        { "HR1\xe9", "!unknown address", false },
        { "HR65536", "!address \"HR65536\" is out of range: with --zero-based, numbers run from 0 to 65535",
            true },
        { "HR-1", "!unknown address \"HR-1\" (expected HR, IR, DO, DI, FN5DO or FN6HR and a wire number",
            true },
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.text);
        AddressText a;
        std::string error;
        if (*row.canonical == '!') {
            EXPECT_FALSE(AddressText::parse(row.text, a, error, row.zeroBased));
            EXPECT_EQ(error.rfind(row.canonical + 1, 0), 0u) << error;
            continue;
        }
        ASSERT_TRUE(AddressText::parse(row.text, a, error, row.zeroBased)) << error;
        EXPECT_EQ(a.text(), row.canonical);
        EXPECT_EQ(a.area, row.area);
        EXPECT_EQ(a.wireNumber(), row.wire);
        EXPECT_EQ(a.bit, row.bit);
        EXPECT_EQ(a.swap, row.swap);
    }
}

// A rule's kind and options, or one sentence naming the rule and the key: one
// row per way a rule is refused; what each key takes is its line of the key
// table, shown here once through the value key's range.
TEST(FaultRules, ReadKindAndOptionsOrRefuseEachBadKey)
{
    struct Row
    {
        const char *text, *error; // error: "" when read, else its start
        FaultRule::Kind kind = FaultRule::NoReply;
        int station = -1;
        bool anyAddress = true;
        int address = 0;
        double rate = 1.0;
        int times = -1, value = -1;
    } rows[] = {
        { "noreply", "", FaultRule::NoReply, -1, true, 0, 1.0, -1, -1 },
        { "late:at=HR200,ms=800,times=1", "", FaultRule::Late, -1, false, 199, 1.0, 1, 800 },
        { "corrupt:rate=5%", "", FaultRule::Corrupt, -1, true, 0, 0.05, -1, -1 },
        { "exception:station=7,code=2,rate=0.5", "", FaultRule::Exception, 7, true, 0, 0.5, -1, 2 },
        { "truncate:keep=255", "", FaultRule::Truncate, -1, true, 0, 1.0, -1, 255 },
        { "exception:code=11", "", FaultRule::Exception, -1, true, 0, 1.0, -1, 11 },
        { "wrongstation:as=9", "", FaultRule::WrongStation, -1, true, 0, 1.0, -1, 9 },
        { "noise:bytes=6,at=DO3", "", FaultRule::Noise, -1, false, 2, 1.0, -1, 6 },
        { "", "unknown fault \"\" (noreply, corrupt" },
        { "noreply:", "fault \"noreply:\" has an empty key (write KIND:KEY=VALUE,...)" },
        { "late:ms=5,,times=1", "fault \"late:ms=5,,times=1\" has an empty key" },
        { "late:code=2",
            "fault \"late:code=2\": late has no key \"code\" (it takes station, at, rate, times and "
            "ms)" },
        { "late:ms=5,ms=6", "fault \"late:ms=5,ms=6\" gives the key \"ms\" twice" },
        { "noreply:at", "fault \"noreply:at\": the key \"at\" needs a value, an address without a bit" },
        { "exception:code=",
            "fault \"exception:code=\": the key \"code\" needs a value, a Modbus exception code" },
        { "exception:code=99",
            "fault \"exception:code=99\": the key \"code\" takes a Modbus exception code from 1 to 11, "
            "not "
            "\"99\"" },
        { "exception:code=0", "fault \"exception:code=0\": the key \"code\" takes a Modbus exception code" },
        { "noreply:rate=1.5", "fault \"noreply:rate=1.5\": the key \"rate\" takes a share from 0 to 1" },
        { "noreply:times=0", "fault \"noreply:times=0\": the key \"times\" takes a count from 1" },
        { "noreply:at=HR100.3",
            "fault \"noreply:at=HR100.3\": the key \"at\" takes an address without a bit" },
        { "noreply:station=300", "fault \"noreply:station=300\": the key \"station\" takes a station" },
        // Each kind's own key stops at its range: one past either end is refused.
        { "truncate:keep=256", "fault \"truncate:keep=256\": the key \"keep\" takes" },
        { "late:ms=-1", "fault \"late:ms=-1\": the key \"ms\" takes" },
        { "wrongstation:as=256", "fault \"wrongstation:as=256\": the key \"as\" takes" },
        { "noise:bytes=1025", "fault \"noise:bytes=1025\": the key \"bytes\" takes" },
        { "noreply:rate=x", "fault \"noreply:rate=x\": the key \"rate\" takes" },
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.text);
        FaultRule r;
        std::string error;
        if (*row.error) {
            EXPECT_FALSE(FaultRule::parse(row.text, r, error));
            EXPECT_EQ(error.rfind(row.error, 0), 0u) << error;
            EXPECT_EQ(error.find('\n'), std::string::npos) << error;
            continue;
        }
        ASSERT_TRUE(FaultRule::parse(row.text, r, error)) << error;
        EXPECT_EQ(std::make_tuple(r.kind, r.station, r.anyAddress, r.address, r.times, r.value),
            std::make_tuple(row.kind, row.station, row.anyAddress, row.address, row.times, row.value));
        EXPECT_DOUBLE_EQ(r.rate, row.rate);
        FaultRule again;
        ASSERT_TRUE(FaultRule::parse(r.text(), again, error)) << r.text() << ": " << error;
        EXPECT_EQ(again.text(), r.text());
    }
}

TEST(FaultRules, MatchTheRequestsRange)
{
    FaultRule r;
    std::string error;
    ASSERT_TRUE(FaultRule::parse("noreply:station=2,at=HR200", r, error));
    EXPECT_TRUE(r.matches(2, Area::HoldingRegisters, 199, 1));
    EXPECT_TRUE(r.matches(2, Area::HoldingRegisters, 150, 50));
    EXPECT_FALSE(r.matches(2, Area::HoldingRegisters, 150, 49));
    EXPECT_FALSE(r.matches(2, Area::InputRegisters, 199, 1));
    EXPECT_FALSE(r.matches(3, Area::HoldingRegisters, 199, 1));
}

TEST(RegisterMaps, NameTheLineOfAProblem)
{
    expectRefusals(
        {
            { "HR1\n", "line 1: expected ADDRESS VALUE" },
            { "\nHR1 70000\n", "line 2: 70000 does not fit in a register" },
            { "HR1 abc\n", "line 1: \"abc\" is not a number" },
            { "HR1 0x-5\n", "line 1: \"0x-5\" is not a number" },
            { "DO1 2\n", "line 1: a coil or discrete input holds 0 or 1" },
            { "HR1.2 1\n", "line 1: use plain HR, IR, DO or DI addresses" },
            { "station 0\n", "line 1: a station is a number from 1 to 247" },
            { "XX1 1\n", "line 1: unknown address" },
            { "HR65536SW 1\n", "line 1: 1 does not fit in two registers" },
        },
        [](const char *text, std::string &error) {
            std::vector<MapEntry> e;
            return parseRegisterMap(text, e, error);
        });
}

TEST(RegisterMaps, AMapServesItsDefaultsAsTheRegistersHoldThem)
{
    using A = Area;
    const std::string older = "# comment\nHR5 -1 minus one\nstation 2\nIR3 0x10\n"
                              "HR10SW 0x12345678 a double word\nstation all\nDO1 1\n";
    struct Row
    {
        const char *what;
        std::optional<std::string> map;
        int station;
        Area area;
        int address; // zero-based
        uint16_t value;
    } rows[] = {
        { "no map: the built-in one", std::nullopt, 1, A::HoldingRegisters, 99, 1500 },
        { "an empty map", std::string(), 1, A::HoldingRegisters, 99, 0 },
        { "a map of white space", std::string(" \n\t\n"), 1, A::HoldingRegisters, 99, 0 },
        { "a map of its own", std::string("HR100 7\n"), 1, A::HoldingRegisters, 99, 7 },
        { "the older form: a negative value", older, 1, A::HoldingRegisters, 4, 0xFFFF },
        { "the older form: a station's own", older, 2, A::InputRegisters, 2, 0x10 },
        { "the older form: not another station's", older, 1, A::InputRegisters, 2, 0 },
        { "the older form: a double word's high word", older, 2, A::HoldingRegisters, 9, 0x1234 },
        { "the older form: its low word", older, 2, A::HoldingRegisters, 10, 0x5678 },
        { "the older form: every station after \"station all\"", older, 3, A::Coils, 0, 1 },
        { "a scale: 1.25 A in 0.01 A", std::nullopt, 1, A::InputRegisters, 1, 125 },
        { "an offset: 25.0 C in 0.1 C from -40", std::nullopt, 1, A::InputRegisters, 2006, 650 },
        { "a double word, high word first", std::nullopt, 1, A::HoldingRegisters, 104, 0x86A0 },
        { "a string", std::nullopt, 2, A::InputRegisters, 2009, 0x5349 },
        { "a register's bit on its word", std::string("name,address,default\nw,HR7,4660\nb,HR7.0,1\n"), 1,
            A::HoldingRegisters, 6, 0x1235 },
        { "a station column: not this station", std::string("name,address,default,station\na,HR9,5,2\n"), 1,
            A::HoldingRegisters, 8, 0 },
        { "a station column: its station", std::string("name,address,default,station\na,HR9,5,2\n"), 2,
            A::HoldingRegisters, 8, 5 },
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.what);
        SimDrive drive;
        SimDrive::Options options;
        options.map = row.map;
        std::string error;
        ASSERT_TRUE(drive.start(options, error)) << error;
        uint16_t value = 0xFFFF;
        EXPECT_TRUE(drive.value(row.station, row.area, row.address, value));
        EXPECT_EQ(value, row.value);
        drive.stop();
    }
}

TEST(RegisterMaps, TheOlderFormConvertsToAParameterMapThatServesTheSame)
{
    const char *rows[] = {
        "HR1 2 control mode (0 position, 1 speed, 2 torque)\nHR5 -1\nIR3 0x10\nHR10SW -2 double\nDO1 1\n",
        "HR104SW 100000 position command\nstation 2\nHR5 7 speed\nstation 3\nHR5 8 speed\n",
        "HR401 1 servo on\nmotion servo-on HR401\nmotion speed-command HR402\nstation 2\n"
        "motion position IR402SW position\n",
    };
    auto same = [](const MapEntry &a, const MapEntry &b) {
        return a.station == b.station && a.area == b.area && a.address == b.address && a.value == b.value;
    };
    auto sameBinding = [](const MotionEntry &a, const MotionEntry &b) {
        return a.station == b.station && a.quantity == b.quantity && a.area == b.area
            && a.address == b.address;
    };
    for (const char *text : rows) {
        SCOPED_TRACE(text);
        std::string csv, error;
        ASSERT_TRUE(convertRegisterMap(text, csv, error)) << error;
        std::vector<MapEntry> before, after;
        std::vector<MotionEntry> motionBefore, motionAfter;
        ASSERT_TRUE(parseRegisterMap(text, before, error, &motionBefore)) << error;
        ASSERT_TRUE(parseRegisterMap(csv, after, error, &motionAfter)) << error << "\n" << csv;
        EXPECT_TRUE(std::equal(before.begin(), before.end(), after.begin(), after.end(), same)) << csv;
        EXPECT_TRUE(std::equal(
            motionBefore.begin(), motionBefore.end(), motionAfter.begin(), motionAfter.end(), sameBinding))
            << csv;
    }
    std::string csv, error;
    EXPECT_FALSE(convertRegisterMap(builtinServoMap(), csv, error));
    EXPECT_EQ(error, "the map is a parameter map already: nothing to convert");
}

TEST(StationLists, ReadNumbersAndRanges)
{
    std::vector<int> s;
    std::string error;
    ASSERT_TRUE(SimDrive::parseStations("1,2,5-7,2", s, error)) << error;
    EXPECT_EQ(s, (std::vector<int> { 1, 2, 5, 6, 7 }));
    for (const char *bad : { "", "0", "248", "3-1", "1,,2", "a", "1-", "-3" })
        EXPECT_FALSE(SimDrive::parseStations(bad, s, error)) << bad;
}

TEST(CommandValues, ParseIntoTheTypesRange)
{
    struct Row
    {
        const char *text;
        ValueType type;
        bool good;
        uint32_t value;
    } rows[] = {
        { "1", ValueType::Bit, true, 1 },
        { "on", ValueType::Bit, true, 1 },
        { "off", ValueType::Bit, true, 0 },
        { "2", ValueType::Bit, false, 0 },
        { "255", ValueType::Byte, true, 255 },
        { "-128", ValueType::Byte, true, 0xFFFFFF80 },
        { "256", ValueType::Byte, false, 0 },
        { "65535", ValueType::Word, true, 65535 },
        { "-32768", ValueType::Word, true, 0xFFFF8000 },
        { "0x1F", ValueType::Word, true, 31 },
        { "65536", ValueType::Word, false, 0 },
        { "-32769", ValueType::Word, false, 0 },
        { "4294967295", ValueType::DWord, true, 0xFFFFFFFF },
        { "-2147483648", ValueType::DWord, true, 0x80000000 },
        { "4294967296", ValueType::DWord, false, 0 },
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.text);
        uint32_t v = 0;
        std::string error;
        EXPECT_EQ(parseValue(row.text, row.type, v, error), row.good) << error;
        if (row.good)
            EXPECT_EQ(v, row.value);
        else
            EXPECT_FALSE(error.empty());
    }
}
TEST(CommandValues, PackAndUnpackInThePanelsByteOrder)
{
    EXPECT_EQ(packValues({ 0x1234, 0xFFFF8000 }, ValueType::Word), QByteArray("\x34\x12\x00\x80", 4));
    EXPECT_EQ(packValues({ 0x12345678 }, ValueType::DWord), QByteArray("\x78\x56\x34\x12", 4));
    EXPECT_EQ(packValues({ 1, 0, 1 }, ValueType::Bit), QByteArray("\x01\x00\x01", 3));

    AddressText a;
    std::string error;
    ASSERT_TRUE(AddressText::parse("HR100.14", a, error));
    const std::vector<Element> bits = unpackValues(QByteArray("\x05", 1), a, ValueType::Bit, 3);
    ASSERT_EQ(bits.size(), 3u);
    EXPECT_EQ(bits[0].address, "HR100.14");
    EXPECT_EQ(bits[2].address, "HR101.0");
    EXPECT_EQ(bits[2].value, 1u);
    ASSERT_TRUE(AddressText::parse("HR100SW", a, error));
    const std::vector<Element> dwords
        = unpackValues(QByteArray("\x78\x56\x34\x12\x01\x00\x00\x00", 8), a, ValueType::DWord, 2);
    ASSERT_EQ(dwords.size(), 2u);
    EXPECT_EQ(dwords[0].value, 0x12345678u);
    EXPECT_EQ(dwords[1].address, "HR102SW");
    // A short answer gives only the whole elements.
    EXPECT_EQ(unpackValues(QByteArray("\x01\x02\x03", 3), a, ValueType::Word, 2).size(), 1u);
    EXPECT_TRUE(unpackValues(QByteArray(), a, ValueType::Bit, 8).empty());
}

// words, then value count times.
std::vector<std::string> many(std::vector<std::string> words, int count, const char *value)
{
    words.insert(words.end(), size_t(count), value);
    return words;
}

TEST(CommandLine, EachCommandTakesItsOwnArgumentsAndOptions)
{
    struct Row
    {
        std::vector<std::string> args;
        bool batchLine;
        const char *error; // "" for a good command
    } rows[] = {
        { { "info", "x" }, false, "info takes no arguments" },
        { { "info", "--type", "word" }, false, "option --type does not apply to info" },
        { { "read", "HR1", "HR2" }, false, "usage: read ADDRESS" },
        { { "read", "HR1", "--from", "2" }, false, "option --from does not apply to read" },
        { { "write", "HR1", "5", "--count", "2" }, false, "option --count does not apply to write" },
        { { "poll", "HR1", "DO1:bit:8", "--interval", "0", "--cycles", "3", "--duration", "2.5" }, false,
            "" },
        { { "poll", "HR1", "--address", "HR2" }, false, "option --address does not apply to poll" },
        { { "poll", "HR1", "--duration", "-1" }, false, "option --duration takes seconds" },
        { { "poll", "HR1", "--duration", "1e9" }, false, "option --duration takes seconds" },
        { { "read", "HR1", "--port", "/dev/ttyS0" }, true, "option --port belongs on the command line" },
        { { "scan", "--from", "2", "--to", "9", "--address", "DI1" }, false, "" },
        { { "scan", "--to", "0" }, false, "scan needs 1 <= --from <= --to <= 247" },
        { { "scan", "--address", "HR1.2" }, false, "scan probes with one word or bit read" },
        { { "scan", "--cycles", "2" }, false, "option --cycles does not apply to scan" },
        { { "scan", "x" }, false, "usage: scan" },
        { { "scan", "--bauds", "9600,19200", "--parities", "n,EVEN", "--stop-bits", "2,1" }, false, "" },
        { { "scan", "--bauds", "9600,9601" }, false, "option --bauds takes baud rates such as 9600,19200" },
        { { "scan", "--bauds", "" }, false, "option --bauds takes baud rates" },
        { { "scan", "--parities", "N,M" }, false, "option --parities takes parities such as N,E" },
        { { "scan", "--stop-bits", "1.5" }, false, "option --stop-bits takes stop bits such as 1,2" },
        { { "read", "HR1", "--bauds", "9600" }, false, "option --bauds does not apply to read" },
        { { "doctor", "x" }, false, "usage: doctor" },
        { { "doctor" }, true, "doctor runs only on the command line" },
        { { "batch", "a", "b" }, false, "usage: batch [FILE]" },
        { { "batch" }, true, "a batch cannot start another batch" },
        { { "trace", "on" }, false,
            "unknown command \"trace\" (info, read, write, poll, scan, doctor, batch, shell, decode, params, "
            "map or sniff)" },
        { { "trace", "on" }, true, "" },
        { { "trace", "maybe" }, true, "usage: trace on|off" },
        { { "fault" }, true, "usage: fault KIND" },
        { { "fault", "late", "--count", "2" }, true, "option --count does not apply to fault" },
        { { "fault", "explode" }, true, "unknown fault \"explode\"" },
        { { "--json", "--station", "3" }, false, "no command given" },
        { { "READ", "HR1" }, false, "unknown command \"READ\"" },
        { { "shell" }, true, "a batch cannot start a shell" },
        { { "shell", "x" }, false, "usage: shell" },
        { { "help" }, true,
            "unknown command \"help\" (info, read, write, poll, scan, decode, trace, fault, params or map)" },
        // What the driver cannot do in one command is bad usage, found before anything is sent.
        { { "read", "HR100", "--count", "125" }, false, "" },
        { { "read", "HR100", "--count", "126" }, false, "at most 125 registers in one read" },
        { { "read", "HR100", "--format", "float32", "--count", "63" }, false,
            "at most 125 registers in one read" },
        { { "read", "HR100", "--type", "dword", "--count", "63" }, false,
            "at most 125 registers in one read" },
        { { "read", "HR100.15", "--count", "1986" }, false, "at most 125 registers in one read" },
        { { "read", "DO1", "--count", "2009" }, false, "at most 2008 bits in one read" },
        { { "read", "HR65530", "--count", "10" }, false,
            "HR65530 with 10 registers runs past HR65536, the last register" },
        { { "read", "HR65536SW" }, false, "HR65536SW with 2 registers runs past HR65536, the last register" },
        { { "read", "DO65536", "--count", "2" }, false, "DO65536 with 2 bits runs past DO65536" },
        { { "poll", "HR100:word:200" }, false, "at most 125 registers in one read" },
        { many({ "write", "HR100" }, 124, "1"), false, "at most 123 registers in one write" },
        { many({ "write", "HR100", "--type", "byte" }, 246, "1"), false, "" },
        { many({ "write", "DO1" }, 1977, "1"), false, "at most 1976 coils in one write" },
        { { "write", "HR100", std::string(300, 'x'), "--format", "string" }, false,
            "at most 123 registers in one write" },
        { { "write", "IR5", "1" }, false, "input registers are read-only" },
        { { "write", "DI5", "1" }, false, "discrete inputs are read-only" },
        { { "read", "HR60005", "--count", "6" }, false, "" },
        { { "read", "HR60005", "--count", "7" }, false, "the driver's register window ends at HR60010" },
        { { "write", "HR60008", "1", "2", "3" }, false,
            "HR60010, the driver's relay register, takes one word" },
        { { "write", "HR60010", "1" }, false, "" },
        { { "scan", "--address", "HR60001" }, false, "the driver serves HR60000 to HR60010 itself" },
        { { "scan", "--address", "FN6HR60010" }, false, "the driver serves HR60000 to HR60010 itself" },
        { { "write", "HR100", "1.5" }, false,
            "a word takes an integer, not \"1.5\" (for a number with a fraction give a format, such as "
            "--format float32)" },
        { { "poll", "HR100@2", "IR1:uint16:2@0" }, false, "" },
        { { "poll", "HR100@256" }, false, "a tag's station follows \"@\"" },
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(joined(row.args) + (row.batchLine ? "(in a batch)" : ""));
        CliOptions o;
        Command c;
        std::string error;
        const bool good = parseCliArguments(row.args, o, row.batchLine, error)
            && prepareCommand(o, row.batchLine, c, error);
        EXPECT_EQ(good, !*row.error) << error;
        if (*row.error)
            EXPECT_EQ(error.rfind(row.error, 0), 0u) << error;
        else
            EXPECT_EQ(c.name(), row.args[0]);
    }
}

TEST(CommandLine, TagsNameAddressTypeAndCount)
{
    struct Row
    {
        const char *text;
        ValueType type;
        int count;
        const char *format = ""; // settled, with its word order
    } rows[] = {
        // How formats settle at an address is checked in test_formats.cpp.
        { "HR100", ValueType::Word, 1 },
        { "HR100:float32:2", ValueType::Word, 2, "float32:CDAB" },
        { "HR100:int32:abcd", ValueType::Word, 1, "int32:ABCD" },
        { "HR100:int32:BADC:4", ValueType::Word, 4, "int32:BADC" },
        { "HR100:string:8", ValueType::Word, 8, "string" },
        { "IR1:hex:3", ValueType::Word, 3, "hex" },
        { "HR100:3", ValueType::Word, 3 },
        { "HR100:dword", ValueType::DWord, 1 },
        { "DO1:bit:8", ValueType::Bit, 8 },
        { "HR100:byte:4", ValueType::Byte, 4 },
        { "HR100:125", ValueType::Word, 125 },
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.text);
        Tag t;
        std::string error;
        ASSERT_TRUE(parseTag(row.text, t, error)) << error;
        EXPECT_EQ(t.type, row.type);
        EXPECT_EQ(t.count, row.count);
        EXPECT_EQ(t.format ? t.format->text() : "", row.format);
    }
    for (const char *bad : { "HR100:3:float32", "HR100.2:hex", "HR65535:float64", "HR100:float", "HR100:0",
             "DO1:word", "HR1:2:3:4", "HR100:byte:251" }) {
        Tag t;
        std::string error;
        EXPECT_FALSE(parseTag(bad, t, error)) << bad;
    }
}

TEST(CommandLine, BatchLinesSplitIntoWordsUpToAComment)
{
    struct Row
    {
        const char *line;
        std::vector<std::string> words;
    } rows[] = {
        { "read  \"HR100\" --count 2", { "read", "HR100", "--count", "2" } },
        { "  # only a comment", {} },
        { "fault \"late:at=HR1 #5\"", { "fault", "late:at=HR1 #5" } },
        { "write HR1 5#6", { "write", "HR1", "5#6" } },
        { "write HR1 \"\"#6", { "write", "HR1", "#6" } },
        { "read HR100\r", { "read", "HR100" } },
        // Quoting as in a POSIX shell.
        { "write HR1 \"a\\\\b\\c\"", { "write", "HR1", "a\\b\\c" } },
        { "write HR1 'say \"hi\" \\n #' x''y", { "write", "HR1", "say \"hi\" \\n #", "xy" } },
        { "write HR1 a\\ b \\#c \\'", { "write", "HR1", "a b", "#c", "'" } },
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.line);
        std::vector<std::string> words;
        std::string error;
        EXPECT_TRUE(splitWords(row.line, words, error)) << error;
        EXPECT_EQ(words, row.words);
    }
    for (const char *line : { "read \"HR2", "write HR1 'it", "write HR1 \"a\\\"", "write HR1 a\\" }) {
        SCOPED_TRACE(line);
        std::vector<std::string> words;
        std::string error;
        EXPECT_FALSE(splitWords(line, words, error));
        EXPECT_FALSE(error.empty());
    }
}

TEST(CommandLine, TheShellCompletesCommandsOptionsAndAddresses)
{
    using Words = std::vector<std::string>;
    struct Row
    {
        Words before;
        const char *word;
        Words completions;
        Words names = {}; // a map's
    } rows[] = {
        { {}, "re", { "read" } },
        { {}, "",
            { "info", "read", "write", "poll", "scan", "decode", "trace", "fault", "params", "map", "help",
                "quit", "exit" } },
        { {}, "ba", {} }, // not on a line
        { { "read" }, "f", { "FN5DO", "FN6HR" } }, { { "read", "HR1" }, "H", {} }, // the value goes there
        { { "poll", "HR1" }, "i", { "IR" } }, { { "read", "HR1" }, "--co", { "--count" } },
        { { "scan" }, "--st", { "--station", "--stop-bits" } },
        { { "read", "HR1" }, "--po", {} }, // for the command line only
        { { "read", "HR1", "--type" }, "d", { "dword" } }, { { "scan", "--address" }, "D", { "DO", "DI" } },
        { { "trace" }, "o", { "on", "off" } }, { { "trace", "on" }, "o", {} },
        { {}, "--f", { "--format", "--from" } }, // options before the command
        { { "read", "HR1", "--format" }, "f", { "float32", "float64" } },
        { { "read", "HR1", "--format" }, "int32:C", { "int32:CDAB" } },
        { { "write" }, "d", { "DO", "DI", "decel-time" },
            { "speed", "decel-time" } }, // where an address goes
        { { "read", "HR1", "--type" }, "d", { "dword" }, { "decel-time" } }, // and nowhere else
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(joined(row.before) + "[" + row.word + "]");
        EXPECT_EQ(completeShellWord(row.before, row.word, row.names), row.completions);
    }
}

} // namespace
