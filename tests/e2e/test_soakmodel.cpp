// The fault soak's oracle against answers worked out by hand, without the
// driver: the register window's rules and the requests of one attempt (the
// time bound rests on them). Its read results and written cells are checked
// by the short soak (soak_short) against the driver.

#include "hex.h"
#include "model.h"
#include "stallmeter.h"

#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

SoakCommand command(Op op, Area area, int start, int count, int bit = 0, bool swap = false)
{
    SoakCommand c;
    c.op = op;
    c.area = area;
    c.start = start;
    c.count = c.elements = count;
    c.bit = bit;
    c.swap = swap;
    c.station = 1;
    return c;
}

const Area HR = Area::HoldingRegisters;

// The command as a write of DATA.
SoakCommand writing(SoakCommand c, const QByteArray &data, bool single = false)
{
    c.write = true;
    c.single = single;
    c.data = data;
    return c;
}

// The command as a write of so many bytes of 1.
SoakCommand writing(const SoakCommand &c, int bytes, bool single = false)
{
    return writing(c, repeated("01", bytes), single);
}

// Cells as "station:address=value", address and value in hex.
std::string cellsText(const std::vector<Cell> &cells)
{
    std::string out;
    char text[32];
    for (const Cell &c : cells) {
        std::snprintf(
            text, sizeof text, "%s%d:%04X=%04X", out.empty() ? "" : " ", c.station, c.address, c.value);
        out += text;
    }
    return out;
}

std::string exchanges(const std::vector<Exchange> &list)
{
    std::string out;
    for (const Exchange &e : list)
        out += (out.empty() ? "" : " ") + std::string(e.pauseBefore ? "pause " : "")
            + std::to_string(e.request) + "/" + std::to_string(e.reply);
    return out;
}

