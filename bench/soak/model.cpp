#include "model.h"

#include "simdrive.h"

#include <algorithm>
#include <map>

namespace {

const int Cells = 65536;

int areaSlot(Area area) { return int(area); }

void appendWord(QByteArray &out, unsigned value)
{
    out.append(char(value & 0xFF));
    out.append(char((value >> 8) & 0xFF));
}

unsigned byteAt(const QByteArray &data, int i) { return static_cast<unsigned char>(data.at(i)); }

// Bit k of the run goes to bit k mod 8 of byte k div 8; unused bits are 0.
QByteArray packBits(const std::vector<bool> &bits)
{
    QByteArray out(int((bits.size() + 7) / 8), '\0');
    for (size_t k = 0; k < bits.size(); ++k)
        if (bits[k])
            out[int(k / 8)] = char(static_cast<unsigned char>(out.at(int(k / 8))) | (1u << (k % 8)));
    return out;
}

int registersForBits(int bit, int bits) { return (bit + bits + 15) / 16; }

Cell registerCell(int station, int address, unsigned value)
{
    return Cell { station, Area::HoldingRegisters, address & 0xFFFF, uint16_t(value) };
}

// Registers as a write leaves them, by station and address, before they
// reach the model: a station listed twice in a relay sees its own change.
using WorkingCopy = std::map<std::pair<int, int>, uint16_t>;

// Read, change the bits and write back the registers that hold them.
void changeBits(const SoakModel &model, const SoakCommand &c, int station, int start, WorkingCopy &copy,
    std::vector<Cell> &out)
{
    const QByteArray &d = c.data;
    const int w = registersForBits(c.bit, d.size());
    std::vector<uint16_t> regs;
    for (int i = 0; i < w; ++i) {
        const auto key = std::make_pair(station, (start + i) & 0xFFFF);
        const auto it = copy.find(key);
        regs.push_back(
            it != copy.end() ? it->second : model.value(station, Area::HoldingRegisters, key.second));
    }
    for (int i = 0; i < d.size(); ++i) {
        const int p = c.bit + i;
        const uint16_t mask = uint16_t(1u << (p % 16));
        uint16_t &reg = regs[size_t(p / 16)];
        reg = d.at(i) != 0 ? uint16_t(reg | mask) : uint16_t(reg & ~mask);
    }
    for (int i = 0; i < w; ++i) {
        copy[std::make_pair(station, (start + i) & 0xFFFF)] = regs[size_t(i)];
        out.push_back(registerCell(station, start + i, regs[size_t(i)]));
    }
}

// Function 16 of w registers, or w requests of function 6.
void writeRegisters(int w, bool single, bool pauseBefore, std::vector<Exchange> &out)
{
    if (single)
        for (int i = 0; i < w; ++i)
            out.push_back(Exchange { 8, 8, pauseBefore });
    else
        out.push_back(Exchange { 9 + 2 * w, 8, pauseBefore });
}

// The register-bit write: the read, the link's delay, the write back; the
// function-6 form pauses again between two registers.
void readModifyWrite(const SoakCommand &c, bool pauseFirst, std::vector<Exchange> &out)
{
    const int w = registersForBits(c.bit, c.data.size());
    out.push_back(Exchange { 8, 5 + 2 * w, pauseFirst });
    writeRegisters(w, c.single, true, out);
}

// The requests of one attempt of a write; a relay visits relayed stations
// with the link's delay between two of them.
void writeExchanges(const SoakCommand &c, size_t relayed, std::vector<Exchange> &out)
{
    switch (c.op) {
    case Op::WriteWords:
    case Op::WriteDWords:
        writeRegisters(c.data.size() / 2, c.single, false, out);
        break;
    case Op::WriteBytes:
        writeRegisters((c.data.size() + 1) / 2, c.single, false, out);
        break;
    case Op::WriteCoils:
        if (c.single)
            for (int i = 0; i < c.data.size(); ++i)
                out.push_back(Exchange { 8, 8, false });
        else
            out.push_back(Exchange { 9 + (c.data.size() + 7) / 8, 8, false });
        break;
    case Op::WriteRegisterBits:
        readModifyWrite(c, false, out);
        break;
    case Op::Relay:
        for (size_t i = 0; i < relayed; ++i)
            writeRegisters(1, c.single, i > 0, out);
        break;
    case Op::RelayBit:
        for (size_t i = 0; i < relayed; ++i)
            readModifyWrite(c, i > 0, out);
        break;
    default:
        break;
    }
}

} // namespace

SoakModel::SoakModel(const std::vector<int> &stations)
    : served(stations)
    , cells(stations.size())
{
    for (auto &areas : cells)
        for (auto &area : areas)
            area.assign(Cells, 0);
}

