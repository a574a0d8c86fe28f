#ifndef HOST_LINK_LINKSETTINGS_H
#define HOST_LINK_LINKSETTINGS_H

// A serial line's settings in the driver's text form, its timing, and what
// they are in a terminal's settings; the options of a host link.

#include <cstdint>
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
    // Whether a terminal's settings give this line's speed and stop bits.
    // (A pseudo-terminal keeps no more: Linux clears the parity and forces
    // 8 data bits on it.)
    bool speedAndStopBitsSetIn(const struct termios &t) const;
    // The baud rates a link may take, 300 to 921600.
    static bool supportedBaudRate(int rate);
};

// The per-link protocol settings and the line options of a host link.
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

// Puts a line's character format and speed into t, leaving the rest.
void setLineBits(struct termios &t, const LinkSettings &settings);
// Sets t on fd. tcsetattr fails when none of the changes took: so does a
// parity alone on a pseudo-terminal, which keeps none. What counts is that
// the line has the speed and stop bits asked for. False with errno set.
bool applyLine(int fd, int when, const struct termios &t, const LinkSettings &settings);

#endif // HOST_LINK_LINKSETTINGS_H
