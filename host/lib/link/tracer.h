#ifndef HOST_LINK_TRACER_H
#define HOST_LINK_TRACER_H

// The link's trace: every frame and event as a trace event (traceevent.h),
// to a sink and to a trace file, decoded or in the panel's form.

#include "framedecoder.h"
#include "traceevent.h"

#include <cstdint>
#include <cstdio>
#include <string>

class Tracer
{
public:
    Tracer() = default;
    ~Tracer();
    Tracer(const Tracer &) = delete;
    Tracer &operator=(const Tracer &) = delete;

    // Path "-" is standard error, an empty path switches the file off. A
    // file is opened as createTextFile (textfile.h) opens it: never through
    // a symbolic link, and an existing file only if it is the user's own.
    bool setFile(const std::string &path, std::string &error, TraceFormat format);
    void setFileEnabled(bool on) { fileOn = on; }
    // Every event also goes to sink (if set), whether or not a file is written.
    void setSink(TraceSink to) { sink = std::move(to); }

    // The moments event times count from (monotonic ns): the line opened,
    // the last request left it (-1: none yet).
    void setOpened(int64_t ns) { openedNs = ns; }
    void setRequestEnd(int64_t ns) { requestEndNs = ns; }

    void trace(
        TraceEvent::Kind kind, const char *bytes, int length, int station, const std::string &note = {});

private:
    FILE *file = nullptr;
    bool owned = false;
    bool fileOn = true;
    TraceFormat format = TraceFormat::Decoded;
    TraceSink sink;
    int64_t openedNs = 0;
    int64_t requestEndNs = -1;
};

#endif // HOST_LINK_TRACER_H