int SoakModel::slot(int station) const
{
    const auto it = std::find(served.begin(), served.end(), station);
    return it == served.end() ? -1 : int(it - served.begin());
}

bool SoakModel::serves(int station) const { return slot(station) >= 0; }

std::vector<uint16_t> &SoakModel::memory(int station, Area area)
{
    return cells[size_t(slot(station))][size_t(areaSlot(area))];
}

const std::vector<uint16_t> &SoakModel::memory(int station, Area area) const
{
    return cells[size_t(slot(station))][size_t(areaSlot(area))];
}

void SoakModel::loadFrom(const SimDrive &drive)
{
    for (int station : served)
        for (Area area : { Area::Coils, Area::DiscreteInputs, Area::HoldingRegisters, Area::InputRegisters })
            for (int address = 0; address < Cells; ++address)
                reload(drive, station, area, address);
}

bool SoakModel::reload(const SimDrive &drive, int station, Area area, int address)
{
    uint16_t v = 0;
    if (!serves(station) || address < 0 || address >= Cells || !drive.value(station, area, address, v))
        return false;
    memory(station, area)[size_t(address)] = v;
    return true;
}

uint16_t SoakModel::value(int station, Area area, int address) const
{
    if (!serves(station))
        return 0;
    return memory(station, area)[size_t(address & 0xFFFF)];
}

void SoakModel::setValue(const Cell &cell)
{
    if (!serves(cell.station))
        return;
    const bool bit = cell.area == Area::Coils || cell.area == Area::DiscreteInputs;
    memory(cell.station, cell.area)[size_t(cell.address & 0xFFFF)]
        = bit ? uint16_t(cell.value ? 1 : 0) : cell.value;
}

bool SoakModel::expectedRead(const SoakCommand &c, QByteArray &out) const
{
    out.clear();
    const int s = c.station;
    switch (c.op) {
    case Op::ReadWords:
        for (int i = 0; i < c.count; ++i)
            appendWord(out, value(s, c.area, c.start + i));
        return serves(s);
    case Op::ReadDWords:
        for (int j = 0; j < c.count; ++j) {
            const unsigned first = value(s, c.area, c.start + 2 * j);
            const unsigned second = value(s, c.area, c.start + 2 * j + 1);
            const unsigned dw = c.swap ? (first << 16 | second) : (second << 16 | first);
            appendWord(out, dw & 0xFFFF);
            appendWord(out, dw >> 16);
        }
        return serves(s);
    case Op::ReadBytes:
        for (int i = 0; i < (c.count + 1) / 2; ++i)
            appendWord(out, value(s, c.area, c.start + i));
        out.resize(c.count);
        return serves(s);
    case Op::ReadBits: {
        std::vector<bool> bits;
        for (int i = 0; i < c.count; ++i)
            bits.push_back(value(s, c.area, c.start + i) != 0);
        out = packBits(bits);
        return serves(s);
    }
    case Op::ReadRegisterBits: {
        std::vector<bool> bits;
        for (int i = 0; i < c.count; ++i) {
            const int p = c.bit + i;
            bits.push_back((value(s, c.area, c.start + p / 16) >> (p % 16)) & 1);
        }
        out = packBits(bits);
        return serves(s);
    }
    case Op::ReadWindow: {
        const int end = c.start + c.count;
        bool possible = true;
        for (int k = c.start; k < end; ++k) {
            uint16_t v = windowTable.at(k);
            if (k == RelayIndex && readBackStation() >= 0) {
                possible = serves(readBackStation());
                v = value(readBackStation(), Area::HoldingRegisters, RelayTarget);
            }
            appendWord(out, v);
        }
        return possible;
    }
    default:
        return false;
    }
}

void SoakModel::readDone(const SoakCommand &c, const QByteArray &got)
{
    // The driver keeps what it read back; follow its table, so that one
    // wrong value is reported once and not again with every later read.
    if (c.op == Op::ReadWindow && c.start + c.count == WindowSize && got.size() >= 2 * c.count)
        windowTable.relayed(uint16_t(byteAt(got, 2 * c.count - 2) | byteAt(got, 2 * c.count - 1) << 8));
}

