#include "parammap.h"

#include "csvtext.h"
#include "decimal.h"
#include "formattedio.h"
#include "samplelog.h"
#include "textfile.h"
#include "textutil.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cctype>
#include <cmath>
#include <limits>
#include <cstdlib>
#include <cstring>

namespace {

// How a read shows a raw value that the parameter's value list lacks.
const char NotInTheList[] = " (not in the list)";

bool endsWith(const std::string &text, const char *end)
{
    const size_t n = std::strlen(end);
    return text.size() >= n && text.compare(text.size() - n, n, end) == 0;
}

// The columns of a map file, in the order parameterMapCsv writes them.
enum Column {
    NameColumn,
    AddressColumn,
    FormatColumn,
    ScaleColumn,
    OffsetColumn,
    UnitColumn,
    MinColumn,
    MaxColumn,
    AccessColumn,
    DefaultColumn,
    GroupColumn,
    DescriptionColumn,
    ValuesColumn,
    AlarmColumn,
    MotionColumn,
    ValueColumn,
    StationColumn,
    TimeColumn,
    DriverColumn,
    ColumnCount
};
constexpr int firstBackupColumn = ValueColumn;

const char *const columnNames[ColumnCount]
    = { "name", "address", "format", "scale", "offset", "unit", "min", "max", "access", "default", "group",
          "description", "values", "alarm", "motion", "value", "station", "time", "driver" };

std::string columnList()
{
    std::string list;
    for (int c = 0; c < ColumnCount; ++c)
        list += std::string(c ? ", " : "") + columnNames[c];
    return list;
}

std::string quoted(const std::string &text) { return "\"" + text + "\""; }

// ---- Numbers of a parameter

bool isFloatFormat(const Parameter &p)
{
    return p.tag.format
        && (p.tag.format->number == NumberFormat::Float32 || p.tag.format->number == NumberFormat::Float64);
}

// Hex, binary and string values are shown and typed as they are.
bool isNumeric(const Tag &tag) { return !tag.format || tag.format->isNumeric(); }

// What an integer register holds, as reads show it: the plain types
// unsigned (as readAsTexts gives them), the formats as they are named.
void rawRange(const Tag &tag, long long &low, long long &high)
{
    low = 0;
    high = tag.type == ValueType::Bit ? 1 : tag.type == ValueType::DWord ? 4294967295LL : 65535;
    if (!tag.format)
        return;
    switch (tag.format->number) {
    case NumberFormat::Int16:
        low = -32768;
        high = 32767;
        break;
    case NumberFormat::Int32:
        low = -2147483648LL;
        high = 2147483647LL;
        break;
    case NumberFormat::UInt32:
        high = 4294967295LL;
        break;
    default:
        high = 65535;
    }
}

struct Scaling
{
    Decimal scale, offset;
    int decimals = 0; // of the scale and offset as written
};

Scaling scalingOf(const Parameter &p)
{
    Scaling s;
    int scaleDecimals = 0, offsetDecimals = 0;
    Decimal::parse(p.scaleText, s.scale, false, 18, &scaleDecimals);
    Decimal::parse(p.offsetText, s.offset, false, 18, &offsetDecimals);
    s.decimals = std::max(scaleDecimals, offsetDecimals);
    return s;
}

// raw x scale + offset, exactly.
bool scaled(const Scaling &s, const Decimal &raw, Decimal &value)
{
    Decimal product;
    return multiply(raw, s.scale, product) && add(product, s.offset, value);
}

// The engineering values of the lowest and highest raw value, in order.
bool engineeringRange(const Parameter &p, Decimal &low, Decimal &high)
{
    long long rawLow = 0, rawHigh = 0;
    rawRange(p.tag, rawLow, rawHigh);
    const Scaling s = scalingOf(p);
    if (!scaled(s, Decimal { rawLow, 0 }, low) || !scaled(s, Decimal { rawHigh, 0 }, high))
        return false;
    if (s.scale.sign() < 0)
        std::swap(low, high);
    return true;
}

// The shortest text that gives v back.
std::string numberText(double v)
{
    char buffer[64];
    const auto r = std::to_chars(buffer, buffer + sizeof buffer, v);
    return std::string(buffer, r.ptr);
}

std::string unitSuffix(const Parameter &p) { return p.unit.empty() ? "" : " " + p.unit; }

std::string listTexts(const Parameter &p)
{
    std::string texts;
    for (const ValueText &v : p.valueTexts)
        texts += (texts.empty() ? "" : ", ") + v.text;
    return texts;
}

// ---- Typed values

bool outside(const Parameter &p, const std::string &typed, const std::string &range, std::string &error)
{
    error = p.name + " takes " + range + ": " + typed + " is outside";
    return false;
}

// The limits of the map and of the register.
// The min and max as a refusal names them: "0 to 3 A", "at least 0".
std::string limitsText(const Parameter &p)
{
    Decimal low, high;
    const bool hasMin = p.minimum && Decimal::fromDouble(*p.minimum, low);
    const bool hasMax = p.maximum && Decimal::fromDouble(*p.maximum, high);
    if (hasMin && hasMax)
        return low.text() + " to " + high.text() + unitSuffix(p);
    return (hasMin ? "at least " + low.text() : "at most " + high.text()) + unitSuffix(p);
}

bool checkRange(const Parameter &p, const Decimal &v, const std::string &typed, std::string &error)
{
    Decimal low, high, limit;
    const std::string unit = unitSuffix(p);
    const bool hasMin = p.minimum && Decimal::fromDouble(*p.minimum, low);
    const bool hasMax = p.maximum && Decimal::fromDouble(*p.maximum, high);
    if ((hasMin && compare(v, low) < 0) || (hasMax && compare(v, high) > 0))
        return outside(p, typed, limitsText(p), error);
    if (isFloatFormat(p) || !engineeringRange(p, low, high))
        return true;
    if (compare(v, low) < 0 || compare(v, high) > 0) {
        const int decimals = scalingOf(p).decimals;
        return outside(p, typed,
            low.text(decimals) + " to " + high.text(decimals) + unit + " (what " + p.tag.address.text()
                + " holds)",
            error);
    }
    return true;
}

// A number typed for a float register, which holds its engineering value
// itself: the text typed, when finite, within min and max and its format.
bool floatRaw(const Parameter &p, const std::string &typed, std::string &raw, std::string &error)
{
    const std::string text = trimmed(typed);
    std::vector<uint16_t> registers;
    long long whole = 0;
    double d = 0;
    const auto r = std::from_chars(text.data(), text.data() + text.size(), d);
    const bool hex = parseInteger(text, whole); // also 0x hexadecimal
    if (hex)
        d = double(whole);
    else if (r.ec == std::errc::result_out_of_range) {
        error = p.name + ": " + text + " is beyond what " + p.tag.format->text() + " holds";
        return false;
    } else if (r.ec != std::errc() || r.ptr != text.data() + text.size() || !std::isfinite(d)) {
        error = p.name + " takes a finite number, not " + quoted(typed);
        return false;
    }
    if ((p.minimum && d < *p.minimum) || (p.maximum && d > *p.maximum))
        return outside(p, typed, limitsText(p), error);
    raw = hex ? std::to_string(whole) : text;
    if (!registersFromTexts({ raw }, *p.tag.format, std::nullopt, registers, error)) {
        error = p.name + ": " + text + " is beyond what " + p.tag.format->text() + " holds";
        return false;
    }
    return true;
}

// A number typed for an integer register: on a step, in the list if any.
bool integerRaw(
    const Parameter &p, const Decimal &v, const std::string &typed, std::string &raw, std::string &error)
{
    const Scaling s = scalingOf(p);
    Decimal difference;
    long long q = 0;
    bool fits = true;
    if (!subtract(v, s.offset, difference) || !wholeQuotient(difference, s.scale, q, fits)) {
        if (!fits)
            error = p.name + ": " + typed + " has more digits than can be converted exactly";
        else
            error = p.name + " takes steps of " + s.scale.text(s.decimals) + unitSuffix(p) + ": " + typed
                + " is between two";
        return false;
    }
    raw = std::to_string(q);
    return true;
}

// A text of the value list, or on/off for a bit.
bool namedValue(const Parameter &p, const std::string &typed, std::string &raw)
{
    const std::string lower = lowerCase(trimmed(typed));
    for (const ValueText &v : p.valueTexts)
        if (lowerCase(v.text) == lower) {
            raw = std::to_string(v.raw);
            return true;
        }
    if (p.valueTexts.empty() && !p.tag.format && p.tag.type == ValueType::Bit
        && (lower == "on" || lower == "off" || lower == "true" || lower == "false")) {
        raw = lower == "on" || lower == "true" ? "1" : "0";
        return true;
    }
    return false;
}

// rawFromEngineering without the access check (also a default's check).
bool checkTyped(const Parameter &p, const std::string &typed, std::string &raw, std::string &error)
{
    if (!isNumeric(p.tag)) {
        std::vector<uint16_t> registers;
        const std::optional<int> pad
            = p.tag.format->number == NumberFormat::String ? std::optional<int>(p.tag.count) : std::nullopt;
        raw = typed;
        return registersFromTexts({ typed }, *p.tag.format, pad, registers, error);
    }
    if (namedValue(p, typed, raw))
        return true;
    if (isFloatFormat(p))
        return floatRaw(p, typed, raw, error);
    // A value the list lacks types back as a read shows it.
    std::string text = trimmed(typed);
    if (!p.valueTexts.empty() && endsWith(text, NotInTheList))
        text = trimmed(text.substr(0, text.size() - std::strlen(NotInTheList)));
    Decimal v;
    long long whole = 0;
    if (parseInteger(text, whole)) // also 0x hexadecimal
        v = Decimal { whole, 0 };
    else if (!Decimal::parse(text, v, true)) {
        error = p.name + " takes " + (p.valueTexts.empty() ? "a number" : listTexts(p)) + ", not "
            + quoted(typed);
        return false;
    }
    if (!checkRange(p, v, typed, error))
        return false;
    return integerRaw(p, v, typed, raw, error);
}

// ---- Reading a map file

using Cells = std::array<std::string, ColumnCount>;
using Places = std::array<int, ColumnCount>; // a column's number in the file, 0 when absent

struct Row
{
    int line = 0;
    Cells cell;
    Places place {};
};

bool rowFault(const Row &row, int column, const std::string &what, std::string &error)
{
    error = "line " + std::to_string(row.line) + ", column " + std::to_string(row.place[size_t(column)])
        + " (" + columnNames[column] + "): " + what;
    return false;
}

bool readHeader(const CsvRow &header, Places &places, std::vector<int> &kinds, std::string &error)
{
    places.fill(0);
    kinds.clear();
    for (size_t i = 0; i < header.fields.size(); ++i) {
        const std::string name = lowerCase(header.fields[i]);
        const std::string at = "line " + std::to_string(header.line) + ", column " + std::to_string(i + 1)
            + " (" + header.fields[i] + "): ";
        const auto *found = std::find(std::begin(columnNames), std::end(columnNames), name);
        const int kind = int(found - std::begin(columnNames));
        if (!name.empty() && kind == ColumnCount) {
            error = at + "unknown column (the columns are " + columnList() + ")";
            return false;
        }
        if (!name.empty() && places[size_t(kind)]) {
            error = at + "the column is given twice";
            return false;
        }
        if (!name.empty())
            places[size_t(kind)] = int(i + 1);
        kinds.push_back(name.empty() ? -1 : kind);
    }
    for (int required : { NameColumn, AddressColumn })
        if (!places[size_t(required)]) {
            error = "line " + std::to_string(header.line) + ": the header row has no " + columnNames[required]
                + " column";
            return false;
        }
    return true;
}

bool spreadRow(
    const CsvRow &in, const std::vector<int> &kinds, const Places &places, Row &row, std::string &error)
{
    row.line = in.line;
    row.place = places;
    row.cell = Cells();
    for (size_t i = 0; i < in.fields.size(); ++i) {
        if (i < kinds.size() && kinds[i] >= 0) {
            row.cell[size_t(kinds[i])] = in.fields[i];
        } else if (!in.fields[i].empty()) {
            error = "line " + std::to_string(in.line) + ", column " + std::to_string(i + 1)
                + ": a value in a column without a name in the header row";
            return false;
        }
    }
    return true;
}

bool validName(const std::string &name)
{
    for (char c : name) {
        const unsigned char u = static_cast<unsigned char>(c);
        if (!std::isalnum(u) && u != '-' && u != '_' && u != '.')
            return false;
    }
    return !name.empty() && std::isalnum(static_cast<unsigned char>(name[0]));
}

// Names already given, in lower case, with their lines.
using NameLines = std::map<std::string, int>;

bool readName(const Row &row, NameLines &names, Parameter &p, std::string &error)
{
    const std::string &name = row.cell[NameColumn];
    AddressText address;
    std::string ignored;
    if (!validName(name))
        return rowFault(row, NameColumn,
            name.empty() ? "a parameter needs a name"
                         : quoted(name) + " is not a name (letters, digits, - _ . only)",
            error);
    if (AddressText::parse(name, address, ignored, false) || AddressText::parse(name, address, ignored, true))
        return rowFault(
            row, NameColumn, quoted(name) + " reads as an address: give the parameter a name", error);
    const auto other = names.emplace(lowerCase(name), row.line);
    if (!other.second)
        return rowFault(row, NameColumn,
            quoted(name) + " is the name of line " + std::to_string(other.first->second) + " too", error);
    p.name = name;
    return true;
}

// "string:N" or a format's name (with its order).
bool checkFormatText(const std::string &text, std::string &error)
{
    const std::vector<std::string> parts = splitFields(text, ':');
    ValueFormat f;
    int registers = 0;
    if (lowerCase(parts[0]) == "string" && parts.size() == 2) {
        if (!parseWholeNumber(parts[1], 1, int(driverMaxReadRegisters), registers)) {
            error = "a string takes string:N for N registers, 1 to " + std::to_string(driverMaxReadRegisters);
            return false;
        }
        return true;
    }
    return ValueFormat::parse(text, f, error);
}

bool readTag(const Row &row, Parameter &p, std::string &error)
{
    const std::string &address = row.cell[AddressColumn], &format = row.cell[FormatColumn];
    AddressText a;
    std::string why;
    if (address.empty())
        return rowFault(row, AddressColumn, "a parameter needs an address", error);
    if (address.find_first_of(":@") != std::string::npos || !AddressText::parse(address, a, why))
        return rowFault(row, AddressColumn,
            why.empty() ? "the address column takes the address alone (give its format in the format column)"
                        : why,
            error);
    if (!format.empty() && !checkFormatText(format, why))
        return rowFault(row, FormatColumn, why, error);
    const std::string text = a.text() + (format.empty() ? "" : ":" + lowerCase(format));
    if (!parseTag(text, p.tag, why))
        return rowFault(row, format.empty() ? AddressColumn : FormatColumn, why, error);
    if (p.tag.format && p.tag.format->isWide() && p.tag.format->orderGiven)
        p.tag.text = a.text() + ":" + p.tag.format->text();
    return true;
}

// The scale or offset column c of a row: a decimal, and one that the
// parameter's kind takes (d keeps its value when the cell is empty).
bool readScalingCell(const Row &row, int c, Parameter &p, Decimal &d, std::string &error)
{
    const std::string &text = row.cell[size_t(c)];
    if (text.empty())
        return true;
    if (!Decimal::parse(text, d, false, 9))
        return rowFault(
            row, c, quoted(text) + " is not a decimal number of at most 9 digits (such as 0.01)", error);
    const std::string what = c == ScaleColumn ? "scale" : "offset";
    // A spreadsheet may fill in 1 and 0 for every row.
    const bool identity = compare(d, Decimal { c == ScaleColumn ? 1 : 0, 0 }) == 0;
    if (!isNumeric(p.tag) && !identity)
        return rowFault(row, c,
            std::string(c == ScaleColumn ? "a scale" : "an offset") + " applies to numbers, not to "
                + p.tag.format->text(),
            error);
    if (!p.tag.format && p.tag.type == ValueType::Bit && !identity)
        return rowFault(row, c, "a bit holds 0 or 1: it takes no " + what, error);
    if (isFloatFormat(p) && !identity)
        return rowFault(
            row, c, "a float register holds its engineering value itself: it takes no " + what, error);
    if (isNumeric(p.tag))
        (c == ScaleColumn ? p.scaleText : p.offsetText) = text;
    return true;
}

bool readScaling(const Row &row, Parameter &p, std::string &error)
{
    Decimal scale, offset, low, high;
    if (!readScalingCell(row, ScaleColumn, p, scale, error)
        || !readScalingCell(row, OffsetColumn, p, offset, error))
        return false;
    if (!row.cell[ScaleColumn].empty() && scale.sign() == 0)
        return rowFault(row, ScaleColumn, "a scale of 0 would show every value as the offset", error);
    p.scale = std::strtod(p.scaleText.c_str(), nullptr);
    p.offset = std::strtod(p.offsetText.c_str(), nullptr);
    if (!isFloatFormat(p) && !engineeringRange(p, low, high))
        return rowFault(row, ScaleColumn, "the scale and offset give values of more than 18 digits", error);
    return true;
}

bool readLimit(const Row &row, int column, Parameter &p, std::string &error)
{
    const std::string &text = row.cell[size_t(column)];
    Decimal v, low, high;
    if (text.empty())
        return true;
    if (!isNumeric(p.tag))
        return rowFault(row, column, "limits apply to numbers, not to " + p.tag.format->text(), error);
    if (!Decimal::parse(text, v, true, 15))
        return rowFault(row, column, quoted(text) + " is not a number of at most 15 digits", error);
    const double d = std::strtod(text.c_str(), nullptr);
    (column == MinColumn ? p.minimum : p.maximum) = d;
    if (isFloatFormat(p) && p.tag.format->number == NumberFormat::Float32
        && std::fabs(d) > double(std::numeric_limits<float>::max()))
        return rowFault(row, column, text + " is beyond what " + p.tag.format->text() + " holds", error);
    if (!isFloatFormat(p) && engineeringRange(p, low, high)
        && (compare(v, low) < 0 || compare(v, high) > 0)) {
        const int decimals = scalingOf(p).decimals;
        return rowFault(row, column,
            text + " is outside what " + p.tag.address.text() + " holds (" + low.text(decimals) + " to "
                + high.text(decimals) + unitSuffix(p) + "; a signed quantity needs a format such as int16)",
            error);
    }
    if (column == MaxColumn && p.minimum && *p.minimum > d)
        return rowFault(row, column, "the max " + text + " is below the min " + row.cell[MinColumn], error);
    return true;
}

bool readAccess(const Row &row, Parameter &p, std::string &error)
{
    const std::string access = lowerCase(row.cell[AccessColumn]);
    const bool input
        = p.tag.address.area == Area::InputRegisters || p.tag.address.area == Area::DiscreteInputs;
    if (access.empty()) {
        p.access = input ? ParamAccess::Read : ParamAccess::ReadWrite;
        return true;
    }
    if (access != "r" && access != "rw" && access != "w")
        return rowFault(row, AccessColumn, quoted(row.cell[AccessColumn]) + " is not r, rw or w", error);
    p.access = access == "r" ? ParamAccess::Read
        : access == "w"      ? ParamAccess::Write
                             : ParamAccess::ReadWrite;
    if (input && p.access != ParamAccess::Read)
        return rowFault(row, AccessColumn,
            p.tag.address.text() + " is "
                + (p.tag.address.area == Area::InputRegisters ? "an input register" : "a discrete input")
                + ", which cannot be written (access r)",
            error);
    return true;
}

bool readValueText(const Row &row, const std::string &item, Parameter &p, std::string &error)
{
    const size_t equals = item.find('=');
    ValueText v;
    long long low = 0, high = 0, raw = 0;
    Decimal number;
    if (equals == std::string::npos || !parseInteger(trimmed(item.substr(0, equals)), raw))
        return rowFault(row, ValuesColumn, quoted(item) + " is not RAW=TEXT (such as 0=off;1=on)", error);
    v.raw = raw;
    v.text = trimmed(item.substr(equals + 1));
    rawRange(p.tag, low, high);
    if (v.raw < low || v.raw > high)
        return rowFault(row, ValuesColumn,
            "the raw value " + std::to_string(v.raw) + " is outside what " + p.tag.address.text() + " holds ("
                + std::to_string(low) + " to " + std::to_string(high) + ")",
            error);
    if (v.text.empty() || Decimal::parse(v.text, number, true) || parseInteger(v.text, low))
        return rowFault(row, ValuesColumn, quoted(item) + " needs a text that is not a number", error);
    for (const ValueText &other : p.valueTexts)
        if (other.raw == v.raw || lowerCase(other.text) == lowerCase(v.text))
            return rowFault(row, ValuesColumn,
                quoted(item) + " repeats the raw value or text of "
                    + quoted(std::to_string(other.raw) + "=" + other.text),
                error);
    p.valueTexts.push_back(v);
    return true;
}

bool readValues(const Row &row, Parameter &p, std::string &error)
{
    const std::string &text = row.cell[ValuesColumn];
    if (text.empty())
        return true;
    if (!isNumeric(p.tag) || isFloatFormat(p))
        return rowFault(row, ValuesColumn,
            "a value list applies to whole numbers, not to " + p.tag.format->text(), error);
    const Scaling scaling = scalingOf(p);
    if (compare(scaling.scale, Decimal { 1, 0 }) != 0 || scaling.offset.sign() != 0)
        return rowFault(
            row, ValuesColumn, "a value list names raw values: it takes no scale or offset", error);
    for (const std::string &item : splitFields(text, ';'))
        if (!trimmed(item).empty() && !readValueText(row, item, p, error))
            return false;
    return true;
}

bool readFlags(const Row &row, Parameter &p, std::string &error)
{
    const std::string alarm = lowerCase(row.cell[AlarmColumn]);
    if (alarm == "yes" || alarm == "1" || alarm == "true")
        p.alarm = true;
    else if (!(alarm.empty() || alarm == "no" || alarm == "0" || alarm == "false"))
        return rowFault(row, AlarmColumn, quoted(row.cell[AlarmColumn]) + " is not yes or no", error);
    std::string raw, why;
    p.defaultText = row.cell[DefaultColumn];
    if (!p.defaultText.empty() && !checkTyped(p, p.defaultText, raw, why))
        return rowFault(row, DefaultColumn, why, error);
    return true;
}

bool readParameter(const Row &row, NameLines &names, Parameter &p, std::string &error)
{
    p.line = row.line;
    p.unit = row.cell[UnitColumn];
    p.group = row.cell[GroupColumn];
    p.description = row.cell[DescriptionColumn];
    p.motion = row.cell[MotionColumn];
    if (!readName(row, names, p, error) || !readTag(row, p, error) || !readScaling(row, p, error)
        || !readLimit(row, MinColumn, p, error) || !readLimit(row, MaxColumn, p, error)
        || !readAccess(row, p, error) || !readValues(row, p, error) || !readFlags(row, p, error))
        return false;
    for (int c = firstBackupColumn; c < ColumnCount; ++c)
        if (!row.cell[size_t(c)].empty())
            p.backup[columnNames[c]] = row.cell[size_t(c)];
    return true;
}

// ---- Writing a map file

std::string cellText(const Parameter &p, int column)
{
    switch (column) {
    case NameColumn:
        return p.name;
    case AddressColumn:
        return p.tag.address.text();
    case FormatColumn: {
        const size_t colon = p.tag.text.find(':');
        return colon == std::string::npos ? "" : p.tag.text.substr(colon + 1);
    }
    case ScaleColumn: // the defaults left out: hex, binary and strings take none
        return p.scaleText == "1" ? "" : p.scaleText;
    case OffsetColumn:
        return p.offsetText == "0" ? "" : p.offsetText;
    case UnitColumn:
        return p.unit;
    case MinColumn:
        return p.minimum ? numberText(*p.minimum) : "";
    case MaxColumn:
        return p.maximum ? numberText(*p.maximum) : "";
    case AccessColumn:
        return p.access == ParamAccess::Read ? "r" : p.access == ParamAccess::Write ? "w" : "rw";
    case DefaultColumn:
        return p.defaultText;
    case GroupColumn:
        return p.group;
    case DescriptionColumn:
        return p.description;
    case AlarmColumn:
        return p.alarm ? "yes" : "";
    case MotionColumn:
        return p.motion;
    default:
        break;
    }
    return "";
}

std::string valueList(const Parameter &p)
{
    std::string list;
    for (const ValueText &v : p.valueTexts)
        list += (list.empty() ? "" : ";") + std::to_string(v.raw) + "=" + v.text;
    return list;
}

std::string rowText(const Parameter &p, int columns)
{
    std::string row;
    for (int c = 0; c < columns; ++c) {
        std::string text = cellText(p, c);
        if (c == ValuesColumn)
            text = valueList(p);
        if (c >= firstBackupColumn) {
            const auto it = p.backup.find(columnNames[c]);
            text = it == p.backup.end() ? "" : it->second;
        }
        row += (c ? "," : "") + csvField(text);
    }
    return row + "\n";
}

// ---- Names

size_t editDistance(const std::string &a, const std::string &b)
{
    std::vector<size_t> previous(b.size() + 1), current(b.size() + 1);
    for (size_t j = 0; j <= b.size(); ++j)
        previous[j] = j;
    for (size_t i = 1; i <= a.size(); ++i) {
        current[0] = i;
        for (size_t j = 1; j <= b.size(); ++j)
            current[j]
                = std::min({ previous[j] + 1, current[j - 1] + 1, previous[j - 1] + (a[i - 1] != b[j - 1]) });
        previous.swap(current);
    }
    return previous[b.size()];
}

std::string closestNames(const ParameterMap &map, const std::string &text)
{
    const std::string wanted = lowerCase(text);
    std::vector<std::pair<size_t, std::string>> near;
    for (const Parameter &p : map.parameters) {
        const std::string name = lowerCase(p.name);
        const size_t d
            = name.find(wanted) != std::string::npos ? 0 : editDistance(wanted.substr(0, 64), name);
        if (d <= std::max<size_t>(2, wanted.size() / 3))
            near.emplace_back(d, p.name);
    }
    std::stable_sort(
        near.begin(), near.end(), [](const auto &x, const auto &y) { return x.first < y.first; });
    std::string names;
    for (size_t i = 0; i < near.size() && i < 3; ++i)
        names += (i ? ", " : "") + near[i].second;
    return names;
}

} // namespace

