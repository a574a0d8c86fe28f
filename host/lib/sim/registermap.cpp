#include "registermap.h"

#include "formattedio.h"
#include "parammap.h"
#include "textutil.h"

#include <algorithm>
#include <cctype>
#include <sstream>

namespace {

// Whether two motion entries can both apply to one station.
bool sameStations(const MotionEntry &a, const MotionEntry &b)
{
    return a.station == 0 || b.station == 0 || a.station == b.station;
}

int registersOf(const MotionEntry &e) { return e.quantity == MotionQuantity::Position ? 2 : 1; }

// Checks the address (addressText as written) that binds e's quantity and
// sets e's area and address.
bool motionAddress(
    const std::string &addressText, const AddressText &address, MotionEntry &e, std::string &error)
{
    const std::string quantity = motionQuantityName(e.quantity);
    if (address.bit >= 0 || address.prefix.compare(0, 2, "FN") == 0) {
        error = "use plain HR, IR, DO or DI addresses in a map, not \"" + addressText + "\"";
        return false;
    }
    const bool position = e.quantity == MotionQuantity::Position;
    if (position && !address.swap) {
        error = "the position takes two registers: write its address as " + address.prefix
            + std::to_string(address.number) + "SW";
        return false;
    }
    if (!position && address.swap) {
        error = "only the position takes two registers, not " + quantity;
        return false;
    }
    if (position && (!address.isRegister() || address.wireNumber() > 65534)) {
        error = "the position needs two registers at " + addressText;
        return false;
    }
    e.area = address.area;
    e.address = address.wireNumber();
    return true;
}

// Checks e against the bindings before it: one register per quantity and
// station, and no register bound twice.
bool motionUnbound(const MotionEntry &e, const std::vector<MotionEntry> &earlier,
    const std::string &addressText, std::string &error)
{
    for (const MotionEntry &o : earlier) {
        if (!sameStations(e, o))
            continue;
        const std::string there = " (line " + std::to_string(o.line) + ")";
        if (o.quantity == e.quantity) {
            error = std::string("motion ") + motionQuantityName(e.quantity)
                + " is bound twice for the same station" + there;
            return false;
        }
        if (o.area == e.area && e.address < o.address + registersOf(o)
            && o.address < e.address + registersOf(e)) {
            error = addressText + " is already bound to motion " + motionQuantityName(o.quantity) + there;
            return false;
        }
    }
    return true;
}

// "motion QUANTITY ADDRESS [NAME]", checked against the motion lines before it.
bool parseMotionLine(
    std::istringstream &words, MotionEntry &e, const std::vector<MotionEntry> &earlier, std::string &error)
{
    std::string quantity, addressText;
    if (!(words >> quantity >> addressText)) {
        error = "expected \"motion QUANTITY ADDRESS [NAME]\"";
        return false;
    }
    if (!motionQuantityFromName(quantity, e.quantity)) {
        error = "unknown motion quantity \"" + quantity + "\" (" + motionQuantityNames() + ")";
        return false;
    }
    AddressText address;
    if (!AddressText::parse(addressText, address, error) || !motionAddress(addressText, address, e, error))
        return false;
    std::getline(words, e.name);
    e.name = trimmed(e.name);
    return motionUnbound(e, earlier, addressText, error);
}

// Every station with motion lines needs a speed command to follow.
bool checkMotion(const std::vector<MotionEntry> &motion, std::string &error)
{
    for (const MotionEntry &e : motion) {
        bool commanded = false;
        for (const MotionEntry &o : motion)
            commanded = commanded
                || (o.quantity == MotionQuantity::SpeedCommand && (o.station == 0 || o.station == e.station));
        if (!commanded) {
            error = "line " + std::to_string(e.line) + ": the motion lines of "
                + (e.station ? "station " + std::to_string(e.station) : std::string("every station"))
                + " bind no speed-command register";
            return false;
        }
    }
    return true;
}

// A map's lines read one after another: the entries and motion lines so
// far, and the station that the lines name.
struct MapReader
{
    std::vector<MapEntry> entries;
    std::vector<MotionEntry> motion;
    int station = 0;
    int lineNumber = 0;

