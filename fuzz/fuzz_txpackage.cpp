// Fuzzes TxPackage section layouts. Input: a count n, n little-endian 32-bit
// section entries (any value, negative ones included), then the frame bytes.
// Every section of the layout is then addressed.

#include "txpackage.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size < 1)
        return 0;
    const size_t n = data[0] % 16;
    if (size < 1 + 4 * n)
        return 0;
    QList<int> layout;
    for (size_t i = 0; i < n; ++i) {
        int32_t entry;
        std::memcpy(&entry, data + 1 + 4 * i, 4);
        // Keep the frame that setSectionSize lays out small.
        layout << (entry > 4096 ? entry % 4096 : entry);
    }
    TxPackage package;
    package.setSectionSize(layout);
    package.setData(QByteArray(reinterpret_cast<const char *>(data + 1 + 4 * n), int(size - 1 - 4 * n)));
    for (int i = -1; i <= package.numberOfSections(); ++i) {
        const int start = package.sectionStartIndex(i);
        const int length = package.sectionSize(i);
        const QByteArray bytes = package.dataAt(i);
        if (!package.validSectionNumber(i) && (start != -1 || length != 0 || !bytes.isEmpty()))
            std::abort();
        if (length < 0 || bytes.size() > length || (start < 0 && package.validSectionNumber(i)))
            std::abort();
        if (!bytes.isEmpty() && bytes != package.byteArrayData().mid(start, bytes.size()))
            std::abort();
    }
    TxPackage::calculateFCS(&package, static_cast<int>(size) - 8);
    return 0;
}
