#ifndef BENCH_SOAK_COMMAND_H
#define BENCH_SOAK_COMMAND_H

// A soak command: what the soak hands to the driver (data type, count,
// address text, write data, the link's station) together with what the soak
// itself means by it, so that the oracle never has to ask the driver.

#include "addresstext.h"

#include <QByteArray>

#include <string>

enum class Op {
    ReadWords, // Word reads of HR, FN6HR or IR outside the register window
    ReadDWords, // DoubleWord reads, with or without SW
    ReadBytes, // Byte and Block reads
    ReadBits, // Bit and BitBlock reads of DO, FN5DO and DI
    ReadRegisterBits, // Bit and BitBlock reads inside registers (HR100.3, IR5.12)
    ReadWindow, // Word reads of HR60000..HR60010, served by the driver
    WriteWords, // Word writes: function 16 (HR) or one function 6 per register (FN6HR)
    WriteDWords, // DoubleWord writes, with or without SW
    WriteBytes, // Byte and Block writes
    WriteCoils, // function 15 (DO) or one function 5 per coil (FN5DO)
    WriteRegisterBits, // read, change the bits, write back (HR100.3, FN6HR100.3)
    WriteWindowWords, // words of the window below the relay register: the driver's table only
    WriteWindowBit, // a bit of the window below the relay register: the table only
    Relay, // a word to HR60010: relayed to HR1300 of the listed stations
    RelayBit, // a bit of HR60010: changed in HR1300 of the listed stations
    Refused, // the driver must refuse it and send nothing
};

struct SoakCommand
{
    Op op = Op::ReadWords;
    bool write = false;
    int dataType = 2; // a CommandDataType code
    int count = 1; // the command's count (reads); for writes only used in error texts
    std::string address; // the address text as the driver gets it
    QByteArray data; // write data in the panel's byte order
    int station = 1; // the link's station for this command

    // The soak's own reading of the command.
    std::string prefix; // as the soak means it, upper case: HR, FN6HR, IR, DO, FN5DO, DI
    Area area = Area::HoldingRegisters;
    int start = 0; // zero-based register or coil; for window commands the index 0..10
    int bit = 0; // bit index of register-bit commands
    int elements = 0; // registers, double words, bytes or bits that the command moves
    bool swap = false; // double words: high word first
    bool single = false; // function 6 or 5: one request per register or coil

    // "read 2 word(s) HR100 at station 1", "write 3 bit(s) FN5DO7 at station 2".
    std::string describe() const;
};

const char *opName(Op op);

#endif // BENCH_SOAK_COMMAND_H