    // The next line; false with one sentence (without its line number).
    bool readLine(const std::string &lineText, std::string &error);
    bool readMotion(std::istringstream &words, std::string &error);
    bool readStation(const std::string &second, const std::string &name, std::string &error);
    bool readValue(
        const std::string &first, const std::string &second, const std::string &name, std::string &error);
    // The entries for value at address (first and second as written).
    bool addValue(const AddressText &address, MapEntry e, long long value, const std::string &first,
        const std::string &second, std::string &error);
};

bool MapReader::readLine(const std::string &lineText, std::string &error)
{
    std::istringstream words(lineText);
    std::string first, second;
    if (!(words >> first) || first[0] == '#')
        return true;
    if (first == "motion")
        return readMotion(words, error);
    if (!(words >> second)) {
        error = "expected ADDRESS VALUE [NAME] or \"station N|all\"";
        return false;
    }
    std::string name;
    std::getline(words, name);
    name = trimmed(name);
    if (first == "station")
        return readStation(second, name, error);
    return readValue(first, second, name, error);
}

bool MapReader::readMotion(std::istringstream &words, std::string &error)
{
    MotionEntry e;
    e.station = station;
    e.line = lineNumber;
    if (!parseMotionLine(words, e, motion, error))
        return false;
    motion.push_back(e);
    return true;
}

bool MapReader::readStation(const std::string &second, const std::string &name, std::string &error)
{
    long long n = 0;
    if (second == "all")
        station = 0;
    else if (parseInteger(second, n) && n >= 1 && n <= 247 && name.empty())
        station = int(n);
    else {
        error = "a station is a number from 1 to 247, or \"all\"";
        return false;
    }
    return true;
}

bool MapReader::readValue(
    const std::string &first, const std::string &second, const std::string &name, std::string &error)
{
    AddressText address;
    if (!AddressText::parse(first, address, error))
        return false;
    if (address.bit >= 0 || address.prefix.compare(0, 2, "FN") == 0) {
        error = "use plain HR, IR, DO or DI addresses in a map, not \"" + first + "\"";
        return false;
    }
    long long value = 0;
    if (!parseInteger(second, value)) {
        error = "\"" + second + "\" is not a number";
        return false;
    }
    MapEntry e;
    e.station = station;
    e.area = address.area;
    e.address = address.wireNumber();
    e.name = name;
    e.line = lineNumber;
    e.written = value;
    return addValue(address, e, value, first, second, error);
}

bool MapReader::addValue(const AddressText &address, MapEntry e, long long value, const std::string &first,
    const std::string &second, std::string &error)
{
    if (!address.isRegister()) {
        if (value != 0 && value != 1) {
            error = "a coil or discrete input holds 0 or 1, not " + second;
            return false;
        }
        e.value = uint16_t(value);
        entries.push_back(e);
    } else if (address.swap) {
        if (value < -2147483648LL || value > 4294967295LL || e.address > 65534) {
            error = second + " does not fit in two registers at " + first;
            return false;
        }
        const uint32_t v = uint32_t(value);
        e.value = uint16_t(v >> 16);
        entries.push_back(e);
        e.address += 1;
        e.value = uint16_t(v & 0xFFFF);
        entries.push_back(e);
    } else {
        if (value < -32768 || value > 65535) {
            error = second + " does not fit in a register (-32768 to 65535)";
            return false;
        }
        e.value = uint16_t(value);
        entries.push_back(e);
    }
    return true;
}

// ---------------------------------------------------------------- parameter maps

// The station of a row: its station column, empty for every station.
bool stationOf(const Parameter &p, int &station, std::string &error)
{
    station = 0;
    const auto it = p.backup.find("station");
    const std::string text = it == p.backup.end() ? std::string() : trimmed(it->second);
    if (text.empty() || parseWholeNumber(text, 1, 247, station))
        return true;
    error = "a station is a number from 1 to 247 (empty: every station), not \"" + text + "\"";
    return false;
}

// The registers (or the bit) that hold the row's default, as a write of it
// would fill them.
bool defaultRegisters(const Parameter &p, std::vector<uint16_t> &words, std::string &error)
{
    Parameter writable = p; // the initial value of a read-only one too
    writable.access = ParamAccess::ReadWrite;
    std::string raw;
    if (!rawFromEngineering(writable, p.defaultText, raw, error))
        return false;
    const Tag &t = p.tag;
    if (t.format) {
        const bool text = t.format->number == NumberFormat::String;
        return registersFromTexts(
            { raw }, *t.format, text ? std::optional<int>(t.count) : std::nullopt, words, error);
    }
    uint32_t v = 0;
    if (!parseValue(raw, t.type, v, error))
        return false;
    const uint16_t high = uint16_t(v >> 16), low = uint16_t(v & 0xFFFF);
    if (t.type == ValueType::DWord)
        words = t.address.swap ? std::vector<uint16_t> { high, low } : std::vector<uint16_t> { low, high };
    else
        words = { low };
    return true;
}

bool addDefault(const Parameter &p, int station, std::vector<MapEntry> &entries, std::string &error)
{
    std::vector<uint16_t> words;
    if (!defaultRegisters(p, words, error))
        return false;
    const AddressText &a = p.tag.address;
    if (a.wireNumber() + int(words.size()) > 65536) {
        error = "its default runs past the last register";
        return false;
    }
    MapEntry e;
    e.station = station;
    e.area = a.area;
    e.bit = a.isRegister() ? a.bit : -1;
    e.name = p.name;
    e.line = p.line;
    for (size_t i = 0; i < words.size(); ++i) {
        e.address = a.wireNumber() + int(i);
        e.value = words[i];
        entries.push_back(e);
    }
    return true;
}

// The row's motion column, checked against the bindings before it.
bool addMotion(const Parameter &p, int station, std::vector<MotionEntry> &motion, std::string &error)
{
    MotionEntry e;
    e.station = station;
    e.name = p.name;
    e.line = p.line;
    const std::string addressText = p.tag.address.text();
    if (!motionQuantityFromName(p.motion, e.quantity)) {
        error = "unknown motion quantity \"" + p.motion + "\" (" + motionQuantityNames() + ")";
        return false;
    }
    if (!motionAddress(addressText, p.tag.address, e, error))
        return false;
    const ValueFormat *f = p.tag.format ? &*p.tag.format : nullptr;
    if (f && (f->number == NumberFormat::String || f->registersPerValue() != registersOf(e))) {
        error = std::string("motion ") + p.motion + " takes "
            + (registersOf(e) == 1 ? "one register" : "two registers") + ", not the format " + f->text();
        return false;
    }
    if (!motionUnbound(e, motion, addressText, error))
        return false;
    motion.push_back(e);
    return true;
}

bool readParameterMap(const std::string &text, std::vector<MapEntry> &entries,
    std::vector<MotionEntry> &motion, std::string &error)
{
    ParameterMap map;
    if (!parseParameterMap(text, map, error))
        return false;
    for (const Parameter &p : map.parameters) {
        int station = 0;
        if (!stationOf(p, station, error)
            || (!p.defaultText.empty() && !addDefault(p, station, entries, error))
            || (!p.motion.empty() && !addMotion(p, station, motion, error))) {
            error = "line " + std::to_string(p.line) + " (" + p.name + "): " + error;
            return false;
        }
    }
    return true;
}

bool readTextMap(const std::string &text, std::vector<MapEntry> &entries, std::vector<MotionEntry> &motion,
    std::string &error)
{
    MapReader reader;
    std::istringstream in(text);
    std::string lineText;
    while (std::getline(in, lineText)) {
        ++reader.lineNumber;
        if (!reader.readLine(lineText, error)) {
            error = "line " + std::to_string(reader.lineNumber) + ": " + error;
            return false;
        }
    }
    entries.swap(reader.entries);
    motion.swap(reader.motion);
    return true;
}

} // namespace

