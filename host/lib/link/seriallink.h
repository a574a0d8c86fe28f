#ifndef HOST_SERIALLINK_H
#define HOST_SERIALLINK_H

// The runtime's link over a real serial device or pseudo-terminal, for
// programs that run a driver on a PC.
//
// What a Modbus RTU master needs from its line, and what it does here:
// - receive(buffer, n) waits, without spinning, until exactly n bytes are in
//   or the reply time-out has passed, and returns what it has;
// - it reads each reply as one frame, framed by its own function code and
//   byte count, and drops a well-formed frame that cannot answer the request
//   just sent (another station, function, byte count, echoed address,
//   quantity or value), waiting on for the answer within the same time-out;
// - after an exchange that did not end in a clean answer (a time-out, a frame
//   whose CRC fails, a reply the driver read differently) it holds the next
//   request to that station back for a guard interval and drops everything
//   that arrives meanwhile; before each request it drops bytes still waiting
//   on the line, and after it a frame that began before the request had
//   left the wire. So an answer that
//   begins up to time-out + wire(answer) + guard + wire(next request) after
//   the end of its request is never taken for another request's. A frame
//   from the station that begins early while it owed no answer shows that
//   an answer taken before was another request's: that exchange takes no
//   answer and the guard follows, so one answer later still costs at most
//   the commands it overlaps;
// - it keeps the RTU silent interval before each request, counted from the
//   end of the last frame on the line (our request once tcdrain reports it
//   sent and its wire time after the write began has passed, or the last
//   byte received), 3.5 character times up to 19200 baud
//   and 1.75 ms above; point-to-point lines may switch it off;
// - for 2-wire RS485 adapters it can ask the kernel to drive the transmitter
//   (TIOCSRS485) and can read back and drop the local echo of each request;
// - it reports every frame and its own events as trace events (traceevent.h)
//   to a sink, and writes them to a trace file, decoded or in the panel's form;
// - it keeps link-health counters per station: requests, retries, time-outs,
//   CRC errors, exceptions, late and stale bytes dropped.
// The first send on a thread sets that thread's timer slack to 1 ns, so that
// the silence, and the driver's own delay before each attempt (a sleep even
// when zero), end on time rather than up to 50 us late.

#include "commandtally.h"
#include "driverinterface.h"
#include "framedecoder.h"
#include "lateguard.h"
#include "linkhealth.h"
#include "linksettings.h"
#include "replycollector.h"
#include "serialport.h"
#include "tracer.h"
#include "traceevent.h"

#include <cstdint>
#include <map>
#include <string>

class SerialLink : public AbstractDeviceInterface, public CommandTally
{
public:
    SerialLink();
    ~SerialLink() override;
    SerialLink(const SerialLink &) = delete;
    SerialLink &operator=(const SerialLink &) = delete;

    // Opens and configures the device. Fails, with one sentence in error, for
    // a missing device, one that is not a terminal, one in use by another
    // program, or an RS485 request that the device's driver refuses.
    bool open(const std::string &device, const LinkSettings &settings, const LinkOptions &options,
        std::string &error);
    void close();
    // Opens the device of the last open() again, with the same settings and
    // options, keeping the counters and the stations' health (a poll's
    // summary spans the gap): for a device that went away and came back.
    // False with one sentence in error while it is still gone.
    bool reopen(std::string &error);
    // The device of the last open().
    const std::string &device() const { return port.device(); }
    // Changes the speed and character format of the open line, dropping
    // what is waiting on it; false with one sentence in error.
    bool setLine(const LinkSettings &settings, std::string &error);
    bool isOpen() const { return port.isOpen(); }
    // The device went away under the open line (an unplugged adapter, the
    // other end of a pseudo-terminal closed): every read ends at once.
    bool deviceGone() const { return port.isOpen() && port.hungUp(); }
    // One sentence on the device that went away or the connection lost.
    std::string goneText() const { return port.goneText(); }
    // When the last complete answer frame was in, by the wall clock (ms
    // since the epoch); 0 before the first one.
    int64_t lastAnswerWallMs() const override { return reply.answerWallMs(); }
    // The open device, for programs that serve the line themselves.
    int descriptor() const { return port.descriptor(); }

    // Frame trace: path "-" is standard error, an empty path switches it off.
    // A file is opened as createTextFile (textfile.h) opens it: never through
    // a symbolic link, and an existing file only if it is the user's own.
    bool setTrace(const std::string &path, std::string &error, TraceFormat format = TraceFormat::Decoded);
    void setTraceEnabled(bool on) { tracer.setFileEnabled(on); }
    // Every trace event also goes to sink (if set), on the thread that calls
    // send and receive, whether or not a trace file is written.
    void setTraceSink(TraceSink sink) { tracer.setSink(std::move(sink)); }

    int receive(char *buffer, int length) override;
    int send(const char *frame, int length) override;
    bool setParameter(int id, const QVariant &value) override;
    int retryCount() override { return opts.retry; }
    int stationId() override { return opts.station; }
    unsigned long delayMs() override { return opts.delayMs; }

    LinkOptions &options() { return opts; }
    const LinkSettings &settings() const { return port.settings(); }

    using Counters = LinkCounters;
    const Counters &counters() const { return linkHealth.counters(); }
    uint64_t requestsSent() const override { return linkHealth.counters().requests; }

    // A new command of the driver begins: its first request to a station is
    // not a retry, whatever happened before (DriverHost calls this).
    void commandBegins() override;

    // What the line did for one station (linkhealth.h).
    using StationHealth = LinkStationHealth;
    // Every station the link has talked to, by station number.
    std::map<int, StationHealth> health() const { return linkHealth.health(); }
    StationHealth healthOf(int station) const { return linkHealth.healthOf(station); }
    // Every station's counts added up.
    StationHealth totalHealth() const { return linkHealth.totalHealth(); }

private:
    // Writes the request; sets when it left the line and when its answer
    // may begin. Returns the bytes the line took.
    int writeRequest(const char *frame, int length);
    void readBackEcho(const char *frame, int sent);
    void waitForSilence();
    void dropStaleBytes();

    LinkOptions opts;
    SerialPort port;
    LinkHealth linkHealth;
    Tracer tracer;
    LateGuard guard { port, opts, linkHealth, tracer };
    ReplyCollector reply { port, opts, linkHealth, tracer, guard };
    int requestStation = -1; // the station of the last request
    int64_t requestEndNs = -1; // when the last request had left
};

#endif // HOST_SERIALLINK_H
