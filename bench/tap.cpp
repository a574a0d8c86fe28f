// teco-tap: an RS485 bus of three pseudo-terminals for a listener. A master
// on one and a drive on another talk through a paced relay: each byte is
// delivered when its last bit would have left the wire, one byte at a time on
// the one wire both share. Every byte delivered is also copied, at the same
// moment, to the third terminal, where a listener (teco-cli sniff) sees the
// bus as a third adapter on it would.
//
//     teco-tap -b 9600 [-c 11]
//
// prints the three devices, one a line: the drive's, the master's and the
// listener's. What the listener sends is dropped; at the end (SIGTERM) the
// tap says how many bytes it sent on standard error.

#include "serialport.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <fcntl.h>
#include <poll.h>
#include <string>
#include <termios.h>
#include <unistd.h>

namespace {

volatile std::sig_atomic_t stop = 0;
void onStop(int) { stop = 1; }

struct Pty
{
    int master = -1;
    int slave = -1; // held open so that the master side never reads a hang-up
    std::string path;
};

bool openPty(Pty &p)
{
    p.master = posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK);
    if (p.master < 0 || grantpt(p.master) != 0 || unlockpt(p.master) != 0)
        return false;
    p.path = ptsname(p.master);
    p.slave = ::open(p.path.c_str(), O_RDWR | O_NOCTTY);
    if (p.slave < 0)
        return false;
    struct termios t;
    tcgetattr(p.slave, &t);
    cfmakeraw(&t);
    tcsetattr(p.slave, TCSANOW, &t);
    return true;
}

// A byte on its way, due when its last bit leaves the wire.
struct Pending
{
    uint8_t byte;
    int to;
    int64_t dueNs;
};

class Bus
{
public:
    Bus(int64_t characterNs, int listener)
        : characterNs(characterNs)
        , listener(listener)
    {
    }
    // Bytes waiting on from go on the wire after those before them, for to.
    void take(int from, int to, int64_t nowNs)
    {
        uint8_t buffer[256];
        const ssize_t got = ::read(from, buffer, sizeof buffer);
        for (ssize_t i = 0; i < got; ++i) {
            wireFreeNs = std::max(wireFreeNs, nowNs) + characterNs;
            queue.push_back(Pending { buffer[i], to, wireFreeNs });
        }
    }
    // Delivers what is due; the time to wait for the next, in ns (-1: none).
    int64_t deliver(int64_t nowNs)
    {
        while (!queue.empty() && queue.front().dueNs <= nowNs) {
            const Pending &p = queue.front();
            (void)!::write(p.to, &p.byte, 1);
            (void)!::write(listener, &p.byte, 1);
            queue.pop_front();
        }
        return queue.empty() ? -1 : queue.front().dueNs - nowNs;
    }

private:
    int64_t characterNs;
    int listener;
    int64_t wireFreeNs = 0;
    std::deque<Pending> queue;
};

int usage()
{
    std::fprintf(stderr, "usage: teco-tap -b BAUD [-c BITS_PER_CHARACTER]\n");
    return 2;
}

} // namespace

int main(int argc, char **argv)
{
    long baud = 0, bits = 11;
    for (int i = 1; i + 1 < argc; i += 2) {
        const std::string o = argv[i];
        char *end = nullptr;
        const long v = std::strtol(argv[i + 1], &end, 10);
        if (!end || *end || v <= 0)
            return usage();
        if (o == "-b")
            baud = v;
        else if (o == "-c")
            bits = v;
        else
            return usage();
    }
    if (baud <= 0 || argc % 2 == 0)
        return usage();
    Pty drive, master, listener;
    if (!openPty(drive) || !openPty(master) || !openPty(listener)) {
        std::fprintf(stderr, "teco-tap: cannot open pseudo-terminals\n");
        return 1;
    }
    std::printf("%s\n%s\n%s\n", drive.path.c_str(), master.path.c_str(), listener.path.c_str());
    std::fflush(stdout);
    std::signal(SIGTERM, onStop);
    std::signal(SIGINT, onStop);
    Bus bus(int64_t(bits) * 1000000000 / baud, listener.master);
    int64_t waitNs = -1;
    long long listenerSent = 0;
    while (!stop) {
        // The listener's own input is read and dropped: it may not talk on this bus.
        struct pollfd p[3]
            = { { drive.master, POLLIN, 0 }, { master.master, POLLIN, 0 }, { listener.master, POLLIN, 0 } };
        struct timespec ts = { 0, waitNs < 0 || waitNs > 100000000 ? 100000000 : long(waitNs) };
        ppoll(p, 3, &ts, nullptr);
        const int64_t now = monotonicNs();
        if (p[0].revents & POLLIN)
            bus.take(drive.master, master.master, now);
        if (p[1].revents & POLLIN)
            bus.take(master.master, drive.master, now);
        char drop[256];
        if (p[2].revents & POLLIN)
            listenerSent += std::max(ssize_t(0), ::read(listener.master, drop, sizeof drop));
        waitNs = bus.deliver(monotonicNs());
    }
    std::fprintf(stderr, "teco-tap: the listener sent %lld bytes\n", listenerSent);
    return 0;
}
