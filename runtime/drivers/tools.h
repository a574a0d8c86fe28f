#ifndef TOOLS_H
#define TOOLS_H

// The toolkit that every driver of the runtime links: byte order and bit
// arrays, timing and diagnostics, and (below) the pack/unpack language,
// checksums, and the project database. None of these functions reports an
// error other than through its result.

#include "driverinterface.h"
#include "driversglobal.h"

#include <QByteArray>
#include <QString>

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
    struct Reverse {
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

#endif // TOOLS_H
