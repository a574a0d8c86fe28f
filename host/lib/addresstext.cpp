#include "addresstext.h"

#include "textutil.h"

#include <cctype>

namespace {

const char expectedOneBased[] = " (expected HR, IR, DO, DI, FN5DO or FN6HR and a number from 1 to 65536, "
                                "such as HR100, HR0x64, HR100.3, DO5, FN6HR1200 or HR100SW)";
const char expectedZeroBased[] = " (expected HR, IR, DO, DI, FN5DO or FN6HR and a wire number from 0 to "
                                 "65535, such as HR99, HR0x63, HR99.3, DO4, FN6HR1199 or HR99SW)";

const struct
{
    const char *prefix;
    Area area;
} prefixes[] = {
    // Longer prefixes first: FN5DO before DO.
    { "FN5DO", Area::Coils },
    { "FN6HR", Area::HoldingRegisters },
    { "HR", Area::HoldingRegisters },
    { "IR", Area::InputRegisters },
    { "DO", Area::Coils },
    { "DI", Area::DiscreteInputs },
};

bool isDigit(char c) { return std::isdigit(static_cast<unsigned char>(c)) != 0; }
bool isHexDigit(char c) { return std::isxdigit(static_cast<unsigned char>(c)) != 0; }

} // namespace

std::vector<std::string> addressPrefixes()
{
    std::vector<std::string> names;
    for (const auto &p : prefixes)
        names.push_back(p.prefix);
    return names;
}

bool AddressText::parse(const std::string &text, AddressText &address, std::string &error)
{
    return parse(text, address, error, false);
}

namespace {

// The area prefix that upper starts with, into a; pos after it. False for
// none.
bool readPrefix(const std::string &upper, AddressText &a, size_t &pos)
{
    for (const auto &p : prefixes) {
        const std::string name = p.prefix;
        if (upper.compare(0, name.size(), name) == 0) {
            a.prefix = name;
            a.area = p.area;
            pos = name.size();
            return true;
        }
    }
    return false;
}

// The digits from pos on: decimal, or 0x and hexadecimal, at most five
// either way. False for none or too many; else typed and pos after them.
bool readDigits(const std::string &upper, size_t &pos, int &typed)
{
    const bool hex = upper.compare(pos, 2, "0X") == 0;
    if (hex)
        pos += 2;
    size_t digits = pos;
    while (digits < upper.size() && (hex ? isHexDigit(upper[digits]) : isDigit(upper[digits])))
        ++digits;
    if (digits == pos || digits - pos > 5)
        return false;
    typed = int(std::stol(upper.substr(pos, digits - pos), nullptr, hex ? 16 : 10));
    pos = digits;
    return true;
}

// A bit behind a dot at pos, if there is one, into a; pos after it. False
// with one sentence for a bad bit or a bit of a bit area.
bool readBit(
    const std::string &text, const std::string &upper, size_t &pos, AddressText &a, std::string &error)
{
    if (pos >= upper.size() || upper[pos] != '.')
        return true;
    size_t end = pos + 1;
    while (end < upper.size() && isDigit(upper[end]))
        ++end;
    if (end == pos + 1 || end - pos > 3 || std::stoi(upper.substr(pos + 1, end - pos - 1)) > 15) {
        error = "bad bit in address \"" + text + "\": the bit behind the dot runs from 0 to 15";
        return false;
    }
    if (!a.isRegister()) {
        error = "address \"" + text + "\" names a bit of a " + areaName(a.area)
            + " area; only registers have bits (such as HR100.3)";
        return false;
    }
    a.bit = std::stoi(upper.substr(pos + 1, end - pos - 1));
    pos = end;
    return true;
}

} // namespace

bool AddressText::parse(const std::string &text, AddressText &address, std::string &error, bool zeroBased)
{
    const std::string unknown
        = "unknown address \"" + text + "\"" + (zeroBased ? expectedZeroBased : expectedOneBased);
    const std::string upper = upperCase(text);
    AddressText a;
    size_t pos = 0;
    int typed = 0;
    if (!readPrefix(upper, a, pos) || !readDigits(upper, pos, typed)) {
        error = unknown;
        return false;
    }
    a.number = zeroBased ? typed + 1 : typed;
    if (a.number < 1 || a.number > 65536) {
        error = "address \"" + text + "\" is out of range: "
            + (zeroBased ? "with --zero-based, numbers run from 0 to 65535 (HR0 is the first register)"
                         : "numbers run from 1 to 65536 (one-based: HR1 is the first register)");
        return false;
    }
    if (!readBit(text, upper, pos, a, error))
        return false;
    if (pos < upper.size() && upper.compare(pos, std::string::npos, "SW") == 0 && a.bit < 0
        && a.isRegister()) {
        a.swap = true;
        pos = upper.size();
    }
    if (pos != upper.size()) {
        error = unknown;
        return false;
    }
    address = a;
    return true;
}

std::string AddressText::textAt(int n, int b) const
{
    std::string t = prefix + std::to_string(n);
    if (b >= 0)
        t += "." + std::to_string(b);
    if (swap)
        t += "SW";
    return t;
}

std::string AddressText::text() const { return textAt(number, bit); }

const char *areaName(Area area)
{
    switch (area) {
    case Area::Coils:
        return "coil";
    case Area::DiscreteInputs:
        return "discrete input";
    case Area::HoldingRegisters:
        return "holding register";
    case Area::InputRegisters:
        return "input register";
    }
    return "?";
}

const char *areaPrefix(Area area)
{
    switch (area) {
    case Area::Coils:
        return "DO";
    case Area::DiscreteInputs:
        return "DI";
    case Area::InputRegisters:
        return "IR";
    case Area::HoldingRegisters:
        break;
    }
    return "HR";
}
