#include "replycollector.h"

#include "rtuframe.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

void ReplyCollector::finish(int station)
{
    if (exchange != Exchange::Idle && !guard.owedThisExchange() && (!clean || taken != have))
        guard.owe(expected.known ? expected.station : -1, std::max(monotonicNs(), deadlineNs));
    settle(station);
    exchange = Exchange::Idle;
}

void ReplyCollector::settle(int station)
{
    if (exchange == Exchange::Idle || station < 0 || settled)
        return;
    // A clean answer that the driver took whole, and not a refusal.
    health.exchangeEnded(station, !clean || taken != have || exception);
    settled = true;
}

void ReplyCollector::begin(const char *frame, int length, int sent, int64_t requestEndNs)
{
    exception = false;
    settled = false;
    expected = expectedReplyTo(reinterpret_cast<const uint8_t *>(frame), length);
    if (sent < length)
        expected = ExpectedReply(); // not the request we meant: judge nothing
    exchange = Exchange::Waiting;
    have = taken = earlyBytes = 0;
    framed = false;
    guard.exchangeBegins();
    clean = !expected.known; // unjudged requests: clean unless a receive comes up short
    deadlineNs = std::max(monotonicNs(), requestEndNs) + int64_t(opts.timeoutMs) * 1000000
        + expected.length * port.settings().characterNs();
    earlyUnseen = expected.known;
}

void ReplyCollector::collectEarlyBytes()
{
    // The wait for the answer also tells what came before it may begin.
    // Only bytes seen waiting before that moment count: a wake-up that
    // comes late (a busy machine) must not take a punctual answer for an
    // early one.
    earlyUnseen = false;
    bool ready = false;
    earlyBytes = guard.collectEarly(reply, Capacity, deadlineNs, ready);
    if (ready)
        awaiting = false;
    if (earlyBytes <= 0)
        return;
    awaiting = false;
    have = earlyBytes;
    port.markQuiet(monotonicNs());
    health.counters().bytesReceived += uint64_t(earlyBytes);
}

void ReplyCollector::received(int got)
{
    if (got <= 0)
        return;
    port.markQuiet(monotonicNs());
    health.counters().bytesReceived += uint64_t(got);
}

int ReplyCollector::bytesWanted(int frameLength) const
{
    if (frameLength == 0) // the header is not in yet: no reply is shorter than 5 bytes
        return std::max(5 - have, 1);
    if (frameLength < 0) // no reply header: take what the answer's length would be
        return std::max(expected.length - have, 0);
    return std::max(frameLength - have, 0);
}

int ReplyCollector::bytesWelcome(int want, int frameLength) const
{
    // Before the header is in, as many bytes as the answer has are read
    // when they are there, so that one read can take a whole answer; but
    // when it comes at the line's pace, a shorter frame (an exception) is
    // not waited for much longer than its own length.
    if (frameLength != 0)
        return want;
    return std::max(want, std::min(expected.length, 5 + ReadAheadLimit) - have);
}

bool ReplyCollector::readBytes(int want, int frameLength, int station)
{
    const int got = port.readUntil(
        reply + have, want, deadlineNs, awaiting && have == 0, bytesWelcome(want, frameLength));
    awaiting = false;
    received(got);
    have += got;
    if (got >= want)
        return true;
    ++health.counters().shortReceives;
    if (have == 0)
        guard.answerMayCome(station);
    ++health.of(station).timeOuts;
    char note[96];
    std::snprintf(note, sizeof note,
        port.hungUp() ? "line closed after %d of %d bytes" : "time-out after %d of %d bytes", have,
        frameLength > 0 ? frameLength : expected.length);
    tracer.trace(TraceEvent::Kind::TimeOut, reply, have, station, note);
    return false;
}

void ReplyCollector::giveBackBeyond(int frameLength)
{
    // Read ahead past a frame shorter than the answer: the next read (or
    // the drop before the next request) takes these bytes.
    port.giveBack(reply + frameLength, have - frameLength);
    health.counters().bytesReceived -= uint64_t(have - frameLength);
    have = frameLength;
}

void ReplyCollector::dropNotTheAnswer(int length, int station, const std::string &note)
{
    health.counters().lateBytesDropped += uint64_t(length);
    health.of(station).lateBytesDropped += uint64_t(length);
    tracer.trace(TraceEvent::Kind::Late, reply, length, station, note);
    have -= length;
    std::memmove(reply, reply + length, size_t(have));
}

bool ReplyCollector::dropEarlyFrame(int frameLength, int station)
{
    // A frame with a header is read whole and dropped; without one, the
    // rest is not framed: what came early is dropped.
    if (frameLength == 0 || (frameLength > 0 && have < frameLength))
        return false; // read on to the end of the frame
    const int length = frameLength > 0 ? frameLength : earlyBytes;
    const int from = frameLength > 0 ? reinterpret_cast<const uint8_t *>(reply)[0] : -1;
    guard.frameCameEarly(from, expected.station);
    ++health.counters().framesRejected;
    dropNotTheAnswer(
        length, from >= 0 ? from : station, "began before the request had left the line; dropped");
    earlyBytes = std::max(earlyBytes - length, 0);
    return true;
}

