#include "seriallink.h"

#include "textfile.h"
#include "textutil.h"
#include "tools.h"

#include <QString>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <linux/serial.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <time.h>
#include <unistd.h>
#include <vector>

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

struct BaudRate
{
    int rate;
    speed_t code;
};

const BaudRate baudRates[] = {
    { 300, B300 },
    { 600, B600 },
    { 1200, B1200 },
    { 2400, B2400 },
    { 4800, B4800 },
    { 9600, B9600 },
    { 19200, B19200 },
    { 38400, B38400 },
    { 57600, B57600 },
    { 115200, B115200 },
    { 230400, B230400 },
    { 460800, B460800 },
    { 921600, B921600 },
};

void sleepUntil(int64_t ns)
{
    struct timespec ts;
    ts.tv_sec = time_t(ns / 1000000000);
    ts.tv_nsec = long(ns % 1000000000);
    while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &ts, nullptr) == EINTR) { }
}

std::string systemError(int error) { return std::strerror(error); }

} // namespace

// ---------------------------------------------------------------- LinkSettings

bool LinkSettings::parse(const std::string &text, LinkSettings &settings, std::string &error)
{
    const std::string example
        = " (expected INTERFACE,BAUD,PARITY,DATABITS,STOPBITS such as \"RS485,9600,NONE,8,2\")";
    std::vector<std::string> fields = splitFields(text, ',');
    for (std::string &field : fields)
        field = trimmed(field);
    if (fields.size() != 5) {
        error = "malformed link \"" + text + "\"" + example;
        return false;
    }
    LinkSettings s;
    s.interface = upperCase(fields[0]);
    if (s.interface != "RS232" && s.interface != "RS422" && s.interface != "RS485") {
        error = "unknown interface \"" + fields[0] + "\" in link \"" + text + "\" (RS232, RS422 or RS485)";
        return false;
    }
    const bool known = parseWholeNumber(fields[1], 0, 921600, s.baudRate) && supportedBaudRate(s.baudRate);
    if (!known) {
        std::string rates;
        for (const BaudRate &b : baudRates)
            rates += (rates.empty() ? "" : ", ") + std::to_string(b.rate);
        error = "unsupported baud rate \"" + fields[1] + "\" in link \"" + text + "\" (the port takes "
            + rates + ")";
        return false;
    }
    const std::string parity = upperCase(fields[2]);
    if (parity == "NONE" || parity == "N")
        s.parity = 'N';
    else if (parity == "EVEN" || parity == "E")
        s.parity = 'E';
    else if (parity == "ODD" || parity == "O")
        s.parity = 'O';
    else {
        error = "unknown parity \"" + fields[2] + "\" in link \"" + text + "\" (NONE, EVEN or ODD)";
        return false;
    }
    if (!parseWholeNumber(fields[3], 7, 8, s.dataBits)) {
        error = "data bits must be 7 or 8, not \"" + fields[3] + "\", in link \"" + text + "\"";
        return false;
    }
    if (!parseWholeNumber(fields[4], 1, 2, s.stopBits)) {
        error = "stop bits must be 1 or 2, not \"" + fields[4] + "\", in link \"" + text + "\"";
        return false;
    }
    settings = s;
    return true;
}

std::string LinkSettings::text() const
{
    const char *parityName = parity == 'E' ? "EVEN" : parity == 'O' ? "ODD" : "NONE";
    return interface + "," + std::to_string(baudRate) + "," + parityName + "," + std::to_string(dataBits)
        + "," + std::to_string(stopBits);
}

bool LinkSettings::supportedBaudRate(int rate)
{
    return std::any_of(
        std::begin(baudRates), std::end(baudRates), [&](const BaudRate &b) { return b.rate == rate; });
}

namespace {

// Puts a line's character format and speed into t, leaving the rest.
void setLineBits(struct termios &t, const LinkSettings &settings)
{
    t.c_cflag &= ~(CSIZE | PARENB | PARODD | CSTOPB | CRTSCTS);
    t.c_cflag |= CLOCAL | CREAD | (settings.dataBits == 7 ? CS7 : CS8);
    if (settings.parity != 'N')
        t.c_cflag |= PARENB | (settings.parity == 'O' ? PARODD : 0);
    if (settings.stopBits == 2)
        t.c_cflag |= CSTOPB;
    speed_t speed = B9600;
    for (const BaudRate &b : baudRates)
        if (b.rate == settings.baudRate)
            speed = b.code;
    cfsetispeed(&t, speed);
    cfsetospeed(&t, speed);
}

} // namespace

