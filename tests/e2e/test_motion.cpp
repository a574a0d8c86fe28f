// The simulated drive's motor seen through the driver, as a panel sees it:
// a speed command written to HR402 shows in the motor speed IR401 on its
// ramp; an alarm shows in IR406 and is reset through HR406.

#include "e2erig.h"

#include "parammap.h"
#include "registermap.h"

#include <chrono>
#include <thread>

namespace {

int readWord(E2eRig &rig, const char *address)
{
    const QByteArray b = rig.read(Word, 1, address);
    EXPECT_FALSE(rig.failed()) << address << ": " << rig.error();
    return b.size() == 2 ? int16_t(uint8_t(b[0]) | uint8_t(b[1]) << 8) : -99999;
}

bool writeWord(E2eRig &rig, const char *address, int value)
{
    const char data[2] = { char(value & 0xFF), char((value >> 8) & 0xFF) };
    return rig.write(Word, address, QByteArray(data, 2));
}

uint32_t readPosition(E2eRig &rig)
{
    const QByteArray b = rig.read(DoubleWord, 1, "IR402SW");
    EXPECT_FALSE(rig.failed()) << rig.error();
    uint32_t v = 0;
    for (int i = b.size() - 1; i >= 0; --i)
        v = v << 8 | uint8_t(b[i]);
    return v;
}

TEST(EndToEnd, TheDriveRampsToTheSpeedCommandAndResetsItsAlarm)
{
    // The built-in map (0 to 3000 rpm in 2000 ms), with the motor at rest.
    ParameterMap map;
    std::string error;
    ASSERT_TRUE(parseParameterMap(builtinServoMap(), map, error)) << error;
    for (Parameter &p : map.parameters)
        if (p.motion == "speed-command")
            p.defaultText = "0";
    E2eRig rig(AnswerTimeoutMs, 0, {}, parameterMapCsv(map));
    EXPECT_EQ(readWord(rig, "IR401"), 0);

    ASSERT_TRUE(writeWord(rig, "HR402", 3000)) << rig.error();
    const auto written = std::chrono::steady_clock::now();
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    const int ramping = readWord(rig, "IR401");
    EXPECT_GT(ramping, 0);
    EXPECT_LT(ramping, 3000);
    const uint32_t ramped = readPosition(rig);
    EXPECT_GT(ramped, 0u);

    int speed = ramping;
    for (int i = 0; i < 100 && speed != 3000; ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        speed = readWord(rig, "IR401");
    }
    EXPECT_EQ(speed, 3000);
    EXPECT_GE(std::chrono::steady_clock::now() - written, std::chrono::milliseconds(1900))
        << "no sooner than the ramp allows";
    EXPECT_GT(readPosition(rig) - ramped, 0u);

    // Beyond the maximum speed (HR405 = 3000): alarm 1, which a reset
    // clears only once the command is back in range.
    ASSERT_TRUE(writeWord(rig, "HR402", 4000)) << rig.error();
    EXPECT_EQ(readWord(rig, "IR406"), 1);
    ASSERT_TRUE(writeWord(rig, "HR406", 1)) << rig.error();
    EXPECT_EQ(readWord(rig, "IR406"), 1);
    ASSERT_TRUE(writeWord(rig, "HR402", 1000)) << rig.error();
    ASSERT_TRUE(writeWord(rig, "HR406", 1)) << rig.error();
    EXPECT_EQ(readWord(rig, "IR406"), 0);
    EXPECT_EQ(readWord(rig, "HR406"), 0) << "the reset is taken";
}

} // namespace
