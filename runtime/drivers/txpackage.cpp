#include "txpackage.h"

#include "qtcompat.h"
#include "tools.h"

#include <climits>
#include <cstring>
#include <vector>

namespace {

// The longest frame that setSectionSize lays out: what a QByteArray holds
// under both Qt generations.
const qint64 maxFrameSize = INT_MAX - 64;

// Two upper-case hex digits, as "%02X" gives them.
QByteArray hexDigits(unsigned char b)
{
    static const char digits[] = "0123456789ABCDEF";
    QByteArray text(2, '0');
    text[0] = digits[b >> 4];
    text[1] = digits[b & 0x0F];
    return text;
}

int clampToInt(qint64 value) { return value > INT_MAX ? INT_MAX : static_cast<int>(value); }

// Appends one field as a section of its own.
bool appendField(
    QByteArray &frame, QList<int> &sectionSizes, int &byteCount, const QByteArray &bytes, int sectionLength)
{
    frame.append(bytes);
    sectionSizes.append(sectionLength);
    byteCount += bytes.size();
    return true;
}

// Walks the layout from section 0 to section i, resolving every entry -k from
// the four bytes of an earlier section k. Only backward references resolve,
// so the walk neither recurses nor loops, whatever the list holds.
bool locateSection(const QList<int> &sectionSizes, const QByteArray &frame, int i, int &start, int &size)
{
    if (i < 0 || i >= sectionSizes.size())
        return false;
    std::vector<qint64> starts(static_cast<size_t>(i) + 1);
    qint64 position = 0;
    qint64 length = 0;
    for (int j = 0; j <= i; ++j) {
        starts[j] = position;
        const qint64 entry = sectionSizes.at(j);
        length = 0;
        if (entry >= 0) {
            length = entry;
        } else {
            const qint64 holder = -entry;
            if (holder < j && sectionSizes.at(static_cast<int>(holder)) >= 4
                && starts[holder] + 4 <= frame.size()) {
                const unsigned char *held
                    = reinterpret_cast<const unsigned char *>(frame.constData()) + starts[holder];
                const quint32 value = held[0] | (held[1] << 8) | (held[2] << 16) | (quint32(held[3]) << 24);
                if (value <= static_cast<quint32>(INT_MAX))
                    length = value;
            }
        }
        position += length;
    }
    start = clampToInt(starts[i]);
    size = static_cast<int>(length);
    return true;
}

} // namespace

TxPackage::TxPackage()
    : frameData(new QByteArray)
    , byteCount(0)
{
}

TxPackage::TxPackage(const TxPackage &other)
    : frameData(new QByteArray(*other.frameData))
    , sectionSizes(other.sectionSizes)
    , byteCount(other.byteCount)
{
}

TxPackage &TxPackage::operator=(const TxPackage &other)
{
    if (this == &other)
        return *this;
    *frameData = *other.frameData;
    sectionSizes = other.sectionSizes;
    byteCount = other.byteCount;
    return *this;
}

TxPackage::~TxPackage() { delete frameData; }

bool TxPackage::setData(const QByteArray &bytes)
{
    *frameData = bytes;
    return true;
}

bool TxPackage::setData(char *bytes, int len)
{
    frameData->clear();
    if (!bytes)
        return true;
    if (len < 0)
        frameData->append(bytes);
    else
        frameData->append(bytes, len);
    return true;
}

char *TxPackage::data() { return frameData->data(); }

QByteArray TxPackage::byteArrayData() const { return *frameData; }

int TxPackage::totalSize() const { return frameData->size(); }

void TxPackage::setSectionSize(const QList<int> &sizes)
{
    sectionSizes = sizes;
    qint64 sum = 0;
    for (int i = 0; i < sizes.size(); ++i)
        sum += sizes.at(i);
    if (sum < 0)
        sum = 0;
    if (sum > maxFrameSize)
        sum = maxFrameSize;
    const int oldSize = frameData->size();
    const int newSize = static_cast<int>(sum);
    frameData->resize(newSize);
    if (newSize > oldSize)
        std::memset(frameData->data() + oldSize, 0, static_cast<size_t>(newSize - oldSize));
}