bool LinkSettings::speedAndStopBitsSetIn(const struct termios &t) const
{
    struct termios wanted = t;
    setLineBits(wanted, *this);
    return (wanted.c_cflag & CSTOPB) == (t.c_cflag & CSTOPB) && cfgetospeed(&wanted) == cfgetospeed(&t);
}

namespace {

// Sets t on fd. tcsetattr fails when none of the changes took: so does a
// parity alone on a pseudo-terminal, which keeps none. What counts is that
// the line has the speed and stop bits asked for. False with errno set.
bool applyLine(int fd, int when, const struct termios &t, const LinkSettings &settings)
{
    if (tcsetattr(fd, when, &t) == 0)
        return true;
    const int e = errno;
    struct termios now;
    if (e == EINVAL && tcgetattr(fd, &now) == 0 && settings.speedAndStopBitsSetIn(now))
        return true;
    errno = e;
    return false;
}

} // namespace

int LinkSettings::bitsPerCharacter() const { return 1 + dataBits + (parity == 'N' ? 0 : 1) + stopBits; }

int64_t LinkSettings::characterNs() const { return int64_t(bitsPerCharacter()) * 1000000000 / baudRate; }

int64_t LinkSettings::silenceNs() const { return baudRate <= 19200 ? characterNs() * 7 / 2 : 1750000; }

int64_t LinkSettings::leastTurnaroundNs() const { return silenceNs() / 2; }

// ---------------------------------------------------------------- SerialLink

SerialLink::SerialLink() { std::memset(&savedTermios, 0, sizeof savedTermios); }

SerialLink::~SerialLink()
{
    close();
    std::string ignored;
    setTrace(std::string(), ignored);
}

