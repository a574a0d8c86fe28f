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
    readAlone.assign(list.size(), false);
    held.assign(list.size(), PollSample());
    isHeld.assign(list.size(), false);
    planReady = false;
    if (position >= long(list.size()))
        position = -1;
    if (position >= 0)
        plan(); // the rest of the cycle reads the new list
}

const std::vector<PlannedRead> &Poller::plan()
{
    if (planReady)
        return reads;
    std::vector<Tag> atStations = list;
    for (Tag &t : atStations)
        t.station = stationOf(t);
    reads = planReads(atStations, mergeGap, readAlone);
    readOfTag.assign(list.size(), 0);
    for (size_t r = 0; r < reads.size(); ++r)
        for (size_t i : reads[r].members)
            readOfTag[i] = r;
    planReady = true;
    return reads;
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
    readAlone.assign(list.size(), false);
    planReady = false;
}

Poller::CycleStart Poller::beginCycle()
{
    cycleStartNs = monotonicNs();
    position = 0;
    plan();
    isHeld.assign(list.size(), false);
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
    // A backed-off station's tags wait for its turn; what a joined read
    // already brought is handed out.
    while (size_t(position) < list.size() && !isHeld[size_t(position)]
        && !stationBackoff.due(stationOf(list[size_t(position)]), cycleCount))
        ++position;
    if (size_t(position) >= list.size()) {
        position = -1;
        return false;
    }
    const size_t index = size_t(position++);
    if (!isHeld[index])
        readPlanned(reads[readOfTag[index]]);
    sample = std::move(held[index]);
    isHeld[index] = false;
    if (waitForDevice && session.deviceGone()) {
        sample.deviceGone = true;
        gone = true;
        session.link().close();
        position = -1;
    }
    return true;
}

void Poller::useStation(int station)
{
    LinkOptions &options = session.link().options();
    options = pollOptions;
    options.station = station;
    if (stationBackoff.backedOff(station))
        options.retry = 0; // a probe: one attempt
}

PollSample Poller::sampleOf(
    size_t index, int station, FormattedResult &&result, int64_t latencyNs, bool wasBackedOff)
{
    PollSample s;
    s.index = index;
    s.station = station;
    s.result = std::move(result);
    s.latencyNs = latencyNs;
    s.wallMs = s.result.answeredMs > 0 ? s.result.answeredMs : wallClockMs();
    if (s.result.ok)
        pollStats.addSuccess(latencyNs);
    else
        pollStats.addFailure(s.result.error.text);
    s.backedOff = stationBackoff.backedOff(station);
    s.newlyBackedOff = s.backedOff && !wasBackedOff;
    return s;
}

PollSample Poller::read(const Tag &tag, size_t index)
{
    const int station = stationOf(tag);
    const bool wasBackedOff = stationBackoff.backedOff(station);
    useStation(station);
    const int64_t t0 = monotonicNs();
    FormattedResult result = session.readTag(tag);
    const int64_t latency = monotonicNs() - t0;
    session.link().options() = pollOptions;
    if (result.requestsSent != 0)
        stationBackoff.record(station, cycleCount, result.ok || result.error.kind == ErrorKind::Exception);
    return sampleOf(index, station, std::move(result), latency, wasBackedOff);
}

void Poller::readPlanned(const PlannedRead &planned)
{
    if (planned.joined) {
        readJoined(planned);
        return;
    }
    const size_t i = planned.members.front();
    held[i] = read(list[i], i);
    isHeld[i] = true;
    if (readAlone[i] && held[i].result.ok) {
        readAlone[i] = false; // it answers again: joined from the next cycle on
        planReady = false;
    }
}

void Poller::readJoined(const PlannedRead &planned)
{
    const int station = planned.tag.station;
    const bool wasBackedOff = stationBackoff.backedOff(station);
    useStation(station);
    const int64_t t0 = monotonicNs();
    const DriverHost::Result r
        = session.host().read(session.link(), planned.tag.address, planned.tag.type, planned.tag.count);
    const int64_t latency = monotonicNs() - t0;
    session.link().options() = pollOptions;
    if (!r.ok && !(waitForDevice && session.deviceGone())) {
        readEachAlone(planned);
        return;
    }
    if (r.requestsSent != 0)
        stationBackoff.record(station, cycleCount, r.ok);
    for (size_t i : planned.members) {
        held[i] = sampleOf(i, station, memberResult(planned.tag, list[i], r), latency, wasBackedOff);
        isHeld[i] = true;
    }
}

void Poller::readEachAlone(const PlannedRead &planned)
{
    for (size_t i : planned.members) {
        held[i] = read(list[i], i);
        isHeld[i] = true;
        if (!held[i].result.ok && held[i].result.requestsSent != 0) {
            readAlone[i] = true; // the next cycles read it on its own, its neighbours joined
            planReady = false;
        }
        if (waitForDevice && session.deviceGone())
            return;
    }
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
