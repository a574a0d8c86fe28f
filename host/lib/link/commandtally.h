#ifndef HOST_LINK_COMMANDTALLY_H
#define HOST_LINK_COMMANDTALLY_H

// What a link tells of the driver's commands on it: where one begins (its
// first request to a station is no retry), how many requests it has put on
// the line, and when the last answer came.

#include <cstdint>

class CommandTally
{
public:
    virtual ~CommandTally() = default;
    // A new command of the driver begins.
    virtual void commandBegins() = 0;
    // Requests put on the line so far.
    virtual uint64_t requestsSent() const = 0;
    // When the command's last complete answer frame was in, by the wall
    // clock (ms since the epoch); 0 while none has come since it began.
    virtual int64_t lastAnswerWallMs() const = 0;
};

#endif // HOST_LINK_COMMANDTALLY_H
