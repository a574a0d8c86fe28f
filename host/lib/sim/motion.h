#ifndef HOST_SIM_MOTION_H
#define HOST_SIM_MOTION_H

// The motor behind the simulated drive: the speed follows the speed command
// on a ramp, the position integrates the speed, the current and the load
// follow the torque the motion needs, and an alarm stops the motor until it
// is reset. advanceMotion() is a pure function of the state, the commands
// and the time passed, so that the model is tested without a clock; the
// drive calls it on every request with the time since the last one.
//
// The model's constants, as a small servo motor with its load:
//   rated speed            3000 rpm: the acceleration and deceleration times
//                          are the times from 0 to 3000 rpm and back
//   encoder                10000 counts per revolution
//   torque                 0.01 % of the rated torque per rpm/s of acceleration
//                          (inertia), plus friction while turning: 5 % plus
//                          0.002 % per rpm
//   current                2.00 A at the rated torque, in proportion
//   overload               a torque above 300 % of the rated one
//
// Alarms (the alarm code): 1 over-speed, a speed command beyond the maximum
// speed while the servo is on; 2 overload. With an alarm or the servo off the
// command is taken as 0: the motor stops on the deceleration ramp. An alarm
// stays until the master resets it, and comes back at once if its cause is
// still there.

#include <cstdint>
#include <string>

struct MotionCommand
{
    bool servoOn = true;
    int speedCommand = 0; // rpm, signed
    int accelMs = 0; // 0 to the rated speed; 0: at once
    int decelMs = 0; // the rated speed to 0; 0: at once
    int maxSpeed = 0; // rpm; 0: no limit
    bool alarmReset = false; // clear the alarm before this step
};

struct MotionState
{
    double speed = 0; // rpm, signed
    uint32_t position = 0; // counts, wrapping at 2^32
    double positionFraction = 0; // the part of a count not yet counted, [0, 1)
    double torque = 0; // % of the rated torque, signed, over the last part of the step
    bool servoOn = false; // whether the servo was on (and without alarm) at the end of the step
    int alarm = 0;
};

enum MotionAlarm { NoAlarm = 0, OverSpeedAlarm = 1, OverloadAlarm = 2 };
// "over-speed", "overload", "cleared".
const char *motionAlarmText(int alarm);

// What the drive shows in its monitor registers.
struct MotionReadings
{
    int16_t speed; // rpm
    uint32_t position; // counts
    uint16_t current; // 0.01 A
    uint16_t load; // % of the rated torque
    uint16_t alarm; // MotionAlarm
};

// The state after dtNs nanoseconds with these commands.
MotionState advanceMotion(MotionState state, const MotionCommand &command, int64_t dtNs);
MotionReadings motionReadings(const MotionState &state);

// The registers that a map binds to the model (registermap.h: "motion"
// lines). The first ones the master writes and the model reads, the others
// the model writes.
enum class MotionQuantity {
    ServoOn,
    SpeedCommand,
    AccelTime,
    DecelTime,
    MaxSpeed,
    AlarmReset,
    Speed,
    Position, // two registers, high word first
    Current,
    Load,
    Alarm,
    Count
};
const int motionQuantityCount = int(MotionQuantity::Count);

// Its name in a map ("speed-command"), and back; false for an unknown name.
const char *motionQuantityName(MotionQuantity quantity);
bool motionQuantityFromName(const std::string &name, MotionQuantity &quantity);
// "servo-on, speed-command, ... and alarm": every name, for messages.
std::string motionQuantityNames();

#endif // HOST_SIM_MOTION_H
