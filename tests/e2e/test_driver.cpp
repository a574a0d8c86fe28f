// The driver plug-in over our serial link and a pseudo-terminal against the
// simulated drive: every data type and prefix, the relay window, time-outs
// and retries, and recovery from faults on the line.

#include "e2erig.h"

#include <gmock/gmock.h>

namespace {

// Register values on station 1 that the read rows expect (zero-based).
void loadReadValues(E2eRig &rig)
{
    rig.setRegister(1, 99, 0x1234);
    rig.setRegister(1, 100, 0x5679);
    rig.sim.setValue(1, Area::InputRegisters, 9, 0xABCD);
    rig.sim.setValue(1, Area::InputRegisters, 10, 0x0102);
    for (int coil : { 4, 6 })
        rig.sim.setValue(1, Area::Coils, coil, 1);
    rig.sim.setValue(1, Area::DiscreteInputs, 2, 1);
}

TEST(EndToEnd, ReadsEveryDataTypeAndPrefix)
{
    struct Row
    {
        int type;
        int count;
        const char *address;
        const char *expected;
        int functionCode;
    } rows[] = {
        { Word, 2, "FN6HR100", "34 12 79 56", 3 },
        { Word, 2, "IR10", "CD AB 02 01", 4 },
        { DoubleWord, 1, "HR100", "34 12 79 56", 3 }, // first register is the low half
        { DoubleWord, 1, "IR10SW", "02 01 CD AB", 4 }, // first register is the high half
        { Byte, 3, "HR100", "34 12 79", 3 },
        { Bit, 2, "HR100.15", "02", 3 }, // bit 15 of 0x1234, then bit 0 of 0x5679
        { BitBlock, 3, "FN5DO5", "05", 1 },
        { Bit, 2, "DI3", "01", 2 },
    };
    E2eRig rig;
    loadReadValues(rig);
    for (const Row &row : rows) {
        SCOPED_TRACE(row.address);
        const uint64_t before = rig.sim.requests(1, row.functionCode);
        EXPECT_EQ(toHex(rig.read(row.type, row.count, row.address)), row.expected);
        EXPECT_FALSE(rig.failed()) << rig.error();
        EXPECT_EQ(rig.sim.requests(1, row.functionCode), before + 1);
    }
}

TEST(EndToEnd, WritesEveryDataTypeAndPrefix)
{
    struct Row
    {
        int type;
        const char *address;
        const char *data;
        uint16_t first, second; // holding registers 199 and 200 afterwards
        int functionCode;
        int requests;
    } rows[] = {
        { Word, "FN6HR200", "34 12 78 56", 0x1234, 0x5678, 6, 2 },
        { DoubleWord, "HR200", "78 56 34 12", 0x5678, 0x1234, 16, 1 },
        { DoubleWord, "FN6HR200SW", "78 56 34 12", 0x1234, 0x5678, 6, 2 },
        { Byte, "HR200", "11 22 33", 0x2211, 0x0033, 16, 1 },
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(std::string(row.address) + " " + row.data);
        E2eRig rig;
        EXPECT_TRUE(rig.write(row.type, row.address, hex(row.data))) << rig.error();
        EXPECT_EQ(rig.registerAt(1, 199), row.first);
        EXPECT_EQ(rig.registerAt(1, 200), row.second);
        EXPECT_EQ(rig.sim.requests(1, row.functionCode), uint64_t(row.requests));
        EXPECT_EQ(rig.sim.requests(1), uint64_t(row.requests));
    }
}

TEST(EndToEnd, WritesCoilsAndRegisterBits)
{
    E2eRig rig;
    EXPECT_TRUE(rig.write(Bit, "DO9", hex("01 00 01"), 3)) << rig.error();
    EXPECT_EQ(rig.sim.requests(1, 15), 1u);
    EXPECT_TRUE(rig.write(BitBlock, "FN5DO12", hex("01"))) << rig.error();
    EXPECT_EQ(rig.sim.requests(1, 5), 1u);
    for (int coil = 8; coil <= 11; ++coil) {
        uint16_t v = 9;
        rig.sim.value(1, Area::Coils, coil, v);
        EXPECT_EQ(v, coil == 9 ? 0 : 1) << "coil " << coil + 1;
    }

    // Bits inside registers: read, change, write back; other bits stay.
    rig.setRegister(1, 299, 0x8001);
    EXPECT_TRUE(rig.write(Bit, "HR300.3", hex("01"))) << rig.error();
    EXPECT_EQ(rig.registerAt(1, 299), 0x8009);
    EXPECT_EQ(rig.sim.requests(1, 16), 1u);
    EXPECT_TRUE(rig.write(Bit, "FN6HR300.15", hex("00"))) << rig.error();
    EXPECT_EQ(rig.registerAt(1, 299), 0x0009);
    EXPECT_EQ(rig.sim.requests(1, 6), 1u);
    EXPECT_EQ(rig.sim.requests(1, 3), 2u);
}

// ---------------------------------------------------------------- relay window

void listStations(E2eRig &rig, const char *countAndList)
{
    ASSERT_TRUE(rig.write(Word, "HR60000", hex(countAndList), 3)) << rig.error();
}

TEST(EndToEnd, RelayWindowWritesOneValueToEveryListedStation)
{
    struct Row
    {
        const char *address;
        int functionCode;
    } rows[] = { { "HR60010", 16 }, { "FN6HR60010", 6 } };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.address);
        E2eRig rig;
        listStations(rig, "02 00 02 00 03 00");
        EXPECT_EQ(rig.link.counters().requests, 0u); // the list is the driver's own
        EXPECT_TRUE(rig.write(Word, row.address, hex("34 12"))) << rig.error();
        for (int station : { 2, 3 }) {
            EXPECT_EQ(rig.registerAt(station, 1299), 0x1234) << "station " << station;
            EXPECT_EQ(rig.sim.requests(station, row.functionCode), 1u) << "station " << station;
        }
        EXPECT_EQ(rig.sim.requests(1), 0u);
        // Read back from the station named in HR60009.
        ASSERT_TRUE(rig.write(Word, "HR60009", hex("03 00")));
        rig.setRegister(3, 1299, 0x0042);
        EXPECT_EQ(toHex(rig.read(Word, 1, row.address)), "42 00");
        EXPECT_EQ(rig.sim.requests(3, 3), 1u);
    }
}

