#include "session.h"

#include "output.h"
#include "textfile.h"

#include <cerrno>
#include <cstring>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// The lines of a batch: from a file read whole (a regular file within
// userTextFileLimit), or from standard input as they come, so that typed
// commands run at once; a line from standard input is refused beyond
// lineLimit bytes rather than kept growing.
class BatchLines
{
public:
    enum { lineLimit = 65536 };

    bool readFile(const std::string &path, std::string &error)
    {
        fromInput = false;
        return readTextFile(path, userTextFileLimit, pending, error);
    }

    // The next line without its end; false at the end of the batch, with
    // error set if it ended by a failure.
    bool next(std::string &line, std::string &error)
    {
        error.clear();
        for (;;) {
            const size_t end = pending.find('\n', consumed);
            if (end != std::string::npos || atEnd) {
                if (end == std::string::npos && consumed >= pending.size())
                    return false;
                const size_t stop = end == std::string::npos ? pending.size() : end;
                line.assign(pending, consumed, stop - consumed);
                consumed = end == std::string::npos ? pending.size() : end + 1;
                ++lines;
                return true;
            }
            if (!fromInput) {
                atEnd = true;
                continue;
            }
            if (pending.size() - consumed > lineLimit) {
                error = "batch line " + std::to_string(lines + 1) + " is longer than 64 KiB";
                return false;
            }
            pending.erase(0, consumed);
            consumed = 0;
            char buffer[4096];
            const ssize_t n = ::read(STDIN_FILENO, buffer, sizeof buffer);
            if (n < 0 && errno == EINTR)
                continue;
            if (n < 0) {
                error = std::string("cannot read the batch from standard input: ") + std::strerror(errno);
                return false;
            }
            if (n == 0)
                atEnd = true;
            else
                pending.append(buffer, size_t(n));
        }
    }

private:
    std::string pending;
    size_t consumed = 0;
    int lines = 0;
    bool fromInput = true;
    bool atEnd = false;
};

} // namespace

int Session::batch(const Command &c)
{
    BatchLines in;
    std::string error;
    if (c.argument != "-" && !in.readFile(c.argument, error))
        return usage("cannot read the batch " + c.argument + ": " + error);
    struct stat input;
    if (c.argument == "-" && fstat(STDIN_FILENO, &input) == 0 && S_ISDIR(input.st_mode))
        return usage("cannot read the batch from standard input: it is a directory");
    const int opened = openLine();
    if (opened != ExitOk)
        return opened;
    bool anyFailed = false;
    std::string text;
    int lineNumber = 0;
    Command batchCommand;
    batchCommand.options.json = session.json;
    while (in.next(text, error)) {
        ++lineNumber;
        if (!text.empty() && text.back() == '\r')
            text.pop_back();
        const size_t first = text.find_first_not_of(" \t");
        if (first == std::string::npos)
            continue;
        Output &out = Output::forCommand(batchCommand);
        if (text[first] == '#') {
            out.batchLine(text);
            continue;
        }
        out.batchLine("teco> " + text.substr(first));
        std::vector<std::string> words;
        CliOptions lineOptions;
        Command command;
        bool good = splitWords(text, words, error) && parseCliArguments(words, lineOptions, true, error);
        lineOptions.json = lineOptions.json || session.json;
        lineOptions.zeroBased = lineOptions.zeroBased || session.zeroBased;
        if (!good || !prepareCommand(lineOptions, true, command, error))
            return usage("batch line " + std::to_string(lineNumber) + ": " + error);
        int rc = ExitOk;
        if (command.name == "trace") {
            if (command.argument == "on" && !session.trace && !link.setTrace("-", error))
                return usage(error);
            link.setTraceEnabled(command.argument == "on");
        } else if (command.name == "fault") {
            if (!sim.running())
                return usage("batch line " + std::to_string(lineNumber)
                    + ": fault needs the simulated drive (no --port)");
            FaultRule rule;
            FaultRule::parse(command.argument, rule, error);
            sim.addFault(rule);
        } else {
            rc = run(command);
        }
        if (rc == ExitUsage)
            return rc;
        anyFailed = anyFailed || rc != ExitOk;
        std::fflush(stdout);
    }
    if (!error.empty())
        return usage(error);
    return anyFailed ? ExitFailed : ExitOk;
}
