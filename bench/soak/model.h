#ifndef BENCH_SOAK_MODEL_H
#define BENCH_SOAK_MODEL_H

// The soak's oracle, kept apart from the driver: what every served station
// holds and what the driver's register window (HR60000..HR60010) must hold.
// It starts from the simulated drive's own memory, follows every write that
// the driver reports done, and re-reads from the drive what a failed write
// may or may not have changed. From it come the result that every read must
// return and the requests that every command needs.

#include "command.h"
#include "driverrules.h"

#include <array>
#include <cstdint>
#include <vector>

class SimDrive;

// One cell of a station's memory: a register, or a coil or input as 0/1.
struct Cell
{
    int station = 0;
    Area area = Area::HoldingRegisters;
    int address = 0; // zero-based
    uint16_t value = 0;
};

// One request and its reply as the driver sends and expects them, in bytes;
// pauseBefore: the link's delay comes before the request (besides the wait
// before every attempt).
struct Exchange
{
    int request = 0;
    int reply = 0;
    bool pauseBefore = false;
};

class SoakModel
{
public:
    // The window's layout (driverrules.h): station count, station list 1..8,
    // read-back station, relay register; HR1300 is the register a relay writes.
    enum {
        WindowSize = DriverRules::WindowSize,
        CountIndex = DriverRules::CountIndex,
        ListEntries = DriverRules::ListEntries,
        ReadBackIndex = DriverRules::ReadBackIndex,
        RelayIndex = DriverRules::RelayIndex
    };
    static constexpr int RelayTarget = DriverRules::RelayTarget;

    explicit SoakModel(const std::vector<int> &stations);

    // Every cell of every served station, from the drive's memory.
    void loadFrom(const SimDrive &drive);
    // One cell afresh from the drive; false when the drive does not serve it.
    bool reload(const SimDrive &drive, int station, Area area, int address);

    const std::vector<int> &stations() const { return served; }
    bool serves(int station) const;
    uint16_t value(int station, Area area, int address) const;
    void setValue(const Cell &cell);
    uint16_t window(int index) const { return windowTable.at(index); }

    // The stations a relay visits, in order, as the table stands.
    std::vector<int> relayStations() const { return windowTable.relayStations(); }
    // The station a window read that reaches HR60010 reads back from; -1
    // when such a read sends nothing.
    int readBackStation() const { return windowTable.readBackStation(); }

    // What a successful read must return, in the panel's byte order. False
    // when no read of the command can succeed (it needs a station that does
    // not answer).
    bool expectedRead(const SoakCommand &c, QByteArray &expected) const;
    // After a successful read: the relay register follows what was read back.
    void readDone(const SoakCommand &c, const QByteArray &got);

    // The cells that a successful write must leave, with their values. False
    // when no write of the command can succeed.
    bool intended(const SoakCommand &c, std::vector<Cell> &cells) const;
    // The cells that the write may have changed, whatever its outcome.
    std::vector<Cell> touched(const SoakCommand &c) const;
    // After a write: the window table, for success or failure. Cells of the
    // stations are set by the caller.
    void writeDone(const SoakCommand &c, bool succeeded);

    // The requests of one attempt, in order, with the largest relay the
    // table allows. Empty for commands that send nothing.
    std::vector<Exchange> attempt(const SoakCommand &c) const;

private:
    int slot(int station) const;
    // The cells that a write to the command's own station must leave.
    void stationCells(const SoakCommand &c, std::vector<Cell> &cells) const;
    std::vector<uint16_t> &memory(int station, Area area);
    const std::vector<uint16_t> &memory(int station, Area area) const;

    std::vector<int> served;
    // Per served station and area (in Area order), 65536 cells.
    std::vector<std::array<std::vector<uint16_t>, 4>> cells;
    DriverRules::RegisterWindow windowTable; // the driver's window, all 0 in a new driver
};

#endif // BENCH_SOAK_MODEL_H
