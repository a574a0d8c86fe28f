#ifndef HOST_STATIONBACKOFF_H
#define HOST_STATIONBACKOFF_H

// Which stations a poll reads in a cycle. A station that stops answering
// would otherwise cost every cycle its full time-outs and retries, and so
// stretch the interval of every other station on the line. After
// failuresToBackOff cycles in a row in which none of its reads got an answer
// it is backed off: its tags are read only once every everyCycles cycles
// (with one attempt, the caller's choice), until one of them is answered
// again, which brings it back at once.
//
// The defaults: 3 silent cycles, so that a lost frame or a short burst of
// noise (which the driver's retries mostly absorb within one cycle) never
// backs a station off; then one probe every 10 cycles, so that a dead
// station costs at most a tenth of its time-outs while one that comes back
// is read again within 10 intervals.
//
// An exception is an answer: the station is there.

#include <cstdint>
#include <map>
#include <vector>

class StationBackoff
{
public:
    static constexpr int defaultFailures = 3;
    static constexpr int defaultEvery = 10;

    explicit StationBackoff(int failuresToBackOff = defaultFailures, int everyCycles = defaultEvery);

    // Whether a station's tags are read in this cycle (cycles count from 0).
    bool due(int station, uint64_t cycle) const;
    // The outcome of one read of a station's tag in a cycle: answered is
    // true for a value or an exception, false for silence or garbage.
    void record(int station, uint64_t cycle, bool answered);
    // Whether the station is backed off now.
    bool backedOff(int station) const;
    // The stations backed off now, in ascending order.
    std::vector<int> backedOffStations() const;
    // Forgets every station (a new line, new tags).
    void clear() { stations.clear(); }

    int failuresToBackOff() const { return failures; }
    int everyCycles() const { return every; }

private:
    struct State
    {
        int silentCycles = 0; // cycles in a row without an answer
        int64_t lastCycle = -1; // the last cycle with a read of this station
        bool answeredInLast = false;
        uint64_t backedOffAt = 0; // the cycle it was backed off in
    };
    int failures;
    int every;
    std::map<int, State> stations;
};

#endif // HOST_STATIONBACKOFF_H
