#ifndef TXPACKAGE_H
#define TXPACKAGE_H

#include "driversglobal.h"

#include <QByteArray>
#include <QList>
#include <QString>

// A request frame built out of sections: every append adds the bytes of one
// field and records its length, so that the frame can be addressed field by
// field, checked and logged. Multi-byte numbers go least significant byte
// first; check values are 8-bit, as one byte or as two upper-case hex digits.
//
// A section list entry of 0 or more is the section's size. An entry -k says
// that the size is held in section k: its first four bytes, least
// significant first (as appendDWord writes them). Section k must come before
// the section it describes, have a non-negative entry of at least 4 and its
// four bytes must be in the frame; otherwise, and when the value held exceeds
// the int range, the size counts as 0. Start offsets add the resolved sizes,
// so sections behind such an entry are placed behind the bytes it describes.
class DRIVERS_EXPORT TxPackage
{
public:
    TxPackage();
    TxPackage(const TxPackage &other);
    TxPackage &operator=(const TxPackage &other);
    ~TxPackage();

    // Replaces the frame bytes; the section list stays as it is.
    bool setData(const QByteArray &bytes);
    // len bytes from bytes; a negative len takes the bytes up to the first
    // zero byte. A null pointer leaves the frame empty.
    bool setData(char *bytes, int len);
    char *data();
    QByteArray byteArrayData() const;
    int totalSize() const;
    // Replaces the section list and cuts or lengthens (with zero bytes) the
    // frame to the sum of the entries as written, negative entries included;
    // a negative sum empties the frame.
    void setSectionSize(const QList<int> &sizes);
    void clearAll();

    bool appendSection(const QByteArray &bytes);
    bool appendString(const QString &text);
    bool appendByte(unsigned char b);
    bool appendWord(unsigned short w);
    bool appendDWord(unsigned int d);
    bool appendByte2Ascii(unsigned char b);
    // The sum of all frame bytes so far, modulo 256.
    bool appendLRCByte();
    bool appendLRCAscii();
    // The XOR of the whole frame as two hex digits. The argument is not used:
    // the check always covers the whole frame.
    bool appendFCSAscii(int unused);

    // XOR of the frame bytes without the last excluded ones (a negative
    // excluded counts as 0); 0 when nothing is covered or package is null.
    static int calculateFCS(TxPackage *package, int excluded);

    int numberOfSections() const;
    bool validSectionNumber(int i) const;
    // -1 for an invalid section number.
    int sectionStartIndex(int i) const;
    // 0 for an invalid section number.
    int sectionSize(int i) const;
    // The section's bytes, as far as the frame holds them; empty for an
    // invalid section number.
    QByteArray dataAt(int i) const;
    // The first byte as an unsigned number, 0 for an empty array.
    int arrayToInt(const QByteArray &bytes) const;
    // The frame in the form of dumpByteArray.
    QString toString();

private:
    QByteArray *frameData;
    QList<int> sectionSizes;
    int byteCount;
};

// An empty section list, for example for setSectionSize.
DRIVERS_EXPORT QList<int> EmptyPackageSizeList();

#endif // TXPACKAGE_H
