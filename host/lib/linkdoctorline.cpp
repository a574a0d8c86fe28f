// The link doctor's checks on the open line: the station and the timing.

#include "linkdoctor.h"

#include "rtuframe.h"
#include "scanprobe.h"
#include "serialport.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <poll.h>
#include <termios.h>
#include <time.h>
#include <unistd.h>

namespace {

struct timespec timespecOf(int64_t ns)
{
    ns = std::max<int64_t>(ns, 0);
    return { time_t(ns / 1000000000), long(ns % 1000000000) };
}

bool writeAll(int fd, const std::string &bytes, int64_t deadlineNs)
{
    size_t done = 0;
    while (done < bytes.size() && monotonicNs() < deadlineNs) {
        const ssize_t w = ::write(fd, bytes.data() + done, bytes.size() - done);
        if (w > 0) {
            done += size_t(w);
        } else if (w < 0 && errno == EAGAIN) {
            struct pollfd p = { fd, POLLOUT, 0 };
            const struct timespec ts = timespecOf(std::min<int64_t>(deadlineNs - monotonicNs(), 10000000));
            ppoll(&p, 1, &ts, nullptr);
        } else if (!(w < 0 && errno == EINTR)) {
            return false;
        }
    }
    return done == bytes.size();
}

// Reads what comes until the line has been quiet for quietNs after a byte,
// or until the first deadline without one.
void collect(int fd, LineExchange &x, int64_t firstDeadlineNs, int64_t quietNs)
{
    int64_t deadline = firstDeadlineNs;
    char chunk[512];
    while (x.received.size() < 2048) {
        struct pollfd p = { fd, POLLIN, 0 };
        const struct timespec ts = timespecOf(deadline - monotonicNs());
        if (ppoll(&p, 1, &ts, nullptr) <= 0)
            return;
        const ssize_t n = ::read(fd, chunk, sizeof chunk);
        const int64_t now = monotonicNs();
        if (n < 0 && (errno == EAGAIN || errno == EINTR))
            continue;
        if (n <= 0)
            return; // hung up
        x.received.append(chunk, size_t(n));
        x.arrivedNs.insert(x.arrivedNs.end(), size_t(n), now);
        deadline = now + quietNs;
    }
}

double ms(int64_t ns) { return double(ns) / 1e6; }

std::string msText(double value)
{
    char text[32];
    std::snprintf(text, sizeof text, "%.2f ms", value);
    return text;
}

DoctorCheck check(const char *name, DoctorCheck::Status status, const std::string &finding,
    const std::string &advice = std::string())
{
    DoctorCheck c;
    c.name = name;
    c.status = status;
    c.finding = finding;
    c.advice = advice;
    return c;
}

} // namespace

int64_t LineExchange::requestEndNs() const
{
    return std::max(drainedNs, writeNs + int64_t(request.size()) * characterNs);
}

std::string readRequest(int station, int address, int count)
{
    uint8_t frame[8] = { uint8_t(station), 3, uint8_t(address >> 8), uint8_t(address), uint8_t(count >> 8),
        uint8_t(count), 0, 0 };
    setModbusCrc(frame, 8);
    return std::string(reinterpret_cast<const char *>(frame), sizeof frame);
}

bool exchangeOnLine(int fd, const LinkSettings &line, const std::string &request, int timeoutMs,
    LineExchange &x, std::string &error)
{
    x = LineExchange();
    x.request = request;
    x.characterNs = line.characterNs();
    // What waits on the line is not the answer; the line is quiet before a request.
    tcflush(fd, TCIFLUSH);
    const struct timespec silence = timespecOf(line.silenceNs());
    clock_nanosleep(CLOCK_MONOTONIC, 0, &silence, nullptr);
    x.writeNs = monotonicNs();
    const int64_t wireNs = int64_t(request.size()) * x.characterNs;
    if (!writeAll(fd, request, x.writeNs + int64_t(timeoutMs) * 1000000 + wireNs)) {
        error = std::string("the line took not the whole request: ") + std::strerror(errno);
        return false;
    }
    tcdrain(fd);
    x.drainedNs = monotonicNs();
    // Quiet for 4 silences, and at least 50 ms: a USB adapter passes bytes on in bursts.
    const int64_t quietNs = std::max<int64_t>(50000000, 4 * line.silenceNs());
    collect(fd, x, x.requestEndNs() + int64_t(timeoutMs) * 1000000, quietNs);
    return true;
}

