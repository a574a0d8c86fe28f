#include "command.h"

#include "faultrule.h"
#include "seriallink.h"
#include "textutil.h"

#include <algorithm>
#include <cctype>
#include <functional>

namespace {

bool typeAndCount(const std::string &text, Tag &tag, const std::optional<std::string> &typeName,
    std::optional<int> count, std::string &error)
{
    if (!AddressText::parse(text, tag.address, error))
        return false;
    tag.text = tag.address.text();
    tag.type = defaultType(tag.address);
    if (typeName && !parseValueType(*typeName, tag.type)) {
        error = "unknown data type \"" + *typeName + "\" (bit, byte, word or dword)";
        return false;
    }
    if (!typeFits(tag.address, tag.type, error))
        return false;
    tag.count = count ? *count : 1;
    return true;
}

} // namespace

bool parseTag(const std::string &text, Tag &tag, std::string &error)
{
    const std::vector<std::string> parts = splitFields(text, ':');
    if (parts.size() > 3) {
        error = "bad tag \"" + text + "\" (ADDRESS[:TYPE][:COUNT], such as HR100:word:2)";
        return false;
    }
    std::optional<std::string> type;
    std::optional<int> count;
    for (size_t i = 1; i < parts.size(); ++i) {
        const std::string &p = parts[i];
        int n = 0;
        if (!count && !p.empty() && p.find_first_not_of("0123456789") == std::string::npos) {
            if (!parseWholeNumber(p, 1, 65535, n)) {
                error = "bad count in tag \"" + text + "\" (1 to 65535)";
                return false;
            }
            count = n;
        } else if (i == 1 && !type) {
            type = p;
        } else {
            error = "bad tag \"" + text + "\" (ADDRESS[:TYPE][:COUNT], such as HR100:word:2)";
            return false;
        }
    }
    if (!typeAndCount(parts[0], tag, type, count, error))
        return false;
    tag.text = text;
    return true;
}

namespace {

// The options that only some commands take, in groups.
enum OptionGroup : unsigned { TypeOption = 1, CountOption = 2, PollOptions = 4, ScanOptions = 8 };

// The first option given of the groups that a command does not take, or nullptr.
const char *refusedOption(const CliOptions &o, unsigned accepted)
{
    if (!(accepted & TypeOption) && o.type)
        return "--type";
    if (!(accepted & CountOption) && o.count)
        return "--count";
    if (!(accepted & PollOptions) && (o.interval || o.cycles || o.duration))
        return o.interval ? "--interval" : o.cycles ? "--cycles" : "--duration";
    if (!(accepted & ScanOptions) && (o.from || o.to || o.address || o.bauds || o.parities || o.stopBits))
        return o.from    ? "--from"
            : o.to       ? "--to"
            : o.address  ? "--address"
            : o.bauds    ? "--bauds"
            : o.parities ? "--parities"
                         : "--stop-bits";
    return nullptr;
}

// What one command is prepared from: its arguments (without its name), the
// options and whether it stands on a line of a batch.
struct Given
{
    const std::vector<std::string> &args;
    const CliOptions &o;
    bool batchLine;
};

// good; otherwise false with text in error.
bool require(bool good, const char *text, std::string &error)
{
    if (!good)
        error = text;
    return good;
}

bool prepareInfo(const Given &g, Command &, std::string &error)
{
    return require(g.args.empty(), "info takes no arguments", error);
}

bool prepareRead(const Given &g, Command &c, std::string &error)
{
    return require(g.args.size() == 1, "usage: read ADDRESS [--type bit|byte|word|dword] [--count N]", error)
        && typeAndCount(g.args[0], c.target, g.o.type, g.o.count, error);
}

bool prepareWrite(const Given &g, Command &c, std::string &error)
{
    if (!require(g.args.size() >= 2, "usage: write ADDRESS VALUE... [--type bit|byte|word|dword]", error)
        || !typeAndCount(g.args[0], c.target, g.o.type, std::nullopt, error))
        return false;
    for (size_t i = 1; i < g.args.size(); ++i) {
        uint32_t v = 0;
        if (!parseValue(g.args[i], c.target.type, v, error))
            return false;
        c.values.push_back(v);
    }
    if (!require(c.values.size() <= 2008, "too many values for one write", error))
        return false;
    c.target.count = int(c.values.size());
    return true;
}

bool preparePoll(const Given &g, Command &c, std::string &error)
{
    if (!require(!g.args.empty(), "usage: poll TAG... [--interval MS] [--cycles N] [--duration S]", error))
        return false;
    for (const std::string &a : g.args) {
        Tag t;
        if (!parseTag(a, t, error))
            return false;
        c.tags.push_back(t);
    }
    c.intervalMs = g.o.interval ? *g.o.interval : 1000;
    c.cycles = g.o.cycles ? *g.o.cycles : 0;
    c.durationS = g.o.duration ? *g.o.duration : 0;
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

bool lineSettingsToTry(const CliOptions &o, Command &c, std::string &error)
{
    const std::function<bool(const std::string &, int &)> baud = [](const std::string &t, int &rate) {
        return parseWholeNumber(t, 1, 921600, rate) && LinkSettings::supportedBaudRate(rate);
    };
    const std::function<bool(const std::string &, char &)> parity = [](const std::string &t, char &p) {
        const std::string u = upperCase(t);
        p = u == "N" || u == "NONE" ? 'N' : u == "E" || u == "EVEN" ? 'E' : u == "O" || u == "ODD" ? 'O' : 0;
        return p != 0;
    };
    const std::function<bool(const std::string &, int &)> stop
        = [](const std::string &t, int &bits) { return parseWholeNumber(t, 1, 2, bits); };
    return settingsList(
               o.bauds, "--bauds", "baud rates such as 9600,19200 (300 to 921600)", baud, c.bauds, error)
        && settingsList(
            o.parities, "--parities", "parities such as N,E (N, E or O)", parity, c.parities, error)
        && settingsList(o.stopBits, "--stop-bits", "stop bits such as 1,2", stop, c.stopBits, error);
}

bool prepareScan(const Given &g, Command &c, std::string &error)
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
    Tag probe;
    if (!require(c.from >= 1 && c.to <= 247 && c.from <= c.to, "scan needs 1 <= --from <= --to <= 247", error)
        || !typeAndCount(g.o.address ? *g.o.address : "HR1", probe, std::nullopt, std::nullopt, error))
        return false;
    c.probe = probe.address;
    return require(probe.address.bit < 0 && !probe.address.swap,
        "scan probes with one word or bit read: give a plain address such as HR1 or DI1", error);
}

bool prepareBatch(const Given &g, Command &c, std::string &error)
{
    if (!require(!g.batchLine, "a batch cannot start another batch", error)
        || !require(g.args.size() <= 1,
            "usage: batch [FILE] (commands one per line; standard input without FILE)", error))
        return false;
    c.argument = g.args.empty() ? "-" : g.args[0];
    return true;
}

bool prepareShell(const Given &g, Command &, std::string &error)
{
    return require(!g.batchLine, "a batch cannot start a shell", error)
        && require(g.args.empty(), "usage: shell (commands typed one per line, on one link)", error);
}

bool prepareTrace(const Given &g, Command &c, std::string &error)
{
    if (!require(
            g.args.size() == 1 && (g.args[0] == "on" || g.args[0] == "off"), "usage: trace on|off", error))
        return false;
    c.argument = g.args[0];
    return true;
}

bool prepareFault(const Given &g, Command &c, std::string &error)
{
    FaultRule rule;
    if (!require(g.args.size() == 1, "usage: fault KIND[:KEY=VALUE,...]", error)
        || !FaultRule::parse(g.args[0], rule, error))
        return false;
    c.argument = g.args[0];
    return true;
}

// Where a command may stand: on the command line, on a line of a batch or
// the shell, or both.
enum Place : unsigned { CommandLine = 1, Line = 2 };

struct CommandRow
{
    const char *name;
    unsigned places; // Place
    unsigned accepts; // OptionGroup
    bool (*prepare)(const Given &, Command &, std::string &error);
};

const CommandRow commands[] = {
    { "info", CommandLine | Line, 0, prepareInfo },
    { "read", CommandLine | Line, TypeOption | CountOption, prepareRead },
    { "write", CommandLine | Line, TypeOption, prepareWrite },
    { "poll", CommandLine | Line, PollOptions, preparePoll },
    { "scan", CommandLine | Line, ScanOptions, prepareScan },
    { "batch", CommandLine, 0, prepareBatch },
    { "shell", CommandLine, 0, prepareShell },
    { "trace", Line, 0, prepareTrace },
    { "fault", Line, 0, prepareFault },
};

} // namespace

