#include "requestcutter.h"

#include "rtuframe.h"

namespace {

// The longest request a slave takes (libmodbus's limit): a longer header is
// garbage without waiting for its bytes.
const int longestRequest = 256;
// Bytes kept while waiting for a request to become whole.
const size_t keptBytes = size_t(4) * longestRequest;

} // namespace

void RequestCutter::add(const uint8_t *data, size_t length, int64_t atNs, bool afterGap)
{
    if (length == 0)
        return;
    if (afterGap) {
        inGarbage = false;
        starts.push_back(Start { bytes.size(), atNs });
    } else if (inGarbage) {
        return;
    } else if (bytes.empty()) {
        starts.push_back(Start { 0, atNs });
    }
    bytes.insert(bytes.end(), data, data + length);
    while (bytes.size() > keptBytes)
        dropBefore(starts.size() > 1 ? 1 : 0, starts.size() <= 1);
}

int RequestCutter::lengthAt(size_t at) const
{
    const uint8_t *p = bytes.data() + at;
    const int have = int(bytes.size() - at);
    const int length = frameLength(p, have, FrameRole::Request);
    if (length >= 0)
        return length;
    // Function codes that libmodbus also serves, read as it reads them.
    switch (p[1]) {
    case 22: // mask write register: address, AND mask, OR mask
        return 10;
    case 23: // read and write registers: two ranges, byte count, data
        return have < 11 ? 0 : 13 + p[10];
    default: // report station id, or a code it answers as illegal
        return 4;
    }
}

void RequestCutter::dropBefore(size_t i, bool garbage)
{
    const size_t keep = garbage ? i + 1 : i; // the first start kept
    const size_t end = keep < starts.size() ? starts[keep].at : bytes.size();
    if (end > 0)
        ++droppedRuns;
    bytes.erase(bytes.begin(), bytes.begin() + long(end));
    starts.erase(starts.begin(), starts.begin() + long(keep));
    for (Start &s : starts)
        s.at -= end;
    // Garbage with no gap after it yet: what follows belongs to it.
    if (starts.empty())
        inGarbage = garbage;
}

bool RequestCutter::next(std::vector<uint8_t> &frame, int64_t &startNs)
{
    for (size_t i = 0; i < starts.size(); ++i) {
        const int length = lengthAt(starts[i].at);
        const size_t have = bytes.size() - starts[i].at;
        if (length == 0 || (length <= longestRequest && have < size_t(length)))
            continue; // not whole yet
        if (length > longestRequest || !modbusCrcOk(bytes.data() + starts[i].at, length)) {
            // Not a request: the bytes up to the next gap are garbage; a
            // later start that fails began inside the first one's bytes.
            if (i == 0)
                dropBefore(0, true);
            else
                starts.erase(starts.begin() + long(i));
            i = size_t(-1);
            continue;
        }
        if (i > 0)
            dropBefore(i, false); // an unfinished request before it
        frame.assign(bytes.begin(), bytes.begin() + length);
        startNs = starts[0].ns;
        dropTaken(size_t(length), startNs);
        return true;
    }
    return false;
}

void RequestCutter::dropTaken(size_t length, int64_t startNs)
{
    bytes.erase(bytes.begin(), bytes.begin() + long(length));
    std::vector<Start> left;
    for (const Start &s : starts)
        if (s.at >= length)
            left.push_back(Start { s.at - length, s.ns });
    // What follows without a gap comes one character time per byte later.
    if (!bytes.empty() && (left.empty() || left[0].at != 0))
        left.insert(left.begin(), Start { 0, startNs + int64_t(length) * charNs });
    starts.swap(left);
}

void RequestCutter::clear()
{
    bytes.clear();
    starts.clear();
    inGarbage = false;
}
