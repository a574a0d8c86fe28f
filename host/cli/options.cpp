#include "options.h"

#include <cctype>
#include <cerrno>
#include <cstdlib>

namespace {

bool integer(const std::string &text, long low, long high, int &out)
{
    if (text.empty() || text.size() > 10 || text.find_first_not_of("0123456789") != std::string::npos)
        return false;
    const long long v = std::strtoll(text.c_str(), nullptr, 10);
    if (v < low || v > high)
        return false;
    out = int(v);
    return true;
}

enum Scope { Session, Command };

struct OptionInfo
{
    const char *name;
    bool takesValue;
    Scope scope;
};

const OptionInfo optionTable[] = {
    { "plugin", true, Session },
    { "port", true, Session },
    { "link", true, Session },
    { "trace", true, Session },
    { "no-silence", false, Session },
    { "rs485", false, Session },
    { "local-echo", false, Session },
    { "sim-fault", true, Session },
    { "sim-map", true, Session },
    { "sim-stations", true, Session },
    { "help", false, Session },

    { "station", true, Command },
    { "timeout", true, Command },
    { "retry", true, Command },
    { "delay", true, Command },
    { "late-guard", true, Command },
    { "json", false, Command },
    { "type", true, Command },
    { "count", true, Command },
    { "interval", true, Command },
    { "cycles", true, Command },
    { "duration", true, Command },
    { "from", true, Command },
    { "to", true, Command },
    { "address", true, Command },
};

} // namespace

bool parseCliArguments(
    const std::vector<std::string> &args, CliOptions &o, bool batchLine, std::string &error)
{
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string &arg = args[i];
        if (arg == "-h") {
            o.help = true;
            continue;
        }
        if (arg.size() < 3 || arg.compare(0, 2, "--") != 0) {
            o.arguments.push_back(arg);
            continue;
        }
        std::string name = arg.substr(2), value;
        bool hasValue = false;
        const size_t eq = name.find('=');
        if (eq != std::string::npos) {
            value = name.substr(eq + 1);
            name = name.substr(0, eq);
            hasValue = true;
        }
        const OptionInfo *option = nullptr;
        for (const OptionInfo &s : optionTable)
            if (name == s.name)
                option = &s;
        if (!option) {
            error = "unknown option --" + name;
            return false;
        }
        if (batchLine && option->scope == Session) {
            error = "option --" + name + " belongs on the command line, before the batch";
            return false;
        }
        if (option->takesValue && !hasValue) {
            if (i + 1 >= args.size()) {
                error = "option --" + name + " needs a value";
                return false;
            }
            value = args[++i];
        } else if (!option->takesValue && hasValue) {
            error = "option --" + name + " takes no value";
            return false;
        }
        int number = 0;
        auto needNumber = [&](long low, long high, std::optional<int> &target) {
            if (!integer(value, low, high, number)) {
                error = "option --" + name + " takes a number from " + std::to_string(low) + " to "
                    + std::to_string(high) + ", not \"" + value + "\"";
                return false;
            }
            target = number;
            return true;
        };
        if (name == "plugin")
            o.plugin = value;
        else if (name == "port")
            o.port = value;
        else if (name == "link")
            o.link = value;
        else if (name == "trace")
            o.trace = value;
        else if (name == "no-silence")
            o.noSilence = true;
        else if (name == "rs485")
            o.rs485 = true;
        else if (name == "local-echo")
            o.localEcho = true;
        else if (name == "sim-fault")
            o.simFaults.push_back(value);
        else if (name == "sim-map")
            o.simMap = value;
        else if (name == "sim-stations")
            o.simStations = value;
        else if (name == "help")
            o.help = true;
        else if (name == "json")
            o.json = true;
        else if (name == "type")
            o.type = value;
        else if (name == "address")
            o.address = value;
        else if (name == "station" && !needNumber(0, 255, o.station))
            return false;
        else if (name == "timeout" && !needNumber(1, 600000, o.timeout))
            return false;
        else if (name == "retry" && !needNumber(0, 100, o.retry))
            return false;
        else if (name == "delay" && !needNumber(0, 600000, o.delay))
            return false;
        else if (name == "late-guard" && !needNumber(0, 600000, o.lateGuard))
            return false;
        else if (name == "count" && !needNumber(1, 65535, o.count))
            return false;
        else if (name == "interval" && !needNumber(0, 3600000, o.interval))
            return false;
        else if (name == "cycles" && !needNumber(1, 1000000000, o.cycles))
            return false;
        else if (name == "from" && !needNumber(0, 255, o.from))
            return false;
        else if (name == "to" && !needNumber(0, 255, o.to))
            return false;
        else if (name == "duration") {
            char *end = nullptr;
            errno = 0;
            const double d = std::strtod(value.c_str(), &end);
            if (value.empty() || errno || !end || *end || !(d > 0.0) || d > 1e6
                || !std::isdigit(static_cast<unsigned char>(value[0]))) {
                error = "option --duration takes seconds, such as 10 or 2.5, not \"" + value + "\"";
                return false;
            }
            o.duration = d;
        }
    }
    return true;
}

bool checkCommandOptions(const std::string &command, const CliOptions &o, std::string &error)
{
    struct Allowed
    {
        const char *name;
        bool type, count, poll, scan;
    };
    static const Allowed table[] = {
        { "info", false, false, false, false },
        { "read", true, true, false, false },
        { "write", true, false, false, false },
        { "poll", false, false, true, false },
        { "scan", false, false, false, true },
        { "batch", false, false, false, false },
    };
    for (const Allowed &a : table) {
        if (command != a.name)
            continue;
        const char *refused = nullptr;
        if (!a.type && o.type)
            refused = "--type";
        else if (!a.count && o.count)
            refused = "--count";
        else if (!a.poll && (o.interval || o.cycles || o.duration))
            refused = o.interval ? "--interval" : o.cycles ? "--cycles" : "--duration";
        else if (!a.scan && (o.from || o.to || o.address))
            refused = o.from ? "--from" : o.to ? "--to" : "--address";
        if (refused) {
            error = std::string("option ") + refused + " does not apply to " + command;
            return false;
        }
        return true;
    }
    error = "unknown command \"" + command + "\" (info, read, write, poll, scan or batch)";
    return false;
}

bool splitWords(const std::string &line, std::vector<std::string> &words, std::string &error)
{
    words.clear();
    std::string word;
    bool inWord = false, quoted = false;
    for (char c : line) {
        if (c == '"') {
            quoted = !quoted;
            inWord = true;
        } else if (!quoted && std::isspace(static_cast<unsigned char>(c))) {
            if (inWord)
                words.push_back(word);
            word.clear();
            inWord = false;
        } else {
            word += c;
            inWord = true;
        }
    }
    if (quoted) {
        error = "unterminated quote";
        return false;
    }
    if (inWord)
        words.push_back(word);
    return true;
}
