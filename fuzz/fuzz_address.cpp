// Fuzzes address texts through the runtime's read and write against a slave
// that answers every request correctly from its register map, with the map
// as the oracle of every value.
//
// Input:
//   byte 0        commands (low 2 bits + 1) and the link's station (next 3
//                 bits: 1 mostly, also 247, 0, 300 and -1)
//   per command   read or write, data type (0..8), count (a table of limits
//                 and small numbers, as in fuzz_replies), the address text's
//                 length (0..32) and its Latin-1 bytes, and for a write a
//                 length byte and the data
// The commands of one input run on one driver object and one slave, so that
// one command's writes, and the window's table, are what the next one reads.
//
// The slave (SlaveLink, the tests' link double answering from a model) keeps
// coils, discrete inputs, input and holding registers of every station, each
// starting from a pattern of its station, area and address. It answers any
// well-formed request whose reply fits into a frame, and aborts on a request
// that is not a well-formed RTU frame.
//
// For every command a reference, written from the address grammar, the
// driver's selection and window rules (bench/soak/driverrules.h, shared
// with the soak's model) and the operations' limits and layouts, works out
// independently of the driver what must happen:
//   - whether the command succeeds against this slave;
//   - for a read, the bytes it returns in the panel's order (registers low
//     byte first, double words in the order "SW" chooses, bits packed from
//     bit 0), or for the window the driver's table after its read-back;
//   - for a write, the slave's map afterwards: exactly the registers and
//     coils that the address and data name, with the values they give, and
//     for HR60000..HR60010 the window's table and the relay to HR1300 of
//     the listed stations;
//   - the function codes and stations its requests may use.
// The driver must agree: a successful read returns the reference's bytes; a
// successful write leaves the map exactly as the reference says, and a
// failed one changes nothing the reference did not name; a refused command
// sends nothing it should not; the window's table matches after every
// command.

#include "driverrules.h"
#include "drivertecoservo.h"
#include "fuzzinput.h"
#include "hex.h"
#include "linkdouble.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace {

// ------------------------------------------------------------------ the slave

enum Area { Coils, DiscreteInputs, InputRegisters, HoldingRegisters };

typedef std::map<quint32, quint16> Writes;

quint32 key(int station, Area area, quint32 address)
{
    return (quint32(station & 0xFF) << 18) | (quint32(area) << 16) | (address & 0xFFFF);
}

// What a cell holds until it is written: bits for coils and inputs.
quint16 pattern(quint32 k)
{
    const quint32 h = (k + 0x9E37u) * 0x85EBCA6Bu;
    const quint16 value = quint16((h >> 13) ^ (h >> 29));
    return (k >> 16 & 3) <= DiscreteInputs ? quint16(value & 1) : value;
}

struct Map
{
    Writes writes;

    quint16 get(int station, Area area, quint32 address) const
    {
        const auto it = writes.find(key(station, area, address));
        return it == writes.end() ? pattern(key(station, area, address)) : it->second;
    }
    void set(int station, Area area, quint32 address, quint16 value)
    {
        writes[key(station, area, address)] = value;
    }
};

[[noreturn]] void fail(const std::string &what)
{
    std::fprintf(stderr, "%s\n", what.c_str());
    std::abort();
}

quint16 be16(const QByteArray &f, int at) { return quint16(quint8(f.at(at)) << 8 | quint8(f.at(at + 1))); }

void appendBe16(QByteArray &f, quint16 v)
{
    f.append(char(v >> 8));
    f.append(char(v & 0xFF));
}

class SlaveLink : public LinkDouble
{
public:
    Map map;
    std::vector<std::pair<int, int>> requests; // station, function code

    int send(const char *frame, int length) override
    {
        LinkDouble::send(frame, length);
        const QByteArray f(frame, length);
        line(withCrc(answer(f)));
        return length;
    }

private:
    [[noreturn]] void malformed(const QByteArray &f) { fail("malformed request: " + toHex(f)); }

