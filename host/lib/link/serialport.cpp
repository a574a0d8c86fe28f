#include "serialport.h"

#include "deviceholder.h"
#include "tcpline.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <linux/serial.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

int64_t monotonicNs()
{
    struct timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return int64_t(ts.tv_sec) * 1000000000 + ts.tv_nsec;
}

int64_t wallClockMs()
{
    struct timespec ts;
    clock_gettime(CLOCK_REALTIME, &ts);
    return int64_t(ts.tv_sec) * 1000 + ts.tv_nsec / 1000000;
}

namespace {

void sleepUntil(int64_t ns)
{
    struct timespec ts;
    ts.tv_sec = time_t(ns / 1000000000);
    ts.tv_nsec = long(ns % 1000000000);
    while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &ts, nullptr) == EINTR) { }
}

std::string systemError(int error) { return std::strerror(error); }

// Asks the kernel to drive the transmitter of a 2-wire RS485 adapter.
bool enableRs485(int d)
{
    struct serial_rs485 rs;
    std::memset(&rs, 0, sizeof rs);
    ioctl(d, TIOCGRS485, &rs);
    rs.flags |= SER_RS485_ENABLED | SER_RS485_RTS_ON_SEND;
    rs.flags &= ~SER_RS485_RTS_AFTER_SEND;
    return ioctl(d, TIOCSRS485, &rs) == 0;
}

} // namespace

SerialPort::SerialPort() { std::memset(&savedTermios, 0, sizeof savedTermios); }

SerialPort::~SerialPort() { close(); }

