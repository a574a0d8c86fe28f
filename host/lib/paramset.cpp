#include "paramset.h"

#include "decimal.h"
#include "driversession.h"
#include "samplelog.h"
#include "textutil.h"

#include <algorithm>
#include <cstdlib>

namespace {

// The registers (or bits) a parameter takes from its first one on.
int paramSpan(const Parameter &p)
{
    const Tag &t = p.tag;
    if (!t.address.isRegister() || t.address.bit >= 0)
        return 1;
    if (t.format) {
        int registers = 1;
        std::string ignored;
        return formattedRegisterCount(t.address, *t.format, t.count, registers, ignored) ? registers : 1;
    }
    return t.type == ValueType::DWord ? 2 * t.count : t.count;
}

// Whether a parameter may share a read: registers and bits of the drive;
// not the driver's own window, nor a byte read, nor one that does not fit.
bool joinable(const Parameter &p)
{
    std::string ignored;
    const Tag &t = p.tag;
    if (!t.format && t.type == ValueType::Byte)
        return false;
    if (t.address.area == Area::HoldingRegisters && t.address.number + paramSpan(p) - 1 >= driverWindowFirst
        && t.address.number <= driverWindowLast)
        return false;
    return tagFitsDriver(t, false, ignored);
}

// A block of one area from first to last (registers or bits).
struct ReadBlock
{
    Area area = Area::HoldingRegisters;
    int first = 0, last = 0;
    std::vector<const Parameter *> params;
};

// Whether p can join block: the same area, within the driver's read limit,
// and not reaching over the driver's window.
bool extends(const ReadBlock &b, const Parameter &p)
{
    const AddressText &a = p.tag.address;
    if (a.area != b.area)
        return false;
    const int last = std::max(b.last, a.number + paramSpan(p) - 1);
    const long long limit = a.isRegister() ? driverMaxReadRegisters : driverMaxReadBits;
    if (last - b.first + 1 > limit)
        return false;
    const bool crossesWindow
        = a.area == Area::HoldingRegisters && b.first < driverWindowFirst && last >= driverWindowFirst;
    return !crossesWindow;
}

ParamRead readOfBlock(const ReadBlock &b)
{
    ParamRead r;
    if (b.params.size() == 1) {
        r.tag = b.params.front()->tag;
    } else {
        AddressText &a = r.tag.address;
        a.area = b.area;
        a.prefix = areaPrefix(b.area);
        a.number = b.first;
        r.tag.type = a.isRegister() ? ValueType::Word : ValueType::Bit;
        r.tag.count = b.last - b.first + 1;
        r.tag.text = a.text();
    }
    r.params = b.params;
    return r;
}

bool byAddress(const Parameter *x, const Parameter *y)
{
    const AddressText &a = x->tag.address, &b = y->tag.address;
    if (a.area != b.area)
        return a.area < b.area;
    return a.number < b.number;
}

} // namespace

std::vector<ParamRead> planReads(const std::vector<const Parameter *> &params)
{
    std::vector<const Parameter *> sorted;
    std::vector<ParamRead> reads;
    for (const Parameter *p : params) {
        if (!p->readable())
            continue;
        if (joinable(*p))
            sorted.push_back(p);
        else
            reads.push_back(ParamRead { p->tag, { p } });
    }
    std::stable_sort(sorted.begin(), sorted.end(), byAddress);
    ReadBlock block;
    for (const Parameter *p : sorted) {
        if (!block.params.empty() && extends(block, *p)) {
            block.last = std::max(block.last, p->tag.address.number + paramSpan(*p) - 1);
            block.params.push_back(p);
            continue;
        }
        if (!block.params.empty())
            reads.push_back(readOfBlock(block));
        block = ReadBlock { p->tag.address.area, p->tag.address.number,
            p->tag.address.number + paramSpan(*p) - 1, { p } };
    }
    if (!block.params.empty())
        reads.push_back(readOfBlock(block));
    return reads;
}

