// The older text form of the simulated drive's map as a parameter map.

#include "registermap.h"

#include "parammap.h"
#include "textutil.h"

#include <algorithm>
#include <cctype>
#include <map>
#include <set>
#include <tuple>

namespace {

// One row of the converted map: a line's register (or two) at one station,
// with what the value and motion lines said of it.
struct Row
{
    int station = 0;
    Area area = Area::HoldingRegisters;
    int address = 0; // zero-based
    int words = 1;
    bool hasValue = false;
    long long written = 0;
    std::string text; // the lines' name
    std::string motion;
    int line = 0;
};

// "speed command (rpm)" as a parameter's name: "speed-command".
std::string nameFrom(const std::string &text)
{
    std::string name;
    for (char c : text.substr(0, text.find('('))) {
        const unsigned char u = (unsigned char)c;
        if (std::isalnum(u))
            name += char(std::tolower(u));
        else if (!name.empty() && name.back() != '-')
            name += '-';
    }
    while (!name.empty() && name.back() == '-')
        name.pop_back();
    return name;
}

std::string uniqueName(const std::string &base, std::set<std::string> &taken)
{
    std::string name = base;
    for (int n = 2; taken.count(name); ++n)
        name = base + "-" + std::to_string(n);
    taken.insert(name);
    return name;
}

// The rows in the order of the lines: a value line's entries (two for an
// SW address) and the motion lines, merged where they name one register.
std::vector<Row> rowsOf(const std::vector<MapEntry> &entries, const std::vector<MotionEntry> &motion)
{
    std::vector<Row> rows;
    std::map<std::tuple<int, Area, int>, size_t> at;
    for (size_t i = 0; i < entries.size(); ++i) {
        const MapEntry &e = entries[i];
        if (i > 0 && entries[i - 1].line == e.line) {
            rows.back().words = 2;
            continue;
        }
        Row r;
        std::tie(r.station, r.area, r.address, r.written, r.text, r.line)
            = std::tie(e.station, e.area, e.address, e.written, e.name, e.line);
        r.hasValue = true;
        at[{ r.station, r.area, r.address }] = rows.size();
        rows.push_back(r);
    }
    for (const MotionEntry &m : motion) {
        const auto found = at.find({ m.station, m.area, m.address });
        Row *r = found == at.end() ? nullptr : &rows[found->second];
        if (!r) {
            rows.emplace_back();
            r = &rows.back();
            std::tie(r->station, r->area, r->address, r->line)
                = std::tie(m.station, m.area, m.address, m.line);
            r->words = m.quantity == MotionQuantity::Position ? 2 : 1;
        }
        r->motion = motionQuantityName(m.quantity);
        if (r->text.empty())
            r->text = m.name;
    }
    std::stable_sort(rows.begin(), rows.end(), [](const Row &a, const Row &b) { return a.line < b.line; });
    return rows;
}

bool parameterOf(const Row &r, std::set<std::string> &taken, Parameter &p, std::string &error)
{
    const std::string address
        = areaPrefix(r.area) + std::to_string(r.address + 1) + (r.words == 2 ? "SW" : "");
    const bool negative = r.hasValue && r.written < 0;
    if (!parseTag(address + (negative ? (r.words == 2 ? ":int32" : ":int16") : ""), p.tag, error)) {
        error = "line " + std::to_string(r.line) + ": " + error;
        return false;
    }
    std::string base = nameFrom(r.text);
    if (base.empty())
        base = r.motion.empty() ? lowerCase(address) : r.motion;
    Tag asAddress;
    std::string ignored;
    if (parseTag(base, asAddress, ignored)) // a name must not read as an address
        base = "param-" + base;
    p.name = uniqueName(base, taken);
    p.description = r.text;
    p.motion = r.motion;
    if (r.area == Area::InputRegisters || r.area == Area::DiscreteInputs)
        p.access = ParamAccess::Read;
    if (r.hasValue)
        p.defaultText = std::to_string(r.written);
    if (r.station)
        p.backup["station"] = std::to_string(r.station);
    p.line = r.line;
    return true;
}

} // namespace

bool convertRegisterMap(const std::string &text, std::string &csv, std::string &error)
{
    if (isParameterMapText(text)) {
        error = "the map is a parameter map already: nothing to convert";
        return false;
    }
    std::vector<MapEntry> entries;
    std::vector<MotionEntry> motion;
    if (!parseRegisterMap(text, entries, error, &motion))
        return false;
    ParameterMap map;
    std::set<std::string> taken;
    for (const Row &r : rowsOf(entries, motion)) {
        map.parameters.emplace_back();
        if (!parameterOf(r, taken, map.parameters.back(), error))
            return false;
    }
    const std::string out = parameterMapCsv(map);
    ParameterMap check;
    if (!parseParameterMap(out, check, error)) {
        error = "the converted map does not read back: " + error;
        return false;
    }
    csv = out;
    return true;
}
