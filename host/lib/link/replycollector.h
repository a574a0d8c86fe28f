#ifndef HOST_LINK_REPLYCOLLECTOR_H
#define HOST_LINK_REPLYCOLLECTOR_H

// The answer to the last request, and its judgement. It reads the reply as
// one frame, framed by its own function code and byte count, however the
// driver asks for it; drops a well-formed frame that cannot answer the
// request just sent (replycheck.h) and any that began before the answer
// could, waiting on within the same time-out; and settles whether the
// exchange ended in a clean answer that the driver took whole. Requests the
// link cannot judge (unknown function codes) are served byte by byte as the
// driver asks.

#include "lateguard.h"
#include "linkhealth.h"
#include "linksettings.h"
#include "replycheck.h"
#include "serialport.h"
#include "tracer.h"

#include <cstdint>
#include <string>

class ReplyCollector
{
public:
    ReplyCollector(
        SerialPort &port, const LinkOptions &options, LinkHealth &health, Tracer &tracer, LateGuard &guard)
        : port(port)
        , opts(options)
        , health(health)
        , tracer(tracer)
        , guard(guard)
    {
    }

    // The exchange under way ends (a new request, a new command): unless it
    // collected a frame that may be its answer and the driver took all of
    // it, that answer may still come and its station's guard follows. Its
    // outcome goes to station's health.
    void finish(int station);
    // The outcome of the exchange goes to station's health, once.
    void settle(int station);
    // A request has gone out, sent of length bytes of it, ending at
    // requestEndNs: expects its answer. The first receive collects what
    // came too early.
    void begin(const char *frame, int length, int sent, int64_t requestEndNs);
    // The last request left nothing on the line yet: the first read waits.
    void awaitAnswer() { awaiting = true; }
    // What the driver's receive gets; station: the last request's.
    int receive(char *buffer, int length, int station);
    // When the last complete answer frame was in, by the wall clock; 0
    // when none came since forgetAnswerTime().
    int64_t answerWallMs() const { return answerWall; }
    void forgetAnswerTime() { answerWall = 0; }
    // A new line: the exchange under way on the last one is over.
    void forgetExchange()
    {
        exchange = Exchange::Idle;
        answerWall = 0;
    }

private:
    int receiveUnjudged(char *buffer, int length, int station);
    // Collects the reply frame: until it is framed, out of step, or short.
    void collect(int station);
    // Takes a framed reply as the answer, or drops it; false when dropped.
    bool judge(int frameLength, int station);
    // Gives the driver bytes beyond the frame that arrive before the deadline.
    int readBeyondFrame(int length, int available, int station);
    // Waits for the answer, collecting what came before it may begin.
    void collectEarlyBytes();
    // How many more bytes the reply frame now collected needs.
    int bytesWanted(int frameLength) const;
    // How many bytes a read for want bytes of the reply may take.
    int bytesWelcome(int want, int frameLength) const;
    // Gives the bytes collected past the frame back to the line.
    void giveBackBeyond(int frameLength);
    // Reads want bytes of the reply; false when they did not all come.
    bool readBytes(int want, int frameLength, int station);
    // Drops the early frame when whole; false: read on.
    bool dropEarlyFrame(int frameLength, int station);
    // Drops the first length bytes collected: they cannot be the answer.
    void dropNotTheAnswer(int length, int station, const std::string &note);
    void received(int got);

    SerialPort &port;
    const LinkOptions &opts;
    LinkHealth &health;
    Tracer &tracer;
    LateGuard &guard;

    enum class Exchange { Idle, Waiting, Collected };
    Exchange exchange = Exchange::Idle;
    ExpectedReply expected;
    int64_t deadlineNs = 0; // request end + time-out + wire time of the answer
    bool clean = false; // collected a complete frame that may be the answer
    bool framed = false; // collected a complete frame (or as many bytes as the answer has)
    bool exception = false; // the collected answer is an exception
    bool settled = false; // the exchange's outcome is in its station's health
    bool awaiting = false; // a request went out and nothing was received since
    int64_t answerWall = 0;
    enum { Capacity = 512, ReadAheadLimit = 8 };
    char reply[Capacity];
    int have = 0, taken = 0;
    int earlyBytes = 0; // the first bytes of the reply came before the answer may begin
    bool earlyUnseen = false; // the wait for the answer, which sees early bytes, is still to come
};

#endif // HOST_LINK_REPLYCOLLECTOR_H
