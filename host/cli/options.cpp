#include "options.h"

#include "formats.h"
#include "framedecoder.h"
#include "optiontable.h"
#include "values.h"

#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace {

// Where an option may stand: a session option only on the command line, a
// command option also on a line of a batch.
enum Scope { Session, Command };

// Seconds, such as 10 or 2.5: more than none and at most a million.
bool seconds(const std::string &text, std::optional<double> &target, std::string &error)
{
    char *end = nullptr;
    errno = 0;
    const double d = std::strtod(text.c_str(), &end);
    if (text.empty() || errno || !end || *end || !(d > 0.0) || d > 1e6
        || !std::isdigit(static_cast<unsigned char>(text[0]))) {
        error = "option --duration takes seconds, such as 10 or 2.5, not \"" + text + "\"";
        return false;
    }
    target = d;
    return true;
}

// The values of --type for the shell's completion: "words bit byte word dword".
std::string typeWords()
{
    std::string words = "words";
    for (ValueType t : { ValueType::Bit, ValueType::Byte, ValueType::Word, ValueType::DWord })
        words += std::string(" ") + valueTypeName(t);
    return words;
}

// The values of --format for the shell's completion: "words int16 ... int32
// int32:ABCD ...", each 32- and 64-bit format also with its word orders.
std::string formatWords()
{
    std::string words = "words";
    for (int n = int(NumberFormat::Int16); n <= int(NumberFormat::String); ++n) {
        ValueFormat f;
        f.number = NumberFormat(n);
        const std::string text = f.text();
        words += " " + text.substr(0, text.find(':'));
        for (int order = int(WordOrder::ABCD); f.isWide() && order <= int(WordOrder::DCBA); ++order) {
            f.order = WordOrder(order);
            words += " " + f.text();
        }
    }
    return words;
}

// The options of the session: the link, the plug-in, the simulated drive and
// the program itself; only on the command line.
std::vector<OptionTable::Row> sessionOptionRows(CliOptions &o)
{
    using T = OptionTable;
    return {
        T::text("plugin", o.session.plugin, Session).completing("file"),
        T::checked(
            "port",
            [&o](const std::string &path, std::string &error) {
                o.session.port = path;
                return checkDeviceOption("port", path, error);
            },
            Session)
            .completing("file"),
        T::text("link", o.session.link, Session),
        T::text("trace", o.session.trace, Session).completing("file"),
        T::checked(
            "trace-format",
            [&o](const std::string &text, std::string &error) {
                TraceFormat ignored;
                if (!parseTraceFormat(text, ignored)) {
                    error = "option --trace-format takes decoded or panel, not \"" + text + "\"";
                    return false;
                }
                o.session.traceFormat = text;
                return true;
            },
            Session)
            .completing("words decoded panel"),
        T::flag("no-silence", o.session.noSilence, Session),
        T::flag("rs485", o.session.rs485, Session),
        T::flag("local-echo", o.session.localEcho, Session),
        T::text(
            "sim-fault", [&o](const std::string &rule) { o.session.simFaults.push_back(rule); }, Session),
        T::text("sim-map", o.session.simMap, Session).completing("file"),
        T::text("sim-stations", o.session.simStations, Session),
        T::flag("help", o.help, Session),
        T::flag("version", o.version, Session),
        T::flag("list-completions", o.listCompletions, Session),
        T::flag("quiet", o.session.quiet, Session),
        T::text("map", o.session.map, Session).completing("file"),
    };
}

// The options of a command: also on a line of a batch or the shell.
std::vector<OptionTable::Row> commandOptionRows(CliOptions &o)
{
    using T = OptionTable;
    return {
        T::integer("station", 0, 255, o.command.station, Command),
        T::integer("timeout", 1, 600000, o.command.timeout, Command),
        T::integer("retry", 0, 100, o.command.retry, Command),
        T::integer("delay", 0, 600000, o.command.delay, Command),
        T::integer("late-guard", 0, 600000, o.command.lateGuard, Command),
        T::flag("json", o.command.json, Command),
        T::flag("zero-based", o.command.zeroBased, Command),
        T::text("type", o.type, Command).completing(typeWords()),
        T::text("format", o.format, Command).completing(formatWords()),
        T::text("log", o.log, Command).completing("file"),
        T::flag("every", o.every, Command),
        T::integer("count", 1, 65535, o.count, Command),
        T::integer("interval", 0, 3600000, o.interval, Command),
        T::integer("merge-gap", 0, 124, o.mergeGap, Command),
        T::flag("no-merge", o.noMerge, Command),
        T::integer("cycles", 1, 1000000000, o.cycles, Command),
        T::checked(
            "duration",
            [&o](const std::string &text, std::string &error) { return seconds(text, o.duration, error); },
            Command),
        T::integer("from", 0, 255, o.from, Command),
        T::integer("to", 0, 255, o.to, Command),
        T::text("address", o.address, Command).completing("address"),
        T::text("bauds", o.bauds, Command),
        T::text("parities", o.parities, Command),
        T::text("stop-bits", o.stopBits, Command),
        T::text("group", o.group, Command),
        T::text("out", o.out, Command).completing("file"),
        T::flag("yes", o.yes, Command),
        T::flag("keep-going", o.keepGoing, Command),
    };
}

