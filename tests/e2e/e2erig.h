#ifndef TESTS_E2E_E2ERIG_H
#define TESTS_E2E_E2ERIG_H

// The whole chain as the panel runs it: the driver plug-in loaded with
// QPluginLoader, our serial link, a pseudo-terminal, and the simulated drive
// (a libmodbus slave) at the other end.

#include "driversession.h"
#include "hex.h"

#include <gtest/gtest.h>

#include <string>

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
