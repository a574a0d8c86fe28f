#ifndef TOOLS_H
#define TOOLS_H

// The toolkit that every driver of the runtime links: byte order and bit
// arrays, timing and diagnostics, and (below) the pack/unpack language,
// checksums, and the project database. None of these functions reports an
// error other than through its result.

#include "driverinterface.h"
#include "driversglobal.h"

#include <QByteArray>
#include <QDir>
#include <QList>
#include <QString>

#include <cstdarg>

// ------------------------------------------------------------ byte order and bit arrays
//
// Host order: least significant byte first. Wire order: most significant byte
// first. The conversions swap unconditionally. A bit array keeps bit i in bit
// (i mod 8) of byte (i div 8).

DRIVERS_EXPORT bool isBigEndian();

DRIVERS_EXPORT unsigned short setBit(unsigned short value, unsigned short bit);
DRIVERS_EXPORT unsigned short clearBit(unsigned short value, unsigned short bit);
DRIVERS_EXPORT bool getBit(unsigned short value, unsigned short bit);
DRIVERS_EXPORT unsigned char setBit(unsigned char value, unsigned short bit);
DRIVERS_EXPORT unsigned char clearBit(unsigned char value, unsigned short bit);
DRIVERS_EXPORT bool getBit(unsigned char value, unsigned short bit);
DRIVERS_EXPORT unsigned int setBit(unsigned int value, unsigned short bit);
DRIVERS_EXPORT unsigned int clearBit(unsigned int value, unsigned short bit);
DRIVERS_EXPORT bool getBit(unsigned int value, unsigned short bit);

DRIVERS_EXPORT int QByteArrayToInt(const QByteArray &a);
DRIVERS_EXPORT unsigned short QByteArrayToWord(const QByteArray &a);
DRIVERS_EXPORT short QByteArrayToShort(const QByteArray &a);
DRIVERS_EXPORT QByteArray wordToByteArray(unsigned short w);
DRIVERS_EXPORT QByteArray shortToByteArray(short s);
DRIVERS_EXPORT QByteArray intToByteArray(int i);
DRIVERS_EXPORT QByteArray &appendBigEndianUShort(QByteArray &a, unsigned short v);
DRIVERS_EXPORT bool getBitData(const QByteArray &a);

DRIVERS_EXPORT bool isBitCommand(const CommunicatorCommand &cmd);
DRIVERS_EXPORT bool isByteCommand(const CommunicatorCommand &cmd);
DRIVERS_EXPORT bool isWordCommand(const CommunicatorCommand &cmd);
DRIVERS_EXPORT bool isDoubleWordCommand(const CommunicatorCommand &cmd);
DRIVERS_EXPORT bool isBlockCommand(const CommunicatorCommand &cmd);

DRIVERS_EXPORT QByteArray fromBigEndianUShortArray(const unsigned char *data, int count);
DRIVERS_EXPORT QByteArray fromBigEndianULongArray(const unsigned char *data, int count);
DRIVERS_EXPORT QByteArray toBigEndianUShortArray(const QByteArray &a);
DRIVERS_EXPORT QByteArray toBigEndianULongArray(const QByteArray &a);
// In place; a trailing partial element is padded with zero bytes first, as
// the toBigEndian twins do.
DRIVERS_EXPORT QByteArray &toLittleEndianUShortArray(QByteArray &a);
DRIVERS_EXPORT QByteArray &toLittleEndianULongArray(QByteArray &a);

DRIVERS_EXPORT unsigned int NumOfBitsToNumOfWords(unsigned int firstBit, unsigned int bitCount);
DRIVERS_EXPORT unsigned int NumOfBitsToNumOfDWords(unsigned int firstBit, unsigned int bitCount);
DRIVERS_EXPORT unsigned int NumOfBitsToNumOfBytes(unsigned int firstBit, unsigned int bitCount);
DRIVERS_EXPORT unsigned int NumOfBytesToNumOfWords(unsigned int n);
DRIVERS_EXPORT unsigned int NumOfBytesToNumOfDWords(unsigned int n);
DRIVERS_EXPORT unsigned int NumOfBytesToNumOfQuadWords(unsigned int n);

DRIVERS_EXPORT QByteArray To16bitsData(const QByteArray &a);
DRIVERS_EXPORT QByteArray To32bitsData(const QByteArray &a);
DRIVERS_EXPORT QByteArray To64bitsData(const QByteArray &a);
DRIVERS_EXPORT int GetSafeDataLen(const CommunicatorCommand &cmd);
DRIVERS_EXPORT QByteArray ToSafeData(const CommunicatorCommand &cmd, const QByteArray &data);

