#include "textutil.h"

#include <cctype>
#include <limits>

namespace {

bool isSpace(char c) { return std::isspace(static_cast<unsigned char>(c)) != 0; }

// The value of one digit in base 10 or 16, or -1.
int digitValue(char c, int base)
{
    const unsigned char u = static_cast<unsigned char>(c);
    int v = -1;
    if (u >= '0' && u <= '9')
        v = u - '0';
    else if (u >= 'a' && u <= 'f')
        v = u - 'a' + 10;
    else if (u >= 'A' && u <= 'F')
        v = u - 'A' + 10;
    return v < base ? v : -1;
}

// The digits of text from position from on, in base, as a magnitude of at
// most limit; false for no digits, a byte that is not a digit, or more.
bool magnitude(
    const std::string &text, size_t from, int base, unsigned long long limit, unsigned long long &value)
{
    if (from >= text.size())
        return false;
    unsigned long long v = 0;
    for (size_t i = from; i < text.size(); ++i) {
        const int d = digitValue(text[i], base);
        if (d < 0 || unsigned(d) > limit || v > (limit - unsigned(d)) / unsigned(base))
            return false;
        v = v * unsigned(base) + unsigned(d);
    }
    value = v;
    return true;
}

} // namespace

std::vector<std::string> splitFields(const std::string &text, char separator)
{
    std::vector<std::string> fields;
    size_t from = 0;
    for (;;) {
        const size_t at = text.find(separator, from);
        if (at == std::string::npos)
            break;
        fields.push_back(text.substr(from, at - from));
        from = at + 1;
    }
    fields.push_back(text.substr(from));
    return fields;
}

std::string trimmed(const std::string &text)
{
    size_t a = 0, b = text.size();
    while (a < b && isSpace(text[a]))
        ++a;
    while (b > a && isSpace(text[b - 1]))
        --b;
    return text.substr(a, b - a);
}

std::string upperCase(std::string text)
{
    for (char &c : text)
        if (c >= 'a' && c <= 'z')
            c = char(c - 'a' + 'A');
    return text;
}

std::string lowerCase(std::string text)
{
    for (char &c : text)
        if (c >= 'A' && c <= 'Z')
            c = char(c - 'A' + 'a');
    return text;
}

bool parseWholeNumber(const std::string &text, long long low, long long high, long long &value)
{
    unsigned long long v = 0;
    if (high < 0 || low > high || !magnitude(text, 0, 10, static_cast<unsigned long long>(high), v))
        return false;
    if (low > 0 && v < static_cast<unsigned long long>(low))
        return false;
    value = static_cast<long long>(v);
    return true;
}

bool parseWholeNumber(const std::string &text, int low, int high, int &value)
{
    long long v = 0;
    if (!parseWholeNumber(text, (long long)low, (long long)high, v))
        return false;
    value = int(v);
    return true;
}

bool parseInteger(const std::string &text, long long &value)
{
    const bool negative = !text.empty() && text[0] == '-';
    size_t from = negative ? 1 : 0;
    int base = 10;
    if (text.size() > from + 1 && text[from] == '0' && (text[from + 1] == 'x' || text[from + 1] == 'X')) {
        base = 16;
        from += 2;
    }
    const unsigned long long most = std::numeric_limits<long long>::max();
    unsigned long long v = 0;
    if (!magnitude(text, from, base, negative ? most + 1 : most, v))
        return false;
    // -(most + 1) is the lowest long long; negate in unsigned arithmetic.
    value = negative ? static_cast<long long>(0ull - v) : static_cast<long long>(v);
    return true;
}

std::string fitColumns(const std::string &text, int columns)
{
    // Characters begin at every byte that is not a UTF-8 continuation byte.
    auto starts = [&](size_t i) { return (static_cast<unsigned char>(text[i]) & 0xC0) != 0x80; };
    int count = 0;
    for (size_t i = 0; i < text.size(); ++i)
        count += starts(i) ? 1 : 0;
    if (count <= columns)
        return text;
    if (columns < 4)
        return std::string(size_t(columns > 0 ? columns : 0), '.');
    int kept = 0;
    size_t end = 0;
    while (end < text.size() && !(starts(end) && kept == columns - 3)) {
        kept += starts(end) ? 1 : 0;
        ++end;
    }
    return text.substr(0, end) + "...";
}
