#include "lateguard.h"

#include "replycheck.h"

#include <algorithm>

int64_t LateGuard::guardNs() const
{
    return int64_t(opts.lateGuardMs < 0 ? opts.timeoutMs : opts.lateGuardMs) * 1000000;
}

void LateGuard::owe(int station, int64_t fromNs)
{
    owedNow = true;
    const int64_t until = fromNs + guardNs();
    int64_t &slot = guardUntilNs[station >= 0 && station < 256 ? station : 256];
    slot = std::max(slot, until);
}

void LateGuard::holdBack(const char *frame, int length, int station)
{
    // A request the link can judge waits only for its own station's guard:
    // a late answer from another station is a frame it drops anyway. One it
    // cannot judge waits for every guard.
    const ExpectedReply next = expectedReplyTo(reinterpret_cast<const uint8_t *>(frame), length);
    int64_t until = guardUntilNs[256];
    if (next.known)
        until = std::max(until, guardUntilNs[next.station]);
    else
        for (int64_t t : guardUntilNs)
            until = std::max(until, t);
    if (monotonicNs() >= until || port.hungUp())
        return;
    ++health.counters().guardWaits;
    char junk[256];
    while (monotonicNs() < until && !port.hungUp()) {
        const int got = port.readUntil(junk, int(sizeof junk), until, true);
        if (got <= 0)
            continue;
        health.counters().lateBytesDropped += uint64_t(got);
        const int owner = next.known ? next.station : station;
        if (owner >= 0) {
            health.of(owner).lateBytesDropped += uint64_t(got);
            answerCame(owner);
        }
        port.markQuiet(monotonicNs());
        tracer.trace(TraceEvent::Kind::Late, junk, got, owner, "arrived in the late-answer guard: dropped");
    }
}

void LateGuard::frameCameEarly(int station, int expectedStation)
{
    if (station != expectedStation)
        return;
    // The late answer to an exchange that got nothing, or a sign that the
    // answers are out of step with the requests.
    outOfStepNow = outOfStepNow || !owed[station & 255];
    answerCame(station);
}