// Bit positions outside the array are ignored: get answers false, set and
// copy leave the array unchanged.
DRIVERS_EXPORT bool getBit(const QByteArray &a, int bit);
DRIVERS_EXPORT bool getBit(const unsigned char *p, int bit);
DRIVERS_EXPORT void setBit(QByteArray &a, int bit, bool on);
DRIVERS_EXPORT void setBit(unsigned char *p, int bit, bool on);
// Lengthening pads with zero bytes.
DRIVERS_EXPORT void FitBitArray(QByteArray &a, int bitCount);
DRIVERS_EXPORT void clearUnnecessaryBits(QByteArray &a, int bitCount);
DRIVERS_EXPORT QByteArray ExpandBitsToBytes(const QByteArray &a, unsigned short firstBit, int count);
DRIVERS_EXPORT void CopyBits(QByteArray &dst, QByteArray &src, int dstFirstBit, int count);
// Shifts towards bit 0 by n bits; n above the array's size in bits is
// treated as that size.
DRIVERS_EXPORT void RightShiftNBits(QByteArray &a, int n);
DRIVERS_EXPORT QByteArray reverseArray(const QByteArray &a);

// Rotates the k + m elements at p left by k: elements k..k+m-1 come first,
// followed by elements 0..k-1.
template <typename T> void RotateArray(T *p, int k, int m)
{
    struct Reverse
    {
        static void run(T *first, int n)
        {
            for (int i = 0, j = n - 1; i < j; ++i, --j) {
                T t = first[i];
                first[i] = first[j];
                first[j] = t;
            }
        }
    };
    if (k < 0 || m < 0)
        return;
    Reverse::run(p, k);
    Reverse::run(p + k, m);
    Reverse::run(p, k + m);
}

// ------------------------------------------------------------ timing and diagnostics

// Sleeps ms milliseconds; signals do not shorten the wait.
DRIVERS_EXPORT void HRSleep(unsigned long ms);
// Milliseconds on the monotonic clock.
DRIVERS_EXPORT qint64 CurrentMSecsSinceBoot();
DRIVERS_EXPORT bool ProcessIsRunning(long long pid);
// The hexadecimal number in the first len characters of text (an optional
// "0x" prefix included), or 0 for malformed text.
DRIVERS_EXPORT quint32 HexToUInt(const char *text, int len);
// "(0X41 0X42 0Xa ) : AB\n": the bytes in hexadecimal, then as text up to the
// first zero byte.
DRIVERS_EXPORT QString dumpByteArray(const QByteArray &a);

// ------------------------------------------------------------ pack/unpack format language
//
// A format is a sequence of items read up to its zero byte, without
// separators. An item is a type character, or a decimal count followed by a
// type character:
//
//   c C        1 byte            counted: n bytes copied from/to a pointer
//   s S v      2 bytes, LE       counted (v only): 2n bytes copied unchanged
//   n          2 bytes, BE       counted: n 16-bit values, bytes swapped
//   i I l L V  4 bytes, LE       counted (V only): 4n bytes copied unchanged
//   N          4 bytes, BE       counted: n 32-bit values, bytes reversed
//   x          1 zero byte       counted: n zero bytes (unpack: skip n)
//   X          1 byte stepped over, not written (unpack: skip)
//
// Packing takes an int per single item (its low 8, 16 or 32 bits are used)
// and a pointer per counted item; unpacking takes a pointer of the item's
// width (quint8, quint16, quint32) per item; x and X take no argument.
//
// Results on bad formats:
//   - an unknown character: DataPack 0, ByteArrayPack empty, DataUnpack -1;
//   - a count followed by the end of the format or by anything but a type
//     with a counted form, a count of 0 before c C v V n N, or an item that
//     would take the total past 2^31 - 65 bytes: DataPack -1, ByteArrayPack
//     empty, DataUnpack -1;
//   - ByteArrayPack has no counted x or X: empty.
// Counts are accumulated in 32 bits and wrap: "4294967298x" is a count of 2,
// "4294967296C" a count of 0.
// Processing stops at the first error; the buffer functions keep what they
// wrote before it. A null format counts as empty. The buffer functions trust
// the caller for the size of buffer and of the memory behind each pointer; a
// null buffer with a non-empty format, or a null pointer argument, is an error
// of the second kind.

// Bytes written to buffer ("X" steps included).
DRIVERS_EXPORT int DataPack(unsigned char *buffer, const char *format, ...);
DRIVERS_EXPORT int VDataPack(unsigned char *buffer, const char *format, va_list arguments);
// The packed bytes; a single "X" adds a zero byte.
DRIVERS_EXPORT QByteArray ByteArrayPack(const char *format, ...);
DRIVERS_EXPORT QByteArray VByteArrayPack(const char *format, va_list arguments);
// Bytes consumed from buffer.
DRIVERS_EXPORT int DataUnpack(const unsigned char *buffer, const char *format, ...);
DRIVERS_EXPORT int VDataUnpack(const unsigned char *buffer, const char *format, va_list arguments);

