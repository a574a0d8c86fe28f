#include "faultrule.h"

#include "textutil.h"

#include <cerrno>
#include <cstdlib>
#include <vector>

namespace {

const char *const kindNames[FaultRule::KindCount]
    = { "noreply", "corrupt", "truncate", "late", "exception", "wrongstation", "noise" };
// The key that sets FaultRule::value for each kind (or nullptr), with its range.
const struct
{
    const char *key;
    int low, high;
} valueKeys[FaultRule::KindCount] = {
    { nullptr, 0, 0 }, // noreply
    { nullptr, 0, 0 }, // corrupt
    { "keep", 0, 1024 }, // truncate
    { "ms", 0, 600000 }, // late
    { "code", 1, 255 }, // exception
    { "as", 0, 255 }, // wrongstation
    { "bytes", 0, 1024 }, // noise
};

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
           "        truncate      the answer stops early (keep=N bytes; default: all but the CRC)\n"
           "        late          the answer after a pause (ms=N; default 1000)\n"
           "        exception     a Modbus exception answer (code=N; default 4)\n"
           "        wrongstation  the answer comes from another station (as=N; default the next one)\n"
           "        noise         stray bytes after the answer (bytes=N; default 4)\n"
           "  KEY   station=N     only requests to station N\n"
           "        at=ADDRESS    only requests whose range covers ADDRESS (HR200, IR5, DO3, DI1)\n"
           "        rate=P        only a share of the matching requests (0.1 or 10%)\n"
           "        times=N       only the first N matching requests\n"
           "  e.g.  noreply:station=3,times=1   late:at=HR200,ms=800   corrupt:rate=5%\n";
}

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
    std::vector<std::string> options;
    if (colon != std::string::npos)
        options = splitFields(text.substr(colon + 1), ',');
    for (const std::string &option : options) {
        const size_t eq = option.find('=');
        const std::string key = option.substr(0, eq);
        const std::string value = eq == std::string::npos ? std::string() : option.substr(eq + 1);
        bool good = eq != std::string::npos;
        if (!good) {
        } else if (key == "station") {
            good = parseWholeNumber(value, 0, 247, r.station);
        } else if (key == "at") {
            AddressText a;
            std::string ignored;
            good = AddressText::parse(value, a, ignored) && a.bit < 0;
            r.anyAddress = false;
            r.area = a.area;
            r.address = a.wireNumber();
        } else if (key == "rate") {
            good = parseRate(value, r.rate);
        } else if (key == "times") {
            good = parseWholeNumber(value, 1, 1000000000, r.times);
        } else if (valueKeys[kind].key && key == valueKeys[kind].key) {
            good = parseWholeNumber(value, valueKeys[kind].low, valueKeys[kind].high, r.value);
        } else {
            error = "fault \"" + text + "\": unknown option \"" + key + "\"";
            return false;
        }
        if (!good) {
            error = "fault \"" + text + "\": bad value in \"" + option + "\"";
            return false;
        }
    }
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
    if (value >= 0 && valueKeys[kind].key)
        add(std::string(valueKeys[kind].key) + "=" + std::to_string(value));
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