bool ReplyCollector::judge(int frameLength, int station)
{
    const uint8_t *bytes = reinterpret_cast<const uint8_t *>(reply);
    const char *why = nullptr;
    const ReplyVerdict verdict = judgeReply(expected, bytes, frameLength, &why);
    if (verdict == ReplyVerdict::NotTheAnswer) {
        ++health.counters().framesRejected;
        dropNotTheAnswer(frameLength, bytes[0], std::string("not the answer: ") + why + "; dropped");
        return false;
    }
    clean = verdict == ReplyVerdict::Answer;
    guard.answerCame(station);
    LinkStationHealth &h = health.of(station);
    if (!clean)
        ++h.crcErrors;
    exception = clean && (bytes[1] & 0x80);
    if (exception)
        ++h.exceptions;
    if (clean) // a garbled frame is no answer: a read that fails on it is timed when it gave up
        answerWall = wallClockMs();
    tracer.trace(TraceEvent::Kind::Received, reply, have, station);
    return true;
}

void ReplyCollector::collect(int station)
{
    // Reads the answer as one frame, however the driver asks for it: first
    // the header, then as many bytes as the header says. Frames that answer
    // something else are dropped and the wait goes on, until the answer's
    // deadline: well-formed ones that cannot answer this request, and any
    // that began before the request had left the wire.
    if (earlyUnseen)
        collectEarlyBytes();
    for (;;) {
        const int frameLength = replyFrameLength(reinterpret_cast<const uint8_t *>(reply), have);
        if (earlyBytes > 0 && dropEarlyFrame(frameLength, station))
            continue;
        if (guard.outOfStep()) {
            // No answer taken: the exchange fails and the guard follows.
            ++health.of(station).timeOuts;
            tracer.trace(TraceEvent::Kind::TimeOut, reply, 0, station,
                "answers out of step with the requests: none taken");
            break;
        }
        const int want = bytesWanted(frameLength);
        if (want > 0) {
            if (!readBytes(want, frameLength, station))
                break;
            continue; // framed again with the new bytes
        }
        framed = true;
        if (frameLength > 0 && have > frameLength)
            giveBackBeyond(frameLength);
        if (frameLength < 0) {
            ++health.of(station).crcErrors;
            tracer.trace(TraceEvent::Kind::Received, reply, have, station, "no reply header");
            break;
        }
        if (judge(frameLength, station))
            break;
    }
    exchange = Exchange::Collected;
    if (!clean)
        guard.owe(expected.station, monotonicNs());
}

int ReplyCollector::receiveUnjudged(char *buffer, int length, int station)
{
    // A request the link cannot judge, or no request at all: bytes as they
    // come, each receive with its own time-out.
    const int64_t deadline
        = monotonicNs() + int64_t(opts.timeoutMs) * 1000000 + length * port.settings().characterNs();
    const int got = port.readUntil(buffer, length, deadline, awaiting);
    awaiting = false;
    received(got);
    if (got < length) {
        ++health.counters().shortReceives;
        if (exchange != Exchange::Idle) {
            guard.owe(-1, monotonicNs());
            clean = false;
        }
        if (station >= 0)
            ++health.of(station).timeOuts;
        char note[96];
        std::snprintf(note, sizeof note,
            port.hungUp() ? "line closed after %d of %d bytes" : "time-out after %d of %d bytes", got,
            length);
        tracer.trace(TraceEvent::Kind::TimeOut, buffer, got, station, note);
    } else {
        answerWall = wallClockMs();
        tracer.trace(TraceEvent::Kind::Received, buffer, got, station);
    }
    return got;
}

int ReplyCollector::readBeyondFrame(int length, int available, int station)
{
    // The driver expects more than the frame held: it reads this reply
    // differently. Give it what arrives before the answer's deadline; the
    // exchange is not a clean one.
    clean = false;
    const int want = std::min(length - available, Capacity - have);
    const int got = port.readUntil(reply + have, want, deadlineNs, false);
    if (got > 0) {
        received(got);
        tracer.trace(TraceEvent::Kind::Received, reply + have, got, station, "beyond the reply frame");
    }
    have += got;
    if (got < want)
        ++health.counters().shortReceives;
    guard.owe(expected.station, monotonicNs());
    return available + got;
}

int ReplyCollector::receive(char *buffer, int length, int station)
{
    if (!expected.known)
        return receiveUnjudged(buffer, length, station);
    if (exchange == Exchange::Waiting)
        collect(station);
    int available = have - taken;
    if (available < length && framed && have < Capacity)
        available = readBeyondFrame(length, available, station);
    const int n = std::min(length, available);
    std::memcpy(buffer, reply + taken, size_t(n));
    taken += n;
    return n;
}
