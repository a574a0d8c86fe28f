// Number formats of register contents: which registers a typed value gives
// in every word order, that what a read shows types back to the same
// registers, and that a value or a register count that does not fit is
// refused with a sentence.

#include "formats.h"
#include "formattedio.h"
#include "samplelog.h"

#include <gtest/gtest.h>

namespace {

ValueFormat formatOf(const char *text)
{
    ValueFormat f;
    std::string error;
    EXPECT_TRUE(ValueFormat::parse(text, f, error)) << text << ": " << error;
    return f;
}

std::string hexRegisters(const std::vector<uint16_t> &registers)
{
    std::string out;
    char buffer[8];
    for (uint16_t r : registers) {
        std::snprintf(buffer, sizeof buffer, "%s%04X", out.empty() ? "" : " ", r);
        out += buffer;
    }
    return out;
}

TEST(Formats, TypedValuesGiveTheirRegistersAndShowAsTypedOrAreRefused)
{
    struct Row
    {
        const char *format, *typed;
        const char *registers; // on the wire, in register order; or "!" and a part of the refusal
        const char *shown = "";
    } rows[] = {
        { "int16", "-1", "FFFF", "-1" },
        { "int16", "0x10", "0010", "16" },
        { "uint16", "0b101", "0005", "5" },
        { "hex", "0xbeef", "BEEF", "0xBEEF" },
        { "hex", "7", "0007", "0x0007" },
        { "binary", "0b1010", "000A", "0b0000000000001010" },
        // The four orders of one 32-bit value, 0x12345678.
        { "uint32:ABCD", "305419896", "1234 5678", "305419896" },
        { "uint32:CDAB", "305419896", "5678 1234", "305419896" },
        { "uint32:BADC", "305419896", "3412 7856", "305419896" },
        { "uint32:dcba", "305419896", "7856 3412", "305419896" },
        { "int32:CDAB", "-2", "FFFE FFFF", "-2" },
        // Floats: the shortest text that reads back to the same bits (their
        // word orders are those of every 32-bit format, above).
        { "float32", "-1.5", "BFC0 0000", "-1.5" },
        { "float32", "0.1", "3DCC CCCD", "0.1" },
        { "float32", "3.4028235e38", "7F7F FFFF", "3.4028235e+38" },
        { "float32", "1.4e-45", "0000 0001", "1e-45" },
        { "float32", "-0", "8000 0000", "-0" },
        { "float32", "inf", "7F80 0000", "inf" },
        { "float32", "nan", "7FC0 0000", "nan" },
        { "float32", "-nan", "7FC0 0000", "nan" },
        { "float32", "16777217", "4B80 0000", "16777216" },
        // 64-bit: CDAB puts the lowest word first, BADC swaps within each.
        { "float64:CDAB", "1", "0000 0000 0000 3FF0", "1" },
        { "float64:BADC", "1", "F03F 0000 0000 0000", "1" },
        { "float64:DCBA", "1", "0000 0000 0000 F03F", "1" },
        { "float64", "0.1", "3FB9 9999 9999 999A", "0.1" },
        { "float64:CDAB", "-2.5e-300", "302F B3B7 C9A7 81BA", "-2.5e-300" },
        { "float64", "1.7976931348623157e308", "7FEF FFFF FFFF FFFF", "1.7976931348623157e+308" },
        { "float64", "-inf", "FFF0 0000 0000 0000", "-inf" },
        // Strings: first character in the high byte, NUL padded.
        { "string", "hello", "6865 6C6C 6F00", "hello" },
        { "string", "ab", "6162", "ab" },
        { "string", "", "0000", "" },
        { "string", "a\\\\b", "615C 6200", "a\\\\b" },
        { "string", "\\x01\\xff", "01FF", "\\x01\\xff" },
        { "string", "a\\x00b", "6100 6200", "a\\x00b" },
        // What does not fit is refused with one sentence.
        { "int16", "32768", "!value 32768 does not fit in int16 (-32768 to 32767)" },
        { "int16", "-32769", "!does not fit in int16" },
        { "uint16", "-1", "!value -1 does not fit in uint16 (0 to 65535)" },
        { "hex", "0x10000", "!does not fit in hex (0x0000 to 0xFFFF)" },
        { "binary", "0b10000000000000000", "!does not fit in binary" },
        { "int32", "2147483648", "!does not fit in int32 (-2147483648 to 2147483647)" },
        { "uint32", "4294967296", "!does not fit in uint32 (0 to 4294967295)" },
        { "uint32", "99999999999999999999999", "!is not a whole number" },
        { "int16", "1.5", "!\"1.5\" is not a whole number (decimal, 0x hexadecimal or 0b binary)" },
        { "int16", "", "!is not a whole number" },
        { "int16", "0b", "!is not a whole number" },
        { "int16", "0b2", "!is not a whole number" },
        { "float32", "1e39", "!value 1e39 does not fit in float32 (0, or magnitudes from 1.4e-45 to" },
        { "float32", "1e-50", "!does not fit in float32" },
        { "float64", "1e309", "!does not fit in float64" },
        { "float32", "abc", "!\"abc\" is not a number" },
        { "float64", "", "!is not a number" },
        { "float32", "0x10", "!is not a number" },
        { "string", "a\\q", "!bad escape in the string \"a\\q\"" },
        { "string", "a\\x4", "!bad escape" },
        { "string", "\\", "!bad escape" },
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(std::string(row.format) + " " + row.typed);
        const ValueFormat format = formatOf(row.format);
        std::vector<uint16_t> registers;
        std::string error;
        if (*row.registers == '!') {
            EXPECT_FALSE(parseFormatted(row.typed, format, registers, error));
            EXPECT_NE(error.find(row.registers + 1), std::string::npos) << error;
            continue;
        }
        ASSERT_TRUE(parseFormatted(row.typed, format, registers, error)) << error;
        EXPECT_EQ(hexRegisters(registers), row.registers);
        std::vector<std::string> shown;
        ASSERT_TRUE(formatRegisters(registers, format, shown, error)) << error;
        ASSERT_EQ(shown.size(), 1u);
        EXPECT_EQ(shown[0], row.shown);
        std::vector<uint16_t> again;
        ASSERT_TRUE(parseFormatted(shown[0], format, again, error)) << error;
        EXPECT_EQ(again, registers) << "what a read shows must type back to the same registers";
    }
    std::vector<std::string> shown;
    std::string error;
    EXPECT_FALSE(formatRegisters({ 1, 2, 3 }, formatOf("float32"), shown, error));
    EXPECT_EQ(error, "3 registers do not make whole float32:ABCD values of 2 registers each");
    EXPECT_FALSE(formatRegisters({ 1, 2 }, formatOf("float64:CDAB"), shown, error));
    EXPECT_TRUE(shown.empty());
}

// Every register content of every format and order shows as a text that
// types back to the same registers (NaNs aside, which all show as nan).
TEST(Formats, EveryRegisterContentRoundTrips)
{
    const char *names[] = { "int16", "uint16", "hex", "binary", "int32", "uint32", "float32", "float64" };
    const char *orders[] = { "ABCD", "CDAB", "BADC", "DCBA" };
    const uint16_t words[]
        = { 0x0000, 0x0001, 0x7FFF, 0x8000, 0xFFFF, 0x1234, 0x3F80, 0x7F80, 0x00FF, 0xC2F6 };
    for (const char *name : names) {
        for (const char *order : orders) {
            ValueFormat format = formatOf(name);
            if (format.isWide())
                format = formatOf((std::string(name) + ":" + order).c_str());
            const int per = format.registersPerValue();
            for (uint16_t a : words)
                for (uint16_t b : words) {
                    // a, or a b, or a a^b a b
                    std::vector<uint16_t> registers { a };
                    if (per == 4)
                        registers.insert(registers.end(), { uint16_t(a ^ b), a });
                    if (per > 1)
                        registers.push_back(b);
                    std::vector<std::string> shown;
                    std::vector<uint16_t> again;
                    std::string error;
                    ASSERT_TRUE(formatRegisters(registers, format, shown, error)) << error;
                    ASSERT_EQ(shown.size(), 1u);
                    if (shown[0] == "nan")
                        continue;
                    ASSERT_TRUE(parseFormatted(shown[0], format, again, error))
                        << format.text() << " " << error;
                    EXPECT_EQ(hexRegisters(again), hexRegisters(registers))
                        << format.text() << " shown as " << shown[0];
                }
            if (!format.isWide())
                break;
        }
    }
    std::vector<uint16_t> text;
    for (int i = 0; i < 128; ++i)
        text.push_back(uint16_t(((2 * i + 1) << 8) | (2 * i + 2)));
    std::vector<std::string> shown;
    std::vector<uint16_t> again;
    std::string error;
    const ValueFormat string = formatOf("string");
    ASSERT_TRUE(formatRegisters(text, string, shown, error));
    ASSERT_TRUE(parseFormatted(shown.at(0), string, again, error)) << error;
    EXPECT_EQ(again, text);
}

TEST(Formats, FormatNamesAndOrders)
{
    struct Row
    {
        const char *text, *canonical, *error; // canonical nullptr: refused
    } rows[] = {
        { "uint16", "uint16", "" },
        { "HEX", "hex", "" },
        { "float32", "float32:ABCD", "" },
        { "Float32:cdab", "float32:CDAB", "" },
        { "int32:BADC", "int32:BADC", "" },
        { "float64:DCBA", "float64:DCBA", "" },
        { "string", "string", "" },
        { "float", nullptr, "unknown format \"float\" (expected int16, uint16, hex" },
        { "", nullptr, "unknown format" },
        { "int16:CDAB", nullptr, "a word order applies to 32- and 64-bit formats only, not to int16" },
        { "string:BADC", nullptr, "not to string" },
        { "int32:ABDC", nullptr, "unknown word order \"ABDC\" (expected ABCD, CDAB, BADC or DCBA)" },
        { "int32:", nullptr, "unknown word order" },
        { "int32:CDAB:2", nullptr, "unknown word order" },
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.text);
        ValueFormat f;
        std::string error;
        const bool ok = ValueFormat::parse(row.text, f, error);
        EXPECT_EQ(ok, row.canonical != nullptr) << error;
        if (row.canonical) {
            EXPECT_EQ(f.text(), row.canonical);
            EXPECT_EQ(f.orderGiven, std::string(row.text).find(':') != std::string::npos);
        } else {
            EXPECT_NE(error.find(row.error), std::string::npos) << error;
        }
    }
}

