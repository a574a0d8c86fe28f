#ifndef HOST_RTUFRAME_H
#define HOST_RTUFRAME_H

// The bottom of the host's Modbus RTU handling, which the frame decoder and
// the link's reply check both build on: the function codes known here with
// their names and frame layouts, the length of a frame from its header, the
// length of the answer a request asks for, and the CRC (the toolkit's
// CRC-16 with the start value 0xFFFF, low byte first on the wire).

#include "addresstext.h"

#include <cstdint>

enum class FrameRole { Request, Reply };

// The function codes known here and how their frames are laid out.
enum class FrameLayout {
    ReadBits, // 1, 2: address, quantity; reply: byte count, packed bits
    ReadRegisters, // 3, 4: address, quantity; reply: byte count, registers
    WriteSingle, // 5, 6: address, value; the reply echoes the request
    WriteMultiple // 15, 16: address, quantity, byte count, data; reply: address, quantity
};
struct ModbusFunction
{
    int code;
    const char *name; // "read holding registers"
    FrameLayout layout;
    Area area;

    // Its reply repeats request bytes 2..5 (address, value or quantity).
    bool writes() const { return layout == FrameLayout::WriteSingle || layout == FrameLayout::WriteMultiple; }
};
// The function of a code, or nullptr for one not known here.
const ModbusFunction *modbusFunction(int code);

// The length of the frame at the start of bytes, read as role, from its
// header: 0 when more bytes are needed to tell, -1 when it names no function
// known here (a reply's exception form is always known: 5 bytes).
int frameLength(const uint8_t *bytes, int have, FrameRole role);

// The length of the reply frame at the start of bytes, told by its header: 0
// when more bytes are needed to tell, -1 when the header names no function
// code that a reply of this kind carries.
int replyFrameLength(const uint8_t *bytes, int have);

// The length, CRC included, of the normal answer to a complete request
// (station, function, ..., CRC); 0 for a function code not known here, a
// request whose length does not fit its function, or a read whose answer
// would not fit one frame.
int answerLength(const uint8_t *request, int length);

// Whether the last two bytes of a frame of at least 4 bytes are the CRC of
// the rest.
bool modbusCrcOk(const uint8_t *frame, int length);

// Writes the CRC of the rest into the last two bytes of a frame of at least
// 4 bytes.
void setModbusCrc(uint8_t *frame, int length);

#endif // HOST_RTUFRAME_H