const Parameter *ParameterMap::find(const std::string &name) const
{
    const std::string wanted = lowerCase(name);
    for (const Parameter &p : parameters)
        if (lowerCase(p.name) == wanted)
            return &p;
    return nullptr;
}

std::vector<const Parameter *> ParameterMap::group(const std::string &name) const
{
    const std::string wanted = lowerCase(name);
    std::vector<const Parameter *> out;
    for (const Parameter &p : parameters)
        if (wanted.empty() || lowerCase(p.group) == wanted)
            out.push_back(&p);
    return out;
}

bool parseParameterMap(const std::string &text, ParameterMap &map, std::string &error)
{
    CsvReader reader(text, csvSeparator(text));
    CsvRow in;
    ParameterMap out;
    NameLines names;
    Places places {};
    std::vector<int> kinds;
    bool header = true;
    while (reader.next(in)) {
        Row row;
        Parameter p;
        if (header ? !readHeader(in, places, kinds, error)
                   : !spreadRow(in, kinds, places, row, error) || !readParameter(row, names, p, error))
            return false;
        if (!header)
            out.parameters.push_back(p);
        header = false;
    }
    if (reader.failed()) {
        const int c = reader.column;
        const bool named = !header && c - 1 < int(kinds.size()) && kinds[size_t(c - 1)] >= 0;
        error = "line " + std::to_string(reader.line) + ", column " + std::to_string(c)
            + (named ? std::string(" (") + columnNames[kinds[size_t(c - 1)]] + ")" : "") + ": "
            + reader.error;
        return false;
    }
    if (header) {
        error = "the map has no header row (such as name,address,unit)";
        return false;
    }
    out.path = map.path;
    out.builtIn = map.builtIn;
    map = out;
    return true;
}

