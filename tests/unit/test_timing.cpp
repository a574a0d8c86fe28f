// Timing and diagnostics helpers.

#include "hex.h"
#include "tools.h"

#include <gmock/gmock.h>

#include <chrono>
#include <csignal>
#include <sys/time.h>
#include <unistd.h>

namespace {

volatile sig_atomic_t alarms = 0;
void onAlarm(int) { alarms = alarms + 1; }

TEST(HRSleep, SignalsDoNotShortenTheWait)
{
    struct sigaction action = {};
    action.sa_handler = onAlarm; // no SA_RESTART: nanosleep returns EINTR
    struct sigaction previous;
    ASSERT_EQ(sigaction(SIGALRM, &action, &previous), 0);
    struct itimerval every20ms = { { 0, 20000 }, { 0, 20000 } };
    setitimer(ITIMER_REAL, &every20ms, nullptr);

    alarms = 0;
    const qint64 first = CurrentMSecsSinceBoot();
    const auto start = std::chrono::steady_clock::now();
    HRSleep(200);
    const auto waited = std::chrono::steady_clock::now() - start;
    const qint64 second = CurrentMSecsSinceBoot();

    struct itimerval off = {};
    setitimer(ITIMER_REAL, &off, nullptr);
    sigaction(SIGALRM, &previous, nullptr);
    EXPECT_GT(alarms, 0) << "the wait was never interrupted, so the test proves nothing";
    EXPECT_GE(std::chrono::duration_cast<std::chrono::milliseconds>(waited).count(), 200);
    EXPECT_GT(first, 0);
    EXPECT_GE(second - first, 200);
}

TEST(Processes, OwnIdExistsAndAFreeOneDoesNot)
{
    EXPECT_TRUE(ProcessIsRunning(getpid()));
    EXPECT_TRUE(ProcessIsRunning(1)) << "init exists even when we may not signal it";
    EXPECT_FALSE(ProcessIsRunning(0x7FFFFFF0LL));
}

TEST(HexText, ParsesWithinItsLengthOrGivesZero)
{
    struct Row
    {
        const char *text;
        int len;
        quint32 value;
    } rows[] = {
        { "1f", 2, 31 },
        { "0X1F", 4, 31 },
        { "0x1F", 3, 1 },
        { "0x", 2, 0 },
        { "12G4", 4, 0 },
        { "ff", 10, 255 },
        { "01", 2, 1 },
        { "1f", -1, 0 },
        { "FFFFFFFF", 8, 0xFFFFFFFF },
        { "0x12 ", 5, 0 },
    };
    for (const Row &row : rows)
        EXPECT_EQ(HexToUInt(row.text, row.len), row.value) << row.text << " / " << row.len;
    EXPECT_EQ(HexToUInt(nullptr, 4), 0u);
}

TEST(ByteDump, HexThenTextUpToTheFirstZero)
{
    EXPECT_EQ(dumpByteArray(hex("41 42 0A")), QString("(0X41 0X42 0Xa ) : AB\n"));
    EXPECT_EQ(dumpByteArray(hex("00 41")), QString("(0X0 0X41 ) : "));
    // Built from the character itself: Qt 4 reads a literal as Latin-1, Qt 5
    // as UTF-8.
    EXPECT_EQ(dumpByteArray(hex("FF")), QString("(0Xff ) : ") + QChar(0xFF));
}

} // namespace
