#include "pacedline.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

namespace {

int64_t nowNs()
{
    struct timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return int64_t(ts.tv_sec) * 1000000000 + ts.tv_nsec;
}

bool makeRaw(int fd)
{
    struct termios t;
    if (tcgetattr(fd, &t) < 0)
        return false;
    cfmakeraw(&t);
    return tcsetattr(fd, TCSANOW, &t) == 0;
}

} // namespace

bool PacedLine::openEnd(End &end, std::string &error)
{
    end.fd = posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    char name[128] = { 0 };
    if (end.fd < 0 || grantpt(end.fd) < 0 || unlockpt(end.fd) < 0
        || ptsname_r(end.fd, name, sizeof name) != 0) {
        error = std::string("no pseudo-terminal: ") + std::strerror(errno);
        return false;
    }
    end.path = name;
    end.hold = ::open(name, O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    if (end.hold < 0 || !makeRaw(end.hold) || !makeRaw(end.fd)) {
        error = std::string("cannot set up a pseudo-terminal: ") + std::strerror(errno);
        return false;
    }
    return true;
}

bool PacedLine::start(const Options &options, std::string &error)
{
    stop();
    opts = options;
    if (!openEnd(ends[0], error) || !openEnd(ends[1], error) || pipe2(wake, O_CLOEXEC | O_NONBLOCK) < 0) {
        if (error.empty())
            error = std::string("no pipe: ") + std::strerror(errno);
        stop();
        return false;
    }
    worker = std::thread(&PacedLine::run, this);
    return true;
}

void PacedLine::stop()
{
    if (worker.joinable()) {
        const char c = 'x';
        if (::write(wake[1], &c, 1) < 0) { }
        worker.join();
    }
    for (End &end : ends) {
        for (int *fd : { &end.fd, &end.hold })
            if (*fd >= 0) {
                ::close(*fd);
                *fd = -1;
            }
        end = End();
    }
    for (int &fd : wake)
        if (fd >= 0) {
            ::close(fd);
            fd = -1;
        }
}

void PacedLine::take(End &from, End &to)
{
    uint8_t chunk[512];
    const ssize_t n = ::read(from.fd, chunk, sizeof chunk);
    const int64_t characterNs = int64_t(opts.bitsPerCharacter) * 1000000000 / opts.baudRate;
    const int64_t now = nowNs();
    for (ssize_t i = 0; i < n; ++i) {
        int64_t begins = to.wireFreeNs > now ? to.wireFreeNs : now;
        ++to.sent;
        if (&to == &ends[0] && opts.hiccupEvery > 0 && to.sent % uint64_t(opts.hiccupEvery) == 0)
            begins += opts.hiccupNs;
        to.wireFreeNs = begins + characterNs;
        to.towards.push_back(Byte { chunk[i], to.wireFreeNs });
    }
}

void PacedLine::deliver(End &to, int64_t now)
{
    uint8_t out[512];
    size_t n = 0;
    while (!to.towards.empty() && to.towards.front().dueNs <= now && n < sizeof out) {
        out[n++] = to.towards.front().value;
        to.towards.pop_front();
    }
    if (n > 0 && ::write(to.fd, out, n) < 0) { }
}

int64_t PacedLine::nextDueNs() const
{
    int64_t due = -1;
    for (const End &end : ends)
        if (!end.towards.empty() && (due < 0 || end.towards.front().dueNs < due))
            due = end.towards.front().dueNs;
    return due;
}

void PacedLine::run()
{
    for (;;) {
        struct pollfd p[3] = { { ends[0].fd, POLLIN, 0 }, { ends[1].fd, POLLIN, 0 }, { wake[0], POLLIN, 0 } };
        const int64_t due = nextDueNs(), left = due < 0 ? -1 : std::max<int64_t>(due - nowNs(), 0);
        struct timespec ts = { time_t(left / 1000000000), long(left % 1000000000) };
        if (ppoll(p, 3, left < 0 ? nullptr : &ts, nullptr) < 0 && errno != EINTR)
            return;
        if (p[2].revents)
            return;
        if (p[0].revents & POLLIN)
            take(ends[0], ends[1]);
        if (p[1].revents & POLLIN)
            take(ends[1], ends[0]);
        const int64_t now = nowNs();
        deliver(ends[0], now);
        deliver(ends[1], now);
    }
}
