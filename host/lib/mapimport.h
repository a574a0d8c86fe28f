#ifndef HOST_LIB_MAPIMPORT_H
#define HOST_LIB_MAPIMPORT_H

// Parameter maps from what other tools keep: a ModbusScope project (.mbs,
// XML) or a plain list of addresses and names. Each entry becomes a
// parameter that passes the map file's own checks; what cannot be taken
// over (an expression that is not raw x factor + offset, several registers
// in one value, an unknown element, a bad address) is left out with a
// warning that names it, never dropped silently.

#include "parammap.h"

#include <string>
#include <vector>

// A ModbusScope project of any data level: each register's text (made a
// name: letters, digits, - _ . with the text itself as the description),
// address (Modicon 40001 or prefix h0, i0, c0, d0, both counting from 0 on
// the wire), type (16b, s16b, 32b, s32b, f32b with the device's word order)
// and scaling (an expression ${REG}*K/K+C, or multiply and divide).
// False with one sentence when the text is not such a project.
bool importModbusScope(
    const std::string &text, ParameterMap &map, std::vector<std::string> &warnings, std::string &error);

// Lines of an address (HR402, as the panel writes it) and a name, separated
// by a comma, semicolon or tab, with or without a header row.
bool importAddressList(
    const std::string &text, ParameterMap &map, std::vector<std::string> &warnings, std::string &error);

// The file at path, a project when it is XML, else a list.
bool importMapFile(
    const std::string &path, ParameterMap &map, std::vector<std::string> &warnings, std::string &error);

#endif // HOST_LIB_MAPIMPORT_H
