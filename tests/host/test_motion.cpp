// The simulated drive's motor: ramps, position, torque, alarms, and the map
// lines that bind registers to it. Time is given, never waited for.

#include "motion.h"
#include "registermap.h"

#include <gtest/gtest.h>

namespace {

const int64_t ms = 1000000; // ns

MotionCommand command(int speed, int accelMs = 0, int decelMs = 0)
{
    MotionCommand c;
    c.speedCommand = speed;
    c.accelMs = accelMs;
    c.decelMs = decelMs;
    return c;
}

MotionState turning(double speed)
{
    MotionState s;
    s.speed = speed;
    s.servoOn = true;
    return s;
}

// The same time in one step and in steps of 1 ms: the model may not depend
// on how often the master asks.
std::pair<MotionState, MotionState> runBothWays(
    const MotionState &start, const MotionCommand &c, int elapsedMs)
{
    MotionState fine = start;
    for (int i = 0; i < elapsedMs; ++i)
        fine = advanceMotion(fine, c, ms);
    return { advanceMotion(start, c, elapsedMs * ms), fine };
}

// Positions count 10000 a revolution.
TEST(Motion, TheSpeedFollowsTheCommandOnItsRampsAndThePositionIntegratesIt)
{
    struct Row
    {
        const char *what;
        double from;
        MotionCommand command;
        int elapsedMs;
        double speed;
        uint32_t start, position;
    } rows[] = {
        { "accelerates at 3000 rpm per acceleration time", 0, command(3000, 1000), 500, 1500, 0, 62500 },
        { "holds the command after its ramp", 0, command(1500, 1000), 3000, 1500, 0, 687500 },
        { "negative commands ramp the same", 0, command(-3000, 2000), 1000, -1500, 0, 4294842296u },
        { "decelerates on the deceleration time", 3000, command(0, 100, 2000), 1000, 1500, 0, 375000 },
        { "slows to a lower command on the deceleration time", 3000, command(1000, 100, 1000), 500, 1500, 0,
            187500 },
        { "reverses: down to 0 on the deceleration ramp, then up", 1500, command(-1500, 2000, 1000), 1000,
            -750, 0, 31250 },
        { "a ramp time of 0 follows at once", 0, command(1200), 1, 1200, 0, 200 },
        { "600 rpm for 1 s: 10 revolutions", 600, command(600), 1000, 600, 0, 100000 },
        { "a ramp from 0 to 3000 rpm in 1 s covers half of full speed", 0, command(3000, 1000), 1000, 3000, 0,
            250000 },
        { "backwards below 0 wraps to the top", -600, command(-600), 1000, -600, 0, 4294867296u },
        { "forwards past the top wraps to 0", 600, command(600), 1000, 600, 4294967000u, 99704 },
        { "parts of a count add up (7 rpm: 1166.67 counts/s)", 7, command(7), 3000, 7, 0, 3500 },
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.what);
        MotionState start = turning(row.from);
        start.position = row.start;
        const auto both = runBothWays(start, row.command, row.elapsedMs);
        EXPECT_NEAR(both.first.speed, row.speed, 1e-6);
        EXPECT_NEAR(both.second.speed, row.speed, 1e-6);
        EXPECT_EQ(motionReadings(both.first).speed, int16_t(row.speed));
        EXPECT_NEAR(double(int32_t(both.first.position - row.position)), 0, 1) << both.first.position;
        EXPECT_NEAR(double(int32_t(both.second.position - row.position)), 0, 1) << both.second.position;
        EXPECT_EQ(motionReadings(both.first).position, both.first.position);
    }
}

TEST(Motion, CurrentAndLoadFollowTheTorqueOfTheMotion)
{
    struct Row
    {
        const char *what;
        double from;
        MotionCommand command;
        int elapsedMs;
        int load; // %: 0.01 % per rpm/s, friction 5 % + 0.002 % per rpm
        int current; // 0.01 A: 2 A at 100 %
    } rows[] = {
        { "standing still with the servo on", 0, command(0), 100, 0, 0 },
        { "accelerating 3000 rpm/s, at 1500 rpm: 30 + 5 + 3", 0, command(3000, 1000), 500, 38, 76 },
        { "at a steady 1500 rpm: friction only", 1500, command(1500), 100, 8, 16 },
        { "decelerating 3000 rpm/s, at 1500 rpm: friction helps", 3000, command(0, 0, 1000), 500, 22, 44 },
        { "backwards at a steady 1500 rpm", -1500, command(-1500), 100, 8, 16 },
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.what);
        const MotionReadings r
            = motionReadings(advanceMotion(turning(row.from), row.command, row.elapsedMs * ms));
        EXPECT_EQ(r.load, row.load);
        EXPECT_EQ(r.current, row.current);
    }
    MotionCommand off = command(0, 0, 1000);
    off.servoOn = false;
    const MotionReadings r = motionReadings(advanceMotion(turning(3000), off, 500 * ms));
    EXPECT_EQ(r.speed, 1500) << "servo off: stops on the deceleration ramp";
    EXPECT_EQ(r.current, 0);
    EXPECT_EQ(r.load, 0);
}

