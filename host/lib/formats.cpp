#include "formats.h"

#include "textutil.h"

#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <limits>

namespace {

struct FormatInfo
{
    NumberFormat number;
    const char *name;
    int registers;
    long long low, high; // integer formats only
    const char *range; // as the refusal names it
};

const FormatInfo formats[] = {
    { NumberFormat::Int16, "int16", 1, -32768, 32767, "-32768 to 32767" },
    { NumberFormat::UInt16, "uint16", 1, 0, 65535, "0 to 65535" },
    { NumberFormat::Hex, "hex", 1, 0, 65535, "0x0000 to 0xFFFF" },
    { NumberFormat::Binary, "binary", 1, 0, 65535, "0 to 0b1111111111111111" },
    { NumberFormat::Int32, "int32", 2, -2147483648LL, 2147483647LL, "-2147483648 to 2147483647" },
    { NumberFormat::UInt32, "uint32", 2, 0, 4294967295LL, "0 to 4294967295" },
    { NumberFormat::Float32, "float32", 2, 0, 0,
        "0, or magnitudes from 1.4e-45 to 3.4028235e+38, nan, inf or -inf" },
    { NumberFormat::Float64, "float64", 4, 0, 0,
        "0, or magnitudes from 4.9e-324 to 1.7976931348623157e+308, nan, inf or -inf" },
    { NumberFormat::String, "string", 1, 0, 0, "" },
};

const char *const orderNames[] = { "ABCD", "CDAB", "BADC", "DCBA" };

const FormatInfo &infoOf(NumberFormat number)
{
    for (const FormatInfo &f : formats)
        if (f.number == number)
            return f;
    return formats[1];
}

bool isFloat(NumberFormat n) { return n == NumberFormat::Float32 || n == NumberFormat::Float64; }

bool lowWordFirst(WordOrder o) { return o == WordOrder::CDAB || o == WordOrder::DCBA; }
bool bytesSwapped(WordOrder o) { return o == WordOrder::BADC || o == WordOrder::DCBA; }

// A wide value's bytes, most significant first, from or to its registers.
uint64_t joinRegisters(const uint16_t *regs, int count, WordOrder order)
{
    uint64_t v = 0;
    for (int w = 0; w < count; ++w) { // w: word index, most significant first
        uint16_t r = regs[lowWordFirst(order) ? count - 1 - w : w];
        if (bytesSwapped(order))
            r = uint16_t((r >> 8) | (r << 8));
        v = (v << 16) | r;
    }
    return v;
}

void splitValue(uint64_t v, int count, WordOrder order, std::vector<uint16_t> &regs)
{
    regs.assign(size_t(count), 0);
    for (int w = 0; w < count; ++w) {
        uint16_t r = uint16_t(v >> (16 * (count - 1 - w)));
        if (bytesSwapped(order))
            r = uint16_t((r >> 8) | (r << 8));
        regs[size_t(lowWordFirst(order) ? count - 1 - w : w)] = r;
    }
}

template <typename F> std::string floatText(F f)
{
    if (std::isnan(f))
        return "nan";
    if (std::isinf(f))
        return f < 0 ? "-inf" : "inf";
    char buffer[64];
    const auto r = std::to_chars(buffer, buffer + sizeof buffer, f);
    return std::string(buffer, r.ptr);
}

// A whole number typed in decimal, 0x hexadecimal or 0b binary, with an
// optional '-'.
bool parseIntegerText(const std::string &text, long long &value)
{
    const bool negative = !text.empty() && text[0] == '-';
    const size_t from = negative ? 1 : 0;
    if (text.size() > from + 2 && text[from] == '0' && (text[from + 1] == 'b' || text[from + 1] == 'B')) {
        unsigned long long v = 0;
        for (size_t i = from + 2; i < text.size(); ++i) {
            if (text[i] != '0' && text[i] != '1')
                return false;
            if (v >> 62)
                return false; // beyond long long
            v = (v << 1) | unsigned(text[i] - '0');
        }
        value = negative ? -static_cast<long long>(v) : static_cast<long long>(v);
        return true;
    }
    return parseInteger(text, value);
}

std::string quoted(const std::string &text) { return "\"" + text + "\""; }

std::string stringText(const std::vector<uint16_t> &registers)
{
    std::string bytes;
    for (uint16_t r : registers) {
        bytes += char(r >> 8);
        bytes += char(r & 0xFF);
    }
    while (!bytes.empty() && bytes.back() == '\0')
        bytes.pop_back();
    std::string out;
    static const char digits[] = "0123456789abcdef";
    for (char c : bytes) {
        const unsigned char u = static_cast<unsigned char>(c);
        if (u == '\\') {
            out += "\\\\";
        } else if (u >= 0x20 && u <= 0x7E) {
            out += c;
        } else {
            out += "\\x";
            out += digits[u >> 4];
            out += digits[u & 15];
        }
    }
    return out;
}

int hexDigit(char c)
{
    const unsigned char u = static_cast<unsigned char>(c);
    if (u >= '0' && u <= '9')
        return u - '0';
    if (u >= 'a' && u <= 'f')
        return u - 'a' + 10;
    if (u >= 'A' && u <= 'F')
        return u - 'A' + 10;
    return -1;
}

bool parseString(const std::string &text, std::vector<uint16_t> &registers, std::string &error)
{
    std::string bytes;
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '\\') {
            bytes += text[i];
            continue;
        }
        if (i + 1 < text.size() && text[i + 1] == '\\') {
            bytes += '\\';
            ++i;
            continue;
        }
        const int high = i + 2 < text.size() && text[i + 1] == 'x' ? hexDigit(text[i + 2]) : -1;
        const int low = high >= 0 && i + 3 < text.size() ? hexDigit(text[i + 3]) : -1;
        if (low < 0) {
            error = "bad escape in the string " + quoted(text)
                + ": a backslash is followed by \\ or by x and two hexadecimal digits";
            return false;
        }
        bytes += char(high * 16 + low);
        i += 3;
    }
    if (bytes.size() % 2 || bytes.empty())
        bytes += '\0';
    registers.clear();
    for (size_t i = 0; i < bytes.size(); i += 2)
        registers.push_back(
            uint16_t((static_cast<unsigned char>(bytes[i]) << 8) | static_cast<unsigned char>(bytes[i + 1])));
    return true;
}

} // namespace

