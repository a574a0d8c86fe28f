#ifndef DRIVERTECOSERVO_H
#define DRIVERTECOSERVO_H

#include "../driverinterface.h"
#include "../qtcompat.h"

#include <QByteArray>
#include <QObject>
#include <QString>
#include <QVector>

// Modbus RTU master for TECO servo drives.
class DriverTecoServo : public QObject, public DriverInterface
{
    Q_OBJECT
    DRIVERS_PLUGIN_METADATA(DRIVER_INTERFACE_IID)
    Q_INTERFACES(DriverInterface)

public:
    DriverTecoServo();
    ~DriverTecoServo() override;

    int totalSize() override;
    bool write(
        AbstractDeviceInterface *link, const CommunicatorCommand &cmd, const QByteArray &data) override;
    QByteArray read(AbstractDeviceInterface *link, const CommunicatorCommand &cmd) override;
    bool initialize(AbstractDeviceInterface *link) override;
    bool validation(const QString &text) override;
    QString name() override;
    QString vender() override;
    QString getVersionNumber() override;
    int supportedCommunicationFlags() override;
    DeviceSetting *getDefaultSerialDeviceSetting() override;
    DriverSetting *getDefaultDriverSetting() override;
    QString getStringBasedDefaultDriverSetting() override;
    void setDebugMode(bool on) override;
    int getBlockAccessSize() override;
    int getBitBlockAccessSize() override;
    QString getLastError() override;
    bool hasError() override;
    QObject *getThisObject() override;

    // Error state: setCommError sets the flag and replaces the text;
    // clearError resets the flag and keeps the text.
    void setCommError(const QString &text);
    void clearError();

    // Reply checks of the request exchange.
    bool checkMinADU(unsigned char station, const char *reply, int received);
    bool checkException(const char *reply, unsigned char functionCode);
    // Append the description of a failed command to the error text.
    void appendCmdToReadCommError(unsigned char station, const CommunicatorCommand &cmd);
    void appendCmdToWriteCommError(unsigned char station, const CommunicatorCommand &cmd);

    // Register and bit reads.
    QByteArray readWords(
        AbstractDeviceInterface *link, const QByteArray &prefix, unsigned short start, int count);
    QByteArray readWords(AbstractDeviceInterface *link, const QByteArray &prefix, unsigned short start,
        int count, unsigned char station);
    QByteArray readDWords(
        AbstractDeviceInterface *link, const QByteArray &prefix, unsigned short start, int count, bool swap);
    QByteArray readBytes(
        AbstractDeviceInterface *link, const QByteArray &prefix, unsigned short start, int count);
    QByteArray readDIDOs(
        AbstractDeviceInterface *link, const QByteArray &prefix, unsigned short start, int count);
    QByteArray readIRHRbits(AbstractDeviceInterface *link, const QByteArray &prefix, unsigned short start,
        unsigned char bitIndex, int count);

    // Register writes, function 16 and function 6.
    bool writeWords(AbstractDeviceInterface *link, unsigned short start, const QByteArray &data);
    bool writeWords(
        AbstractDeviceInterface *link, unsigned short start, const QByteArray &data, unsigned char station);
    bool writeBytes(AbstractDeviceInterface *link, unsigned short start, const QByteArray &data);
    bool writeDWords(AbstractDeviceInterface *link, unsigned short start, const QByteArray &data, bool swap);
    bool writeWordWithFN6(AbstractDeviceInterface *link, unsigned short start, const QByteArray &data);
    bool writeWordWithFN6(
        AbstractDeviceInterface *link, unsigned short start, const QByteArray &data, unsigned char station);
    bool writeWordsWithFN6(AbstractDeviceInterface *link, unsigned short start, const QByteArray &data);
    bool writeWordsWithFN6(
        AbstractDeviceInterface *link, unsigned short start, const QByteArray &data, unsigned char station);
    bool writeBytesWithFN6(AbstractDeviceInterface *link, unsigned short start, const QByteArray &data);
    bool writeDWordsWithFN6(
        AbstractDeviceInterface *link, unsigned short start, const QByteArray &data, bool swap);

