#ifndef HOST_LIB_TAG_H
#define HOST_LIB_TAG_H

// A tag: an address with the type or format its values are read and written
// in and how many there are (ADDRESS[:TYPE|FORMAT][:COUNT]); the checks of
// values to write to one and of a station scan, as every front end makes
// them before anything is opened or sent.

#include "addresstext.h"
#include "formats.h"
#include "values.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

struct Tag
{
    std::string text; // as given, for the output
    AddressText address;
    ValueType type = ValueType::Word;
    // With a format, the registers are read as words and shown in it; count
    // is then the number of values (for a string, of registers).
    std::optional<ValueFormat> format;
    int count = 1;
    int station = -1; // poll, from TAG@STATION; -1: the command's
};

// ADDRESS[:TYPE|FORMAT][:COUNT], such as HR100, HR100:dword, HR100:3,
// DO1:bit:8, HR100:float32:2, HR100:int32:CDAB. zeroBased: the address's
// number is the wire number; format: the format of a tag that names neither
// type nor format.
bool parseTag(const std::string &text, Tag &tag, std::string &error, bool zeroBased = false,
    const std::optional<std::string> &format = std::nullopt);

// A tag from an address with a type or a format named apart (teco-cli's
// --type, --format and --count); the count defaults to one.
bool makeTag(const std::string &address, const std::optional<std::string> &typeName,
    const std::optional<std::string> &formatName, std::optional<int> count, bool zeroBased, Tag &tag,
    std::string &error);

// Whether a read (or write) of the tag fits one command of the driver (see
// fitsDriverCommand); with a format, its registers are read as words.
bool tagFitsDriver(const Tag &tag, bool write, std::string &error);

// What a write of a tag sends: the values typed, or with a format the
// registers that hold them and the values as the registers hold them.
struct TagWrite
{
    std::vector<uint32_t> values;
    std::vector<uint16_t> registers;
    std::vector<std::string> texts;
};

// The typed values for a write to the tag, checked against its type or
// format and the driver's limits; the tag's count becomes the number
// written. stringRegisters: for a string format, the registers to fill.
bool prepareWrite(Tag &tag, const std::vector<std::string> &typed, std::optional<int> stringRegisters,
    TagWrite &write, std::string &error);

// A scan of the stations from to to, each probed with a read of the address
// given as probeText: one word or bit outside the driver's own window.
bool checkScanRange(
    int from, int to, const std::string &probeText, bool zeroBased, AddressText &probe, std::string &error);

#endif // HOST_LIB_TAG_H
