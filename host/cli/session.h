#ifndef HOST_CLI_SESSION_H
#define HOST_CLI_SESSION_H

// A teco-cli session: one DriverSession (the driver plug-in, the serial
// link and, when no port is given, the simulated drive at its other end)
// and the commands that run on it.

#include "command.h"
#include "driversession.h"
#include "output.h"
#include "samplelog.h"

#include <cstdio>
#include <memory>
#include <string>

class Session
{
public:
    explicit Session(const CliOptions &sessionOptions);
    ~Session();

    // Loads the driver plug-in; ExitUsage with a message on failure.
    int loadDriver();
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
    // Parses and checks a line with the session's options as its defaults;
    // false with one sentence in error for bad usage.
    bool prepareLine(const std::string &text, Line &line, std::string &error) const;
    // Shows a line as it runs: "teco> LINE" (a comment as it stands) in a
    // table, nothing in JSON.
    void echoLine(const std::string &text) const;
    // Runs a prepared line on the open link.
    int runLine(const Line &line);

private:
    // A command that needs the line: opens it first.
    int runOnLine(const Command &c);
    int info(const Command &c);
    int read(const Command &c);
    int write(const Command &c);
    int poll(const Command &c);
    int scan(const Command &c);
    int batch(const Command &c);
    int shell(const Command &c);

    // Applies a command's station, time-out, retry and delay to the link.
    void applyLinkOptions(const CliOptions &o);
    // The station, time-out, retry, delay and late guard that o gives, over l's.
    static void overrideLinkOptions(const CliOptions &o, LinkOptions &l);
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
    int failure(const Command &c, const std::string &text);

    // Starts the tracing that --trace asks for.
    int startTrace();
    // The simulated drive's options, or bad usage when there is a port.
    int simOptions(SimDrive::Options &options);

    SerialLink &link() { return drive.link(); }
    const DriverHost &host() const { return drive.host(); }

    CliOptions session;
    DriverSession drive;
    LinkSettings settings;
    LinkOptions defaults; // the session's link options; commands override some
    SampleLog pollLog; // poll --log
    bool lineOpen = false;
};

#endif // HOST_CLI_SESSION_H