bool SerialPort::open(const std::string &device, const LinkSettings &settings, bool rs485, std::string &error)
{
    close();
    if (isTcpDevice(device))
        return openTcp(device, settings, error);
    int d = ::open(device.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    if (d < 0) {
        const int e = errno;
        error = "cannot open " + device + ": " + systemError(e);
        return false;
    }
    if (!configure(d, device, settings, rs485, error)) {
        ::close(d);
        return false;
    }
    tcflush(d, TCIOFLUSH);
    savedValid = true;
    adopt(d, device, settings, false);
    return true;
}

void SerialPort::adopt(int d, const std::string &device, const LinkSettings &settings, bool overTcp)
{
    fd = d;
    tcp = overTcp;
    readAhead.clear();
    line = settings;
    path = device;
    hung = false;
    hangError = 0;
}

bool SerialPort::openTcp(const std::string &device, const LinkSettings &settings, std::string &error)
{
    // No terminal settings, lock or RS485 control: the device server's
    // serial side is set up on the server.
    const int d = connectTcp(device, error);
    if (d < 0) {
        goneReason = error;
        return false;
    }
    adopt(d, device, settings, true);
    return true;
}

std::string SerialPort::goneText() const
{
    if (!isTcpDevice(path))
        return "the device " + path + " is gone (unplugged, or its other end closed)";
    if (!isOpen() && !goneReason.empty())
        return "connection to " + path.substr(4) + " lost: " + goneReason;
    return "connection to " + path.substr(4)
        + " lost: " + (hangError ? std::strerror(hangError) : "closed by the other end");
}

void SerialPort::dropSocketInput()
{
    char junk[256];
    while (::recv(fd, junk, sizeof junk, MSG_DONTWAIT) > 0) { }
}

bool SerialPort::configure(
    int d, const std::string &device, const LinkSettings &settings, bool rs485, std::string &error)
{
    if (!isatty(d)) {
        error = device + " is not a serial device";
        return false;
    }
    if (flock(d, LOCK_EX | LOCK_NB) < 0) {
        const int e = errno;
        const std::string holder = e == EWOULDBLOCK ? deviceHolder(device) : std::string();
        error = e != EWOULDBLOCK ? "cannot lock " + device + ": " + systemError(e)
            : holder.empty()     ? device + " is busy: another program has it open"
                                 : device + " is busy: " + holder + " has it open";
        return false;
    }
    struct termios t;
    if (tcgetattr(d, &t) < 0) {
        error = "cannot read the settings of " + device + ": " + systemError(errno);
        return false;
    }
    savedTermios = t;
    cfmakeraw(&t);
    setLineBits(t, settings);
    t.c_iflag &= ~(IXON | IXOFF | IXANY | INPCK);
    // With VMIN 1 a read without data fails with EAGAIN (the descriptor is
    // non-blocking); with VMIN 0 it would return 0, like a hang-up.
    t.c_cc[VMIN] = 1;
    t.c_cc[VTIME] = 0;
    if (!applyLine(d, TCSANOW, t, settings)) {
        error = "cannot configure " + device + " as " + settings.text() + ": " + systemError(errno);
        return false;
    }
    if (rs485 && !enableRs485(d)) {
        const int e = errno;
        tcsetattr(d, TCSANOW, &savedTermios);
        error = device + " does not support kernel RS485 direction control: " + systemError(e);
        return false;
    }
    return true;
}

bool SerialPort::setLine(const LinkSettings &settings, std::string &error)
{
    if (tcp) {
        // The server's serial side keeps its own settings; ours time the line.
        dropSocketInput();
        readAhead.clear();
        line = settings;
        quietSince = monotonicNs();
        return true;
    }
    struct termios t;
    if (fd < 0 || tcgetattr(fd, &t) < 0) {
        error = fd < 0 ? "the link is not open"
                       : "cannot read the settings of " + path + ": " + systemError(errno);
        return false;
    }
    setLineBits(t, settings);
    if (!applyLine(fd, TCSADRAIN, t, settings)) {
        error = "cannot configure " + path + " as " + settings.text() + ": " + systemError(errno);
        return false;
    }
    // Whatever arrived at the old settings is noise at the new ones.
    tcflush(fd, TCIOFLUSH);
    readAhead.clear();
    line = settings;
    quietSince = monotonicNs();
    return true;
}

void SerialPort::close()
{
    if (fd < 0)
        return;
    if (savedValid)
        tcsetattr(fd, TCSANOW, &savedTermios);
    ::close(fd); // also releases the lock
    fd = -1;
    savedValid = false;
    tcp = false;
}

bool SerialPort::awaitInput(int64_t deadlineNs)
{
    if (!readAhead.empty())
        return true;
    for (;;) {
        const int64_t left = deadlineNs - monotonicNs();
        if (left <= 0)
            return false;
        struct pollfd p = { fd, POLLIN, 0 };
        struct timespec ts = { time_t(left / 1000000000), long(left % 1000000000) };
        const int ready = ppoll(&p, 1, &ts, nullptr);
        noteLateWake(deadlineNs);
        if (ready == 0)
            return false;
        if (ready < 0) {
            if (errno == EINTR)
                continue;
            hung = true;
            return false;
        }
        if (!(p.revents & POLLIN) && (p.revents & (POLLHUP | POLLERR | POLLNVAL))) {
            hung = true;
            return false;
        }
        return true;
    }
}

int SerialPort::readUntil(char *buffer, int length, int64_t deadlineNs, bool waitFirst, int capacity)
{
    capacity = std::max(capacity, length);
    int got = std::min(capacity, int(readAhead.size()));
    readAhead.copy(buffer, size_t(got));
    readAhead.erase(0, size_t(got));
    bool wait = waitFirst && got == 0; // right after a request nothing has come yet: wait before reading
    bool ahead = got == 0 && capacity > length; // a frame's first read, which may take it whole
    while (got < length && !hung) {
        if (wait && !awaitInput(deadlineNs))
            break;
        wait = false;
        const bool probe = ahead && paceFirstRead(capacity, deadlineNs);
        const ssize_t r = ::read(fd, buffer + got, size_t(capacity - got));
        if (r > 0) {
            if (probe)
                pacedLine = r < capacity;
            ahead = false;
            got += int(r);
            // The rest comes at the line's pace: sleep until it can all be
            // in, rather than wake for every byte.
            if (got < length)
                sleepUntil(std::min(deadlineNs, monotonicNs() + (capacity - got) * line.characterNs()));
            continue;
        }
        if (r == 0 || (errno != EAGAIN && errno != EINTR)) {
            hangError = r == 0 ? 0 : errno;
            hung = true; // the other side is gone (EIO on a pseudo-terminal, EOF on a socket)
            break;
        }
        wait = errno == EAGAIN;
    }
    return got;
}

bool SerialPort::paceFirstRead(int bytes, int64_t deadlineNs)
{
    if (!pacedLine || ++pacedFrames % 8 == 0)
        return true;
    sleepUntil(std::min(deadlineNs, monotonicNs() + (bytes - 1) * line.characterNs()));
    return false;
}

int SerialPort::readArrivedBefore(
    char *buffer, int capacity, int64_t momentNs, int64_t deadlineNs, bool &ready)
{
    int got = 0;
    ready = !readAhead.empty();
    if (ready)
        return 0;
    // Bytes that came early end the wait at the moment: what they are is
    // known then.
    while (got < capacity && awaitInput(got > 0 ? momentNs : deadlineNs)) {
        int waiting = 0;
        if (monotonicNs() < momentNs && ioctl(fd, FIONREAD, &waiting) == 0 && waiting > 0
            && monotonicNs() < momentNs) {
            const ssize_t r = ::read(fd, buffer + got, size_t(std::min(waiting, capacity - got)));
            if (r > 0) {
                got += int(r);
                continue;
            }
        }
        ready = true; // bytes that came in time, or the line's end: the next read takes them
        break;
    }
    return got;
}

int SerialPort::write(const char *bytes, int length, int64_t deadlineNs)
{
    int sent = 0;
    while (sent < length) {
        // A connection the other end closed fails the write, not the program.
        ssize_t w = tcp ? ::send(fd, bytes + sent, size_t(length - sent), MSG_NOSIGNAL)
                        : ::write(fd, bytes + sent, size_t(length - sent));
        if (w > 0) {
            sent += int(w);
            continue;
        }
        if (w < 0 && errno == EINTR)
            continue;
        if (w < 0 && errno == EAGAIN) {
            const int64_t left = deadlineNs - monotonicNs();
            struct pollfd p = { fd, POLLOUT, 0 };
            if (left > 0 && poll(&p, 1, int(left / 1000000) + 1) > 0)
                continue;
        }
        if (w < 0 && tcp && (errno == EPIPE || errno == ECONNRESET)) {
            hangError = errno;
            hung = true;
        }
        break;
    }
    return sent;
}

void SerialPort::drain()
{
    // Over TCP the bytes are on their way once the socket took them: the
    // time-out counts from there, and the network's delay adds to it.
    if (!tcp)
        tcdrain(fd);
}

int SerialPort::pending() const
{
    int n = 0;
    return int(readAhead.size()) + (ioctl(fd, FIONREAD, &n) < 0 ? 0 : n);
}

void SerialPort::dropWaiting(const std::function<void(const char *, int)> &dropped)
{
    int waiting = pending();
    if (waiting <= 0)
        return;
    if (!readAhead.empty()) {
        dropped(readAhead.data(), int(readAhead.size()));
        waiting -= int(readAhead.size());
        readAhead.clear();
    }
    char junk[256];
    while (waiting > 0) {
        ssize_t r = ::read(fd, junk, sizeof junk);
        if (r <= 0)
            break;
        dropped(junk, int(r));
        waiting -= int(r);
    }
    tcflush(fd, TCIFLUSH);
    quietSince = monotonicNs();
}

bool SerialPort::inputBefore(int64_t targetNs)
{
    if (!readAhead.empty())
        return true;
    for (;;) {
        const int64_t left = std::max<int64_t>(targetNs - monotonicNs(), 0);
        struct pollfd p = { fd, POLLIN, 0 };
        struct timespec ts = { time_t(left / 1000000000), long(left % 1000000000) };
        const int ready = ppoll(&p, 1, &ts, nullptr);
        if (ready < 0 && errno == EINTR)
            continue;
        // A line that is gone counts as quiet: the next read says so.
        return ready > 0 && (p.revents & POLLIN);
    }
}

bool SerialPort::quietUntil(int64_t target)
{
    // A timed wait wakes late by the scheduler's latency (tens of
    // microseconds, more on virtual machines). Aim early by the least
    // lateness seen recently; should that wake us before the target, a short
    // second wait makes up the rest, so the wait is never cut short.
    const int64_t earliest = *std::min_element(std::begin(wakeLatenessNs), std::end(wakeLatenessNs));
    const int64_t aim = target - earliest;
    const int64_t start = monotonicNs();
    bool quiet = true;
    if (start < aim) {
        if (inputBefore(aim))
            return false;
        const int64_t late = std::min<int64_t>(monotonicNs() - aim, 500000);
        wakeLatenessNs[wakeSample++ % WakeSamples] = std::max<int64_t>(late, 0);
    }
    // Bytes waiting now break the quiet too (one look when the target has passed).
    if (start >= aim || monotonicNs() < target)
        quiet = !inputBefore(target);
    if (start < target)
        noteLateWake(target);
    return quiet;
}

void SerialPort::noteLateWake(int64_t deadlineNs)
{
    // Only for a wait that began before its deadline.
    const int64_t late = monotonicNs() - deadlineNs;
    if (late > 0 && lateWakeNs)
        *lateWakeNs += uint64_t(late);
}