// One drive through a sequence of steps: each row changes the commands,
// lets time pass and checks the alarm and the speed.
TEST(Motion, AnAlarmStopsTheMotorUntilItIsResetAndItsCauseIsGone)
{
    struct Row
    {
        const char *what;
        bool servoOn;
        int speedCommand, accelMs;
        bool reset;
        int elapsedMs, alarm, speed;
    } rows[] = {
        { "runs up to 1000 rpm", true, 1000, 1000, false, 400, NoAlarm, 1000 },
        { "a command beyond the maximum speed: over-speed, the motor stops", true, 3500, 1000, false, 600,
            OverSpeedAlarm, 0 },
        { "the alarm stays without a reset", true, 1000, 1000, false, 100, OverSpeedAlarm, 0 },
        { "a reset clears it and the motor runs again", true, 1000, 1000, true, 100, NoAlarm, 300 },
        { "a reset while the cause is still there raises it again", true, 3500, 1000, true, 100,
            OverSpeedAlarm, 0 },
        { "with the servo off a large command raises nothing", false, 3500, 1000, true, 500, NoAlarm, 0 },
        { "an acceleration of 0 to 3000 rpm in 50 ms: overload", true, 1000, 50, false, 100, OverloadAlarm,
            0 },
        { "a reset with the same ramp overloads again", true, 1000, 50, true, 100, OverloadAlarm, 0 },
        { "a reset with a gentler ramp runs", true, 1000, 1000, true, 100, NoAlarm, 300 },
    };
    MotionState s;
    for (const Row &row : rows) {
        SCOPED_TRACE(row.what);
        MotionCommand c = command(row.speedCommand, row.accelMs, 100);
        c.servoOn = row.servoOn;
        c.maxSpeed = 3000;
        c.alarmReset = row.reset;
        s = advanceMotion(s, c, row.elapsedMs * ms);
        const MotionReadings r = motionReadings(s);
        EXPECT_EQ(r.alarm, row.alarm);
        EXPECT_EQ(r.speed, row.speed);
        if (row.alarm) {
            EXPECT_EQ(r.current, 0) << "an alarm switches the servo off";
        }
    }
}

TEST(MotionMap, TheBuiltInMapBindsAMotorToEveryStation)
{
    std::vector<MapEntry> entries;
    std::vector<MotionEntry> motion;
    std::string error;
    ASSERT_TRUE(parseRegisterMap(builtinServoMap(), entries, error, &motion)) << error;
    ASSERT_EQ(motion.size(), size_t(motionQuantityCount));
    for (const MotionEntry &e : motion)
        EXPECT_EQ(e.station, 0);
    // Which registers it binds is seen end to end in tests/e2e/test_motion.cpp.
}

TEST(MotionMap, BadMotionLinesNameTheLineAndTheProblem)
{
    struct Row
    {
        const char *text, *error;
    } rows[] = {
        { "motion speed\n", "line 1: expected \"motion QUANTITY ADDRESS [NAME]\"" },
        { "motion torque IR5\n", "line 1: unknown motion quantity \"torque\" (servo-on, speed-command," },
        { "motion speed XR5\n", "line 1: unknown address \"XR5\"" },
        { "motion speed IR5.1\n", "line 1: use plain HR, IR, DO or DI addresses in a map, not \"IR5.1\"" },
        { "motion speed-command HR5\nmotion position IR10\n",
            "line 2: the position takes two registers: write its address as IR10SW" },
        { "motion speed-command HR5SW\n",
            "line 1: only the position takes two registers, not speed-command" },
        { "motion speed-command HR5\nmotion position IR65536SW\n",
            "line 2: the position needs two registers" },
        { "motion speed-command HR5\nstation 2\nmotion speed-command HR6\n",
            "line 3: motion speed-command is bound twice for the same station (line 1)" },
        { "motion speed-command HR5\nmotion position IR10SW\nmotion load IR11\n",
            "line 3: IR11 is already bound to motion position (line 2)" },
        { "station 2\nmotion speed IR5\n",
            "line 2: the motion lines of station 2 bind no speed-command register" },
        { "name,address,motion\nc,HR5,speed-command\np,IR10,position\n",
            "line 3 (p): the position takes two registers: write its address as IR10SW" },
        { "name,address,format,motion\nc,HR5,int32,speed-command\n",
            "line 2 (c): motion speed-command takes one register, not the format int32" },
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.text);
        std::vector<MapEntry> entries;
        std::vector<MotionEntry> motion;
        std::string error;
        EXPECT_FALSE(parseRegisterMap(row.text, entries, error, &motion));
        EXPECT_EQ(error.rfind(row.error, 0), 0u) << error;
    }
    // Each station its own motor at the same registers; the command for all.
    std::vector<MapEntry> entries;
    std::vector<MotionEntry> motion;
    std::string error;
    EXPECT_TRUE(parseRegisterMap("motion speed-command HR5\nstation 1\nmotion speed IR5\nstation 2\n"
                                 "motion speed IR5\n",
        entries, error, &motion))
        << error;
    EXPECT_EQ(motion.size(), 3u);
}

} // namespace
