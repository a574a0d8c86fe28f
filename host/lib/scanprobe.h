#ifndef HOST_SCANPROBE_H
#define HOST_SCANPROBE_H

// Scanning a line for stations: each one gets a single read, and what comes
// back says whether a station is there.

#include "driverhost.h"
#include "linksettings.h"

#include <string>
#include <vector>

// A scan waits for every silent station: a short time-out and a single
// attempt unless asked otherwise.
constexpr int scanTimeoutMs = 100;
constexpr int scanRetry = 0;

struct ScanVerdict
{
    bool answers = false; // a station is there: it gave a value or an exception
    bool heard = false; // something came back (a station, or garbage)
    std::string text; // "answers", "answers with exception ...", "garbled answer: ..."; "" for silence
};

// A probe that sent nothing is silence, whatever the driver returned.
ScanVerdict judgeScanProbe(const DriverHost::Result &result);

// Every combination of the settings to try, on own's interface and data
// bits; an empty list keeps own's value.
std::vector<LinkSettings> lineSettingsToTry(const std::vector<int> &bauds, const std::vector<char> &parities,
    const std::vector<int> &stopBits, const LinkSettings &own);

#endif // HOST_SCANPROBE_H
