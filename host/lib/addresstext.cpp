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

bool AddressText::parse(const std::string &text, AddressText &address, std::string &error, bool zeroBased)
{
    const char *const expected = zeroBased ? expectedZeroBased : expectedOneBased;
    const std::string upper = upperCase(text);
    AddressText a;
    size_t pos = 0;
    for (const auto &p : prefixes) {
        const std::string name = p.prefix;
        if (upper.compare(0, name.size(), name) == 0) {
            a.prefix = name;
            a.area = p.area;
            pos = name.size();
            break;
        }
    }
    if (a.prefix.empty()) {
        error = "unknown address \"" + text + "\"" + expected;
        return false;
    }
    // Decimal, or 0x and hexadecimal: at most five digits either way.
    const bool hex = upper.compare(pos, 2, "0X") == 0;
    if (hex)
        pos += 2;
    size_t digits = pos;
    while (digits < upper.size() && (hex ? isHexDigit(upper[digits]) : isDigit(upper[digits])))
        ++digits;
    if (digits == pos || digits - pos > 5) {
        error = "unknown address \"" + text + "\"" + expected;
        return false;
    }
    const int typed = int(std::stol(upper.substr(pos, digits - pos), nullptr, hex ? 16 : 10));
    a.number = zeroBased ? typed + 1 : typed;
    if (a.number < 1 || a.number > 65536) {
        error = "address \"" + text + "\" is out of range: "
            + (zeroBased ? "with --zero-based, numbers run from 0 to 65535 (HR0 is the first register)"
                         : "numbers run from 1 to 65536 (one-based: HR1 is the first register)");
        return false;
    }
    pos = digits;
    if (pos < upper.size() && upper[pos] == '.') {
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
    }
    if (pos < upper.size() && upper.compare(pos, std::string::npos, "SW") == 0 && a.bit < 0
        && a.isRegister()) {
        a.swap = true;
        pos = upper.size();
    }
    if (pos != upper.size()) {
        error = "unknown address \"" + text + "\"" + expected;
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
