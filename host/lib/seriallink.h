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
//   left the wire (plus the drive's least turnaround). So an answer that
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

#include "driverinterface.h"
#include "framedecoder.h"
#include "replycheck.h"
#include "rtuframe.h"
#include "traceevent.h"

#include <cstdint>
#include <cstdio>
#include <map>
#include <string>
#include <termios.h>

// A line in the driver's text form: "RS485,9600,NONE,8,2" (interface, baud
// rate, parity, data bits, stop bits).
struct LinkSettings
{
    std::string interface = "RS485"; // RS232, RS422 or RS485, upper case
    int baudRate = 9600;
    char parity = 'N'; // 'N', 'E' or 'O'
    int dataBits = 8;
    int stopBits = 2;

    // Fills settings from text; on failure returns false with one sentence
    // in error and leaves settings unchanged.
    static bool parse(const std::string &text, LinkSettings &settings, std::string &error);
    std::string text() const;
    // Bits on the wire per character: start, data, parity, stop.
    int bitsPerCharacter() const;
    // Time of one character on the wire, in nanoseconds.
    int64_t characterNs() const;
    // The RTU inter-frame silence: 3.5 characters, or 1.75 ms above 19200 baud.
    int64_t silenceNs() const;
    // The least time between the end of a request on the wire and the first
    // byte of its answer that the link allows a drive: half the silence (a
    // drive keeps the whole silence before it answers). Bytes that begin
    // sooner cannot be the answer.
    int64_t leastTurnaroundNs() const;
    // Whether a terminal's settings give this line's speed and stop bits.
    // (A pseudo-terminal keeps no more: Linux clears the parity and forces
    // 8 data bits on it.)
    bool speedAndStopBitsSetIn(const struct termios &t) const;
    // The baud rates a link may take, 300 to 921600.
    static bool supportedBaudRate(int rate);
};

// The per-link protocol settings and the line options of this host link.
struct LinkOptions
{
    int timeoutMs = 500; // reply time-out
    // After an exchange that did not end in a clean answer, the line must
    // have been quiet this long before the next request goes out; -1: the
    // reply time-out, 0: off.
    int lateGuardMs = -1;
    int retry = 3;
    int station = 1;
    unsigned long delayMs = 0;
    bool silence = true; // keep the RTU silent interval before each request
    bool rs485 = false; // kernel RS485 direction control (TIOCSRS485)
    bool localEcho = false; // the adapter echoes our request: read it back and drop it
};

class SerialLink : public AbstractDeviceInterface
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
    const std::string &device() const { return devicePath; }
    // Changes the speed and character format of the open line, dropping
    // what is waiting on it; false with one sentence in error.
    bool setLine(const LinkSettings &settings, std::string &error);
    bool isOpen() const { return fd >= 0; }
    // The device went away under the open line (an unplugged adapter, the
    // other end of a pseudo-terminal closed): every read ends at once.
    bool deviceGone() const { return fd >= 0 && hungUp; }
    // When the last complete answer frame was in, by the wall clock (ms
    // since the epoch); 0 before the first one.
    int64_t lastAnswerWallMs() const { return answerWallMs; }
    // The open device, for programs that serve the line themselves.
    int descriptor() const { return fd; }

    // Frame trace: path "-" is standard error, an empty path switches it off.
    // A file is opened as createTextFile (textfile.h) opens it: never through
    // a symbolic link, and an existing file only if it is the user's own.
    bool setTrace(const std::string &path, std::string &error, TraceFormat format = TraceFormat::Decoded);
    void setTraceEnabled(bool on) { traceOn = on; }
    // Every trace event also goes to sink (if set), on the thread that calls
    // send and receive, whether or not a trace file is written.
    void setTraceSink(TraceSink sink) { traceSink = std::move(sink); }

    int receive(char *buffer, int length) override;
    int send(const char *frame, int length) override;
    bool setParameter(int id, const QVariant &value) override;
    int retryCount() override { return opts.retry; }
    int stationId() override { return opts.station; }
    unsigned long delayMs() override { return opts.delayMs; }

    LinkOptions &options() { return opts; }
    const LinkSettings &settings() const { return line; }

    struct Counters
    {
        uint64_t requests = 0;
        uint64_t bytesSent = 0;
        uint64_t bytesReceived = 0;
        uint64_t staleBytesDropped = 0;
        uint64_t shortReceives = 0; // receive ended by the time-out
        uint64_t echoMismatches = 0;
        uint64_t lateBytesDropped = 0; // in the late-answer guard, or in frames that answer something else
        uint64_t framesRejected = 0; // well-formed frames that could not be the answer
        uint64_t guardWaits = 0; // requests held back by the late-answer guard
        // How long, in all, the link's timed waits ended past their deadlines:
        // the machine kept it, not the link (a thread without a processor, a
        // stopped process, or a poll of a terminal that waits in the kernel
        // for the worker that moves the bytes that came in).
        uint64_t lateWakeNs = 0;
    };
    const Counters &counters() const { return count; }

    // A new command of the driver begins: its first request to a station is
    // not a retry, whatever happened before (DriverHost calls this).
    void commandBegins();

    // What the line did for one station. A retry is a request sent again,
    // byte for byte, within one command, after the previous exchange with
    // that station failed (no clean answer, or an exception). Late bytes count for the station
    // whose answer they are (a dropped frame's own station byte, or the
    // station whose guard they arrived in), stale bytes for the station of
    // the request they preceded.
    struct StationHealth
    {
        uint64_t requests = 0;
        uint64_t retries = 0;
        uint64_t timeOuts = 0;
        uint64_t crcErrors = 0;
        uint64_t exceptions = 0;
        uint64_t lateBytesDropped = 0;
        uint64_t staleBytesDropped = 0;
    };
    // Every station the link has talked to, by station number.
    std::map<int, StationHealth> health() const;
    StationHealth healthOf(int station) const;
    // Every station's counts added up.
    StationHealth totalHealth() const;