ExchangeReading readExchange(const LineExchange &x)
{
    ExchangeReading r;
    const std::string &b = x.received;
    r.received = b.size();
    if (!x.request.empty() && b.compare(0, x.request.size(), x.request) == 0) {
        r.echo = true;
        r.answerAt = x.request.size();
    }
    if (r.answerAt >= b.size())
        return r;
    const uint8_t *a = reinterpret_cast<const uint8_t *>(b.data()) + r.answerAt;
    const int have = int(b.size() - r.answerAt);
    const int length = replyFrameLength(a, have);
    if (length >= 4 && length <= have && modbusCrcOk(a, length)) {
        r.answerLength = length;
        r.station = a[0];
        r.exception = (a[1] & 0x80) != 0;
    }
    return r;
}

namespace {

const std::vector<int> commonBauds { 9600, 19200, 38400, 57600, 115200, 4800, 2400 };
const std::vector<char> commonParities { 'N', 'E', 'O' };
const std::vector<int> commonStopBits { 1, 2 };

// The common line settings other than the link's own at which the station
// answers a read of HR1 through the driver, as scan probes; the link's
// settings and options are put back.
std::vector<std::string> settingsAnswered(const DriverHost &host, SerialLink &link)
{
    const LinkSettings own = link.settings();
    const LinkOptions options = link.options();
    link.options().timeoutMs = scanTimeoutMs;
    link.options().retry = scanRetry;
    link.options().lateGuardMs = 0; // each setting begins on a flushed line
    AddressText probe;
    std::string error;
    AddressText::parse("HR1", probe, error);
    std::vector<std::string> answered;
    for (const LinkSettings &s : lineSettingsToTry(commonBauds, commonParities, commonStopBits, own)) {
        // Once a baud rate has answered, the rest of its own settings are tried, no more.
        if (!answered.empty() && s.baudRate != link.settings().baudRate)
            break;
        if (s.text() == own.text() || !link.setLine(s, error))
            continue;
        if (judgeScanProbe(host.read(link, probe, ValueType::Word, 1)).answers)
            answered.push_back(s.text());
    }
    link.setLine(own, error);
    link.options() = options;
    return answered;
}

DoctorCheck silentStation(const DriverHost &host, SerialLink &link, const ExchangeReading &r, int attempts)
{
    const std::string station = std::to_string(link.options().station);
    const std::string own = link.settings().text();
    const std::string tries = std::to_string(attempts) + (attempts == 1 ? " request" : " requests");
    const std::string heard = r.received == 0
        ? "station " + station + " does not answer at " + own + " (" + tries + ")"
        : "station " + station + " gives no whole answer at " + own + " (" + std::to_string(r.received)
            + " bytes with no good frame in them)";
    const std::vector<std::string> answered = settingsAnswered(host, link);
    if (answered.empty())
        return check("station", DoctorCheck::Status::Fail, heard + ", nor at any common setting tried",
            "check the wiring (A to A, B to B, a common ground), that the drive is powered and that its "
            "station number is "
                + station + "; try scan to find the stations on the line");
    std::string also;
    for (size_t k = 1; k < answered.size(); ++k)
        also += (k == 1 ? " (also at " : ", ") + answered[k] + (k + 1 == answered.size() ? ")" : "");
    return check("station", DoctorCheck::Status::Fail, heard + ", but answers at " + answered[0] + also,
        "give --link " + answered[0] + ", or set the drive to " + own);
}

DoctorCheck answeringStation(const LinkOptions &o, const LinkSettings &line, const ExchangeReading &r)
{
    const std::string asked = std::to_string(o.station);
    if (r.station != o.station)
        return check("station", DoctorCheck::Status::Fail,
            "station " + asked + " was asked, but the answer comes from station " + std::to_string(r.station),
            "give --station " + std::to_string(r.station) + " or set the drive's station number to " + asked
                + "; two drives with one number on a line answer over each other");
    if (!r.echo && o.localEcho)
        return check("station", DoctorCheck::Status::Fail,
            "station " + asked
                + " answers, but the line gives back no echo of the request, which "
                  "--local-echo waits for: the link would take the answer for the echo",
            "leave out --local-echo");
    std::string finding = "station " + asked + " answers at " + line.text();
    if (r.exception)
        finding += " (with an exception to a read of HR1, so it is there)";
    if (r.echo)
        finding += "; the line gives back each request first, which --local-echo drops";
    return check("station", DoctorCheck::Status::Ok, finding);
}

} // namespace

