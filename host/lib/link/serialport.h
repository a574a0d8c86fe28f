#ifndef HOST_LINK_SERIALPORT_H
#define HOST_LINK_SERIALPORT_H

// A serial device or pseudo-terminal opened for a Modbus RTU line: locked
// against other programs, raw, at the line's settings, optionally with the
// kernel driving an RS485 transmitter, and given back its own settings on
// close. Reads wait, without spinning, until a deadline on the monotonic
// clock; timed waits end on time, and how long the machine kept them past
// their deadlines is counted.
//
// A device text "tcp:HOST:PORT" opens a TCP connection to a serial device
// server instead (tcpline.h): the same RTU bytes, no terminal settings, lock
// or RS485 control, and a write has left once the socket took it. A
// connection the other end closed or reset reads as a device that went away.

#include "linksettings.h"

#include <cstdint>
#include <functional>
#include <string>
#include <termios.h>

// Monotonic clock in nanoseconds.
int64_t monotonicNs();
// Wall clock in milliseconds since the epoch.
int64_t wallClockMs();

class SerialPort
{
public:
    SerialPort();
    ~SerialPort();
    SerialPort(const SerialPort &) = delete;
    SerialPort &operator=(const SerialPort &) = delete;

    // Opens and configures the device, dropping what waits on it. Fails, with
    // one sentence in error, for a missing device, one that is not a terminal,
    // one in use by another program, or an RS485 request that the device's
    // driver refuses.
    bool open(const std::string &device, const LinkSettings &settings, bool rs485, std::string &error);
    void close();
    // Changes the speed and character format, dropping what is waiting.
    bool setLine(const LinkSettings &settings, std::string &error);
    bool isOpen() const { return fd >= 0; }
    // The other side went away: every read ends at once.
    bool hungUp() const { return hung; }
    // One sentence on the device that went away (or the connection lost).
    std::string goneText() const;
    bool isTcp() const { return tcp; }
    int descriptor() const { return fd; }
    const std::string &device() const { return path; }
    const LinkSettings &settings() const { return line; }

    // The end of the last frame on the line (monotonic ns).
    int64_t quietSinceNs() const { return quietSince; }
    void markQuiet(int64_t ns) { quietSince = ns; }

    // Reads length bytes, or what came until deadline (monotonic ns), and
    // up to capacity when more are there already; returns the number read.
    // waitFirst: nothing is expected yet, wait before reading.
    int readUntil(char *buffer, int length, int64_t deadlineNs, bool waitFirst, int capacity = 0);
    // Bytes read past a frame, given back: the next read takes them first.
    void giveBack(const char *bytes, int length) { readAhead.insert(0, bytes, size_t(length)); }
    // Waits for an answer that may not begin before momentNs, until
    // deadlineNs, in one wait: reads, up to capacity, the bytes seen waiting
    // before momentNs and returns their number (a wake-up that comes late
    // does not take later bytes for earlier ones). Once the moment has
    // passed it waits on only while nothing came early; ready tells whether
    // bytes that came since wait to be read.
    int readArrivedBefore(char *buffer, int capacity, int64_t momentNs, int64_t deadlineNs, bool &ready);
    // Writes, waiting for room until deadline; returns the bytes taken.
    int write(const char *bytes, int length, int64_t deadlineNs);
    // Waits until what was written has left.
    void drain();
    // Bytes waiting to be read.
    int pending() const;
    // Reads what is waiting, handing each piece to dropped, then discards
    // the rest of the input and marks the line quiet from now.
    void dropWaiting(const std::function<void(const char *, int)> &dropped);
    // Waits until targetNs, ending within a microsecond when the thread's
    // timer slack allows it, never before; false at once when bytes arrive
    // (or wait) meanwhile, true when the line stayed quiet.
    bool quietUntil(int64_t targetNs);
    // Where the time that timed waits ended past their deadlines adds up.
    void countLateWakesIn(uint64_t *counter) { lateWakeNs = counter; }

private:
    void noteLateWake(int64_t deadlineNs);
    bool openTcp(const std::string &device, const LinkSettings &settings, std::string &error);
    // Takes the opened descriptor d as the line.
    void adopt(int d, const std::string &device, const LinkSettings &settings, bool overTcp);
    void dropSocketInput();
    // Waits until bytes can be read or deadlineNs; false at the deadline or
    // when the line is gone.
    bool awaitInput(int64_t deadlineNs);
    // Before the first read of a frame of up to bytes: on a line that
    // delivers a frame at its own pace (a serial adapter), sleeps until
    // they can all be in, so that one read takes them; a line that delivers
    // it whole (a pseudo-terminal, a device server) is read at once. Every
    // eighth frame is read at once to tell which line this is: returns
    // whether this one is.
    bool paceFirstRead(int bytes, int64_t deadlineNs);
    // Whether bytes wait, or arrive before targetNs (one look when it has passed).
    bool inputBefore(int64_t targetNs);
    // Sets up an opened descriptor; false with error set.
    bool configure(
        int d, const std::string &device, const LinkSettings &settings, bool rs485, std::string &error);

    int fd = -1;
    LinkSettings line;
    std::string path;
    bool savedValid = false;
    struct termios savedTermios; // the device's settings before open, restored on close
    bool hung = false;
    bool tcp = false; // a connection to a serial device server
    int hangError = 0; // why the other side went away (0: it closed)
    std::string goneReason; // why the last connection could not be made
    int64_t quietSince = 0;
    std::string readAhead; // given back, not yet read again
    bool pacedLine = false; // frames came in pieces at the line's pace
    unsigned pacedFrames = 0;
    uint64_t *lateWakeNs = nullptr;
    enum { WakeSamples = 8 };
    int64_t wakeLatenessNs[WakeSamples] = {}; // how late recent timed sleeps woke
    unsigned wakeSample = 0;
};

#endif // HOST_LINK_SERIALPORT_H
