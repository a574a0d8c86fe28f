#ifndef TESTS_HEX_H
#define TESTS_HEX_H

#include <QByteArray>
#include <QString>

#include <ostream>
#include <initializer_list>
#include <string>
#include <vector>

// Bytes written as hex text ("01 03 00 63"), so that a failing test shows them.
QByteArray hex(const char *text);
std::string toHex(const QByteArray &bytes);

// Modbus CRC-16 computed bit by bit, independently of the driver's tables.
quint16 bitwiseCrc16(const QByteArray &bytes);
// The frame, in hex text or as bytes, with its CRC appended, low byte first.
QByteArray withCrc(const char *text);
QByteArray withCrc(const QByteArray &frame);
// Frames in hex text without their CRC, as sent() lists them: with it.
std::vector<std::string> framesWithCrc(const std::vector<std::string> &frames);
QByteArray repeated(const char *bytes, int times);
// 16-bit values in the panel's order, low byte first.
QByteArray words(std::initializer_list<quint16> values);

// Words with a space after each, to name a row of command-line words.
std::string joined(const std::vector<std::string> &words);

// gtest prints QByteArray and QString through these.
QT_BEGIN_NAMESPACE
void PrintTo(const QByteArray &bytes, std::ostream *os);
void PrintTo(const QString &text, std::ostream *os);
QT_END_NAMESPACE

#endif