// A format at an address: the word order the address implies unless the
// format names one, and a refusal where the format cannot apply.
TEST(Formats, SettleAtTheirAddress)
{
    struct Row
    {
        const char *address, *format, *settled; // settled, or the start of the refusal
        bool good;
    } rows[] = {
        { "HR100", "float32", "float32:CDAB", true }, // as the driver's double word
        { "HR100SW", "float32", "float32:ABCD", true }, // as the driver's SW double word
        { "HR100", "int32:ABCD", "int32:ABCD", true },
        { "HR100SW", "int32:BADC", "int32:BADC", true },
        { "IR7", "float64", "float64:CDAB", true },
        { "HR100", "string", "string", true },
        { "HR100SW", "int32:CDAB",
            "HR100SW puts the high word first, which int32:CDAB contradicts (give HR100", false },
        { "HR100SW", "int16", "\"SW\" in HR100SW orders the words of 32- and 64-bit values, not of int16",
            false },
        { "DO5", "uint16", "formats apply to registers: DO5 is a coil", false },
        { "HR100.3", "hex", "formats apply to whole registers: HR100.3 names bit 3 (give HR100", false },
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(std::string(row.address) + " " + row.format);
        AddressText address;
        std::string error;
        ASSERT_TRUE(AddressText::parse(row.address, address, error)) << error;
        ValueFormat format = formatOf(row.format);
        EXPECT_EQ(settleFormat(address, format, error), row.good);
        if (row.good)
            EXPECT_EQ(format.text(), row.settled);
        else
            EXPECT_EQ(error.rfind(row.settled, 0), 0u) << error;
    }
}