private:
    // Reads up to length bytes until deadline (monotonic ns); returns the
    // number read. waitFirst: nothing is expected yet, wait before reading.
    int readUntil(char *buffer, int length, int64_t deadlineNs, bool waitFirst);
    // Writes the request; sets when it left the line and when its answer
    // may begin. Returns the bytes the line took.
    int writeRequest(const char *frame, int length);
    void readBackEcho(const char *frame, int sent);
    // Until the answer may begin, reads what arrives into the reply: it
    // cannot be the answer.
    void collectEarlyBytes();
    void waitForSilence();
    void sleepUntilPrecisely(int64_t targetNs);
    // Counts how long a wait that was due to end at deadlineNs overran it.
    void noteLateWake(int64_t deadlineNs);
    void dropStaleBytes();
    int64_t guardNs() const;
    void holdBackForGuard(const char *frame, int length);
    void owesGuard(int station, int64_t fromNs);
    void collectReply();
    // How many more bytes the reply frame now collected needs.
    int replyBytesWanted(int frameLength) const;
    // Reads want bytes of the reply; false when they did not all come.
    bool readReplyBytes(int want, int frameLength);
    // Drops what collectEarlyBytes() collected, frame by frame: the first
    // frame that begins later may be the answer.
    bool dropEarlyFrame(int frameLength);
    // Drops the first length bytes collected: they cannot be the answer.
    void dropNotTheAnswer(int length, int station, const std::string &note);
    // Settles the outcome of the exchange that a new request ends.
    void endExchange();
    void trace(
        TraceEvent::Kind kind, const char *bytes, int length, int station, const std::string &note = {});

    int fd = -1;
    LinkSettings line;
    LinkOptions opts;
    std::string devicePath;
    bool savedValid = false;
    struct termios savedTermios; // the device's settings before open, restored on close
    int64_t lineQuietSinceNs = 0; // end of the last frame on the line
    int64_t openedNs = 0;
    bool hungUp = false;
    int64_t answerWallMs = 0; // see lastAnswerWallMs()
    bool awaitingAnswer = false; // a request went out and nothing was received since
    enum { WakeSamples = 8 };
    int64_t wakeLatenessNs[WakeSamples] = {}; // how late recent timed sleeps woke
    unsigned wakeSample = 0;

    // The answer to the last request. Requests the link cannot judge
    // (unknown function codes) are served byte by byte as the driver asks.
    enum class Exchange { Idle, Waiting, Collected };
    Exchange exchange = Exchange::Idle;
    ExpectedReply expected;
    int64_t replyDeadlineNs = 0; // request end + time-out + wire time of the answer
    bool replyClean = false; // collected a complete frame that may be the answer
    bool replyFramed = false; // collected a complete frame (or as many bytes as the answer has)
    bool guardOwed = false; // this exchange has already set its station's guard
    enum { ReplyCapacity = 512 };
    char reply[ReplyCapacity];
    int replyHave = 0, replyTaken = 0;
    // Until when a request to a station must wait (monotonic ns): an answer
    // to a failed exchange may still be on its way. Index 256: every station.
    int64_t guardUntilNs[257] = {};

    FILE *traceFile = nullptr;
    bool traceOwned = false;
    bool traceOn = true;
    TraceFormat traceFormat = TraceFormat::Decoded;
    TraceSink traceSink;
    int64_t requestEndNs = -1; // when the last request had left
    // The earliest moment the answer to the last request may begin: its
    // least wire end (write begun + its wire time) + the least turnaround.
    int64_t answerNotBeforeNs = 0;
    int earlyBytes = 0; // the first bytes of the reply buffer came before that
    // A frame from the station began early while it owed no answer: an
    // answer taken before was another request's, and more may follow.
    bool outOfStep = false;

    struct StationState
    {
        StationHealth health;
        std::string lastRequest;
        bool lastFailed = false;
        // An exchange got nothing from the station: its answer may still come.
        bool answerOwed = false;
    };
    std::map<int, StationState> stations;
    int requestStation = -1; // the station of the last request
    bool replyException = false; // the collected answer is an exception
    bool outcomeSettled = false; // the last exchange's outcome is in its station's lastFailed

    Counters count;
};

// What changed between two readings of a station's health.
SerialLink::StationHealth operator-(
    const SerialLink::StationHealth &now, const SerialLink::StationHealth &before);
// The counts that say something went wrong, for people: "2 retries,
// 1 time-out"; "" when there are none. requests: start with the number of
// requests ("12 requests, 2 retries").
std::string healthText(const SerialLink::StationHealth &health, bool requests = false);

// Monotonic clock in nanoseconds.
int64_t monotonicNs();
// Wall clock in milliseconds since the epoch.
int64_t wallClockMs();

#endif // HOST_SERIALLINK_H
