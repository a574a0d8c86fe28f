#ifndef DRIVERINTERFACE_H
#define DRIVERINTERFACE_H

// The runtime's side of the driver contract, as a driver sees it: the link it
// hands over, the command record, and the abstract driver class that every
// driver plug-in implements.

#include "settings.h"

#include <QByteArray>
#include <QList>
#include <QObject>
#include <QString>
#include <QVariant>
#include <QtPlugin>

#define DRIVER_INTERFACE_IID "com.quillmar.drivers.DriverInterface/1.1"

// Element type of a command.
enum CommandDataType {
    Bit = 0,
    Byte = 1,
    Word = 2,
    DoubleWord = 3,
    QuadWord = 4,
    Block = 5, // handled as Byte
    BitBlock = 6 // handled as Bit
};

// The runtime's command record. Drivers only read it.
struct CommunicatorCommand
{
    CommunicatorCommand()
        : dataType(Word)
        , count(0)
    {
        runtimeWords[0] = runtimeWords[1] = 0;
    }
    CommunicatorCommand(int dataType, int count, const QString &address)
        : dataType(dataType)
        , count(count)
        , address(address)
    {
        runtimeWords[0] = runtimeWords[1] = 0;
    }

    quint32 runtimeWords[2]; // the runtime's own; no driver reads or writes it
    qint32 dataType; // a CommandDataType code
    qint32 count; // elements to read; for writes only used in error texts
    QString address; // device address text such as HR100, DO3, FN6HR1200, HR100.3
};

// The runtime's link: an open line together with the per-link protocol
// settings. Drivers use these six operations; the runtime's full class has
// further ones that no driver calls.
class AbstractDeviceInterface
{
public:
    virtual ~AbstractDeviceInterface() { }

    // Stores at most length received bytes and returns their number; waits
    // until length bytes have arrived or the link's reply time-out has passed.
    // 0 or less means that nothing came.
    virtual int receive(char *buffer, int length) = 0;
    // Transmits one complete request frame. The result is not used.
    virtual int send(const char *frame, int length) = 0;
    // Drivers pass id 12 with the integer 0 before every request frame.
    virtual bool setParameter(int id, const QVariant &value) = 0;
    // Repeats of a failed command after its first attempt; 0 or less: none.
    virtual int retryCount() = 0;
    // Modbus station (slave) number of the device.
    virtual int stationId() = 0;
    // Milliseconds to wait before every attempt of a command.
    virtual unsigned long delayMs() = 0;
};

class DriverInterface
{
public:
    virtual ~DriverInterface() { }

    virtual int totalSize() = 0;
    virtual bool write(AbstractDeviceInterface *link, const CommunicatorCommand &cmd, const QByteArray &data)
        = 0;
    virtual QByteArray read(AbstractDeviceInterface *link, const CommunicatorCommand &cmd) = 0;
    virtual bool initialize(AbstractDeviceInterface *link) = 0;
    virtual bool validation(const QString &text) = 0;
    virtual QString name() { return QString("Not Assigned"); }
    virtual QString vender() { return QString("Not Assigned"); }
    virtual QString getVersionNumber() { return QString("Not Assigned"); }
    virtual DeviceSetting *getDefaultSerialDeviceSetting() = 0;
    virtual DriverSetting *getDefaultDriverSetting() = 0;
    virtual QString getStringBasedDefaultDriverSetting() { return QString("RS232,9600,EVEN,7,1"); }
    virtual int supportedCommunicationFlags() = 0;
    virtual void setDebugMode(bool on) = 0;
    virtual int getBlockAccessSize() = 0;
    virtual int getBitBlockAccessSize() = 0;
    virtual bool hasError() = 0;
    virtual QString getLastError() = 0;
    virtual QObject *getThisObject() = 0;
    virtual bool isSupportSessionCommand() { return false; }
    virtual void setSessionCommand(QList<CommunicatorCommand> commands) { Q_UNUSED(commands); }
    virtual void clearSessionCommand() { }
    virtual bool deviceSettingChanged(const DeviceSetting *setting)
    {
        Q_UNUSED(setting);
        return true;
    }
    virtual bool isConnected(AbstractDeviceInterface *link)
    {
        Q_UNUSED(link);
        return true;
    }
};

Q_DECLARE_INTERFACE(DriverInterface, DRIVER_INTERFACE_IID)

#endif // DRIVERINTERFACE_H