void SoakModel::stationCells(const SoakCommand &c, std::vector<Cell> &out) const
{
    const int s = c.station;
    const QByteArray &d = c.data;
    switch (c.op) {
    case Op::WriteWords:
        for (int i = 0; i + 1 < d.size(); i += 2)
            out.push_back(registerCell(s, c.start + i / 2, byteAt(d, i) | byteAt(d, i + 1) << 8));
        return;
    case Op::WriteDWords:
        for (int j = 0; j + 3 < d.size(); j += 4) {
            const unsigned low = byteAt(d, j) | byteAt(d, j + 1) << 8;
            const unsigned high = byteAt(d, j + 2) | byteAt(d, j + 3) << 8;
            out.push_back(registerCell(s, c.start + j / 2, c.swap ? high : low));
            out.push_back(registerCell(s, c.start + j / 2 + 1, c.swap ? low : high));
        }
        return;
    case Op::WriteBytes:
        for (int i = 0; i < d.size(); i += 2)
            out.push_back(registerCell(
                s, c.start + i / 2, byteAt(d, i) | (i + 1 < d.size() ? byteAt(d, i + 1) << 8 : 0u)));
        return;
    case Op::WriteCoils:
        for (int i = 0; i < d.size(); ++i)
            out.push_back(Cell { s, Area::Coils, c.start + i, uint16_t(d.at(i) != 0 ? 1 : 0) });
        return;
    default: { // Op::WriteRegisterBits
        WorkingCopy copy;
        changeBits(*this, c, s, c.start, copy, out);
        return;
    }
    }
}

bool SoakModel::intended(const SoakCommand &c, std::vector<Cell> &out) const
{
    out.clear();
    switch (c.op) {
    case Op::WriteWords:
    case Op::WriteDWords:
    case Op::WriteBytes:
    case Op::WriteCoils:
    case Op::WriteRegisterBits:
        stationCells(c, out);
        return serves(c.station);
    case Op::Relay:
    case Op::RelayBit: {
        // One working copy for the whole relay, so that a station listed
        // twice sees its own first change.
        WorkingCopy copy;
        bool possible = true;
        for (int station : relayStations()) {
            if (c.op == Op::Relay)
                out.push_back(registerCell(station, RelayTarget, byteAt(c.data, 0) | byteAt(c.data, 1) << 8));
            else
                changeBits(*this, c, station, RelayTarget, copy, out);
            possible = possible && serves(station);
        }
        return possible;
    }
    case Op::WriteWindowWords:
    case Op::WriteWindowBit:
        return true; // the table only
    default:
        return false;
    }
}

std::vector<Cell> SoakModel::touched(const SoakCommand &c) const
{
    std::vector<Cell> out;
    if (c.op == Op::Relay || c.op == Op::RelayBit) {
        // Station 0 in the list is a broadcast, which every station obeys.
        const int w = c.op == Op::Relay ? 1 : registersForBits(c.bit, c.data.size());
        for (int station : served)
            for (int i = 0; i < w; ++i)
                out.push_back(Cell { station, Area::HoldingRegisters, RelayTarget + i, 0 });
        return out;
    }
    intended(c, out);
    return out;
}

void SoakModel::writeDone(const SoakCommand &c, bool succeeded)
{
    const QByteArray &d = c.data;
    switch (c.op) {
    case Op::WriteWindowWords:
        if (succeeded) {
            std::vector<uint16_t> values;
            for (int i = 0; i + 1 < d.size(); i += 2)
                values.push_back(uint16_t(byteAt(d, i) | byteAt(d, i + 1) << 8));
            windowTable.writeWords(c.start, values);
        }
        return;
    case Op::WriteWindowBit:
    case Op::RelayBit: {
        std::vector<bool> states;
        for (int i = 0; i < d.size(); ++i)
            states.push_back(d.at(i) != 0);
        windowTable.bitWritten(c.start, c.bit, states, succeeded);
        return;
    }
    case Op::Relay:
        if (succeeded)
            windowTable.relayed(uint16_t(byteAt(d, 0) | byteAt(d, 1) << 8));
        return;
    default:
        return;
    }
}

std::vector<Exchange> SoakModel::attempt(const SoakCommand &c) const
{
    std::vector<Exchange> out;
    switch (c.op) {
    case Op::ReadWords:
        out.push_back(Exchange { 8, 5 + 2 * c.count, false });
        break;
    case Op::ReadDWords:
        out.push_back(Exchange { 8, 5 + 4 * c.count, false });
        break;
    case Op::ReadBytes:
        out.push_back(Exchange { 8, 5 + 2 * ((c.count + 1) / 2), false });
        break;
    case Op::ReadBits:
        out.push_back(Exchange { 8, 5 + (c.count + 7) / 8, false });
        break;
    case Op::ReadRegisterBits:
        out.push_back(Exchange { 8, 5 + 2 * registersForBits(c.bit, c.count), false });
        break;
    case Op::ReadWindow:
        if (windowTable.readsBack(c.start, c.count))
            out.push_back(Exchange { 8, 7, false });
        break;
    default:
        writeExchanges(c, relayStations().size(), out);
        break;
    }
    return out;
}