namespace {

// Sets the link's station for the life of the object.
class StationScope
{
public:
    StationScope(DriverSession &session, int station)
        : options(session.link().options())
        , saved(options.station)
    {
        options.station = station;
    }
    ~StationScope() { options.station = saved; }
    StationScope(const StationScope &) = delete;
    StationScope &operator=(const StationScope &) = delete;

private:
    LinkOptions &options;
    int saved;
};

// A parameter's raw text (as readAsTexts shows it) from the values of a
// joined read that began at first.
bool rawFromBlock(
    const Parameter &p, const std::vector<Element> &values, int first, std::string &raw, std::string &error)
{
    const Tag &t = p.tag;
    const size_t at = size_t(t.address.number - first);
    if (at + size_t(paramSpan(p)) > values.size()) {
        error = "the read of " + t.address.text() + " ended early";
        return false;
    }
    if (!t.address.isRegister()) {
        raw = std::to_string(values[at].value);
        return true;
    }
    if (t.address.bit >= 0) {
        raw = std::to_string((values[at].value >> t.address.bit) & 1);
        return true;
    }
    if (t.format) {
        std::vector<uint16_t> words;
        for (int i = 0; i < paramSpan(p); ++i)
            words.push_back(uint16_t(values[at + size_t(i)].value));
        std::vector<std::string> texts;
        if (!formatRegisters(words, *t.format, texts, error))
            return false;
        raw = texts.empty() ? std::string() : texts.front();
        return true;
    }
    uint32_t v = values[at].value;
    if (t.type == ValueType::DWord) {
        const uint32_t next = values[at + 1].value;
        v = t.address.swap ? (v << 16) | next : (next << 16) | v;
    }
    raw = std::to_string(v);
    return true;
}

// A reading from a raw text: its engineering value as a backup stores it
// (a raw value its value list lacks as the plain number), or why it has none.
void settle(ParamReading &reading, const std::string &raw)
{
    reading.raw = raw;
    reading.ok = storedValue(*reading.param, raw, reading.value, reading.error);
}

ParamReading readAlone(DriverSession &session, const Parameter *p)
{
    ParamReading reading;
    reading.param = p;
    const FormattedResult r = session.readTag(p->tag);
    reading.answeredMs = r.answeredMs;
    if (!r.ok || r.values.empty()) {
        reading.error = r.errorText.empty() ? "no value read" : r.errorText;
        return reading;
    }
    settle(reading, r.values.front());
    return reading;
}

// The readings of one planned read; a joined read that fails is read again
// one parameter at a time.
std::vector<ParamReading> readPlanned(DriverSession &session, const ParamRead &read)
{
    std::vector<ParamReading> out;
    if (read.params.size() == 1) {
        out.push_back(readAlone(session, read.params.front()));
        return out;
    }
    const DriverHost::Result r
        = session.host().read(session.link(), read.tag.address, read.tag.type, read.tag.count);
    for (const Parameter *p : read.params) {
        ParamReading reading;
        reading.param = p;
        std::string raw;
        if (!r.ok || !rawFromBlock(*p, r.elements, read.tag.address.number, raw, reading.error)) {
            out.push_back(readAlone(session, p));
            continue;
        }
        reading.answeredMs = r.answeredMs;
        settle(reading, raw);
        out.push_back(reading);
    }
    return out;
}

} // namespace

std::vector<ParamReading> readParameters(
    DriverSession &session, int station, const std::vector<const Parameter *> &params)
{
    StationScope scope(session, station);
    std::vector<ParamReading> byRead;
    for (const ParamRead &read : planReads(params)) {
        std::vector<ParamReading> some = readPlanned(session, read);
        byRead.insert(byRead.end(), some.begin(), some.end());
    }
    std::vector<ParamReading> out;
    for (const Parameter *p : params) {
        auto found
            = std::find_if(byRead.begin(), byRead.end(), [p](const ParamReading &r) { return r.param == p; });
        if (found != byRead.end()) {
            out.push_back(*found);
            continue;
        }
        ParamReading unread;
        unread.param = p;
        unread.error = p->name + " is write-only";
        out.push_back(unread);
    }
    return out;
}

