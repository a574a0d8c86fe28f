#ifndef HOST_LINK_LINKHEALTH_H
#define HOST_LINK_LINKHEALTH_H

// What the link counts: its own counters, and per station the requests,
// retries and what went wrong, with the texts that tell people.

#include <cstdint>
#include <map>
#include <string>

struct LinkCounters
{
    uint64_t requests = 0;
    uint64_t bytesSent = 0;
    uint64_t bytesReceived = 0;
    uint64_t staleBytesDropped = 0;
    uint64_t shortReceives = 0; // receive ended by the time-out
    uint64_t echoMismatches = 0;
    uint64_t lateBytesDropped = 0; // in the late-answer guard, or in frames that answer something else
    uint64_t framesRejected = 0; // well-formed frames that could not be the answer
    uint64_t guardWaits = 0; // requests held back by the late-answer guard
    // How long, in all, the link's timed waits ended past their deadlines:
    // the machine kept it, not the link (a thread without a processor, a
    // stopped process, or a poll of a terminal that waits in the kernel
    // for the worker that moves the bytes that came in).
    uint64_t lateWakeNs = 0;
};

// What the line did for one station. A retry is a request sent again, byte
// for byte, within one command, after the previous exchange with that
// station failed (no clean answer, or an exception). Late bytes count for
// the station whose answer they are (a dropped frame's own station byte, or
// the station whose guard they arrived in), stale bytes for the station of
// the request they preceded.
struct LinkStationHealth
{
    uint64_t requests = 0;
    uint64_t retries = 0;
    uint64_t timeOuts = 0;
    uint64_t crcErrors = 0;
    uint64_t exceptions = 0;
    uint64_t lateBytesDropped = 0;
    uint64_t staleBytesDropped = 0;
};

class LinkHealth
{
public:
    LinkCounters &counters() { return count; }
    const LinkCounters &counters() const { return count; }
    // The station's counts, which it then has.
    LinkStationHealth &of(int station) { return stations[station].health; }

    // A request went out: a retry when it repeats, byte for byte, the last
    // request to its station and that exchange failed.
    void requestSent(int station, const char *frame, int length);
    // The outcome of the exchange with station.
    void exchangeEnded(int station, bool failed) { stations[station].lastFailed = failed; }
    // A new command begins: its first request to a station is not a retry.
    void commandBegins();

    std::map<int, LinkStationHealth> health() const;
    LinkStationHealth healthOf(int station) const;
    LinkStationHealth totalHealth() const;

private:
    struct StationState
    {
        LinkStationHealth health;
        std::string lastRequest;
        bool lastFailed = false;
    };
    LinkCounters count;
    std::map<int, StationState> stations;
};

// What changed between two readings of a station's health.
LinkStationHealth operator-(const LinkStationHealth &now, const LinkStationHealth &before);
// The counts that say something went wrong, for people: "2 retries,
// 1 time-out"; "" when there are none. requests: start with the number of
// requests ("12 requests, 2 retries").
std::string healthText(const LinkStationHealth &health, bool requests = false);

#endif // HOST_LINK_LINKHEALTH_H