namespace {

// Sends request until something comes back that is an answer or an echo, at
// most 1 + the link's retries times; attempts: how many it took. False with
// error when the line refuses the request.
bool exchangeAnswered(SerialLink &link, const std::string &request, LineExchange &x, ExchangeReading &r,
    int &attempts, std::string &error)
{
    const LinkOptions &o = link.options();
    for (attempts = 1;; ++attempts) {
        if (!exchangeOnLine(link.descriptor(), link.settings(), request, o.timeoutMs, x, error))
            return false;
        r = readExchange(x);
        if (r.echo || r.answerLength > 0 || attempts > std::max(o.retry, 0))
            return true;
    }
}

std::string lostText(int attempts)
{
    return "; only request " + std::to_string(attempts) + " got it: the line lost the "
        + (attempts == 2 ? std::string("first") : "first " + std::to_string(attempts - 1));
}

} // namespace

DoctorCheck checkStation(const DriverHost &host, SerialLink &link)
{
    const LinkOptions &o = link.options();
    LineExchange x;
    ExchangeReading r;
    int attempts = 0;
    std::string error;
    if (!exchangeAnswered(link, readRequest(o.station, 0, 1), x, r, attempts, error))
        return check(
            "station", DoctorCheck::Status::Fail, error, "check the adapter: unplug it and plug it in again");
    if (r.echo && !o.localEcho) {
        const std::string after = r.answerLength > 0
            ? "; station " + std::to_string(r.station) + " answers after it"
            : r.silent() ? "; no answer follows it"
                         : "; what follows it is no whole answer";
        return check("station", DoctorCheck::Status::Fail,
            "the line gives back our request before anything else (an echo): the RS485 adapter does not "
            "suppress what it sends"
                + after,
            "give --local-echo, so that the link reads the echo back and drops it (or switch the "
            "adapter's echo off, if it has a switch)");
    }
    if (r.answerLength == 0)
        return silentStation(host, link, r, attempts);
    DoctorCheck c = answeringStation(o, link.settings(), r);
    if (attempts > 1 && c.status == DoctorCheck::Status::Ok) {
        c.status = DoctorCheck::Status::Warn;
        c.finding += lostText(attempts);
        c.advice = "check the wiring, the termination at both ends of the line and the ground";
    }
    return c;
}

