#include "values.h"

#include "textutil.h"

#include <cstdlib>

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
        char *end = nullptr;
        const char *begin = text.c_str();
        const bool digits = text.find_first_of("0123456789") != std::string::npos;
        if (digits && (std::strtod(begin, &end), end == begin + text.size()))
            error = std::string("a ") + info.name + " takes an integer, not \"" + text
                + "\" (for a number with a fraction give a format, such as --format float32)";
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

namespace {

// The registers (or, outside registers, the bits) that count values of type
// at address cover.
long long span(const AddressText &address, ValueType type, long long count)
{
    if (!address.isRegister())
        return count;
    if (address.bit >= 0)
        return (address.bit + count + 15) / 16;
    if (type == ValueType::DWord)
        return 2 * count;
    if (type == ValueType::Byte)
        return (count + 1) / 2;
    return count;
}

std::string plural(long long n, const char *one)
{
    return std::to_string(n) + " " + one + (n == 1 ? "" : "s");
}

// The window's own rules: a word read that begins in it stays in it; a word
// write stays below the relay register or writes it alone.
bool fitsDriverWindow(
    const AddressText &a, ValueType type, long long registers, bool write, std::string &error)
{
    if (!inDriverWindow(a) || type != ValueType::Word)
        return true;
    const long long first = a.number, last = first + registers - 1;
    if (!write && last > driverWindowLast) {
        error = "the driver's register window ends at HR60010: a read from " + a.text() + " takes at most "
            + plural(driverWindowLast - first + 1, "register");
        return false;
    }
    const bool relayAlone = first == driverWindowLast && registers == 1;
    if (write && last >= driverWindowLast && !relayAlone) {
        error = "HR60010, the driver's relay register, takes one word written on its own: this write of "
            + plural(registers, "word") + " from " + a.text() + " reaches it";
        return false;
    }
    return true;
}

} // namespace

bool inDriverWindow(const AddressText &address)
{
    return address.area == Area::HoldingRegisters && address.number >= driverWindowFirst
        && address.number <= driverWindowLast;
}

bool fitsDriverCommand(const AddressText &a, ValueType type, int count, bool write, std::string &error)
{
    if (write && (a.area == Area::InputRegisters || a.area == Area::DiscreteInputs)) {
        error = std::string(a.area == Area::InputRegisters ? "input registers" : "discrete inputs")
            + " are read-only: " + a.text() + " cannot be written";
        return false;
    }
    const bool bits = !a.isRegister();
    const long long covered = span(a, type, count);
    const long long limit = bits ? (write ? driverMaxWriteCoils : driverMaxReadBits)
                                 : (write ? driverMaxWriteRegisters : driverMaxReadRegisters);
    if (covered > limit) {
        error = "at most " + plural(limit, bits ? (write ? "coil" : "bit") : "register") + " in one "
            + (write ? "write" : "read") + ": this one from " + a.text() + " takes "
            + std::to_string(covered);
        return false;
    }
    if (a.number + covered - 1 > 65536) {
        error = a.text() + " with " + plural(covered, bits ? "bit" : "register") + " runs past "
            + areaPrefix(a.area) + "65536, the last " + (bits ? "one" : "register");
        return false;
    }
    return fitsDriverWindow(a, type, covered, write, error);
}

bool readPassesDriverWindow(const AddressText &address, ValueType type, int count)
{
    if (address.area != Area::HoldingRegisters || count < 1)
        return false;
    const long long first = address.number, last = first + span(address, type, count) - 1;
    if (last < driverWindowFirst || first > driverWindowLast)
        return false;
    const bool servedByWindow = type == ValueType::Word && address.bit < 0 && first >= driverWindowFirst;
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

namespace {

// The i-th value of type in data with the address it came from; false where
// data ends before it.
bool unpackElement(const QByteArray &data, const AddressText &address, ValueType type, int i, Element &e)
{
    auto byteAt = [&](int k) { return uint32_t(static_cast<unsigned char>(data.at(k))); };
    switch (type) {
    case ValueType::Bit:
        if (i / 8 >= data.size())
            return false;
        e.value = (byteAt(i / 8) >> (i % 8)) & 1;
        if (address.isRegister()) {
            const int bit = (address.bit < 0 ? 0 : address.bit) + i;
            e.address = address.textAt(address.number + bit / 16, bit % 16);
        } else {
            e.address = address.textAt(address.number + i, -1);
        }
        return true;
    case ValueType::Byte:
        if (i >= data.size())
            return false;
        e.value = byteAt(i);
        e.address = address.textAt(address.number + i / 2, -1) + (i % 2 ? " high" : " low");
        return true;
    case ValueType::Word:
        if (2 * i + 1 >= data.size())
            return false;
        e.value = byteAt(2 * i) | (byteAt(2 * i + 1) << 8);
        e.address = address.textAt(address.number + i, -1);
        return true;
    case ValueType::DWord:
        if (4 * i + 3 >= data.size())
            return false;
        e.value = byteAt(4 * i) | (byteAt(4 * i + 1) << 8) | (byteAt(4 * i + 2) << 16)
            | (byteAt(4 * i + 3) << 24);
        e.address = address.textAt(address.number + 2 * i, -1);
        return true;
    }
    return true;
}

} // namespace

std::vector<Element> unpackValues(
    const QByteArray &data, const AddressText &address, ValueType type, int count)
{
    std::vector<Element> out;
    for (int i = 0; i < count; ++i) {
        Element e;
        if (!unpackElement(data, address, type, i, e))
            return out;
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
