#ifndef HOST_SIM_REGISTERMAP_H
#define HOST_SIM_REGISTERMAP_H

// Initial values of the simulated drive, from a small text file:
//
//   # ADDRESS  VALUE  NAME
//   station all            following lines apply to every station
//   HR100      1500   speed command (rpm)
//   HR104SW    100000 a 32-bit value in two registers, high word first
//   station 2              following lines apply to station 2 only
//   DO1        1      servo on
//
// Values are decimal (negative ones as two's complement) or 0x hexadecimal.

#include "addresstext.h"

#include <cstdint>
#include <string>
#include <vector>

struct MapEntry
{
    int station = 0; // 0: every station
    Area area = Area::HoldingRegisters;
    int address = 0; // zero-based
    uint16_t value = 0;
    std::string name;
    int line = 0;
};

// On failure returns false with the line number and the problem in error.
bool parseRegisterMap(const std::string &text, std::vector<MapEntry> &entries, std::string &error);

// A map that looks like a servo drive: a few named parameters and monitor
// values at their register numbers.
const char *builtinServoMap();

#endif // HOST_SIM_REGISTERMAP_H