bool loadParameterMap(const std::string &path, ParameterMap &map, std::string &error)
{
    std::string text, why;
    ParameterMap loaded;
    if (!readTextFile(path, userTextFileLimit, text, why)) {
        error = "cannot read " + path + ": " + why;
        return false;
    }
    if (!parseParameterMap(text, loaded, why)) {
        error = path + ": " + why;
        return false;
    }
    loaded.path = path;
    map = loaded;
    return true;
}

std::string parameterMapCsv(const ParameterMap &map)
{
    bool backup = false;
    for (const Parameter &p : map.parameters)
        backup = backup || !p.backup.empty();
    const int columns = backup ? ColumnCount : firstBackupColumn;
    std::string text;
    for (int c = 0; c < columns; ++c)
        text += std::string(c ? "," : "") + columnNames[c];
    text += "\n";
    for (const Parameter &p : map.parameters)
        text += rowText(p, columns);
    return text;
}

bool engineeringValue(const Parameter &param, const std::string &raw, std::string &value, std::string &error)
{
    const Scaling s = scalingOf(param);
    long long whole = 0;
    Decimal r, v;
    const std::string text = trimmed(raw);
    if (!isNumeric(param.tag)) {
        value = raw;
        return true;
    }
    double d = 0;
    const auto f = std::from_chars(text.data(), text.data() + text.size(), d);
    const bool number = isFloatFormat(param) ? !text.empty() && f.ptr == text.data() + text.size()
                                             : parseInteger(text, whole);
    if (!number) {
        error = param.name + ": the raw value " + quoted(raw) + " is not a number";
        return false;
    }
    if (!param.valueTexts.empty()) {
        for (const ValueText &t : param.valueTexts)
            if (t.raw == whole) {
                value = t.text;
                return true;
            }
        value = text + NotInTheList;
        return true;
    }
    if (isFloatFormat(param)) { // unscaled: the raw value as read
        value = text;
        return true;
    }
    r = Decimal { whole, 0 };
    if (!scaled(s, r, v)) {
        error = param.name + ": " + raw + " x " + param.scaleText + " + " + param.offsetText
            + " has more digits than can be shown exactly";
        return false;
    }
    value = v.text(s.decimals);
    return true;
}

