#ifndef HOST_SNIFFLISTENER_H
#define HOST_SNIFFLISTENER_H

// A serial line listened to and never written: its bytes, with the time
// each read brought them, go through the bus framer and the sniffer
// (busframer.h, sniffer.h) and come out as events. teco-cli sniff and the
// monitor's listen-only traffic view both run one.

#include "busframer.h"
#include "serialport.h"
#include "sniffer.h"

#include <string>
#include <vector>

class SniffListener
{
public:
    struct Options
    {
        int replyWindowMs = 1000; // a reply begins within this after its request
        int batchMs = 20; // an adapter may hold bytes this long: a frame short of its length waits so long
    };
    explicit SniffListener(const Options &options);

    // Opens the device at the line's settings; false with one sentence in error.
    bool open(const std::string &device, const LinkSettings &settings, std::string &error);
    // Waits up to waitMs for bytes and adds the events they (or the time
    // passed) complete to out. False once the device has gone away.
    bool listen(int waitMs, std::vector<SniffEvent> &out);
    // The end: what is held becomes events; closes the device.
    void finish(std::vector<SniffEvent> &out);

    const Sniffer &sniffer() const { return pairs; }
    // When listening began (monotonic ns), the origin of event times.
    int64_t originNs() const { return origin; }

private:
    void pass(std::vector<BusFrame> &frames, std::vector<SniffEvent> &out);

    Options options;
    SerialPort port;
    BusFramer framer;
    Sniffer pairs;
    int64_t origin = 0;
};

#endif // HOST_SNIFFLISTENER_H
