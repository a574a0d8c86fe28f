#include "drivertecoservo.h"

QByteArray DriverTecoServo::read(AbstractDeviceInterface *, const CommunicatorCommand &)
{
    return QByteArray();
}

bool DriverTecoServo::write(AbstractDeviceInterface *, const CommunicatorCommand &, const QByteArray &)
{
    return false;
}
