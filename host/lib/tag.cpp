#include "tag.h"

#include "formattedio.h"
#include "textutil.h"

namespace {

bool allDigits(const std::string &text)
{
    return !text.empty() && text.find_first_not_of("0123456789") == std::string::npos;
}

// The typed values for a write to a tag with a format.
bool prepareFormattedWrite(Tag &tag, const std::vector<std::string> &typed,
    std::optional<int> stringRegisters, TagWrite &write, std::string &error)
{
    const ValueFormat &f = *tag.format;
    int registers = 0;
    write.texts = typed;
    if (!registersFromTexts(write.texts, f, stringRegisters, write.registers, error))
        return false;
    tag.count = f.number == NumberFormat::String ? int(write.registers.size()) : int(write.texts.size());
    // What is shown as written is what the registers hold, as a read
    // would show it: 16777217 goes into a float32 as 16777216.
    return formattedRegisterCount(tag.address, f, tag.count, registers, error)
        && tagFitsDriver(tag, true, error) && formatRegisters(write.registers, f, write.texts, error);
}

} // namespace

bool makeTag(const std::string &text, const std::optional<std::string> &typeName,
    const std::optional<std::string> &formatName, std::optional<int> count, bool zeroBased, Tag &tag,
    std::string &error)
{
    if (!AddressText::parse(text, tag.address, error, zeroBased))
        return false;
    tag.text = tag.address.text();
    tag.count = count ? *count : 1;
    if (formatName) {
        ValueFormat format;
        int registers = 0;
        if (typeName) {
            error = "give a data type or a format, not both (--type " + *typeName + ", --format "
                + *formatName + ")";
            return false;
        }
        if (!ValueFormat::parse(*formatName, format, error) || !settleFormat(tag.address, format, error)
            || !formattedRegisterCount(tag.address, format, tag.count, registers, error))
            return false;
        tag.format = format;
        tag.type = ValueType::Word;
        return true;
    }
    tag.type = defaultType(tag.address);
    if (typeName && !parseValueType(*typeName, tag.type)) {
        error = "unknown data type \"" + *typeName + "\" (bit, byte, word or dword; a number format such as "
            + "float32 goes with --format, or in a tag as HR100:float32)";
        return false;
    }
    return typeFits(tag.address, tag.type, error);
}

bool tagFitsDriver(const Tag &t, bool write, std::string &error)
{
    int registers = t.count;
    if (t.format && !formattedRegisterCount(t.address, *t.format, t.count, registers, error))
        return false;
    return fitsDriverCommand(t.address, t.format ? ValueType::Word : t.type, registers, write, error);
}

bool parseTag(const std::string &text, Tag &tag, std::string &error, bool zeroBased,
    const std::optional<std::string> &defaultFormat)
{
    const std::vector<std::string> parts = splitFields(text, ':');
    const std::string bad = "bad tag \"" + text
        + "\" (ADDRESS[:TYPE|FORMAT][:COUNT], such as HR100:word:2, HR100:float32:2 or HR100:int32:CDAB)";
    if (parts.size() > 4) {
        error = bad;
        return false;
    }
    std::optional<std::string> type, format;
    std::optional<int> count;
    for (size_t i = 1; i < parts.size(); ++i) {
        const std::string &p = parts[i];
        int n = 0;
        ValueFormat f;
        std::string ignored;
        if (!count && allDigits(p)) {
            if (!parseWholeNumber(p, 1, 65535, n)) {
                error = "bad count in tag \"" + text + "\" (1 to 65535)";
                return false;
            }
            count = n;
        } else if (i == 1 && ValueFormat::parse(p, f, ignored)) {
            // A word order, if one follows, belongs to the format.
            format = p;
            if (i + 1 < parts.size() && !allDigits(parts[i + 1]))
                *format += ":" + parts[++i];
        } else if (i == 1) {
            type = p;
        } else {
            error = bad;
            return false;
        }
    }
    if (!type && !format)
        format = defaultFormat;
    if (!makeTag(parts[0], type, format, count, zeroBased, tag, error) || !tagFitsDriver(tag, false, error))
        return false;
    tag.text = text;
    return true;
}

bool prepareWrite(Tag &tag, const std::vector<std::string> &typed, std::optional<int> stringRegisters,
    TagWrite &write, std::string &error)
{
    write = TagWrite();
    if (tag.format)
        return prepareFormattedWrite(tag, typed, stringRegisters, write, error);
    for (const std::string &text : typed) {
        uint32_t v = 0;
        if (!parseValue(text, tag.type, v, error))
            return false;
        write.values.push_back(v);
    }
    tag.count = int(write.values.size());
    return tagFitsDriver(tag, true, error);
}

bool checkScanRange(
    int from, int to, const std::string &probeText, bool zeroBased, AddressText &probe, std::string &error)
{
    Tag t;
    if (!(from >= 1 && to <= 247 && from <= to)) {
        error = "scan needs 1 <= --from <= --to <= 247";
        return false;
    }
    if (!makeTag(probeText, std::nullopt, std::nullopt, std::nullopt, zeroBased, t, error))
        return false;
    probe = t.address;
    if (t.address.bit >= 0 || t.address.swap) {
        error = "scan probes with one word or bit read: give a plain address such as HR1 or DI1";
        return false;
    }
    if (inDriverWindow(t.address)) {
        error = "the driver serves HR60000 to HR60010 itself, so no station would be asked: probe another "
                "address, such as HR1";
        return false;
    }
    return true;
}
