// Frames decoded for people: every function this driver sends, replies,
// exceptions, broken frames, and the hex texts users paste.

#include "framedecoder.h"
#include "hex.h"

#include <gtest/gtest.h>

namespace {

std::string frame(const char *hexWithoutCrc)
{
    const QByteArray b = withCrc(hexWithoutCrc);
    return std::string(b.constData(), size_t(b.size()));
}

std::string raw(const char *hexText)
{
    const QByteArray b = hex(hexText);
    return std::string(b.constData(), size_t(b.size()));
}

TEST(FrameDecoder, NamesWhatAFrameAsks)
{
    struct Row
    {
        const char *bytes; // CRC appended
        FrameRole role;
        const char *meaning;
    } rows[] = {
        { "01 03 00 63 00 01", FrameRole::Request, "station 1, read holding registers HR100 x1" },
        { "02 04 00 00 00 02", FrameRole::Request, "station 2, read input registers IR1 x2" },
        { "01 01 00 04 00 0A", FrameRole::Request, "station 1, read coils DO5 x10" },
        { "01 02 00 00 00 03", FrameRole::Request, "station 1, read discrete inputs DI1 x3" },
        { "01 05 00 04 FF 00", FrameRole::Request, "station 1, write single coil DO5 on" },
        { "01 05 00 04 12 34", FrameRole::Request,
            "station 1, write single coil DO5 value 0x1234 (neither on nor off)" },
        { "00 06 05 13 00 07", FrameRole::Request, "broadcast, write single register HR1300 = 7" },
        { "01 10 00 63 00 02 04 05 DC 00 02", FrameRole::Request,
            "station 1, write multiple registers HR100 x2: 1500 2" },
        { "01 0F 00 00 00 03 01 05", FrameRole::Request, "station 1, write multiple coils DO1 x3: 1 0 1" },
        { "01 03 04 05 DC FF FF", FrameRole::Reply, "station 1, reply 4 bytes: 1500 65535" },
        { "01 01 01 0D", FrameRole::Reply, "station 1, reply 1 byte: bits 1 0 1 1 0 0 0 0" },
        { "01 06 00 63 00 07", FrameRole::Reply, "station 1, done: write single register HR100 = 7" },
        { "01 10 00 63 00 02", FrameRole::Reply, "station 1, done: wrote HR100 x2" },
        { "01 83 02", FrameRole::Reply,
            "station 1, exception 2 illegal data address to read holding registers" },
        { "01 90 0B", FrameRole::Reply,
            "station 1, exception 11 gateway target failed to respond to write multiple registers" },
        { "01 83 63", FrameRole::Reply,
            "station 1, exception 99 (no standard name) to read holding registers" },
        { "01 03 00 63", FrameRole::Request,
            "station 1, read holding registers: 6 bytes, a request of it has 8" },
        { "01 03 04 05 DC", FrameRole::Reply,
            "station 1, read holding registers: 7 bytes, a reply of it has 9" },
        { "01 2B 0E 01 00", FrameRole::Request, "station 1, function 43 (not one this decoder knows)" },
    };
    for (const Row &row : rows) {
        const DecodedFrame d = decodeFrame(frame(row.bytes), row.role);
        EXPECT_EQ(d.meaning, row.meaning) << row.bytes;
        EXPECT_TRUE(d.crcOk) << row.bytes;
    }
}

TEST(FrameDecoder, ACorruptOrShortFrameSaysSo)
{
    std::string bad = frame("01 03 02 05 DC");
    bad.back() = char(bad.back() ^ 1);
    EXPECT_FALSE(decodeFrame(bad, FrameRole::Reply).crcOk);
    TraceEvent e;
    e.kind = TraceEvent::Kind::Received;
    e.bytes = bad;
    EXPECT_EQ(describeFrame(e), "station 1, reply 2 bytes: 1500, CRC BAD");
    for (const char *shortFrame : { "", "01", "01 03" }) {
        const DecodedFrame d = decodeFrame(raw(shortFrame), FrameRole::Reply);
        EXPECT_FALSE(d.fits) << shortFrame;
        EXPECT_FALSE(d.crcOk) << shortFrame;
    }
}

TEST(FrameDecoder, AnyFrameGetsEveryReadingThatFits)
{
    // A function-6 request and its echo look the same; a read request and
    // a read reply differ in length.
    EXPECT_EQ(decodeAnyFrame(frame("01 06 00 63 00 07")).size(), 2u);
    const std::vector<DecodedFrame> read = decodeAnyFrame(frame("01 03 00 63 00 01"));
    ASSERT_EQ(read.size(), 1u);
    EXPECT_EQ(read[0].role, FrameRole::Request);
    const std::vector<DecodedFrame> reply = decodeAnyFrame(frame("01 03 02 05 DC"));
    ASSERT_EQ(reply.size(), 1u);
    EXPECT_EQ(reply[0].role, FrameRole::Reply);
}

TEST(FrameDecoder, HexTextsAsPeoplePasteThem)
{
    struct Row
    {
        const char *text, *bytes; // bytes nullptr: refused
    } rows[] = {
        { "01 03 00 63", "01 03 00 63" },
        { "0103 0063", "01 03 00 63" },
        { "0x01,0x03:00-63", "01 03 00 63" },
        { "  01\t03  ", "01 03" },
        { "01 3", nullptr },
        { "01 GG", nullptr },
        { "0x", nullptr },
        { "", nullptr },
        { " , ", nullptr },
    };
    for (const Row &row : rows) {
        std::string bytes, error;
        const bool ok = parseHexBytes(row.text, bytes, error);
        EXPECT_EQ(ok, row.bytes != nullptr) << row.text;
        if (row.bytes)
            EXPECT_EQ(hexBytes(bytes), row.bytes) << row.text;
        else
            EXPECT_FALSE(error.empty()) << row.text;
    }
}

} // namespace
