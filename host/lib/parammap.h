#ifndef HOST_LIB_PARAMMAP_H
#define HOST_LIB_PARAMMAP_H

// A drive's parameters by name: a map file (CSV, as a spreadsheet saves it)
// with one row per parameter, and the conversion between the registers'
// raw values and the engineering values people read and type.
//
// The file: a header row naming the columns, then one row per parameter.
// UTF-8 with or without a byte-order mark; comma or semicolon separated (the
// header row tells which); fields may be quoted ("a, b" and "say ""hi""").
// Empty lines and lines whose first field starts with # are skipped. Column
// names are case-insensitive; only name and address are required, a column
// not listed here is refused (a misspelt "scale" must not pass as 1):
//   name         unique (case-insensitive), letters, digits, - _ . only,
//                starting with a letter or digit; not an address (HR7)
//   address      in the panel's form: HR402, IR402SW, HR110.3, DO1
//   format       a format of teco-cli's (int16, uint16, hex, binary, int32,
//                uint32, float32, float64, string, with :ORDER for 32- and
//                64-bit ones, string:N for N registers); empty: the address's
//                own type (a bit, a word, an SW double word)
//   scale        engineering value = raw x scale + offset; default 1
//   offset       default 0
//   unit         free text ("rpm", "A", "%")
//   min, max     engineering units; a write outside them is refused
//   access       r, rw or w; default rw (r for input registers and
//                discrete inputs, which take no other)
//   default      the engineering value a drive leaves the factory with
//   group        free text, such as basic, gains, limits, io, alarms
//   description  free text
//   values       a value list on raw values: 0=off;1=on
//   alarm        yes/no (also 1/0, true/false, empty: no): a non-zero value
//                is an alarm, shown with its value list's text
//   motion       the simulated drive's motor binding (teco-sim only): a
//                motion quantity (servo-on, speed-command, ..., speed,
//                position, current, load, alarm)
//   value, station, time, driver
//                what a parameter backup adds to each row: the value read
//                (engineering), the station, when it was read (ISO 8601) and
//                the driver's version
// Every row is checked when the file is read (address, format against
// address, numbers, min <= max, default within them and on a step of the
// scale, value list, a scale or value list only on numeric formats, names
// unique); a bad row refuses the whole file with one sentence that starts
// "line L, column C (NAME): ".

#include "tag.h"

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

enum class ParamAccess { Read, ReadWrite, Write };

struct ValueText
{
    int64_t raw = 0;
    std::string text;
};

struct Parameter
{
    std::string name;
    Tag tag; // the address with its type or format; count 1 (a string: its registers)
    // The texts as the file gave them (they set the decimals shown) and
    // their values.
    std::string scaleText = "1", offsetText = "0";
    double scale = 1, offset = 0;
    std::string unit;
    std::optional<double> minimum, maximum; // engineering units
    ParamAccess access = ParamAccess::ReadWrite;
    std::string defaultText; // engineering; empty: none
    std::string group, description;
    std::vector<ValueText> valueTexts;
    bool alarm = false;
    std::string motion; // teco-sim's binding; empty: none
    // The columns a backup adds (value, station, time, driver), by lower-
    // case column name; empty in a plain map.
    std::map<std::string, std::string> backup;
    int line = 0; // in the file

    bool readable() const { return access != ParamAccess::Write; }
    bool writable() const { return access != ParamAccess::Read; }
};

struct ParameterMap
{
    std::vector<Parameter> parameters; // in the file's order
    std::string path; // where it was read from
    bool builtIn = false; // the simulated drive's own map, read from no file

    // "the map PATH", or "the simulated drive's map", for texts.
    std::string described() const { return builtIn ? "the simulated drive's map" : "the map " + path; }

    // By name, case-insensitive; nullptr when there is none.
    const Parameter *find(const std::string &name) const;
    // Those of a group (case-insensitive), or all for an empty group.
    std::vector<const Parameter *> group(const std::string &group) const;
};

// The file's text to a map; false with one sentence in error.
bool parseParameterMap(const std::string &text, ParameterMap &map, std::string &error);
// Reads the file at path (textfile.h); false with one sentence in error
// ("PATH: line L, ..." for a bad row).
bool loadParameterMap(const std::string &path, ParameterMap &map, std::string &error);
// The map as a file: the header row and one row per parameter, commas,
// quoted where needed, with the backup columns when a parameter has them.
// parseParameterMap gives the same map back.
std::string parameterMapCsv(const ParameterMap &map);

// A raw value as a read shows it (FormattedResult::values, one text) to the
// engineering value: raw x scale + offset with the decimals of the scale and
// offset as written (raw 16 at scale 0.01 is "0.16"), or a value list's text
// ("over-speed"; a raw value the list lacks is "7 (not in the list)"). A raw
// value that is not a number in a numeric format (a failed read) is false
// with one sentence.
bool engineeringValue(const Parameter &param, const std::string &raw, std::string &value, std::string &error);
// The engineering value as a backup stores it, one that rawFromEngineering
// takes back: as engineeringValue, but a raw value the value list lacks is
// the plain number ("7").
bool storedValue(const Parameter &param, const std::string &raw, std::string &value, std::string &error);
// The value with its unit for people: "0.16 A", "over-speed", "1500 rpm".
std::string withUnit(const Parameter &param, const std::string &value);

// A typed engineering value (a number, or a value list's text) to the raw
// text that prepareWrite takes, checked before anything is sent: access (a
// read-only parameter), min and max ("speed-command takes -3000 to 3000
// rpm: 4000 is outside"), and the step of the scale ("current-limit takes
// steps of 0.01 A: 1.005 is between two"). A value-list parameter also takes
// a plain number the list lacks. False with one sentence.
bool rawFromEngineering(
    const Parameter &param, const std::string &typed, std::string &raw, std::string &error);

// What a front end does with the text of a tag, a command's address or a
// batch line's address when a map is loaded: a parameter's name (case-
// insensitive) gives its tag (and param points to it); anything else is
// parsed as a tag (parseTag) with param left nullptr. False with one
// sentence: an unknown name says so and names the closest ones.
bool resolveTag(const std::string &text, const ParameterMap *map, Tag &tag, const Parameter *&param,
    std::string &error, bool zeroBased = false);

#endif // HOST_LIB_PARAMMAP_H
