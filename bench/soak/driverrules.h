#ifndef BENCH_SOAK_DRIVERRULES_H
#define BENCH_SOAK_DRIVERRULES_H

// What the driver must do with a command, written from its rules and not
// from its code, for the two oracles that check it: the soak's model
// (model.h) and the address fuzzer (fuzz/fuzz_address.cpp). Two rules live
// here:
//   - which operation a command selects from its data type, its address
//     prefix and number, and for writes the length of its data;
//   - the register window HR60000..HR60010 that the driver serves from its
//     own table (station count, station list, read-back station), and the
//     relay of HR60010 to HR1300 of the listed stations.
// The limits of each operation (counts, the address space, the station)
// stay with each oracle, which checks them in its own way.
// Header only and free of the host library, so that the fuzz build (clang,
// sanitizers, the driver's sources only) takes it as it is.

#include <algorithm>
#include <array>
#include <cstdint>
#include <string>
#include <vector>

enum class Op {
    ReadWords, // Word reads of HR, FN6HR or IR outside the register window
    ReadDWords, // DoubleWord reads, with or without SW
    ReadBytes, // Byte and Block reads
    ReadBits, // Bit and BitBlock reads of DO, FN5DO and DI
    ReadRegisterBits, // Bit and BitBlock reads inside registers (HR100.3, IR5.12)
    ReadWindow, // Word reads of HR60000..HR60010, served by the driver
    WriteWords, // Word writes: function 16 (HR) or one function 6 per register (FN6HR)
    WriteDWords, // DoubleWord writes, with or without SW
    WriteBytes, // Byte and Block writes
    WriteCoils, // function 15 (DO) or one function 5 per coil (FN5DO)
    WriteRegisterBits, // read, change the bits, write back (HR100.3, FN6HR100.3)
    WriteWindowWords, // words of the window below the relay register: the driver's table only
    WriteWindowBit, // a bit of the window below the relay register: the table only
    Relay, // a word to HR60010: relayed to HR1300 of the listed stations
    RelayBit, // a bit of HR60010: changed in HR1300 of the listed stations
    Refused, // the driver must refuse it and send nothing
};

namespace DriverRules {

// The command data types by their codes.
enum DataTypeCode {
    BitCode = 0,
    ByteCode = 1,
    WordCode = 2,
    DoubleWordCode = 3,
    BlockCode = 5,
    BitBlockCode = 6
};

// A prefix names P when it begins with P, in either case: "hr" and "HRX" name HR.
inline bool names(const std::string &prefix, const char *p)
{
    size_t i = 0;
    for (; p[i]; ++i) {
        if (i >= prefix.size())
            return false;
        const unsigned char c = static_cast<unsigned char>(prefix[i]);
        if ((c >= 'a' && c <= 'z' ? c - 32 : c) != static_cast<unsigned char>(p[i]))
            return false;
    }
    return true;
}

// Holding registers: HR and FN6HR, the only registers that can be written.
// Every other register prefix reads input registers.
inline bool holding(const std::string &prefix) { return names(prefix, "HR") || names(prefix, "FN6HR"); }
// Coils: DO, FN5DO.
inline bool coils(const std::string &prefix) { return names(prefix, "DO") || names(prefix, "FN5DO"); }
inline bool discreteInputs(const std::string &prefix) { return names(prefix, "DI"); }
// Writes of one request per register (function 6) or per coil (function 5).
inline bool single(const std::string &prefix) { return names(prefix, "FN6HR") || names(prefix, "FN5DO"); }

// The register window: zero-based 59999..60009, texts HR60000..HR60010. Its
// layout: station count, station list of 8, read-back station, relay
// register; HR1300 is the register a relay writes.
const int WindowFirst = 59999;
enum { WindowSize = 11, CountIndex = 0, ListEntries = 8, ReadBackIndex = 9, RelayIndex = 10 };
const int RelayTarget = 1299;

// The index in the window of a zero-based register number, or -1.
inline int windowIndex(int number)
{
    const int index = number - WindowFirst;
    return index >= 0 && index < WindowSize ? index : -1;
}

inline Op selectRead(int dataType, const std::string &prefix, int number)
{
    switch (dataType) {
    case BitCode:
    case BitBlockCode:
        return coils(prefix) || discreteInputs(prefix) ? Op::ReadBits : Op::ReadRegisterBits;
    case ByteCode:
    case BlockCode:
        return Op::ReadBytes;
    case WordCode:
        return holding(prefix) && windowIndex(number) >= 0 ? Op::ReadWindow : Op::ReadWords;
    case DoubleWordCode:
        return Op::ReadDWords;
    default:
        return Op::Refused;
    }
}

// Word writes in the window: the table below the relay register, or one word
// to the relay register on its own.
inline Op selectWindowWords(int index, int dataBytes)
{
    const int words = dataBytes / 2;
    if (index + words <= RelayIndex)
        return Op::WriteWindowWords;
    return index == RelayIndex && words == 1 ? Op::Relay : Op::Refused;
}

inline Op selectWrite(int dataType, const std::string &prefix, int number, int dataBytes)
{
    const bool bits = dataType == BitCode || dataType == BitBlockCode;
    if (bits && coils(prefix))
        return Op::WriteCoils;
    if (!holding(prefix))
        return Op::Refused;
    const int index = windowIndex(number);
    switch (dataType) {
    case BitCode:
    case BitBlockCode:
        if (index < 0)
            return Op::WriteRegisterBits;
        return index == RelayIndex ? Op::RelayBit : Op::WriteWindowBit;
    case ByteCode:
    case BlockCode:
        return Op::WriteBytes;
    case WordCode:
        if (dataBytes % 2)
            return Op::Refused;
        return index < 0 ? Op::WriteWords : selectWindowWords(index, dataBytes);
    case DoubleWordCode:
        return dataBytes % 4 ? Op::Refused : Op::WriteDWords;
    default:
        return Op::Refused;
    }
}

// The operation a command selects before any limit is checked: a read of
// dataType at the zero-based number with prefix, or a write of dataBytes.
inline Op select(bool write, int dataType, const std::string &prefix, int number, int dataBytes)
{
    return write ? selectWrite(dataType, prefix, number, dataBytes) : selectRead(dataType, prefix, number);
}

// The driver's window table, all 0 in a new driver, and how each window
// command changes it.
class RegisterWindow
{
public:
    std::array<uint16_t, WindowSize> table {};

