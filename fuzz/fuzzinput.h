#ifndef FUZZ_FUZZINPUT_H
#define FUZZ_FUZZINPUT_H

// The fuzzer's bytes, taken from the front as a target needs them; past the
// end every byte is 0 and every run of bytes empty.

#include <QByteArray>

#include <cstddef>
#include <climits>
#include <cstdint>

struct Input
{
    const uint8_t *data;
    size_t size;

    bool empty() const { return size == 0; }
    uint8_t byte()
    {
        if (size == 0)
            return 0;
        --size;
        return *data++;
    }
    QByteArray bytes(size_t n)
    {
        n = n < size ? n : size;
        QByteArray out(reinterpret_cast<const char *>(data), int(n));
        data += n;
        size -= n;
        return out;
    }

    // A command's count: one of the counts at and around every limit of the
    // driver's operations, or a byte beyond the table standing for itself
    // minus the table's size.
    int count()
    {
        static const int counts[] = { 0, 1, 2, 3, 7, 8, 9, 10, 11, 12, 15, 16, 17, 61, 62, 63, 123, 124, 125,
            126, 249, 250, 251, 1976, 1977, 2008, 2009, -1, -2, 65536, 65537, INT32_MIN };
        const int size = int(sizeof counts / sizeof *counts);
        const uint8_t b = byte();
        return b < size ? counts[b] : b - size;
    }

    // A write's data: a length byte and up to 64 bytes, repeated (or all
    // ones) up to the length; the top length bytes stand for lengths at the
    // limits beyond a byte.
    QByteArray writeData()
    {
        static const int longLengths[] = { 246, 247, 248, 250, 1976, 1977 };
        const uint8_t lengthByte = byte();
        const int length = lengthByte < 250 ? lengthByte : longLengths[(lengthByte - 250) % 6];
        QByteArray data = bytes(size_t(length < 64 ? length : 64));
        const QByteArray unit = data.isEmpty() ? QByteArray(1, 1) : data;
        while (data.size() < length)
            data.append(unit.left(length - data.size()));
        return data;
    }
};

#endif // FUZZ_FUZZINPUT_H