    QByteArray exception(const QByteArray &f, int code)
    {
        QByteArray r;
        r.append(f.at(0));
        r.append(char(quint8(f.at(1)) | 0x80));
        r.append(char(code));
        return r;
    }

    QByteArray answer(const QByteArray &f)
    {
        if (f.size() < 8 || f.size() > 256 || bitwiseCrc16(f) != 0)
            malformed(f);
        const int station = quint8(f.at(0));
        const int function = quint8(f.at(1));
        requests.emplace_back(station, function);
        const quint32 start = be16(f, 2);
        const quint32 quantity = be16(f, 4);
        QByteArray r = f.left(2);
        switch (function) {
        case 1:
        case 2: {
            const Area area = function == 1 ? Coils : DiscreteInputs;
            if (f.size() != 8)
                malformed(f);
            const quint32 bytes = (quantity + 7) / 8;
            if (bytes + 5 > 256)
                return exception(f, 3);
            if (start + quantity > 65536)
                return exception(f, 2);
            r.append(char(bytes));
            QByteArray data(int(bytes), '\0');
            for (quint32 i = 0; i < quantity; ++i)
                if (map.get(station, area, start + i))
                    data[int(i / 8)] = char(quint8(data.at(int(i / 8))) | (1 << (i % 8)));
            return r + data;
        }
        case 3:
        case 4: {
            const Area area = function == 3 ? HoldingRegisters : InputRegisters;
            if (f.size() != 8)
                malformed(f);
            if (quantity > 125)
                return exception(f, 3);
            if (start + quantity > 65536)
                return exception(f, 2);
            r.append(char(2 * quantity));
            for (quint32 i = 0; i < quantity; ++i)
                appendBe16(r, map.get(station, area, start + i));
            return r;
        }
        case 5:
            if (f.size() != 8)
                malformed(f);
            if (quantity != 0xFF00 && quantity != 0)
                return exception(f, 3);
            map.set(station, Coils, start, quantity ? 1 : 0);
            return f.left(6);
        case 6:
            if (f.size() != 8)
                malformed(f);
            map.set(station, HoldingRegisters, start, quantity);
            return f.left(6);
        case 15:
        case 16: {
            const quint32 bytes = quint8(f.at(6));
            const quint32 expected = function == 15 ? (quantity + 7) / 8 : 2 * quantity;
            if (bytes != expected || quint32(f.size()) != 9 + bytes)
                malformed(f);
            if (start + quantity > 65536)
                return exception(f, 2);
            for (quint32 i = 0; i < quantity; ++i) {
                if (function == 15)
                    map.set(station, Coils, start + i, (quint8(f.at(7 + int(i / 8))) >> (i % 8)) & 1);
                else
                    map.set(station, HoldingRegisters, start + i, be16(f, 7 + 2 * int(i)));
            }
            return f.left(6);
        }
        default:
            malformed(f);
        }
    }
};

// ------------------------------------------------------------------ the reference

struct Address
{
    std::string prefix;
    quint16 number = 0; // zero-based register or coil
    quint8 bit = 0; // 0 when the text has no bit part
    bool swap = false;
};

