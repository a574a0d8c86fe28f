#include "faultrule.h"

#include "textutil.h"

#include <cerrno>
#include <cstdlib>
#include <vector>

namespace {

const char *const kindNames[FaultRule::KindCount]
    = { "noreply", "corrupt", "truncate", "late", "exception", "wrongstation", "noise" };

// The keys of a rule: those of every kind, then the one that sets
// FaultRule::value for one kind, with its range and what it takes in words.
enum KeyId { Station, At, Rate, Times, Value };
const struct Key
{
    const char *name;
    KeyId id;
    int kind; // -1: every kind
    int low, high;
    const char *takes;
} keys[] = {
    { "station", Station, -1, 0, 247, "a station from 0 to 247" },
    { "at", At, -1, 0, 0, "an address without a bit (HR200, IR5, DO3 or DI1)" },
    { "rate", Rate, -1, 0, 0, "a share from 0 to 1 (0.1 or 10%)" },
    { "times", Times, -1, 1, 1000000000, "a count from 1 to 1000000000" },
    // A reply frame has at most 256 bytes; the answer always loses at least one.
    { "keep", Value, FaultRule::Truncate, 0, 255,
        "a byte count from 0 to 255 (a reply has at most 256 bytes)" },
    { "ms", Value, FaultRule::Late, 0, 600000, "milliseconds from 0 to 600000" },
    { "code", Value, FaultRule::Exception, 1, 11, "a Modbus exception code from 1 to 11" },
    { "as", Value, FaultRule::WrongStation, 0, 255, "a station number from 0 to 255" },
    { "bytes", Value, FaultRule::Noise, 0, 1024, "a byte count from 0 to 1024" },
};
const int keyCount = int(sizeof keys / sizeof keys[0]);

const Key *findKey(int kind, const std::string &name)
{
    for (const Key &k : keys)
        if ((k.kind < 0 || k.kind == kind) && name == k.name)
            return &k;
    return nullptr;
}

const Key *valueKey(int kind)
{
    for (const Key &k : keys)
        if (k.id == Value && k.kind == kind)
            return &k;
    return nullptr;
}

// "station, at, rate, times and ms": the keys that a kind takes.
std::string keysOf(int kind)
{
    std::vector<const char *> names;
    for (const Key &k : keys)
        if (k.kind < 0 || k.kind == kind)
            names.push_back(k.name);
    std::string out;
    for (size_t i = 0; i < names.size(); ++i)
        out += std::string(i == 0 ? "" : i + 1 == names.size() ? " and " : ", ") + names[i];
    return out;
}

bool parseRate(std::string s, double &rate)
{
    bool percent = !s.empty() && s.back() == '%';
    if (percent)
        s.pop_back();
    if (s.empty() || s.find_first_not_of("0123456789.") != std::string::npos)
        return false;
    char *end = nullptr;
    errno = 0;
    double v = std::strtod(s.c_str(), &end);
    if (errno || !end || *end)
        return false;
    if (percent)
        v /= 100.0;
    if (v < 0.0 || v > 1.0)
        return false;
    rate = v;
    return true;
}

} // namespace

const char *faultKindName(FaultRule::Kind kind)
{
    return kind >= 0 && kind < FaultRule::KindCount ? kindNames[kind] : "?";
}

const char *faultHelp()
{
    return "fault: KIND[:KEY=VALUE,...]\n"
           "  KIND  noreply       no answer at all (the request is lost)\n"
           "        corrupt       one byte of the answer changed\n"
           "        truncate      the answer stops early (keep=N bytes, 0 to 255; default: all but the CRC)\n"
           "        late          the answer after a pause (ms=N; default 1000)\n"
           "        exception     a Modbus exception answer (code=N, 1 to 11; default 4)\n"
           "        wrongstation  the answer comes from another station (as=N; default the next one)\n"
           "        noise         stray bytes after the answer (bytes=N; default 4)\n"
           "  KEY   station=N     only requests to station N\n"
           "        at=ADDRESS    only requests whose range covers ADDRESS (HR200, IR5, DO3, DI1)\n"
           "        rate=P        only a share of the matching requests (0.1 or 10%)\n"
           "        times=N       only the first N matching requests\n"
           "  e.g.  noreply:station=3,times=1   late:at=HR200,ms=800   corrupt:rate=5%\n";
}

