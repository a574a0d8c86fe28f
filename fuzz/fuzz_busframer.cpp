// Fuzzes the bus framer and the sniffer with what a listener reads off a
// line: bytes in reads of any size, at any pace, with quiet spells between.
//
// Input: byte 0 chooses the line (9600 or 115200 baud) and the reply window;
// then one read after another: a control byte (low 5 bits: how many bytes
// follow, 0 meaning a quiet spell instead; high 3 bits: how long after the
// last read it came, from the table below), then its bytes.
//
// Beyond the sanitizers:
//   - every byte read comes out exactly once, in order, and nothing else;
//   - a good frame has the length its header gives for its role and a good CRC;
//   - a frame's times are in order and no later than the read that ended it;
//   - every event of the sniffer comes from frames it was given.

#include "busframer.h"
#include "sniffer.h"

#include <cstdlib>
#include <string>
#include <vector>

namespace {

void check(bool ok)
{
    if (!ok)
        std::abort();
}

struct Run
{
    std::vector<BusFrame> frames;
    std::vector<SniffEvent> events;
    std::string in, out;

    void take(Sniffer &sniffer, int64_t nowNs)
    {
        for (const BusFrame &f : frames) {
            check(!f.bytes.empty() && f.startNs < f.endNs && f.endNs <= nowNs);
            const uint8_t *b = reinterpret_cast<const uint8_t *>(f.bytes.data());
            const int n = int(f.bytes.size());
            if (f.kind == BusFrame::Good)
                check(n >= 4 && modbusCrcOk(b, n) && frameLength(b, n, f.role) == n);
            out += f.bytes;
            sniffer.take(f, events);
        }
        frames.clear();
        for (const SniffEvent &e : events)
            check(!(e.request.bytes.empty() && e.reply.bytes.empty()));
        events.clear();
    }
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size == 0)
        return 0;
    static const int64_t pausesUs[] = { 0, 50, 500, 1000, 2000, 5000, 30000, 2000000 };
    LinkSettings line;
    line.baudRate = (data[0] & 1) ? 115200 : 9600;
    const int64_t windowNs = (data[0] & 2) ? 100000000 : 1000000000;
    BusFramer framer(BusFramer::timingOf(line, 20000000, windowNs));
    Sniffer sniffer(windowNs);
    Run run;
    int64_t nowNs = 1000000000;
    size_t at = 1;
    while (at < size) {
        const uint8_t control = data[at++];
        nowNs += pausesUs[control >> 5] * 1000;
        const size_t count = std::min<size_t>(control & 31, size - at);
        if (count == 0) {
            framer.idle(nowNs, run.frames);
        } else {
            framer.feed(data + at, int(count), nowNs, run.frames);
            run.in.append(reinterpret_cast<const char *>(data + at), count);
            at += count;
        }
        run.take(sniffer, nowNs);
        if (framer.held() == 0)
            sniffer.idle(nowNs, run.events);
    }
    framer.finish(run.frames);
    run.take(sniffer, INT64_MAX);
    sniffer.finish(run.events);
    check(run.in == run.out);
    return 0;
}
