#ifndef BENCH_BENCHOPTIONS_H
#define BENCH_BENCHOPTIONS_H

// The command line of a benchmark program: its options as one OptionTable
// (host/lib/optiontable.h), each row with the name of its value and one line
// of help, so that the usage line and the --help text come from the same
// rows that parse. "--help" and "-h" are added to every program.
//
//     BenchCommandLine line("teco-poll-memory", {
//         { OptionTable::integer("commands", 1, 1000000000, commands), "N", "commands to run" },
//         { OptionTable::flag("keep-samples", keep), "", "also keep every latency" } });
//     if (const int status = line.parse(argc, argv); status >= 0)
//         return status;

#include "optiontable.h"

#include <string>
#include <vector>

struct BenchOption
{
    OptionTable::Row row;
    const char *value = ""; // the value's name in the usage ("N", "MS"); "" for a flag
    const char *help = ""; // one line for --help
    char letter = 0; // also "-letter", for callers that use the short form
    bool required = false;
};

class BenchCommandLine
{
public:
    BenchCommandLine(const char *program, std::vector<BenchOption> options);

    // Sets every option given. -1 to go on; otherwise the exit status after
    // printing the help (0) or, for bad usage, one sentence naming the
    // problem and where the usage is (2).
    int parse(int argc, char **argv) const;
    // The same for a list of words, with the problem in error instead of
    // printed: true to go on (help false) or to show the help (help true).
    bool parse(const std::vector<std::string> &args, bool &help, std::string &error) const;

    // "usage: PROGRAM --device DEVICE [--baud BAUD] ...", wrapped before 100 columns.
    std::string usageLine() const;
    // The usage line, then one line per option.
    std::string helpText() const;

private:
    std::string program;
    std::vector<BenchOption> options;
};

#endif // BENCH_BENCHOPTIONS_H