    uint16_t at(int index) const { return table[size_t(index)]; }

    // The stations a relay visits, in order: the list has eight entries and
    // a relay never visits more.
    std::vector<int> relayStations() const
    {
        const int count = std::min<int>(table[CountIndex], ListEntries);
        std::vector<int> out;
        for (int e = 0; e < count; ++e)
            out.push_back(table[size_t(e) + 1] & 0xFF);
        return out;
    }
    // The station a read that reaches HR60010 reads HR1300 back from; -1
    // when such a read sends nothing (the count is 0).
    int readBackStation() const { return table[CountIndex] == 0 ? -1 : table[ReadBackIndex] & 0xFF; }

    // A word read of count registers from index: whether it stays in the
    // window, and whether it reads the relay register back.
    static bool readFits(int index, int count) { return index + count <= WindowSize; }
    bool readsBack(int index, int count) const
    {
        return index + count == WindowSize && table[CountIndex] != 0;
    }
    // After a read-back or a relay that succeeded: the relay register holds its value.
    void relayed(uint16_t value) { table[RelayIndex] = value; }

    // Words written to the table from index (below the relay register); a
    // read-back station above 8 is kept as 8.
    void writeWords(int index, const std::vector<uint16_t> &values)
    {
        for (size_t k = 0; k < values.size(); ++k)
            table[size_t(index) + k] = values[k];
        if (table[ReadBackIndex] > ListEntries)
            table[ReadBackIndex] = ListEntries;
    }

    // A bit write at index (HR60010 for a bit relay), done or not: a done
    // one sets or clears the bit from its first state (any byte but 0 sets,
    // no state changes nothing); every one keeps the station count within
    // the list, and a done one that addressed the count sets it to 8.
    void bitWritten(int index, int bit, const std::vector<bool> &states, bool done)
    {
        if (done && !states.empty() && bit < 16) {
            const uint16_t mask = uint16_t(1u << bit);
            uint16_t &v = table[size_t(index)];
            v = states.front() ? uint16_t(v | mask) : uint16_t(v & ~mask);
        }
        if ((done && index == CountIndex) || table[CountIndex] > ListEntries)
            table[CountIndex] = ListEntries;
    }
};

} // namespace DriverRules

#endif // BENCH_SOAK_DRIVERRULES_H
