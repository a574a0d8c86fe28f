#ifndef HOST_CLI_COMMAND_H
#define HOST_CLI_COMMAND_H

// One command of teco-cli, checked completely before anything is opened or
// sent: a bad address, type, count or value is refused here.

#include "addresstext.h"
#include "options.h"
#include "values.h"

#include <string>
#include <vector>

struct Tag
{
    std::string text; // as given, for the output
    AddressText address;
    ValueType type = ValueType::Word;
    int count = 1;
};

struct Command
{
    std::string name; // info, read, write, poll, scan, batch; in batches also trace, fault
    CliOptions options;

    Tag target; // read, write
    std::vector<uint32_t> values; // write

    std::vector<Tag> tags; // poll
    int intervalMs = 1000;
    int cycles = 0; // 0: until interrupted (or --duration)
    double durationS = 0; // 0: no limit

    int from = 1, to = 247; // scan
    AddressText probe;

    std::string argument; // batch: the file; trace: on/off; fault: the rule; decode: the bytes
};

// Checks a parsed command line (or batch line); false with one sentence in
// error for bad usage. batchLine allows the batch-only commands.
bool prepareCommand(const CliOptions &options, bool batchLine, Command &command, std::string &error);

// The commands of the command line for a shell's completion
// (host/teco.bash-completion), one line each: "command NAME [ARGUMENTS]".
std::string commandCompletionList();

// ADDRESS[:TYPE][:COUNT], such as HR100, HR100:dword, HR100:3, DO1:bit:8.
bool parseTag(const std::string &text, Tag &tag, std::string &error);

#endif // HOST_CLI_COMMAND_H
