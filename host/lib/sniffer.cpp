#include "sniffer.h"

#include "framedecoder.h"

#include <QJsonArray>

#include <algorithm>
#include <cstdio>

int64_t SniffEvent::timeNs() const
{
    switch (kind) {
    case NoAnswer:
    case Broadcast:
        return request.endNs;
    default:
        return reply.endNs;
    }
}

Sniffer::Sniffer(int64_t replyWindowNs)
    : windowNs(replyWindowNs)
{
}

void Sniffer::take(const BusFrame &frame, std::vector<SniffEvent> &out)
{
    if (frame.kind == BusFrame::Garbage) {
        garbage += int64_t(frame.bytes.size());
        SniffEvent e;
        e.reply = frame;
        out.push_back(e);
        return;
    }
    ++framesSeen;
    if (frame.kind == BusFrame::Good) {
        if (frame.role == FrameRole::Request)
            takeRequest(frame, out);
        else
            takeReply(frame, out);
        return;
    }
    // A bad frame while a request waits is its answer, and counts against
    // the station asked: that request got no good reply.
    SniffEvent e;
    e.kind = SniffEvent::BadFrame;
    e.reply = frame;
    e.station = static_cast<unsigned char>((waiting ? request : frame).bytes[0]);
    if (waiting) {
        e.request = request;
        waiting = false;
        ++perStation[e.station].noAnswer;
    }
    ++perStation[e.station].badFrames;
    out.push_back(e);
}

void Sniffer::takeRequest(const BusFrame &frame, std::vector<SniffEvent> &out)
{
    unanswered(out);
    const int station = static_cast<unsigned char>(frame.bytes[0]);
    ++perStation[station].requests;
    if (station == 0) {
        SniffEvent e;
        e.kind = SniffEvent::Broadcast;
        e.station = 0;
        e.request = frame;
        out.push_back(e);
        return;
    }
    request = frame;
    waiting = true;
}

void Sniffer::takeReply(const BusFrame &frame, std::vector<SniffEvent> &out)
{
    SniffEvent e;
    e.station = static_cast<unsigned char>(frame.bytes[0]);
    e.reply = frame;
    const int function = static_cast<unsigned char>(frame.bytes[1]);
    SniffStation &s = perStation[e.station];
    if (!waiting || request.bytes[0] != frame.bytes[0]
        || static_cast<unsigned char>(request.bytes[1]) != (function & 0x7F)
        || frame.startNs - request.endNs > windowNs) {
        e.kind = SniffEvent::StrayReply;
        ++s.strayReplies;
        out.push_back(e);
        return;
    }
    e.kind = (function & 0x80) ? SniffEvent::Exception : SniffEvent::Answered;
    e.request = request;
    e.turnaroundNs = frame.startNs - request.endNs;
    waiting = false;
    ++s.answered;
    s.exceptions += e.kind == SniffEvent::Exception;
    s.turnaroundsNs.push_back(e.turnaroundNs);
    out.push_back(e);
}

void Sniffer::unanswered(std::vector<SniffEvent> &out)
{
    if (!waiting)
        return;
    waiting = false;
    SniffEvent e;
    e.kind = SniffEvent::NoAnswer;
    e.station = static_cast<unsigned char>(request.bytes[0]);
    e.request = request;
    ++perStation[e.station].noAnswer;
    out.push_back(e);
}

void Sniffer::idle(int64_t nowNs, std::vector<SniffEvent> &out)
{
    if (waiting && nowNs - request.endNs > windowNs)
        unanswered(out);
}

void Sniffer::finish(std::vector<SniffEvent> &out) { unanswered(out); }

namespace {

const char *kindWord(const SniffEvent &e)
{
    switch (e.kind) {
    case SniffEvent::Answered:
        return "OK";
    case SniffEvent::Exception:
        return "EXCEPTION";
    case SniffEvent::NoAnswer:
        return "NO-ANSWER";
    case SniffEvent::Broadcast:
        return "BROADCAST";
    case SniffEvent::StrayReply:
        return "STRAY";
    case SniffEvent::BadFrame:
        return e.reply.kind == BusFrame::Truncated ? "TRUNCATED" : "CRC-BAD";
    case SniffEvent::Garbage:
        return "GARBAGE";
    }
    return "?";
}

// A reply's meaning without the station its request already names.
std::string replyText(const BusFrame &reply, bool afterRequest)
{
    std::string text = decodeFrame(reply.bytes, FrameRole::Reply).meaning;
    const size_t comma = text.find(", ");
    if (afterRequest && text.compare(0, 8, "station ") == 0 && comma != std::string::npos)
        text.erase(0, comma + 2);
    return text;
}

// What the event says, after its time and kind.
std::string eventText(const SniffEvent &e)
{
    switch (e.kind) {
    case SniffEvent::Answered:
    case SniffEvent::Exception: {
        char took[32];
        std::snprintf(took, sizeof took, "  (+%.1f ms)", double(e.turnaroundNs) / 1e6);
        return decodeFrame(e.request.bytes, FrameRole::Request).meaning + " -> " + replyText(e.reply, true)
            + took;
    }
    case SniffEvent::NoAnswer:
    case SniffEvent::Broadcast:
        return decodeFrame(e.request.bytes, FrameRole::Request).meaning;
    case SniffEvent::StrayReply:
        return replyText(e.reply, false) + "  (no request of its station and function before it)";
    case SniffEvent::BadFrame: {
        const std::string bad
            = hexBytes(e.reply.bytes) + "  (" + decodeFrame(e.reply.bytes, e.reply.role).meaning + ")";
        return e.request.bytes.empty()
            ? bad
            : decodeFrame(e.request.bytes, FrameRole::Request).meaning + " -> " + bad;
    }
    case SniffEvent::Garbage:
        return std::to_string(e.reply.bytes.size()) + " bytes: " + hexBytes(e.reply.bytes);
    }
    return std::string();
}

double secondsSince(int64_t ns, int64_t originNs) { return double(ns - originNs) / 1e9; }

} // namespace