TEST(SoakModel, TheRegisterWindowKeepsItsRules)
{
    SoakModel model({ 1, 5, 7 });
    auto windowWrite = [&](int index, const char *data) {
        model.writeDone(writing(command(Op::WriteWindowWords, HR, index, 0), hex(data)), true);
    };
    auto windowBit = [&](int index, int bit, const char *data) {
        const Op op = index == SoakModel::RelayIndex ? Op::RelayBit : Op::WriteWindowBit;
        return writing(command(op, HR, index, 1, bit), hex(data));
    };

    // A new driver holds zeros and reads them without a request.
    SoakCommand all = command(Op::ReadWindow, HR, 0, 10);
    QByteArray expected;
    ASSERT_TRUE(model.expectedRead(all, expected));
    EXPECT_EQ(expected, QByteArray(20, '\0'));
    EXPECT_EQ(exchanges(model.attempt(all)), "");

    // Count 2, stations 5 and 7: a relay writes HR1300 of both, the delay
    // between them.
    windowWrite(0, "02 00 05 00 07 00");
    EXPECT_EQ(model.relayStations(), (std::vector<int> { 5, 7 }));
    SoakCommand relay = writing(command(Op::Relay, HR, SoakModel::RelayIndex, 1), hex("34 12"));
    std::vector<Cell> cells;
    ASSERT_TRUE(model.intended(relay, cells));
    EXPECT_EQ(cellsText(cells), "5:0513=1234 7:0513=1234");
    EXPECT_EQ(exchanges(model.attempt(relay)), "11/8 pause 11/8");
    relay.single = true;
    EXPECT_EQ(exchanges(model.attempt(relay)), "8/8 pause 8/8");
    // A failed relay leaves the relay register; a relay that succeeded sets it.
    model.writeDone(relay, false);
    EXPECT_EQ(model.window(SoakModel::RelayIndex), 0);
    // A bit relay reads and writes back at every station, then sets the bit.
    model.setValue(Cell { 5, HR, SoakModel::RelayTarget, 0x0100 });
    model.setValue(Cell { 7, HR, SoakModel::RelayTarget, 0x0001 });
    const SoakCommand bit = windowBit(SoakModel::RelayIndex, 4, "01");
    ASSERT_TRUE(model.intended(bit, cells));
    EXPECT_EQ(cellsText(cells), "5:0513=0110 7:0513=0011");
    EXPECT_EQ(exchanges(model.attempt(bit)), "8/7 pause 11/8 pause 8/7 pause 11/8");
    model.writeDone(bit, true);
    EXPECT_EQ(model.window(SoakModel::RelayIndex), 0x0010);
    model.writeDone(relay, true);
    EXPECT_EQ(model.window(SoakModel::RelayIndex), 0x1234);

    // Reading HR60010 reads it back from the read-back station.
    windowWrite(9, "05 00");
    model.setValue(Cell { 5, HR, SoakModel::RelayTarget, 0x002A });
    SoakCommand relayRead = command(Op::ReadWindow, HR, SoakModel::RelayIndex, 1);
    EXPECT_EQ(exchanges(model.attempt(relayRead)), "8/7");
    ASSERT_TRUE(model.expectedRead(relayRead, expected));
    EXPECT_EQ(expected, hex("2A 00"));
    model.readDone(relayRead, expected);
    EXPECT_EQ(model.window(SoakModel::RelayIndex), 0x002A);
    // ... which cannot succeed from a station that does not answer.
    windowWrite(9, "03 00");
    EXPECT_FALSE(model.expectedRead(relayRead, expected));

    // Word writes keep the read-back station at 8 or below, not the count;
    // a relay visits at most the eight entries of the list.
    windowWrite(9, "14 00");
    EXPECT_EQ(model.window(SoakModel::ReadBackIndex), 8);
    windowWrite(0, "14 00");
    EXPECT_EQ(model.window(SoakModel::CountIndex), 20);
    EXPECT_EQ(model.relayStations().size(), 8u);

    // A bit of the count sets the count to 8, whatever it was; a bit
    // elsewhere changes that bit and brings a count above 8 down to 8.
    windowWrite(0, "02 00");
    model.writeDone(windowBit(0, 1, "00"), true);
    EXPECT_EQ(model.window(SoakModel::CountIndex), 8);
    windowWrite(0, "14 00");
    model.writeDone(windowBit(2, 3, "01"), true);
    EXPECT_EQ(model.window(2), 0x0007 | 0x0008);
    EXPECT_EQ(model.window(SoakModel::CountIndex), 8);
    // A bit relay that failed also bounds the count, and leaves the relay register.
    windowWrite(0, "14 00");
    model.writeDone(windowBit(SoakModel::RelayIndex, 0, "01"), false);
    EXPECT_EQ(model.window(SoakModel::CountIndex), 8);
    EXPECT_EQ(model.window(SoakModel::RelayIndex), 0x002A);

    // With a count of 0 nothing is relayed and nothing read back.
    windowWrite(0, "00 00");
    EXPECT_EQ(exchanges(model.attempt(relay)), "");
    EXPECT_EQ(exchanges(model.attempt(relayRead)), "");
    ASSERT_TRUE(model.expectedRead(relayRead, expected));
    EXPECT_EQ(expected, hex("2A 00"));
}

TEST(SoakModel, RequestsOfOneAttempt)
{
    struct Row
    {
        const char *what;
        SoakCommand c;
        const char *requests; // request/reply bytes; "pause" where the link's delay comes first
    } rows[] = {
        { "two words", command(Op::ReadWords, HR, 99, 2), "8/9" },
        { "62 double words", command(Op::ReadDWords, HR, 0, 62), "8/253" },
        { "three bytes", command(Op::ReadBytes, HR, 0, 3), "8/9" },
        { "ten coils", command(Op::ReadBits, Area::Coils, 0, 10), "8/7" },
        { "two bits from bit 15", command(Op::ReadRegisterBits, HR, 99, 2, 15), "8/9" },
        { "123 words, function 16", writing(command(Op::WriteWords, HR, 0, 123), 246), "255/8" },
        { "three words, function 6", writing(command(Op::WriteWords, HR, 0, 3), 6, true), "8/8 8/8 8/8" },
        { "three bytes, function 16", writing(command(Op::WriteBytes, HR, 0, 3), 3), "13/8" },
        { "one double word, function 6", writing(command(Op::WriteDWords, HR, 0, 1), 4, true), "8/8 8/8" },
        { "ten coils, function 15", writing(command(Op::WriteCoils, Area::Coils, 19, 10), 10), "11/8" },
        { "two coils, function 5", writing(command(Op::WriteCoils, Area::Coils, 0, 2), 2, true), "8/8 8/8" },
        { "a register bit, function 16", writing(command(Op::WriteRegisterBits, HR, 99, 1, 3), 1),
            "8/7 pause 11/8" },
        { "40 bits over three registers, function 6",
            writing(command(Op::WriteRegisterBits, HR, 99, 40, 0), 40, true),
            "8/11 pause 8/8 pause 8/8 pause 8/8" },
        { "a refused command", command(Op::Refused, HR, 0, 126), "" },
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.what);
        SoakModel model({ 1 });
        EXPECT_EQ(exchanges(model.attempt(row.c)), row.requests);
    }
}

