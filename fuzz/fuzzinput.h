#ifndef FUZZ_FUZZINPUT_H
#define FUZZ_FUZZINPUT_H

// The fuzzer's bytes, taken from the front as a target needs them; past the
// end every byte is 0 and every run of bytes empty.

#include <QByteArray>

#include <cstddef>
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
};

#endif // FUZZ_FUZZINPUT_H