namespace {

const ParamReading *readingOf(const std::vector<ParamReading> &readings, const std::string &name)
{
    const std::string key = lowerCase(name);
    for (const ParamReading &r : readings)
        if (r.param && lowerCase(r.param->name) == key)
            return &r;
    return nullptr;
}

// A backup's value of a parameter; nullptr without one.
const std::string *fileValue(const Parameter &p)
{
    auto it = p.backup.find("value");
    return it == p.backup.end() || it->second.empty() ? nullptr : &it->second;
}

// Two engineering values are the same: the same text, or the same number
// written differently ("1500" and "1500.0").
bool sameValue(const std::string &a, const std::string &b)
{
    if (a == b)
        return true;
    if (a.empty() || b.empty())
        return false;
    // Exactly, as decimals; numbers of more digits than a decimal holds as
    // doubles.
    Decimal x, y;
    if (Decimal::parse(a, x, true) && Decimal::parse(b, y, true))
        return compare(x, y) == 0;
    char *endA = nullptr, *endB = nullptr;
    const double dx = std::strtod(a.c_str(), &endA), dy = std::strtod(b.c_str(), &endB);
    return *endA == '\0' && *endB == '\0' && dx == dy;
}

} // namespace

ParameterMap backupMap(const ParameterMap &map, const std::vector<ParamReading> &readings, int station,
    const std::string &driverVersion)
{
    ParameterMap out = map;
    for (Parameter &p : out.parameters) {
        p.backup.clear();
        const ParamReading *r = readingOf(readings, p.name);
        if (!r || !r->ok)
            continue;
        p.backup["value"] = r->value;
        p.backup["station"] = std::to_string(station);
        p.backup["time"] = isoTime(r->answeredMs);
        p.backup["driver"] = driverVersion;
    }
    return out;
}

namespace {

std::string shapeText(const Tag &t)
{
    return t.format ? t.format->text() + (t.count > 1 ? " x" + std::to_string(t.count) : "") : "no format";
}

// The first way a backup's row differs from the map's parameter; "" for none.
std::string rowDifference(const Parameter &row, const Parameter &m)
{
    const std::string name = "\"" + row.name + "\"";
    if (row.tag.address.text() != m.tag.address.text() || row.tag.type != m.tag.type)
        return name + " is " + row.tag.address.text() + " there but " + m.tag.address.text() + " in the map";
    if (shapeText(row.tag) != shapeText(m.tag))
        return name + " has format " + shapeText(row.tag) + " there but " + shapeText(m.tag) + " in the map";
    if (row.scale != m.scale)
        return name + " has scale " + row.scaleText + " there but " + m.scaleText + " in the map";
    if (row.offset != m.offset)
        return name + " has offset " + row.offsetText + " there but " + m.offsetText + " in the map";
    return std::string();
}

} // namespace

bool bindToMap(ParameterMap &file, const ParameterMap &map, std::string &error)
{
    for (Parameter &row : file.parameters) {
        const Parameter *m = map.find(row.name);
        const std::string difference
            = m ? rowDifference(row, *m) : "\"" + row.name + "\" is not in " + map.described();
        if (!difference.empty()) {
            error = file.path + " line " + std::to_string(row.line) + ": " + difference;
            return false;
        }
        Parameter bound = *m;
        bound.backup = row.backup;
        bound.line = row.line;
        row = bound;
    }
    return true;
}

std::vector<ParamDifference> compareWithFile(const std::vector<ParamReading> &drive, const ParameterMap &file)
{
    std::vector<ParamDifference> out;
    for (const Parameter &p : file.parameters) {
        if (!p.writable() || !p.readable())
            continue; // a measurement or a command, not a setting
        const ParamReading *r = readingOf(drive, p.name);
        const std::string *v = fileValue(p);
        const std::string left = r && r->ok ? r->value : "-", right = v ? *v : "-";
        if ((!r || !r->ok) && !v)
            continue;
        if (!sameValue(left, right) || left == "-" || right == "-")
            out.push_back(ParamDifference { &p, left, right });
    }
    return out;
}

