#include "motion.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace {

const double ratedRpm = 3000;
const double countsPerRevolution = 10000;
const double inertiaPercentPerRpmPerS = 0.01;
const double coulombPercent = 5;
const double viscousPercentPerRpm = 0.002;
const double ratedCurrent = 200; // 0.01 A
const double overloadPercent = 300;

const char *const quantityNames[motionQuantityCount] = { "servo-on", "speed-command", "accel-time",
    "decel-time", "max-speed", "alarm-reset", "speed", "position", "current", "load", "alarm" };

// rpm per second of a ramp that takes ms from 0 to the rated speed.
double rampRate(int ms) { return ms <= 0 ? std::numeric_limits<double>::infinity() : ratedRpm * 1000.0 / ms; }

// Moves the position by what a speed going linearly from one value to
// another covers in the time given.
void integrate(MotionState &s, double fromRpm, double toRpm, double seconds)
{
    const double counts = (fromRpm + toRpm) / 2 / 60 * countsPerRevolution * seconds + s.positionFraction;
    const double whole = std::floor(counts);
    s.positionFraction = counts - whole;
    s.position += uint32_t(int64_t(whole)); // modulo 2^32: the counter wraps
}

// The torque (% of rated) to turn at this speed, in this direction of
// motion, with this acceleration (rpm/s, signed).
double torqueAt(double rpm, double motionSign, double acceleration)
{
    return inertiaPercentPerRpmPerS * acceleration
        + motionSign * (coulombPercent + viscousPercentPerRpm * std::fabs(rpm));
}

double signOf(double v) { return v > 0 ? 1 : v < 0 ? -1 : 0; }

uint16_t clampedWord(double v) { return uint16_t(std::lround(std::min(std::max(v, 0.0), 65535.0))); }

} // namespace

MotionState advanceMotion(MotionState s, const MotionCommand &c, int64_t dtNs)
{
    if (c.alarmReset)
        s.alarm = NoAlarm;
    if (!s.alarm && c.servoOn && c.maxSpeed > 0 && std::abs(c.speedCommand) > c.maxSpeed)
        s.alarm = OverSpeedAlarm;
    double left = dtNs > 0 ? double(dtNs) / 1e9 : 0;
    // Each pass either uses up the time, reaches the end of a ramp (the
    // target or zero) or raises the alarm: a few passes end any step.
    for (int pass = 0; left > 0 && pass < 16; ++pass) {
        const double target = c.servoOn && !s.alarm ? c.speedCommand : 0;
        if (s.speed == target) {
            s.torque = torqueAt(s.speed, signOf(s.speed), 0);
            integrate(s, s.speed, s.speed, left);
            break;
        }
        // Away from zero the acceleration ramp; toward zero, or through it,
        // the deceleration ramp as far as zero.
        const bool crossing = s.speed * target < 0;
        const bool away = !crossing && std::fabs(target) > std::fabs(s.speed);
        const double end = crossing ? 0 : target;
        const double rate = rampRate(away ? c.accelMs : c.decelMs);
        if (std::isinf(rate)) {
            s.speed = end; // a ramp time of 0: the motor follows at once
            continue;
        }
        const double direction = signOf(end - s.speed);
        const double motionSign = signOf(s.speed + end);
        const double peak = std::max(std::fabs(torqueAt(s.speed, motionSign, direction * rate)),
            std::fabs(torqueAt(end, motionSign, direction * rate)));
        if (!s.alarm && peak > overloadPercent) {
            s.alarm = OverloadAlarm;
            continue;
        }
        const double rampLeft = std::fabs(end - s.speed) / rate;
        const double seconds = std::min(left, rampLeft);
        const double to = seconds >= rampLeft ? end : s.speed + direction * rate * seconds;
        integrate(s, s.speed, to, seconds);
        s.speed = to;
        s.torque = torqueAt(to, motionSign, direction * rate);
        left -= seconds;
    }
    s.servoOn = c.servoOn && !s.alarm;
    return s;
}

MotionReadings motionReadings(const MotionState &s)
{
    MotionReadings r;
    r.speed = int16_t(std::lround(std::min(std::max(s.speed, -32768.0), 32767.0)));
    r.position = s.position;
    const double torque = s.servoOn ? std::fabs(s.torque) : 0;
    r.current = clampedWord(ratedCurrent * torque / 100);
    r.load = clampedWord(torque);
    r.alarm = uint16_t(s.alarm);
    return r;
}

const char *motionAlarmText(int alarm)
{
    switch (alarm) {
    case NoAlarm:
        return "cleared";
    case OverSpeedAlarm:
        return "over-speed";
    case OverloadAlarm:
        return "overload";
    default:
        return "?";
    }
}

const char *motionQuantityName(MotionQuantity quantity)
{
    const int i = int(quantity);
    return i >= 0 && i < motionQuantityCount ? quantityNames[i] : "?";
}

bool motionQuantityFromName(const std::string &name, MotionQuantity &quantity)
{
    for (int i = 0; i < motionQuantityCount; ++i)
        if (name == quantityNames[i]) {
            quantity = MotionQuantity(i);
            return true;
        }
    return false;
}

std::string motionQuantityNames()
{
    std::string out;
    for (int i = 0; i < motionQuantityCount; ++i)
        out += std::string(i == 0 ? "" : i + 1 == motionQuantityCount ? " and " : ", ") + quantityNames[i];
    return out;
}
