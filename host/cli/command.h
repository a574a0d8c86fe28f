#ifndef HOST_CLI_COMMAND_H
#define HOST_CLI_COMMAND_H

// One command of teco-cli, checked completely before anything is opened or
// sent: a bad address, type, count or value is refused here.

#include "faultrule.h"
#include "options.h"
#include "parammap.h"
#include "tag.h"

#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

// Each kind of command with what it alone takes; name is the word that gives it.
struct InfoCommand
{
    static constexpr const char *name = "info";
};

struct ReadCommand
{
    static constexpr const char *name = "read";
    Tag target;
    const Parameter *param = nullptr; // read by its name: shown in engineering units too
};

struct WriteCommand
{
    static constexpr const char *name = "write";
    Tag target;
    TagWrite write;
    const Parameter *param = nullptr; // written by its name
    std::string engineering, raw; // ... with this value typed, and the raw value it gives
};

struct PollCommand
{
    static constexpr const char *name = "poll";
    std::vector<Tag> tags; // TAG[@STATION] each
    std::vector<const Parameter *> params; // per tag: the parameter it names, or nullptr
    int intervalMs = 1000;
    int cycles = 0; // 0: until interrupted (or durationS)
    double durationS = 0; // 0: no limit
    std::optional<std::string> log; // every sample to this file
    bool every = false; // show every cycle, not only changes
    int mergeGap = 0; // registers between tags read along; -1: each tag read alone
};

struct ScanCommand
{
    static constexpr const char *name = "scan";
    int from = 1, to = 247;
    AddressText probe;
    // The line settings to try, every combination; empty: the link's own.
    std::vector<int> bauds;
    std::vector<char> parities; // 'N', 'E', 'O'
    std::vector<int> stopBits;
};

struct DoctorCommand
{
    static constexpr const char *name = "doctor";
};

struct SniffCommand
{
    static constexpr const char *name = "sniff";
    int count = 0; // stop after this many requests; 0: until interrupted (or durationS)
    double durationS = 0; // 0: no limit
    std::optional<std::string> log; // the same lines to this file
    int replyWindowMs = 1000; // --timeout: a reply begins within this after its request
};

struct BatchCommand
{
    static constexpr const char *name = "batch";
    std::string file; // "-": standard input
};

struct ShellCommand
{
    static constexpr const char *name = "shell";
};

struct DecodeCommand
{
    static constexpr const char *name = "decode";
    std::string bytes; // the frame
};

// Only on a line of a batch or the shell:
struct TraceCommand
{
    static constexpr const char *name = "trace";
    bool on = false;
};

struct FaultCommand
{
    static constexpr const char *name = "fault";
    FaultRule rule; // for the simulated drive
};

// params backup|compare|restore and map check|import (params.h).
struct ParamsRequest
{
    std::string action; // params: backup, compare, restore; map: check, import
    std::vector<std::string> files;
    std::optional<std::string> group; // backup --group
    std::optional<std::string> out; // map import --out
    bool yes = false; // restore: write
    bool keepGoing = false; // restore: past a failed write
};

struct ParamsCommand
{
    static constexpr const char *name = "params";
    ParamsRequest request;
};

struct MapCommand
{
    static constexpr const char *name = "map";
    ParamsRequest request;
};

struct Command
{
    std::variant<InfoCommand, ReadCommand, WriteCommand, PollCommand, ScanCommand, DoctorCommand,
        BatchCommand, ShellCommand, DecodeCommand, TraceCommand, FaultCommand, ParamsCommand, MapCommand,
        SniffCommand>
        kind;
    CommandOptions options; // what every command takes

    // The word that gives the command, such as "read".
    const char *name() const
    {
        return std::visit([](const auto &k) { return k.name; }, kind);
    }
};

// Checks a parsed command line (or batch line); false with one sentence in
// error for bad usage. batchLine allows the batch-only commands. map: the
// drive's parameters, whose names then stand for addresses (resolveTag).
bool prepareCommand(const CliOptions &options, bool batchLine, Command &command, std::string &error,
    const ParameterMap *map = nullptr);

// The commands of the command line for a shell's completion
// (host/teco.bash-completion), one line each: "command NAME [ARGUMENTS]".
std::string commandCompletionList();

// The words that may complete word on a line of the shell, given the words
// before it: command names first, option names for "-..." (anywhere), the
// words an option takes after it (data types after --type, formats after
// --format, their word orders once a colon is typed), on/off after trace and
// address prefixes where an address goes, followed there by names (a
// parameter map's, which stand for addresses). Address prefixes match in
// either case.
std::vector<std::string> completeShellWord(const std::vector<std::string> &before, const std::string &word,
    const std::vector<std::string> &names = {});

// The commands a line of a batch or the shell may give, in order, each with
// the options it takes of those that only some commands take (such as read
// with --type, --count and --format); every command takes the other options
// of a line (lineOptionNames).
std::vector<std::pair<std::string, std::vector<std::string>>> lineCommandOptions();

#endif // HOST_CLI_COMMAND_H
