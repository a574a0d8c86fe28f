#include "values.h"

#include "textutil.h"

namespace {

struct TypeInfo
{
    ValueType type;
    const char *name;
    int code; // CommandDataType
    long long low, high;
};

const TypeInfo types[] = {
    { ValueType::Bit, "bit", 0, 0, 1 },
    { ValueType::Byte, "byte", 1, -128, 255 },
    { ValueType::Word, "word", 2, -32768, 65535 },
    { ValueType::DWord, "dword", 3, -2147483648LL, 4294967295LL },
};

const TypeInfo &infoOf(ValueType type)
{
    for (const TypeInfo &t : types)
        if (t.type == type)
            return t;
    return types[2];
}

} // namespace

bool parseValueType(const std::string &text, ValueType &type)
{
    const std::string t = lowerCase(text);
    for (const TypeInfo &i : types)
        if (t == i.name) {
            type = i.type;
            return true;
        }
    return false;
}

const char *valueTypeName(ValueType type) { return infoOf(type).name; }

int commandDataType(ValueType type) { return infoOf(type).code; }

ValueType defaultType(const AddressText &address)
{
    if (!address.isRegister() || address.bit >= 0)
        return ValueType::Bit;
    return address.swap ? ValueType::DWord : ValueType::Word;
}

bool typeFits(const AddressText &address, ValueType type, std::string &error)
{
    if (!address.isRegister() && type != ValueType::Bit) {
        error = address.text() + " is a " + areaName(address.area) + ": it holds bits, not "
            + valueTypeName(type) + "s (use --type bit)";
        return false;
    }
    if (address.bit >= 0 && type != ValueType::Bit) {
        error = address.text() + " names a bit: use --type bit, or the register without \"."
            + std::to_string(address.bit) + "\"";
        return false;
    }
    if (address.swap && type != ValueType::DWord) {
        error = "\"SW\" in " + address.text() + " orders the words of double words: use --type dword";
        return false;
    }
    return true;
}

bool parseValue(const std::string &text, ValueType type, uint32_t &value, std::string &error)
{
    const TypeInfo &info = infoOf(type);
    if (type == ValueType::Bit) {
        const std::string t = lowerCase(text);
        if (t == "1" || t == "on" || t == "true") {
            value = 1;
            return true;
        }
        if (t == "0" || t == "off" || t == "false") {
            value = 0;
            return true;
        }
        error = "a bit is 0 or 1 (or on/off), not \"" + text + "\"";
        return false;
    }
    long long v = 0;
    if (!parseInteger(text, v)) {
        error = "\"" + text + "\" is not a number";
        return false;
    }
    if (v < info.low || v > info.high) {
        error = "value " + text + " does not fit in a " + info.name + " (" + std::to_string(info.low) + " to "
            + std::to_string(info.high) + ")";
        return false;
    }
    value = uint32_t(v);
    return true;
}

QByteArray packValues(const std::vector<uint32_t> &values, ValueType type)
{
    QByteArray out;
    for (uint32_t v : values) {
        switch (type) {
        case ValueType::Bit:
            out.append(char(v ? 1 : 0));
            break;
        case ValueType::Byte:
            out.append(char(v & 0xFF));
            break;
        case ValueType::Word:
            out.append(char(v & 0xFF));
            out.append(char((v >> 8) & 0xFF));
            break;
        case ValueType::DWord:
            for (int k = 0; k < 4; ++k)
                out.append(char((v >> (8 * k)) & 0xFF));
            break;
        }
    }
    return out;
}

bool readPassesDriverWindow(const AddressText &address, ValueType type, int count)
{
    const int windowFirst = 60000, windowLast = 60010;
    if (address.area != Area::HoldingRegisters || count < 1)
        return false;
    int registers = count;
    if (address.bit >= 0)
        registers = (address.bit + count + 15) / 16;
    else if (type == ValueType::DWord)
        registers = 2 * count;
    else if (type == ValueType::Byte)
        registers = (count + 1) / 2;
    const long long first = address.number, last = first + registers - 1;
    if (last < windowFirst || first > windowLast)
        return false;
    const bool servedByWindow = type == ValueType::Word && address.bit < 0 && first >= windowFirst;
    return !servedByWindow;
}

int expectedReadSize(ValueType type, int count)
{
    switch (type) {
    case ValueType::Bit:
        return (count + 7) / 8;
    case ValueType::Byte:
        return count;
    case ValueType::Word:
        return 2 * count;
    case ValueType::DWord:
        return 4 * count;
    }
    return 0;
}

std::vector<Element> unpackValues(
    const QByteArray &data, const AddressText &address, ValueType type, int count)
{
    std::vector<Element> out;
    auto byteAt = [&](int i) { return uint32_t(static_cast<unsigned char>(data.at(i))); };
    for (int i = 0; i < count; ++i) {
        Element e;
        switch (type) {
        case ValueType::Bit: {
            if (i / 8 >= data.size())
                return out;
            e.value = (byteAt(i / 8) >> (i % 8)) & 1;
            if (address.isRegister()) {
                const int bit = (address.bit < 0 ? 0 : address.bit) + i;
                e.address = address.textAt(address.number + bit / 16, bit % 16);
            } else {
                e.address = address.textAt(address.number + i, -1);
            }
            break;
        }
        case ValueType::Byte:
            if (i >= data.size())
                return out;
            e.value = byteAt(i);
            e.address = address.textAt(address.number + i / 2, -1) + (i % 2 ? " high" : " low");
            break;
        case ValueType::Word:
            if (2 * i + 1 >= data.size())
                return out;
            e.value = byteAt(2 * i) | (byteAt(2 * i + 1) << 8);
            e.address = address.textAt(address.number + i, -1);
            break;
        case ValueType::DWord:
            if (4 * i + 3 >= data.size())
                return out;
            e.value = byteAt(4 * i) | (byteAt(4 * i + 1) << 8) | (byteAt(4 * i + 2) << 16)
                | (byteAt(4 * i + 3) << 24);
            e.address = address.textAt(address.number + 2 * i, -1);
            break;
        }
        out.push_back(e);
    }
    return out;
}

long long signedValue(uint32_t value, ValueType type)
{
    switch (type) {
    case ValueType::Byte:
        return static_cast<int8_t>(value & 0xFF);
    case ValueType::Word:
        return static_cast<int16_t>(value & 0xFFFF);
    case ValueType::DWord:
        return static_cast<int32_t>(value);
    default:
        return value;
    }
}
