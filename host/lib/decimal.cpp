#include "decimal.h"

#include <charconv>
#include <cmath>

namespace {

constexpr int maxShift = 18; // 10^18 fits a long long

bool isDigit(char c)
{
    const unsigned char u = static_cast<unsigned char>(c);
    return u >= '0' && u <= '9';
}

// value x 10^shift, false when it does not fit.
bool shifted(long long value, int shift, long long &out)
{
    if (value == 0) {
        out = 0;
        return true;
    }
    if (shift > maxShift)
        return false;
    long long r = value;
    for (int i = 0; i < shift; ++i)
        if (__builtin_mul_overflow(r, 10LL, &r))
            return false;
    out = r;
    return true;
}

// Both mantissas at the smaller exponent.
bool aligned(const Decimal &a, const Decimal &b, long long &x, long long &y)
{
    const int e = a.exponent < b.exponent ? a.exponent : b.exponent;
    return shifted(a.mantissa, a.exponent - e, x) && shifted(b.mantissa, b.exponent - e, y);
}

std::string magnitudeDigits(long long v)
{
    const unsigned long long u
        = v < 0 ? 0ULL - static_cast<unsigned long long>(v) : static_cast<unsigned long long>(v);
    return std::to_string(u);
}

// The exponent behind "e" from position i on: [+-]DIGITS, at most 4 digits.
bool parseExponent(const std::string &text, size_t i, int &exponent)
{
    const bool negative = i < text.size() && text[i] == '-';
    if (i < text.size() && (text[i] == '-' || text[i] == '+'))
        ++i;
    if (i >= text.size() || text.size() - i > 4)
        return false;
    int e = 0;
    for (; i < text.size(); ++i) {
        if (!isDigit(text[i]))
            return false;
        e = e * 10 + (text[i] - '0');
    }
    exponent = negative ? -e : e;
    return true;
}

} // namespace

bool Decimal::parse(const std::string &text, Decimal &value, bool withExponent, int digits, int *decimals)
{
    const bool negative = !text.empty() && text[0] == '-';
    size_t i = negative ? 1 : 0;
    long long m = 0;
    int whole = 0, fraction = 0, significant = 0, e = 0;
    bool point = false;
    for (; i < text.size(); ++i) {
        if (text[i] == '.' && !point && whole > 0) {
            point = true;
            continue;
        }
        if (!isDigit(text[i]))
            break;
        (point ? fraction : whole) += 1;
        if ((m != 0 || text[i] != '0') && ++significant > digits)
            return false;
        m = m * 10 + (text[i] - '0');
    }
    if (whole == 0 || (point && fraction == 0) || significant > 18)
        return false;
    if (i < text.size()
        && !(withExponent && (text[i] == 'e' || text[i] == 'E') && parseExponent(text, i + 1, e)))
        return false;
    value.mantissa = negative ? -m : m;
    value.exponent = e - fraction;
    if (decimals)
        *decimals = fraction;
    return true;
}

bool Decimal::fromDouble(double number, Decimal &value)
{
    if (!std::isfinite(number))
        return false;
    char buffer[64];
    const auto r = std::to_chars(buffer, buffer + sizeof buffer, number);
    return parse(std::string(buffer, r.ptr), value, true);
}

std::string Decimal::text(int decimals) const
{
    std::string digits = magnitudeDigits(mantissa), whole, fraction;
    if (exponent >= 0) {
        whole = mantissa == 0 ? "0" : digits + std::string(size_t(exponent), '0');
    } else {
        const size_t shift = size_t(-exponent);
        if (digits.size() <= shift)
            digits.insert(0, shift + 1 - digits.size(), '0');
        whole = digits.substr(0, digits.size() - shift);
        fraction = digits.substr(digits.size() - shift);
    }
    while (fraction.size() > size_t(decimals > 0 ? decimals : 0) && fraction.back() == '0')
        fraction.pop_back();
    if (int(fraction.size()) < decimals)
        fraction.append(size_t(decimals) - fraction.size(), '0');
    return (mantissa < 0 ? "-" : "") + whole + (fraction.empty() ? "" : "." + fraction);
}

bool multiply(const Decimal &a, const Decimal &b, Decimal &product)
{
    Decimal p;
    if (__builtin_mul_overflow(a.mantissa, b.mantissa, &p.mantissa))
        return false;
    p.exponent = p.mantissa == 0 ? 0 : a.exponent + b.exponent;
    product = p;
    return true;
}

bool add(const Decimal &a, const Decimal &b, Decimal &sum)
{
    if (a.mantissa == 0 || b.mantissa == 0) {
        sum = a.mantissa == 0 ? b : a;
        return true;
    }
    long long x = 0, y = 0;
    Decimal s;
    if (!aligned(a, b, x, y) || __builtin_add_overflow(x, y, &s.mantissa))
        return false;
    s.exponent = a.exponent < b.exponent ? a.exponent : b.exponent;
    sum = s;
    return true;
}

bool subtract(const Decimal &a, const Decimal &b, Decimal &difference)
{
    Decimal negated = b;
    if (__builtin_mul_overflow(b.mantissa, -1LL, &negated.mantissa))
        return false;
    return add(a, negated, difference);
}

bool wholeQuotient(const Decimal &a, const Decimal &b, long long &quotient, bool &fits)
{
    long long x = 0, y = 0;
    fits = aligned(a, b, x, y) && y != 0 && !(y == -1 && x < -9223372036854775807LL);
    if (!fits || x % y != 0)
        return false;
    quotient = x / y;
    return true;
}

int compare(const Decimal &a, const Decimal &b)
{
    if (a.sign() != b.sign())
        return a.sign() < b.sign() ? -1 : 1;
    if (a.sign() == 0)
        return 0;
    // Same sign: compare the magnitudes by their digits, then flip for
    // negative values.
    std::string x = magnitudeDigits(a.mantissa), y = magnitudeDigits(b.mantissa);
    const long long orderX = (long long)x.size() + a.exponent, orderY = (long long)y.size() + b.exponent;
    int magnitude = orderX < orderY ? -1 : orderX > orderY ? 1 : 0;
    if (magnitude == 0) {
        const size_t n = x.size() > y.size() ? x.size() : y.size();
        x.resize(n, '0');
        y.resize(n, '0');
        magnitude = x < y ? -1 : x > y ? 1 : 0;
    }
    return a.sign() < 0 ? -magnitude : magnitude;
}
