// The text pieces under every parser of the host programs: fields, white
// space, case and numbers, at their edges (empty fields, signs, spaces,
// bytes above 127, digit strings longer than any integer).

#include "textutil.h"

#include <gtest/gtest.h>

#include <climits>

namespace {

TEST(TextFields, KeepEmptyFields)
{
    struct Row
    {
        const char *text;
        char separator;
        std::vector<std::string> fields;
    } rows[] = {
        { "", ',', { "" } },
        { "a,b,c", ',', { "a", "b", "c" } },
        { "1,,2", ',', { "1", "", "2" } },
        { ",", ',', { "", "" } },
        { ",a,", ',', { "", "a", "" } },
        { "HR100:word:2", ':', { "HR100", "word", "2" } },
        { " a , b ", ',', { " a ", " b " } },
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.text);
        EXPECT_EQ(splitFields(row.text, row.separator), row.fields);
    }
}

TEST(TextCase, TrimsAndChangesOnlyAscii)
{
    struct Row
    {
        std::string text, trimmed, upper, lower;
    } rows[] = {
        { "", "", "", "" },
        { "   ", "", "   ", "   " },
        { " \t\r\nRs485 \r\n", "Rs485", " \t\r\nRS485 \r\n", " \t\r\nrs485 \r\n" },
        { "a b", "a b", "A B", "a b" },
        // Bytes above 127 are neither space nor letters, whatever the sign of char.
        { "\xa0x\xa0", "\xa0x\xa0", "\xa0X\xa0", "\xa0x\xa0" },
        { "h\xc3\xa9", "h\xc3\xa9", "H\xc3\xa9", "h\xc3\xa9" },
        { "Dword9_", "Dword9_", "DWORD9_", "dword9_" },
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.text);
        EXPECT_EQ(trimmed(row.text), row.trimmed);
        EXPECT_EQ(upperCase(row.text), row.upper);
        EXPECT_EQ(lowerCase(row.text), row.lower);
    }
}

TEST(TextNumbers, WholeNumbersAreDigitsWithinTheRange)
{
    struct Row
    {
        std::string text;
        long long low, high;
        bool good;
        long long value;
    } rows[] = {
        { "0", 0, 255, true, 0 }, { "255", 0, 255, true, 255 }, { "256", 0, 255, false, 0 },
        { "7", 7, 8, true, 7 }, { "6", 7, 8, false, 0 }, { "9", 7, 8, false, 0 }, { "007", 0, 255, true, 7 },
        { "0000000000000000000000000000001", 0, 255, true, 1 },
        { "99999999999999999999999999999", 0, LLONG_MAX, false, 0 },
        { "9223372036854775807", 0, LLONG_MAX, true, LLONG_MAX },
        { "9223372036854775808", 0, LLONG_MAX, false, 0 },
        { "18446744073709551616", 0, LLONG_MAX, false, 0 }, // 2^64: no wrap to 0
        { "5", 0, 0, false, 0 }, { "0", 0, 0, true, 0 }, { "5", -10, 10, true, 5 }, { "", 0, 255, false, 0 },
        { "-1", -10, 10, false, 0 }, { "+1", 0, 255, false, 0 }, { " 1", 0, 255, false, 0 },
        { "1 ", 0, 255, false, 0 }, { "1.0", 0, 255, false, 0 }, { "1e3", 0, 10000, false, 0 },
        { "0x10", 0, 255, false, 0 }, { "1\xb9", 0, 255, false, 0 }, // superscript one in Latin-1
        { std::string("1\0", 2), 0, 255, false, 0 }, { "3", 5, 1, false, 0 }, // an empty range
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.text);
        long long value = -42;
        EXPECT_EQ(parseWholeNumber(row.text, row.low, row.high, value), row.good);
        EXPECT_EQ(value, row.good ? row.value : -42) << "set only on success";
    }
}

TEST(TextNumbers, TheIntFormTakesTheIntRange)
{
    int v = -1;
    EXPECT_TRUE(parseWholeNumber("2147483647", 0, INT_MAX, v));
    EXPECT_EQ(v, INT_MAX);
    EXPECT_FALSE(parseWholeNumber("2147483648", 0, INT_MAX, v));
    EXPECT_FALSE(parseWholeNumber("4294967296", 0, INT_MAX, v)); // 2^32: no wrap to 0
    EXPECT_EQ(v, INT_MAX);
}

TEST(TextNumbers, IntegersTakeASignAndHex)
{
    struct Row
    {
        const char *text;
        bool good;
        long long value;
    } rows[] = {
        { "0", true, 0 },
        { "-5", true, -5 },
        { "0x1F", true, 31 },
        { "0X1f", true, 31 },
        { "-0x10", true, -16 },
        { "9223372036854775807", true, LLONG_MAX },
        { "-9223372036854775808", true, LLONG_MIN },
        { "9223372036854775808", false, 0 },
        { "-9223372036854775809", false, 0 },
        { "0x7FFFFFFFFFFFFFFF", true, LLONG_MAX },
        { "0xFFFFFFFFFFFFFFFF", false, 0 },
        { "", false, 0 },
        { "-", false, 0 },
        { "0x", false, 0 },
        { "+5", false, 0 },
        { "--5", false, 0 },
        { "0x-5", false, 0 },
        { " 5", false, 0 },
        { "12abc", false, 0 },
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.text);
        long long value = 42;
        EXPECT_EQ(parseInteger(row.text, value), row.good);
        EXPECT_EQ(value, row.good ? row.value : 42) << "set only on success";
    }
}

TEST(TextColumns, LongLinesAreCutWithAnEllipsis)
{
    struct Row
    {
        const char *text;
        int columns;
        const char *fitted;
    } rows[] = {
        { "12.0 commands/s", 80, "12.0 commands/s" }, { "abcdef", 6, "abcdef" }, { "abcdefg", 6, "abc..." },
        { "", 0, "" }, { "abcdef", 3, "..." }, { "abcdef", 0, "" },
        { "ab\xc3\xa9"
          "cd",
            5,
            "ab\xc3\xa9"
            "cd" }, // a two-byte character counts once
        { "a\xc3\xa9\xc3\xa9\xc3\xa9xyz", 5, "a\xc3\xa9..." }, // never cut inside one
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.text);
        EXPECT_EQ(fitColumns(row.text, row.columns), row.fitted);
    }
}

} // namespace