    // Coil writes, function 15 and function 5.
    bool writeCoils(AbstractDeviceInterface *link, unsigned short start, const QByteArray &data);
    bool writeCoilsWithFN5(AbstractDeviceInterface *link, unsigned short start, const QByteArray &data);

    // Register-bit writes (read-modify-write).
    bool writeHRbit(
        AbstractDeviceInterface *link, unsigned short start, unsigned char bitIndex, const QByteArray &data);
    bool writeHRbit(AbstractDeviceInterface *link, unsigned short start, unsigned char bitIndex,
        const QByteArray &data, unsigned char station);
    bool writeHRbitWithFN6(
        AbstractDeviceInterface *link, unsigned short start, unsigned char bitIndex, const QByteArray &data);
    bool writeHRbitWithFN6(AbstractDeviceInterface *link, unsigned short start, unsigned char bitIndex,
        const QByteArray &data, unsigned char station);

    // The special register window HR60000..HR60010.
    QByteArray readSpecialHRWords(AbstractDeviceInterface *link, unsigned short start, int count);
    bool writeSpecialHRWords(
        AbstractDeviceInterface *link, unsigned short start, const QByteArray &data, int &relayPosition);
    bool writeSpecialFN6HRWords(
        AbstractDeviceInterface *link, unsigned short start, const QByteArray &data, int &relayPosition);
    bool writeSpecialHRbit(AbstractDeviceInterface *link, unsigned short start, unsigned char bitIndex,
        const QByteArray &data, int &relayPosition);
    bool writeSpecialFN6HRbit(AbstractDeviceInterface *link, unsigned short start, unsigned char bitIndex,
        const QByteArray &data, int &relayPosition);

    // The driver's own table behind the special window (read-only view).
    const QVector<quint16> &specialRegisterTable() const { return specialRegisters; }

private:
    // The one request exchange of every operation: send the frame, receive
    // the reply in two pieces (5 bytes, then replyLength - 5) into reply,
    // check it. replyLength is 5..256; reply must hold ReplyBufferSize bytes.
    enum { ReplyBufferSize = 257 };
    bool exchange(AbstractDeviceInterface *link, unsigned char station, const QByteArray &request,
        int replyLength, char *reply);
    // Station check: the link's station if it is at most 255.
    bool stationFromLink(AbstractDeviceInterface *link, unsigned char &station);

    bool readRegisters(AbstractDeviceInterface *link, unsigned char functionCode, unsigned char station,
        unsigned short start, int registers, char *reply);
    bool writeRegistersFn16(AbstractDeviceInterface *link, unsigned char station, unsigned short start,
        unsigned short quantity, const QByteArray &wireData);
    bool writeRegistersFn6(AbstractDeviceInterface *link, unsigned short start, const QByteArray &wireData,
        bool explicitStation, unsigned char station, bool pauseBetween);
    bool writeDataAcceptable(
        unsigned short start, const QByteArray &data, int elementSize, const char *rangeText);
    bool writeHRbitCommon(AbstractDeviceInterface *link, unsigned short start, unsigned char bitIndex,
        const QByteArray &data, bool fn6, bool explicitStation, unsigned char station);
    enum RelayMethod { RelayWordsFn16, RelayWordsFn6, RelayBitFn16, RelayBitFn6 };
    bool relay(AbstractDeviceInterface *link, RelayMethod method, unsigned char bitIndex,
        const QByteArray &data, int &relayPosition);
    bool writeSpecialWords(AbstractDeviceInterface *link, unsigned short start, const QByteArray &data,
        int &relayPosition, RelayMethod method);
    bool writeSpecialBit(AbstractDeviceInterface *link, unsigned short start, unsigned char bitIndex,
        const QByteArray &data, int &relayPosition, RelayMethod method);

    bool commErrorFlag;
    bool debugMode;
    QString commErrorText;
    QVector<quint16> specialRegisters;
};

#endif // DRIVERTECOSERVO_H
