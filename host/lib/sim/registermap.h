#ifndef HOST_SIM_REGISTERMAP_H
#define HOST_SIM_REGISTERMAP_H

// Initial values of the simulated drive and its motor's registers, from a
// map in one of two forms, told apart by the first line that is not a
// comment (or empty):
//
// A parameter map (parammap.h), the form of the shipped map
// (host/sim/servo-drive.csv, builtinServoMap()): its header row names the
// columns. Each row's default (engineering, as typed) is the register's
// initial value, turned into the registers as a write of it would be (raw =
// (default - offset) / scale, in the row's format); a row without a default
// leaves its registers at 0. The motion column binds the register to the
// motor model (motion.h), as a motion line does below, and a station column
// (a parameter backup's) gives the row to that station only; empty, to every
// station.
//
// The older text form, one line each:
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
// model for the stations the last "station" line chose.
//
// In both, the model reads the commands (servo-on, speed-command,
// accel-time, decel-time, max-speed, alarm-reset) and writes what the drive
// shows (speed, position, current, load, alarm); position takes two
// registers, high word first (IR402SW). A map without motion keeps every
// register as the master or the map wrote it.

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
    int bit = -1; // a register's bit (0..15): value sets or clears only that bit
    std::string name;
    int line = 0;
    long long written = 0; // the older form: the value as the line wrote it
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

// A map in either form. On failure returns false with the line number and
// the problem in error. The motion bindings go to motion; without it they are
// checked and left out.
bool parseRegisterMap(const std::string &text, std::vector<MapEntry> &entries, std::string &error,
    std::vector<MotionEntry> *motion = nullptr);

// Whether the text is a parameter map rather than the older form: its first
// line that is not a comment is a header row (its first field a column name
// such as "name", then a comma or a semicolon).
bool isParameterMapText(const std::string &text);

// A map of the older form as a parameter map's text (parameterMapCsv): one
// row per line's register, named after the line's name (its words before
// any parenthesis, lower case with dashes; else its motion quantity or
// "param-" and its address), the name as its description, the value as its default (negative
// values in int16 or int32), a motion line's quantity on its register's row
// and a station column when the map names stations. False with one
// sentence for a map that does not read, or is a parameter map already.
bool convertRegisterMap(const std::string &text, std::string &csv, std::string &error);

// The simulated servo drive's shipped map (host/sim/servo-drive.csv, compiled
// in): a parameter map with its named parameters in groups, monitor values,
// and a motor that moves (HR401.., IR401..).
const char *builtinServoMap();

#endif // HOST_SIM_REGISTERMAP_H
