#ifndef MODBUSCODES_H
#define MODBUSCODES_H

// The numbers and names that the driver's frames and operations depend on,
// each defined once: what Modbus RTU fixes (function codes, the limits of one
// request, the layout of replies), and what this driver fixes on top of it
// (the link parameter, the address prefixes, the special register window).
// Internal to the driver (not exported from the plug-in).

#include <QtGlobal>

namespace Modbus {

// The function codes that the driver sends. A reply carries the request's
// code, or the code with ExceptionBit set when the drive refuses it.
enum FunctionCode {
    ReadCoils = 1,
    ReadDiscreteInputs = 2,
    ReadHoldingRegisters = 3,
    ReadInputRegisters = 4,
    WriteSingleCoil = 5,
    WriteSingleRegister = 6,
    WriteMultipleCoils = 15,
    WriteMultipleRegisters = 16,
    ExceptionBit = 0x80
};

// Register and coil numbers run from 0 to AddressSpace - 1.
const quint64 AddressSpace = 65536;

// The most that one request carries; larger commands are refused, never split.
const quint64 MaxReadRegisters = 125; // functions 3 and 4
const quint64 MaxWriteRegisters = 123; // function 16, and the function-6 loops too
const quint64 MaxReadBits = 2008; // functions 1 and 2: 251 data bytes, a 256-byte reply
const quint64 MaxWriteCoils = 1976; // functions 15 and 5: 247 data bytes, a 256-byte request

// Frames and replies.
const int MaxFrameLength = 256; // the RTU maximum
const int CrcLength = 2;
const int MinReplyLength = 5; // an exception reply whole, the start of any other
const int ReadReplyDataOffset = 3; // station, function code, byte count, then the data
const int WriteReplyLength = 8; // station, function code, two 16-bit fields, CRC

} // namespace Modbus

// Link parameter 12, set to 0 before every request and by initialize.
const int LinkParameterBeforeRequest = 12;

// Address prefixes as the dispatchers and operations compare them (without
// regard to case, over the length of the name).
const char HoldingRegisterPrefix[] = "HR";
const char HoldingRegisterFn6Prefix[] = "FN6HR";
const char CoilPrefix[] = "DO";
const char CoilFn5Prefix[] = "FN5DO";
const char DiscreteInputPrefix[] = "DI";

// The special register window HR60000..HR60010 (zero-based 59999..60009),
// served by the driver itself.
const unsigned short SpecialWindowFirstRegister = 59999;
const int SpecialRegisterCount = 11;

// The index of a register in the window: its distance from the window's first
// register modulo 65536 (register + 5537), below SpecialRegisterCount for the
// registers of the window only.
inline int specialRegisterIndex(unsigned short registerNumber)
{
    return static_cast<unsigned short>(registerNumber - SpecialWindowFirstRegister);
}

#endif // MODBUSCODES_H
