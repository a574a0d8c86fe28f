#ifndef HOST_ADDRESSTEXT_H
#define HOST_ADDRESSTEXT_H

// The panel's address texts as the host programs accept them from people:
// HR100, HR100.3, DO5, DI2, IR7, FN5DO5, FN6HR1200, HR100SW. The driver reads
// any text; this stricter form exists so that a typing error is reported
// before anything goes on the line.
//
// Numbers are one-based, as the panel counts: HR1 is the first holding
// register, register 0 on the wire. They may be typed in hexadecimal, the
// same one-based number: HR0x64 is HR100. Users of tools that count from 0
// on the wire (mbpoll, modpoll -0) parse with zeroBased, where HR0 is the
// first register and HR99 is the panel's HR100; the canonical text stays the
// panel's one-based one.

#include <string>
#include <vector>

enum class Area { Coils, DiscreteInputs, HoldingRegisters, InputRegisters };

// The plain prefix of an area: DO, DI, HR or IR.
const char *areaPrefix(Area area);
// Every prefix an address text may start with: FN5DO, FN6HR, HR, IR, DO, DI.
std::vector<std::string> addressPrefixes();

struct AddressText
{
    std::string prefix; // upper case: HR, IR, DO, DI, FN5DO or FN6HR
    Area area = Area::HoldingRegisters;
    int number = 1; // one-based, 1..65536
    int bit = -1; // 0..15, or -1 without a bit part
    bool swap = false; // "SW" behind the number: high word first in double words

    // On failure returns false with one sentence in error.
    static bool parse(const std::string &text, AddressText &address, std::string &error);
    static bool parse(const std::string &text, AddressText &address, std::string &error, bool zeroBased);
    // The canonical text, for example "HR100.3".
    std::string text() const;
    // The same prefix and suffix at another number and bit.
    std::string textAt(int number, int bit) const;
    bool isRegister() const { return area == Area::HoldingRegisters || area == Area::InputRegisters; }
    // Zero-based register or coil number on the wire.
    int wireNumber() const { return number - 1; }
};

// Area names as the programs print them.
const char *areaName(Area area);

#endif // HOST_ADDRESSTEXT_H
