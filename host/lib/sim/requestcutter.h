#ifndef HOST_SIM_REQUESTCUTTER_H
#define HOST_SIM_REQUESTCUTTER_H

// Cuts Modbus RTU requests out of the bytes a slave hears, as a drive on a
// wire does, by their length: the function code tells how long a request is
// (rtuframe.h; the codes it does not know as libmodbus reads them), and a
// request is whole when that many bytes have come and the last two are their
// CRC.
//
// A host cannot hold the RTU timing: a byte that comes late because a
// program was not scheduled makes a gap that looks like a silence. So a gap
// never cuts a request; it only marks where a new one may begin. Bytes that
// do not form a request of the length their header names with a good CRC are
// garbage: they are dropped up to the first gap after them, and the bytes
// after that gap start the next request. A request whose rest never comes is
// dropped as soon as a whole request follows a gap after it.

#include <cstddef>
#include <cstdint>
#include <vector>

class RequestCutter
{
public:
    // Bytes heard, the first at atNs; afterGap: the line was quiet for the
    // silence before them.
    void add(const uint8_t *bytes, size_t length, int64_t atNs, bool afterGap);
    // Takes the next whole request into frame, with when its first byte was
    // heard (a request that followed another without a gap: when its first
    // byte would have come, one character time each); false when no whole
    // request has come yet.
    bool next(std::vector<uint8_t> &frame, int64_t &startNs);
    // Drops everything heard so far; the next bytes begin a request.
    void clear();
    // Runs of garbage dropped so far.
    uint64_t dropped() const { return droppedRuns; }
    // Whether bytes are waiting to form a request.
    bool empty() const { return bytes.empty(); }

    explicit RequestCutter(int64_t characterNs)
        : charNs(characterNs)
    {
    }

private:
    struct Start
    {
        size_t at; // index in bytes
        int64_t ns; // when its first byte was heard
    };
    // The length of the request at bytes[at]: 0 when more bytes are needed
    // to tell.
    int lengthAt(size_t at) const;
    // Drops the bytes before start i and start i itself when garbage is true.
    void dropBefore(size_t i, bool garbage);
    // Drops the request taken, which began at startNs.
    void dropTaken(size_t length, int64_t startNs);

    int64_t charNs;
    std::vector<uint8_t> bytes;
    std::vector<Start> starts; // where requests may begin; the first at 0
    bool inGarbage = false; // the last start was garbage: drop bytes up to the next gap
    uint64_t droppedRuns = 0;
};

#endif // HOST_SIM_REQUESTCUTTER_H
