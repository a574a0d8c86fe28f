// What the link tells from a request about its answer: the answer's length,
// and which complete frames cannot be the answer.

#include "hex.h"
#include "replycheck.h"

#include <gtest/gtest.h>

namespace {

const uint8_t *bytes(const QByteArray &b) { return reinterpret_cast<const uint8_t *>(b.constData()); }

TEST(ReplyCheck, TheRequestGivesTheAnswersLength)
{
    struct Row
    {
        const char *request;
        bool known;
        int length;
    } rows[] = {
        { "01 03 00 63 00 02", true, 9 }, { "01 04 00 00 00 7D", true, 255 }, // 125 registers
        { "01 03 00 00 00 80", false, 0 }, // 128 registers do not fit one reply
        { "01 03 00 00 00 00", false, 0 }, { "01 01 00 00 00 09", true, 7 }, // 9 coils: 2 bytes
        { "01 02 00 00 07 F8", true, 260 }, // 2040 inputs: 255 bytes
        { "01 02 00 00 07 F9", false, 0 }, { "01 05 00 04 FF 00", true, 8 }, { "01 06 00 63 12 34", true, 8 },
        { "01 10 00 63 00 02 04 00 01 00 02", true, 8 }, { "01 0F 00 00 00 0A 02 FF 03", true, 8 },
        { "01 10 00 63 00 02 05 00 01 00 02", false, 0 }, // byte count disagrees with the length
        { "01 2B 0E 01 00 00", false, 0 }, // a function code judged nowhere here
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.request);
        const QByteArray request = withCrc(row.request);
        const ExpectedReply e = expectedReplyTo(bytes(request), request.size());
        EXPECT_EQ(e.known, row.known);
        EXPECT_EQ(e.length, row.length);
    }
    EXPECT_FALSE(expectedReplyTo(bytes(hex("01 03 00")), 3).known);
}

TEST(ReplyCheck, OnlyFramesThatCannotBeTheAnswerAreRejected)
{
    struct Row
    {
        const char *request, *reply;
        bool goodCrc;
        ReplyVerdict verdict;
    } rows[] = {
        { "01 03 00 63 00 01", "01 03 02 12 34", true, ReplyVerdict::Answer },
        { "01 03 00 63 00 01", "01 83 02", true, ReplyVerdict::Answer },
        { "01 03 00 63 00 01", "01 03 02 12 34", false, ReplyVerdict::Unsure },
        { "01 03 00 63 00 01", "07 03 02 12 34", false, ReplyVerdict::Unsure },
        { "01 03 00 63 00 01", "07 03 02 12 34", true, ReplyVerdict::NotTheAnswer },
        { "01 03 00 63 00 01", "01 04 02 12 34", true, ReplyVerdict::NotTheAnswer },
        { "01 03 00 63 00 01", "01 86 02", true, ReplyVerdict::NotTheAnswer },
        { "01 10 00 63 00 02 04 00 01 00 02", "01 10 00 63 00 02", true, ReplyVerdict::Answer },
        { "01 10 00 63 00 02 04 00 01 00 02", "01 10 00 64 00 02", true, ReplyVerdict::NotTheAnswer },
        { "01 06 00 63 12 34", "01 06 00 63 12 35", true, ReplyVerdict::NotTheAnswer },
        { "01 05 00 04 FF 00", "01 05 00 04 FF 00", true, ReplyVerdict::Answer },
        { "01 2B 0E 01 00 00", "09 2B 0E 01", true, ReplyVerdict::Answer }, // unknown request: not judged
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(std::string(row.request) + " / " + row.reply);
        const QByteArray request = withCrc(row.request);
        QByteArray reply = withCrc(row.reply);
        if (!row.goodCrc)
            reply[reply.size() - 1] = char(reply.at(reply.size() - 1) ^ 0x01);
        const char *why = nullptr;
        EXPECT_EQ(
            judgeReply(expectedReplyTo(bytes(request), request.size()), bytes(reply), reply.size(), &why),
            row.verdict);
        EXPECT_EQ(why != nullptr, row.verdict == ReplyVerdict::NotTheAnswer);
    }
}

} // namespace
