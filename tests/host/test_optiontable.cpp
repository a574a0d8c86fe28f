// The command-line machinery that teco-cli and teco-sim share: what each
// word of a command line becomes, and the one sentence for each mistake.

#include "hex.h"
#include "optiontable.h"

#include <gtest/gtest.h>

namespace {

struct Parsed
{
    bool quiet = false;
    std::optional<std::string> name;
    std::optional<int> count;
    std::vector<std::string> rules;
    std::optional<std::string> checked;
    bool help = false;
};

enum Scope { Anywhere, FirstOnly };

OptionTable table(Parsed &p)
{
    using T = OptionTable;
    return OptionTable({
        T::flag("quiet", p.quiet),
        T::text("name", p.name),
        T::integer("count", 1, 100, p.count, FirstOnly),
        T::text("rule", [&p](const std::string &r) { p.rules.push_back(r); }),
        T::checked("even",
            [&p](const std::string &text, std::string &error) {
                if (text.empty() || text.back() % 2 != 0) {
                    error = "odd \"" + text + "\"";
                    return false;
                }
                p.checked = text;
                return true;
            }),
        T::flag("help", p.help),
    });
}

TEST(OptionTable, SetsWhatEachRowNames)
{
    struct Row
    {
        std::vector<std::string> args;
        std::vector<std::string> arguments;
        bool quiet;
        const char *name; // nullptr: not given
        int count; // 0: not given
        size_t rules;
        bool help;
    } rows[] = {
        { {}, {}, false, nullptr, 0, 0, false },
        { { "--quiet" }, {}, true, nullptr, 0, 0, false },
        { { "--name", "x", "--count", "5" }, {}, false, "x", 5, 0, false },
        { { "--name=x=y", "--count=100" }, {}, false, "x=y", 100, 0, false },
        { { "--name=" }, {}, false, "", 0, 0, false },
        { { "--name", "--quiet" }, {}, false, "--quiet", 0, 0, false }, // a value may begin with "--"
        { { "read", "-5", "--count", "7", "HR1" }, { "read", "-5", "HR1" }, false, nullptr, 7, 0, false },
        { { "-", "--", "-1.5", "-.5", "-0x10", "-inf", "-NaN" },
            { "-", "--", "-1.5", "-.5", "-0x10", "-inf", "-NaN" }, false, nullptr, 0, 0, false },
        { { "--rule", "a", "--rule=b" }, {}, false, nullptr, 0, 2, false },
        { { "--count", "3", "--count", "4" }, {}, false, nullptr, 4, 0, false }, // the last one counts
        { { "-h" }, {}, false, nullptr, 0, 0, true },
        { { "--even", "12" }, {}, false, nullptr, 0, 0, false },
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(joined(row.args));
        Parsed p;
        std::vector<std::string> arguments;
        std::string error;
        ASSERT_TRUE(table(p).parse(row.args, &arguments, error)) << error;
        EXPECT_EQ(arguments, row.arguments);
        EXPECT_EQ(p.quiet, row.quiet);
        EXPECT_EQ(p.name.value_or("(none)"), row.name ? row.name : "(none)");
        EXPECT_EQ(p.count.value_or(0), row.count);
        EXPECT_EQ(p.rules.size(), row.rules);
        EXPECT_EQ(p.help, row.help);
    }
}

TEST(OptionTable, RefusesWithOneSentence)
{
    struct Row
    {
        std::vector<std::string> args;
        bool takesArguments;
        const char *error;
    } rows[] = {
        { { "--bogus" }, true, "unknown option --bogus" },
        { { "--bogus=1" }, true, "unknown option --bogus" },
        { { "--bogus", "1" }, false, "unknown option --bogus" },
        { { "--=1" }, true, "unknown option --" },
        { { "--Quiet" }, true, "unknown option --Quiet" },
        { { "--quiet=yes" }, true, "option --quiet takes no value" },
        { { "--quiet=" }, true, "option --quiet takes no value" },
        { { "--name" }, true, "option --name needs a value" },
        { { "--quiet", "--count" }, true, "option --count needs a value" },
        { { "--count", "0" }, true, "option --count takes a number from 1 to 100, not \"0\"" },
        { { "--count", "101" }, true, "option --count takes a number from 1 to 100, not \"101\"" },
        // What a number is (signs, spaces, overflow) is checked in test_textutil.cpp.
        { { "--count", "5x" }, true, "option --count takes a number from 1 to 100, not \"5x\"" },
        { { "--count=" }, true, "option --count takes a number from 1 to 100, not \"\"" },
        { { "--count", "--quiet" }, true, "option --count takes a number from 1 to 100, not \"--quiet\"" },
        { { "--even", "3" }, true, "odd \"3\"" },
        { { "stray" }, false, "unknown argument stray" },
        { { "-s", "2" }, true, "unknown option -s (options begin with \"--\")" },
        { { "read", "-x" }, true, "unknown option -x (options begin with \"--\")" },
        { { "-inform" }, true, "unknown option -inform (options begin with \"--\")" },
        { { "--quiet", "-5" }, false, "unknown argument -5" },
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(joined(row.args));
        Parsed p;
        std::vector<std::string> arguments;
        std::string error;
        EXPECT_FALSE(table(p).parse(row.args, row.takesArguments ? &arguments : nullptr, error));
        EXPECT_EQ(error, row.error);
    }
}

TEST(OptionTable, APlaceMayRefuseOptionsByScope)
{
    const OptionTable::Refusal laterWords = [](const OptionTable::Row &r) {
        return r.scope == FirstOnly ? "--" + std::string(r.name) + " only on the first line" : std::string();
    };
    Parsed p;
    std::vector<std::string> arguments;
    std::string error;
    EXPECT_TRUE(table(p).parse({ "--name", "x", "--quiet" }, &arguments, error, laterWords)) << error;
    EXPECT_FALSE(table(p).parse({ "--count", "5" }, &arguments, error, laterWords));
    EXPECT_EQ(error, "--count only on the first line");
    EXPECT_FALSE(p.count) << "a refused option sets nothing";
    // An unknown option is unknown whatever the place.
    EXPECT_FALSE(table(p).parse({ "--bogus" }, &arguments, error, laterWords));
    EXPECT_EQ(error, "unknown option --bogus");
}

} // namespace
