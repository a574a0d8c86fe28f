#include "tagvalues.h"

#include "textfile.h"
#include "textutil.h"

#include <cstdio>
#include <sstream>

namespace {

struct ShowAsRow
{
    ShowAs format;
    const char *name;
};

const ShowAsRow showAsRows[] = {
    { ShowAs::Unsigned, "unsigned" },
    { ShowAs::Signed, "signed" },
    { ShowAs::Hex, "hex" },
    { ShowAs::Binary, "binary" },
};

int bitsOf(ValueType type)
{
    switch (type) {
    case ValueType::Bit:
        return 1;
    case ValueType::Byte:
        return 8;
    case ValueType::Word:
        return 16;
    case ValueType::DWord:
        return 32;
    }
    return 16;
}

std::vector<std::string> words(const std::string &text)
{
    std::istringstream in(text);
    std::vector<std::string> out;
    for (std::string w; in >> w;)
        out.push_back(w);
    return out;
}

} // namespace

const char *showAsName(ShowAs format)
{
    for (const ShowAsRow &r : showAsRows)
        if (r.format == format)
            return r.name;
    return "unsigned";
}

bool parseShowAs(const std::string &text, ShowAs &format)
{
    const std::string t = lowerCase(text);
    for (const ShowAsRow &r : showAsRows)
        if (t == r.name) {
            format = r.format;
            return true;
        }
    return false;
}

const std::vector<ShowAs> &allShowAs()
{
    static const std::vector<ShowAs> all { ShowAs::Unsigned, ShowAs::Signed, ShowAs::Hex, ShowAs::Binary };
    return all;
}

std::string showValue(uint32_t value, ValueType type, ShowAs format)
{
    const int bits = bitsOf(type);
    char text[48];
    switch (format) {
    case ShowAs::Signed:
        return std::to_string(signedValue(value, type));
    case ShowAs::Hex:
        std::snprintf(text, sizeof text, "0x%0*X", (bits + 3) / 4, value);
        return text;
    case ShowAs::Binary: {
        std::string out = "0b";
        for (int b = bits - 1; b >= 0; --b)
            out += (value >> b) & 1 ? '1' : '0';
        return out;
    }
    case ShowAs::Unsigned:
        break;
    }
    return std::to_string(value);
}

double plotValue(uint32_t value, ValueType type, ShowAs format)
{
    return format == ShowAs::Signed ? double(signedValue(value, type)) : double(value);
}

bool parseWriteValues(
    const std::string &text, const MonitorTag &tag, std::vector<uint32_t> &values, std::string &error)
{
    const std::vector<std::string> typed = words(text);
    if (typed.size() != size_t(tag.tag.count)) {
        error = tag.tag.text + " takes " + std::to_string(tag.tag.count) + " value"
            + (tag.tag.count == 1 ? "" : "s") + ", separated by spaces";
        return false;
    }
    std::vector<uint32_t> parsed;
    for (const std::string &w : typed) {
        uint32_t v = 0;
        // Binary as shown: 0b0101.
        if (w.size() > 2 && lowerCase(w.substr(0, 2)) == "0b"
            && w.find_first_not_of("01", 2) == std::string::npos
            && w.size() - 2 <= size_t(bitsOf(tag.tag.type))) {
            for (size_t i = 2; i < w.size(); ++i)
                v = (v << 1) | uint32_t(w[i] == '1');
        } else if (!parseValue(w, tag.tag.type, v, error)) {
            return false;
        }
        parsed.push_back(v);
    }
    values = parsed;
    return true;
}

bool parseMonitorTag(const std::string &line, MonitorTag &tag, std::string &error)
{
    const std::vector<std::string> fields = words(line);
    if (fields.empty()) {
        error = "no tag given";
        return false;
    }
    MonitorTag t;
    if (!parseTag(fields[0], t.tag, error))
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
        } else if (key == "format") {
            if (!parseShowAs(value, t.format)) {
                error = "unknown format \"" + value + "\" (unsigned, signed, hex or binary)";
                return false;
            }
        } else if (key == "trend") {
            if (value != "on" && value != "off") {
                error = "trend is on or off, not \"" + value + "\"";
                return false;
            }
            t.trend = value == "on";
        } else {
            error = "unknown field \"" + f + "\" (station=N, format=F, trend=on|off)";
            return false;
        }
    }
    tag = t;
    return true;
}

std::string monitorTagLine(const MonitorTag &t)
{
    std::string line = t.tag.text;
    if (t.station)
        line += " station=" + std::to_string(t.station);
    if (t.format != ShowAs::Unsigned)
        line += std::string(" format=") + showAsName(t.format);
    if (!t.trend)
        line += " trend=off";
    return line;
}

bool parseTagList(const std::string &text, std::vector<MonitorTag> &tags, std::string &error)
{
    std::vector<MonitorTag> out;
    const std::vector<std::string> lines = splitFields(text, '\n');
    for (size_t i = 0; i < lines.size(); ++i) {
        const std::string line = trimmed(lines[i]);
        if (line.empty() || line[0] == '#')
            continue;
        MonitorTag t;
        if (!parseMonitorTag(line, t, error)) {
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
    std::string text = "# teco-monitor tags: TAG [station=N] [format=F] [trend=on|off]\n";
    for (const MonitorTag &t : tags)
        text += monitorTagLine(t) + "\n";
    return text;
}

bool loadTagList(const std::string &path, std::vector<MonitorTag> &tags, std::string &error)
{
    std::string text;
    if (!readTextFile(path, userTextFileLimit, text, error)) {
        error = "cannot read " + path + ": " + error;
        return false;
    }
    if (!parseTagList(text, tags, error)) {
        error = path + ", " + error;
        return false;
    }
    return true;
}

bool saveTagList(const std::string &path, const std::vector<MonitorTag> &tags, std::string &error)
{
    FILE *f = createTextFile(path, error);
    if (!f) {
        error = "cannot write " + path + ": " + error;
        return false;
    }
    const std::string text = tagListText(tags);
    const bool good = std::fwrite(text.data(), 1, text.size(), f) == text.size();
    if (std::fclose(f) != 0 || !good) {
        error = "cannot write " + path + ": the disk refused the data";
        return false;
    }
    return true;
}
