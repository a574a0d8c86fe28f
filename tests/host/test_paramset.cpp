// How a backup's reads are planned: neighbours joined up to the driver's
// block sizes, never over its own register window, each area apart.

#include "paramset.h"

#include <gtest/gtest.h>

#include <deque>

namespace {

// "HR100 x6: a b c" for each planned read.
std::vector<std::string> planned(const std::vector<std::pair<std::string, std::string>> &params)
{
    std::deque<Parameter> store;
    std::vector<const Parameter *> list;
    for (const auto &p : params) {
        Parameter param;
        param.name = p.first;
        std::string error;
        EXPECT_TRUE(parseTag(p.second.substr(p.second[0] == '!'), param.tag, error)) << error;
        if (p.second[0] == '!')
            param.access = ParamAccess::Write;
        store.push_back(param);
        list.push_back(&store.back());
    }
    std::vector<std::string> out;
    for (const ParamRead &r : planReads(list)) {
        std::string text = r.tag.address.text() + " x" + std::to_string(r.tag.count) + ":";
        for (const Parameter *p : r.params)
            text += " " + p->name;
        out.push_back(text);
    }
    return out;
}

TEST(ParamSet, ReadsJoinNeighboursWithinTheDriversLimits)
{
    struct Row
    {
        const char *name;
        std::vector<std::pair<std::string, std::string>> params;
        std::vector<std::string> reads;
    } rows[] = {
        { "a gap is read along; a double word takes two",
            { { "b", "HR101" }, { "a", "HR100" }, { "c", "HR104SW" } }, { "HR100 x6: a b c" } },
        { "125 registers in one read", { { "a", "HR1" }, { "b", "HR125" } }, { "HR1 x125: a b" } },
        { "126 are two", { { "a", "HR1" }, { "b", "HR126" } }, { "HR1 x1: a", "HR126 x1: b" } },
        { "a format's registers count", { { "a", "HR1" }, { "b", "HR125:float32" } },
            { "HR1 x1: a", "HR125 x1: b" } },
        { "areas apart", { { "a", "HR1" }, { "b", "IR1" } }, { "HR1 x1: a", "IR1 x1: b" } },
        { "bits of a register with it", { { "a", "HR110.3" }, { "b", "HR111" } }, { "HR110 x2: a b" } },
        { "2008 coils in one read", { { "a", "DO1" }, { "b", "DO2008" } }, { "DO1 x2008: a b" } },
        { "2009 are two", { { "a", "DO1" }, { "b", "DO2009" } }, { "DO1 x1: a", "DO2009 x1: b" } },
        { "never over the driver's window", { { "a", "HR59999" }, { "b", "HR60011" } },
            { "HR59999 x1: a", "HR60011 x1: b" } },
        { "the window's registers alone", { { "a", "HR60001" }, { "b", "HR60002" } },
            { "HR60001 x1: a", "HR60002 x1: b" } },
        { "write-only left out", { { "a", "HR1" }, { "w", "!HR2" } }, { "HR1 x1: a" } },
    };
    for (const Row &row : rows)
        EXPECT_EQ(planned(row.params), row.reads) << row.name;
}

// Two backups compared by name: each parameter with a value on either side
// only differs, with "-" for the side without it.
TEST(ParamSet, FilesDifferInEveryParameterOnOneSideOnly)
{
    struct Row
    {
        const char *name, *first, *second, *differs;
    } rows[] = {
        { "a row in the first file only", "a,HR1,5\nb,HR2,6\n", "a,HR1,5\n", "b 6 -" },
    };
    for (const Row &row : rows) {
        ParameterMap a, b;
        std::string error;
        ASSERT_TRUE(parseParameterMap(std::string("name,address,value\n") + row.first, a, error)) << error;
        ASSERT_TRUE(parseParameterMap(std::string("name,address,value\n") + row.second, b, error)) << error;
        std::string shown;
        for (const ParamDifference &d : compareFiles(a, b))
            shown += d.param->name + " " + d.left + " " + d.right;
        EXPECT_EQ(shown, row.differs) << row.name;
    }
}

} // namespace
