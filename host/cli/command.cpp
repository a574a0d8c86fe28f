#include "command.h"

#include "faultrule.h"
#include "framedecoder.h"
#include "readplan.h"
#include "seriallink.h"
#include "textutil.h"

#include <algorithm>
#include <cctype>
#include <functional>

namespace {

// The options that only some commands take, in groups.
enum OptionGroup : unsigned {
    TypeOption = 1,
    CountOption = 2,
    PollOptions = 4,
    ScanOptions = 8,
    FormatOption = 16,
    ParamsOptions = 32,
    RunOptions = 64 // --duration and --log: poll and sniff
};

// The options that only some commands take, each with its group, in the
// order they are named.
struct GroupedOption
{
    const char *name;
    unsigned group; // OptionGroup
    bool (*given)(const CliOptions &);
};

const GroupedOption groupedOptions[] = {
    { "--type", TypeOption, [](const CliOptions &o) { return bool(o.type); } },
    { "--count", CountOption, [](const CliOptions &o) { return bool(o.count); } },
    { "--format", FormatOption, [](const CliOptions &o) { return bool(o.format); } },
    { "--interval", PollOptions, [](const CliOptions &o) { return bool(o.interval); } },
    { "--cycles", PollOptions, [](const CliOptions &o) { return bool(o.cycles); } },
    { "--duration", RunOptions, [](const CliOptions &o) { return bool(o.duration); } },
    { "--log", RunOptions, [](const CliOptions &o) { return bool(o.log); } },
    { "--every", PollOptions, [](const CliOptions &o) { return o.every; } },
    { "--merge-gap", PollOptions, [](const CliOptions &o) { return bool(o.mergeGap); } },
    { "--no-merge", PollOptions, [](const CliOptions &o) { return o.noMerge; } },
    { "--from", ScanOptions, [](const CliOptions &o) { return bool(o.from); } },
    { "--to", ScanOptions, [](const CliOptions &o) { return bool(o.to); } },
    { "--address", ScanOptions, [](const CliOptions &o) { return bool(o.address); } },
    { "--bauds", ScanOptions, [](const CliOptions &o) { return bool(o.bauds); } },
    { "--parities", ScanOptions, [](const CliOptions &o) { return bool(o.parities); } },
    { "--stop-bits", ScanOptions, [](const CliOptions &o) { return bool(o.stopBits); } },
    { "--group", ParamsOptions, [](const CliOptions &o) { return bool(o.group); } },
    { "--out", ParamsOptions, [](const CliOptions &o) { return bool(o.out); } },
    { "--yes", ParamsOptions, [](const CliOptions &o) { return o.yes; } },
    { "--keep-going", ParamsOptions, [](const CliOptions &o) { return o.keepGoing; } },
};

// The first option given of the groups that a command does not take, or nullptr.
const char *refusedOption(const CliOptions &o, unsigned accepted)
{
    for (const GroupedOption &g : groupedOptions)
        if (!(accepted & g.group) && g.given(o))
            return g.name;
    return nullptr;
}

// What one command is prepared from: its arguments (without its name), the
// options and whether it stands on a line of a batch.
struct Given
{
    const std::vector<std::string> &args;
    const CliOptions &o;
    bool batchLine;
    const ParameterMap *map; // names stand for addresses; nullptr: none
};

// good; otherwise false with text in error.
bool require(bool good, const char *text, std::string &error)
{
    if (!good)
        error = text;
    return good;
}

bool prepareInfo(const Given &g, InfoCommand &, std::string &error)
{
    return require(g.args.empty(), "info takes no arguments", error);
}

// A parameter's name given where an address goes: its tag and the
// parameter, or (param left nullptr) not a name. False with one sentence for
// an unknown name, or a name with --type, --format or --count, which its
// map already gives.
bool namedTag(const Given &g, const std::string &text, Tag &tag, const Parameter *&param, std::string &error)
{
    param = nullptr;
    if (!g.map)
        return true;
    Tag resolved;
    // A text that looks like an address (letters, then a digit) gets the
    // address's own sentence when it is no name.
    size_t letters = 0;
    while (letters < text.size() && std::isalpha(static_cast<unsigned char>(text[letters])))
        ++letters;
    const bool addressLike
        = letters > 0 && letters < text.size() && std::isdigit(static_cast<unsigned char>(text[letters]));
    if (!resolveTag(text, g.map, resolved, param, error, g.o.command.zeroBased))
        return addressLike && !g.map->find(text);
    const char *refused = g.o.type ? "--type" : g.o.format ? "--format" : g.o.count ? "--count" : nullptr;
    if (param && refused) {
        error = std::string("option ") + refused + " does not apply to a parameter's name (" + param->name
            + " is " + param->tag.text + " in " + g.map->described() + ")";
        return false;
    }
    if (param) {
        const int station = tag.station; // from NAME@STATION, kept
        tag = resolved;
        tag.station = station;
    }
    return true;
}

bool prepareRead(const Given &g, ReadCommand &c, std::string &error)
{
    if (!require(g.args.size() == 1,
            "usage: read ADDRESS [--type bit|byte|word|dword | --format F] [--count N]", error)
        || !namedTag(g, g.args[0], c.target, c.param, error))
        return false;
    return c.param
        || (makeTag(g.args[0], g.o.type, g.o.format, g.o.count, g.o.command.zeroBased, c.target, error)
            && tagFitsDriver(c.target, false, error));
}

// A write of a parameter by name: one engineering value, checked against the
// map before anything is sent, to its raw value.
bool prepareNamedWrite(const Given &g, WriteCommand &c, std::string &error)
{
    if (!require(g.args.size() == 2, "a parameter takes one value: write NAME VALUE", error)
        || !rawFromEngineering(*c.param, g.args[1], c.raw, error))
        return false;
    c.engineering = g.args[1];
    std::optional<int> pad;
    if (c.target.format && c.target.format->number == NumberFormat::String)
        pad = c.param->tag.count;
    return ::prepareWrite(c.target, { c.raw }, pad, c.write, error);
}

bool prepareWrite(const Given &g, WriteCommand &c, std::string &error)
{
    if (!require(g.args.size() >= 2,
            "usage: write ADDRESS VALUE... [--type bit|byte|word|dword | --format F]", error)
        || !namedTag(g, g.args[0], c.target, c.param, error))
        return false;
    if (c.param)
        return prepareNamedWrite(g, c, error);
    if (!makeTag(g.args[0], g.o.type, g.o.format, std::nullopt, g.o.command.zeroBased, c.target, error))
        return false;
    const bool string = c.target.format && c.target.format->number == NumberFormat::String;
    if (g.o.count && !string) {
        error = "option --count does not apply to write (except with --format string: the registers to fill)";
        return false;
    }
    return ::prepareWrite(
        c.target, std::vector<std::string>(g.args.begin() + 1, g.args.end()), g.o.count, c.write, error);
}

bool preparePoll(const Given &g, PollCommand &c, std::string &error)
{
    if (!require(!g.args.empty(),
            "usage: poll TAG[@STATION]... [--interval MS] [--cycles N] [--duration S] [--format F] "
            "[--log FILE] [--every] [--merge-gap N | --no-merge]",
            error))
        return false;
    for (const std::string &a : g.args) {
        Tag t;
        const size_t at = a.rfind('@');
        if (at != std::string::npos
            && !require(parseWholeNumber(a.substr(at + 1), 0, 255, t.station),
                "a tag's station follows \"@\" as a number from 0 to 255, such as HR100@2", error))
            return false;
        const Parameter *param = nullptr;
        if (!namedTag(g, a.substr(0, at), t, param, error)
            || (!param && !parseTag(a.substr(0, at), t, error, g.o.command.zeroBased, g.o.format)))
            return false;
        t.text = a;
        c.tags.push_back(t);
        c.params.push_back(param);
    }
    c.intervalMs = g.o.interval ? *g.o.interval : 1000;
    c.cycles = g.o.cycles ? *g.o.cycles : 0;
    c.durationS = g.o.duration ? *g.o.duration : 0;
    c.log = g.o.log;
    c.every = g.o.every;
    if (!require(!(g.o.noMerge && g.o.mergeGap),
            "--no-merge reads each tag on its own: give it or --merge-gap, not both", error))
        return false;
    c.mergeGap = g.o.noMerge ? -1 : g.o.mergeGap ? *g.o.mergeGap : defaultReadGap;
    return true;
}

// A comma-separated list of the option (such as "--bauds 9600,19200"); each
// item goes through read, which gives false for an item it refuses. Items
// given twice count once. False with one sentence naming what it takes.
template <typename T>
bool settingsList(const std::optional<std::string> &text, const char *option, const char *takes,
    const std::function<bool(const std::string &, T &)> &read, std::vector<T> &list, std::string &error)
{
    if (!text)
        return true;
    for (const std::string &item : splitFields(*text, ',')) {
        T value {};
        if (!read(item, value)) {
            error = std::string("option ") + option + " takes " + takes + ", not \"" + item + "\"";
            return false;
        }
        if (std::find(list.begin(), list.end(), value) == list.end())
            list.push_back(value);
    }
    return true;
}

bool lineSettingsToTry(const CliOptions &o, ScanCommand &c, std::string &error)
{
    const std::function<bool(const std::string &, int &)> baud = [](const std::string &t, int &rate) {
        return parseWholeNumber(t, 1, 921600, rate) && LinkSettings::supportedBaudRate(rate);
    };
    const std::function<bool(const std::string &, char &)> parity = [](const std::string &t, char &p) {
        const std::string u = upperCase(t);
        p = u == "N" || u == "NONE"   ? 'N'
            : u == "E" || u == "EVEN" ? 'E'
            : u == "O" || u == "ODD"  ? 'O'
                                      : '\0';
        return p != '\0';
    };
    const std::function<bool(const std::string &, int &)> stop
        = [](const std::string &t, int &bits) { return parseWholeNumber(t, 1, 2, bits); };
    return settingsList(
               o.bauds, "--bauds", "baud rates such as 9600,19200 (300 to 921600)", baud, c.bauds, error)
        && settingsList(
            o.parities, "--parities", "parities such as N,E (N, E or O)", parity, c.parities, error)
        && settingsList(o.stopBits, "--stop-bits", "stop bits such as 1,2", stop, c.stopBits, error);
}

bool prepareScan(const Given &g, ScanCommand &c, std::string &error)
{
    if (!lineSettingsToTry(g.o, c, error))
        return false;
    if (!require(g.args.empty(),
            "usage: scan [--from N] [--to N] [--address ADDRESS] [--bauds LIST] [--parities LIST] "
            "[--stop-bits LIST]",
            error))
        return false;
    c.from = g.o.from ? *g.o.from : 1;
    c.to = g.o.to ? *g.o.to : 247;
    const bool zeroBased = g.o.command.zeroBased;
    return checkScanRange(
        c.from, c.to, g.o.address ? *g.o.address : (zeroBased ? "HR0" : "HR1"), zeroBased, c.probe, error);
}

bool prepareDoctor(const Given &g, DoctorCommand &, std::string &error)
{
    return require(!g.batchLine, "doctor runs only on the command line", error)
        && require(g.args.empty(), "usage: doctor (with --port DEVICE, --link, --station)", error);
}

bool prepareBatch(const Given &g, BatchCommand &c, std::string &error)
{
    if (!require(!g.batchLine, "a batch cannot start another batch", error)
        || !require(g.args.size() <= 1,
            "usage: batch [FILE] (commands one per line; standard input without FILE)", error))
        return false;
    c.file = g.args.empty() ? "-" : g.args[0];
    return true;
}

bool prepareDecode(const Given &g, DecodeCommand &c, std::string &error)
{
    if (!require(!g.args.empty(), "usage: decode HEX... (such as decode \"01 03 00 63 00 01 74 14\")", error))
        return false;
    std::string text;
    for (const std::string &a : g.args)
        text += a + " ";
    return parseHexBytes(text, c.bytes, error);
}

bool prepareSniff(const Given &g, SniffCommand &c, std::string &error)
{
    if (!require(g.args.empty(),
            "usage: sniff --port DEVICE [--link TEXT] [--count N] [--duration S] [--log FILE]", error)
        || !require(
            bool(g.o.session.port), "sniff listens on a serial line: give it with --port DEVICE", error))
        return false;
    c.count = g.o.count ? *g.o.count : 0;
    c.durationS = g.o.duration ? *g.o.duration : 0;
    c.log = g.o.log;
    if (g.o.command.timeout)
        c.replyWindowMs = *g.o.command.timeout;
    return true;
}

bool prepareShell(const Given &g, ShellCommand &, std::string &error)
{
    return require(!g.batchLine, "a batch cannot start a shell", error)
        && require(g.args.empty(), "usage: shell (commands typed one per line, on one link)", error);
}

bool prepareTrace(const Given &g, TraceCommand &c, std::string &error)
{
    if (!require(
            g.args.size() == 1 && (g.args[0] == "on" || g.args[0] == "off"), "usage: trace on|off", error))
        return false;
    c.on = g.args[0] == "on";
    return true;
}

bool prepareFault(const Given &g, FaultCommand &c, std::string &error)
{
    return require(g.args.size() == 1, "usage: fault KIND[:KEY=VALUE,...]", error)
        && FaultRule::parse(g.args[0], c.rule, error);
}

// The first option given that the action does not take, or nullptr.
const char *misplacedParamsOption(const ParamsRequest &r)
{
    if (r.group && r.action != "backup")
        return "--group";
    if ((r.yes || r.keepGoing) && r.action != "restore")
        return r.yes ? "--yes" : "--keep-going";
    if (r.out && r.action != "import")
        return "--out";
    return nullptr;
}

bool paramsArgumentsFit(const std::string &command, const ParamsRequest &r)
{
    const size_t n = r.files.size();
    if (command == "map")
        return (r.action == "check" || r.action == "import") && n == 1;
    return ((r.action == "backup" || r.action == "restore") && n == 1)
        || (r.action == "compare" && (n == 1 || n == 2));
}

// params ACTION FILE... or map ACTION FILE, with the options of its action.
bool prepareRequest(const Given &g, const std::string &command, ParamsRequest &r, std::string &error)
{
    r.action = g.args.empty() ? std::string() : g.args[0];
    if (!g.args.empty())
        r.files.assign(g.args.begin() + 1, g.args.end());
    r.group = g.o.group;
    r.out = g.o.out;
    r.yes = g.o.yes;
    r.keepGoing = g.o.keepGoing;
    if (!paramsArgumentsFit(command, r)) {
        error = command == "params" ? "usage: params backup FILE [--group G] | params compare FILE [FILE2] | "
                                      "params restore FILE [--yes] [--keep-going]"
                                    : "usage: map check FILE | map import FILE [--out FILE]";
        return false;
    }
    if (const char *misplaced = misplacedParamsOption(r)) {
        error = std::string("option ") + misplaced + " does not apply to " + command + " " + r.action;
        return false;
    }
    return true;
}

bool prepareParams(const Given &g, ParamsCommand &c, std::string &error)
{
    return prepareRequest(g, "params", c.request, error);
}

bool prepareMap(const Given &g, MapCommand &c, std::string &error)
{
    return prepareRequest(g, "map", c.request, error);
}

// Where a command may stand: on the command line, on a line of a batch or
// the shell, or both.
enum Place : unsigned { CommandLine = 1, Line = 2 };

using Prepare = bool (*)(const Given &, Command &, std::string &error);

// Prepares a command of kind K with prepare.
template <typename K, bool (*prepare)(const Given &, K &, std::string &)>
bool prepareAs(const Given &g, Command &c, std::string &error)
{
    K k;
    if (!prepare(g, k, error))
        return false;
    c.kind = std::move(k);
    return true;
}

struct CommandRow
{
    const char *name;
    unsigned places; // Place
    unsigned accepts; // OptionGroup
    Prepare prepare;
    // For shell completion: "address" (the first argument is one),
    // "addresses" (every argument), "file" (the first), or "" or nullptr
    // (nothing to offer).
    const char *arguments;
};

template <typename K, bool (*prepare)(const Given &, K &, std::string &)>
constexpr CommandRow row(unsigned places, unsigned accepts, const char *arguments)
{
    return { K::name, places, accepts, prepareAs<K, prepare>, arguments };
}

const CommandRow commands[] = {
    row<InfoCommand, prepareInfo>(CommandLine | Line, 0, ""),
    row<ReadCommand, prepareRead>(CommandLine | Line, TypeOption | CountOption | FormatOption, "address"),
    row<WriteCommand, prepareWrite>(CommandLine | Line, TypeOption | CountOption | FormatOption, "address"),
    row<PollCommand, preparePoll>(CommandLine | Line, PollOptions | RunOptions | FormatOption, "addresses"),
    row<ScanCommand, prepareScan>(CommandLine | Line, ScanOptions, ""),
    row<DoctorCommand, prepareDoctor>(CommandLine, 0, ""),
    row<BatchCommand, prepareBatch>(CommandLine, 0, "file"),
    row<ShellCommand, prepareShell>(CommandLine, 0, ""),
    row<DecodeCommand, prepareDecode>(CommandLine | Line, 0, ""),
    row<TraceCommand, prepareTrace>(Line, 0, ""),
    row<FaultCommand, prepareFault>(Line, 0, ""),
    row<ParamsCommand, prepareParams>(CommandLine | Line, ParamsOptions, ""),
    row<MapCommand, prepareMap>(CommandLine | Line, ParamsOptions, ""),
    row<SniffCommand, prepareSniff>(CommandLine, CountOption | RunOptions, ""),
};

} // namespace

