#include "tagvalues.h"

#include "formattedio.h"
#include "parammap.h"
#include "textfile.h"
#include "textutil.h"

#include <QString>

#include <cstdio>
#include <sstream>

namespace {

std::vector<std::string> words(const std::string &text)
{
    std::istringstream in(text);
    std::vector<std::string> out;
    for (std::string w; in >> w;)
        out.push_back(w);
    return out;
}

bool isString(const Tag &tag) { return tag.format && tag.format->number == NumberFormat::String; }

} // namespace

bool trendable(const Tag &tag) { return !isString(tag); }

bool takesFormat(const Tag &tag) { return tag.address.isRegister() && tag.address.bit < 0; }

const std::vector<std::string> &formatChoices()
{
    static const std::vector<std::string> all { "", "int16", "uint16", "hex", "binary", "int32", "uint32",
        "float32", "float64", "string" };
    return all;
}

bool setTagFormat(Tag &tag, const std::string &format, std::string &error)
{
    Tag t = tag;
    const std::string name = trimmed(format);
    if (name.empty() && !t.format)
        return true; // no format before and none now: the tag keeps its type
    std::string text = t.address.text();
    if (name.empty()) {
        t.format.reset();
        t.type = defaultType(t.address);
    } else {
        ValueFormat f;
        int registers = 0;
        if (!takesFormat(t)) {
            error = "formats apply to whole registers, not to " + t.address.text();
            return false;
        }
        if (!ValueFormat::parse(name, f, error) || !settleFormat(t.address, f, error)
            || !formattedRegisterCount(t.address, f, t.count, registers, error))
            return false;
        t.format = f;
        t.type = ValueType::Word;
        text += ":" + f.text();
    }
    if (t.count > 1)
        text += ":" + std::to_string(t.count);
    t.text = text;
    tag = t;
    return true;
}

bool parseWriteValues(const std::string &text, const Tag &tag, std::vector<uint32_t> &out, std::string &error)
{
    std::vector<std::string> typed { trimmed(text) };
    if (!isString(tag)) {
        typed = words(text);
        if (typed.size() != size_t(tag.count)) {
            error = tag.text + " takes " + std::to_string(tag.count) + " value" + (tag.count == 1 ? "" : "s")
                + ", separated by spaces";
            return false;
        }
    }
    Tag t = tag;
    TagWrite write;
    if (!prepareWrite(t, typed, isString(tag) ? std::optional<int>(tag.count) : std::nullopt, write, error))
        return false;
    if (tag.format)
        out.assign(write.registers.begin(), write.registers.end());
    else
        out = write.values;
    return true;
}

bool plotValue(const Tag &tag, const std::string &shown, double &value)
{
    if (isString(tag) || shown.empty())
        return false;
    const QString text = QString::fromStdString(shown);
    bool ok = false;
    if (text.startsWith("0x"))
        value = double(text.mid(2).toULongLong(&ok, 16));
    else if (text.startsWith("0b"))
        value = double(text.mid(2).toULongLong(&ok, 2));
    else
        value = text.toDouble(&ok);
    return ok;
}

bool parseMonitorTag(const std::string &line, MonitorTag &tag, std::string &error, const ParameterMap *map)
{
    const std::vector<std::string> fields = words(line);
    if (fields.empty()) {
        error = "no tag given";
        return false;
    }
    MonitorTag t;
    if (!resolveTag(fields[0], map, t.tag, t.param, error))
        return false;
    for (size_t i = 1; i < fields.size(); ++i) {
        const std::string &f = fields[i];
        const size_t eq = f.find('=');
        const std::string key = eq == std::string::npos ? f : f.substr(0, eq);
        const std::string value = eq == std::string::npos ? std::string() : f.substr(eq + 1);
        if (key == "station") {
            if (!parseWholeNumber(value, 0, 247, t.station)) {
                error = "bad station \"" + value + "\" (0 for the connection's, or 1 to 247)";
                return false;
            }
        } else if (key == "trend") {
            if (value != "on" && value != "off") {
                error = "trend is on or off, not \"" + value + "\"";
                return false;
            }
            t.trend = value == "on";
        } else if (f == "alarm") {
            t.alarm = true;
        } else {
            error = "unknown field \"" + f + "\" (station=N, trend=on|off or alarm)";
            return false;
        }
    }
    t.trend = t.trend && trendable(t.tag);
    tag = t;
    return true;
}

std::string monitorTagLine(const MonitorTag &t)
{
    std::string line = t.param ? t.param->name : t.tag.text;
    if (t.station)
        line += " station=" + std::to_string(t.station);
    if (!t.trend && trendable(t.tag))
        line += " trend=off";
    if (t.alarm)
        line += " alarm";
    return line;
}

bool parseTagList(
    const std::string &text, std::vector<MonitorTag> &tags, std::string &error, const ParameterMap *map)
{
    std::vector<MonitorTag> out;
    const std::vector<std::string> lines = splitFields(text, '\n');
    for (size_t i = 0; i < lines.size(); ++i) {
        const std::string line = trimmed(lines[i]);
        if (line.empty() || line[0] == '#')
            continue;
        MonitorTag t;
        if (!parseMonitorTag(line, t, error, map)) {
            error = "line " + std::to_string(i + 1) + ": " + error;
            return false;
        }
        out.push_back(t);
    }
    tags = out;
    return true;
}

std::string tagListText(const std::vector<MonitorTag> &tags)
{
    std::string text
        = "# teco-monitor tags: ADDRESS[:TYPE|FORMAT][:COUNT] or NAME [station=N] [trend=on|off] [alarm]\n";
    for (const MonitorTag &t : tags)
        text += monitorTagLine(t) + "\n";
    return text;
}

bool loadTagList(
    const std::string &path, std::vector<MonitorTag> &tags, std::string &error, const ParameterMap *map)
{
    std::string text;
    if (!readTextFile(path, userTextFileLimit, text, error)) {
        error = "cannot read " + path + ": " + error;
        return false;
    }
    if (!parseTagList(text, tags, error, map)) {
        error = path + ", " + error;
        return false;
    }
    return true;
}

bool saveTagList(const std::string &path, const std::vector<MonitorTag> &tags, std::string &error)
{
    return saveTextFile(path, tagListText(tags), error);
}

bool saveTextFile(const std::string &path, const std::string &text, std::string &error)
{
    FILE *f = createTextFile(path, error);
    if (!f) {
        error = "cannot write " + path + ": " + error;
        return false;
    }
    const bool good = std::fwrite(text.data(), 1, text.size(), f) == text.size();
    if (std::fclose(f) != 0 || !good) {
        error = "cannot write " + path + ": the disk refused the data";
        return false;
    }
    return true;
}