// The soak excuses a command past its bound by the machine's stall while it
// ran: only the stall within the command counts, a stopped process is seen,
// and a command that is slow by itself is not taken for a stall.
TEST(StallMeter, CountsOnlyTheStallWithinTheCommand)
{
    struct Row
    {
        const char *what;
        std::vector<std::pair<int64_t, int64_t>> stalls;
        int64_t within; // of the command from 1000 to 2000
    };
    const Row rows[] = {
        { "a stall inside the command, whole", { { 1100, 1300 } }, 200 },
        { "a stall that began before it, from the command's start", { { 900, 1200 } }, 200 },
        { "a stall that lasts beyond it, to the command's end", { { 1900, 2500 } }, 100 },
        { "stalls that end as it starts or start as it ends: none", { { 500, 1000 }, { 2000, 2100 } }, 0 },
        { "several stalls, added", { { 1100, 1200 }, { 1500, 1550 } }, 150 },
    };
    for (const Row &r : rows) {
        StallMeter meter;
        for (const auto &s : r.stalls)
            meter.record(s.first, s.second);
        EXPECT_EQ(meter.stoodWithin(1000, 2000), r.within) << r.what;
    }
}

// Whether process PID stands stopped ("T" in its stat), read with calls a
// forked child may make.
bool isStopped(pid_t pid)
{
    char path[64];
    std::snprintf(path, sizeof path, "/proc/%d/stat", int(pid));
    const int fd = open(path, O_RDONLY);
    if (fd < 0)
        return false;
    char text[256];
    const ssize_t n = read(fd, text, sizeof text - 1);
    close(fd);
    if (n <= 0)
        return false;
    text[n] = '\0';
    const char *end = std::strrchr(text, ')'); // the name may hold anything but ends at the last ')'
    return end && end[1] == ' ' && end[2] == 'T';
}

TEST(StallMeter, SeesTheProcessStoppedButNotACommandThatSleeps)
{
    if (std::string(TECO_EMULATOR) != "")
        GTEST_SKIP() << "under an emulator, times say nothing of the machine";
    const int64_t ms = 1000000;
    for (const bool stopped : { true, false }) {
        StallMeter meter;
        meter.start();
        const StallMeter::Mark start = meter.mark();
        if (stopped) {
            const pid_t self = getpid();
            const pid_t child = fork();
            ASSERT_GE(child, 0);
            if (child == 0) {
                kill(self, SIGSTOP);
                const timespec pause { 0, 60 * ms };
                nanosleep(&pause, nullptr);
                const bool wasStopped = isStopped(self);
                kill(self, SIGCONT);
                _exit(wasStopped ? 0 : 3);
            }
            int status = 0;
            waitpid(child, &status, 0);
            if (WIFEXITED(status) && WEXITSTATUS(status) == 3)
                GTEST_SKIP() << "this machine did not keep the process stopped";
        } else {
            std::this_thread::sleep_for(std::chrono::milliseconds(60));
        }
        const StallMeter::Stall stall = meter.since(start);
        if (stopped)
            EXPECT_GE(stall.ns(), 40 * ms) << "stopped for 60 ms";
        else
            EXPECT_LT(stall.ns(), 30 * ms) << "slept 60 ms, not stalled";
    }
}

} // namespace
