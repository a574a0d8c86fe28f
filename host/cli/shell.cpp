// teco-cli shell: commands typed one per line on one link, the lines of a
// batch run as they come. A typing error or a failed command is reported and
// the shell goes on; Ctrl-C stops the command that runs, never the shell.
//
// On a terminal it edits lines with libedit (readline's interface), keeps a
// history in ~/.teco_cli_history and completes commands, options and address
// prefixes with Tab. Without a terminal (standard input from a pipe or a
// file) it reads plain lines and shows each one before its output, as a
// batch from standard input does, so that a script sees a transcript.

#include "session.h"

#include "batchlines.h"
#include "formats.h"
#include "output.h"
#include "terminal.h"
#include "textfile.h"
#include "textutil.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#ifdef TECO_HAVE_LIBEDIT
#include <editline/readline.h>
#endif

namespace {

// What a command's arguments are, and what it does where its options do not
// say it; the commands and their options come from the command and option
// tables, so that help lists every one.
struct HelpRow
{
    const char *name;
    const char *arguments;
    const char *what;
};

const HelpRow helpRows[] = {
    { "info", "", "the driver's identity and default settings" },
    { "read", "ADDRESS", "" },
    { "write", "ADDRESS VALUE...", "" },
    { "poll", "TAG...", "" },
    { "decode", "HEX...", "what a Modbus RTU frame says" },
    { "trace", "on|off", "the frame trace, on standard error" },
    { "fault", "RULE", "a fault for the simulated drive" },
};

// What help shows for the value of an option; a value option not named
// here shows VALUE.
const std::pair<const char *, const char *> placeholders[] = { { "--type", "T" }, { "--format", "F" },
    { "--count", "N" }, { "--interval", "MS" }, { "--cycles", "N" }, { "--duration", "S" },
    { "--log", "FILE" }, { "--from", "N" }, { "--to", "N" }, { "--address", "ADDRESS" },
    { "--bauds", "LIST" }, { "--parities", "LIST" }, { "--stop-bits", "LIST" }, { "--station", "N" },
    { "--timeout", "MS" }, { "--retry", "N" }, { "--delay", "MS" }, { "--late-guard", "MS" } };

// "--count N", "--json": an option as help shows it.
std::string optionSynopsis(const std::string &option)
{
    if (!lineOptionTakesValue(option))
        return option;
    for (const auto &p : placeholders)
        if (option == p.first)
            return option + " " + p.second;
    return option + " VALUE";
}

// pieces joined by blanks into lines of at most 100 columns (a piece is never
// split); the lines after the first start with indent blanks. what, if any,
// follows the first line from column 44 on when it fits.
std::string helpLines(const std::vector<std::string> &pieces, size_t indent, const std::string &what = "")
{
    std::string text, line;
    for (const std::string &piece : pieces) {
        if (!line.empty() && line.size() + 1 + piece.size() > 100) {
            text += line + "\n";
            line = std::string(indent, ' ');
        } else if (!line.empty() && line.find_first_not_of(' ') != std::string::npos) {
            line += " ";
        }
        line += piece;
    }
    if (!what.empty() && text.empty() && line.size() < 43)
        line += std::string(44 - line.size(), ' ') + what;
    else if (!what.empty())
        line += "  (" + what + ")";
    return text + line + "\n";
}

// "a, b and c" (or "a, b or c").
std::string listed(const std::vector<std::string> &items, const char *last = " and ")
{
    std::string text;
    for (size_t i = 0; i < items.size(); ++i)
        text += (i == 0 ? "" : i + 1 == items.size() ? last : ", ") + items[i];
    return text;
}

std::string shellHelp()
{
    std::string text = "commands, one per line, all on this link:\n";
    std::vector<std::string> own; // options that some commands take
    for (const auto &command : lineCommandOptions()) {
        const HelpRow *row = nullptr;
        for (const HelpRow &r : helpRows)
            row = command.first == r.name ? &r : row;
        std::vector<std::string> pieces = { "  " + command.first };
        if (row && *row->arguments)
            pieces.push_back(row->arguments);
        for (const std::string &option : command.second) {
            pieces.push_back("[" + optionSynopsis(option) + "]");
            own.push_back(option);
        }
        text += helpLines(pieces, 6, row ? row->what : "");
    }
    text += helpLines({ "  help" }, 0, "this text")
        + helpLines({ "  quit, exit or Ctrl-D" }, 0, "end the shell");
    std::vector<std::string> common = { "each command also takes" }; // an option and its value stay together
    for (const std::string &option : lineOptionNames())
        if (std::find(own.begin(), own.end(), option) == own.end())
            common.push_back(optionSynopsis(option) + ",");
    common.back().back() = '.';
    common[common.size() - 2].back() = ' ';
    common[common.size() - 2] += "and";
    const std::vector<std::string> types = splitFields(lineOptionValues("--type").substr(6), ' ');
    text += helpLines(common, 0);
    text += helpLines(splitFields("T: " + listed(types, " or ") + "; F: " + formatNames() + ".", ' '), 0);
    return text
        + "Ctrl-C stops a command (poll, scan); \"# ...\" is a comment; quotes and backslashes work as in\n"
          "a POSIX shell ('say \"hi\"' or \"say \\\"hi\\\"\" is one word).\n";
}

const char prompt[] = "teco> ";

#ifdef TECO_HAVE_LIBEDIT

enum { HistoryLines = 1000 };

// The completions of the word being typed, handed to libedit one by one.
std::vector<std::string> completions;
// The parameter names that may stand for an address.
std::vector<std::string> completionNames;

char *nextCompletion(const char *, int state)
{
    static size_t next;
    if (state == 0)
        next = 0;
    return next < completions.size() ? strdup(completions[next++].c_str()) : nullptr;
}

char **complete(const char *text, int start, int)
{
    rl_attempted_completion_over = 1; // never file names
    std::vector<std::string> before;
    std::string error;
    if (!splitWords(std::string(rl_line_buffer, size_t(std::max(start, 0))), before, error))
        return nullptr;
    completions = completeShellWord(before, text, completionNames);
    if (completions.empty())
        return nullptr;
    // An address prefix is followed by its number, not a blank.
    const bool prefix = std::isupper(static_cast<unsigned char>(completions[0][0])) != 0;
    rl_completion_append_character = prefix ? 0 : ' ';
    return rl_completion_matches(text, nextCompletion);
}

// One byte of standard input, waited for with SIGINT let through (previous
// is the signal mask without it blocked); false at the end of the input,
// when the terminal is gone and at Ctrl-C.
bool waitForByte(const sigset_t &previous, unsigned char &byte)
{
    while (!InterruptScope::interrupted()) {
        struct pollfd p = { STDIN_FILENO, POLLIN, 0 };
        if (ppoll(&p, 1, nullptr, &previous) < 0 && errno != EINTR)
            return false;
        const ssize_t n = p.revents ? ::read(STDIN_FILENO, &byte, 1) : -1;
        if (n < 0 && (errno == EINTR || errno == EAGAIN || !p.revents))
            continue;
        return n > 0; // n == 0: the end of the input, or the terminal is gone
    }
    return false;
}

// The code point that starts with the byte lead, its other bytes read from
// standard input; lead itself where they are not UTF-8.
int utf8Key(unsigned char lead)
{
    const int length = lead < 0x80 ? 1
        : (lead & 0xE0) == 0xC0    ? 2
        : (lead & 0xF0) == 0xE0    ? 3
        : (lead & 0xF8) == 0xF0    ? 4
                                   : 1;
    int key = length == 1 ? lead : lead & (0x7F >> length);
    for (int i = 1; i < length; ++i) {
        unsigned char byte = 0;
        if (::read(STDIN_FILENO, &byte, 1) != 1 || (byte & 0xC0) != 0x80)
            return lead; // not UTF-8: the byte as it is
        key = (key << 6) | (byte & 0x3F);
    }
    return key;
}

// A key for libedit: the next character on standard input, decoded from
// UTF-8 (libedit takes code points from this hook), or EOF at the end of the
// input and at Ctrl-C, which makes readline drop the line typed. SIGINT is
// blocked but for the wait itself, so a Ctrl-C that comes just before the
// wait ends it rather than being slept through.
int readKey(FILE *)
{
    sigset_t interrupt, previous;
    sigemptyset(&interrupt);
    sigaddset(&interrupt, SIGINT);
    sigprocmask(SIG_BLOCK, &interrupt, &previous);
    unsigned char lead = 0;
    const int key = waitForByte(previous, lead) ? utf8Key(lead) : EOF;
    sigprocmask(SIG_SETMASK, &previous, nullptr);
    return key;
}

#endif

// The lines typed: through libedit on a terminal, plain otherwise.
class ShellInput
{
public:
    // names: what the shell completes besides addresses where one goes.
    explicit ShellInput(const std::vector<std::string> &names)
        : terminal(isatty(STDIN_FILENO) == 1)
    {
#ifdef TECO_HAVE_LIBEDIT
        if (!terminal)
            return;
        completionNames = names;
        rl_readline_name = "teco-cli"; // for ~/.editrc
        rl_catch_signals = 0; // Ctrl-C is ours: it drops the line typed so far
        rl_attempted_completion_function = complete;
        rl_getc_function = readKey;
        stifle_history(HistoryLines);
        const char *home = std::getenv("HOME");
        if (home && *home)
            historyPath = std::string(home) + "/.teco_cli_history";
        struct stat st;
        if (historyPath.empty() || ::stat(historyPath.c_str(), &st) != 0)
            return; // no history yet
        std::string contents, error;
        if (!readTextFile(historyPath, userTextFileLimit, contents, error)) {
            std::fprintf(stderr, "teco-cli: not keeping a history: cannot read %s: %s\n", historyPath.c_str(),
                error.c_str());
            historyPath.clear();
            return;
        }
        read_history(historyPath.c_str());
#endif
    }

