#ifndef MODBUSRTU_H
#define MODBUSRTU_H

// Address texts, request frames with the lengths of their replies, and the
// CRC of the driver's Modbus RTU master. Internal to the driver (not exported
// from the plug-in).

#include <QByteArray>
#include <QString>

// Splits an address text such as HR100, FN6HR1200 or HR100.3 into the prefix
// (letters as written, appended to prefix), the zero-based register number
// (65535 when no number follows) and the bit index (written only when the
// text has a bit part). Never fails.
void ModbusRTUSlaveParseAddress(
    const QString &address, QByteArray &prefix, unsigned short &registerNumber, unsigned char &bitIndex);

// Request frames, one builder for each function code that the driver sends,
// CRC included (low byte first); 16-bit fields go high byte first. They check
// nothing: the operations check station, quantity and range before building.

// Functions 1 to 4: quantity is bits for 1 and 2, registers for 3 and 4.
QByteArray ModbusRTUSlaveBuildReadDevicesRequest(
    unsigned char station, unsigned char functionCode, unsigned short start, unsigned short quantity);
// Function 16: data is the register values in wire order; the byte count is
// the low 8 bits of its size.
QByteArray ModbusRTUSlaveBuildFn16Request(
    unsigned char station, unsigned short start, unsigned short quantity, const QByteArray &data);
// Function 6: data is the register value in wire order.
QByteArray ModbusRTUSlaveBuildFn6Request(
    unsigned char station, unsigned short address, const QByteArray &data);
// Function 15: one byte per coil in states, any byte but 0 switching its coil
// on, packed eight to a byte with the first coil in bit 0; the quantity is the
// number of states.
QByteArray ModbusRTUSlaveBuildFn15Request(
    unsigned char station, unsigned short start, const QByteArray &states);
// Function 5: FF 00 switches the coil on, 00 00 off.
QByteArray ModbusRTUSlaveBuildFn5Request(unsigned char station, unsigned short coil, bool on);

// The length of the reply that a request built above expects, CRC included:
// for reads the data asked for behind station, function code and byte count;
// for writes station, function code and the two 16-bit fields echoed. Any
// other request expects 5 bytes, the length of an exception reply.
int ModbusRTUSlaveReplyLength(const QByteArray &request);

// Appends the CRC of the bytes already in frame.
void ModbusRTUSlaveAppendCRC(QByteArray &frame);

// True when the last two of length bytes are the CRC of the bytes before
// them. Lengths below 2 are never a valid frame.
bool ModbusRTUSlaveCheckCRC(unsigned char *frame, unsigned int length);

// Modbus CRC-16 of length bytes (length taken modulo 65536): first is the
// byte sent first (the CRC's low byte), second the byte after it.
void ModbusRTUSlaveCRC(
    const unsigned char *data, unsigned int length, unsigned char &first, unsigned char &second);

// True when prefix begins with name, compared without regard to case over
// the length of name (H does not match "HR"; HRX does).
bool prefixMatches(const QByteArray &prefix, const char *name);

#endif // MODBUSRTU_H