// ------------------------------------------------------------ checksums and CRC family
//
// Block checks over len bytes at data; len < 1 (or a null data) gives 0.

DRIVERS_EXPORT unsigned char UInt8CheckSum(const unsigned char *data, int len);
DRIVERS_EXPORT unsigned short UShortCheckSum(const unsigned char *data, int len);
DRIVERS_EXPORT unsigned char XorUInt8CheckSum(const unsigned char *data, int len);
// CRC-16/ARC: start 0, update_crc_16 per byte, no final XOR.
DRIVERS_EXPORT unsigned short CRC16Calculate(const unsigned char *data, int len);

// Per-byte CRC steps: the current register and the next byte in, the new
// register out. Start value, final XOR and transmission order are the
// caller's. Each table is built once, on first use, safely from any number of
// threads.
extern "C" {
// CRC-16, polynomial 0x8005 reflected (0xA001).
DRIVERS_EXPORT unsigned short update_crc_16(unsigned short crc, unsigned char c);
// CRC-CCITT, polynomial 0x1021, most significant bit first.
DRIVERS_EXPORT unsigned short update_crc_ccitt(unsigned short crc, unsigned char c);
// Kermit, polynomial 0x1021 reflected (0x8408).
DRIVERS_EXPORT unsigned short update_crc_kermit(unsigned short crc, unsigned char c);
// DNP, polynomial 0x3D65 reflected (0xA6BC).
DRIVERS_EXPORT unsigned short update_crc_dnp(unsigned short crc, unsigned char c);
// CRC-32, polynomial 0x04C11DB7 reflected (0xEDB88320).
DRIVERS_EXPORT unsigned int update_crc_32(unsigned int crc, unsigned char c);
// Shift-and-XOR check over byte pairs (0x8005, no table); previousByte is
// the byte before c.
DRIVERS_EXPORT unsigned short update_crc_sick(
    unsigned short crc, unsigned char c, unsigned char previousByte);
}

// ------------------------------------------------------------ project database and device strings
//
// The compiled project lives in "compile" beside the executable, its SQL
// database in "compile/database/database". LINK (LINKID, HMIPORT) binds links
// to panel ports; NODE (LINKID, STATIONID, IP, PORT, ISDEFAULT) lists the
// devices of each link.

struct LinkIdStationId
{
    int linkId; // LINK.LINKID
    unsigned char stationId; // NODE.STATIONID, low 8 bits
};

// The executable's directory, or its "compile" subdirectory when there is one.
DRIVERS_EXPORT QDir GetCompilePath();
// Absolute path of the file "database" in GetCompilePath()'s "database"
// subdirectory (the directory is not entered when missing).
DRIVERS_EXPORT QString GetDatabaseName();

// Panel port number: 2000 for anything beginning with "ETHERNET", 999 + n for
// a string ending in the number n after at least one other character ("COM2"
// gives 1001; a number too long for an int counts as 0). -1 for an empty
// string, one of digits only, or one that does not end in a digit.
DRIVERS_EXPORT int DevStrToHmiPort(const QString &dev_str);

// The look-ups run on the named connection of Qt's SQL registry (opened when
// it is not open, and left open). A failed query yields no rows.
//
// The default node on the link of panel port hmiPort; the first row wins.
// Without a row the out-arguments are left unchanged and the result is false.
DRIVERS_EXPORT bool GetLinkIdAndDefaultStationId(
    const QString &connection, int hmiPort, int &linkId, unsigned char &stationId);
// Appends the default nodes at ip:port on panel port hmiPort; true when
// result is not empty afterwards (it is not cleared first).
DRIVERS_EXPORT bool GetLinkIdAndDefaultStationId(const QString &connection, int hmiPort, const QString &ip,
    unsigned short port, QList<LinkIdStationId> &result);
// Appends the default nodes of link linkId; true when result is not empty
// afterwards (it is not cleared first).
DRIVERS_EXPORT bool GetLinkIdAndDefaultStationId(
    const QString &connection, int linkId, QList<LinkIdStationId> &result);

// The leading ASCII letters and underscores of an address ("HR100" gives "HR").
DRIVERS_EXPORT QByteArray ExtractPrefixSymbol(const QByteArray &text);
DRIVERS_EXPORT QByteArray ExtractPrefixSymbol(const QString &text);
// The number from the first character that can begin a number in base (10,
// 16 or 8) to the end of text; 0 when there is none or the rest does not
// convert as a whole, -1 for any other base. In base 16 prefix letters A..F
// count as digits ("DB10" gives 0xDB10).
DRIVERS_EXPORT int ExtractPLCDeviceAddress(const QByteArray &text, int base);
DRIVERS_EXPORT int ExtractPLCDeviceAddress(const QString &text, int base);

#endif // TOOLS_H
