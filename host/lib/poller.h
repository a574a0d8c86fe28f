#ifndef HOST_POLLER_H
#define HOST_POLLER_H

// Cycles over tags on a driver session and hands out one sample per read:
// the values (or the driver's text and its kind), when the answer was
// complete by the link's own clock, how long the read took, and the state of
// the tag's station. Each tag is read at its own station (TAG@STATION) or at
// the poll's.
//
// A station that stops answering is backed off (StationBackoff): its tags
// are read only in the cycles it is due in, with a single attempt, so that
// its time-outs do not stretch every other tag's interval; it comes back as
// soon as it answers. A read the driver served itself sends nothing and says
// nothing about the station.
//
// Tags of one station and area that are neighbours, or close (mergeGap
// registers apart at most), are read with one command (readplan.h); each
// tag's sample keeps its own values, with the time that answer arrived. A
// joined read that fails, however it fails, is read again tag by tag in the
// same cycle, so that one bad register (one the drive refuses, or one it
// does not answer for) cannot blind its neighbours; a tag that then fails
// alone is read alone in the next cycles, until it answers again, and the
// rest stay joined. A station that is silent altogether costs one cycle of
// single time-outs, then its tags are read alone until it is backed off.
//
// With waitForDevice, a device that goes away under the link ends the cycle
// and closes the link; each later cycle first tries to open it again.
//
// The front end drives the cycles, blocking or one read per turn of its
// event loop: beginCycle(), next() until it is false, endCycle().

#include "driversession.h"
#include "pollstats.h"
#include "readplan.h"
#include "stationbackoff.h"
#include "tag.h"

#include <cstdint>
#include <vector>

struct PollSample
{
    size_t index = 0; // the tag's place in the list
    int station = 0;
    FormattedResult result; // values as texts, or the error text and kind
    int64_t wallMs = 0; // when the answer was complete; without one, when the read gave up
    int64_t latencyNs = 0;
    bool backedOff = false; // the station is backed off after this read
    bool newlyBackedOff = false; // ... and this read backed it off
    bool deviceGone = false; // the device went away during this read (with waitForDevice)
};

class Poller
{
public:
    enum class CycleStart { Ready, DeviceBack, DeviceGone };

    explicit Poller(DriverSession &session, bool waitForDevice = false);

    void setTags(std::vector<Tag> tags);
    const std::vector<Tag> &tags() const { return list; }
    // The poll's link options; a tag's station overrides their station.
    void setOptions(const LinkOptions &options)
    {
        pollOptions = options;
        planReady = false;
    }
    // How many registers no tag names may lie between two tags of one read;
    // 0 joins touching tags only, -1 reads every tag on its own.
    void setMergeGap(int gap)
    {
        mergeGap = gap;
        planReady = false;
    }
    int joinedGap() const { return mergeGap; }
    // The reads a cycle makes (when every station is due).
    const std::vector<PlannedRead> &plan();
    // Starts over: a new line, no cycles, no station backed off, no statistics.
    void restart();

    // Starts a cycle. DeviceBack: the device that had gone is open again;
    // DeviceGone: it still is not, and the cycle reads nothing.
    CycleStart beginCycle();
    // Reads the cycle's next tag that is due; false when the cycle has no more.
    bool next(PollSample &sample);
    // Ends the cycle; its length from beginCycle() in nanoseconds.
    int64_t endCycle();
    // Ends a cycle without counting it.
    void abandonCycle() { position = -1; }
    bool inCycle() const { return position >= 0; }

    // One read of a tag now, at its station, counted for its station's backoff.
    PollSample read(const Tag &tag, size_t index = 0);

    // The start of the next cycle, interval after the last one's (monotonic
    // ns); a cycle that ends past it counts a missed interval and the next
    // begins at once, so that a slow cycle does not make the next ones rush.
    int64_t nextCycleAt(int64_t intervalNs);

    uint64_t cycles() const { return cycleCount; }
    int missedIntervals() const { return missed; }
    int64_t longestCycleNs() const { return longest; }
    bool deviceGone() const { return gone; }
    const PollStats &stats() const { return pollStats; }
    const StationBackoff &backoff() const { return stationBackoff; }
    int stationOf(const Tag &tag) const { return tag.station >= 0 ? tag.station : pollOptions.station; }

private:
    void useStation(int station);
    PollSample sampleOf(
        size_t index, int station, FormattedResult &&result, int64_t latencyNs, bool wasBackedOff);
    void readPlanned(const PlannedRead &read);
    void readJoined(const PlannedRead &read);
    void readEachAlone(const PlannedRead &read);

    DriverSession &session;
    const bool waitForDevice;
    std::vector<Tag> list;
    LinkOptions pollOptions;
    StationBackoff stationBackoff;
    PollStats pollStats;
    long position = -1; // within a cycle: the tag to read next
    int mergeGap = defaultReadGap;
    bool planReady = false;
    std::vector<PlannedRead> reads; // the plan
    std::vector<size_t> readOfTag; // each tag's place in reads
    std::vector<bool> readAlone; // tags that failed alone after their joined read failed
    std::vector<PollSample> held; // samples of a joined read not yet handed out
    std::vector<bool> isHeld;
    uint64_t cycleCount = 0;
    int64_t cycleStartNs = 0;
    int64_t nextStartNs = 0;
    int64_t longest = 0;
    int missed = 0;
    bool gone = false;
};

#endif // HOST_POLLER_H