bool isLetter(unsigned char c) { return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z'); }
bool isDigit(unsigned char c) { return c >= '0' && c <= '9'; }
unsigned char upper(unsigned char c) { return c >= 'a' && c <= 'z' ? c - 32 : c; }

// An optional three-character group after F, letters, a decimal number
// (one-based, modulo 65536), then "." and a decimal bit number (modulo 256).
Address parse(const std::string &t)
{
    Address a;
    for (size_t i = 0; i + 1 < t.size(); ++i)
        if (upper(t[i]) == 'S' && upper(t[i + 1]) == 'W')
            a.swap = true;
    size_t i = 0;
    if (!t.empty() && upper(t[0]) == 'F') {
        a.prefix = t.substr(0, 3);
        i = a.prefix.size();
    }
    while (i < t.size() && isLetter(t[i]))
        a.prefix += t[i++];
    quint32 number = 0;
    bool digits = false;
    while (i < t.size() && isDigit(t[i])) {
        number = number * 10 + quint32(t[i++] - '0');
        digits = true;
    }
    a.number = digits ? quint16(number - 1) : 0xFFFF;
    if (i < t.size() && t[i] == '.')
        while (++i < t.size() && isDigit(t[i]))
            a.bit = quint8(a.bit * 10 + (t[i] - '0'));
    return a;
}

using DriverRules::RegisterWindow;
using DriverRules::RelayTarget;

// The window as the driver holds it, for the reference.
RegisterWindow windowOf(const QVector<quint16> &table)
{
    RegisterWindow w;
    for (int i = 0; i < table.size() && i < DriverRules::WindowSize; ++i)
        w.table[size_t(i)] = table[i];
    return w;
}

bool sameWindow(const QVector<quint16> &table, const RegisterWindow &w)
{
    if (table.size() != DriverRules::WindowSize)
        return false;
    for (int i = 0; i < table.size(); ++i)
        if (table[i] != w.at(i))
            return false;
    return true;
}

// What one command must do. `decided` false: the outcome is the driver's to
// choose (a register-bit write with no bits), but not what it changes.
struct Expectation
{
    bool ok = true;
    bool decided = true;
    QByteArray result;
    std::set<std::pair<int, int>> allowed; // station, function code
};

class Reference
{
public:
    Reference(const Map &map, const QVector<quint16> &table, int linkStation)
        : map(map)
        , window(windowOf(table))
        , linkStation(linkStation)
    {
    }

    Map map;
    RegisterWindow window;
    Expectation e;

    // The operation comes from the driver's selection rules (driverrules.h,
    // shared with the soak); its limits, layouts and values from here.
    void read(int type, int count, const Address &a)
    {
        const bool holding = DriverRules::holding(a.prefix);
        const Area registers = holding ? HoldingRegisters : InputRegisters;
        const quint64 n = quint32(count);
        switch (DriverRules::selectRead(type, a.prefix, a.number)) {
        case Op::ReadBits:
            return readBits(DriverRules::discreteInputs(a.prefix) ? DiscreteInputs : Coils, a.number, n);
        case Op::ReadRegisterBits:
            return readRegisterBits(registers, count, a);
        case Op::ReadBytes:
            if (!readable((n + 1) / 2, a.number))
                return refuse();
            allow(linkStation, holding ? 3 : 4);
            for (quint32 k = 0; k < n; ++k)
                e.result.append(char(map.get(linkStation, registers, a.number + k / 2) >> (8 * (k % 2))));
            return;
        case Op::ReadWindow:
            return readWindow(DriverRules::windowIndex(a.number), n);
        case Op::ReadWords:
            if (!readable(n, a.number))
                return refuse();
            allow(linkStation, holding ? 3 : 4);
            for (quint32 k = 0; k < n; ++k)
                appendWord(e.result, map.get(linkStation, registers, a.number + k));
            return;
        case Op::ReadDWords:
            return readDoubleWords(registers, n, a);
        default:
            return refuse();
        }
    }

    void write(int type, const Address &a, const QByteArray &data)
    {
        const int fn = DriverRules::single(a.prefix) ? 6 : 16;
        const int index = DriverRules::windowIndex(a.number);
        switch (DriverRules::selectWrite(type, a.prefix, a.number, data.size())) {
        case Op::WriteCoils:
            return writeCoils(a.number, data, DriverRules::single(a.prefix) ? 5 : 15);
        case Op::WriteRegisterBits:
            if (data.isEmpty())
                e.decided = false; // no bits: whether anything is read or checked is the driver's choice
            if (!station())
                return refuse();
            writeBits(linkStation, a.number, a.bit, data, fn);
            return;
        case Op::WriteWindowBit:
        case Op::RelayBit:
            if (data.isEmpty())
                e.decided = false;
            return writeWindowBit(index, a.bit, data, fn);
        case Op::WriteBytes: {
            std::vector<quint16> values;
            for (int k = 0; k < data.size(); k += 2)
                values.push_back(
                    quint16(quint8(data.at(k)) | (k + 1 < data.size() ? quint8(data.at(k + 1)) << 8 : 0)));
            if (!station())
                return refuse();
            writeRegisters(linkStation, a.number, values, fn);
            return;
        }
        case Op::WriteWords:
            if (!station())
                return refuse();
            writeRegisters(linkStation, a.number, words(data), fn);
            return;
        case Op::WriteWindowWords:
            window.writeWords(index, words(data));
            return;
        case Op::Relay:
            return relay(words(data), fn);
        case Op::WriteDWords: {
            std::vector<quint16> values = words(data);
            if (a.swap)
                for (size_t k = 0; k + 1 < values.size(); k += 2)
                    std::swap(values[k], values[k + 1]);
            if (!station())
                return refuse();
            writeRegisters(linkStation, a.number, values, fn);
            return;
        }
        default:
            return refuse();
        }
    }

private:
    int linkStation;

    void refuse() { e.ok = false; }
    void allow(int station, int function) { e.allowed.insert(std::make_pair(station & 0xFF, function)); }
    bool station() const { return quint32(linkStation) <= 255; }
    bool readable(quint64 registers, quint16 start) const
    {
        return station() && registers <= 125 && start + registers <= 65536;
    }

    static void setBit(QByteArray &bits, quint32 k, bool on)
    {
        if (on)
            bits[int(k / 8)] = char(quint8(bits.at(int(k / 8))) | (1 << (k % 8)));
    }
    static void appendWord(QByteArray &out, quint16 v)
    {
        out.append(char(v & 0xFF));
        out.append(char(v >> 8));
    }
    static std::vector<quint16> words(const QByteArray &data)
    {
        std::vector<quint16> values;
        for (int k = 0; k + 1 < data.size(); k += 2)
            values.push_back(quint16(quint8(data.at(k)) | quint8(data.at(k + 1)) << 8));
        return values;
    }

    void readBits(Area area, quint16 start, quint64 n)
    {
        if (!station() || n > 2008 || start + n > 65536)
            return refuse();
        allow(linkStation, area == Coils ? 1 : 2);
        e.result = QByteArray(int((n + 7) / 8), '\0');
        for (quint32 k = 0; k < n; ++k)
            setBit(e.result, k, map.get(linkStation, area, start + k));
    }

    void readRegisterBits(Area registers, int count, const Address &a)
    {
        const int function = registers == HoldingRegisters ? 3 : 4;
        if (count < 0) {
            // The registers are counted in 32 bits, wrapping; what such
            // a read returns is the driver's.
            const quint32 sum = quint32(a.bit) + quint32(count);
            if (!readable((quint64(sum) + 15) / 16, a.number))
                return refuse();
            allow(linkStation, function);
            e.decided = false;
            return;
        }
        const quint64 n = quint32(count);
        const quint64 words = (a.bit + n + 15) / 16;
        if (!readable(words, a.number))
            return refuse();
        allow(linkStation, function);
        e.result = QByteArray(int((n + 7) / 8), '\0');
        for (quint32 k = 0; k < n; ++k) {
            const quint32 p = a.bit + k;
            setBit(e.result, k, map.get(linkStation, registers, a.number + p / 16) >> (p % 16) & 1);
        }
    }

    void readDoubleWords(Area registers, quint64 n, const Address &a)
    {
        if (!readable(2 * n, a.number))
            return refuse();
        allow(linkStation, registers == HoldingRegisters ? 3 : 4);
        for (quint32 k = 0; k < 2 * n; k += 2) {
            const quint16 first = map.get(linkStation, registers, a.number + k);
            const quint16 second = map.get(linkStation, registers, a.number + k + 1);
            appendWord(e.result, a.swap ? second : first);
            appendWord(e.result, a.swap ? first : second);
        }
    }

    void readWindow(int index, quint64 n)
    {
        if (n > quint64(DriverRules::WindowSize) || !RegisterWindow::readFits(index, int(n)))
            return refuse();
        if (window.readsBack(index, int(n))) {
            const int from = window.readBackStation();
            allow(from, 3);
            window.relayed(map.get(from, HoldingRegisters, RelayTarget));
        }
        for (quint64 k = 0; k < n; ++k)
            appendWord(e.result, window.at(int(index + k)));
    }

    void writeCoils(quint16 start, const QByteArray &data, int fn)
    {
        const quint64 n = quint64(data.size());
        if (!station() || n > 1976 || start + n > 65536)
            return refuse();
        allow(linkStation, fn);
        for (quint32 k = 0; k < n; ++k)
            map.set(linkStation, Coils, start + k, data.at(int(k)) != 0);
    }

    // Function 16 in one request, or function 6 one register at a time.
    bool writeRegisters(int station, quint32 start, const std::vector<quint16> &values, int fn)
    {
        if (values.size() > 123 || start + values.size() > 65536) {
            refuse();
            return false;
        }
        allow(station, fn);
        for (size_t k = 0; k < values.size(); ++k)
            map.set(station, HoldingRegisters, start + quint32(k), values[k]);
        return true;
    }

    // Read-modify-write of the registers that hold the bits.
    bool writeBits(int station, quint32 start, quint8 bit, const QByteArray &data, int fn)
    {
        const quint64 registers = (bit + quint64(data.size()) + 15) / 16;
        if (registers > 125 || start + registers > 65536) {
            refuse();
            return false;
        }
        allow(station, 3);
        std::vector<quint16> values;
        for (quint32 k = 0; k < registers; ++k)
            values.push_back(map.get(station, HoldingRegisters, start + k));
        for (int k = 0; k < data.size(); ++k) {
            const quint32 p = bit + quint32(k);
            const quint16 mask = quint16(1u << (p % 16));
            values[p / 16] = data.at(k) ? values[p / 16] | mask : values[p / 16] & ~mask;
        }
        if (fn == 6) {
            allow(station, 6);
            for (size_t k = 0; k < values.size(); ++k)
                map.set(station, HoldingRegisters, start + quint32(k), values[k]);
            return true;
        }
        return writeRegisters(station, start, values, fn);
    }

    // One word to HR60010: to HR1300 of every listed station, then the
    // relay register holds it.
    void relay(const std::vector<quint16> &values, int fn)
    {
        for (int station : window.relayStations())
            if (!writeRegisters(station, RelayTarget, values, fn))
                return;
        window.relayed(values[0]);
    }

    // A bit of the table, or of HR60010: to HR1300 of every listed station first.
    void writeWindowBit(int index, quint8 bit, const QByteArray &data, int fn)
    {
        bool done = true;
        if (index == DriverRules::RelayIndex)
            for (int station : window.relayStations())
                if (!writeBits(station, RelayTarget, bit, data, fn)) {
                    done = false;
                    break;
                }
        std::vector<bool> states;
        for (int k = 0; k < data.size(); ++k)
            states.push_back(data.at(k) != 0);
        window.bitWritten(index, bit, states, done);
    }
};

// ------------------------------------------------------------------ the input

struct Command
{
    bool read;
    int type;
    int count;
    QByteArray text;
    QByteArray data;
};

Command takeCommand(Input &in)
{
    Command c;
    c.read = in.byte() % 2 == 0;
    c.type = in.byte() % 9;
    c.count = in.count();
    c.text = in.bytes(in.byte() % 33);
    if (!c.read)
        c.data = in.writeData();
    return c;
}

std::string describe(const Command &c)
{
    return std::string(c.read ? "read " : "write ") + "\"" + c.text.toStdString() + "\" type "
        + std::to_string(c.type) + " count " + std::to_string(c.count) + " data " + toHex(c.data.left(16))
        + (c.data.size() > 16 ? " ..." : "");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    // TECO_FUZZ_TRACE=1: one line per command, to see what an input does.
    static const bool trace = std::getenv("TECO_FUZZ_TRACE") != nullptr;
    Input in { data, size };
    const uint8_t setup = in.byte();
    const int commands = (setup & 3) + 1;
    const int stations[] = { 1, 1, 1, 1, 247, 0, 300, -1 };
    SlaveLink link;
    link.station = stations[(setup >> 2) & 7];

    DriverTecoServo driver;
    for (int i = 0; i < commands; ++i) {
        const Command c = takeCommand(in);
        const Address a = parse(c.text.toStdString());
        Reference ref(link.map, driver.specialRegisterTable(), link.station);
        if (c.read)
            ref.read(c.type, c.count, a);
        else
            ref.write(c.type, a, c.data);
        const Expectation &e = ref.e;

        const Map before = link.map;
        link.requests.clear();
        link.calls.clear();
        const CommunicatorCommand cmd(
            c.type, c.count, QString::fromLatin1(c.text.constData(), c.text.size()));
        QByteArray result;
        bool written = false;
        if (c.read)
            result = driver.read(&link, cmd);
        else
            written = driver.write(&link, cmd, c.data);
        const bool ok = !driver.hasError();
        const std::string error = driver.getLastError().toStdString();
        if (trace)
            std::fprintf(stderr, "%s -> %s%s (%zu requests)\n", describe(c).c_str(),
                ok ? "ok" : "failed: ", ok ? "" : error.c_str(), link.requests.size());

        if (!ok && error.empty())
            fail("failed without an error text: " + describe(c));
        // A bit write without data (a register-bit write reads the registers
        // its bits cover and writes them back) that covers no register ends
        // with false and no text: the empty read of no registers.
        const bool coversNoRegister = !c.read && c.data.isEmpty() && (c.type == Bit || c.type == BitBlock);
        if (!c.read && written != ok && !(coversNoRegister && !written))
            fail("write result disagrees with hasError(): " + describe(c));
        if (e.decided && ok != e.ok)
            fail(std::string(ok ? "succeeded, but the slave could not serve it: "
                                : "failed against a slave that serves it: ")
                + describe(c) + " -> " + error);
        for (const std::pair<int, int> &r : link.requests)
            if (!e.allowed.count(r))
                fail("request to station " + std::to_string(r.first) + " with function "
                    + std::to_string(r.second) + " not asked for: " + describe(c));
        if (c.read && ok && e.decided && result != e.result)
            fail("read returned " + toHex(result.left(32)) + " instead of " + toHex(e.result.left(32)) + ": "
                + describe(c));
        if (c.read || !ok) {
            // Nothing changes that the command did not name, with the value it gave.
            for (const auto &w : link.map.writes) {
                const auto was = before.writes.find(w.first);
                const quint16 old = was == before.writes.end() ? pattern(w.first) : was->second;
                const auto want = ref.map.writes.find(w.first);
                if (w.second != old && (want == ref.map.writes.end() || want->second != w.second))
                    fail("changed a cell the command did not name: " + describe(c));
            }
            if (c.read && link.map.writes != before.writes)
                fail("a read wrote: " + describe(c));
        } else if (link.map.writes != ref.map.writes) {
            // Only written cells are in the maps; a cell written with the
            // value it had counts as unchanged.
            for (const auto &w : ref.map.writes)
                if (link.map.get(int(w.first >> 18), Area(w.first >> 16 & 3), w.first & 0xFFFF) != w.second)
                    fail("write left a cell other than the address and data say: " + describe(c));
            for (const auto &w : link.map.writes)
                if (ref.map.get(int(w.first >> 18), Area(w.first >> 16 & 3), w.first & 0xFFFF) != w.second)
                    fail("write changed a cell the command did not name: " + describe(c));
        }
        if (!sameWindow(driver.specialRegisterTable(), ref.window))
            fail("window table differs: " + describe(c));
    }
    return 0;
}
