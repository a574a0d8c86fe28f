// StationBackoff: which cycles read a station, played as a poll plays it:
// each row is a station's outcome per cycle ('.' answered, 'x' silent, '-'
// not read because not due) and the cycles it must be read in.

#include "stationbackoff.h"

#include <gtest/gtest.h>

#include <string>

namespace {

TEST(StationBackoff, ReadsASilentStationOnlyEveryFewCyclesUntilItAnswers)
{
    struct Row
    {
        const char *what;
        std::string outcomes; // per cycle, for the cycles that are due
        std::string reads; // 'r' read, '-' skipped, per cycle
        bool backedOffAtEnd;
    } rows[] = {
        { "always answering", "......", "rrrrrr", false },
        { "two silent cycles are not enough", "xx.xx.", "rrrrrr", false },
        { "three silent cycles back it off; probes every 3rd", "xxxxxx", "rrr--r--r--r", true },
        { "a probe that answers brings it back at once", "xxxx.", "rrr--r--rrr", false },
    };
    for (const Row &row : rows) {
        StationBackoff b(3, 3);
        std::string reads;
        size_t next = 0;
        for (uint64_t cycle = 0; cycle < row.reads.size(); ++cycle) {
            if (!b.due(7, cycle)) {
                reads += '-';
                continue;
            }
            reads += 'r';
            const char outcome = next < row.outcomes.size() ? row.outcomes[next++] : '.';
            b.record(7, cycle, outcome == '.');
        }
        EXPECT_EQ(reads, row.reads) << row.what;
        EXPECT_EQ(b.backedOff(7), row.backedOffAtEnd) << row.what;
        EXPECT_EQ(b.backedOffStations().empty(), !row.backedOffAtEnd) << row.what;
    }
}

TEST(StationBackoff, OneAnsweringTagOfAStationInACycleKeepsItIn)
{
    StationBackoff b(2, 5);
    for (uint64_t cycle = 0; cycle < 4; ++cycle) {
        b.record(3, cycle, false); // one tag times out
        b.record(3, cycle, true); // another tag of the same station answers
        b.record(9, cycle, false); // a station that is not there
    }
    EXPECT_FALSE(b.backedOff(3));
    EXPECT_EQ(b.backedOffStations(), std::vector<int> { 9 });
}

} // namespace
