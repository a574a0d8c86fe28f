#ifndef TESTS_HEX_H
#define TESTS_HEX_H

#include <QByteArray>
#include <QString>

#include <ostream>
#include <string>

// Bytes written as hex text ("01 03 00 63"), so that a failing test shows them.
QByteArray hex(const char *text);
std::string toHex(const QByteArray &bytes);

// Modbus CRC-16 computed bit by bit, independently of the driver's tables.
quint16 bitwiseCrc16(const QByteArray &bytes);
// The frame, in hex text or as bytes, with its CRC appended, low byte first.
QByteArray withCrc(const char *text);
QByteArray withCrc(const QByteArray &frame);

// gtest prints QByteArray and QString through these.
QT_BEGIN_NAMESPACE
void PrintTo(const QByteArray &bytes, std::ostream *os);
void PrintTo(const QString &text, std::ostream *os);
QT_END_NAMESPACE

#endif
