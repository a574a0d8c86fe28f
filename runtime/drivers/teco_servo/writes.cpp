// Register writes (function 16 in one request, function 6 one register at a
// time), coil writes (function 15, function 5) and register-bit writes
// (read-modify-write).

#include "../tools.h"
#include "drivertecoservo.h"
#include "drivertexts.h"
#include "modbuscodes.h"
#include "modbusrtu.h"

using namespace DriverTexts;

namespace {

bool registersInRange(unsigned short start, quint64 registers)
{
    return registers <= Modbus::MaxWriteRegisters && start + registers <= Modbus::AddressSpace;
}

} // namespace

bool DriverTecoServo::writeDataAcceptable(
    unsigned short start, const QByteArray &data, int elementSize, const char *rangeText)
{
    // Word and double-word data must be whole elements: padding would send a
    // register value that nobody wrote. Bytes fill the last register's low
    // byte and leave its high byte 0.
    if (elementSize > 1 && data.size() % elementSize != 0) {
        setCommError(
            formatText(elementSize == 2 ? WordDataSize : DoubleWordDataSize, data.size(), start + 1));
        return false;
    }
    const quint64 registers = elementSize == 1 ? (quint64(data.size()) + 1) / 2 : quint64(data.size()) / 2;
    if (!registersInRange(start, registers)) {
        setCommError(QString(rangeText).arg(start + 1));
        return false;
    }
    return true;
}

bool DriverTecoServo::writeRegistersFn16(AbstractDeviceInterface *link, unsigned char station,
    unsigned short start, unsigned short quantity, const QByteArray &wireData)
{
    const QByteArray request = ModbusRTUSlaveBuildFn16Request(station, start, quantity, wireData);
    char reply[ReplyBufferSize];
    return exchange(link, station, request, ModbusRTUSlaveReplyLength(request), reply);
}

bool DriverTecoServo::writeWords(AbstractDeviceInterface *link, unsigned short start, const QByteArray &data)
{
    if (!writeDataAcceptable(start, data, 2, CantWriteWord))
        return false;
    unsigned char station;
    if (!stationFromLink(link, station))
        return false;
    return writeRegistersFn16(link, station, start, data.size() / 2, toBigEndianUShortArray(data));
}

bool DriverTecoServo::writeWords(
    AbstractDeviceInterface *link, unsigned short start, const QByteArray &data, unsigned char station)
{
    if (!writeDataAcceptable(start, data, 2, CantWriteWord))
        return false;
    return writeRegistersFn16(link, station, start, data.size() / 2, toBigEndianUShortArray(data));
}

bool DriverTecoServo::writeBytes(AbstractDeviceInterface *link, unsigned short start, const QByteArray &data)
{
    // An odd number of bytes: the last register carries the last byte low
    // and 0 high.
    if (!writeDataAcceptable(start, data, 1, CantWriteByte))
        return false;
    unsigned char station;
    if (!stationFromLink(link, station))
        return false;
    const QByteArray wire = toBigEndianUShortArray(data);
    return writeRegistersFn16(link, station, start, wire.size() / 2, wire);
}

bool DriverTecoServo::writeDWords(
    AbstractDeviceInterface *link, unsigned short start, const QByteArray &data, bool swap)
{
    if (!writeDataAcceptable(start, data, 4, CantWriteDoubleWord))
        return false;
    unsigned char station;
    if (!stationFromLink(link, station))
        return false;
    // swap: the high 16 bits of each double word go first.
    const QByteArray wire = swap ? toBigEndianULongArray(data) : toBigEndianUShortArray(data);
    return writeRegistersFn16(link, station, start, wire.size() / 2, wire);
}

bool DriverTecoServo::writeWordWithFN6(
    AbstractDeviceInterface *link, unsigned short start, const QByteArray &data)
{
    unsigned char station;
    if (!registersInRange(start, quint64(data.size() / 2))) {
        setCommError(QString(CantWriteWord).arg(start + 1));
        return false;
    }
    if (!stationFromLink(link, station))
        return false;
    return writeWordWithFN6(link, start, data, station);
}

bool DriverTecoServo::writeWordWithFN6(
    AbstractDeviceInterface *link, unsigned short start, const QByteArray &data, unsigned char station)
{
    // data: the register's value in wire order, high byte first.
    if (!registersInRange(start, quint64(data.size() / 2))) {
        setCommError(QString(CantWriteWord).arg(start + 1));
        return false;
    }
    const QByteArray request = ModbusRTUSlaveBuildFn6Request(station, start, data);
    char reply[ReplyBufferSize];
    return exchange(link, station, request, ModbusRTUSlaveReplyLength(request), reply);
}

bool DriverTecoServo::writeRegistersFn6(AbstractDeviceInterface *link, unsigned short start,
    const QByteArray &wireData, bool explicitStation, unsigned char station, bool pauseBetween)
{
    // One request per register; the first failure ends the write with the
    // registers before it written. pauseBetween waits the link's delay
    // between two requests.
    for (int offset = 0; offset < wireData.size(); offset += 2) {
        if (pauseBetween && offset > 0)
            HRSleep(link->delayMs());
        const unsigned short address = static_cast<unsigned short>(start + offset / 2);
        const QByteArray value = wireData.mid(offset, 2);
        const bool written = explicitStation ? writeWordWithFN6(link, address, value, station)
                                             : writeWordWithFN6(link, address, value);
        if (!written)
            return false;
    }
    return true;
}

