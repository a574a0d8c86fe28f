#ifndef HOST_FRAMEDECODER_H
#define HOST_FRAMEDECODER_H

// Any Modbus RTU frame to its meaning, for people reading a trace: station,
// function, address in the panel's one-based form, count, values, the
// exception's name, and whether the CRC holds. Requests and replies of the
// same function look alike; the caller says which it has, or asks for every
// reading that fits.

#include "rtuframe.h"
#include "traceevent.h"

#include <string>
#include <vector>

struct DecodedFrame
{
    FrameRole role = FrameRole::Request;
    bool fits = false; // the length is what this role and function code give
    bool crcOk = false;
    int station = -1;
    int function = -1;
    std::string meaning; // "station 1, read holding registers HR100 x1"
};

// The frame read as a request or a reply. A frame too short to name a
// function, or whose length does not fit its function, is described as far
// as it goes and has fits false.
DecodedFrame decodeFrame(const std::string &bytes, FrameRole role);

// Every reading of a frame whose length fits (a request, a reply, or both),
// or the request reading alone when none fits.
std::vector<DecodedFrame> decodeAnyFrame(const std::string &bytes);

// "01 03 00 63 00 01 74 14".
std::string hexBytes(const std::string &bytes);

// Hex text ("01 03 00 63", "0103 0063", "0x01,0x03") to bytes; false with
// one sentence in error for anything else.
bool parseHexBytes(const std::string &text, std::string &bytes, std::string &error);

// The meaning of an event's bytes with its CRC verdict ("reply 2 bytes:
// 1500, CRC ok"), and the link's note; empty for an event without bytes
// and note.
std::string describeFrame(const TraceEvent &event);

enum class TraceFormat {
    Decoded, // one line per frame: time, direction, hex bytes, meaning
    Panel // the toolkit's dumpByteArray form, as the panel logs frames
};
bool parseTraceFormat(const std::string &text, TraceFormat &format);

// One line of trace text, without the line end.
std::string traceLine(const TraceEvent &event, TraceFormat format);

#endif // HOST_FRAMEDECODER_H
