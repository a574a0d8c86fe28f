// The driver plug-in over our serial link and a pseudo-terminal against the
// simulated drive: the relay window, and recovery from faults and late
// answers on the line (what the driver sends for each data type, prefix and
// relay: tests/unit; reads and writes of each type end to end: Cli.*).

#include "e2erig.h"

namespace {

// ---------------------------------------------------------------- relay window

TEST(EndToEnd, RelayResumesAtTheStationThatFailedAndTheNextCommandStartsAnew)
{
    // Station 3 misses the first relay write. With a retry, the next attempt
    // of the same command writes to station 3 only, not to station 2 again;
    // without one the failure is reported, and the next command starts anew.
    for (int retry : { 1, 0 }) {
        SCOPED_TRACE("retry " + std::to_string(retry));
        E2eRig rig(FailureTimeoutMs, retry, { fault("noreply:station=3,times=1") });
        ASSERT_TRUE(rig.write(Word, "HR60000", hex("02 00 02 00 03 00"), 3)) << rig.error();
        EXPECT_EQ(rig.write(Word, "HR60010", hex("34 12")), retry == 1) << rig.error();
        EXPECT_EQ(rig.registerAt(2, 1299), 0x1234);
        EXPECT_EQ(rig.registerAt(3, 1299), retry == 1 ? 0x1234 : 0);
        EXPECT_EQ(rig.sim.requests(2, 16), 1u);
        EXPECT_EQ(rig.sim.requests(3, 16), uint64_t(1 + retry));
        if (retry == 1)
            continue;
        EXPECT_EQ(rig.error(), "PLC no response (write 1 word to 1-HR60010)");
        EXPECT_TRUE(rig.write(Word, "HR60010", hex("35 12"))) << rig.error();
        EXPECT_EQ(rig.sim.requests(2, 16), 2u);
        EXPECT_EQ(rig.registerAt(3, 1299), 0x1235);
    }
}

// ---------------------------------------------------------------- time-outs and faults

TEST(EndToEnd, EveryFaultHasItsTextAndTheNextCommandGetsItsOwnAnswer)
{
    struct Row
    {
        const char *fault;
        const char *error;
    } rows[] = {
        { "corrupt:at=HR100,times=1", "CRC error" },
        { "exception:at=HR100,times=1,code=2", "exception code:0x02" },
        // A well-formed answer from another station is no answer to this
        // request: the link drops it and the request times out.
        { "wrongstation:at=HR100,times=1,as=9", "PLC no response" },
        { "truncate:at=HR100,times=1", "packet loss" },
        { "truncate:at=HR100,times=1,keep=3", "received bytes < 5" },
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.fault);
        E2eRig rig(FailureTimeoutMs, 0, { fault(row.fault) });
        rig.setRegister(1, 99, 0x1111);
        rig.setRegister(1, 199, 0x2222);
        EXPECT_TRUE(rig.read(Word, 1, "HR100").isEmpty());
        EXPECT_EQ(rig.error(), std::string(row.error) + " (read 1 word(s) from 1-HR100)");
        rig.link.options().timeoutMs = AnswerTimeoutMs;
        EXPECT_EQ(toHex(rig.read(Word, 1, "HR200")), "22 22");
        EXPECT_FALSE(rig.failed()) << rig.error();
    }
}

TEST(EndToEnd, AWriteReportedDoneHasHappenedDespiteLateAcknowledgements)
{
    // Function 16 acknowledges address and quantity, not the value: a late
    // acknowledgement of the previous write looks like this one's. Lost
    // requests make a taken-over acknowledgement show as a value never written.
    // The answers come late by more than the time-out (50 ms, plus about 8 ms
    // of wire time at 9600 baud) and well before the guard (250 ms) ends,
    // with room for a slow machine.
    E2eRig rig(50, 1,
        { fault("late:rate=6%,ms=75"), fault("late:rate=6%,ms=120"), fault("late:rate=6%,ms=160"),
            fault("noreply:rate=10%") });
    rig.link.options().lateGuardMs = 250;
    int wrong = 0, done = 0;
    for (int i = 0; i < 120; ++i) {
        const quint16 value = quint16(0x1000 + i);
        QByteArray data;
        data.append(char(value & 0xFF)).append(char(value >> 8));
        if (!rig.write(Word, "HR300", data))
            continue;
        ++done;
        if (rig.registerAt(1, 299) != value)
            ++wrong;
    }
    EXPECT_EQ(wrong, 0);
    EXPECT_GE(done, 90);
    EXPECT_GT(rig.sim.stats().lateRepliesSent, 10u);
}

} // namespace
