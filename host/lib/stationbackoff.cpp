#include "stationbackoff.h"

#include <algorithm>

StationBackoff::StationBackoff(int failuresToBackOff, int everyCycles)
    : failures(std::max(1, failuresToBackOff))
    , every(std::max(1, everyCycles))
{
}

bool StationBackoff::backedOff(int station) const
{
    auto it = stations.find(station);
    return it != stations.end() && it->second.silentCycles >= failures;
}

bool StationBackoff::due(int station, uint64_t cycle) const
{
    auto it = stations.find(station);
    if (it == stations.end() || it->second.silentCycles < failures)
        return true;
    return (cycle - it->second.backedOffAt) % uint64_t(every) == 0;
}

void StationBackoff::record(int station, uint64_t cycle, bool answered)
{
    State &s = stations[station];
    if (s.lastCycle != int64_t(cycle)) {
        // The first read of this station in a new cycle.
        s.lastCycle = int64_t(cycle);
        s.answeredInLast = answered;
        if (answered) {
            s.silentCycles = 0;
            return;
        }
        if (++s.silentCycles == failures)
            s.backedOffAt = cycle;
        return;
    }
    if (answered && !s.answeredInLast) {
        // Another tag of the station answered in the same cycle: it is there.
        s.answeredInLast = true;
        s.silentCycles = 0;
    }
}

std::vector<int> StationBackoff::backedOffStations() const
{
    std::vector<int> out;
    for (const auto &s : stations)
        if (s.second.silentCycles >= failures)
            out.push_back(s.first);
    return out;
}