bool DriverTecoServo::writeWordsWithFN6(
    AbstractDeviceInterface *link, unsigned short start, const QByteArray &data)
{
    if (!writeDataAcceptable(start, data, 2, CantWriteWord))
        return false;
    unsigned char station;
    if (!stationFromLink(link, station))
        return false;
    return writeRegistersFn6(link, start, toBigEndianUShortArray(data), false, station, false);
}

bool DriverTecoServo::writeWordsWithFN6(
    AbstractDeviceInterface *link, unsigned short start, const QByteArray &data, unsigned char station)
{
    if (!writeDataAcceptable(start, data, 2, CantWriteWord))
        return false;
    return writeRegistersFn6(link, start, toBigEndianUShortArray(data), true, station, false);
}

bool DriverTecoServo::writeBytesWithFN6(
    AbstractDeviceInterface *link, unsigned short start, const QByteArray &data)
{
    if (!writeDataAcceptable(start, data, 1, CantWriteByte))
        return false;
    unsigned char station;
    if (!stationFromLink(link, station))
        return false;
    return writeRegistersFn6(link, start, toBigEndianUShortArray(data), false, station, false);
}

bool DriverTecoServo::writeDWordsWithFN6(
    AbstractDeviceInterface *link, unsigned short start, const QByteArray &data, bool swap)
{
    if (!writeDataAcceptable(start, data, 4, CantWriteDoubleWord))
        return false;
    unsigned char station;
    if (!stationFromLink(link, station))
        return false;
    const QByteArray wire = swap ? toBigEndianULongArray(data) : toBigEndianUShortArray(data);
    return writeRegistersFn6(link, start, wire, false, station, false);
}

// ------------------------------------------------------------------ coils

namespace {
bool coilsInRange(unsigned short start, int count)
{
    return quint64(count) <= Modbus::MaxWriteCoils && start + quint64(count) <= Modbus::AddressSpace;
}
} // namespace

bool DriverTecoServo::writeCoils(AbstractDeviceInterface *link, unsigned short start, const QByteArray &data)
{
    // Station first, range second.
    unsigned char station;
    if (!stationFromLink(link, station))
        return false;
    const int coils = data.size();
    if (!coilsInRange(start, coils)) {
        setCommError(formatText(CantWriteBits, coils, start + 1));
        return false;
    }
    const QByteArray request = ModbusRTUSlaveBuildFn15Request(station, start, data);
    char reply[ReplyBufferSize];
    return exchange(link, station, request, ModbusRTUSlaveReplyLength(request), reply);
}

bool DriverTecoServo::writeCoilsWithFN5(
    AbstractDeviceInterface *link, unsigned short start, const QByteArray &data)
{
    unsigned char station;
    if (!stationFromLink(link, station))
        return false;
    const int coils = data.size();
    if (!coilsInRange(start, coils)) {
        setCommError(formatText(CantWriteBits, coils, start + 1));
        return false;
    }
    char reply[ReplyBufferSize];
    for (int i = 0; i < coils; ++i) {
        const QByteArray request
            = ModbusRTUSlaveBuildFn5Request(station, static_cast<unsigned short>(start + i), data.at(i) != 0);
        if (!exchange(link, station, request, ModbusRTUSlaveReplyLength(request), reply))
            return false;
    }
    return true;
}

// ------------------------------------------------------------------ register bits

bool DriverTecoServo::writeHRbitCommon(AbstractDeviceInterface *link, unsigned short start,
    unsigned char bitIndex, const QByteArray &data, bool fn6, bool explicitStation, unsigned char station)
{
    // Every register from start up to the last addressed bit is read and
    // written back, with no exception for empty data: HR100.3 without bits
    // still reads HR100 and writes it back unchanged. When no register is
    // covered (bit 0 and no data), the read asks for none and its empty
    // result ends the write with false.
    const int words = int(NumOfBitsToNumOfWords(bitIndex, unsigned(data.size())));
    QByteArray registers = explicitStation ? readWords(link, HoldingRegisterPrefix, start, words, station)
                                           : readWords(link, HoldingRegisterPrefix, start, words);
    if (registers.isEmpty())
        return false;
    for (int i = 0; i < data.size(); ++i)
        setBit(registers, bitIndex + i, data.at(i) != 0);
    HRSleep(link->delayMs());

    if (!fn6)
        return explicitStation ? writeWords(link, start, registers, station)
                               : writeWords(link, start, registers);

    return writeRegistersFn6(link, start, toBigEndianUShortArray(registers), explicitStation, station, true);
}

bool DriverTecoServo::writeHRbit(
    AbstractDeviceInterface *link, unsigned short start, unsigned char bitIndex, const QByteArray &data)
{
    return writeHRbitCommon(link, start, bitIndex, data, false, false, 0);
}

bool DriverTecoServo::writeHRbit(AbstractDeviceInterface *link, unsigned short start, unsigned char bitIndex,
    const QByteArray &data, unsigned char station)
{
    return writeHRbitCommon(link, start, bitIndex, data, false, true, station);
}

bool DriverTecoServo::writeHRbitWithFN6(
    AbstractDeviceInterface *link, unsigned short start, unsigned char bitIndex, const QByteArray &data)
{
    return writeHRbitCommon(link, start, bitIndex, data, true, false, 0);
}

bool DriverTecoServo::writeHRbitWithFN6(AbstractDeviceInterface *link, unsigned short start,
    unsigned char bitIndex, const QByteArray &data, unsigned char station)
{
    return writeHRbitCommon(link, start, bitIndex, data, true, true, station);
}