namespace {

// Sets what key says in r from value; false for a value it does not take.
bool setKey(const Key &key, const std::string &value, FaultRule &r)
{
    switch (key.id) {
    case Station:
        return parseWholeNumber(value, key.low, key.high, r.station);
    case At: {
        AddressText a;
        std::string ignored;
        const bool good = AddressText::parse(value, a, ignored) && a.bit < 0;
        r.anyAddress = false;
        r.area = a.area;
        r.address = a.wireNumber();
        return good;
    }
    case Rate:
        return parseRate(value, r.rate);
    case Times:
        return parseWholeNumber(value, key.low, key.high, r.times);
    case Value:
        return parseWholeNumber(value, key.low, key.high, r.value);
    }
    return false;
}

// One KEY=VALUE of the rule named (its text quoted) into r; given marks the
// keys seen. False with one sentence.
bool readOption(
    const std::string &option, const std::string &named, bool *given, FaultRule &r, std::string &error)
{
    const int kind = r.kind;
    const size_t eq = option.find('=');
    const std::string name = option.substr(0, eq);
    if (name.empty()) {
        error = named + " has an empty key (write KIND:KEY=VALUE,...)";
        return false;
    }
    const Key *key = findKey(kind, name);
    if (!key) {
        error
            = named + ": " + kindNames[kind] + " has no key \"" + name + "\" (it takes " + keysOf(kind) + ")";
        return false;
    }
    const std::string quoted = "\"" + std::string(key->name) + "\"";
    if (given[key - keys]) {
        error = named + " gives the key " + quoted + " twice";
        return false;
    }
    given[key - keys] = true;
    const std::string value = eq == std::string::npos ? std::string() : option.substr(eq + 1);
    if (value.empty()) {
        error = named + ": the key " + quoted + " needs a value, " + key->takes;
        return false;
    }
    if (!setKey(*key, value, r)) {
        error = named + ": the key " + quoted + " takes " + key->takes + ", not \"" + value + "\"";
        return false;
    }
    return true;
}

} // namespace

bool FaultRule::parse(const std::string &text, FaultRule &rule, std::string &error)
{
    const size_t colon = text.find(':');
    const std::string kindText = text.substr(0, colon);
    FaultRule r;
    int kind = 0;
    while (kind < KindCount && kindText != kindNames[kind])
        ++kind;
    if (kind == KindCount) {
        error = "unknown fault \"" + kindText
            + "\" (noreply, corrupt, truncate, late, exception, wrongstation or noise)";
        return false;
    }
    r.kind = Kind(kind);
    const std::string named = "fault \"" + text + "\"";
    std::vector<std::string> options;
    if (colon != std::string::npos)
        options = splitFields(text.substr(colon + 1), ',');
    bool given[keyCount] = {};
    for (const std::string &option : options)
        if (!readOption(option, named, given, r, error))
            return false;
    rule = r;
    return true;
}

std::string FaultRule::text() const
{
    std::string t = faultKindName(kind);
    std::string sep = ":";
    auto add = [&](const std::string &kv) {
        t += sep + kv;
        sep = ",";
    };
    if (station >= 0)
        add("station=" + std::to_string(station));
    if (!anyAddress) {
        AddressText a;
        a.area = area;
        a.prefix = areaPrefix(area);
        a.number = address + 1;
        add("at=" + a.text());
    }
    if (rate < 1.0)
        add("rate=" + std::to_string(rate));
    if (times >= 0)
        add("times=" + std::to_string(times));
    const Key *key = valueKey(kind);
    if (value >= 0 && key)
        add(std::string(key->name) + "=" + std::to_string(value));
    return t;
}

bool FaultRule::matches(int requestStation, Area requestArea, int first, int quantity) const
{
    if (station >= 0 && station != requestStation)
        return false;
    if (anyAddress)
        return true;
    return requestArea == area && address >= first && address < first + quantity;
}
