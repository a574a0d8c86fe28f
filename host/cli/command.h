#ifndef HOST_CLI_COMMAND_H
#define HOST_CLI_COMMAND_H

// One command of teco-cli, checked completely before anything is opened or
// sent: a bad address, type, count or value is refused here.

#include "options.h"
#include "tag.h"

#include <string>
#include <utility>
#include <vector>

enum class CommandKind { Info, Read, Write, Poll, Scan, Batch, Shell, Decode, Trace, Fault };

struct Command
{
    std::string name; // info, read, write, poll, scan, batch, shell; in batches also trace, fault
    CommandKind kind = CommandKind::Info; // what name says
    CliOptions options;

    Tag target; // read, write
    TagWrite write; // write

    std::vector<Tag> tags; // poll: TAG[@STATION] each
    int intervalMs = 1000;
    int cycles = 0; // 0: until interrupted (or --duration)
    double durationS = 0; // 0: no limit

    int from = 1, to = 247; // scan
    AddressText probe;
    // scan: the line settings to try, every combination; empty: the link's own
    std::vector<int> bauds;
    std::vector<char> parities; // 'N', 'E', 'O'
    std::vector<int> stopBits;

    std::string argument; // batch: the file; trace: on/off; fault: the rule; decode: the bytes
};

// Checks a parsed command line (or batch line); false with one sentence in
// error for bad usage. batchLine allows the batch-only commands.
bool prepareCommand(const CliOptions &options, bool batchLine, Command &command, std::string &error);

// The commands of the command line for a shell's completion
// (host/teco.bash-completion), one line each: "command NAME [ARGUMENTS]".
std::string commandCompletionList();

// The words that may complete word on a line of the shell, given the words
// before it: command names first, option names for "-..." (anywhere), the
// words an option takes after it (data types after --type, formats after
// --format, their word orders once a colon is typed), on/off after trace and
// address prefixes where an address goes. Address prefixes match in either
// case.
std::vector<std::string> completeShellWord(const std::vector<std::string> &before, const std::string &word);

// The commands a line of a batch or the shell may give, in order, each with
// the options it takes of those that only some commands take (such as read
// with --type, --count and --format); every command takes the other options
// of a line (lineOptionNames).
std::vector<std::pair<std::string, std::vector<std::string>>> lineCommandOptions();

#endif // HOST_CLI_COMMAND_H
