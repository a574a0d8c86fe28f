#include "traffic.h"

#if !TECO_MONITOR_LINK_TRACE
std::string describeFrame(const TraceEvent &) { return std::string(); }

std::string hexBytes(const std::string &bytes)
{
    static const char digits[] = "0123456789ABCDEF";
    std::string out;
    for (char c : bytes) {
        const unsigned char b = static_cast<unsigned char>(c);
        if (!out.empty())
            out += ' ';
        out += digits[b >> 4];
        out += digits[b & 15];
    }
    return out;
}
#endif

const char *traceKindName(TraceEvent::Kind kind)
{
    switch (kind) {
    case TraceEvent::Kind::Sent:
        return "sent";
    case TraceEvent::Kind::Received:
        return "received";
    case TraceEvent::Kind::Stale:
        return "stale";
    case TraceEvent::Kind::Late:
        return "late";
    case TraceEvent::Kind::Echo:
        return "echo";
    case TraceEvent::Kind::TimeOut:
        return "time-out";
    }
    return "?";
}
