#ifndef HOST_MONITOR_TRAFFIC_H
#define HOST_MONITOR_TRAFFIC_H

// The frame trace and link health as the monitor shows them: the serial
// link's trace events, its frame decoder and its per-station counters.
// Until the link reports them, the same shapes stand here with no events.

#if __has_include("traceevent.h") && __has_include("framedecoder.h")
#include "framedecoder.h"
#include "traceevent.h"
#define TECO_MONITOR_LINK_TRACE 1
#else
#include <cstdint>
#include <map>
#include <string>

struct TraceEvent
{
    enum class Kind { Sent, Received, Stale, Late, Echo, TimeOut };
    int64_t timeNs = 0;
    int64_t sinceRequestNs = 0;
    Kind kind = Kind::Sent;
    int station = 0;
    std::string bytes;
    std::string note;
};

struct StationHealth
{
    uint64_t requests = 0, retries = 0, timeOuts = 0, crcErrors = 0, exceptions = 0, lateBytesDropped = 0,
             staleBytesDropped = 0;
};

std::string describeFrame(const TraceEvent &event);
std::string hexBytes(const std::string &bytes);
#define TECO_MONITOR_LINK_TRACE 0
#endif

#include <QMetaType>
#include <QVector>

#include <map>

using HealthMap = std::map<int, StationHealth>;

// "sent", "received", "stale", "late", "echo", "time-out".
const char *traceKindName(TraceEvent::Kind kind);

Q_DECLARE_METATYPE(TraceEvent)
Q_DECLARE_METATYPE(HealthMap)

#endif // HOST_MONITOR_TRAFFIC_H
