// HR60000..HR60010: eleven registers the driver serves itself. Index 0 is the
// station count, 1..8 the station list, 9 the read-back station, 10 the relay
// register, whose value is relayed to HR1300 of every listed station.

#include "../tools.h"
#include "drivertecoservo.h"
#include "drivertexts.h"
#include "modbuscodes.h"

using namespace DriverTexts;

namespace {

const int StationCountIndex = 0;
const int ReadBackStationIndex = 9;
const int RelayIndex = SpecialRegisterCount - 1;
const int ListEntries = 8;
const unsigned short RelayTarget = 0x513; // HR1300 of each station

} // namespace

bool DriverTecoServo::relay(AbstractDeviceInterface *link, RelayMethod method, unsigned char bitIndex,
    const QByteArray &data, int &relayPosition)
{
    // The list has eight entries: a larger count visits those eight and never
    // takes station numbers from the registers behind the list.
    const int stations = qMin<int>(specialRegisters[StationCountIndex], ListEntries);
    if (relayPosition < 0)
        relayPosition = 0;
    while (relayPosition < stations) {
        const unsigned char station = static_cast<unsigned char>(specialRegisters[relayPosition + 1] & 0xFF);
        bool written = false;
        switch (method) {
        case RelayWordsFn16:
            written = writeWords(link, RelayTarget, data, station);
            break;
        case RelayWordsFn6:
            written = writeWordsWithFN6(link, RelayTarget, data, station);
            break;
        case RelayBitFn16:
            written = writeHRbit(link, RelayTarget, bitIndex, data, station);
            break;
        case RelayBitFn6:
            written = writeHRbitWithFN6(link, RelayTarget, bitIndex, data, station);
            break;
        }
        if (!written)
            return false; // the position names the station that failed
        if (relayPosition + 1 < stations)
            HRSleep(link->delayMs());
        ++relayPosition;
    }
    return true;
}

QByteArray DriverTecoServo::readSpecialHRWords(AbstractDeviceInterface *link, unsigned short start, int count)
{
    const int first = specialRegisterIndex(start);
    // The whole count, as unsigned: a negative count or one of 65536 and
    // more is past the table too, not wrapped into it.
    const quint64 past = quint64(first) + static_cast<quint32>(count);
    if (past > quint64(SpecialRegisterCount)) {
        // Past the end of the table: refused rather than cut short, so that
        // the runtime never gets fewer words than it asked for.
        setCommError(formatText(SpecialReadPastEnd, count, start + 1));
        return QByteArray();
    }
    const int end = int(past);
    if (end == SpecialRegisterCount && specialRegisters[StationCountIndex] != 0) {
        const unsigned char station
            = static_cast<unsigned char>(specialRegisters[ReadBackStationIndex] & 0xFF);
        const QByteArray value = readWords(link, HoldingRegisterPrefix, RelayTarget, 1, station);
        if (!value.isEmpty())
            specialRegisters[RelayIndex] = QByteArrayToWord(value);
        // A failed read-back keeps its error; the previous value is returned.
    }
    QByteArray result;
    result.reserve(2 * (end - first));
    for (int k = first; k < end; ++k)
        result.append(wordToByteArray(specialRegisters[k]));
    return result;
}

bool DriverTecoServo::writeSpecialWords(AbstractDeviceInterface *link, unsigned short start,
    const QByteArray &data, int &relayPosition, RelayMethod method)
{
    const int first = specialRegisterIndex(start);
    if (data.size() % 2 != 0) {
        setCommError(formatText(WordDataSize, data.size(), start + 1));
        return false;
    }
    const int words = data.size() / 2;
    if (first + words <= RelayIndex) {
        for (int i = 0; i < words; ++i)
            specialRegisters[first + i] = QByteArrayToWord(data.mid(2 * i, 2));
        if (specialRegisters[ReadBackStationIndex] > ListEntries)
            specialRegisters[ReadBackStationIndex] = ListEntries;
        return true;
    }
    // The relay register takes exactly one word, written on its own: a write
    // that reaches it from below, or runs past it, is refused as a whole.
    if (first != RelayIndex || words != 1) {
        setCommError(formatText(SpecialWritePastRelay, words, start + 1));
        return false;
    }
    if (!relay(link, method, 0, data, relayPosition))
        return false;
    specialRegisters[RelayIndex] = QByteArrayToWord(data);
    return true;
}

bool DriverTecoServo::writeSpecialBit(AbstractDeviceInterface *link, unsigned short start,
    unsigned char bitIndex, const QByteArray &data, int &relayPosition, RelayMethod method)
{
    const int index = specialRegisterIndex(start);
    if (index > RelayIndex) { // not a register of the window
        setCommError(QString(CantWriteWord).arg(start + 1));
        return false;
    }
    if (index == RelayIndex && !relay(link, method, bitIndex, data, relayPosition)) {
        if (specialRegisters[StationCountIndex] > ListEntries)
            specialRegisters[StationCountIndex] = ListEntries;
        return false;
    }
    // The table takes the first data byte; without one (a relay that only
    // wrote the registers back) no bit changes.
    if (!data.isEmpty() && bitIndex < 16) {
        quint16 &value = specialRegisters[index];
        value = data.at(0) != 0 ? setBit(value, bitIndex) : clearBit(value, bitIndex);
    }
    if (index == StationCountIndex || specialRegisters[StationCountIndex] > ListEntries)
        specialRegisters[StationCountIndex] = ListEntries;
    return true;
}

bool DriverTecoServo::writeSpecialHRWords(
    AbstractDeviceInterface *link, unsigned short start, const QByteArray &data, int &relayPosition)
{
    return writeSpecialWords(link, start, data, relayPosition, RelayWordsFn16);
}

bool DriverTecoServo::writeSpecialFN6HRWords(
    AbstractDeviceInterface *link, unsigned short start, const QByteArray &data, int &relayPosition)
{
    return writeSpecialWords(link, start, data, relayPosition, RelayWordsFn6);
}

bool DriverTecoServo::writeSpecialHRbit(AbstractDeviceInterface *link, unsigned short start,
    unsigned char bitIndex, const QByteArray &data, int &relayPosition)
{
    return writeSpecialBit(link, start, bitIndex, data, relayPosition, RelayBitFn16);
}

bool DriverTecoServo::writeSpecialFN6HRbit(AbstractDeviceInterface *link, unsigned short start,
    unsigned char bitIndex, const QByteArray &data, int &relayPosition)
{
    return writeSpecialBit(link, start, bitIndex, data, relayPosition, RelayBitFn6);
}
