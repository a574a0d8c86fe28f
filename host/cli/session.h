#ifndef HOST_CLI_SESSION_H
#define HOST_CLI_SESSION_H

// A teco-cli session: one DriverSession (the driver plug-in, the serial
// link and, when no port is given, the simulated drive at its other end)
// and the commands that run on it.

#include "command.h"
#include "driversession.h"
#include "output.h"
#include "parammap.h"
#include "samplelog.h"

#include <cstdio>
#include <memory>
#include <string>

class Session
{
public:
    // lines: the options the command line gives every line of a batch or
    // the shell (and the session's link options).
    Session(const SessionOptions &sessionOptions, const CommandOptions &lines);
    ~Session();

    // Loads the driver plug-in; ExitUsage with a message on failure.
    int loadDriver();
    // Loads the parameter map of --map; ExitUsage with a message on failure.
    int loadMap();
    // The map loaded, whose names stand for addresses; nullptr: none.
    const ParameterMap *map() const { return mapLoaded ? &paramMap : nullptr; }
    // Opens the line (starting the simulated drive without --port).
    int openLine();
    // Runs one prepared command.
    int run(const Command &command);

    // A line of a batch or of the shell, parsed and checked; nothing runs yet.
    struct Line
    {
        bool blank = false; // nothing to run: empty, blanks or a "#" comment
        Command command;
    };
    // Parses and checks a line with the command line's options as its defaults;
    // false with one sentence in error for bad usage.
    bool prepareLine(const std::string &text, Line &line, std::string &error) const;
    // Shows a line as it runs: "teco> LINE" (a comment as it stands) in a
    // table, nothing in JSON.
    void echoLine(const std::string &text) const;
    // Runs a prepared line on the open link.
    int runLine(const Line &line);

private:
    // Each kind of command; c holds what every command takes.
    int run(const Command &c, const InfoCommand &);
    int readNamed(const Command &c, const ReadCommand &r);
    int run(const Command &c, const ReadCommand &r);
    int run(const Command &c, const WriteCommand &w);
    int run(const Command &c, const PollCommand &p); // poll.cpp
    int run(const Command &c, const ScanCommand &s); // scan.cpp
    int run(const Command &c, const DoctorCommand &d); // doctor.cpp
    int run(const Command &c, const BatchCommand &b); // batch.cpp
    int run(const Command &c, const ShellCommand &); // shell.cpp
    int run(const Command &c, const DecodeCommand &d);
    int run(const Command &c, const TraceCommand &t); // batch.cpp
    int run(const Command &c, const FaultCommand &f); // batch.cpp
    int run(const Command &c, const ParamsCommand &p); // params.cpp
    int run(const Command &c, const MapCommand &m); // params.cpp
    int run(const Command &c, const SniffCommand &s); // sniff.cpp

    // For a command that needs the line: opens it and applies the command's
    // link options; toStation: it talks to the station given (a note for
    // station 0, the broadcast address).
    int openLineFor(const Command &c, bool toStation);
    // Applies a command's station, time-out, retry and delay to the link.
    void applyLinkOptions(const CommandOptions &o);
    // The station, time-out, retry, delay and late guard that o gives, over l's.
    static void overrideLinkOptions(const CommandOptions &o, LinkOptions &l);
    int usage(const std::string &text);
    // Says so when a read covers the driver's register window but goes to the drive.
    void noteWindow(const Tag &t);
    // What the line did since the command began, when its answer was
    // complete and the requests it sent.
    LineReport lineReport(int64_t answeredMs = 0, int64_t requestsSent = -1);
    // For a device the user may not open: how to get the right; else "".
    static std::string permissionHint(const std::string &port);
    SerialLink::StationHealth healthBefore; // the link's totals when the running command began
    // An informational line on standard error, unless --quiet.
    void note(const std::string &text);
    // A read or write that failed: its text, the exception name, what the line did.
    int failure(const Command &c, const Tag &target, const std::string &text);

    // Starts the tracing that --trace asks for.
    int startTrace();
    // The simulated drive's options, or bad usage when there is a port.
    int simOptions(SimDrive::Options &options);

    SerialLink &link() { return drive.link(); }
    const DriverHost &host() const { return drive.host(); }

    SessionOptions session;
    CommandOptions lineDefaults; // the command line's options for every line of a batch or the shell
    DriverSession drive;
    LinkSettings settings;
    LinkOptions defaults; // the session's link options; commands override some
    SampleLog pollLog; // poll --log
    bool lineOpen = false;
    ParameterMap paramMap; // --map
    bool mapLoaded = false;
};

#endif // HOST_CLI_SESSION_H
