#ifndef HOST_TEXTUTIL_H
#define HOST_TEXTUTIL_H

// Small pieces of text handling that every parser of the host programs
// needs: link settings, station lists, fault rules, register maps, tags and
// command lines. Bytes above 127 are never letters, digits or spaces here,
// whatever the sign of char.

#include <string>
#include <vector>

// The fields of text between separators, empty ones kept: "1,,2" gives "1",
// "" and "2"; "" gives one empty field.
std::vector<std::string> splitFields(const std::string &text, char separator);

// text without the white space at either end.
std::string trimmed(const std::string &text);

// ASCII letters changed to upper or lower case; other bytes as they are.
std::string upperCase(std::string text);
std::string lowerCase(std::string text);

// A whole decimal number: digits only (no sign, no spaces, no point) whose
// value lies in [low, high]. Any length of input is safe: a value beyond high
// is refused without overflowing. On failure returns false and leaves value
// unchanged.
bool parseWholeNumber(const std::string &text, long long low, long long high, long long &value);
bool parseWholeNumber(const std::string &text, int low, int high, int &value);

// An integer as people type values: an optional '-' and then decimal digits
// or "0x" and hexadecimal digits ("-5", "0x1F", "-0x10"); no '+', no spaces.
// False for anything else and for magnitudes beyond long long, leaving value
// unchanged; the caller checks the range it needs.
bool parseInteger(const std::string &text, long long &value);

// text in at most columns characters (a UTF-8 sequence counts as one): as it
// is when it fits, otherwise cut and ending in "..." (columns below 4 give
// that many dots).
std::string fitColumns(const std::string &text, int columns);

#endif // HOST_TEXTUTIL_H