    ~ShellInput()
    {
#ifdef TECO_HAVE_LIBEDIT
        if (historyPath.empty())
            return;
        // Written only where a trace could be: never through a symbolic
        // link, never over another user's file.
        std::string error;
        FILE *f = createTextFile(historyPath, error);
        if (!f) {
            std::fprintf(
                stderr, "teco-cli: cannot keep the history in %s: %s\n", historyPath.c_str(), error.c_str());
            return;
        }
        std::fclose(f);
        write_history(historyPath.c_str());
#endif
    }

    // Whether a person types the lines (and sees them as typed).
    bool interactive() const { return terminal; }

    // The next line; false at the end (Ctrl-D, the end of the input), with
    // error set if reading failed. A line longer than BatchLines::lineLimit
    // gives true with error set: it is refused, and not kept in the history.
    bool next(std::string &line, std::string &error)
    {
        error.clear();
#ifdef TECO_HAVE_LIBEDIT
        if (terminal)
            return edited(line, error);
#endif
        if (terminal) {
            std::fputs(prompt, stdout);
            std::fflush(stdout);
        }
        const bool got = plain.next(line, error);
        if (!got && terminal)
            std::fputs("\n", stdout);
        return got;
    }

private:
#ifdef TECO_HAVE_LIBEDIT
    bool edited(std::string &line, std::string &error)
    {
        for (;;) {
            InterruptScope::reset(); // the wait for a key ends at Ctrl-C
            char *text = readline(prompt);
            if (!text && InterruptScope::interrupted()) {
                std::fputs("\n", stdout); // the line is dropped: a new prompt
                continue;
            }
            if (!text) {
                std::fputs("\n", stdout); // Ctrl-D
                return false;
            }
            line = text;
            std::free(text);
            if (line.size() > BatchLines::lineLimit) {
                error = "the line is longer than 64 KiB";
                line.clear();
                return true;
            }
            const bool blank = line.find_first_not_of(" \t") == std::string::npos;
            HIST_ENTRY *last = history_length > 0 ? history_get(history_base + history_length - 1) : nullptr;
            if (!blank && !(last && last->line && line == last->line))
                add_history(line.c_str());
            return true;
        }
    }
    std::string historyPath;
#endif

