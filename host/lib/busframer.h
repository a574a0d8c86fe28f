#ifndef HOST_BUSFRAMER_H
#define HOST_BUSFRAMER_H

// The frames on a Modbus RTU bus as a third station that only listens sees
// them: bytes come in with the time they were read, frames and the rest go
// out. A frame is told by the length its function code and byte count give
// and by its CRC; the silence between frames only settles what lengths and
// CRCs leave open, so that an adapter that hands over bytes in batches, with
// pauses inside a frame, does not split one. After bytes that are no frame
// the framer slides on byte by byte until a frame with a good CRC begins.
//
// Requests and replies of some functions look alike (a write's reply
// repeats its request): while a request waits for its reply, within the
// reply window, a frame is read as a reply first, for the master is silent
// while it waits. The window is best the master's time-out: what comes after
// it, or after the request's station has answered (if badly), is read as a
// request first.

#include "linksettings.h"
#include "rtuframe.h"

#include <cstdint>
#include <string>
#include <vector>

struct BusFrame
{
    enum Kind {
        Good, // a request or reply of the length its header gives, CRC good
        BadCrc, // the length its header gives, CRC wrong
        Truncated, // the start of the reply the request before it asked for, then silence
        Garbage // bytes that are no frame
    };
    Kind kind = Garbage;
    FrameRole role = FrameRole::Request; // Good, BadCrc, Truncated
    std::string bytes;
    int64_t startNs = 0; // when its first bit went on the wire (monotonic clock)
    int64_t endNs = 0; // when its last bit left
};

class BusFramer
{
public:
    struct Timing
    {
        int64_t characterNs = 0; // one character on the wire
        int64_t gapNs = 0; // a pause longer than this between bytes is a silence between frames
        int64_t quietNs = 0; // a frame still short of its length after this long is cut off
        int64_t replyWindowNs = 0; // a reply begins within this after its request ends
    };
    // The timing of a line: a silence is half the RTU silence; an unfinished
    // or broken frame waits for the rest, or for the next frame after a
    // silence, at least batchNs (what a USB adapter may hold bytes) and the
    // reply window.
    static Timing timingOf(const LinkSettings &line, int64_t batchNs, int64_t replyWindowNs);

    explicit BusFramer(const Timing &timing);

    // count bytes read from the line at readNs (the last of them had then
    // just arrived); what they complete goes to out.
    void feed(const uint8_t *bytes, int count, int64_t readNs, std::vector<BusFrame> &out);
    // Nothing more has come up to nowNs: ends what the quiet line ends.
    void idle(int64_t nowNs, std::vector<BusFrame> &out);
    // The end of listening: everything held goes out.
    void finish(std::vector<BusFrame> &out);
    // Bytes held, waiting for the rest of a frame.
    int held() const { return int(bytes.size()); }

private:
    struct Step
    {
        bool wait = false;
        BusFrame::Kind kind = BusFrame::Garbage;
        FrameRole role = FrameRole::Request;
        int length = 0;
    };
    // What the held bytes begin with; final: nothing more comes to complete them.
    Step nextStep(bool final) const;
    Step splitAtSilence() const;
    static Step waitStep();
    Step badUnit(bool final) const;
    // A frame of the length its header gives, with a wrong CRC, or a wait
    // for what follows it; false when neither reading of the header fits.
    bool headerLengthStep(int good, bool final, Step &step) const;
    // The first length held bytes, which are no good frame.
    Step classify(int length) const;
    // A reply first while a request waits for its reply, in its reply window.
    FrameRole preferredRole() const;
    // Whether the bytes from at to end are the waiting request's reply, by
    // its header, whatever its CRC.
    bool brokenReplyAt(int at, int end) const;
    // Whether the bytes from at on may become a frame as more come.
    bool frameMayFollow(int at) const;
    // Whether, after a silence inside the first length bytes, a frame may
    // begin that its rest, still to come, makes good: a reply cut short,
    // then the next request, read before the request is whole.
    bool mayBeginAfterSilenceIn(int length) const;
    // The length of a good frame at at (its role in role), or 0.
    int goodFrameAt(int at, FrameRole &role) const;
    void extract(bool final, std::vector<BusFrame> &out);
    void takeOut(const Step &step, std::vector<BusFrame> &out);

    Timing timing;
    std::vector<uint8_t> bytes; // held, each with when it ended and whether a silence came before it
    std::vector<int64_t> ends;
    std::vector<char> silenceBefore;
    // The last request, while its reply may come.
    int requestStation = -1, requestFunction = -1;
    int64_t requestEndNs = 0;
    int64_t lastEndNs = 0; // the end of the last byte fed
};

#endif // HOST_BUSFRAMER_H
