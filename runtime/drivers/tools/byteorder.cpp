#include "tools.h"

#include <cstring>

bool isBigEndian()
{
    // Answers what the conversions below assume about the wire, not what the
    // processor is.
    return true;
}

namespace {

template <typename T> T setBitOf(T value, unsigned short bit)
{
    return bit < sizeof(T) * 8 ? T(value | (T(1) << bit)) : value;
}

template <typename T> T clearBitOf(T value, unsigned short bit)
{
    return bit < sizeof(T) * 8 ? T(value & ~(T(1) << bit)) : value;
}

template <typename T> bool getBitOf(T value, unsigned short bit)
{
    return bit < sizeof(T) * 8 && ((value >> bit) & 1u);
}

inline unsigned char byteAt(const QByteArray &a, int i)
{
    return i < a.size() ? static_cast<unsigned char>(a.at(i)) : 0;
}

// Appends zero bytes until the size is a multiple of unit.
QByteArray paddedTo(const QByteArray &a, int unit)
{
    QByteArray out(a);
    int rest = out.size() % unit;
    if (rest)
        out.append(QByteArray(unit - rest, '\0'));
    return out;
}

// Reverses every group of unit bytes in place; a partial group at the end is
// left as it is.
void reverseGroups(char *p, int size, int unit)
{
    for (int g = 0; g + unit <= size; g += unit)
        for (int i = 0, j = unit - 1; i < j; ++i, --j) {
            char t = p[g + i];
            p[g + i] = p[g + j];
            p[g + j] = t;
        }
}

QByteArray fromWire(const unsigned char *data, int count, int unit)
{
    if (count <= 0 || !data)
        return QByteArray();
    QByteArray out(reinterpret_cast<const char *>(data), count * unit);
    reverseGroups(out.data(), out.size(), unit);
    return out;
}

} // namespace

unsigned short setBit(unsigned short value, unsigned short bit) { return setBitOf(value, bit); }
unsigned short clearBit(unsigned short value, unsigned short bit) { return clearBitOf(value, bit); }
bool getBit(unsigned short value, unsigned short bit) { return getBitOf(value, bit); }
unsigned char setBit(unsigned char value, unsigned short bit) { return setBitOf(value, bit); }
unsigned char clearBit(unsigned char value, unsigned short bit) { return clearBitOf(value, bit); }
bool getBit(unsigned char value, unsigned short bit) { return getBitOf(value, bit); }
unsigned int setBit(unsigned int value, unsigned short bit) { return setBitOf(value, bit); }
unsigned int clearBit(unsigned int value, unsigned short bit) { return clearBitOf(value, bit); }
bool getBit(unsigned int value, unsigned short bit) { return getBitOf(value, bit); }

int QByteArrayToInt(const QByteArray &a)
{
    quint32 v = quint32(byteAt(a, 0)) | quint32(byteAt(a, 1)) << 8 | quint32(byteAt(a, 2)) << 16
        | quint32(byteAt(a, 3)) << 24;
    return static_cast<int>(v);
}

unsigned short QByteArrayToWord(const QByteArray &a)
{
    return static_cast<unsigned short>(byteAt(a, 0) | byteAt(a, 1) << 8);
}

short QByteArrayToShort(const QByteArray &a) { return static_cast<short>(QByteArrayToWord(a)); }

QByteArray wordToByteArray(unsigned short w)
{
    char bytes[2] = { char(w & 0xFF), char(w >> 8) };
    return QByteArray(bytes, 2);
}

QByteArray shortToByteArray(short s) { return wordToByteArray(static_cast<unsigned short>(s)); }

QByteArray intToByteArray(int i)
{
    quint32 v = static_cast<quint32>(i);
    char bytes[4] = { char(v & 0xFF), char((v >> 8) & 0xFF), char((v >> 16) & 0xFF), char(v >> 24) };
    return QByteArray(bytes, 4);
}

