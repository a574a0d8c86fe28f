// The benchmark programs' command line over the option table: the one-letter
// forms that the peer harness uses, required options, --help.

#include "benchoptions.h"

#include <gtest/gtest.h>

namespace {

struct Parsed
{
    std::optional<std::string> device, name;
    std::optional<int> count;
};

BenchCommandLine line(Parsed &p)
{
    using T = OptionTable;
    return BenchCommandLine("bench",
        {
            { T::text("device", p.device), "DEVICE", "the device", 'd', true },
            { T::integer("count", 1, 10, p.count), "N", "how many", 'k' },
            { T::text("name", p.name), "NAME", "a name" },
        });
}

TEST(BenchCommandLine, TakesEachWordAsTheHarnessMeansIt)
{
    const struct
    {
        const char *what;
        std::vector<std::string> args;
        const char *device, *name; // nullptr: not set
        int count; // 0: not set
        bool help;
        const char *error; // "" for none
    } rows[] = {
        { "one-letter forms", { "-d", "/dev/x", "-k", "3" }, "/dev/x", nullptr, 3, false, "" },
        { "a value that looks like a one-letter form stays a value", { "-d", "/dev/x", "--name", "-d" },
            "/dev/x", "-d", 0, false, "" },
        { "a one-letter form as the value of a one-letter form", { "-d", "-k" }, "-k", nullptr, 0, false,
            "" },
        { "a required option missing", { "-k", "2" }, nullptr, nullptr, 2, false,
            "option --device is required" },
        { "a letter the program does not have", { "-d", "x", "-n", "y" }, "x", nullptr, 0, false,
            "unknown option -n (options begin with \"--\")" },
        { "the range of a one-letter form", { "-d", "x", "-k", "11" }, "x", nullptr, 0, false,
            "option --count takes a number from 1 to 10, not \"11\"" },
    };
    for (const auto &row : rows) {
        Parsed p;
        bool help = false;
        std::string error;
        const bool ok = line(p).parse(row.args, help, error);
        EXPECT_EQ(ok, *row.error == '\0') << row.what;
        EXPECT_EQ(error, row.error) << row.what;
        EXPECT_EQ(help, row.help) << row.what;
        EXPECT_EQ(p.device.value_or("(none)"), row.device ? row.device : "(none)") << row.what;
        EXPECT_EQ(p.name.value_or("(none)"), row.name ? row.name : "(none)") << row.what;
        EXPECT_EQ(p.count.value_or(0), row.count) << row.what;
    }
}

} // namespace
