// The bottom of the RTU handling: where a reply frame ends.

#include "hex.h"
#include "rtuframe.h"

#include <gtest/gtest.h>

namespace {

TEST(RtuFrame, AReplyFrameEndsWhereItsHeaderSays)
{
    struct Row
    {
        const char *start;
        int length;
    } rows[] = {
        { "", 0 },
        { "01", 0 },
        { "01 03", 0 }, // the byte count is still to come
        { "01 03 04", 9 },
        { "01 02 FF", 260 },
        { "01 83", 5 },
        { "01 90", 5 },
        { "01 06", 8 },
        { "01 0F", 8 },
        { "01 07", -1 },
        { "01 00", -1 },
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.start);
        const QByteArray b = hex(row.start);
        EXPECT_EQ(replyFrameLength(reinterpret_cast<const uint8_t *>(b.constData()), b.size()), row.length);
    }
}

} // namespace
