#ifndef BENCH_MEMORYLINK_H
#define BENCH_MEMORYLINK_H

// A link in memory for the benchmarks: answers every function-3 request at
// once with registers holding their own numbers, and, when asked, every Nth
// request with an exception whose code runs through 1..255.

#include "driverinterface.h"
#include "tools.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

class MemoryLink : public AbstractDeviceInterface
{
public:
    explicit MemoryLink(uint64_t exceptionEvery = 0)
        : exceptionEvery(exceptionEvery)
    {
    }
    int receive(char *buffer, int length) override
    {
        const int n = std::min(length, answerLength - position);
        std::memcpy(buffer, answer + position, size_t(n));
        position += n;
        return n;
    }
    int send(const char *frame, int length) override
    {
        const unsigned char *f = reinterpret_cast<const unsigned char *>(frame);
        position = 0;
        answerLength = 0;
        if (length != 8 || f[1] != 3)
            return length;
        answer[0] = f[0];
        ++requests;
        if (exceptionEvery && requests % exceptionEvery == 0) {
            answer[1] = 0x83;
            answer[2] = (unsigned char)(1 + (requests / exceptionEvery) % 255);
            finish(3);
            return length;
        }
        const int first = f[2] << 8 | f[3], quantity = f[4] << 8 | f[5];
        answer[1] = 3;
        answer[2] = (unsigned char)(2 * quantity);
        for (int i = 0; i < quantity; ++i) {
            answer[3 + 2 * i] = (unsigned char)((first + i) >> 8);
            answer[4 + 2 * i] = (unsigned char)(first + i);
        }
        finish(3 + 2 * quantity);
        return length;
    }
    bool setParameter(int, const QVariant &) override { return true; }
    int retryCount() override { return 0; }
    int stationId() override { return 1; }
    unsigned long delayMs() override { return 0; }

private:
    // The Modbus CRC, from the toolkit's CRC family (start 0xFFFF).
    void finish(int length)
    {
        unsigned short crc = 0xFFFF;
        for (int i = 0; i < length; ++i)
            crc = update_crc_16(crc, answer[i]);
        answer[length] = (unsigned char)(crc & 0xFF);
        answer[length + 1] = (unsigned char)(crc >> 8);
        answerLength = length + 2;
    }

    const uint64_t exceptionEvery;
    uint64_t requests = 0;
    unsigned char answer[260];
    int answerLength = 0;
    int position = 0;
};

#endif // BENCH_MEMORYLINK_H
