// TxPackage: sections, check values, sizes held in other sections, and
// layouts that cannot be resolved.

#include "hex.h"
#include "txpackage.h"

#include <gtest/gtest.h>

#include <climits>

namespace {

TEST(TxPackage, AppendsOneSectionPerFieldAndCopiesDeeply)
{
    TxPackage package;
    package.appendByte(0x01);
    package.appendWord(0x1234);
    package.appendDWord(5);
    package.appendString(QString::fromLatin1("Hi"));
    EXPECT_EQ(toHex(package.byteArrayData()), "01 34 12 05 00 00 00 48 69");
    EXPECT_EQ(package.numberOfSections(), 4);
    EXPECT_EQ(package.sectionStartIndex(2), 3);
    EXPECT_EQ(package.sectionSize(2), 4);
    EXPECT_EQ(toHex(package.dataAt(1)), "34 12");
    EXPECT_EQ(package.toString(),
        QString::fromLatin1("(0X1 0X34 0X12 0X5 0X0 0X0 0X0 0X48 0X69 ) : \x01\x34\x12\x05"));

    char bytes[] = { 'A', 'B', 0, 'C' };
    package.setData(bytes, -1);
    EXPECT_EQ(package.byteArrayData(), QByteArray("AB"));
    EXPECT_EQ(package.numberOfSections(), 4) << "sections are not touched";
    TxPackage copy(package);
    copy.appendByte(2);
    TxPackage assigned;
    assigned = copy;
    copy.clearAll();
    EXPECT_EQ(toHex(package.byteArrayData()), "41 42");
    EXPECT_EQ(toHex(assigned.byteArrayData()), "41 42 02");
    EXPECT_EQ(assigned.numberOfSections(), 5);
    EXPECT_EQ(copy.totalSize() + copy.numberOfSections(), 0);
}

TEST(TxPackage, CheckValues)
{
    struct Row
    {
        const char *what;
        const char *frame;
        void (*append)(TxPackage &);
        QByteArray appended;
    } rows[] = {
        { "upper-case hex digits", "", [](TxPackage &p) { p.appendByte2Ascii(0xFE); }, "FE" },
        { "LRC byte wraps at 256", "01 02 FF", [](TxPackage &p) { p.appendLRCByte(); }, hex("02") },
        { "LRC ascii wraps at 256", "01 02 FF", [](TxPackage &p) { p.appendLRCAscii(); }, "02" },
        { "FCS over the whole frame", "01 03", [](TxPackage &p) { p.appendFCSAscii(1); }, "02" },
    };
    for (const Row &row : rows) {
        TxPackage package;
        package.setData(hex(row.frame));
        row.append(package);
        EXPECT_EQ(toHex(package.byteArrayData()), toHex(hex(row.frame) + row.appended)) << row.what;
        EXPECT_EQ(package.sectionSize(0), row.appended.size()) << row.what;
    }
    TxPackage package;
    package.setData(hex("01 03"));
    EXPECT_EQ(TxPackage::calculateFCS(&package, 1), 1);
    EXPECT_EQ(TxPackage::calculateFCS(&package, 5), 0);
    EXPECT_EQ(TxPackage::calculateFCS(&package, -3), 2);
}

TEST(TxPackage, SizeHeldInAnEarlierSection)
{
    TxPackage package;
    package.setSectionSize(QList<int> { 1, 4, -1, 1 });
    EXPECT_EQ(package.totalSize(), 5) << "the entries added as written";
    package.setData(hex("07 03 00 00 00 41 42 43 FF"));
    EXPECT_EQ(package.sectionSize(2), 3);
    EXPECT_EQ(toHex(package.dataAt(2)), "41 42 43");
    EXPECT_EQ(package.sectionStartIndex(3), 8) << "behind the bytes that the held size describes";
    EXPECT_EQ(toHex(package.dataAt(3)), "FF");
}

TEST(TxPackage, LayoutsThatCannotBeResolved)
{
    struct Row
    {
        const char *what;
        QList<int> sizes;
        const char *frame;
        int section;
        int start;
    } rows[] = {
        { "refers to itself", QList<int> { 4, -1 }, "01 00 00 00", 1, 4 },
        { "refers to a later section", QList<int> { -1, 4 }, "01 00 00 00", 0, 0 },
        { "holder shorter than four bytes", QList<int> { 1, 2, -1 }, "09 05 00 00 00", 2, 3 },
        { "holder with a negative entry (chain)", QList<int> { 1, 4, -1, -2 }, "AA 01 00 00 00 BB CC", 3, 6 },
        { "holder's bytes missing from the frame", QList<int> { 1, 4, -1 }, "07 03 00", 2, 5 },
        { "held value beyond int", QList<int> { 1, 4, -1 }, "AA 00 00 00 80 BB", 2, 5 },
        { "most negative entry", QList<int> { 4, INT_MIN }, "01 00 00 00", 1, 4 },
    };
    for (const Row &row : rows) {
        TxPackage package;
        package.setSectionSize(row.sizes);
        package.setData(hex(row.frame));
        EXPECT_EQ(package.sectionSize(row.section), 0) << row.what;
        EXPECT_EQ(package.sectionStartIndex(row.section), row.start) << row.what;
        EXPECT_TRUE(package.dataAt(row.section).isEmpty()) << row.what;
    }
}

TEST(TxPackage, SectionNumbersAndFrameEnd)
{
    TxPackage package;
    package.setSectionSize(QList<int> { 2, 5, 3 });
    EXPECT_EQ(toHex(package.byteArrayData()), "00 00 00 00 00 00 00 00 00 00") << "lengthened with zeros";
    package.setData(hex("01 02 03 04"));
    EXPECT_EQ(toHex(package.dataAt(1)), "03 04") << "cut at the end of the frame";
    EXPECT_TRUE(package.dataAt(2).isEmpty());
    for (int i : { -1, 3 }) {
        EXPECT_EQ(package.sectionStartIndex(i), -1) << i;
        EXPECT_EQ(package.sectionSize(i), 0) << i;
        EXPECT_TRUE(package.dataAt(i).isEmpty()) << i;
    }
    package.setSectionSize(QList<int> { 1, -5 });
    EXPECT_EQ(package.totalSize(), 0) << "a negative sum empties the frame";
}

} // namespace
