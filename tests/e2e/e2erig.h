#ifndef TESTS_E2E_E2ERIG_H
#define TESTS_E2E_E2ERIG_H

// The whole chain as the panel runs it: the driver plug-in loaded with
// QPluginLoader, our serial link, a pseudo-terminal, and the simulated drive
// (a libmodbus slave) at the other end.

#include "driversession.h"
#include "hex.h"

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <string>
#include <thread>

// Time-outs: generous where an answer is expected, so that slow emulation
// and sanitizers never turn a good exchange into a failure; short where the
// time-out itself is the point.
const int AnswerTimeoutMs = 2000;
const int FailureTimeoutMs = 250;

class E2eRig
{
public:
    // map: the simulated drive's (registermap.h); by default every register
    // starts at 0 and nothing moves.
    explicit E2eRig(int timeoutMs = AnswerTimeoutMs, int retry = 0, std::vector<FaultRule> faults = {},
        const std::string &map = std::string(), const LinkSettings &line = LinkSettings())
    {
        SimDrive::Options so;
        so.link = line;
        so.stations = { 1, 2, 3, 7 };
        so.map = map;
        so.faults = faults;
        LinkOptions lo;
        lo.timeoutMs = timeoutMs;
        lo.retry = retry;
        lo.station = 1;
        std::string error;
        if (!session.load(TECO_SERVO_PLUGIN_PATH, error))
            ADD_FAILURE() << "plug-in: " << error;
        driver = session.driver();
        if (!session.startSim(so, error))
            ADD_FAILURE() << "simulated drive: " << error;
        else if (!session.open(std::string(), line, lo, error))
            ADD_FAILURE() << "link: " << error;
    }
    ~E2eRig()
    {
        // The plug-in's shared instance carries the relay window's table:
        // every test starts with a new one.
        session.unload();
        session.close();
    }

    QByteArray read(int type, int count, const char *address)
    {
        return driver ? driver->read(&link, CommunicatorCommand(type, count, address)) : QByteArray();
    }
    bool write(int type, const char *address, const QByteArray &data, int count = 1)
    {
        return driver && driver->write(&link, CommunicatorCommand(type, count, address), data);
    }
    bool failed() { return !driver || driver->hasError(); }
    std::string error() { return driver ? driver->getLastError().toStdString() : "no driver"; }

    void setRegister(int station, int address, uint16_t value)
    {
        sim.setValue(station, Area::HoldingRegisters, address, value);
    }
    uint16_t registerAt(int station, int address)
    {
        uint16_t v = 0;
        sim.value(station, Area::HoldingRegisters, address, v);
        return v;
    }
    // Waits (up to a generous limit) until the simulated drive reports what
    // the test needs; never a timing assertion.
    bool waitFor(const std::function<bool(const SimDrive::Stats &)> &ready)
    {
        for (int i = 0; i < 2000; ++i) {
            if (ready(sim.stats())) {
                // The drive counts a reply once it has written it; the kernel
                // hands pseudo-terminal output to the other side a moment
                // later. Give it that moment, so that the bytes are on the line
                // when the test goes on.
                std::this_thread::sleep_for(std::chrono::milliseconds(20));
                return true;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
        return false;
    }

    DriverSession session;
    SimDrive &sim = session.sim();
    SerialLink &link = session.link();
    const DriverHost &host = session.host();
    DriverInterface *driver = nullptr;
};

inline FaultRule fault(const char *text)
{
    FaultRule rule;
    std::string error;
    EXPECT_TRUE(FaultRule::parse(text, rule, error)) << error;
    return rule;
}

#endif // TESTS_E2E_E2ERIG_H
