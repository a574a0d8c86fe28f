#include "addresstext.h"

#include "textutil.h"

#include <cctype>

namespace {

const char expected[] = " (expected HR, IR, DO, DI, FN5DO or FN6HR and a number from 1 to 65536, "
                        "such as HR100, HR100.3, DO5, FN6HR1200 or HR100SW)";

bool isDigit(char c) { return std::isdigit(static_cast<unsigned char>(c)) != 0; }

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

} // namespace

bool AddressText::parse(const std::string &text, AddressText &address, std::string &error)
{
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
    size_t digits = pos;
    while (digits < upper.size() && isDigit(upper[digits]))
        ++digits;
    if (digits == pos || digits - pos > 5) {
        error = "unknown address \"" + text + "\"" + expected;
        return false;
    }
    a.number = std::stoi(upper.substr(pos, digits - pos));
    if (a.number < 1 || a.number > 65536) {
        error = "address \"" + text + "\" is out of range: numbers run from 1 to 65536";
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

std::vector<std::string> addressPrefixes()
{
    std::vector<std::string> names;
    for (const auto &p : prefixes)
        names.push_back(p.prefix);
    return names;
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
