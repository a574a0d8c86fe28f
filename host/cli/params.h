#ifndef HOST_CLI_PARAMS_H
#define HOST_CLI_PARAMS_H

// teco-cli's params and map commands: a drive's parameters backed up to a
// file, compared with one and restored from one (paramset.h), and a map file
// checked or imported. The library decides; these render what it hands back,
// as a table or, with --json, one JSON object.

#include "command.h"
#include "parammap.h"

#include <optional>
#include <string>
#include <vector>

class DriverSession;

// Whether the command talks to the drive (all but a compare of two files).
bool paramsNeedLine(const ParamsRequest &request);

// Where the params commands run: the open session, the station, the map
// (--map or the simulated drive's), the output.
struct ParamsContext
{
    DriverSession &drive;
    const ParameterMap *map; // nullptr: none loaded
    int station;
    bool json, quiet;
};

// params backup|compare|restore on the open line; an exit status.
int runParams(ParamsContext &context, const ParamsRequest &request);
// map check|import, without a line; an exit status.
int runMapCommand(const ParamsRequest &request, bool json);

#endif // HOST_CLI_PARAMS_H