OptionTable cliOptionTable(CliOptions &o)
{
    std::vector<OptionTable::Row> rows = sessionOptionRows(o);
    const std::vector<OptionTable::Row> command = commandOptionRows(o);
    rows.insert(rows.end(), command.begin(), command.end());
    return OptionTable(rows);
}

} // namespace

bool parseCliArguments(
    const std::vector<std::string> &args, CliOptions &o, bool batchLine, std::string &error)
{
    return cliOptionTable(o).parse(args, &o.arguments, error, [batchLine](const OptionTable::Row &r) {
        return batchLine && r.scope == Session
            ? "option --" + std::string(r.name) + " belongs on the command line, before the batch"
            : std::string();
    });
}

std::string cliCompletionList()
{
    CliOptions unused;
    return cliOptionTable(unused).completionList();
}

std::vector<std::string> lineOptionNames()
{
    CliOptions unused;
    const OptionTable table = cliOptionTable(unused);
    std::vector<std::string> names;
    for (const OptionTable::Row &r : table.allRows())
        if (r.scope == Command)
            names.push_back(std::string("--") + r.name);
    return names;
}

bool lineOptionTakesValue(const std::string &option)
{
    CliOptions unused;
    const OptionTable table = cliOptionTable(unused);
    const OptionTable::Row *r = option.compare(0, 2, "--") == 0 ? table.find(option.substr(2)) : nullptr;
    return r && r->kind != OptionTable::Flag;
}

std::string lineOptionValues(const std::string &option)
{
    CliOptions unused;
    const OptionTable table = cliOptionTable(unused);
    const OptionTable::Row *r = option.compare(0, 2, "--") == 0 ? table.find(option.substr(2)) : nullptr;
    return r && r->scope == Command && r->kind == OptionTable::Text ? r->values : std::string();
}

namespace {

// The words of a line as a POSIX shell splits them, without expansions.
class WordSplitter
{
public:
    bool split(const std::string &line, std::vector<std::string> &words, std::string &error)
    {
        for (size_t i = 0; i < line.size(); ++i) {
            const char c = line[i];
            if (quote == '\'' && c != '\'') {
                word += c;
            } else if (quote == '\'') {
                quote = 0;
            } else if (c == '\\' && (!quote || escapesInQuotes(line, i + 1))) {
                if (++i == line.size()) {
                    error = "the line ends in a backslash (\\\\ stands for one)";
                    return false;
                }
                word += line[i];
                inWord = true;
            } else if (quote) {
                if (c == '"')
                    quote = 0;
                else
                    word += c;
            } else if (c == '"' || c == '\'') {
                quote = c;
                inWord = true;
            } else if (c == '#' && !inWord) {
                break; // a comment to the end of the line
            } else if (std::isspace(static_cast<unsigned char>(c))) {
                end(words);
            } else {
                word += c;
                inWord = true;
            }
        }
        if (quote) {
            error = "unterminated quote";
            return false;
        }
        end(words);
        return true;
    }

private:
    // Whether a backslash inside double quotes escapes the byte at i: only
    // ", \, $ and ` (a newline never stands in a line).
    static bool escapesInQuotes(const std::string &line, size_t i)
    {
        return i < line.size() && line[i] != '\0' && std::strchr("\"\\$`", line[i]);
    }

    void end(std::vector<std::string> &words)
    {
        if (inWord)
            words.push_back(word);
        word.clear();
        inWord = false;
    }

    std::string word;
    bool inWord = false;
    char quote = 0; // '"' or '\'' while in quotes
};

} // namespace

bool splitWords(const std::string &line, std::vector<std::string> &words, std::string &error)
{
    words.clear();
    return WordSplitter().split(line, words, error);
}