const char *formatNames()
{
    return "int16, uint16, hex, binary, int32, uint32, float32, float64 or string, "
           "with :ABCD, :CDAB, :BADC or :DCBA for 32- and 64-bit formats";
}

bool ValueFormat::parse(const std::string &text, ValueFormat &format, std::string &error)
{
    const std::string lower = lowerCase(text);
    const size_t colon = lower.find(':');
    const std::string name = lower.substr(0, colon);
    const FormatInfo *info = nullptr;
    for (const FormatInfo &f : formats)
        if (name == f.name)
            info = &f;
    if (!info) {
        error = "unknown format " + quoted(text) + " (expected " + formatNames() + ")";
        return false;
    }
    ValueFormat f;
    f.number = info->number;
    if (colon != std::string::npos) {
        const std::string order = upperCase(text.substr(colon + 1));
        bool known = false;
        for (int i = 0; i < 4; ++i)
            if (order == orderNames[i]) {
                f.order = WordOrder(i);
                known = true;
            }
        if (!known) {
            error = "unknown word order " + quoted(text.substr(colon + 1))
                + " (expected ABCD, CDAB, BADC or DCBA)";
            return false;
        }
        if (!f.isWide()) {
            error = "a word order applies to 32- and 64-bit formats only, not to " + std::string(info->name);
            return false;
        }
        f.orderGiven = true;
    }
    format = f;
    return true;
}

std::string ValueFormat::text() const
{
    std::string t = infoOf(number).name;
    if (isWide())
        t += std::string(":") + orderNames[int(order)];
    return t;
}

