#include "optiontable.h"

#include "tcpline.h"

#include "seriallink.h"
#include "textutil.h"

namespace {

OptionTable::Row row(const char *name, OptionTable::Kind kind, int scope,
    std::function<bool(const std::string &, int, std::string &)> set)
{
    OptionTable::Row r;
    r.name = name;
    r.kind = kind;
    r.scope = scope;
    r.set = std::move(set);
    return r;
}

// One word of a command line that begins with "--": the name, and the value
// when given as "--name=value".
struct OptionWord
{
    std::string name;
    std::optional<std::string> value;
};

OptionWord optionWord(const std::string &arg)
{
    OptionWord w;
    w.name = arg.substr(2);
    const size_t eq = w.name.find('=');
    if (eq != std::string::npos) {
        w.value = w.name.substr(eq + 1);
        w.name.erase(eq);
    }
    return w;
}

// A word with one leading '-' that is a value, not an option: a negative
// number ("-5", "-0x10", "-.5", "-1e3") or an infinite or undefined float.
bool isNegativeValue(const std::string &arg)
{
    if (arg.size() < 2 || arg[0] != '-')
        return false;
    const unsigned char c = static_cast<unsigned char>(arg[1]);
    const std::string rest = lowerCase(arg.substr(1));
    return (c >= '0' && c <= '9') || c == '.' || rest == "inf" || rest == "infinity" || rest == "nan";
}

} // namespace

OptionTable::Row OptionTable::flag(const char *name, bool &target, int scope)
{
    return flag(
        name, [&target] { target = true; }, scope);
}

OptionTable::Row OptionTable::flag(const char *name, std::function<void()> set, int scope)
{
    return row(name, Flag, scope, [set](const std::string &, int, std::string &) {
        set();
        return true;
    });
}

OptionTable::Row OptionTable::text(const char *name, std::optional<std::string> &target, int scope)
{
    return text(
        name, [&target](const std::string &value) { target = value; }, scope);
}

OptionTable::Row OptionTable::text(const char *name, std::function<void(const std::string &)> set, int scope)
{
    return row(name, Text, scope, [set](const std::string &value, int, std::string &) {
        set(value);
        return true;
    });
}

OptionTable::Row OptionTable::checked(
    const char *name, std::function<bool(const std::string &, std::string &error)> set, int scope)
{
    return row(name, Text, scope,
        [set](const std::string &value, int, std::string &error) { return set(value, error); });
}

OptionTable::Row OptionTable::integer(
    const char *name, int low, int high, std::optional<int> &target, int scope)
{
    return integer(
        name, low, high, [&target](int value) { target = value; }, scope);
}

OptionTable::Row OptionTable::integer(
    const char *name, int low, int high, std::function<void(int)> set, int scope)
{
    Row r = row(name, Integer, scope, [set](const std::string &, int number, std::string &) {
        set(number);
        return true;
    });
    r.low = low;
    r.high = high;
    return r;
}

OptionTable::Row OptionTable::Row::completing(std::string what) const
{
    Row r = *this;
    r.values = std::move(what);
    return r;
}

OptionTable::OptionTable(std::vector<Row> rows)
    : rows(std::move(rows))
{
}

const OptionTable::Row *OptionTable::find(const std::string &name) const
{
    for (const Row &r : rows)
        if (name == r.name)
            return &r;
    return nullptr;
}

std::string OptionTable::completionList() const
{
    std::string list;
    for (const Row &r : rows)
        list += std::string("option --") + r.name + " "
            + (r.kind == Flag           ? "flag"
                    : r.kind == Integer ? "number"
                                        : r.values)
            + "\n";
    return list;
}

namespace {

// A word that is no option: kept in arguments where the program takes any,
// else refused with one sentence.
bool takeArgument(const std::string &arg, std::vector<std::string> *arguments, std::string &error)
{
    if (arg.size() > 1 && arg[0] == '-' && arg != "--" && !isNegativeValue(arg)) {
        error = "unknown option " + arg + " (options begin with \"--\")";
        return false;
    }
    if (!arguments) {
        error = "unknown argument " + arg;
        return false;
    }
    arguments->push_back(arg);
    return true;
}

// The value of option w: none for a flag; for any other option the one
// given with "=", else the next word (i moves past it).
bool takeValue(const OptionTable::Row &r, OptionWord &w, const std::vector<std::string> &args, size_t &i,
    std::string &error)
{
    if (r.kind == OptionTable::Flag && w.value) {
        error = "option --" + w.name + " takes no value";
        return false;
    }
    if (r.kind != OptionTable::Flag && !w.value) {
        if (i + 1 >= args.size()) {
            error = "option --" + w.name + " needs a value";
            return false;
        }
        w.value = args[++i];
    }
    return true;
}

// Checks the value of option w against its row and hands it on.
bool setOption(const OptionTable::Row &r, const OptionWord &w, std::string &error)
{
    const std::string value = w.value ? *w.value : std::string();
    if (r.values == "file" && value.empty()) {
        error = "option --" + w.name + " needs a file name, not an empty word";
        return false;
    }
    int number = 0;
    if (r.kind == OptionTable::Integer && !parseWholeNumber(value, r.low, r.high, number)) {
        error = "option --" + w.name + " takes a number from " + std::to_string(r.low) + " to "
            + std::to_string(r.high) + ", not \"" + value + "\"";
        return false;
    }
    return r.set(value, number, error);
}

} // namespace

bool OptionTable::parse(const std::vector<std::string> &args, std::vector<std::string> *arguments,
    std::string &error, const Refusal &refuse) const
{
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string &arg = args[i];
        const bool isOption = arg == "-h" || (arg.size() > 2 && arg.compare(0, 2, "--") == 0);
        if (!isOption) {
            if (!takeArgument(arg, arguments, error))
                return false;
            continue;
        }
        OptionWord w = optionWord(arg == "-h" ? std::string("--help") : arg);
        const Row *r = find(w.name);
        if (!r) {
            error = "unknown option --" + w.name;
            return false;
        }
        const std::string refusal = refuse ? refuse(*r) : std::string();
        if (!refusal.empty()) {
            error = refusal;
            return false;
        }
        if (!takeValue(*r, w, args, i, error) || !setOption(*r, w, error))
            return false;
    }
    return true;
}

bool parseRtuLink(const std::string &text, LinkSettings &settings, std::string &error)
{
    LinkSettings parsed;
    if (!LinkSettings::parse(text, parsed, error))
        return false;
    if (parsed.dataBits != 8) {
        error = "Modbus RTU needs 8 data bits; the link \"" + text + "\" has 7";
        return false;
    }
    settings = parsed;
    return true;
}

bool checkDeviceOption(const char *option, const std::string &path, std::string &error)
{
    if (path.empty()) {
        error = std::string("option --") + option + " takes a device such as /dev/ttyUSB0, not an empty text";
        return false;
    }
    return checkTcpDevice(path, error);
}
