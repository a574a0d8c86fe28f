#ifndef TESTS_DRIVERRIG_H
#define TESTS_DRIVERRIG_H

#include "drivertecoservo.h"
#include "hex.h"
#include "linkdouble.h"

#include <string>

// A driver and the link double it talks to, with the runtime's two entries.
struct DriverRig
{
    DriverTecoServo driver;
    LinkDouble link;

    QByteArray read(int type, int count, const char *address)
    {
        return driver.read(&link, CommunicatorCommand(type, count, address));
    }
    bool write(int type, const char *address, const QByteArray &data, int count = 1)
    {
        return driver.write(&link, CommunicatorCommand(type, count, address), data);
    }
    std::string error() { return driver.getLastError().toStdString(); }
    bool failed() { return driver.hasError(); }
    bool sentNothing() const { return link.sent().empty(); }
};

#endif
