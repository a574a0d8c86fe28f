// The bus as a listener sees it: frames told by length and CRC through an
// adapter that hands bytes over in batches, garbage, broken and cut-off
// replies; then requests paired with their replies.

#include "busframer.h"
#include "hex.h"
#include "sniffer.h"

#include <gtest/gtest.h>

namespace {

std::string bytesOf(const QByteArray &b) { return std::string(b.constData(), size_t(b.size())); }
std::string frame(const char *hexWithoutCrc) { return bytesOf(withCrc(hexWithoutCrc)); }
std::string raw(const char *hexText) { return bytesOf(hex(hexText)); }

const std::string Q = frame("01 03 00 00 00 01"); // read HR1 x1 from station 1
const std::string R = frame("01 03 02 00 02"); // its reply
const std::string W = frame("01 06 00 09 00 07"); // a write, and its echo

// A read from the line: when it returned (µs) and what it brought.
struct Batch
{
    int64_t atUs;
    std::string bytes;
};

BusFramer::Timing timing9600()
{
    LinkSettings line; // 9600 baud, 8 data bits, 2 stop bits
    return BusFramer::timingOf(line, 20000000, 1000000000);
}

std::string describe(const BusFrame &f)
{
    static const char *kinds[] = { "good", "badcrc", "truncated", "garbage" };
    std::string text = kinds[f.kind];
    if (f.kind != BusFrame::Garbage)
        text += f.role == FrameRole::Request ? " request" : " reply";
    return text + " " + toHex(QByteArray(f.bytes.data(), int(f.bytes.size())));
}

// The frames made out of the batches, then of the line quiet until idleUs
// (-1: the end of listening).
std::string frameAll(const std::vector<Batch> &batches, int64_t idleUs)
{
    BusFramer framer(timing9600());
    std::vector<BusFrame> out;
    for (const Batch &b : batches)
        framer.feed(
            reinterpret_cast<const uint8_t *>(b.bytes.data()), int(b.bytes.size()), b.atUs * 1000, out);
    if (idleUs < 0)
        framer.finish(out);
    else
        framer.idle(idleUs * 1000, out);
    std::string text;
    for (const BusFrame &f : out)
        text += (text.empty() ? "" : "; ") + describe(f);
    for (const BusFrame &f : out)
        if (f.kind == BusFrame::Good)
            EXPECT_TRUE(modbusCrcOk(reinterpret_cast<const uint8_t *>(f.bytes.data()), int(f.bytes.size())));
    return text;
}

std::string corrupted(std::string f)
{
    f.back() = char(f.back() ^ 0x40);
    return f;
}

TEST(BusFramer, TellsFramesApart)
{
    const std::string q = "good request 01 03 00 00 00 01 84 0A",
                      r = "good reply " + toHex(withCrc("01 03 02 00 02"));
    std::vector<Batch> byteByByte;
    for (size_t i = 0; i < Q.size(); ++i)
        byteByByte.push_back({ 10000 + int64_t(i) * 1146, Q.substr(i, 1) });
    struct Row
    {
        const char *name;
        std::vector<Batch> batches;
        int64_t idleUs;
        std::string expected;
    } rows[] = {
        { "request, then its reply", { { 10000, Q }, { 24000, R } }, 24000, q + "; " + r },
        { "one byte a read, as on a paced line", byteByByte, 20000, q },
        { "an adapter's pause inside the reply does not split it",
            { { 10000, Q }, { 22000, R.substr(0, 3) }, { 34000, R.substr(3) } }, 34000, q + "; " + r },
        { "request and reply in one read", { { 30000, Q + R } }, 30000, q + "; " + r },
        { "garbage before a request in the same read", { { 10000, raw("FF 13 37") + Q } }, -1,
            "garbage FF 13 37; " + q },
        { "garbage that announces a long frame, a silence, a request",
            { { 10000, raw("01 10 00 00 00 10 20 AA BB") }, { 40000, Q } }, 40000,
            "garbage 01 10 00 00 00 10 20 AA BB; " + q },
        { "a reply with a wrong CRC", { { 10000, Q }, { 24000, corrupted(R) } }, 1100000,
            q + "; badcrc reply " + toHex(QByteArray::fromStdString(corrupted(R))) },
        { "a pause inside a reply with a wrong CRC does not cut it",
            { { 10000, Q }, { 24000, corrupted(R).substr(0, 2) }, { 34000, corrupted(R).substr(2) } },
            1100000, q + "; badcrc reply " + toHex(QByteArray::fromStdString(corrupted(R))) },
        { "... and when its last byte comes late, with the next request",
            { { 10000, Q }, { 24000, corrupted(R).substr(0, 6) },
                { 34000, corrupted(R).substr(6) + Q.substr(0, 3) }, { 36000, Q.substr(3) } },
            36000, q + "; badcrc reply " + toHex(QByteArray::fromStdString(corrupted(R))) + "; " + q },
        { "a reply cut short, then quiet", { { 10000, Q }, { 24000, R.substr(0, 4) } }, 1100000,
            q + "; truncated reply 01 03 02 00" },
        { "a reply cut short, then the next request in two pieces after the reply window",
            { { 10000, Q }, { 24000, R.substr(0, 4) }, { 1100000, Q.substr(0, 3) },
                { 1110000, Q.substr(3, 1) }, { 1120000, Q.substr(4) } },
            -1, q + "; truncated reply 01 03 02 00; " + q },
        { "a pause inside a reply cut short does not split it",
            { { 10000, Q }, { 24000, R.substr(0, 3) }, { 30000, R.substr(3, 2) } }, 1100000,
            q + "; truncated reply 01 03 02 00 02" },
        { "noise in the reply's time is no reply cut short, and the reply still comes",
            { { 10000, Q }, { 24000, raw("19 E4 98 8F") }, { 40000, R } }, 40000,
            q + "; garbage 19 E4 98 8F; " + r },
        { "noise right before a request, then its reply", { { 10000, raw("DA 01 B2 CA") + Q }, { 26000, R } },
            26000, "garbage DA 01 B2 CA; " + q + "; " + r },
        { "noise before a broken reply", { { 10000, Q }, { 24000, raw("72 65 8B 28") + corrupted(R) } },
            1100000,
            q + "; garbage 72 65 8B 28; badcrc reply " + toHex(QByteArray::fromStdString(corrupted(R))) },
        { "a pause is no end of a reply (a batching adapter, a stalled sender)",
            { { 10000, Q }, { 24000, R.substr(0, 4) } }, 500000, q },
        { "an exception reply", { { 10000, Q }, { 24000, frame("01 83 02") } }, 24000,
            q + "; good reply " + toHex(withCrc("01 83 02")) },
        { "a write's echo is its reply", { { 10000, W }, { 24000, W } }, 24000,
            "good request " + toHex(withCrc("01 06 00 09 00 07")) + "; good reply "
                + toHex(withCrc("01 06 00 09 00 07")) },
        { "the same write after the reply window is a request (a retry)", { { 10000, W }, { 1500000, W } },
            1500000,
            "good request " + toHex(withCrc("01 06 00 09 00 07")) + "; good request "
                + toHex(withCrc("01 06 00 09 00 07")) },
        { "noise after the reply", { { 10000, Q }, { 24000, R }, { 40000, raw("C4 18 F1 2B") } }, -1,
            q + "; " + r + "; garbage C4 18 F1 2B" },
        { "another station's echo of a write is a reply",
            { { 10000, W }, { 24000, frame("04 06 00 09 00 07") } }, 24000,
            "good request " + toHex(withCrc("01 06 00 09 00 07")) + "; good reply "
                + toHex(withCrc("04 06 00 09 00 07")) },
        { "another station's late reply leaves the request waiting",
            { { 10000, Q }, { 1200000, frame("03 06 00 64 00 09") }, { 1250000, R },
                { 1270000, frame("03 06 00 64 00 09") } },
            1270000,
            q + "; good request " + toHex(withCrc("03 06 00 64 00 09")) + "; " + r + "; good reply "
                + toHex(withCrc("03 06 00 64 00 09")) },
        { "a write just before the master's time-out has passed is a request",
            { { 10000, W }, { 970000, W } }, 970000,
            "good request " + toHex(withCrc("01 06 00 09 00 07")) + "; good request "
                + toHex(withCrc("01 06 00 09 00 07")) },
        { "a late write's echo while another request waits is a reply",
            { { 10000, frame("03 06 00 64 00 09") }, { 130000, Q }, { 180000, frame("03 06 00 64 00 09") } },
            180000,
            "good request " + toHex(withCrc("03 06 00 64 00 09")) + "; " + q + "; good reply "
                + toHex(withCrc("03 06 00 64 00 09")) },
        { "a write sent again after a broken reply is a request",
            { { 10000, W }, { 24000, corrupted(W) }, { 60000, W } }, 1100000,
            "good request " + toHex(withCrc("01 06 00 09 00 07")) + "; badcrc reply "
                + toHex(QByteArray::fromStdString(corrupted(W))) + "; good request "
                + toHex(withCrc("01 06 00 09 00 07")) },
        { "a reply from another station is still a reply",
            { { 10000, Q }, { 24000, frame("02 03 02 00 02") } }, -1,
            q + "; good reply " + toHex(withCrc("02 03 02 00 02")) },
    };
    for (const Row &row : rows)
        EXPECT_EQ(frameAll(row.batches, row.idleUs), row.expected) << row.name;
}

BusFrame busFrame(BusFrame::Kind kind, FrameRole role, const std::string &bytes, int64_t startUs)
{
    BusFrame f;
    f.kind = kind;
    f.role = role;
    f.bytes = bytes;
    f.startNs = startUs * 1000;
    f.endNs = f.startNs + int64_t(bytes.size()) * 1146000;
    return f;
}

BusFrame request(const std::string &b, int64_t us)
{
    return busFrame(BusFrame::Good, FrameRole::Request, b, us);
}
BusFrame reply(const std::string &b, int64_t us) { return busFrame(BusFrame::Good, FrameRole::Reply, b, us); }

std::string kindWord(const SniffEvent &e)
{
    static const char *words[] = { "ok", "exception", "no-answer", "broadcast", "stray", "bad", "garbage" };
    std::string text = std::string(words[e.kind]) + " " + std::to_string(e.station);
    if (e.turnaroundNs >= 0)
        text += " +" + std::to_string(e.turnaroundNs / 1000) + "us";
    return text;
}

TEST(Sniffer, PairsRequestsWithReplies)
{
    // Q ends at 10000 + 8 * 1146 = 19168 µs.
    struct Row
    {
        const char *name;
        std::vector<BusFrame> frames;
        std::string events; // then the end of listening
        std::string station1; // requests answered exceptions no-answer bad stray
    } rows[] = {
        { "answered, with the drive's turnaround", { request(Q, 10000), reply(R, 23168) }, "ok 1 +4000us",
            "1 1 0 0 0 0" },
        { "a request the next one follows unanswered", { request(Q, 10000), request(Q, 600000) },
            "no-answer 1; no-answer 1", "2 0 0 2 0 0" },
        { "another station's reply answers nothing",
            { request(Q, 10000), reply(frame("02 03 02 00 02"), 23168) }, "stray 2; no-answer 1",
            "1 0 0 1 0 0" },
        { "a broken reply is the request's answer, and no good one",
            { request(Q, 10000), busFrame(BusFrame::BadCrc, FrameRole::Reply, corrupted(R), 23168) }, "bad 1",
            "1 0 0 1 1 0" },
        { "a reply after the window answers nothing", { request(Q, 10000), reply(R, 1200000) },
            "stray 1; no-answer 1", "1 0 0 1 0 1" },
        { "an exception", { request(Q, 10000), reply(frame("01 83 02"), 23168) }, "exception 1 +4000us",
            "1 1 1 0 0 0" },
        { "a broadcast wants no reply", { request(frame("00 06 00 09 00 07"), 10000), reply(R, 23168) },
            "broadcast 0; stray 1", "0 0 0 0 0 1" },
    };
    for (const Row &row : rows) {
        Sniffer sniffer(1000000000);
        std::vector<SniffEvent> events;
        for (const BusFrame &f : row.frames)
            sniffer.take(f, events);
        sniffer.finish(events);
        std::string text;
        for (const SniffEvent &e : events)
            text += (text.empty() ? "" : "; ") + kindWord(e);
        EXPECT_EQ(text, row.events) << row.name;
        const SniffStation s = sniffer.stations().count(1) ? sniffer.stations().at(1) : SniffStation();
        const std::string figures = std::to_string(s.requests) + " " + std::to_string(s.answered) + " "
            + std::to_string(s.exceptions) + " " + std::to_string(s.noAnswer) + " "
            + std::to_string(s.badFrames) + " " + std::to_string(s.strayReplies);
        EXPECT_EQ(figures, row.station1) << row.name;
    }
}

} // namespace
