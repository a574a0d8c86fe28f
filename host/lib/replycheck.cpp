#include "replycheck.h"

#include "framedecoder.h"
#include "tools.h"

#include <cstring>

namespace {

int word(const uint8_t *p) { return (p[0] << 8) | p[1]; }

bool isWrite(uint8_t function)
{
    const ModbusFunction *f = modbusFunction(function);
    return f && (f->layout == FrameLayout::WriteSingle || f->layout == FrameLayout::WriteMultiple);
}

} // namespace

ExpectedReply expectedReplyTo(const uint8_t *request, int length)
{
    ExpectedReply e;
    if (length < 8)
        return e;
    const uint8_t function = request[1];
    const int quantity = word(request + 4);
    const ModbusFunction *f = modbusFunction(function);
    if (!f)
        return e;
    switch (f->layout) {
    case FrameLayout::ReadBits:
        // Bits come packed, 8 to a byte; the byte count is one byte.
        if (length != 8 || quantity < 1 || (quantity + 7) / 8 > 255)
            return e;
        e.length = 5 + (quantity + 7) / 8;
        break;
    case FrameLayout::ReadRegisters:
        if (length != 8 || quantity < 1 || quantity * 2 > 255)
            return e;
        e.length = 5 + quantity * 2;
        break;
    case FrameLayout::WriteSingle:
    case FrameLayout::WriteMultiple:
        // Station, function, address, value or quantity (, byte count, data), CRC.
        if (length != frameLength(request, length, FrameRole::Request))
            return e;
        e.length = 8;
        break;
    }
    e.known = true;
    e.station = request[0];
    e.function = function;
    std::memcpy(e.echo, request + 2, sizeof e.echo);
    return e;
}

int replyFrameLength(const uint8_t *bytes, int have) { return frameLength(bytes, have, FrameRole::Reply); }

bool modbusCrcOk(const uint8_t *frame, int length)
{
    if (length < 4)
        return false;
    unsigned short crc = 0xFFFF;
    for (int i = 0; i < length - 2; ++i)
        crc = update_crc_16(crc, frame[i]);
    return frame[length - 2] == (crc & 0xFF) && frame[length - 1] == (crc >> 8);
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
