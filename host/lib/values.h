#ifndef HOST_CLI_VALUES_H
#define HOST_CLI_VALUES_H

// Data types of the command line, and the conversion between the values
// people type and read and the panel's byte order that drivers exchange:
// words and double words little-endian, one byte per written bit, read bits
// packed eight to a byte.

#include "addresstext.h"

#include <QByteArray>

#include <cstdint>
#include <string>
#include <vector>

enum class ValueType { Bit, Byte, Word, DWord };

bool parseValueType(const std::string &text, ValueType &type);
const char *valueTypeName(ValueType type);
// The runtime's CommandDataType code.
int commandDataType(ValueType type);
// Bit for coils, inputs and register bits; double word for an "SW" address;
// word otherwise.
ValueType defaultType(const AddressText &address);
// Whether the type can be used at this address; a sentence in error if not.
bool typeFits(const AddressText &address, ValueType type, std::string &error);

// One typed value from text: decimal, 0x hexadecimal, negative numbers as
// two's complement; bits also as on/off/true/false.
bool parseValue(const std::string &text, ValueType type, uint32_t &value, std::string &error);
// Values in the panel's byte order, as a driver's write takes them.
QByteArray packValues(const std::vector<uint32_t> &values, ValueType type);

struct Element
{
    std::string address; // "HR101", "HR100.4", "HR100 high", "DO6"
    uint32_t value = 0;
};
// The bytes a successful read of count values returns.
int expectedReadSize(ValueType type, int count);
// The elements of a read result; stops at the end of data.
std::vector<Element> unpackValues(
    const QByteArray &data, const AddressText &address, ValueType type, int count);
// The driver serves holding registers HR60000 to HR60010 itself (a window
// that relays writes to several stations), but only to word reads that begin
// there: any other read covering them (bits, bytes, double words, a read that
// begins before HR60000) goes to the drive and shows the drive's registers.
// True for such a read of registers registers (count for words), so that a
// front end can say so.
bool readPassesDriverWindow(const AddressText &address, ValueType type, int count);

// The driver's register window, HR60000 to HR60010: served by the driver
// itself, its last register relaying writes to the listed stations.
constexpr int driverWindowFirst = 60000, driverWindowLast = 60010;
// Whether an address lies in that window (holding registers, with or without FN6).
bool inDriverWindow(const AddressText &address);

// What the driver moves in one request: a 256-byte RTU frame's worth.
constexpr long long driverMaxReadRegisters = 125, driverMaxWriteRegisters = 123;
constexpr long long driverMaxReadBits = 2008, driverMaxWriteCoils = 1976;

// Whether one read (or write) of count values of type at address fits what
// the driver moves in one command: at most 125 registers or 2008 bits in a
// read, 123 registers or 1976 coils in a write, nothing past the area's last
// number, the window's rules, and no write to inputs. False with one sentence
// naming the limit: a command the driver would refuse is bad usage, caught
// before anything is sent.
bool fitsDriverCommand(const AddressText &address, ValueType type, int count, bool write, std::string &error);

// The value as a signed number of the type's width.
long long signedValue(uint32_t value, ValueType type);

#endif // HOST_CLI_VALUES_H
