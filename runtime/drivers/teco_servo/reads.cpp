// Register reads (function 3 or 4) and bit reads (function 1 or 2, or bits
// cut out of registers).

#include "../tools.h"
#include "drivertecoservo.h"
#include "drivertexts.h"
#include "modbuscodes.h"
#include "modbusrtu.h"

using namespace DriverTexts;

namespace {

Modbus::FunctionCode registerFunctionCode(const QByteArray &prefix)
{
    return prefixMatches(prefix, HoldingRegisterPrefix) || prefixMatches(prefix, HoldingRegisterFn6Prefix)
        ? Modbus::ReadHoldingRegisters
        : Modbus::ReadInputRegisters;
}

Modbus::FunctionCode bitFunctionCode(const QByteArray &prefix)
{
    return prefixMatches(prefix, CoilPrefix) || prefixMatches(prefix, CoilFn5Prefix)
        ? Modbus::ReadCoils
        : Modbus::ReadDiscreteInputs;
}

// Counts are compared as unsigned and in 64 bits, so that a negative or huge
// count is refused instead of wrapping into range.
inline quint64 asUnsigned(int count) { return static_cast<quint32>(count); }

bool registersInRange(unsigned short start, quint64 registers)
{
    return registers <= Modbus::MaxReadRegisters && start + registers <= Modbus::AddressSpace;
}

inline const unsigned char *replyData(const char *reply)
{
    return reinterpret_cast<const unsigned char *>(reply) + Modbus::ReadReplyDataOffset;
}

} // namespace

bool DriverTecoServo::readRegisters(AbstractDeviceInterface *link, unsigned char functionCode,
    unsigned char station, unsigned short start, int registers, char *reply)
{
    const QByteArray request = ModbusRTUSlaveBuildReadDevicesRequest(station, functionCode, start, registers);
    return exchange(link, station, request, ModbusRTUSlaveReplyLength(request), reply);
}

QByteArray DriverTecoServo::readWords(
    AbstractDeviceInterface *link, const QByteArray &prefix, unsigned short start, int count)
{
    if (!registersInRange(start, asUnsigned(count))) {
        setCommError(formatText(CantReadWord, prefix.constData(), start + 1));
        return QByteArray();
    }
    unsigned char station;
    if (!stationFromLink(link, station))
        return QByteArray();
    return readWords(link, prefix, start, count, station);
}

QByteArray DriverTecoServo::readWords(AbstractDeviceInterface *link, const QByteArray &prefix,
    unsigned short start, int count, unsigned char station)
{
    if (!registersInRange(start, asUnsigned(count))) {
        setCommError(formatText(CantReadWord, prefix.constData(), start + 1));
        return QByteArray();
    }
    char reply[ReplyBufferSize];
    if (!readRegisters(link, registerFunctionCode(prefix), station, start, count, reply))
        return QByteArray();
    return fromBigEndianUShortArray(replyData(reply), count);
}

QByteArray DriverTecoServo::readDWords(
    AbstractDeviceInterface *link, const QByteArray &prefix, unsigned short start, int count, bool swap)
{
    const quint64 registers = 2 * asUnsigned(count);
    if (!registersInRange(start, registers)) {
        setCommError(formatText(CantReadDoubleWord, prefix.constData(), start + 1));
        return QByteArray();
    }
    unsigned char station;
    if (!stationFromLink(link, station))
        return QByteArray();
    char reply[ReplyBufferSize];
    if (!readRegisters(link, registerFunctionCode(prefix), station, start, int(registers), reply))
        return QByteArray();
    // swap: the first register of each pair is the high half.
    return swap ? fromBigEndianULongArray(replyData(reply), count)
                : fromBigEndianUShortArray(replyData(reply), int(registers));
}

QByteArray DriverTecoServo::readBytes(
    AbstractDeviceInterface *link, const QByteArray &prefix, unsigned short start, int count)
{
    const quint64 registers = (asUnsigned(count) + 1) / 2;
    if (!registersInRange(start, registers)) {
        setCommError(formatText(CantReadByte, prefix.constData(), start + 1));
        return QByteArray();
    }
    unsigned char station;
    if (!stationFromLink(link, station))
        return QByteArray();
    char reply[ReplyBufferSize];
    if (!readRegisters(link, registerFunctionCode(prefix), station, start, int(registers), reply))
        return QByteArray();
    QByteArray bytes = fromBigEndianUShortArray(replyData(reply), int(registers));
    bytes.resize(count); // an odd count drops the high byte of the last register
    return bytes;
}

QByteArray DriverTecoServo::readDIDOs(
    AbstractDeviceInterface *link, const QByteArray &prefix, unsigned short start, int count)
{
    const quint64 bits = asUnsigned(count);
    if (bits > Modbus::MaxReadBits || start + bits > Modbus::AddressSpace) {
        setCommError(formatText(CantReadBits, count, prefix.constData(), unsigned(start) + 1));
        return QByteArray();
    }
    unsigned char station;
    if (!stationFromLink(link, station))
        return QByteArray();
    char reply[ReplyBufferSize];
    const QByteArray request = ModbusRTUSlaveBuildReadDevicesRequest(
        station, bitFunctionCode(prefix), start, static_cast<unsigned short>(bits));
    if (!exchange(link, station, request, ModbusRTUSlaveReplyLength(request), reply))
        return QByteArray();
    // Modbus packs the first coil into bit 0 of the first byte, as the panel does.
    QByteArray result(reinterpret_cast<const char *>(replyData(reply)), int((bits + 7) / 8));
    clearUnnecessaryBits(result, count);
    return result;
}

QByteArray DriverTecoServo::readIRHRbits(AbstractDeviceInterface *link, const QByteArray &prefix,
    unsigned short start, unsigned char bitIndex, int count)
{
    // The registers that hold the run, counted in unsigned 32 bits: a
    // negative count wraps (HR100.1 with -1 asks for none). The word read
    // makes every check and records every text.
    const unsigned int words = NumOfBitsToNumOfWords(bitIndex, static_cast<unsigned int>(count));
    QByteArray bits = readWords(link, prefix, start, static_cast<int>(words));
    if (bits.isEmpty())
        return bits;
    RightShiftNBits(bits, bitIndex);
    FitBitArray(bits, count);
    clearUnnecessaryBits(bits, count);
    return bits;
}
