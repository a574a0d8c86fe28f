#ifndef BENCH_SOAK_COMMAND_H
#define BENCH_SOAK_COMMAND_H

// A soak command: what the soak hands to the driver (data type, count,
// address text, write data, the link's station) together with what the soak
// itself means by it, so that the oracle never has to ask the driver.

#include "addresstext.h"
#include "driverrules.h"

#include <QByteArray>

#include <string>

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
