#ifndef DRIVERTEXTS_H
#define DRIVERTEXTS_H

// Every text the driver records in its error state, each defined once.

#include <QString>

namespace DriverTexts {

// Request exchange and station check.
const char InvalidSlaveId[] = "invalid slave id:%d";
const char NoResponse[] = "PLC no response";
const char ReceivedTooFew[] = "received bytes < %1";
const char InvalidResponse[] = "invalid response";
const char CrcError[] = "CRC error";
const char ExceptionCode[] = "exception code:0x%02X";
const char PacketLoss[] = "packet loss";

// Refusals of reads (prefix and one-based number, or count, prefix, number).
const char CantReadWord[] = "can't read any word from %s%d";
const char CantReadDoubleWord[] = "can't read any double word from %s%d";
const char CantReadByte[] = "can't read any byte from %s%d";
const char CantReadBits[] = "can't read %d bits from %s%u";

// Refusals of writes (%1: the one-based register number).
const char CantWriteWord[] = "can't write any word to HR%1";
const char CantWriteByte[] = "can't write any byte to HR%1";
const char CantWriteDoubleWord[] = "can't write any double word to HR%1";
const char CantWriteBits[] = "can't write %d bits to DO%d";
// Data whose size is not a whole number of elements is refused rather than
// padded: a padded register would reach the drive as a value nobody wrote.
const char WordDataSize[] = "can't write %d byte(s) as words to HR%d";
const char DoubleWordDataSize[] = "can't write %d byte(s) as double words to HR%d";

// The special register window.
const char SpecialReadPastEnd[] = "can't read %d word(s) from HR%d: the special registers end at HR60010";
const char SpecialWritePastRelay[] = "can't write %d word(s) to HR%d: HR60010 takes one word on its own";

// Dispatchers.
const char UnsupportedDataType[] = "unsupported data type: ";
const char CantWriteAnyBitTo[] = "can't write any bit to %1";
const char CantWriteAnyByteTo[] = "can't write any byte to %1";
const char CantWriteAnyWordTo[] = "can't write any word to %1";
const char CantWriteAnyDoubleWordTo[] = "can't write any double word to %1";

// Descriptions appended after the last failed attempt, by data type.
const char *const ReadSuffix[4] = { " (read %d bit(s) from %d-", " (read %d byte(s) from %d-",
    " (read %d word(s) from %d-", " (read %d dword(s) from %d-" };
const char *const WriteSuffix[4] = { " (write %d bit to %d-", " (write %d byte to %d-",
    " (write %d word to %d-", " (write %d dword to %d-" };

} // namespace DriverTexts

// printf-style formatting into a QString of any length, the same under both
// Qt generations.
QString formatText(const char *format, ...)
#ifdef __GNUC__
    __attribute__((format(printf, 1, 2)))
#endif
    ;

#endif // DRIVERTEXTS_H
