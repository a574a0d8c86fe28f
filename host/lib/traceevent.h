#ifndef HOST_TRACEEVENT_H
#define HOST_TRACEEVENT_H

// What the serial link saw on the line, as data: every frame it sent or
// received and its own events (stale bytes dropped before a request, late
// answers dropped, the local echo, a time-out). Front ends render events:
// framedecoder.h decodes them for people, or writes the toolkit's
// dumpByteArray form as the panel logs it.

#include <cstdint>
#include <functional>
#include <string>

struct TraceEvent
{
    enum class Kind {
        Sent, // a request
        Received, // a reply frame, read whole however the driver asked for it
        Stale, // bytes waiting on the line before a request: dropped
        Late, // a late answer or a frame that answers another request: dropped
        Echo, // the adapter's echo of our request, read back and dropped
        TimeOut // the reply did not come whole in time; bytes holds what came
    };
    Kind kind = Kind::Sent;
    int64_t timeNs = 0; // monotonic clock (monotonicNs())
    int64_t sinceOpenNs = 0; // since the link was opened
    // Since the end of the last request; negative before any request, or
    // while the request is still on the wire.
    int64_t sinceRequestNs = -1;
    int station = -1; // the station of the request it belongs to; -1 unknown
    std::string bytes; // the bytes on the line
    std::string note; // the link's own words, such as "time-out after 3 of 7 bytes"
};

using TraceSink = std::function<void(const TraceEvent &)>;

// "TX", "RX", "DROP", "LATE", "ECHO", "TIMEOUT".
const char *traceKindName(TraceEvent::Kind kind);

#endif // HOST_TRACEEVENT_H