void TxPackage::clearAll()
{
    frameData->clear();
    sectionSizes.clear();
    byteCount = 0;
}

bool TxPackage::appendSection(const QByteArray &bytes)
{
    return appendField(*frameData, sectionSizes, byteCount, bytes, bytes.size());
}

bool TxPackage::appendString(const QString &text)
{
    return appendField(*frameData, sectionSizes, byteCount, QtCompat::toAscii(text), text.length());
}

bool TxPackage::appendByte(unsigned char b)
{
    return appendField(*frameData, sectionSizes, byteCount, QByteArray(1, static_cast<char>(b)), 1);
}

bool TxPackage::appendWord(unsigned short w)
{
    QByteArray bytes(2, '\0');
    bytes[0] = static_cast<char>(w & 0xFF);
    bytes[1] = static_cast<char>(w >> 8);
    return appendField(*frameData, sectionSizes, byteCount, bytes, 2);
}

bool TxPackage::appendDWord(unsigned int d)
{
    QByteArray bytes(4, '\0');
    for (int i = 0; i < 4; ++i)
        bytes[i] = static_cast<char>((d >> (8 * i)) & 0xFF);
    return appendField(*frameData, sectionSizes, byteCount, bytes, 4);
}

bool TxPackage::appendByte2Ascii(unsigned char b)
{
    return appendField(*frameData, sectionSizes, byteCount, hexDigits(b), 2);
}

bool TxPackage::appendLRCByte()
{
    const unsigned char sum
        = UInt8CheckSum(reinterpret_cast<const unsigned char *>(frameData->constData()), frameData->size());
    return appendByte(sum);
}

bool TxPackage::appendLRCAscii()
{
    const unsigned char sum
        = UInt8CheckSum(reinterpret_cast<const unsigned char *>(frameData->constData()), frameData->size());
    return appendField(*frameData, sectionSizes, byteCount, hexDigits(sum), 2);
}

bool TxPackage::appendFCSAscii(int)
{
    // Callers pass various values here and rely on the check covering the
    // whole frame, so the argument stays unused.
    return appendField(
        *frameData, sectionSizes, byteCount, hexDigits(static_cast<unsigned char>(calculateFCS(this, 0))), 2);
}

int TxPackage::calculateFCS(TxPackage *package, int excluded)
{
    if (!package)
        return 0;
    const int size = package->frameData->size();
    const int covered = excluded <= 0 ? size : (excluded >= size ? 0 : size - excluded);
    return XorUInt8CheckSum(
        reinterpret_cast<const unsigned char *>(package->frameData->constData()), covered);
}

int TxPackage::numberOfSections() const { return sectionSizes.size(); }

bool TxPackage::validSectionNumber(int i) const { return i >= 0 && i < sectionSizes.size(); }

int TxPackage::sectionStartIndex(int i) const
{
    int start = -1;
    int size = 0;
    locateSection(sectionSizes, *frameData, i, start, size);
    return start;
}

int TxPackage::sectionSize(int i) const
{
    int start = -1;
    int size = 0;
    locateSection(sectionSizes, *frameData, i, start, size);
    return size;
}

QByteArray TxPackage::dataAt(int i) const
{
    int start = -1;
    int size = 0;
    if (!locateSection(sectionSizes, *frameData, i, start, size) || start >= frameData->size())
        return QByteArray();
    if (size > frameData->size() - start)
        size = frameData->size() - start;
    return frameData->mid(start, size);
}

int TxPackage::arrayToInt(const QByteArray &bytes) const
{
    return bytes.isEmpty() ? 0 : static_cast<unsigned char>(bytes.at(0));
}

QString TxPackage::toString() { return dumpByteArray(*frameData); }

QList<int> EmptyPackageSizeList() { return QList<int>(); }