QByteArray &appendBigEndianUShort(QByteArray &a, unsigned short v)
{
    a.append(char(v >> 8));
    a.append(char(v & 0xFF));
    return a;
}

bool getBitData(const QByteArray &a) { return byteAt(a, 0) & 1u; }

bool isBitCommand(const CommunicatorCommand &cmd) { return cmd.dataType == Bit; }
bool isByteCommand(const CommunicatorCommand &cmd) { return cmd.dataType == Byte; }
bool isWordCommand(const CommunicatorCommand &cmd) { return cmd.dataType == Word; }
bool isDoubleWordCommand(const CommunicatorCommand &cmd) { return cmd.dataType == DoubleWord; }
bool isBlockCommand(const CommunicatorCommand &cmd) { return cmd.dataType == Block; }

QByteArray fromBigEndianUShortArray(const unsigned char *data, int count) { return fromWire(data, count, 2); }

QByteArray fromBigEndianULongArray(const unsigned char *data, int count) { return fromWire(data, count, 4); }

QByteArray toBigEndianUShortArray(const QByteArray &a)
{
    QByteArray out = paddedTo(a, 2);
    reverseGroups(out.data(), out.size(), 2);
    return out;
}

QByteArray toBigEndianULongArray(const QByteArray &a)
{
    QByteArray out = paddedTo(a, 4);
    reverseGroups(out.data(), out.size(), 4);
    return out;
}

QByteArray &toLittleEndianUShortArray(QByteArray &a)
{
    a = paddedTo(a, 2);
    reverseGroups(a.data(), a.size(), 2);
    return a;
}

QByteArray &toLittleEndianULongArray(QByteArray &a)
{
    a = paddedTo(a, 4);
    reverseGroups(a.data(), a.size(), 4);
    return a;
}

namespace {
inline unsigned int ceilDiv(unsigned int n, unsigned int unit) { return n / unit + (n % unit ? 1u : 0u); }
} // namespace

unsigned int NumOfBitsToNumOfWords(unsigned int firstBit, unsigned int bitCount)
{
    return ceilDiv(firstBit + bitCount, 16);
}

unsigned int NumOfBitsToNumOfDWords(unsigned int firstBit, unsigned int bitCount)
{
    return ceilDiv(firstBit + bitCount, 32);
}

unsigned int NumOfBitsToNumOfBytes(unsigned int firstBit, unsigned int bitCount)
{
    return ceilDiv(firstBit + bitCount, 8);
}

unsigned int NumOfBytesToNumOfWords(unsigned int n) { return ceilDiv(n, 2); }
unsigned int NumOfBytesToNumOfDWords(unsigned int n) { return ceilDiv(n, 4); }
unsigned int NumOfBytesToNumOfQuadWords(unsigned int n) { return ceilDiv(n, 8); }

QByteArray To16bitsData(const QByteArray &a) { return paddedTo(a, 2); }
QByteArray To32bitsData(const QByteArray &a) { return paddedTo(a, 4); }
QByteArray To64bitsData(const QByteArray &a) { return paddedTo(a, 8); }

int GetSafeDataLen(const CommunicatorCommand &cmd)
{
    // Unsigned arithmetic: an absurd count wraps instead of overflowing.
    const unsigned int count = static_cast<unsigned int>(cmd.count);
    switch (cmd.dataType) {
    case Bit:
    case BitBlock:
        return static_cast<int>(ceilDiv(count, 8));
    case Byte:
    case Block:
        return static_cast<int>(count);
    case Word:
        return static_cast<int>(2u * count);
    case DoubleWord:
        return static_cast<int>(4u * count);
    case QuadWord:
        return static_cast<int>(8u * count);
    default:
        return 0;
    }
}

QByteArray ToSafeData(const CommunicatorCommand &cmd, const QByteArray &data)
{
    // A negative length (a wrapped, absurd count) gives an empty array.
    const int length = qMax(GetSafeDataLen(cmd), 0);
    if (data.size() == length)
        return data;
    if (data.size() > length)
        return data.left(length);
    return data + QByteArray(length - data.size(), '\0');
}

