#ifndef HOST_FORMATS_H
#define HOST_FORMATS_H

// Number formats of register contents, as Modbus tools show them: signed and
// unsigned 16- and 32-bit integers, hexadecimal and binary words, 32- and
// 64-bit IEEE floats and character strings, with the order of the bytes of a
// wide value across its registers.
//
// A wide value's bytes are A B C D (E F G H), A the most significant. The
// order names the bytes of the registers in register order for a 32-bit value:
//   ABCD  high word first, high byte first in each register (big-endian)
//   CDAB  low word first, high byte first in each register
//   BADC  high word first, bytes swapped in each register
//   DCBA  low word first, bytes swapped in each register (little-endian)
// A 64-bit value follows the same two choices: CDAB puts its four registers
// lowest word first (GH EF CD AB), BADC swaps the bytes of each register
// (BA DC FE HG). The driver's plain double word (HR100 --type dword) is
// CDAB, its "SW" double word (HR100SW) ABCD.
//
// A string holds two characters per register, the first in the register's
// high byte. Its registers make one value, however many there are: reading N
// registers gives one text of up to 2N characters without the NULs at its
// end; writing a text takes (length + 1) / 2 registers (at least one), the last one padded
// with NUL. Bytes outside printable ASCII and the backslash are shown as
// \xNN and \\, and typed the same way, so every register content reads back
// as it was written.

#include <cstdint>
#include <string>
#include <vector>

enum class NumberFormat { Int16, UInt16, Hex, Binary, Int32, UInt32, Float32, Float64, String };
enum class WordOrder { ABCD, CDAB, BADC, DCBA }; // A = most significant byte

struct ValueFormat
{
    NumberFormat number = NumberFormat::UInt16;
    WordOrder order = WordOrder::ABCD;
    // Whether the text named the order; a front end may choose another
    // default (such as the address's own) when it did not.
    bool orderGiven = false;

    // "int16", "uint16", "hex", "binary", "int32", "uint32", "float32", "float64", "string",
    // optionally followed by ":ABCD"/":CDAB"/":BADC"/":DCBA" for 32/64-bit formats (case-insensitive).
    static bool parse(const std::string &text, ValueFormat &format, std::string &error);
    // The format's name, with ":ORDER" for 32- and 64-bit formats.
    std::string text() const;
    // 1, 2 or 4; 1 for string, whose value takes every register given (see above).
    int registersPerValue() const;
    // Whether values of this format are shown as JSON numbers (integers and
    // finite floats) or as JSON strings (hex, binary, string, nan, inf).
    bool isNumeric() const;
    // 32- or 64-bit: the word order applies.
    bool isWide() const;
};

// The names of the formats and orders, for usage texts: "int16, uint16, ...".
const char *formatNames();

// Registers as they are on the wire (register order, each 16-bit value as the drive holds it)
// to one text per value. False with one sentence for a count that does not fit.
bool formatRegisters(const std::vector<uint16_t> &registers, const ValueFormat &format,
    std::vector<std::string> &values, std::string &error);
// A typed text ("-1.5", "0x1234", "0b1010", "hello") to the registers that hold it.
bool parseFormatted(
    const std::string &text, const ValueFormat &format, std::vector<uint16_t> &registers, std::string &error);

#endif // HOST_FORMATS_H
