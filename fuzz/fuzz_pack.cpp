// Fuzzes the pack/unpack format language. Input: a format up to the first
// zero byte, then the bytes that the unpacker reads.
//
// The engines trust their caller for the size of every buffer. No format
// describes more than 4 bytes per character plus 4 per unit of its counts,
// so the harness sizes its buffers by that bound and skips formats above it
// (counts too large for the engines are covered by the unit tests).
//
// Every argument is a pointer into one scratch area. Items that take an int
// read the low half of a pointer-sized slot, which is what the platform's
// calling convention gives them; the values packed are then arbitrary but
// the same in every engine, which is all the cross-checks need.

#include "tools.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace {

const size_t maxFormatLength = 24;
const uint64_t maxBound = 1 << 16;
const size_t guard = 16;

#define ARGS24(p) p, p, p, p, p, p, p, p, p, p, p, p, p, p, p, p, p, p, p, p, p, p, p, p

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const uint8_t *end = static_cast<const uint8_t *>(std::memchr(data, 0, size));
    if (!end || static_cast<size_t>(end - data) > maxFormatLength)
        return 0;
    const std::string format(reinterpret_cast<const char *>(data), end - data);

    uint64_t bound = 4 * format.size();
    uint64_t count = 0;
    for (char ch : format) {
        const unsigned char c = static_cast<unsigned char>(ch);
        if (c >= '0' && c <= '9') {
            count = count * 10 + (c - '0');
            if (count > maxBound)
                return 0;
        } else {
            bound += 4 * count;
            count = 0;
        }
    }
    bound += 4 * count;
    if (bound > maxBound)
        return 0;

    std::vector<unsigned char> scratch(bound + 1, 0x5A);
    void *p = scratch.data();

    std::vector<unsigned char> packed(bound + guard, 0);
    const int written = DataPack(packed.data(), format.c_str(), ARGS24(p));
    if (written > static_cast<int>(bound))
        std::abort();
    for (size_t i = bound; i < packed.size(); ++i) {
        if (packed[i] != 0)
            std::abort();
    }

    const QByteArray array = ByteArrayPack(format.c_str(), ARGS24(p));
    if (!array.isEmpty()
        && (array.size() != written || std::memcmp(array.constData(), packed.data(), array.size()) != 0))
        std::abort();

    std::vector<unsigned char> input(bound + 1, 0);
    const size_t rest = size - (end - data) - 1;
    std::memcpy(input.data(), end + 1, rest < input.size() ? rest : input.size());
    const int consumed = DataUnpack(input.data(), format.c_str(), ARGS24(p));
    // A format that packs without error unpacks the same number of bytes; an
    // error in the count is an error in both.
    if ((written > 0 && consumed != written) || (written < 0 && consumed != -1))
        std::abort();
    return 0;
}
