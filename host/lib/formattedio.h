#ifndef HOST_FORMATTEDIO_H
#define HOST_FORMATTEDIO_H

// Reading and writing registers in a number format (formats.h) through a
// loaded driver: the driver moves plain words (ValueType::Word, one per
// register, from the address without its "SW"), and the format turns them
// into values and back. What teco-cli and the monitor share.

#include "addresstext.h"
#include "driverhost.h"
#include "formats.h"

#include <optional>
#include <string>
#include <vector>

// Whether a format applies at an address, settling its word order: formats
// are for whole registers (not coils, inputs or register bits); without an
// order of its own a 32- or 64-bit format takes the address's, CDAB (low word
// first, as the driver's double word) for a plain address and ABCD for an
// "SW" one. An "SW" address refuses 16-bit formats, strings and the low-word-
// first orders. False with one sentence in error.
bool settleFormat(const AddressText &address, ValueFormat &format, std::string &error);

// The registers that count values of a format take: count times its
// registersPerValue(); for a string, count is the registers themselves.
// False with one sentence when they run past the area's last register.
bool formattedRegisterCount(
    const AddressText &address, const ValueFormat &format, int count, int &registers, std::string &error);

// Typed values to the registers that hold them, one text per value; a string
// is one text, padded with NUL to padTo registers when given (a longer text
// is refused). False with one sentence for a value that does not fit.
bool registersFromTexts(const std::vector<std::string> &texts, const ValueFormat &format,
    std::optional<int> padTo, std::vector<uint16_t> &registers, std::string &error);

struct FormattedResult
{
    bool ok = false;
    std::vector<std::string> addresses; // the first register of each value, as the panel writes it
    std::vector<std::string> values; // one text per value
    std::string errorText; // the driver's text, or the host's
    DriverError error;
    int64_t answeredMs = 0; // as DriverHost::Result's
    int64_t requestsSent = -1; // as DriverHost::Result's; -1 also when no read was made
};

// The texts of a read's answer r: its elements as unsigned numbers, or with
// a format the registers (registers of them, from address) in it.
FormattedResult textsOfRead(const DriverHost::Result &r, const AddressText &address,
    const std::optional<ValueFormat> &format, int registers);
// Reads count values (for a string: count registers) from address.
FormattedResult readFormatted(const DriverHost &host, CommandLink link, const AddressText &address,
    const ValueFormat &format, int count);
// One read as texts, as poll and the monitor show it: in format when there
// is one, else count values of type as unsigned numbers.
FormattedResult readAsTexts(const DriverHost &host, CommandLink link, const AddressText &address,
    ValueType type, const std::optional<ValueFormat> &format, int count);
// Writes registers from address on.
DriverHost::Result writeRegisters(const DriverHost &host, CommandLink link, const AddressText &address,
    const std::vector<uint16_t> &registers);

#endif // HOST_FORMATTEDIO_H