bool isParameterMapText(const std::string &text)
{
    std::istringstream in(text.compare(0, 3, "\xEF\xBB\xBF") == 0 ? text.substr(3) : text);
    std::string line;
    while (std::getline(in, line)) {
        line = trimmed(line);
        if (line.empty() || line[0] == '#' || line.compare(0, 2, "\"#") == 0)
            continue;
        const size_t end = line.find_first_of(",;");
        if (end == std::string::npos)
            return false;
        std::string first = trimmed(line.substr(0, end));
        if (first.size() >= 2 && first.front() == '"' && first.back() == '"')
            first = first.substr(1, first.size() - 2);
        return !first.empty() && std::all_of(first.begin(), first.end(), [](char c) {
            return std::isalpha((unsigned char)c) != 0;
        });
    }
    return false;
}

bool parseRegisterMap(const std::string &text, std::vector<MapEntry> &entries, std::string &error,
    std::vector<MotionEntry> *motion)
{
    std::vector<MapEntry> readEntries;
    std::vector<MotionEntry> readMotion;
    const bool read = isParameterMapText(text) ? readParameterMap(text, readEntries, readMotion, error)
                                               : readTextMap(text, readEntries, readMotion, error);
    if (!read || !checkMotion(readMotion, error))
        return false;
    entries.swap(readEntries);
    if (motion)
        motion->swap(readMotion);
    return true;
}
