#ifndef HOST_LIB_PARAMSET_H
#define HOST_LIB_PARAMSET_H

// A drive's parameter set: read all readable parameters of a map (backup),
// compare a drive or a file with a file, and write a file back (restore),
// as teco-cli's params command and teco-monitor's Parameters view do it.

#include "parammap.h"

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

class DriverSession;

// One read that serves several parameters (readplan.h): neighbouring
// registers of one area (and bits of one area) joined up to the driver's
// block sizes; any gap between two parameters within them is read along.
struct ParamRead
{
    Tag tag; // what is read: the first address, words (or bits), count
    std::vector<const Parameter *> params; // served by it, in address order
};
std::vector<ParamRead> planReads(const std::vector<const Parameter *> &params);

struct ParamReading
{
    const Parameter *param = nullptr;
    bool ok = false;
    std::string raw; // as readAsTexts shows it
    std::string value; // engineering, as a backup stores it (storedValue)
    std::string error; // the driver's text (or the host's) when !ok
    int64_t answeredMs = 0;
};

// Reads params from station with as few reads as planReads gives; a
// parameter whose joined read failed is read alone, so that one bad register
// cannot hide its neighbours. In the order of params.
std::vector<ParamReading> readParameters(
    DriverSession &session, int station, const std::vector<const Parameter *> &params);

// A backup as a map file (parameterMapCsv): the map's columns plus value,
// station, time and driver for each reading that succeeded.
ParameterMap backupMap(const ParameterMap &map, const std::vector<ParamReading> &readings, int station,
    const std::string &driverVersion);

// A backup checked against the map in use: each row names a parameter of
// map with the same address, format, scale and offset, and then takes the
// map's parameter (its access and limits) with the row's backup columns.
// False with one sentence naming the file's line and the difference.
bool bindToMap(ParameterMap &file, const ParameterMap &map, std::string &error);

struct ParamDifference
{
    const Parameter *param = nullptr; // of the file compared with
    std::string left, right; // engineering values: drive (or first file), file
};
// The parameters whose values differ, in the file's order: a drive's
// readings against a backup, or two backups (by name). A parameter read on
// one side but missing or failed on the other differs, with "-" for it.
// Only settings are compared: a read-only parameter (a measurement such as
// the motor's speed) and a write-only one (a command) are left out.
std::vector<ParamDifference> compareWithFile(
    const std::vector<ParamReading> &drive, const ParameterMap &file);
std::vector<ParamDifference> compareFiles(const ParameterMap &first, const ParameterMap &second);

// What a restore writes: the rw parameters whose drive value differs from
// the file's, in the file's order, each with the raw text to write.
struct ParamWrite
{
    const Parameter *param = nullptr;
    std::string from, to; // engineering: the drive's, the file's
    std::string raw; // rawFromEngineering(to)
};
bool planRestore(const std::vector<ParamReading> &drive, const ParameterMap &file,
    std::vector<ParamWrite> &writes, std::string &error);

struct RestoreOutcome
{
    const Parameter *param = nullptr;
    bool written = false;
    bool holds = false; // the read-back equals what was written
    std::string readBack; // engineering
    std::string error; // the driver's text of a failed write or read-back
};
// Writes each planned parameter, stopping at the first failed write unless
// keepGoing, then reads back every written one. progress, when given, is
// called after each write.
std::vector<RestoreOutcome> restoreParameters(DriverSession &session, int station,
    const std::vector<ParamWrite> &writes, bool keepGoing,
    const std::function<void(const RestoreOutcome &)> &progress = {});

#endif // HOST_LIB_PARAMSET_H