bool prepareCommand(const CliOptions &o, bool batchLine, Command &c, std::string &error)
{
    c = Command();
    c.options = o;
    if (o.arguments.empty()) {
        error = "no command given";
        return false;
    }
    c.name = o.arguments[0];
    for (const CommandRow &row : commands) {
        if (c.name != row.name || (!(row.places & CommandLine) && !batchLine))
            continue;
        if (const char *refused = refusedOption(o, row.accepts)) {
            error = std::string("option ") + refused + " does not apply to " + c.name;
            return false;
        }
        const std::vector<std::string> args(o.arguments.begin() + 1, o.arguments.end());
        return row.prepare(Given { args, o, batchLine }, c, error);
    }
    std::vector<std::string> known;
    for (const CommandRow &row : commands)
        if (row.places & (batchLine ? Line : CommandLine))
            known.push_back(row.name);
    error = "unknown command \"" + c.name + "\" (";
    for (size_t i = 0; i < known.size(); ++i)
        error += known[i] + (i + 2 < known.size() ? ", " : i + 2 == known.size() ? " or " : ")");
    return false;
}

std::vector<std::string> completeShellWord(const std::vector<std::string> &before, const std::string &word)
{
    std::vector<std::string> candidates;
    const std::string command = before.empty() ? std::string() : before[0];
    const std::string previous = before.empty() ? std::string() : before.back();
    if (before.empty()) {
        for (const CommandRow &row : commands)
            if (row.places & Line)
                candidates.push_back(row.name);
        candidates.insert(candidates.end(), { "help", "quit", "exit" });
    } else if (previous == "--type") {
        for (ValueType t : { ValueType::Bit, ValueType::Byte, ValueType::Word, ValueType::DWord })
            candidates.push_back(valueTypeName(t));
    } else if (word.compare(0, 1, "-") == 0) {
        candidates = lineOptionNames();
    } else if (command == "trace" && before.size() == 1) {
        candidates = { "on", "off" };
    } else if (previous == "--address"
        || ((command == "read" || command == "write" || command == "poll")
            && (command == "poll" || before.size() == 1))) {
        candidates = addressPrefixes();
    }
    const std::string upperWord = upperCase(word);
    std::vector<std::string> matches;
    for (const std::string &c : candidates) {
        const bool address = std::isupper(static_cast<unsigned char>(c[0])) != 0;
        const std::string &typed = address ? upperWord : word;
        if (c.compare(0, typed.size(), typed) == 0)
            matches.push_back(c);
    }
    return matches;
}