std::vector<ParamDifference> compareFiles(const ParameterMap &first, const ParameterMap &second)
{
    std::vector<ParamReading> asReadings;
    for (const Parameter &p : first.parameters) {
        ParamReading r;
        r.param = &p;
        if (const std::string *v = fileValue(p)) {
            r.ok = true;
            r.value = *v;
        }
        asReadings.push_back(r);
    }
    std::vector<ParamDifference> out = compareWithFile(asReadings, second);
    // A setting with a value in the first file only differs as well.
    for (const Parameter &p : first.parameters)
        if (p.writable() && p.readable() && fileValue(p) && !second.find(p.name))
            out.push_back(ParamDifference { &p, *fileValue(p), "-" });
    return out;
}

bool planRestore(const std::vector<ParamReading> &drive, const ParameterMap &file,
    std::vector<ParamWrite> &writes, std::string &error)
{
    writes.clear();
    for (const Parameter &p : file.parameters) {
        const std::string *v = fileValue(p);
        if (!v || !p.readable() || !p.writable())
            continue;
        const ParamReading *r = readingOf(drive, p.name);
        const std::string from = r && r->ok ? r->value : "-";
        if (r && r->ok && sameValue(from, *v))
            continue;
        ParamWrite w { &p, from, *v, std::string() };
        if (!rawFromEngineering(p, *v, w.raw, error)) {
            error = file.path + " line " + std::to_string(p.line) + ": " + error;
            return false;
        }
        writes.push_back(w);
    }
    return true;
}

namespace {

// The tag and the values a write of raw sends (for a format: its registers).
bool writeValues(
    const Parameter &p, const std::string &raw, Tag &tag, std::vector<uint32_t> &values, std::string &error)
{
    tag = p.tag;
    TagWrite w;
    std::optional<int> pad;
    if (tag.format && tag.format->number == NumberFormat::String)
        pad = p.tag.count;
    if (!prepareWrite(tag, { raw }, pad, w, error))
        return false;
    values = tag.format ? std::vector<uint32_t>(w.registers.begin(), w.registers.end()) : w.values;
    return true;
}

RestoreOutcome writeOne(DriverSession &session, const ParamWrite &w)
{
    RestoreOutcome o;
    o.param = w.param;
    Tag tag;
    std::vector<uint32_t> values;
    if (!writeValues(*w.param, w.raw, tag, values, o.error))
        return o;
    const DriverHost::Result r = session.writeTag(tag, values);
    o.written = r.ok;
    if (!r.ok)
        o.error = r.errorText;
    return o;
}

// Whether the raw text read back holds what was written: the same values
// (or registers) going out for both.
bool holds(const Parameter &p, const std::string &written, const std::string &readBack)
{
    Tag a, b;
    std::vector<uint32_t> x, y;
    std::string ignored;
    return writeValues(p, written, a, x, ignored) && writeValues(p, readBack, b, y, ignored) && x == y;
}

void checkReadBack(
    DriverSession &session, const std::vector<ParamWrite> &writes, std::vector<RestoreOutcome> &outcomes)
{
    std::vector<const Parameter *> written;
    for (const RestoreOutcome &o : outcomes)
        if (o.written)
            written.push_back(o.param);
    const std::vector<ParamReading> back = readParameters(session, session.link().options().station, written);
    for (RestoreOutcome &o : outcomes) {
        auto r = std::find_if(
            back.begin(), back.end(), [&o](const ParamReading &x) { return x.param == o.param; });
        auto w = std::find_if(
            writes.begin(), writes.end(), [&o](const ParamWrite &x) { return x.param == o.param; });
        if (!o.written || r == back.end())
            continue;
        o.readBack = r->ok ? r->value : std::string();
        o.holds = r->ok && holds(*o.param, w->raw, r->raw);
        if (!r->ok)
            o.error = r->error;
    }
}

} // namespace

std::vector<RestoreOutcome> restoreParameters(DriverSession &session, int station,
    const std::vector<ParamWrite> &writes, bool keepGoing,
    const std::function<void(const RestoreOutcome &)> &progress)
{
    StationScope scope(session, station);
    std::vector<RestoreOutcome> outcomes;
    for (const ParamWrite &w : writes) {
        outcomes.push_back(writeOne(session, w));
        if (progress)
            progress(outcomes.back());
        if (!outcomes.back().written && !keepGoing)
            break;
    }
    checkReadBack(session, writes, outcomes);
    return outcomes;
}
