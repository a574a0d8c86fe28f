#include "linkhealth.h"

#include <cstring>

void LinkHealth::requestSent(int station, const char *frame, int length)
{
    StationState &state = stations[station];
    ++state.health.requests;
    if (state.lastFailed && state.lastRequest.size() == size_t(length)
        && std::memcmp(state.lastRequest.data(), frame, size_t(length)) == 0)
        ++state.health.retries;
    state.lastRequest.assign(frame, size_t(length));
    state.lastFailed = false;
}

void LinkHealth::commandBegins()
{
    for (auto &s : stations)
        s.second.lastFailed = false;
}

std::map<int, LinkStationHealth> LinkHealth::health() const
{
    std::map<int, LinkStationHealth> all;
    for (const auto &s : stations)
        all[s.first] = s.second.health;
    return all;
}

LinkStationHealth LinkHealth::healthOf(int station) const
{
    const auto s = stations.find(station);
    return s == stations.end() ? LinkStationHealth() : s->second.health;
}

LinkStationHealth LinkHealth::totalHealth() const
{
    LinkStationHealth t;
    for (const auto &s : stations) {
        const LinkStationHealth &h = s.second.health;
        t.requests += h.requests;
        t.retries += h.retries;
        t.timeOuts += h.timeOuts;
        t.crcErrors += h.crcErrors;
        t.exceptions += h.exceptions;
        t.lateBytesDropped += h.lateBytesDropped;
        t.staleBytesDropped += h.staleBytesDropped;
    }
    return t;
}

LinkStationHealth operator-(const LinkStationHealth &now, const LinkStationHealth &before)
{
    LinkStationHealth d;
    d.requests = now.requests - before.requests;
    d.retries = now.retries - before.retries;
    d.timeOuts = now.timeOuts - before.timeOuts;
    d.crcErrors = now.crcErrors - before.crcErrors;
    d.exceptions = now.exceptions - before.exceptions;
    d.lateBytesDropped = now.lateBytesDropped - before.lateBytesDropped;
    d.staleBytesDropped = now.staleBytesDropped - before.staleBytesDropped;
    return d;
}

std::string healthText(const LinkStationHealth &h, bool requests)
{
    const struct
    {
        uint64_t count;
        const char *one, *many;
    } parts[] = {
        { h.retries, "retry", "retries" },
        { h.timeOuts, "time-out", "time-outs" },
        { h.crcErrors, "CRC error", "CRC errors" },
        { h.exceptions, "exception", "exceptions" },
        { h.lateBytesDropped, "late byte dropped", "late bytes dropped" },
        { h.staleBytesDropped, "stale byte dropped", "stale bytes dropped" },
    };
    std::string text;
    if (requests)
        text = std::to_string(h.requests) + (h.requests == 1 ? " request" : " requests");
    for (const auto &p : parts)
        if (p.count)
            text += (text.empty() ? "" : ", ") + std::to_string(p.count) + " "
                + (p.count == 1 ? p.one : p.many);
    return text;
}
