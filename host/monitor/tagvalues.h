#ifndef HOST_MONITOR_TAGVALUES_H
#define HOST_MONITOR_TAGVALUES_H

// A monitor tag: teco-cli's poll tag with a station, the form its values
// are shown in and whether it is trended; the tag list file; values shown
// and typed.
//
// A tag list file has one tag per line, "TAG [station=N] [format=F]
// [trend=on|off]", with TAG as teco-cli's poll takes it
// (ADDRESS[:TYPE][:COUNT]); blank lines and lines starting with "#" are
// skipped.

#include "command.h"

#include <cstdint>
#include <string>
#include <vector>

enum class ShowAs { Unsigned, Signed, Hex, Binary };

struct MonitorTag
{
    Tag tag;
    int station = 0; // 0: the connection's
    ShowAs format = ShowAs::Unsigned;
    bool trend = true;
};

const char *showAsName(ShowAs format);
bool parseShowAs(const std::string &text, ShowAs &format);
const std::vector<ShowAs> &allShowAs();

// One value in the tag's type and format: "1500", "-1", "0x05DC", "0b0101".
std::string showValue(uint32_t value, ValueType type, ShowAs format);
// The value as a number for a trend: signed for the Signed format.
double plotValue(uint32_t value, ValueType type, ShowAs format);

// The values typed for a write: as many as the tag has, separated by
// spaces, each as teco-cli's write takes it (values.h parseValue).
bool parseWriteValues(
    const std::string &text, const MonitorTag &tag, std::vector<uint32_t> &values, std::string &error);

// A tag from its fields: "HR100:word station=2 format=hex".
bool parseMonitorTag(const std::string &line, MonitorTag &tag, std::string &error);
std::string monitorTagLine(const MonitorTag &tag);

// The tags of a list file's text; false with "line N: ..." in error.
bool parseTagList(const std::string &text, std::vector<MonitorTag> &tags, std::string &error);
std::string tagListText(const std::vector<MonitorTag> &tags);

// Reads or writes a tag list file (textfile.h); one sentence in error.
bool loadTagList(const std::string &path, std::vector<MonitorTag> &tags, std::string &error);
bool saveTagList(const std::string &path, const std::vector<MonitorTag> &tags, std::string &error);

#endif // HOST_MONITOR_TAGVALUES_H
