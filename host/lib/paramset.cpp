#include "paramset.h"

#include "decimal.h"
#include "driversession.h"
#include "readplan.h"
#include "samplelog.h"
#include "textutil.h"

#include <algorithm>
#include <cstdlib>

std::vector<ParamRead> planReads(const std::vector<const Parameter *> &params)
{
    std::vector<const Parameter *> readable;
    std::vector<Tag> tags;
    for (const Parameter *p : params) {
        if (!p->readable())
            continue;
        readable.push_back(p);
        tags.push_back(p->tag);
    }
    std::vector<ParamRead> reads;
    for (const PlannedRead &planned : planReads(tags, anyReadGap)) {
        ParamRead read { planned.tag, {} };
        for (size_t i : planned.members)
            read.params.push_back(readable[i]);
        reads.push_back(read);
    }
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
        const FormattedResult mine = memberResult(read.tag, p->tag, r);
        if (!mine.ok || mine.values.empty()) {
            out.push_back(readAlone(session, p));
            continue;
        }
        ParamReading reading;
        reading.param = p;
        reading.answeredMs = mine.answeredMs;
        settle(reading, mine.values.front());
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
