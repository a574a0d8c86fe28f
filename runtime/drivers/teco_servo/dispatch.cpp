// read and write: the runtime's entries for every command. The address is
// parsed once; each attempt waits the link's delay, clears the error state
// and runs the operation that data type, prefix and register select; failed
// attempts are repeated up to the link's retry count.

#include "../tools.h"
#include "drivertecoservo.h"
#include "drivertexts.h"
#include "modbuscodes.h"
#include "modbusrtu.h"

using namespace DriverTexts;

namespace {

struct ParsedAddress
{
    QByteArray prefix;
    unsigned short registerNumber;
    unsigned char bitIndex;
    bool swap; // "SW" anywhere in the text: the high word of a double word first
};

ParsedAddress parse(const QString &address)
{
    ParsedAddress parsed;
    parsed.registerNumber = 0;
    // An address without a bit part names bit 0 of its register.
    parsed.bitIndex = 0;
    ModbusRTUSlaveParseAddress(address, parsed.prefix, parsed.registerNumber, parsed.bitIndex);
    parsed.swap = address.contains(QLatin1String("SW"), Qt::CaseInsensitive);
    return parsed;
}

inline bool inSpecialWindow(unsigned short registerNumber)
{
    return specialRegisterIndex(registerNumber) < SpecialRegisterCount;
}

} // namespace

QByteArray DriverTecoServo::read(AbstractDeviceInterface *link, const CommunicatorCommand &cmd)
{
    const ParsedAddress a = parse(cmd.address);
    const bool holding
        = prefixMatches(a.prefix, HoldingRegisterPrefix) || prefixMatches(a.prefix, HoldingRegisterFn6Prefix);
    QByteArray result;
    for (int attempt = 0;; ++attempt) {
        HRSleep(link->delayMs());
        clearError();
        switch (cmd.dataType) {
        case Bit:
        case BitBlock:
            if (prefixMatches(a.prefix, CoilPrefix) || prefixMatches(a.prefix, CoilFn5Prefix)
                || prefixMatches(a.prefix, DiscreteInputPrefix))
                result = readDIDOs(link, a.prefix, a.registerNumber, cmd.count);
            else
                result = readIRHRbits(link, a.prefix, a.registerNumber, a.bitIndex, cmd.count);
            break;
        case Byte:
        case Block:
            result = readBytes(link, a.prefix, a.registerNumber, cmd.count);
            break;
        case Word:
            if (holding && inSpecialWindow(a.registerNumber))
                result = readSpecialHRWords(link, a.registerNumber, cmd.count);
            else
                result = readWords(link, a.prefix, a.registerNumber, cmd.count);
            break;
        case DoubleWord:
            result = readDWords(link, a.prefix, a.registerNumber, cmd.count, a.swap);
            break;
        default:
            setCommError(QString(UnsupportedDataType) + cmd.address);
            return QByteArray();
        }
        if (!hasError() || attempt >= link->retryCount())
            break;
    }
    if (hasError())
        appendCmdToReadCommError(static_cast<unsigned char>(link->stationId() & 0xFF), cmd);
    return result;
}

bool DriverTecoServo::write(
    AbstractDeviceInterface *link, const CommunicatorCommand &cmd, const QByteArray &data)
{
    const ParsedAddress a = parse(cmd.address);
    const bool coils = prefixMatches(a.prefix, CoilPrefix);
    const bool coilsFn5 = prefixMatches(a.prefix, CoilFn5Prefix);
    const bool holding = prefixMatches(a.prefix, HoldingRegisterPrefix);
    const bool holdingFn6 = prefixMatches(a.prefix, HoldingRegisterFn6Prefix);
    const bool window = inSpecialWindow(a.registerNumber);
    // Shared by every attempt, so that a repeated relay resumes with the
    // station that failed.
    int relayPosition = 0;
    bool result = false;
    for (int attempt = 0;; ++attempt) {
        HRSleep(link->delayMs());
        clearError();
        const char *refusal = nullptr;
        switch (cmd.dataType) {
        case Bit:
        case BitBlock:
            if (coils)
                result = writeCoils(link, a.registerNumber, data);
            else if (coilsFn5)
                result = writeCoilsWithFN5(link, a.registerNumber, data);
            else if (holding)
                result = window ? writeSpecialHRbit(link, a.registerNumber, a.bitIndex, data, relayPosition)
                                : writeHRbit(link, a.registerNumber, a.bitIndex, data);
            else if (holdingFn6)
                result = window
                    ? writeSpecialFN6HRbit(link, a.registerNumber, a.bitIndex, data, relayPosition)
                    : writeHRbitWithFN6(link, a.registerNumber, a.bitIndex, data);
            else
                refusal = CantWriteAnyBitTo;
            break;
        case Byte:
        case Block:
            if (holding)
                result = writeBytes(link, a.registerNumber, data);
            else if (holdingFn6)
                result = writeBytesWithFN6(link, a.registerNumber, data);
            else
                refusal = CantWriteAnyByteTo;
            break;
        case Word:
            if (holding)
                result = window ? writeSpecialHRWords(link, a.registerNumber, data, relayPosition)
                                : writeWords(link, a.registerNumber, data);
            else if (holdingFn6)
                result = window ? writeSpecialFN6HRWords(link, a.registerNumber, data, relayPosition)
                                : writeWordsWithFN6(link, a.registerNumber, data);
            else
                refusal = CantWriteAnyWordTo;
            break;
        case DoubleWord:
            if (holding)
                result = writeDWords(link, a.registerNumber, data, a.swap);
            else if (holdingFn6)
                result = writeDWordsWithFN6(link, a.registerNumber, data, a.swap);
            else
                refusal = CantWriteAnyDoubleWordTo;
            break;
        default:
            setCommError(QString(UnsupportedDataType) + cmd.address);
            return false;
        }
        if (refusal) {
            setCommError(QString(refusal).arg(cmd.address));
            result = false;
        }
        if (!hasError() || attempt >= link->retryCount())
            break;
    }
    if (hasError())
        appendCmdToWriteCommError(static_cast<unsigned char>(link->stationId() & 0xFF), cmd);
    return result;
}