bool prepareCommand(
    const CliOptions &o, bool batchLine, Command &c, std::string &error, const ParameterMap *map)
{
    c = Command();
    c.options = o.command;
    if (o.arguments.empty()) {
        error = "no command given";
        return false;
    }
    const std::string &name = o.arguments[0];
    for (const CommandRow &row : commands) {
        if (name != row.name || (!(row.places & CommandLine) && !batchLine))
            continue;
        if (const char *refused = refusedOption(o, row.accepts)) {
            error = std::string("option ") + refused + " does not apply to " + name;
            return false;
        }
        const std::vector<std::string> args(o.arguments.begin() + 1, o.arguments.end());
        return row.prepare(Given { args, o, batchLine, map }, c, error);
    }
    std::vector<std::string> known;
    for (const CommandRow &row : commands)
        if (row.places & (batchLine ? Line : CommandLine))
            known.push_back(row.name);
    error = "unknown command \"" + name + "\" (";
    for (size_t i = 0; i < known.size(); ++i)
        error += known[i] + (i + 2 < known.size() ? ", " : i + 2 == known.size() ? " or " : ")");
    return false;
}

namespace {

// The arguments a shell line's command takes ("address", "addresses",
// "file" or ""), from the command table.
std::string lineCommandArguments(const std::string &command)
{
    const CommandRow *row = nullptr;
    for (const CommandRow &r : commands)
        if (command == r.name && (r.places & Line))
            row = &r;
    return row && row->arguments ? row->arguments : "";
}

// Every word that may stand where the shell is completing, before it is
// matched against what is typed.
std::vector<std::string> shellCandidates(
    const std::vector<std::string> &before, const std::string &word, const std::vector<std::string> &names)
{
    const std::string command = before.empty() ? std::string() : before[0];
    const std::string previous = before.empty() ? std::string() : before.back();
    // What the option before the word takes, and what the command's
    // arguments are: from the option and command tables.
    const std::string values = lineOptionValues(previous);
    const std::string arguments = lineCommandArguments(command);
    if (values.compare(0, 6, "words ") == 0)
        return splitFields(values.substr(6), ' ');
    if (word.compare(0, 1, "-") == 0)
        return lineOptionNames(); // options may stand before the command too
    if (before.empty()) {
        std::vector<std::string> candidates;
        for (const CommandRow &r : commands)
            if (r.places & Line)
                candidates.push_back(r.name);
        candidates.insert(candidates.end(), { "help", "quit", "exit" });
        return candidates;
    }
    if (command == "trace" && before.size() == 1)
        return { "on", "off" };
    if (!values.empty() && values != "address")
        return {}; // a file or a text: nothing to offer
    if (values == "address" || arguments == "addresses" || (arguments == "address" && before.size() == 1)) {
        std::vector<std::string> candidates = addressPrefixes();
        candidates.insert(candidates.end(), names.begin(), names.end());
        return candidates;
    }
    return {};
}

} // namespace

