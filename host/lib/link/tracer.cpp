#include "tracer.h"

#include "serialport.h"
#include "textfile.h"

#include <algorithm>

Tracer::~Tracer()
{
    std::string ignored;
    setFile(std::string(), ignored, format);
}

bool Tracer::setFile(const std::string &path, std::string &error, TraceFormat traceFormat)
{
    format = traceFormat;
    if (file && owned)
        std::fclose(file);
    file = nullptr;
    owned = false;
    if (path.empty())
        return true;
    if (path == "-") {
        file = stderr;
        return true;
    }
    // Never through a symbolic link, never over a device, FIFO or another
    // user's file: see createTextFile.
    std::string reason;
    file = createTextFile(path, reason);
    if (!file) {
        error = "cannot write the trace to " + path + ": " + reason;
        return false;
    }
    owned = true;
    return true;
}

void Tracer::trace(TraceEvent::Kind kind, const char *bytes, int length, int station, const std::string &note)
{
    if (!sink && (!file || !fileOn))
        return;
    TraceEvent e;
    e.kind = kind;
    e.timeNs = monotonicNs();
    e.sinceOpenNs = e.timeNs - openedNs;
    e.sinceRequestNs = requestEndNs < 0 ? -1 : e.timeNs - requestEndNs;
    e.station = station;
    e.bytes.assign(bytes, size_t(std::max(length, 0)));
    e.note = note;
    if (sink)
        sink(e);
    if (file && fileOn) {
        std::fprintf(file, "%s\n", traceLine(e, format).c_str());
        std::fflush(file);
    }
}