// Log lines: CSV fields quoted as RFC 4180 asks, one row per value; JSON
// numbers only for finite numbers of numeric formats.
TEST(SampleLog, WritesCsvRowsAndJsonLines)
{
    Sample good;
    good.wallMs = 1795437001250; // 2026-11-23T12:30:01.250Z
    good.tag = "HR100:float32:2";
    good.ok = true;
    good.addresses = { "HR100", "HR102" };
    good.values = { "1.5", "nan" };
    Sample text = good;
    text.tag = "HR1:string:2";
    text.numeric = false;
    text.addresses = { "HR1" };
    text.values = { "a,\"b\"" };
    Sample failed = good;
    failed.ok = false;
    failed.error = "exception code:0x02 (read 4 word(s) from 1-HR100)";
    struct Row
    {
        const Sample *sample;
        const char *csv, *json;
    } rows[] = {
        { &good,
            "2026-11-23T12:30:01.250Z,HR100:float32:2,HR100,1.5,\r\n"
            "2026-11-23T12:30:01.250Z,HR100:float32:2,HR102,nan,\r\n",
            "{\"addresses\":[\"HR100\",\"HR102\"],\"tag\":\"HR100:float32:2\",\"time\":\"2026-11-23T12:30:01."
            "250Z\","
            "\"values\":[1.5,\"nan\"]}" },
        { &text, "2026-11-23T12:30:01.250Z,HR1:string:2,HR1,\"a,\"\"b\"\"\",\r\n",
            "{\"addresses\":[\"HR1\"],\"tag\":\"HR1:string:2\",\"time\":\"2026-11-23T12:30:01.250Z\","
            "\"values\":[\"a,\\\"b\\\"\"]}" },
        { &failed,
            "2026-11-23T12:30:01.250Z,HR100:float32:2,,,exception code:0x02 (read 4 word(s) from "
            "1-HR100)\r\n",
            "{\"error\":\"exception code:0x02 (read 4 word(s) from 1-HR100)\",\"tag\":\"HR100:float32:2\","
            "\"time\":\"2026-11-23T12:30:01.250Z\"}" },
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.sample->tag);
        EXPECT_EQ(sampleCsv(*row.sample), row.csv);
        EXPECT_EQ(sampleJson(*row.sample), row.json);
    }
    EXPECT_EQ(csvField("line\nbreak"), "\"line\nbreak\"");
    EXPECT_EQ(isoTime(0), "1970-01-01T00:00:00.000Z");
    EXPECT_EQ(isoTime(-1), "1969-12-31T23:59:59.999Z");
}

} // namespace
