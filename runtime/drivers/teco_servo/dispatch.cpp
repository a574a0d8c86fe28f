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

// Where a write goes: the address, the area its prefix names and whether
// its register lies in the special window.
struct WriteTarget
{
    ParsedAddress a;
    bool coils;
    bool coilsFn5;
    bool holding;
    bool holdingFn6;
    bool window;
};

WriteTarget writeTarget(const QString &address)
{
    WriteTarget t;
    t.a = parse(address);
    t.coils = prefixMatches(t.a.prefix, CoilPrefix);
    t.coilsFn5 = prefixMatches(t.a.prefix, CoilFn5Prefix);
    t.holding = prefixMatches(t.a.prefix, HoldingRegisterPrefix);
    t.holdingFn6 = prefixMatches(t.a.prefix, HoldingRegisterFn6Prefix);
    t.window = inSpecialWindow(t.a.registerNumber);
    return t;
}

// One attempt of a write of each data type: the operation that the prefix
// and the register select, or refusal set where the prefix takes no such
// write. relayPosition is kept across attempts.
bool writeBitsOnce(DriverTecoServo &d, AbstractDeviceInterface *link, const WriteTarget &t,
    const QByteArray &data, int &relayPosition, const char *&refusal)
{
    const ParsedAddress &a = t.a;
    if (t.coils)
        return d.writeCoils(link, a.registerNumber, data);
    if (t.coilsFn5)
        return d.writeCoilsWithFN5(link, a.registerNumber, data);
    if (t.holding)
        return t.window ? d.writeSpecialHRbit(link, a.registerNumber, a.bitIndex, data, relayPosition)
                        : d.writeHRbit(link, a.registerNumber, a.bitIndex, data);
    if (t.holdingFn6)
        return t.window ? d.writeSpecialFN6HRbit(link, a.registerNumber, a.bitIndex, data, relayPosition)
                        : d.writeHRbitWithFN6(link, a.registerNumber, a.bitIndex, data);
    refusal = CantWriteAnyBitTo;
    return false;
}

bool writeBytesOnce(DriverTecoServo &d, AbstractDeviceInterface *link, const WriteTarget &t,
    const QByteArray &data, const char *&refusal)
{
    if (t.holding)
        return d.writeBytes(link, t.a.registerNumber, data);
    if (t.holdingFn6)
        return d.writeBytesWithFN6(link, t.a.registerNumber, data);
    refusal = CantWriteAnyByteTo;
    return false;
}

bool writeWordsOnce(DriverTecoServo &d, AbstractDeviceInterface *link, const WriteTarget &t,
    const QByteArray &data, int &relayPosition, const char *&refusal)
{
    if (t.holding)
        return t.window ? d.writeSpecialHRWords(link, t.a.registerNumber, data, relayPosition)
                        : d.writeWords(link, t.a.registerNumber, data);
    if (t.holdingFn6)
        return t.window ? d.writeSpecialFN6HRWords(link, t.a.registerNumber, data, relayPosition)
                        : d.writeWordsWithFN6(link, t.a.registerNumber, data);
    refusal = CantWriteAnyWordTo;
    return false;
}

bool writeDWordsOnce(DriverTecoServo &d, AbstractDeviceInterface *link, const WriteTarget &t,
    const QByteArray &data, const char *&refusal)
{
    if (t.holding)
        return d.writeDWords(link, t.a.registerNumber, data, t.a.swap);
    if (t.holdingFn6)
        return d.writeDWordsWithFN6(link, t.a.registerNumber, data, t.a.swap);
    refusal = CantWriteAnyDoubleWordTo;
    return false;
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
    const WriteTarget t = writeTarget(cmd.address);
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
            result = writeBitsOnce(*this, link, t, data, relayPosition, refusal);
            break;
        case Byte:
        case Block:
            result = writeBytesOnce(*this, link, t, data, refusal);
            break;
        case Word:
            result = writeWordsOnce(*this, link, t, data, relayPosition, refusal);
            break;
        case DoubleWord:
            result = writeDWordsOnce(*this, link, t, data, refusal);
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
