// Fuzzes the parameter map: any bytes as a map file.
//
// Beyond the sanitizers:
//   - a refused file has a sentence saying why;
//   - an accepted map, written (parameterMapCsv) and read again, is the same
//     map, and written again gives the same text;
//   - every parameter's raw values convert to engineering values or are
//     refused with a sentence, never crash;
//   - a writable parameter's default converts to a raw value (the file was
//     checked for it), and every raw value a typed value converts to is one
//     that its register takes;
//   - an integer register's engineering value, typed back, gives the same
//     raw value: what is shown is exactly what the register holds;
//   - the same bytes imported (as a ModbusScope project when they start
//     with '<', else as an address list) give a map that reads back the same.

#include "formattedio.h"
#include "mapcompare.h"
#include "mapimport.h"
#include "parammap.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace {

[[noreturn]] void fail(const std::string &what)
{
    std::fprintf(stderr, "%s\n", what.c_str());
    std::abort();
}

const char *const raws[] = { "0", "1", "-1", "7", "65535", "4294967295", "-2147483648", "1.5", "1e-07",
    "3.4028235e+38", "nan", "-inf", "0x00FF", "x", "" };
const char *const typedValues[]
    = { "0", "1", "-1", "0.01", "1.005", "100000", "1e400", "-0.5", "on", "off", "abc", "" };

bool isFloat(const Tag &tag)
{
    return tag.format
        && (tag.format->number == NumberFormat::Float32 || tag.format->number == NumberFormat::Float64);
}

// Whether the register takes raw as a value.
bool registerTakes(const Parameter &p, const std::string &raw)
{
    std::string error;
    if (!p.tag.format) {
        uint32_t v = 0;
        return parseValue(raw, p.tag.type, v, error);
    }
    std::vector<uint16_t> registers;
    const std::optional<int> pad
        = p.tag.format->number == NumberFormat::String ? std::optional<int>(p.tag.count) : std::nullopt;
    return registersFromTexts({ raw }, *p.tag.format, pad, registers, error);
}

void checkTyped(const Parameter &p, const std::string &typed)
{
    std::string raw, error, shown, again;
    if (!rawFromEngineering(p, typed, raw, error)) {
        if (error.empty())
            fail(p.name + ": " + typed + " refused without a sentence");
        return;
    }
    if (!registerTakes(p, raw))
        fail(p.name + ": " + typed + " gave " + raw + ", which the register does not take");
    if (isFloat(p.tag))
        return;
    if (!engineeringValue(p, raw, shown, error))
        fail(p.name + ": raw " + raw + " from " + typed + " does not show: " + error);
    if (!rawFromEngineering(p, shown, again, error) || again != raw)
        fail(p.name + ": " + typed + " gave raw " + raw + ", shown " + shown + ", typed back " + again
            + error);
}

void checkParameter(const Parameter &p)
{
    std::string value, error, raw;
    for (const char *r : raws)
        if (!engineeringValue(p, r, value, error) && error.empty())
            fail(p.name + ": raw " + r + " refused without a sentence");
    if (p.writable() && !p.defaultText.empty() && !rawFromEngineering(p, p.defaultText, raw, error))
        fail(p.name + ": the default " + p.defaultText + " was accepted but does not convert: " + error);
    for (const char *t : typedValues)
        checkTyped(p, t);
    if (!p.defaultText.empty())
        checkTyped(p, p.defaultText);
    for (const ValueText &v : p.valueTexts)
        checkTyped(p, v.text);
}

// A map that must read back the same from its file.
void checkRoundTrip(const ParameterMap &map, const char *what)
{
    ParameterMap again;
    std::string error;
    const std::string written = parameterMapCsv(map);
    if (!parseParameterMap(written, again, error))
        fail(std::string(what) + " written does not read back: " + error + "\n" + written);
    const std::string difference = mapDifference(map, again);
    if (!difference.empty())
        fail(std::string(what) + " written reads back otherwise: " + difference + "\n" + written);
    if (parameterMapCsv(again) != written)
        fail(std::string(what) + " written twice differs");
}

void checkImport(const std::string &text)
{
    ParameterMap map;
    std::vector<std::string> warnings;
    std::string error;
    const bool xml = !text.empty() && text[0] == '<';
    if (xml ? importModbusScope(text, map, warnings, error) : importAddressList(text, map, warnings, error))
        checkRoundTrip(map, "an imported map");
    else if (error.empty())
        fail("an import refused without a sentence");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const std::string text(reinterpret_cast<const char *>(data), size);
    ParameterMap map;
    std::string error;
    checkImport(text);
    if (!parseParameterMap(text, map, error)) {
        if (error.empty())
            fail("a map refused without a sentence");
        return 0;
    }
    checkRoundTrip(map, "the map");
    for (size_t i = 0; i < map.parameters.size() && i < 64; ++i)
        checkParameter(map.parameters[i]);
    return 0;
}