bool getBit(const QByteArray &a, int bit)
{
    if (bit < 0 || bit / 8 >= a.size())
        return false;
    return (static_cast<unsigned char>(a.at(bit / 8)) >> (bit % 8)) & 1u;
}

bool getBit(const unsigned char *p, int bit)
{
    if (bit < 0 || !p)
        return false;
    return (p[bit / 8] >> (bit % 8)) & 1u;
}

void setBit(QByteArray &a, int bit, bool on)
{
    if (bit < 0 || bit / 8 >= a.size())
        return;
    setBit(reinterpret_cast<unsigned char *>(a.data()), bit, on);
}

void setBit(unsigned char *p, int bit, bool on)
{
    if (bit < 0 || !p)
        return;
    const unsigned char mask = static_cast<unsigned char>(1u << (bit % 8));
    if (on)
        p[bit / 8] |= mask;
    else
        p[bit / 8] &= static_cast<unsigned char>(~mask);
}

void FitBitArray(QByteArray &a, int bitCount)
{
    const int size = bitCount > 0 ? static_cast<int>(ceilDiv(static_cast<unsigned int>(bitCount), 8)) : 0;
    const int old = a.size();
    a.resize(size);
    if (size > old)
        std::memset(a.data() + old, 0, size - old);
}

void clearUnnecessaryBits(QByteArray &a, int bitCount)
{
    if (bitCount <= 0 || bitCount % 8 == 0 || bitCount / 8 >= a.size())
        return;
    a[bitCount / 8] = char(static_cast<unsigned char>(a.at(bitCount / 8)) & ((1u << (bitCount % 8)) - 1u));
}

QByteArray ExpandBitsToBytes(const QByteArray &a, unsigned short firstBit, int count)
{
    if (count <= 0)
        return QByteArray();
    QByteArray out(count, '\0');
    for (int i = 0; i < count; ++i)
        out[i] = getBit(a, firstBit + i) ? 1 : 0;
    return out;
}

void CopyBits(QByteArray &dst, QByteArray &src, int dstFirstBit, int count)
{
    // Positions outside dst are skipped; bits beyond the end of src read as 0.
    for (int i = 0; i < count; ++i)
        setBit(dst, dstFirstBit + i, getBit(src, i));
}

namespace {
// Shifts the first size bytes at p towards bit 0 by n (0..7) bits; the top n
// bits of the last byte become 0.
void shiftBytesRight(unsigned char *p, int size, int n)
{
    if (size <= 0 || n == 0)
        return;
    p[0] = static_cast<unsigned char>(p[0] >> n);
    for (int i = 1; i < size; ++i) {
        p[i - 1] = static_cast<unsigned char>(p[i - 1] | (p[i] << (8 - n)));
        p[i] = static_cast<unsigned char>(p[i] >> n);
    }
}
} // namespace

void RightShiftNBits(QByteArray &a, int n)
{
    const int size = a.size();
    if (n <= 0 || size == 0)
        return;
    unsigned char *p = reinterpret_cast<unsigned char *>(a.data()); // detaches
    if (n <= 7) {
        shiftBytesRight(p, size, n);
        return;
    }
    // Whole bytes by rotation: the bytes rotated to the top are left for the
    // caller to cut off. A shift beyond the array is taken as the whole array.
    const int bytes = qMin(n / 8, size);
    const int bits = n / 8 < size ? n % 8 : 0;
    RotateArray(p, bytes, size - bytes);
    shiftBytesRight(p, size - bytes, bits);
}

QByteArray reverseArray(const QByteArray &a)
{
    QByteArray out(a.size(), '\0');
    for (int i = 0; i < a.size(); ++i)
        out[i] = a.at(a.size() - 1 - i);
    return out;
}
