#ifndef HOST_CLI_OPTIONS_H
#define HOST_CLI_OPTIONS_H

// The command line of teco-cli: options may stand before or after the
// command; "--name value" and "--name=value" both work; a word that begins
// with '-' is an option unless it is a negative number or "-" (optiontable.h).

#include <optional>
#include <string>
#include <vector>

enum ExitStatus { ExitOk = 0, ExitFailed = 1, ExitUsage = 2 };

// The options for the whole session: the plug-in, the link and the
// simulated drive at its other end; only on the command line.
struct SessionOptions
{
    std::optional<std::string> plugin;
    std::optional<std::string> port;
    std::optional<std::string> link;
    std::optional<std::string> trace;
    std::optional<std::string> traceFormat;
    bool noSilence = false;
    bool rs485 = false;
    bool localEcho = false;
    std::vector<std::string> simFaults;
    std::optional<std::string> simMap;
    std::optional<std::string> simStations;
    bool quiet = false; // no informational lines on standard error
    std::optional<std::string> map; // the drive's parameter map (parammap.h)
};

// The options every command takes (and, given before a batch or the shell,
// each of its lines).
struct CommandOptions
{
    // Over the session's link options.
    std::optional<int> station, timeout, retry, delay, lateGuard;
    bool json = false;
    bool zeroBased = false; // address numbers are wire numbers: HR0 is the first register
};

struct CliOptions
{
    SessionOptions session;
    bool help = false;
    bool version = false;
    bool listCompletions = false; // for the shell's completion, not in the usage

    CommandOptions command;

    // Options of particular commands, which prepareCommand gives to the
    // command that takes them.
    std::optional<std::string> type;
    std::optional<std::string> format; // formats.h
    std::optional<std::string> log; // poll: every sample to this file
    bool every = false; // poll: show every cycle, not only changes
    std::optional<int> count, interval, cycles, from, to;
    std::optional<int> mergeGap; // poll: registers between tags read along
    bool noMerge = false; // poll: each tag read on its own
    std::optional<double> duration;
    std::optional<std::string> address;
    std::optional<std::string> bauds, parities, stopBits; // scan: lists of line settings to try
    std::optional<std::string> group; // params backup
    std::optional<std::string> out; // map import
    bool yes = false, keepGoing = false; // params restore

    std::vector<std::string> arguments; // the command and its arguments
};

// Parses args into options. batchLine: a line of a batch, where only the
// options of one command are allowed. On failure returns false with one
// sentence in error.
bool parseCliArguments(
    const std::vector<std::string> &args, CliOptions &options, bool batchLine, std::string &error);

// The options for a shell's completion (OptionTable::completionList).
std::string cliCompletionList();

// The options a line of a batch or the shell may give, such as "--count".
std::vector<std::string> lineOptionNames();
// Whether an option takes a value (it is not a flag). option: "--count".
bool lineOptionTakesValue(const std::string &option);
// What the value of a batch line's option is, for completion ("words bit
// byte ...", "address", "file", "text"; see OptionTable::Row::values), or
// "" for a flag, a number or no such option. option: "--type".
std::string lineOptionValues(const std::string &option);

// Splits a batch line into words as a POSIX shell does, without expansions:
// single quotes keep what they enclose as it is; inside double quotes a
// backslash escapes ", \, $ and ` only; outside quotes it escapes any byte.
// A "#" that starts a word outside quotes starts a comment to the end of the
// line. False (with error) for an unterminated quote or a line that ends in
// a lone backslash.
bool splitWords(const std::string &line, std::vector<std::string> &words, std::string &error);

#endif // HOST_CLI_OPTIONS_H
