#ifndef MODBUSRTU_H
#define MODBUSRTU_H

// Address texts, request frames and the CRC of the driver's Modbus RTU
// master. Internal to the driver (not exported from the plug-in).

#include <QByteArray>
#include <QString>

// Splits an address text such as HR100, FN6HR1200 or HR100.3 into the prefix
// (letters as written, appended to prefix), the zero-based register number
// (65535 when no number follows) and the bit index (written only when the
// text has a bit part). Never fails.
void ModbusRTUSlaveParseAddress(
    const QString &address, QByteArray &prefix, unsigned short &registerNumber, unsigned char &bitIndex);

// Request frames, CRC included (low byte first). They check nothing: the
// operations check station, quantity and range before building.
QByteArray ModbusRTUSlaveBuildReadDevicesRequest(
    unsigned char station, unsigned char functionCode, unsigned short start, unsigned short quantity);
QByteArray ModbusRTUSlaveBuildFn16Request(
    unsigned char station, unsigned short start, unsigned short quantity, const QByteArray &data);
QByteArray ModbusRTUSlaveBuildFn6Request(
    unsigned char station, unsigned short address, const QByteArray &data);

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
