#include "session.h"

#include "batchlines.h"
#include "faultrule.h"
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
    options.json = options.json || session.json;
    options.zeroBased = options.zeroBased || session.zeroBased;
    if (!prepareCommand(options, true, line.command, error))
        return false;
    if (line.command.kind == CommandKind::Fault && session.port) {
        error = "fault needs the simulated drive (no --port)";
        return false;
    }
    return true;
}

void Session::echoLine(const std::string &text) const
{
    Command shown;
    shown.options.json = session.json;
    std::string line = text;
    if (!line.empty() && line.back() == '\r')
        line.pop_back();
    for (size_t at = line.find('\0'); at != std::string::npos; at = line.find('\0', at + 2))
        line.replace(at, 1, "\\0"); // shown, not the end of what is shown
    const size_t first = line.find_first_not_of(" \t");
    if (first == std::string::npos)
        return;
    Output::forCommand(shown).batchLine(line[first] == '#' ? line : "teco> " + line.substr(first));
}

int Session::runLine(const Line &line)
{
    if (line.blank)
        return ExitOk;
    const Command &command = line.command;
    std::string error;
    int rc = ExitOk;
    if (command.kind == CommandKind::Trace) {
        if (command.argument == "on" && !session.trace && !link().setTrace("-", error))
            return usage(error);
        link().setTraceEnabled(command.argument == "on");
    } else if (command.kind == CommandKind::Fault) {
        FaultRule rule;
        FaultRule::parse(command.argument, rule, error); // checked when the line was prepared
        drive.sim().addFault(rule);
    } else {
        rc = run(command);
    }
    std::fflush(stdout);
    return rc;
}

int Session::batch(const Command &c)
{
    BatchLines in;
    std::string error;
    const bool fromFile = c.argument != "-";
    if (c.argument.empty())
        return usage("batch needs a file name, not an empty word (- or none for standard input)");
    if (fromFile && !in.readFile(c.argument, error))
        return usage("cannot read the batch " + c.argument + ": " + error);
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