bool storedValue(const Parameter &param, const std::string &raw, std::string &value, std::string &error)
{
    long long whole = 0;
    if (!engineeringValue(param, raw, value, error))
        return false;
    if (!param.valueTexts.empty() && parseInteger(trimmed(raw), whole) && value != trimmed(raw)
        && std::none_of(param.valueTexts.begin(), param.valueTexts.end(),
            [whole](const ValueText &t) { return t.raw == whole; }))
        value = trimmed(raw);
    return true;
}

std::string withUnit(const Parameter &param, const std::string &value)
{
    return param.valueTexts.empty() ? value + unitSuffix(param) : value;
}

bool rawFromEngineering(
    const Parameter &param, const std::string &typed, std::string &raw, std::string &error)
{
    if (!param.writable()) {
        error = param.name + " is read-only";
        return false;
    }
    return checkTyped(param, typed, raw, error);
}

bool resolveTag(const std::string &text, const ParameterMap *map, Tag &tag, const Parameter *&param,
    std::string &error, bool zeroBased)
{
    param = map ? map->find(trimmed(text)) : nullptr;
    if (param) {
        tag = param->tag;
        return true;
    }
    AddressText address;
    std::string ignored;
    if (parseTag(text, tag, error, zeroBased))
        return true;
    if (map && !AddressText::parse(splitFields(text, ':')[0], address, ignored, zeroBased)) {
        const std::string near = closestNames(*map, trimmed(text));
        error = "unknown parameter " + quoted(text)
            + (near.empty() ? " (not in the map, nor an address)" : " (closest: " + near + ")");
    }
    return false;
}
