#ifndef HOST_LINKDOCTOR_H
#define HOST_LINKDOCTOR_H

// The link doctor: checks a serial line step by step (the device, a USB
// adapter's latency timer, the station at the line's settings, the timing of
// an exchange) and says in plain words what it found and what to do.

#include "driverhost.h"
#include "linksettings.h"
#include "seriallink.h"

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

struct DoctorCheck
{
    enum class Status { Ok, Warn, Fail };
    std::string name; // "device", "latency", "station", "timing"
    Status status = Status::Ok;
    std::string finding; // what the check found, one or more sentences
    std::string advice; // what to do about it; "" when nothing
    std::vector<std::pair<std::string, double>> figures; // such as { "latencyTimerMs", 16 }
};

// "ok", "warn", "fail".
const char *doctorStatusName(DoctorCheck::Status status);

// The sysfs tree the latency check reads: $TECO_SYSFS_ROOT, or /sys.
std::string sysfsRoot();

// The device: that it exists, is a terminal, may be opened and no other
// program holds it (naming that program where a lock file or /proc tells).
DoctorCheck checkDevice(const std::string &device);

// A USB serial adapter's latency timer, where sysfs (under root) shows it
// for the device (by its name as given and as its link resolves).
DoctorCheck checkLatencyTimer(const std::string &device, const std::string &root);

// One request written straight onto the open line and everything that came
// back until the line fell quiet, each byte with the moment it was read.
struct LineExchange
{
    std::string request;
    std::string received;
    std::vector<int64_t> arrivedNs; // per byte of received (monotonic ns)
    int64_t writeNs = 0; // the write call began
    int64_t drainedNs = 0; // tcdrain returned
    int64_t characterNs = 0; // one character on the wire
    // The request's end on the wire: tcdrain's return, but never before its
    // wire time after the write began (a pseudo-terminal drains at once).
    int64_t requestEndNs() const;
};

// What came back for a request: the request itself (an echo), then a frame.
struct ExchangeReading
{
    bool echo = false; // the received bytes begin with the request
    size_t answerAt = 0; // where what follows the echo begins
    int answerLength = 0; // a whole frame with a good CRC there: its length; 0: none
    int station = -1; // that frame's station
    bool exception = false; // that frame is an exception answer
    bool silent() const { return answerAt >= received; }
    size_t received = 0;
};
ExchangeReading readExchange(const LineExchange &x);

// The request for a read of count holding registers from zero-based address at station.
std::string readRequest(int station, int address, int count);

// Writes request on the open descriptor (dropping what waits first) and
// collects what comes until the line has been quiet for a while after the
// first byte, or timeoutMs passed without one. False with error when the
// write fails.
bool exchangeOnLine(int fd, const LinkSettings &line, const std::string &request, int timeoutMs,
    LineExchange &x, std::string &error);

// The station at the link's settings: answers; silent; the line gives back
// the request (echo); another station answers. When silent, the common line
// settings are tried with the driver (as scan does) and the ones it answers at
// are named. The link's settings are put back.
DoctorCheck checkStation(const DriverHost &host, SerialLink &link);

// The timing of a read of 1 and of 125 registers, split into our sending,
// the wire, the drive's turnaround and the adapter's delay.
DoctorCheck checkTiming(SerialLink &link);

#endif // HOST_LINKDOCTOR_H
