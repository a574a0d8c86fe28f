#ifndef HOST_DECIMAL_H
#define HOST_DECIMAL_H

// Exact decimal numbers for engineering values: mantissa x 10^exponent,
// parsed from the texts people write ("0.01", "-40", "1.5e-3"), multiplied,
// added, divided into whole steps and compared without any rounding. An
// operation whose result does not fit (more than 18 digits) fails instead
// of rounding.

#include <string>

struct Decimal
{
    long long mantissa = 0;
    int exponent = 0;

    // -?DIGITS[.DIGITS] with at most digits significant digits, and with
    // withExponent also [eE][+-]DIGITS behind. decimals: the digits after the
    // point as written ("0.10" has 2). False for anything else.
    static bool parse(
        const std::string &text, Decimal &value, bool withExponent, int digits = 18, int *decimals = nullptr);
    // A double as its shortest text gives it back (1.5, 1e+20); false for nan
    // and infinities.
    static bool fromDouble(double number, Decimal &value);

    // The value with at least decimals digits after the point ("0.160" for
    // 0.16 at 3); more when it has more, never rounded.
    std::string text(int decimals = 0) const;
    int sign() const { return mantissa > 0 ? 1 : mantissa < 0 ? -1 : 0; }
};

// False when the result does not fit.
bool multiply(const Decimal &a, const Decimal &b, Decimal &product);
bool add(const Decimal &a, const Decimal &b, Decimal &sum);
bool subtract(const Decimal &a, const Decimal &b, Decimal &difference);
// quotient = a / b when that is a whole number. False when it is not (fits
// stays true) or when the numbers do not fit (fits false); b is not zero.
bool wholeQuotient(const Decimal &a, const Decimal &b, long long &quotient, bool &fits);
// -1, 0 or 1; exact for any two values.
int compare(const Decimal &a, const Decimal &b);

#endif // HOST_DECIMAL_H
