#include "snifflistener.h"

#include <cerrno>
#include <poll.h>
#include <unistd.h>

SniffListener::SniffListener(const Options &options)
    : options(options)
    , framer(BusFramer::Timing())
    , pairs(int64_t(options.replyWindowMs) * 1000000)
{
}

bool SniffListener::open(const std::string &device, const LinkSettings &settings, std::string &error)
{
    if (!port.open(device, settings, false, error))
        return false;
    framer = BusFramer(BusFramer::timingOf(
        settings, int64_t(options.batchMs) * 1000000, int64_t(options.replyWindowMs) * 1000000));
    origin = monotonicNs();
    return true;
}

bool SniffListener::listen(int waitMs, std::vector<SniffEvent> &out)
{
    if (!port.isOpen())
        return false;
    struct pollfd p = { port.descriptor(), POLLIN, 0 };
    const int ready = ::poll(&p, 1, waitMs);
    uint8_t buffer[512];
    ssize_t got = 0;
    if (ready > 0)
        got = ::read(port.descriptor(), buffer, sizeof buffer);
    const int64_t now = monotonicNs();
    std::vector<BusFrame> frames;
    if (got > 0)
        framer.feed(buffer, int(got), now, frames);
    else
        framer.idle(now, frames);
    pass(frames, out);
    if (framer.held() == 0)
        pairs.idle(now, out);
    // A read that finds nothing after poll said there was: the other end is gone.
    const bool gone = ready > 0 && (got == 0 || (got < 0 && errno != EAGAIN && errno != EINTR));
    return !gone;
}

void SniffListener::finish(std::vector<SniffEvent> &out)
{
    std::vector<BusFrame> frames;
    framer.finish(frames);
    pass(frames, out);
    pairs.finish(out);
    port.close();
}

void SniffListener::pass(std::vector<BusFrame> &frames, std::vector<SniffEvent> &out)
{
    for (const BusFrame &f : frames)
        pairs.take(f, out);
    frames.clear();
}
