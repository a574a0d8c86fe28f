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
    std::string name; // info, read, write, poll, scan, batch, shell; in batches also trace, fault
    CliOptions options;

    Tag target; // read, write
    std::vector<uint32_t> values; // write

    std::vector<Tag> tags; // poll
    int intervalMs = 1000;
    int cycles = 0; // 0: until interrupted (or --duration)
    double durationS = 0; // 0: no limit

    int from = 1, to = 247; // scan
    AddressText probe;
    // scan: the line settings to try, every combination; empty: the link's own
    std::vector<int> bauds;
    std::vector<char> parities; // 'N', 'E', 'O'
    std::vector<int> stopBits;

    std::string argument; // batch: the file; trace: on/off; fault: the rule
};

// Checks a parsed command line (or batch line); false with one sentence in
// error for bad usage. batchLine allows the batch-only commands.
bool prepareCommand(const CliOptions &options, bool batchLine, Command &command, std::string &error);

// The words that may complete word on a line of the shell, given the words
// before it: command names first, then option names for "-...", data types
// after --type, on/off after trace and address prefixes where an address
// goes. Address prefixes match in either case.
std::vector<std::string> completeShellWord(const std::vector<std::string> &before, const std::string &word);

// ADDRESS[:TYPE][:COUNT], such as HR100, HR100:dword, HR100:3, DO1:bit:8.
bool parseTag(const std::string &text, Tag &tag, std::string &error);

#endif // HOST_CLI_COMMAND_H