bool SerialLink::open(
    const std::string &device, const LinkSettings &settings, const LinkOptions &options, std::string &error)
{
    close();
    int d = ::open(device.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    if (d < 0) {
        const int e = errno;
        error = "cannot open " + device + ": " + systemError(e);
        return false;
    }
    auto fail = [&](const std::string &text) {
        ::close(d);
        error = text;
        return false;
    };
    if (!isatty(d))
        return fail(device + " is not a serial device");
    if (flock(d, LOCK_EX | LOCK_NB) < 0)
        return fail(errno == EWOULDBLOCK ? device + " is busy: another program has it open"
                                         : "cannot lock " + device + ": " + systemError(errno));
    struct termios t;
    if (tcgetattr(d, &t) < 0)
        return fail("cannot read the settings of " + device + ": " + systemError(errno));
    savedTermios = t;
    cfmakeraw(&t);
    setLineBits(t, settings);
    t.c_iflag &= ~(IXON | IXOFF | IXANY | INPCK);
    // With VMIN 1 a read without data fails with EAGAIN (the descriptor is
    // non-blocking); with VMIN 0 it would return 0, like a hang-up.
    t.c_cc[VMIN] = 1;
    t.c_cc[VTIME] = 0;
    if (!applyLine(d, TCSANOW, t, settings))
        return fail("cannot configure " + device + " as " + settings.text() + ": " + systemError(errno));
    if (options.rs485) {
        struct serial_rs485 rs;
        std::memset(&rs, 0, sizeof rs);
        ioctl(d, TIOCGRS485, &rs);
        rs.flags |= SER_RS485_ENABLED | SER_RS485_RTS_ON_SEND;
        rs.flags &= ~SER_RS485_RTS_AFTER_SEND;
        if (ioctl(d, TIOCSRS485, &rs) < 0) {
            const int e = errno;
            tcsetattr(d, TCSANOW, &savedTermios);
            return fail(device + " does not support kernel RS485 direction control: " + systemError(e));
        }
    }
    tcflush(d, TCIOFLUSH);
    fd = d;
    savedValid = true;
    line = settings;
    opts = options;
    devicePath = device;
    hungUp = false;
    openedNs = monotonicNs();
    lineQuietSinceNs = openedNs;
    count = Counters();
    stations.clear(); // the health of this line's stations, not of an earlier one's
    requestStation = -1;
    requestEndNs = -1;
    return true;
}

bool SerialLink::reopen(std::string &error)
{
    const std::string device = devicePath;
    const Counters counted = count;
    const auto health = stations;
    close();
    if (!open(device, line, opts, error))
        return false;
    count = counted;
    stations = health;
    return true;
}

bool SerialLink::setLine(const LinkSettings &settings, std::string &error)
{
    struct termios t;
    if (fd < 0 || tcgetattr(fd, &t) < 0) {
        error = fd < 0 ? "the link is not open"
                       : "cannot read the settings of " + devicePath + ": " + systemError(errno);
        return false;
    }
    setLineBits(t, settings);
    if (!applyLine(fd, TCSADRAIN, t, settings)) {
        error = "cannot configure " + devicePath + " as " + settings.text() + ": " + systemError(errno);
        return false;
    }
    // Whatever arrived at the old settings is noise at the new ones.
    tcflush(fd, TCIOFLUSH);
    line = settings;
    lineQuietSinceNs = monotonicNs();
    return true;
}

void SerialLink::close()
{
    if (fd < 0)
        return;
    if (savedValid)
        tcsetattr(fd, TCSANOW, &savedTermios);
    ::close(fd); // also releases the lock
    fd = -1;
    savedValid = false;
}

bool SerialLink::setTrace(const std::string &path, std::string &error, TraceFormat format)
{
    traceFormat = format;
    if (traceFile && traceOwned)
        std::fclose(traceFile);
    traceFile = nullptr;
    traceOwned = false;
    if (path.empty())
        return true;
    if (path == "-") {
        traceFile = stderr;
        return true;
    }
    // Never through a symbolic link, never over a device, FIFO or another
    // user's file: see createTextFile.
    std::string reason;
    traceFile = createTextFile(path, reason);
    if (!traceFile) {
        error = "cannot write the trace to " + path + ": " + reason;
        return false;
    }
    traceOwned = true;
    return true;
}

void SerialLink::trace(
    TraceEvent::Kind kind, const char *bytes, int length, int station, const std::string &note)
{
    if (!traceSink && (!traceFile || !traceOn))
        return;
    TraceEvent e;
    e.kind = kind;
    e.timeNs = monotonicNs();
    e.sinceOpenNs = e.timeNs - openedNs;
    e.sinceRequestNs = requestEndNs < 0 ? -1 : e.timeNs - requestEndNs;
    e.station = station;
    e.bytes.assign(bytes, size_t(std::max(length, 0)));
    e.note = note;
    if (traceSink)
        traceSink(e);
    if (traceFile && traceOn) {
        std::fprintf(traceFile, "%s\n", traceLine(e, traceFormat).c_str());
        std::fflush(traceFile);
    }
}

std::map<int, SerialLink::StationHealth> SerialLink::health() const
{
    std::map<int, StationHealth> all;
    for (const auto &s : stations)
        all[s.first] = s.second.health;
    return all;
}

SerialLink::StationHealth SerialLink::healthOf(int station) const
{
    const auto s = stations.find(station);
    return s == stations.end() ? StationHealth() : s->second.health;
}

SerialLink::StationHealth operator-(
    const SerialLink::StationHealth &now, const SerialLink::StationHealth &before)
{
    SerialLink::StationHealth d;
    d.requests = now.requests - before.requests;
    d.retries = now.retries - before.retries;
    d.timeOuts = now.timeOuts - before.timeOuts;
    d.crcErrors = now.crcErrors - before.crcErrors;
    d.exceptions = now.exceptions - before.exceptions;
    d.lateBytesDropped = now.lateBytesDropped - before.lateBytesDropped;
    d.staleBytesDropped = now.staleBytesDropped - before.staleBytesDropped;
    return d;
}

std::string healthText(const SerialLink::StationHealth &h, bool requests)
{
    const struct
    {
        uint64_t count;
        const char *one, *many;
    } parts[] = {
        { h.retries, "retry", "retries" },
        { h.timeOuts, "time-out", "time-outs" },
        { h.crcErrors, "CRC error", "CRC errors" },
        { h.exceptions, "exception", "exceptions" },
        { h.lateBytesDropped, "late byte dropped", "late bytes dropped" },
        { h.staleBytesDropped, "stale byte dropped", "stale bytes dropped" },
    };
    std::string text;
    if (requests)
        text = std::to_string(h.requests) + (h.requests == 1 ? " request" : " requests");
    for (const auto &p : parts)
        if (p.count)
            text += (text.empty() ? "" : ", ") + std::to_string(p.count) + " "
                + (p.count == 1 ? p.one : p.many);
    return text;
}

SerialLink::StationHealth SerialLink::totalHealth() const
{
    StationHealth t;
    for (const auto &s : stations) {
        const StationHealth &h = s.second.health;
        t.requests += h.requests;
        t.retries += h.retries;
        t.timeOuts += h.timeOuts;
        t.crcErrors += h.crcErrors;
        t.exceptions += h.exceptions;
        t.lateBytesDropped += h.lateBytesDropped;
        t.staleBytesDropped += h.staleBytesDropped;
    }
    return t;
}

void SerialLink::commandBegins()
{
    endExchange();
    for (auto &s : stations)
        s.second.lastFailed = false;
}

void SerialLink::endExchange()
{
    if (exchange == Exchange::Idle || requestStation < 0 || outcomeSettled)
        return;
    // A clean answer that the driver took whole, and not a refusal.
    stations[requestStation].lastFailed = !replyClean || replyTaken != replyHave || replyException;
    outcomeSettled = true;
}

int SerialLink::readUntil(char *buffer, int length, int64_t deadlineNs, bool waitFirst)
{
    int got = 0;
    while (got < length && !hungUp) {
        // Right after a request nothing has come yet: wait before reading.
        ssize_t r = -1;
        errno = EAGAIN;
        if (!waitFirst || got > 0)
            r = ::read(fd, buffer + got, size_t(length - got));
        waitFirst = false;
        if (r > 0) {
            got += int(r);
            continue;
        }
        if (r == 0 || (errno != EAGAIN && errno != EINTR)) {
            hungUp = true; // the other side is gone (EIO on a pseudo-terminal)
            break;
        }
        if (errno == EINTR)
            continue;
        const int64_t left = deadlineNs - monotonicNs();
        if (left <= 0)
            break;
        struct pollfd p = { fd, POLLIN, 0 };
        struct timespec ts;
        ts.tv_sec = time_t(left / 1000000000);
        ts.tv_nsec = long(left % 1000000000);
        int ready = ppoll(&p, 1, &ts, nullptr);
        noteLateWake(deadlineNs);
        if (ready == 0)
            break;
        if (ready > 0 && !(p.revents & POLLIN) && (p.revents & (POLLHUP | POLLERR | POLLNVAL))) {
            hungUp = true;
            break;
        }
    }
    return got;
}

void SerialLink::dropStaleBytes()
{
    int pending = 0;
    if (ioctl(fd, FIONREAD, &pending) < 0 || pending <= 0)
        return;
    char junk[256];
    while (pending > 0) {
        ssize_t r = ::read(fd, junk, sizeof junk);
        if (r <= 0)
            break;
        count.staleBytesDropped += uint64_t(r);
        if (requestStation >= 0)
            stations[requestStation].health.staleBytesDropped += uint64_t(r);
        trace(
            TraceEvent::Kind::Stale, junk, int(r), requestStation, "stale bytes dropped before the request");
        pending -= int(r);
    }
    tcflush(fd, TCIFLUSH);
    lineQuietSinceNs = monotonicNs();
}

void SerialLink::sleepUntilPrecisely(int64_t target)
{
    // A timed sleep wakes late by the scheduler's latency (tens of
    // microseconds, more on virtual machines). Aim early by the least
    // lateness seen recently; should that wake us before the target, a short
    // second sleep makes up the rest, so the wait is never cut short.
    int64_t earliest = wakeLatenessNs[0];
    for (int64_t l : wakeLatenessNs)
        earliest = std::min(earliest, l);
    const int64_t aim = target - earliest;
    int64_t now = monotonicNs();
    const bool waits = now < target;
    if (now < aim) {
        sleepUntil(aim);
        now = monotonicNs();
        const int64_t late = std::min<int64_t>(now - aim, 500000);
        wakeLatenessNs[wakeSample++ % WakeSamples] = std::max<int64_t>(late, 0);
    }
    if (now < target)
        sleepUntil(target);
    if (waits)
        noteLateWake(target);
}

void SerialLink::noteLateWake(int64_t deadlineNs)
{
    // Only for a wait that began before its deadline.
    const int64_t late = monotonicNs() - deadlineNs;
    if (late > 0)
        count.lateWakeNs += uint64_t(late);
}

void SerialLink::waitForSilence()
{
    // Bytes that arrive while we wait mean the line was not quiet: drop them
    // and wait again, but not longer than one reply time-out in all.
    const int64_t giveUp = monotonicNs() + int64_t(opts.timeoutMs) * 1000000;
    for (;;) {
        sleepUntilPrecisely(lineQuietSinceNs + line.silenceNs());
        int pending = 0;
        if (ioctl(fd, FIONREAD, &pending) < 0 || pending <= 0)
            return;
        dropStaleBytes();
        if (monotonicNs() >= giveUp)
            return;
    }
}

int64_t SerialLink::guardNs() const
{
    return int64_t(opts.lateGuardMs < 0 ? opts.timeoutMs : opts.lateGuardMs) * 1000000;
}

void SerialLink::owesGuard(int station, int64_t fromNs)
{
    // An answer to the exchange that just failed may still be on its way:
    // nothing goes to that station (to any, when the request was not one
    // we can judge) until the guard has passed.
    guardOwed = true;
    const int64_t until = fromNs + guardNs();
    int64_t &slot = guardUntilNs[station >= 0 && station < 256 ? station : 256];
    slot = std::max(slot, until);
}

void SerialLink::holdBackForGuard(const char *frame, int length)
{
    // A request the link can judge waits only for its own station's guard:
    // a late answer from another station is a frame it drops anyway. One it
    // cannot judge waits for every guard.
    const ExpectedReply next = expectedReplyTo(reinterpret_cast<const uint8_t *>(frame), length);
    int64_t until = guardUntilNs[256];
    if (next.known)
        until = std::max(until, guardUntilNs[next.station]);
    else
        for (int64_t t : guardUntilNs)
            until = std::max(until, t);
    if (monotonicNs() >= until || hungUp)
        return;
    ++count.guardWaits;
    char junk[256];
    while (monotonicNs() < until && !hungUp) {
        const int got = readUntil(junk, int(sizeof junk), until, true);
        if (got <= 0)
            continue;
        count.lateBytesDropped += uint64_t(got);
        const int owner = next.known ? next.station : requestStation;
        if (owner >= 0) {
            stations[owner].health.lateBytesDropped += uint64_t(got);
            stations[owner].answerOwed = false;
        }
        lineQuietSinceNs = monotonicNs();
        trace(TraceEvent::Kind::Late, junk, got, owner, "arrived in the late-answer guard: dropped");
    }
}

int SerialLink::send(const char *frame, int length)
{
    if (fd < 0 || length <= 0)
        return -1;
    // The previous exchange ends here. Unless it collected a frame that may
    // be its answer, and the driver took all of it, that answer may still
    // come: hold requests to its station back for the guard.
    if (exchange != Exchange::Idle && !guardOwed && (!replyClean || replyTaken != replyHave))
        owesGuard(expected.known ? expected.station : -1, std::max(monotonicNs(), replyDeadlineNs));
    endExchange();
    exchange = Exchange::Idle;
    // From here on, bytes dropped before this request count for its station.
    requestStation = static_cast<unsigned char>(frame[0]);
    // Timed waits of this thread end within a microsecond, not within the
    // default 50 us timer slack: the silence before a request and the
    // driver's own (often zero) delay before each attempt.
    static thread_local bool fineTimerSlack = false;
    if (!fineTimerSlack) {
        prctl(PR_SET_TIMERSLACK, 1UL, 0UL, 0UL, 0UL);
        fineTimerSlack = true;
    }
    holdBackForGuard(frame, length);
    if (opts.silence)
        waitForSilence();
    else
        dropStaleBytes();
    const int sent = writeRequest(frame, length);
    ++count.requests;
    count.bytesSent += uint64_t(sent);
    StationState &state = stations[requestStation];
    ++state.health.requests;
    if (state.lastFailed && state.lastRequest.size() == size_t(length)
        && std::memcmp(state.lastRequest.data(), frame, size_t(length)) == 0)
        ++state.health.retries;
    state.lastRequest.assign(frame, size_t(length));
    state.lastFailed = false;
    replyException = false;
    outcomeSettled = false;
    trace(TraceEvent::Kind::Sent, frame, sent, requestStation,
        sent < length ? "the line took only part of the frame" : "");
    if (opts.localEcho && sent > 0)
        readBackEcho(frame, sent);
    expected = expectedReplyTo(reinterpret_cast<const uint8_t *>(frame), length);
    if (sent < length)
        expected = ExpectedReply(); // not the request we meant: judge nothing
    exchange = Exchange::Waiting;
    replyHave = replyTaken = earlyBytes = 0;
    replyFramed = guardOwed = outOfStep = false;
    replyClean = !expected.known; // unjudged requests: clean unless a receive comes up short
    replyDeadlineNs = std::max(monotonicNs(), requestEndNs) + int64_t(opts.timeoutMs) * 1000000
        + expected.length * line.characterNs();
    if (expected.known)
        collectEarlyBytes();
    return sent;
}

void SerialLink::collectEarlyBytes()
{
    // Whenever the driver asks for the answer, what came before it may
    // begin is known for what it is. Only bytes seen waiting before that
    // moment count: a wake-up that comes late (a busy machine) must not
    // take a punctual answer for an early one.
    earlyBytes = 0;
    while (!hungUp && earlyBytes < ReplyCapacity) {
        const int64_t left = answerNotBeforeNs - monotonicNs();
        if (left <= 0)
            break;
        struct pollfd p = { fd, POLLIN, 0 };
        struct timespec ts = { time_t(left / 1000000000), long(left % 1000000000) };
        const int ready = ppoll(&p, 1, &ts, nullptr);
        noteLateWake(answerNotBeforeNs);
        if ((ready < 0 && errno != EINTR) || (ready > 0 && !(p.revents & POLLIN)))
            break; // the line is gone: the reply's own read says so
        int pending = 0;
        if (ioctl(fd, FIONREAD, &pending) < 0 || pending <= 0 || monotonicNs() >= answerNotBeforeNs)
            continue;
        const ssize_t r
            = ::read(fd, reply + earlyBytes, size_t(std::min(pending, ReplyCapacity - earlyBytes)));
        if (r <= 0)
            break;
        earlyBytes += int(r);
    }
    if (earlyBytes <= 0)
        return;
    awaitingAnswer = false;
    replyHave = earlyBytes;
    lineQuietSinceNs = monotonicNs();
    count.bytesReceived += uint64_t(earlyBytes);
}

int SerialLink::writeRequest(const char *frame, int length)
{
    int sent = 0;
    const int64_t writeStartNs = monotonicNs();
    const int64_t deadline = writeStartNs + int64_t(opts.timeoutMs) * 1000000 + length * line.characterNs();
    while (sent < length) {
        ssize_t w = ::write(fd, frame + sent, size_t(length - sent));
        if (w > 0) {
            sent += int(w);
            continue;
        }
        if (w < 0 && errno == EINTR)
            continue;
        if (w < 0 && errno == EAGAIN) {
            const int64_t left = deadline - monotonicNs();
            struct pollfd p = { fd, POLLOUT, 0 };
            if (left > 0 && poll(&p, 1, int(left / 1000000) + 1) > 0)
                continue;
        }
        break;
    }
    // The silence, the echo and the kernel's RS485 switching count from the
    // moment the last character has left the line: once tcdrain says so,
    // and never before the request's wire time after the write began (a
    // pseudo-terminal drains at once). Its answer cannot begin before that
    // wire time and the drive's least turnaround: a frame that begins
    // sooner answers something else. (tcdrain may return late on some
    // adapters, so this bound does not count on it.)
    if (opts.silence || opts.localEcho || opts.rs485)
        tcdrain(fd);
    const int64_t wireEndNs = writeStartNs + sent * line.characterNs();
    answerNotBeforeNs = wireEndNs + line.leastTurnaroundNs();
    requestEndNs = std::max(monotonicNs(), wireEndNs);
    lineQuietSinceNs = requestEndNs;
    awaitingAnswer = true;
    return sent;
}

void SerialLink::readBackEcho(const char *frame, int sent)
{
    std::vector<char> echo(size_t(sent), 0);
    const int64_t echoDeadline
        = monotonicNs() + int64_t(opts.timeoutMs) * 1000000 + sent * line.characterNs();
    const int got = readUntil(echo.data(), sent, echoDeadline, true);
    const bool same = got == sent && std::memcmp(echo.data(), frame, size_t(sent)) == 0;
    if (!same)
        ++count.echoMismatches;
    trace(TraceEvent::Kind::Echo, echo.data(), got, requestStation,
        same ? "" : "the echo differs from the request: collision?");
    lineQuietSinceNs = std::max(monotonicNs(), requestEndNs);
}

int SerialLink::replyBytesWanted(int frameLength) const
{
    if (frameLength == 0) // the header is not in yet
        return (replyHave < 2 ? 2 : 3) - replyHave;
    if (frameLength < 0) // no reply header: take what the answer's length would be
        return std::max(expected.length - replyHave, 0);
    return std::max(frameLength - replyHave, 0);
}

bool SerialLink::readReplyBytes(int want, int frameLength)
{
    const int got = readUntil(reply + replyHave, want, replyDeadlineNs, awaitingAnswer && replyHave == 0);
    awaitingAnswer = false;
    if (got > 0) {
        lineQuietSinceNs = monotonicNs();
        count.bytesReceived += uint64_t(got);
    }
    replyHave += got;
    if (got == want)
        return true;
    ++count.shortReceives;
    if (replyHave == 0)
        stations[requestStation].answerOwed = true;
    ++stations[requestStation].health.timeOuts;
    char note[96];
    std::snprintf(note, sizeof note,
        hungUp ? "line closed after %d of %d bytes" : "time-out after %d of %d bytes", replyHave,
        frameLength > 0 ? frameLength : expected.length);
    trace(TraceEvent::Kind::TimeOut, reply, replyHave, requestStation, note);
    return false;
}

void SerialLink::dropNotTheAnswer(int length, int station, const std::string &note)
{
    count.lateBytesDropped += uint64_t(length);
    stations[station].health.lateBytesDropped += uint64_t(length);
    trace(TraceEvent::Kind::Late, reply, length, station, note);
    replyHave -= length;
    std::memmove(reply, reply + length, size_t(replyHave));
}

bool SerialLink::dropEarlyFrame(int frameLength)
{
    // A frame with a header is read whole and dropped; without one, the
    // rest is not framed: what came early is dropped.
    if (frameLength == 0 || (frameLength > 0 && replyHave < frameLength))
        return false; // read on to the end of the frame
    const int length = frameLength > 0 ? frameLength : earlyBytes;
    const int station = frameLength > 0 ? reinterpret_cast<const uint8_t *>(reply)[0] : -1;
    if (station == expected.station) {
        // The late answer to an exchange that got nothing, or a sign that
        // the answers are out of step with the requests.
        bool &owed = stations[station].answerOwed;
        outOfStep = outOfStep || !owed;
        owed = false;
    }
    ++count.framesRejected;
    dropNotTheAnswer(length, station >= 0 ? station : requestStation,
        "began before the request had left the line; dropped");
    earlyBytes = std::max(earlyBytes - length, 0);
    return true;
}

void SerialLink::collectReply()
{
    // Reads the answer as one frame, however the driver asks for it: first
    // the header, then as many bytes as the header says. Frames that answer
    // something else are dropped and the wait goes on, until the answer's
    // deadline: well-formed ones that cannot answer this request, and any
    // that began before the request had left the wire.
    const uint8_t *bytes = reinterpret_cast<const uint8_t *>(reply);
    for (;;) {
        const int frameLength = replyFrameLength(bytes, replyHave);
        if (earlyBytes > 0 && dropEarlyFrame(frameLength))
            continue;
        if (outOfStep) {
            // No answer taken: the exchange fails and the guard follows.
            ++stations[requestStation].health.timeOuts;
            trace(TraceEvent::Kind::TimeOut, reply, 0, requestStation,
                "answers out of step with the requests: none taken");
            break;
        }
        const int want = replyBytesWanted(frameLength);
        if (want > 0) {
            if (!readReplyBytes(want, frameLength))
                break;
            continue; // framed again with the new bytes
        }
        replyFramed = true;
        if (frameLength < 0) {
            ++stations[requestStation].health.crcErrors;
            trace(TraceEvent::Kind::Received, reply, replyHave, requestStation, "no reply header");
            break;
        }
        const char *why = nullptr;
        const ReplyVerdict verdict = judgeReply(expected, bytes, frameLength, &why);
        if (verdict == ReplyVerdict::NotTheAnswer) {
            ++count.framesRejected;
            dropNotTheAnswer(frameLength, bytes[0], std::string("not the answer: ") + why + "; dropped");
            continue;
        }
        replyClean = verdict == ReplyVerdict::Answer;
        stations[requestStation].answerOwed = false;
        StationHealth &h = stations[requestStation].health;
        if (!replyClean)
            ++h.crcErrors;
        replyException = replyClean && (bytes[1] & 0x80);
        if (replyException)
            ++h.exceptions;
        answerWallMs = wallClockMs();
        trace(TraceEvent::Kind::Received, reply, replyHave, requestStation);
        break;
    }
    exchange = Exchange::Collected;
    if (!replyClean)
        owesGuard(expected.station, monotonicNs());
}

int SerialLink::receive(char *buffer, int length)
{
    if (fd < 0 || length <= 0)
        return 0;
    if (!expected.known) {
        // A request the link cannot judge, or no request at all: bytes as
        // they come, each receive with its own time-out.
        const int64_t deadline
            = monotonicNs() + int64_t(opts.timeoutMs) * 1000000 + length * line.characterNs();
        const int got = readUntil(buffer, length, deadline, awaitingAnswer);
        awaitingAnswer = false;
        if (got > 0) {
            lineQuietSinceNs = monotonicNs();
            count.bytesReceived += uint64_t(got);
        }
        if (got < length) {
            ++count.shortReceives;
            if (exchange != Exchange::Idle) {
                owesGuard(-1, monotonicNs());
                replyClean = false;
            }
            if (requestStation >= 0)
                ++stations[requestStation].health.timeOuts;
            char note[96];
            std::snprintf(note, sizeof note,
                hungUp ? "line closed after %d of %d bytes" : "time-out after %d of %d bytes", got, length);
            trace(TraceEvent::Kind::TimeOut, buffer, got, requestStation, note);
        } else {
            answerWallMs = wallClockMs();
            trace(TraceEvent::Kind::Received, buffer, got, requestStation);
        }
        return got;
    }
    if (exchange == Exchange::Waiting)
        collectReply();
    int available = replyHave - replyTaken;
    if (available < length && replyFramed && replyHave < ReplyCapacity) {
        // The driver expects more than the frame held: it reads this reply
        // differently. Give it what arrives before the answer's deadline; the
        // exchange is not a clean one.
        replyClean = false;
        const int want = std::min(length - available, ReplyCapacity - replyHave);
        const int got = readUntil(reply + replyHave, want, replyDeadlineNs, false);
        if (got > 0) {
            lineQuietSinceNs = monotonicNs();
            count.bytesReceived += uint64_t(got);
            trace(
                TraceEvent::Kind::Received, reply + replyHave, got, requestStation, "beyond the reply frame");
        }
        replyHave += got;
        available += got;
        if (got < want)
            ++count.shortReceives;
        owesGuard(expected.station, monotonicNs());
    }
    const int n = std::min(length, available);
    std::memcpy(buffer, reply + replyTaken, size_t(n));
    replyTaken += n;
    return n;
}

bool SerialLink::setParameter(int, const QVariant &)
{
    // Parameter 12 (the only one drivers set, to 0, before each request)
    // needs no action here: send() prepares the line itself.
    return true;
}