namespace {

// One read's time from the write call to the answer's last byte, split.
struct TimingSplit
{
    int registers = 0;
    int requestBytes = 0, answerBytes = 0;
    double totalMs = 0, sendingMs = 0, wireMs = 0, turnaroundMs = 0, adapterMs = 0;
    double ourMs = 0; // the request's end after the write began, beyond its wire time
    double answerWireMs = 0; // of wireMs, the answer's part
};

TimingSplit splitOf(const LineExchange &x, const ExchangeReading &r, int registers)
{
    TimingSplit t;
    t.registers = registers;
    t.requestBytes = int(x.request.size());
    t.answerBytes = r.answerLength;
    const int64_t first = x.arrivedNs[r.answerAt];
    const int64_t last = x.arrivedNs[r.answerAt + size_t(r.answerLength) - 1];
    const int64_t requestWire = int64_t(t.requestBytes) * x.characterNs;
    const int64_t answerWire = int64_t(t.answerBytes) * x.characterNs;
    t.totalMs = ms(last - x.writeNs);
    t.sendingMs = ms(x.drainedNs - x.writeNs);
    t.ourMs = ms(x.requestEndNs() - x.writeNs - requestWire);
    t.wireMs = ms(requestWire + answerWire);
    t.answerWireMs = ms(answerWire);
    // The first byte is read once its last bit is in: it began one character earlier.
    t.turnaroundMs = ms(first - x.characterNs - x.requestEndNs());
    t.adapterMs = ms(last - (first - x.characterNs) - answerWire);
    return t;
}

std::string splitText(const TimingSplit &t)
{
    return std::to_string(t.registers) + (t.registers == 1 ? " register: " : " registers: ")
        + msText(t.totalMs) + " in all = wire " + msText(t.wireMs) + " (" + std::to_string(t.requestBytes)
        + " + " + std::to_string(t.answerBytes) + " bytes) + turnaround " + msText(t.turnaroundMs)
        + " + adapter " + msText(t.adapterMs) + " + our sending " + msText(t.ourMs) + " (write to tcdrain "
        + msText(t.sendingMs) + ")";
}

void addFigures(DoctorCheck &c, const TimingSplit &t)
{
    const std::string p = "read" + std::to_string(t.registers) + ".";
    c.figures.push_back({ p + "totalMs", t.totalMs });
    c.figures.push_back({ p + "sendingMs", t.sendingMs });
    c.figures.push_back({ p + "wireMs", t.wireMs });
    c.figures.push_back({ p + "turnaroundMs", t.turnaroundMs });
    c.figures.push_back({ p + "adapterMs", t.adapterMs });
}

// Measures a read of registers from HR1; false with the reason in why.
bool measure(SerialLink &link, int registers, TimingSplit &t, std::string &why)
{
    const LinkOptions &o = link.options();
    LineExchange x;
    ExchangeReading r;
    int attempts = 0;
    if (!exchangeAnswered(link, readRequest(o.station, 0, registers), x, r, attempts, why))
        return false;
    if (r.answerLength == 0 || r.station != o.station) {
        why = "no answer from station " + std::to_string(o.station) + " to a read of "
            + std::to_string(registers) + " registers within " + std::to_string(o.timeoutMs) + " ms";
        return false;
    }
    if (r.exception) {
        why = "station " + std::to_string(o.station) + " answers a read of " + std::to_string(registers)
            + " registers from HR1 with an exception";
        return false;
    }
    t = splitOf(x, r, registers);
    return true;
}

} // namespace

DoctorCheck checkTiming(SerialLink &link)
{
    DoctorCheck c;
    c.name = "timing";
    const int timeoutMs = link.options().timeoutMs;
    std::string sentences;
    double slowest = 0;
    bool noBits = false;
    for (int registers : { 1, 125 }) {
        TimingSplit t;
        std::string why;
        if (!measure(link, registers, t, why))
            return check("timing", DoctorCheck::Status::Fail, why,
                "see the station check; raise --timeout if the drive is slow to answer");
        sentences += (sentences.empty() ? "" : "\n") + splitText(t);
        addFigures(c, t);
        // The driver's time-out runs from the request's end to the answer's.
        slowest = std::max(slowest, t.totalMs - (t.wireMs - t.answerWireMs) - t.ourMs);
        // The long answer came much faster than a wire carries it.
        noBits = registers > 1 && t.adapterMs < -0.5 * t.answerWireMs;
    }
    c.finding = sentences
        + (noBits ? "\nthe answers came faster than a wire carries them: no bits travel on this line (a "
                    "pseudo-terminal)"
                  : "");
    if (slowest > 0.8 * timeoutMs) {
        c.status = DoctorCheck::Status::Warn;
        c.advice = "answers come close to the time-out of " + std::to_string(timeoutMs)
            + " ms: raise --timeout to at least " + std::to_string(int(std::ceil(slowest * 2))) + " ms";
    }
    return c;
}