int ValueFormat::registersPerValue() const { return infoOf(number).registers; }

bool ValueFormat::isWide() const { return registersPerValue() > 1; }

bool ValueFormat::isNumeric() const
{
    return number != NumberFormat::Hex && number != NumberFormat::Binary && number != NumberFormat::String;
}

bool formatRegisters(const std::vector<uint16_t> &registers, const ValueFormat &format,
    std::vector<std::string> &values, std::string &error)
{
    values.clear();
    if (format.number == NumberFormat::String) {
        if (!registers.empty())
            values.push_back(stringText(registers));
        return true;
    }
    const int per = format.registersPerValue();
    if (registers.size() % size_t(per)) {
        error = std::to_string(registers.size()) + " registers do not make whole " + format.text()
            + " values of " + std::to_string(per) + " registers each";
        return false;
    }
    for (size_t i = 0; i < registers.size(); i += size_t(per)) {
        const uint64_t v = joinRegisters(&registers[i], per, format.order);
        std::string t;
        switch (format.number) {
        case NumberFormat::Int16:
            t = std::to_string(int16_t(v));
            break;
        case NumberFormat::UInt16:
        case NumberFormat::UInt32:
            t = std::to_string(v);
            break;
        case NumberFormat::Int32:
            t = std::to_string(int32_t(uint32_t(v)));
            break;
        case NumberFormat::Hex: {
            char buffer[8];
            std::snprintf(buffer, sizeof buffer, "0x%04X", unsigned(v));
            t = buffer;
            break;
        }
        case NumberFormat::Binary:
            t = "0b";
            for (int b = 15; b >= 0; --b)
                t += char('0' + ((v >> b) & 1));
            break;
        case NumberFormat::Float32: {
            const uint32_t bits = uint32_t(v);
            float f;
            std::memcpy(&f, &bits, sizeof f);
            t = floatText(f);
            break;
        }
        case NumberFormat::Float64: {
            double d;
            std::memcpy(&d, &v, sizeof d);
            t = floatText(d);
            break;
        }
        case NumberFormat::String:
            break;
        }
        values.push_back(t);
    }
    return true;
}

bool parseFormatted(
    const std::string &text, const ValueFormat &format, std::vector<uint16_t> &registers, std::string &error)
{
    const FormatInfo &info = infoOf(format.number);
    if (format.number == NumberFormat::String)
        return parseString(text, registers, error);
    uint64_t v = 0;
    if (isFloat(format.number)) {
        const char *end = text.data() + text.size();
        std::from_chars_result r;
        if (format.number == NumberFormat::Float32) {
            float f = 0;
            r = std::from_chars(text.data(), end, f);
            if (std::isnan(f))
                f = std::numeric_limits<float>::quiet_NaN();
            uint32_t bits;
            std::memcpy(&bits, &f, sizeof bits);
            v = bits;
        } else {
            double d = 0;
            r = std::from_chars(text.data(), end, d);
            if (std::isnan(d))
                d = std::numeric_limits<double>::quiet_NaN();
            std::memcpy(&v, &d, sizeof v);
        }
        if (r.ec == std::errc::result_out_of_range && r.ptr == end) {
            error = "value " + text + " does not fit in " + std::string(info.name) + " (" + info.range + ")";
            return false;
        }
        if (r.ec != std::errc() || r.ptr != end || text.empty()) {
            error = quoted(text) + " is not a number";
            return false;
        }
    } else {
        long long n = 0;
        if (!parseIntegerText(text, n)) {
            error = quoted(text) + " is not a whole number (decimal, 0x hexadecimal or 0b binary)";
            return false;
        }
        if (n < info.low || n > info.high) {
            error = "value " + text + " does not fit in " + std::string(info.name) + " (" + info.range + ")";
            return false;
        }
        v = uint64_t(n);
    }
    splitValue(v, info.registers, format.order, registers);
    return true;
}
