// Joined reads: which tags one read serves (by gap, station, area, the
// driver's limits and its own window), and each tag's values taken back out
// of the answer exactly as a read of the tag alone gives them.

#include "readplan.h"

#include <gtest/gtest.h>

namespace {

std::vector<Tag> tagsOf(const std::vector<std::string> &texts)
{
    std::vector<Tag> tags;
    for (const std::string &text : texts) {
        Tag t;
        std::string error;
        const size_t at = text.find('@');
        EXPECT_TRUE(parseTag(text.substr(0, at), t, error)) << error;
        t.station = at == std::string::npos ? 1 : std::stoi(text.substr(at + 1));
        tags.push_back(t);
    }
    return tags;
}

// "HR100 x6: 0 2" for each planned read: what it reads, then its tags.
std::vector<std::string> planned(const std::vector<std::string> &texts, int gap, std::vector<bool> excluded)
{
    std::vector<std::string> out;
    for (const PlannedRead &r : planReads(tagsOf(texts), gap, excluded)) {
        std::string text = r.tag.address.text() + " x" + std::to_string(r.tag.count) + ":";
        for (size_t i : r.members)
            text += " " + std::to_string(i);
        out.push_back(text);
    }
    return out;
}

TEST(ReadPlan, TagsCloseEnoughShareOneRead)
{
    struct Row
    {
        const char *name;
        std::vector<std::string> tags;
        int gap;
        std::vector<bool> excluded;
        std::vector<std::string> reads;
    } rows[] = {
        { "a gap of the gap given is read along", { "HR100", "HR104" }, 3, {}, { "HR100 x5: 0 1" } },
        { "one more is two reads", { "HR100", "HR105" }, 3, {}, { "HR100 x1: 0", "HR105 x1: 1" } },
        { "gap 0 joins touching tags", { "HR101", "HR100", "HR103" }, 0, {},
            { "HR100 x2: 1 0", "HR103 x1: 2" } },
        { "a negative gap joins nothing", { "HR100", "HR101" }, -1, {}, { "HR100 x1: 0", "HR101 x1: 1" } },
        { "a double word, a float and a string take their registers",
            { "HR100SW", "HR102:float32", "HR104:string:3" }, 0, {}, { "HR100 x7: 0 1 2" } },
        { "overlapping tags share their registers", { "HR100:dword", "HR101" }, 0, {}, { "HR100 x2: 0 1" } },
        { "stations apart", { "HR100@1", "HR101@2" }, 8, {}, { "HR100 x1: 0", "HR101 x1: 1" } },
        { "areas apart", { "HR100", "IR101" }, 8, {}, { "HR100 x1: 0", "IR101 x1: 1" } },
        { "a tag left out is read alone, its neighbours joined", { "HR100", "HR101", "HR103", "HR104" }, 1,
            { false, false, true, false }, { "HR100 x2: 0 1", "HR103 x1: 2", "HR104 x1: 3" } },
        { "nor a read over it", { "HR100", "HR101", "HR102" }, 1, { false, true, false },
            { "HR100 x1: 0", "HR101 x1: 1", "HR102 x1: 2" } },
        { "125 registers at most", { "HR1", "HR124:dword" }, 124, {}, { "HR1 x125: 0 1" } },
        { "and no more", { "HR1", "HR125:dword" }, 124, {}, { "HR1 x1: 0", "HR125 x1: 1" } },
        { "bits of a register with it", { "HR110.3", "HR111" }, 0, {}, { "HR110 x2: 0 1" } },
        { "a bit gap counts 16 bits for each register", { "DO1", "DO34" }, 2, {}, { "DO1 x34: 0 1" } },
        { "and no more", { "DO1", "DO35" }, 2, {}, { "DO1 x1: 0", "DO35 x1: 1" } },
        { "never over the driver's window", { "HR59999", "HR60000", "HR60011" }, 124, {},
            { "HR59999 x1: 0", "HR60000 x1: 1", "HR60011 x1: 2" } },
        { "bytes alone", { "HR100:byte", "HR101" }, 8, {}, { "HR100 x1: 0", "HR101 x1: 1" } },
        { "reads in the order of their first tag", { "HR200", "HR100", "HR201" }, 0, {},
            { "HR200 x2: 0 2", "HR100 x1: 1" } },
    };
    for (const Row &row : rows)
        EXPECT_EQ(planned(row.tags, row.gap, row.excluded), row.reads) << row.name;
}

// A joined read of HR100..HR107 (or DO1..DO16) answered with these words
// (bits); each tag's texts as a read of it alone shows them.
TEST(ReadPlan, EachTagTakesBackExactlyItsOwnValues)
{
    const std::vector<uint32_t> words = { 0x1234, 0x5678, 0x9ABC, 0x4049, 0x0FDB, 0x6869, 0x2100, 0xFFFF };
    struct Row
    {
        const char *name, *tag, *shown;
    } rows[] = {
        { "a word", "HR101", "HR101=22136" },
        { "past the answer: no value", "HR106:3", "the read of HR100 did not cover HR106" },
        { "a double word, low word first", "HR100:dword", "HR100=1450709556" },
        { "high word first", "HR100SW", "HR100SW=305419896" },
        { "a float, high word first", "HR103:float32:ABCD", "HR103=3.1415927" },
        { "a string", "HR105:string:2", "HR105=hi!" },
        { "bits of a register across its end", "HR102.14:bit:4",
            "HR102.14=0 HR102.15=1 HR103.0=1 HR103.1=0" },
        { "coils", "DO3:bit:3", "DO3=1 DO4=0 DO5=1" },
    };
    for (const Row &row : rows) {
        const Tag t = tagsOf({ row.tag }).front();
        DriverHost::Result r;
        r.ok = true;
        r.answeredMs = 1234;
        const bool bits = !t.address.isRegister();
        for (int i = 0; i < (bits ? 16 : 8); ++i)
            r.elements.push_back(Element { "", bits ? uint32_t((0x15 >> i) & 1) << 0 : words[size_t(i)] });
        Tag block = tagsOf({ bits ? "DO1" : "HR100" }).front();
        block.count = int(r.elements.size());
        const FormattedResult f = memberResult(block, t, r);
        std::string shown;
        for (size_t i = 0; i < f.values.size(); ++i)
            shown += (shown.empty() ? "" : " ") + f.addresses[i] + "=" + f.values[i];
        if (!f.ok)
            shown += (shown.empty() ? "" : " ") + f.errorText;
        EXPECT_EQ(shown, row.shown) << row.name;
        EXPECT_EQ(f.answeredMs, 1234) << row.name;
    }
}

} // namespace
