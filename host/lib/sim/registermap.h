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
//   motion speed IR401 motor speed: the motor model writes this register
//
// Values are decimal (negative ones as two's complement) or 0x hexadecimal.
// A "motion QUANTITY ADDRESS [NAME]" line binds a register to the motor
// model (motion.h) for the stations the last "station" line chose: it reads
// the commands (servo-on, speed-command, accel-time, decel-time, max-speed,
// alarm-reset) and writes what the drive shows (speed, position, current,
// load, alarm). position takes two registers, written as IR402SW. A map
// without motion lines keeps every register as the master or the map wrote
// it.

#include "addresstext.h"
#include "motion.h"

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

struct MotionEntry
{
    int station = 0; // 0: every station
    MotionQuantity quantity = MotionQuantity::Speed;
    Area area = Area::InputRegisters;
    int address = 0; // zero-based; position: the high word, the low word follows
    std::string name;
    int line = 0;
};

// On failure returns false with the line number and the problem in error.
// The motion lines go to motion; without it they are checked and left out.
bool parseRegisterMap(const std::string &text, std::vector<MapEntry> &entries, std::string &error,
    std::vector<MotionEntry> *motion = nullptr);

// A map that looks like a servo drive: a few named parameters and monitor
// values at their register numbers, and a motor that moves (HR401.., IR401..).
const char *builtinServoMap();

#endif // HOST_SIM_REGISTERMAP_H
