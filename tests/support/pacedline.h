#ifndef TESTS_SUPPORT_PACEDLINE_H
#define TESTS_SUPPORT_PACEDLINE_H

// A serial line between two pseudo-terminals that takes its time as a wire
// does: each byte written at one end comes out at the other when its last
// bit would have left the wire (a byte starts when it is written or when the
// one before it has gone, whichever is later). Both directions at once.
//
// A busy host delivers a byte late now and then; hiccups make it so on
// purpose: every hiccupEvery-th byte towards end A comes hiccupNs late, and
// the bytes after it wait for it, as on a wire.

#include <atomic>
#include <cstdint>
#include <deque>
#include <string>
#include <thread>

class PacedLine
{
public:
    struct Options
    {
        int baudRate = 115200;
        int bitsPerCharacter = 11; // 8N2
        int hiccupEvery = 0; // 0: none
        int64_t hiccupNs = 0;
    };

    PacedLine() = default;
    ~PacedLine() { stop(); }
    PacedLine(const PacedLine &) = delete;
    PacedLine &operator=(const PacedLine &) = delete;

    // False with one sentence in error when the pseudo-terminals cannot be had.
    bool start(const Options &options, std::string &error);
    void stop();
    // The devices that the two ends open.
    const std::string &pathA() const { return ends[0].path; }
    const std::string &pathB() const { return ends[1].path; }

private:
    struct Byte
    {
        uint8_t value;
        int64_t dueNs;
    };
    struct End
    {
        int fd = -1; // our side of its pseudo-terminal
        int hold = -1; // its own side, held open while nobody has it
        std::string path;
        std::deque<Byte> towards; // bytes on their way to this end
        int64_t wireFreeNs = 0; // when the wire towards this end is free
        uint64_t sent = 0;
    };
    bool openEnd(End &end, std::string &error);
    void run();
    void take(End &from, End &to);
    void deliver(End &to, int64_t now);
    int64_t nextDueNs() const;

    Options opts;
    End ends[2];
    int wake[2] = { -1, -1 };
    std::thread worker;
};

#endif // TESTS_SUPPORT_PACEDLINE_H
