#ifndef HOST_REPLYCHECK_H
#define HOST_REPLYCHECK_H

// What the link can tell about a reply from the request it answers, without
// knowing the driver: whether a complete frame (ending where rtuframe.h's
// replyFrameLength says, from its own function code and byte count, as
// libmodbus frames replies) with a good CRC can be the answer to the request
// just sent. A frame that
// cannot (another station, another function, another byte count, a write
// acknowledgement echoing another address, quantity or value) is a late
// answer to an earlier request or a stray frame; the link drops it and keeps
// waiting. A frame whose CRC fails cannot be judged: it goes to the driver,
// whose own checks reject it.

#include <cstdint>

struct ExpectedReply
{
    bool known = false; // a request of a function code judged here
    uint8_t station = 0;
    uint8_t function = 0;
    int length = 0; // of the normal answer, CRC included
    uint8_t echo[4] = {}; // function 5, 6, 15, 16: request bytes 2..5, which the answer repeats
};

// The request as sent (station, function, ..., CRC). A request that
// rtuframe.h's answerLength gives a length for is known; anything else is not.
ExpectedReply expectedReplyTo(const uint8_t *request, int length);

enum class ReplyVerdict {
    Answer, // may be the answer: hand it to the driver
    NotTheAnswer, // a well-formed frame that answers something else: drop it
    Unsure // the CRC fails: hand it to the driver, which rejects it
};

// Judges a complete frame. why names the mismatch of a NotTheAnswer verdict.
ReplyVerdict judgeReply(const ExpectedReply &expected, const uint8_t *frame, int length, const char **why);

#endif // HOST_REPLYCHECK_H