std::string sniffEventLine(const SniffEvent &e, int64_t originNs)
{
    char head[48];
    std::snprintf(head, sizeof head, "%11.6f %-10s ", secondsSince(e.timeNs(), originNs), kindWord(e));
    return head + eventText(e);
}

QJsonObject sniffEventJson(const SniffEvent &e, int64_t originNs)
{
    QJsonObject o;
    o["t"] = secondsSince(e.timeNs(), originNs);
    o["event"] = QString::fromLatin1(kindWord(e)).toLower();
    if (e.station >= 0)
        o["station"] = e.station;
    if (!e.request.bytes.empty()) {
        o["request"] = QString::fromStdString(hexBytes(e.request.bytes));
        o["requestAt"] = secondsSince(e.request.startNs, originNs);
    }
    if (!e.reply.bytes.empty()) {
        o[e.kind == SniffEvent::BadFrame || e.kind == SniffEvent::Garbage ? "bytes" : "reply"]
            = QString::fromStdString(hexBytes(e.reply.bytes));
        o["replyAt"] = secondsSince(e.reply.startNs, originNs);
    }
    if (e.turnaroundNs >= 0)
        o["turnaroundMs"] = double(e.turnaroundNs) / 1e6;
    o["meaning"] = QString::fromStdString(eventText(e));
    return o;
}

namespace {

struct Spread
{
    double minMs = 0, medianMs = 0, maxMs = 0;
};

Spread spreadOf(std::vector<int64_t> ns)
{
    Spread s;
    if (ns.empty())
        return s;
    std::sort(ns.begin(), ns.end());
    s.minMs = double(ns.front()) / 1e6;
    s.medianMs = double(ns[ns.size() / 2]) / 1e6;
    s.maxMs = double(ns.back()) / 1e6;
    return s;
}

} // namespace

std::string sniffSummaryText(const Sniffer &sniffer, double seconds)
{
    char line[200];
    std::snprintf(line, sizeof line, "sniff: %lld frames in %.1f s, %lld garbage bytes\n",
        static_cast<long long>(sniffer.frames()), seconds, static_cast<long long>(sniffer.garbageBytes()));
    std::string text = line;
    text += "station requests answered exceptions no-answer crc-errors stray  turnaround min/median/max ms\n";
    for (const auto &entry : sniffer.stations()) {
        const SniffStation &s = entry.second;
        const Spread t = spreadOf(s.turnaroundsNs);
        std::snprintf(line, sizeof line, "%7d %8lld %8lld %10lld %9lld %10lld %5lld  ", entry.first,
            static_cast<long long>(s.requests), static_cast<long long>(s.answered),
            static_cast<long long>(s.exceptions), static_cast<long long>(s.noAnswer),
            static_cast<long long>(s.badFrames), static_cast<long long>(s.strayReplies));
        text += line;
        if (s.turnaroundsNs.empty())
            std::snprintf(line, sizeof line, "-\n");
        else
            std::snprintf(line, sizeof line, "%.1f / %.1f / %.1f\n", t.minMs, t.medianMs, t.maxMs);
        text += line;
    }
    return text;
}

QJsonObject sniffSummaryJson(const Sniffer &sniffer, double seconds)
{
    QJsonObject o;
    o["seconds"] = seconds;
    o["frames"] = double(sniffer.frames());
    o["garbageBytes"] = double(sniffer.garbageBytes());
    QJsonArray stations;
    for (const auto &entry : sniffer.stations()) {
        const SniffStation &s = entry.second;
        QJsonObject j;
        j["station"] = entry.first;
        j["requests"] = double(s.requests);
        j["answered"] = double(s.answered);
        j["exceptions"] = double(s.exceptions);
        j["noAnswer"] = double(s.noAnswer);
        j["crcErrors"] = double(s.badFrames);
        j["strayReplies"] = double(s.strayReplies);
        if (!s.turnaroundsNs.empty()) {
            const Spread t = spreadOf(s.turnaroundsNs);
            j["turnaroundMs"]
                = QJsonObject { { "min", t.minMs }, { "median", t.medianMs }, { "max", t.maxMs } };
        }
        stations.append(j);
    }
    o["stations"] = stations;
    return o;
}
