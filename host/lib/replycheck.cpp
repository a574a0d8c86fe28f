#include "replycheck.h"

#include "rtuframe.h"

#include <cstring>

namespace {

bool isWrite(uint8_t function)
{
    const ModbusFunction *f = modbusFunction(function);
    return f && f->writes();
}

} // namespace

ExpectedReply expectedReplyTo(const uint8_t *request, int length)
{
    ExpectedReply e;
    e.length = answerLength(request, length);
    if (e.length == 0)
        return e;
    e.known = true;
    e.station = request[0];
    e.function = request[1];
    std::memcpy(e.echo, request + 2, sizeof e.echo);
    return e;
}

ReplyVerdict judgeReply(const ExpectedReply &expected, const uint8_t *frame, int length, const char **why)
{
    const char *ignored = nullptr;
    const char *&reason = why ? *why : ignored;
    reason = nullptr;
    if (!modbusCrcOk(frame, length))
        return ReplyVerdict::Unsure;
    if (!expected.known)
        return ReplyVerdict::Answer;
    if (frame[0] != expected.station) {
        reason = "another station";
        return ReplyVerdict::NotTheAnswer;
    }
    if (frame[1] == (expected.function | 0x80))
        return ReplyVerdict::Answer; // the drive refused this request
    if (frame[1] != expected.function) {
        reason = "another function code";
        return ReplyVerdict::NotTheAnswer;
    }
    if (length != expected.length) {
        reason = "another byte count";
        return ReplyVerdict::NotTheAnswer;
    }
    if (isWrite(expected.function) && std::memcmp(frame + 2, expected.echo, sizeof expected.echo) != 0) {
        reason = expected.function == 5 || expected.function == 6 ? "another address or value"
                                                                  : "another address or quantity";
        return ReplyVerdict::NotTheAnswer;
    }
    return ReplyVerdict::Answer;
}
