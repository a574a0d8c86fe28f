#ifndef HOST_MONITOR_TAGVALUES_H
#define HOST_MONITOR_TAGVALUES_H

// A monitor tag: a tag (ADDRESS[:TYPE|FORMAT][:COUNT], such as
// HR100, IR1:word:2, HR200:float32), or with a map a parameter's name
// (speed-command), with a station and whether it is trended; the tag list
// file; values typed for writes and values plotted.
//
// A tag list file has one tag per line,
// "TAG [station=N] [trend=on|off] [alarm]"; blank lines and lines starting
// with "#" are skipped. "alarm" marks a register whose non-zero value is an
// alarm (such as the drive's alarm code): the window highlights it, as it
// does a parameter the map marks as an alarm.

#include "tag.h"

#include <cstdint>
#include <string>
#include <vector>

struct Parameter;
struct ParameterMap;

struct MonitorTag
{
    Tag tag;
    const Parameter *param = nullptr; // the map's parameter of a tag given by name
    int station = 0; // 0: the connection's
    bool trend = true; // always false for a tag that cannot be plotted (a string)
    bool alarm = false; // a non-zero value is an alarm
};

// Whether a tag's values can be plotted: numbers, not strings.
bool trendable(const Tag &tag);

// Whether a format can be given to the tag: whole registers only.
bool takesFormat(const Tag &tag);
// Gives the tag a number format ("float32", "int32:ABCD"), or none (""),
// with its text to match; checked as teco-cli checks --format.
bool setTagFormat(Tag &tag, const std::string &format, std::string &error);
// The formats offered for a tag: "" (none), then every format's name.
const std::vector<std::string> &formatChoices();

// The values typed for a write (separated by spaces; a string tag takes the
// whole text), as many as the tag has, checked as teco-cli's write checks
// them (tag.h): the words to write (the registers, for a tag with a format).
bool parseWriteValues(
    const std::string &text, const Tag &tag, std::vector<uint32_t> &words, std::string &error);

// A value as shown, as a number for a trend; false for text (strings).
bool plotValue(const Tag &tag, const std::string &shown, double &value);

// A tag from its fields: "HR100:hex station=2 trend=off", "IR406 alarm",
// "speed-command station=2" (a name of map, resolveTag).
bool parseMonitorTag(
    const std::string &line, MonitorTag &tag, std::string &error, const ParameterMap *map = nullptr);
// The line of a tag; a parameter by its name.
std::string monitorTagLine(const MonitorTag &tag);

// The tags of a list file's text; false with "line N: ..." in error.
bool parseTagList(const std::string &text, std::vector<MonitorTag> &tags, std::string &error,
    const ParameterMap *map = nullptr);
std::string tagListText(const std::vector<MonitorTag> &tags);

// Reads or writes a tag list file (textfile.h); one sentence in error.
bool loadTagList(const std::string &path, std::vector<MonitorTag> &tags, std::string &error,
    const ParameterMap *map = nullptr);
bool saveTagList(const std::string &path, const std::vector<MonitorTag> &tags, std::string &error);
// Writes a whole text file (a tag list, a parameter backup); one sentence in error.
bool saveTextFile(const std::string &path, const std::string &text, std::string &error);

#endif // HOST_MONITOR_TAGVALUES_H