TEST(EndToEnd, RelayResumesAtTheStationThatFailedAndTheNextCommandStartsAnew)
{
    // Station 3 misses the first relay write. With a retry, the next attempt
    // of the same command writes to station 3 only, not to station 2 again;
    // without one the failure is reported, and the next command starts anew.
    for (int retry : { 1, 0 }) {
        SCOPED_TRACE("retry " + std::to_string(retry));
        E2eRig rig(FailureTimeoutMs, retry, { fault("noreply:station=3,times=1") });
        listStations(rig, "02 00 02 00 03 00");
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

TEST(EndToEnd, ASilentStationCostsOneAttemptPerRetry)
{
    for (int retry : { 0, 2 }) {
        SCOPED_TRACE("retry " + std::to_string(retry));
        E2eRig rig(FailureTimeoutMs, retry, { fault("noreply:station=1") });
        const auto start = std::chrono::steady_clock::now();
        EXPECT_TRUE(rig.read(Word, 1, "HR100").isEmpty());
        const auto elapsed = std::chrono::steady_clock::now() - start;
        EXPECT_EQ(rig.error(), "PLC no response (read 1 word(s) from 1-HR100)");
        EXPECT_EQ(rig.sim.requests(1, 3), uint64_t(1 + retry));
        // Each attempt waited the whole time-out (a lower bound only).
        EXPECT_GE(elapsed, std::chrono::milliseconds((1 + retry) * FailureTimeoutMs));
    }
}

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
        { "noreply:at=HR100,times=1", "PLC no response" },
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

TEST(EndToEnd, ALateAnswerIsNeverTakenForTheNextCommand)
{
    // The answer to HR100 arrives after the master gave up; the next command
    // reads HR200, an answer of the same length: it must get HR200's value.
    E2eRig rig(FailureTimeoutMs, 0, { fault("late:at=HR100,times=1,ms=600") });
    rig.setRegister(1, 99, 0x1111);
    rig.setRegister(1, 199, 0x2222);
    EXPECT_TRUE(rig.read(Word, 1, "HR100").isEmpty());
    EXPECT_EQ(rig.error(), "PLC no response (read 1 word(s) from 1-HR100)");
    ASSERT_TRUE(rig.waitFor([](const SimDrive::Stats &s) { return s.lateRepliesSent == 1; }));
    rig.link.options().timeoutMs = AnswerTimeoutMs;
    EXPECT_EQ(toHex(rig.read(Word, 1, "HR200")), "22 22");
    EXPECT_FALSE(rig.failed()) << rig.error();
    EXPECT_EQ(rig.link.counters().staleBytesDropped, 7u);
}

TEST(EndToEnd, AnAnswerLeftOverFromARetryIsDropped)
{
    // Attempt 1 times out; a later attempt takes the late answer to attempt 1
    // (the same request); the answer to that attempt then waits on the line
    // and must not be taken for the next command.
    E2eRig rig(FailureTimeoutMs, 2, { fault("late:at=HR100,times=1,ms=400") });
    rig.setRegister(1, 99, 0x1111);
    rig.setRegister(1, 199, 0x2222);
    EXPECT_EQ(toHex(rig.read(Word, 1, "HR100")), "11 11");
    const uint64_t sent = rig.link.counters().requests;
    EXPECT_GE(sent, 2u);
    ASSERT_TRUE(rig.waitFor([sent](const SimDrive::Stats &s) { return s.replies == sent; }));
    rig.link.options().timeoutMs = AnswerTimeoutMs;
    EXPECT_EQ(toHex(rig.read(Word, 1, "HR200")), "22 22");
    EXPECT_FALSE(rig.failed()) << rig.error();
}

// Answers late by more than the time-out but less than time-out + guard:
// the reply that the driver takes is always its own request's.
const int RaceTimeoutMs = 50, RaceGuardMs = 250;
std::vector<FaultRule> lateAnswers()
{
    // The deadline is the time-out plus the answer's wire time (about 8 ms
    // at 9600 baud): these arrive well after it and well before the guard
    // ends, with room for a slow machine.
    return { fault("late:rate=6%,ms=75"), fault("late:rate=6%,ms=120"), fault("late:rate=6%,ms=160") };
}

TEST(EndToEnd, AlternatingReadsNeverTakeALateAnswerForTheOtherRegister)
{
    E2eRig rig(RaceTimeoutMs, 1, lateAnswers());
    rig.link.options().lateGuardMs = RaceGuardMs;
    rig.setRegister(1, 99, 0x1111);
    rig.setRegister(1, 199, 0x2222);
    int wrong = 0, good = 0;
    for (int i = 0; i < 220; ++i) {
        const bool first = i % 2 == 0;
        const QByteArray got = rig.read(Word, 1, first ? "HR100" : "HR200");
        if (got.isEmpty())
            continue; // a failure says so: not a wrong value
        ++good;
        if (toHex(got) != (first ? "11 11" : "22 22"))
            ++wrong;
    }
    EXPECT_EQ(wrong, 0);
    EXPECT_GE(good, 200);
    EXPECT_GT(rig.sim.stats().lateRepliesSent, 20u);
    EXPECT_GT(rig.link.counters().lateBytesDropped, 0u);
}

TEST(EndToEnd, AWriteReportedDoneHasHappenedDespiteLateAcknowledgements)
{
    // Function 16 acknowledges address and quantity, not the value: a late
    // acknowledgement of the previous write looks like this one's. Lost
    // requests make a taken-over acknowledgement show as a value never written.
    std::vector<FaultRule> faults = lateAnswers();
    faults.push_back(fault("noreply:rate=10%"));
    E2eRig rig(RaceTimeoutMs, 1, faults);
    rig.link.options().lateGuardMs = RaceGuardMs;
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

TEST(EndToEnd, NoiseBetweenFramesIsDropped)
{
    E2eRig rig(AnswerTimeoutMs, 0, { fault("noise:at=HR100,times=1,bytes=5") });
    rig.setRegister(1, 99, 0x1111);
    rig.setRegister(1, 199, 0x2222);
    EXPECT_EQ(toHex(rig.read(Word, 1, "HR100")), "11 11");
    ASSERT_TRUE(rig.waitFor([](const SimDrive::Stats &s) { return s.noiseBytesSent == 5; }));
    EXPECT_EQ(toHex(rig.read(Word, 1, "HR200")), "22 22");
    EXPECT_FALSE(rig.failed()) << rig.error();
    EXPECT_EQ(rig.link.counters().staleBytesDropped, 5u);
}

} // namespace