    bool terminal;
    BatchLines plain;
};

// A line that the shell runs itself: "quit" or "exit" (quit set) or "help"
// (its text shown). False for any other line.
bool runBuiltinLine(const std::string &text, bool &quit)
{
    std::vector<std::string> words;
    std::string error;
    if (!splitWords(text, words, error) || words.empty())
        return false;
    quit = words[0] == "quit" || words[0] == "exit";
    if (quit)
        return true;
    if (words[0] != "help")
        return false;
    std::fputs(shellHelp().c_str(), stdout);
    std::fflush(stdout);
    return true;
}

} // namespace

int Session::run(const Command &, const ShellCommand &)
{
    const int opened = openLine();
    if (opened != ExitOk)
        return opened;
    // Ctrl-C never ends the shell: at the prompt it drops the line typed, in
    // a command it ends the command (poll, scan) or is let pass.
    InterruptScope stop;
    std::vector<std::string> names;
    if (map())
        for (const Parameter &p : map()->parameters)
            names.push_back(p.name);
    ShellInput input(names);
    if (input.interactive())
        std::printf("teco-cli shell on %s: \"help\" lists the commands, Ctrl-D ends\n",
            link().settings().text().c_str());
    bool quit = false;
    // One line: its exit status, or -1 for one that runs nothing (blanks, a
    // comment, quit).
    auto runText = [&](const std::string &text) {
        if (runBuiltinLine(text, quit))
            return quit ? -1 : int(ExitOk);
        Line line;
        std::string lineError;
        if (!prepareLine(text, line, lineError))
            return usage(lineError);
        InterruptScope::reset();
        return line.blank ? -1 : runLine(line);
    };
    // On a terminal the shell ends with the status of the last line that
    // ran, so that a typing error early on does not stay with the session;
    // from a pipe or a file, with the worst of its lines, which a script
    // needs to see.
    int worst = ExitOk, last = ExitOk;
    std::string text, error;
    while (!quit && input.next(text, error)) {
        if (error.empty() && !input.interactive())
            echoLine(text);
        const int rc = error.empty() ? runText(text) : usage(error);
        last = rc < 0 ? last : rc;
        worst = std::max(worst, rc);
    }
    if (!quit && !error.empty())
        return usage(error);
    return input.interactive() ? last : worst;
}
