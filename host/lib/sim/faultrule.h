#ifndef HOST_SIM_FAULTRULE_H
#define HOST_SIM_FAULTRULE_H

// A fault that the simulated drive injects into its answers, chosen by rate,
// by station and by address: "late:at=HR200,times=1", "noreply:rate=0.1".

#include "addresstext.h"

#include <string>

struct FaultRule
{
    enum Kind {
        NoReply, // the request is lost: no answer, no effect
        Corrupt, // one byte of the answer is changed (CRC no longer matches)
        Truncate, // the answer stops early
        Late, // the answer comes after a pause longer than a master waits
        Exception, // a Modbus exception answer
        WrongStation, // the answer carries another station number (with a good CRC)
        Noise, // stray bytes follow the answer on the line
        KindCount
    };
    Kind kind = NoReply;
    int station = -1; // -1: any station
    bool anyAddress = true;
    Area area = Area::HoldingRegisters;
    int address = 0; // zero-based; a request matches when its range covers it
    double rate = 1.0; // chance that a matching request is hit
    int times = -1; // how many requests to hit; -1: no limit
    int value = -1; // code (exception), ms (late), keep (truncate), bytes (noise), as (wrong station)

    // Text form: KIND[:KEY=VALUE[,KEY=VALUE]...]; see faultHelp().
    static bool parse(const std::string &text, FaultRule &rule, std::string &error);
    std::string text() const;
    // Whether a request of this area and range at this station matches
    // (rate and times aside).
    bool matches(int requestStation, Area requestArea, int first, int quantity) const;
};

const char *faultKindName(FaultRule::Kind kind);
// Usage text of the fault form, for the programs' --help.
const char *faultHelp();

#endif // HOST_SIM_FAULTRULE_H
