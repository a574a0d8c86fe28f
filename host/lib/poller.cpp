#include "poller.h"

Poller::Poller(DriverSession &driverSession, bool waitForDeviceToReturn)
    : session(driverSession)
    , waitForDevice(waitForDeviceToReturn)
    , pollOptions(driverSession.link().options())
    , nextStartNs(monotonicNs())
{
}

void Poller::setTags(std::vector<Tag> tags)
{
    list = std::move(tags);
    if (position >= long(list.size()))
        position = -1;
}

void Poller::restart()
{
    stationBackoff.clear();
    pollStats.clear();
    position = -1;
    cycleCount = 0;
    longest = 0;
    missed = 0;
    gone = false;
    nextStartNs = monotonicNs();
}

Poller::CycleStart Poller::beginCycle()
{
    cycleStartNs = monotonicNs();
    position = 0;
    if (!gone)
        return CycleStart::Ready;
    std::string error;
    if (!session.reopen(error)) {
        position = -1;
        return CycleStart::DeviceGone;
    }
    gone = false;
    return CycleStart::DeviceBack;
}

bool Poller::next(PollSample &sample)
{
    if (position < 0)
        return false;
    // A backed-off station's tags wait for its turn.
    while (size_t(position) < list.size() && !stationBackoff.due(stationOf(list[position]), cycleCount))
        ++position;
    if (size_t(position) >= list.size()) {
        position = -1;
        return false;
    }
    const size_t index = size_t(position++);
    sample = read(list[index], index);
    if (waitForDevice && session.deviceGone()) {
        sample.deviceGone = true;
        gone = true;
        session.link().close();
        position = -1;
    }
    return true;
}

PollSample Poller::read(const Tag &tag, size_t index)
{
    PollSample s;
    s.index = index;
    s.station = stationOf(tag);
    const bool wasBackedOff = stationBackoff.backedOff(s.station);
    LinkOptions &options = session.link().options();
    options = pollOptions;
    options.station = s.station;
    if (wasBackedOff)
        options.retry = 0; // a probe: one attempt
    const int64_t t0 = monotonicNs();
    s.result = session.readTag(tag);
    s.latencyNs = monotonicNs() - t0;
    s.wallMs = s.result.answeredMs > 0 ? s.result.answeredMs : wallClockMs();
    options = pollOptions;
    if (s.result.requestsSent != 0)
        stationBackoff.record(
            s.station, cycleCount, s.result.ok || s.result.error.kind == ErrorKind::Exception);
    if (s.result.ok)
        pollStats.addSuccess(s.latencyNs);
    else
        pollStats.addFailure(s.result.error.text);
    s.backedOff = stationBackoff.backedOff(s.station);
    s.newlyBackedOff = s.backedOff && !wasBackedOff;
    return s;
}

int64_t Poller::endCycle()
{
    position = -1;
    const int64_t took = monotonicNs() - cycleStartNs;
    longest = std::max(longest, took);
    ++cycleCount;
    return took;
}

int64_t Poller::nextCycleAt(int64_t intervalNs)
{
    const int64_t now = monotonicNs();
    nextStartNs += intervalNs;
    if (nextStartNs < now) {
        ++missed;
        nextStartNs = now;
    }
    return nextStartNs;
}
