#ifndef HOST_SNIFFER_H
#define HOST_SNIFFER_H

// What a listener on a Modbus RTU bus makes of the frames it sees
// (busframer.h): each request paired with its reply, the time the station
// took to answer, requests left without an answer, bad frames and garbage,
// and the figures per station. Both teco-cli sniff and the monitor's
// listen-only traffic view show these events, as text or as JSON.

#include "busframer.h"

#include <QJsonObject>

#include <cstdint>
#include <map>
#include <string>
#include <vector>

struct SniffEvent
{
    enum Kind {
        Answered, // request and its reply
        Exception, // request and its exception reply
        NoAnswer, // a request no reply followed within the reply window
        Broadcast, // a request to station 0, which asks for no reply
        StrayReply, // a reply that follows no request of its station and function
        BadFrame, // a frame with a wrong CRC, or a reply cut short (with the request it answers badly)
        Garbage // bytes that are no frame
    };
    Kind kind = Garbage;
    int station = -1; // -1 for garbage
    BusFrame request; // Answered, Exception, NoAnswer, Broadcast, and BadFrame after a request
    BusFrame reply; // Answered, Exception, StrayReply; the frame of BadFrame and Garbage
    int64_t turnaroundNs = -1; // the reply's first bit after the request's last

    // When the event was complete: the reply's end, else the request's or the frame's.
    int64_t timeNs() const;
};

struct SniffStation
{
    int64_t requests = 0, answered = 0, exceptions = 0, noAnswer = 0, badFrames = 0, strayReplies = 0;
    std::vector<int64_t> turnaroundsNs;
};

class Sniffer
{
public:
    explicit Sniffer(int64_t replyWindowNs);

    // A frame the framer made out; the events it completes go to out.
    void take(const BusFrame &frame, std::vector<SniffEvent> &out);
    // Nothing has come up to nowNs (and the framer holds nothing): a request
    // whose reply window has passed has no answer.
    void idle(int64_t nowNs, std::vector<SniffEvent> &out);
    // The end of listening: a request still waiting has no answer.
    void finish(std::vector<SniffEvent> &out);

    const std::map<int, SniffStation> &stations() const { return perStation; }
    int64_t frames() const { return framesSeen; }
    int64_t garbageBytes() const { return garbage; }

private:
    void takeRequest(const BusFrame &frame, std::vector<SniffEvent> &out);
    void takeReply(const BusFrame &frame, std::vector<SniffEvent> &out);
    void unanswered(std::vector<SniffEvent> &out);

    int64_t windowNs;
    bool waiting = false; // for the reply to request
    BusFrame request;
    std::map<int, SniffStation> perStation;
    int64_t framesSeen = 0, garbage = 0;
};

// One line for an event, its time in seconds since originNs:
// "   1.234567 OK         station 1, read holding registers HR100 x1 -> 1500  (+3.6 ms)".
std::string sniffEventLine(const SniffEvent &event, int64_t originNs);
// The event as one JSON object (a line of JSON Lines).
QJsonObject sniffEventJson(const SniffEvent &event, int64_t originNs);
// The figures per station as a table, and as JSON.
std::string sniffSummaryText(const Sniffer &sniffer, double seconds);
QJsonObject sniffSummaryJson(const Sniffer &sniffer, double seconds);

#endif // HOST_SNIFFER_H