std::vector<std::string> completeShellWord(
    const std::vector<std::string> &before, const std::string &word, const std::vector<std::string> &names)
{
    const std::string upperWord = upperCase(word);
    std::vector<std::string> matches;
    for (const std::string &c : shellCandidates(before, word, names)) {
        const bool address = std::isupper(static_cast<unsigned char>(c[0])) != 0;
        const std::string &typed = address ? upperWord : word;
        // A word order ("int32:CDAB") once its colon is typed.
        const bool shown = c.find(':') == std::string::npos || word.find(':') != std::string::npos;
        if (shown && c.compare(0, typed.size(), typed) == 0)
            matches.push_back(c);
    }
    return matches;
}

std::string commandCompletionList()
{
    std::string list;
    for (const CommandRow &row : commands)
        if (row.places & CommandLine)
            list += std::string("command ") + row.name
                + (row.arguments && *row.arguments ? std::string(" ") + row.arguments : std::string()) + "\n";
    return list;
}

std::vector<std::pair<std::string, std::vector<std::string>>> lineCommandOptions()
{
    std::vector<std::pair<std::string, std::vector<std::string>>> list;
    for (const CommandRow &row : commands) {
        if (!(row.places & Line))
            continue;
        list.emplace_back(row.name, std::vector<std::string>());
        for (const GroupedOption &g : groupedOptions)
            if (row.accepts & g.group)
                list.back().second.push_back(g.name);
    }
    return list;
}
