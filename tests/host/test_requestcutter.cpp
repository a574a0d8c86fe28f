// How the simulated drive cuts requests out of what it hears: by length,
// whatever gaps a busy host puts between the bytes, and garbage dropped up to
// the next gap.

#include "hex.h"
#include "requestcutter.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

const int64_t characterNs = 95486; // 115200 baud, 11 bits

TEST(RequestCutter, CutsRequestsByLengthAndDropsGarbageUpToAGap)
{
    // Chunks come 1 ms apart; "~" before one: the line was quiet before it.
    const char *read = "01 03 00 04 00 01 C5 CB";
    struct Row
    {
        const char *what;
        std::vector<std::string> chunks;
        std::vector<std::string> taken;
        std::vector<int64_t> startsNs;
        uint64_t dropped;
    } rows[] = {
        { "whole", { read }, { read }, { 0 }, 0 },
        { "a late byte splits it", { "01 03 00", "~04 00 01 C5 CB" }, { read }, { 0 }, 0 },
        { "two without a gap", { std::string(read) + " " + read }, { read, read }, { 0, 8 * characterNs },
            0 },
        { "bad CRC, gap, request", { "01 03 00 04 00 01 C5 CC", std::string("~") + read }, { read },
            { 1000000 }, 1 },
        { "bad CRC, request without a gap", { "01 03 00 04 00 01 C5 CC", read }, {}, {}, 1 },
        { "unfinished, gap, request", { "01 03 00 04", std::string("~") + read }, { read }, { 1000000 }, 1 },
        { "unfinished, gap, split request", { "01 03 00 04", "~01 03 00", "~04 00 01 C5 CB" }, { read },
            { 1000000 }, 1 },
        { "length from the byte count", { "01 10 00 00 00 01 02 AB CD 18 F5" },
            { "01 10 00 00 00 01 02 AB CD 18 F5" }, { 0 }, 0 },
        { "longer than any request", { "01 10 00 00 00 80 FF 00", std::string("~") + read }, { read },
            { 1000000 }, 1 },
        { "a code libmodbus answers as illegal", { "01 41 C0 10" }, { "01 41 C0 10" }, { 0 }, 0 },
        { "mask write, as libmodbus reads it", { "01 16 00 00 FF 00 00 01 07 D2" },
            { "01 16 00 00 FF 00 00 01 07 D2" }, { 0 }, 0 },
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.what);
        RequestCutter cutter(characterNs);
        std::vector<std::string> taken;
        std::vector<int64_t> starts;
        int64_t at = 0;
        for (const std::string &chunk : row.chunks) {
            const bool gap = chunk[0] == '~';
            const QByteArray bytes = hex((gap ? chunk.substr(1) : chunk).c_str());
            cutter.add(reinterpret_cast<const uint8_t *>(bytes.constData()), size_t(bytes.size()), at, gap);
            std::vector<uint8_t> frame;
            int64_t startNs = 0;
            while (cutter.next(frame, startNs)) {
                taken.push_back(
                    toHex(QByteArray(reinterpret_cast<const char *>(frame.data()), int(frame.size()))));
                starts.push_back(startNs);
            }
            at += 1000000;
        }
        EXPECT_EQ(taken, row.taken);
        EXPECT_EQ(starts, row.startsNs);
        EXPECT_EQ(cutter.dropped(), row.dropped);
    }
}

} // namespace
