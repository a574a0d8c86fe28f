#include "drivertecoservo.h"
#include "modbuscodes.h"

namespace {

const QString VERSION_STRING("1.0.0");

} // namespace

DriverTecoServo::DriverTecoServo()
    : QObject(nullptr)
    , commErrorFlag(false)
    , debugMode(false)
    , specialRegisters(SpecialRegisterCount, 0)
{
}

DriverTecoServo::~DriverTecoServo() { }

int DriverTecoServo::totalSize() { return 0x44000; }

bool DriverTecoServo::initialize(AbstractDeviceInterface *link)
{
    if (link)
        link->setParameter(LinkParameterBeforeRequest, QVariant(0));
    return true;
}

bool DriverTecoServo::validation(const QString &) { return false; }

QString DriverTecoServo::name() { return QString("Teco Servo"); }

QString DriverTecoServo::vender() { return QString("Modbus"); }

QString DriverTecoServo::getVersionNumber() { return VERSION_STRING; }

int DriverTecoServo::supportedCommunicationFlags() { return 0x70; }

DeviceSetting *DriverTecoServo::getDefaultSerialDeviceSetting()
{
    // The runtime's codes: stop bits 0 and parity 2 stand for the text form
    // "RS485,9600,NONE,8,2".
    return new DeviceSetting(SerialDeviceType, QString("COM2"), 9600, 8, 0, 2);
}

DriverSetting *DriverTecoServo::getDefaultDriverSetting() { return new DriverSetting(500, 3, 1, 0); }

QString DriverTecoServo::getStringBasedDefaultDriverSetting() { return QString("RS485,9600,NONE,8,2"); }

void DriverTecoServo::setDebugMode(bool on) { debugMode = on; }

int DriverTecoServo::getBlockAccessSize() { return int(Modbus::MaxReadRegisters); }

int DriverTecoServo::getBitBlockAccessSize() { return int(Modbus::MaxReadBits); }

QString DriverTecoServo::getLastError() { return commErrorText; }

bool DriverTecoServo::hasError() { return commErrorFlag; }

QObject *DriverTecoServo::getThisObject() { return this; }

void DriverTecoServo::setCommError(const QString &text)
{
    commErrorFlag = true;
    commErrorText = text;
}

void DriverTecoServo::clearError() { commErrorFlag = false; }

// Plug-in entry points. qt_plugin_instance (one shared instance in a guarded
// pointer) comes from Qt's plug-in export; CreateDriver hands out a new,
// independent object on every call, owned by the caller.
DRIVERS_EXPORT_PLUGIN(teco_servo, DriverTecoServo)

extern "C" Q_DECL_EXPORT DriverInterface *CreateDriver() { return new DriverTecoServo; }
