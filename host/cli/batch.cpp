#include "session.h"

#include "batchlines.h"
#include "output.h"
#include "textfile.h"

#include <sys/stat.h>
#include <unistd.h>

bool Session::prepareLine(const std::string &text, Line &line, std::string &error) const
{
    line = Line();
    const size_t nul = text.find('\0');
    if (nul != std::string::npos) {
        error = "the line has a NUL byte at column " + std::to_string(nul + 1);
        return false;
    }
    std::vector<std::string> words;
    if (!splitWords(text, words, error))
        return false;
    if (words.empty()) { // blanks, or only a comment
        line.blank = true;
        return true;
    }
    CliOptions options;
    if (!parseCliArguments(words, options, true, error))
        return false;
    options.command.json = options.command.json || lineDefaults.json;
    options.command.zeroBased = options.command.zeroBased || lineDefaults.zeroBased;
    if (!prepareCommand(options, true, line.command, error, map()))
        return false;
    if (std::holds_alternative<FaultCommand>(line.command.kind) && session.port) {
        error = "fault needs the simulated drive (no --port)";
        return false;
    }
    return true;
}

void Session::echoLine(const std::string &text) const
{
    std::string line = text;
    if (!line.empty() && line.back() == '\r')
        line.pop_back();
    for (size_t at = line.find('\0'); at != std::string::npos; at = line.find('\0', at + 2))
        line.replace(at, 1, "\\0"); // shown, not the end of what is shown
    const size_t first = line.find_first_not_of(" \t");
    if (first == std::string::npos)
        return;
    Output::choose(lineDefaults.json).batchLine(line[first] == '#' ? line : "teco> " + line.substr(first));
}

int Session::runLine(const Line &line)
{
    if (line.blank)
        return ExitOk;
    const int rc = run(line.command);
    std::fflush(stdout);
    return rc;
}

int Session::run(const Command &, const TraceCommand &t)
{
    std::string error;
    if (t.on && !session.trace && !link().setTrace("-", error))
        return usage(error);
    link().setTraceEnabled(t.on);
    return ExitOk;
}

int Session::run(const Command &, const FaultCommand &f)
{
    drive.sim().addFault(f.rule);
    return ExitOk;
}

int Session::run(const Command &, const BatchCommand &b)
{
    BatchLines in;
    std::string error;
    const bool fromFile = b.file != "-";
    if (b.file.empty())
        return usage("batch needs a file name, not an empty word (- or none for standard input)");
    if (fromFile && !in.readFile(b.file, error))
        return usage("cannot read the batch " + b.file + ": " + error);
    struct stat input;
    if (!fromFile && fstat(STDIN_FILENO, &input) == 0 && S_ISDIR(input.st_mode))
        return usage("cannot read the batch from standard input: it is a directory");
    auto badLine = [&](int number) { return usage("batch line " + std::to_string(number) + ": " + error); };
    auto tooLong = [&]() { return usage("batch " + error); }; // a line of standard input

    // A file is checked whole before anything is opened or sent, then read
    // again to run (each line is prepared twice rather than kept: a file of
    // short lines would take far more memory as commands); standard input
    // runs each line as it is typed.
    std::string text;
    Line line;
    if (fromFile) {
        for (int number = 1; in.next(text, error); ++number)
            if (!prepareLine(text, line, error))
                return badLine(number);
        in.rewind();
    }
    const int opened = openLine();
    if (opened != ExitOk)
        return opened;
    bool anyFailed = false;
    int lineNumber = 0;
    while (in.next(text, error)) {
        ++lineNumber;
        if (!error.empty())
            return tooLong();
        echoLine(text);
        if (!prepareLine(text, line, error))
            return badLine(lineNumber);
        const int rc = runLine(line);
        if (rc == ExitUsage)
            return rc;
        anyFailed = anyFailed || rc != ExitOk;
    }
    if (!error.empty())
        return usage(error);
    return anyFailed ? ExitFailed : ExitOk;
}
