#include "generator.h"

#include "model.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <iterator>

namespace {

// The register window: zero-based 59999..60009, texts HR60000..HR60010.
const int WindowFirst = DriverRules::WindowFirst;
const int WindowLast = WindowFirst + DriverRules::RelayIndex;

// A command the driver must refuse without sending anything.
struct RefusedShape
{
    const char *why;
    int dataType;
    int count; // of a read
    const char *prefix, *orPrefix; // orPrefix, when there is one, half the time
    int start, orStart; // zero-based; start -1: drawn from 0..1000; orStart, when not -1, half the time
    int bit; // -1: no bit part
    char data; // 'r' a read, 'w' a write of words, 'b' of bit states, '?' either, of words
    int elements; // words or bit states written
    int bytes; // the data cut to this many bytes, or -1
    int station; // 0: drawn from the served ones
};

const RefusedShape RefusedShapes[] = {
    { "more than 125 registers", 2, 126, "HR", nullptr, -1, -1, -1, 'r', 0, -1, 0 },
    { "more than 125 registers as double words", 3, 63, "IR", nullptr, -1, -1, -1, 'r', 0, -1, 0 },
    { "more than 125 registers as bytes", 1, 251, "HR", nullptr, -1, -1, -1, 'r', 0, -1, 0 },
    { "more than 2008 bits", 0, 2009, "DI", "DO", -1, -1, -1, 'r', 0, -1, 0 },
    { "past the top of the address space", 2, 7, "HR", nullptr, 65530, -1, -1, 'r', 0, -1, 0 },
    { "register bits that need 126 registers", 0, 2001, "HR", nullptr, -1, -1, 0, 'r', 0, -1, 0 },
    { "more than 123 registers in one write", 2, 1, "HR", nullptr, -1, -1, -1, 'w', 124, -1, 0 },
    { "more than 1976 coils", 0, 1, "DO", nullptr, -1, -1, -1, 'b', 1977, -1, 0 },
    { "input registers cannot be written", 2, 1, "IR", nullptr, -1, -1, -1, 'w', 1, -1, 0 },
    { "inputs cannot be written", 0, 1, "DI", nullptr, -1, -1, -1, 'b', 1, -1, 0 },
    { "coils take no bytes", 1, 1, "DO", nullptr, -1, -1, -1, 'w', 1, -1, 0 },
    { "input registers take no double words", 3, 1, "IR", nullptr, -1, -1, -1, 'w', 2, -1, 0 },
    { "an unsupported data type", 4, 1, "HR", nullptr, -1, -1, -1, '?', 4, -1, 0 },
    { "past the end of the register window", 2, 7, "HR", nullptr, WindowFirst + 5, -1, -1, 'r', 0, -1, 0 },
    { "HR60010 takes one word on its own", 2, 1, "HR", nullptr, WindowLast - 1, WindowLast, -1, 'w', 2, -1,
        0 },
    { "words of an odd number of bytes", 2, 1, "HR", nullptr, -1, -1, -1, 'w', 2, 3, 0 },
    { "a station number above 255", 2, 1, "HR", nullptr, -1, -1, -1, 'r', 0, -1, 300 },
    { "a double word in the last register", 3, 1, "HR", nullptr, 65535, -1, -1, 'w', 2, -1, 0 },
    { "coils past the top of the address space", 0, 1, "DO", nullptr, 65535, -1, -1, 'b', 2, -1, 0 },
};

// The zero-based register or coil number in a command's address text.
int numberOf(const SoakCommand &c) { return std::atoi(c.address.c_str() + c.prefix.size()) - 1; }

} // namespace

CommandGenerator::CommandGenerator(unsigned seed, const std::vector<int> &served)
    : random(seed)
    , stations(served)
{
}

int CommandGenerator::uniform(int low, int high)
{
    return std::uniform_int_distribution<int>(low, high)(random);
}

bool CommandGenerator::chance(double p)
{
    return std::uniform_real_distribution<double>(0.0, 1.0)(random) < p;
}

int CommandGenerator::station() { return stations[size_t(uniform(0, int(stations.size()) - 1))]; }

int CommandGenerator::countUpTo(int most)
{
    const int r = uniform(1, 100);
    if (r <= 60)
        return uniform(1, std::min(4, most));
    if (r <= 85)
        return uniform(1, std::min(32, most));
    if (r <= 95)
        return uniform(1, most);
    return most;
}

int CommandGenerator::startFor(int span, bool avoidWindow)
{
    const int top = 65536 - span;
    for (;;) {
        const int r = uniform(1, 100);
        int start;
        if (r <= 55)
            start = uniform(0, 63);
        else if (r <= 65)
            start = uniform(1290, 1310);
        else if (r <= 90)
            start = uniform(0, top);
        else
            start = top - uniform(0, 3);
        start = std::max(0, std::min(start, top));
        if (!avoidWindow || start < WindowFirst || start > WindowLast)
            return start;
    }
}

QByteArray CommandGenerator::words(int n)
{
    QByteArray out;
    for (int i = 0; i < 2 * n; ++i)
        out.append(char(uniform(0, 255)));
    return out;
}

QByteArray CommandGenerator::bitStates(int n)
{
    // Any byte other than 0 means on.
    static const char on[] = { 1, 1, 1, char(0x80), char(0xFF), 2 };
    QByteArray out;
    for (int i = 0; i < n; ++i)
        out.append(chance(0.5) ? on[uniform(0, 5)] : char(0));
    return out;
}

std::string CommandGenerator::text(const std::string &prefix, int start, int bit, bool swap)
{
    std::string p = prefix;
    const bool lower = chance(0.1);
    if (lower)
        for (char &ch : p)
            ch = char(std::tolower(static_cast<unsigned char>(ch)));
    std::string out = p + std::to_string(start + 1);
    if (bit >= 0)
        out += "." + std::to_string(bit);
    if (swap)
        out += lower ? "sw" : "SW";
    return out;
}

SoakCommand CommandGenerator::next(const SoakModel &model)
{
    SoakCommand c = draw(model);
    // What the command does comes from the driver's selection rules, the
    // same that the address fuzzer applies; the generator chose its shape.
    if (c.op != Op::Refused)
        c.op = DriverRules::select(c.write, c.dataType, c.prefix, numberOf(c), c.data.size());
    const bool ordinary = c.op != Op::ReadWindow && c.op != Op::WriteWindowWords && c.op != Op::WriteWindowBit
        && c.op != Op::Relay && c.op != Op::RelayBit && c.op != Op::Refused;
    previous = c;
    havePrevious = ordinary;
    return c;
}

SoakCommand CommandGenerator::draw(const SoakModel &model)
{
    if (havePrevious && chance(0.5))
        return sibling();
    const int r = uniform(1, 100);
    if (r <= 12)
        return readWords();
    if (r <= 18)
        return readDWords();
    if (r <= 24)
        return readBytes();
    if (r <= 32)
        return readBits();
    if (r <= 38)
        return readRegisterBits();
    if (r <= 43)
        return readWindow(model);
    if (r <= 53)
        return writeWords();
    if (r <= 59)
        return writeDWords();
    if (r <= 65)
        return writeBytes();
    if (r <= 73)
        return writeCoils();
    if (r <= 81)
        return writeRegisterBits();
    if (r <= 93)
        return window(model);
    return refused();
}

SoakCommand CommandGenerator::readWords()
{
    SoakCommand c;
    c.dataType = 2;
    c.station = station();
    const int r = uniform(1, 100);
    const std::string prefix = r <= 45 ? "HR" : r <= 60 ? "FN6HR" : "IR";
    c.area = prefix == "IR" ? Area::InputRegisters : Area::HoldingRegisters;
    c.count = c.elements = countUpTo(125);
    c.start = startFor(c.count, c.area == Area::HoldingRegisters);
    c.prefix = prefix;
    c.address = text(prefix, c.start);
    return c;
}

SoakCommand CommandGenerator::readDWords()
{
    SoakCommand c;
    c.dataType = 3;
    c.station = station();
    const int r = uniform(1, 100);
    const std::string prefix = r <= 45 ? "HR" : r <= 55 ? "FN6HR" : "IR";
    c.area = prefix == "IR" ? Area::InputRegisters : Area::HoldingRegisters;
    c.swap = chance(0.5);
    c.count = c.elements = countUpTo(62);
    c.start = startFor(2 * c.count, false);
    c.prefix = prefix;
    c.address = text(prefix, c.start, -1, c.swap);
    return c;
}

SoakCommand CommandGenerator::readBytes()
{
    SoakCommand c;
    c.dataType = chance(0.3) ? 5 : 1; // Block is read as Byte
    c.station = station();
    const int r = uniform(1, 100);
    const std::string prefix = r <= 45 ? "HR" : r <= 55 ? "FN6HR" : "IR";
    c.area = prefix == "IR" ? Area::InputRegisters : Area::HoldingRegisters;
    c.count = c.elements = countUpTo(250);
    c.start = startFor((c.count + 1) / 2, false);
    c.prefix = prefix;
    c.address = text(prefix, c.start);
    return c;
}

SoakCommand CommandGenerator::readBits()
{
    SoakCommand c;
    c.dataType = chance(0.3) ? 6 : 0; // BitBlock is read as Bit
    c.station = station();
    const int r = uniform(1, 100);
    const std::string prefix = r <= 40 ? "DO" : r <= 60 ? "FN5DO" : "DI";
    c.area = prefix == "DI" ? Area::DiscreteInputs : Area::Coils;
    c.count = c.elements = countUpTo(2008);
    c.start = startFor(c.count, false);
    c.prefix = prefix;
    c.address = text(prefix, c.start);
    return c;
}

SoakCommand CommandGenerator::readRegisterBits()
{
    SoakCommand c;
    c.dataType = chance(0.3) ? 6 : 0;
    c.station = station();
    const int r = uniform(1, 100);
    const std::string prefix = r <= 45 ? "HR" : r <= 55 ? "FN6HR" : "IR";
    c.area = prefix == "IR" ? Area::InputRegisters : Area::HoldingRegisters;
    c.bit = chance(0.8) ? uniform(0, 15) : uniform(16, 40);
    c.count = c.elements = countUpTo(125 * 16 - c.bit);
    c.start = startFor((c.bit + c.count + 15) / 16, false);
    // Without a bit part the driver reads from bit 0.
    c.prefix = prefix;
    c.address = text(prefix, c.start, c.bit == 0 && chance(0.3) ? -1 : c.bit);
    return c;
}

SoakCommand CommandGenerator::readWindow(const SoakModel &model)
{
    SoakCommand c;
    c.dataType = 2;
    c.station = station();
    // Reads that reach HR60010 read it back from a station; those that would
    // only time out are drawn less often.
    const int readBack = model.readBackStation();
    const bool reachRelay = chance(readBack < 0 || model.serves(readBack) ? 0.4 : 0.1);
    c.start = uniform(0, reachRelay ? 10 : 9);
    c.count = c.elements = reachRelay ? 11 - c.start : uniform(1, 10 - c.start);
    c.prefix = chance(0.7) ? "HR" : "FN6HR";
    c.address = text(c.prefix, WindowFirst + c.start);
    return c;
}

SoakCommand CommandGenerator::writeWords()
{
    SoakCommand c;
    c.write = true;
    c.dataType = 2;
    c.station = station();
    c.single = chance(0.3);
    c.count = c.elements = c.single ? uniform(1, 6) : countUpTo(123);
    c.start = startFor(c.count, true);
    c.data = words(c.count);
    c.prefix = c.single ? "FN6HR" : "HR";
    c.address = text(c.prefix, c.start);
    return c;
}

SoakCommand CommandGenerator::writeDWords()
{
    SoakCommand c;
    c.write = true;
    c.dataType = 3;
    c.station = station();
    c.single = chance(0.25);
    c.swap = chance(0.5);
    c.count = c.elements = c.single ? uniform(1, 3) : countUpTo(61);
    c.start = startFor(2 * c.count, false);
    c.data = words(2 * c.count);
    c.prefix = c.single ? "FN6HR" : "HR";
    c.address = text(c.prefix, c.start, -1, c.swap);
    return c;
}

SoakCommand CommandGenerator::writeBytes()
{
    SoakCommand c;
    c.write = true;
    c.dataType = chance(0.3) ? 5 : 1;
    c.station = station();
    c.single = chance(0.25);
    c.count = c.elements = c.single ? uniform(1, 6) : countUpTo(246);
    c.start = startFor((c.count + 1) / 2, false);
    c.data = words(c.count);
    c.data.resize(c.count);
    c.prefix = c.single ? "FN6HR" : "HR";
    c.address = text(c.prefix, c.start);
    return c;
}

SoakCommand CommandGenerator::writeCoils()
{
    SoakCommand c;
    c.write = true;
    c.dataType = chance(0.3) ? 6 : 0;
    c.station = station();
    c.area = Area::Coils;
    c.single = chance(0.25);
    c.count = c.elements = c.single ? uniform(1, 6) : countUpTo(1976);
    c.start = startFor(c.count, false);
    c.data = bitStates(c.count);
    c.prefix = c.single ? "FN5DO" : "DO";
    c.address = text(c.prefix, c.start);
    return c;
}

SoakCommand CommandGenerator::writeRegisterBits()
{
    SoakCommand c;
    c.write = true;
    c.dataType = chance(0.3) ? 6 : 0;
    c.station = station();
    c.single = chance(0.3);
    c.bit = chance(0.8) ? uniform(0, 15) : uniform(16, 31);
    // Function 16 writes back at most 123 registers; the function-6 form
    // writes one register per request, so it stays short.
    c.count = c.elements = c.single ? uniform(1, std::min(20, 3 * 16 - c.bit)) : countUpTo(123 * 16 - c.bit);
    c.start = startFor((c.bit + c.count + 15) / 16, true);
    c.data = bitStates(c.count);
    c.prefix = c.single ? "FN6HR" : "HR";
    c.address = text(c.prefix, c.start, c.bit == 0 && chance(0.3) ? -1 : c.bit);
    return c;
}

SoakCommand CommandGenerator::window(const SoakModel &model)
{
    // A relay that would only time out at some of its stations is worth a
    // few commands, not most of them: mostly put the table right first.
    bool costly = model.window(SoakModel::CountIndex) > 3;
    for (int s : model.relayStations())
        costly = costly || !model.serves(s);
    if (costly && chance(0.8))
        return configureWindow();

    SoakCommand c;
    c.write = true;
    c.station = station();
    const int r = uniform(1, 100);
    if (r <= 30)
        return configureWindow();
    if (r <= 40) {
        // A bit of the table; one of the station count sets the count to 8.
        c.dataType = chance(0.3) ? 6 : 0;
        c.start = chance(0.1) ? 0 : uniform(1, 9);
        c.bit = chance(0.9) ? uniform(0, 15) : uniform(16, 20);
        c.count = c.elements = chance(0.8) ? 1 : 2;
        c.data = bitStates(c.count);
        c.prefix = chance(0.7) ? "HR" : "FN6HR";
        c.address = text(c.prefix, WindowFirst + c.start, c.bit);
        return c;
    }
    c.start = SoakModel::RelayIndex;
    c.single = chance(0.4);
    if (r <= 75) {
        c.dataType = 2;
        c.count = c.elements = 1;
        c.data = words(1);
        c.prefix = c.single ? "FN6HR" : "HR";
        c.address = text(c.prefix, WindowLast);
        return c;
    }
    c.dataType = chance(0.3) ? 6 : 0;
    c.bit = chance(0.9) ? uniform(0, 15) : uniform(16, 19);
    c.count = c.elements = chance(0.8) ? 1 : 2;
    c.data = bitStates(c.count);
    c.prefix = c.single ? "FN6HR" : "HR";
    c.address = text(c.prefix, WindowLast, c.bit);
    return c;
}

SoakCommand CommandGenerator::configureWindow()
{
    SoakCommand c;
    c.write = true;
    c.dataType = 2;
    c.station = station();
    // Mostly stations that answer; now and then one that does not (the next
    // number after the served ones) or a broadcast (0).
    auto listed = [&]() {
        const int r = uniform(1, 100);
        if (r <= 2)
            return 0;
        if (r <= 6)
            return std::min(247, *std::max_element(stations.begin(), stations.end()) + 1);
        return station();
    };
    auto word = [](QByteArray &data, int v) {
        data.append(char(v & 0xFF));
        data.append(char((v >> 8) & 0xFF));
    };
    if (chance(0.6)) {
        // The count and the list from HR60000 on, sometimes through the
        // read-back station (a number above 8 is kept as 8).
        const int count = chance(0.1) ? 0 : uniform(1, 3);
        const bool throughReadBack = chance(0.5);
        const int entries = throughReadBack ? 8 : std::max(count, 1);
        c.start = 0;
        word(c.data, count);
        for (int e = 0; e < entries; ++e)
            word(c.data, listed());
        if (throughReadBack)
            word(c.data, chance(0.9) ? station() : uniform(9, 20));
    } else {
        c.start = uniform(1, 9);
        word(c.data, c.start == 9 && chance(0.2) ? uniform(9, 300) : listed());
    }
    c.count = c.elements = c.data.size() / 2;
    c.prefix = chance(0.7) ? "HR" : "FN6HR";
    c.address = text(c.prefix, WindowFirst + c.start);
    return c;
}

SoakCommand CommandGenerator::refused()
{
    const RefusedShape &shape = RefusedShapes[size_t(uniform(0, int(std::size(RefusedShapes)) - 1))];
    SoakCommand c;
    c.op = Op::Refused;
    c.station = shape.station ? shape.station : station();
    c.dataType = shape.dataType;
    c.write = shape.data == 'w' || shape.data == 'b' || (shape.data == '?' && chance(0.5));
    c.count = c.write ? 1 : shape.count;
    if (c.write)
        c.data = shape.data == 'b' ? bitStates(shape.elements) : words(shape.elements);
    if (shape.bytes >= 0)
        c.data.resize(shape.bytes);
    c.prefix = shape.orPrefix && chance(0.5) ? shape.orPrefix : shape.prefix;
    c.start = shape.start < 0               ? uniform(0, 1000)
        : shape.orStart >= 0 && chance(0.5) ? shape.orStart
                                            : shape.start;
    c.address = text(c.prefix, c.start, shape.bit);
    return c;
}

SoakCommand CommandGenerator::sibling()
{
    SoakCommand c = previous;
    int span = c.elements;
    bool avoidWindow = false;
    switch (c.op) {
    case Op::ReadWords:
    case Op::WriteWords:
        avoidWindow = c.area == Area::HoldingRegisters;
        break;
    case Op::ReadDWords:
    case Op::WriteDWords:
        span = 2 * c.elements;
        break;
    case Op::ReadBytes:
    case Op::WriteBytes:
        span = (c.elements + 1) / 2;
        break;
    case Op::ReadRegisterBits:
    case Op::WriteRegisterBits:
        span = (c.bit + c.elements + 15) / 16;
        avoidWindow = c.op == Op::WriteRegisterBits;
        break;
    default:
        break;
    }
    c.start = startFor(span, avoidWindow);
    const bool bits = c.op == Op::ReadRegisterBits || c.op == Op::WriteRegisterBits;
    c.address = text(c.prefix, c.start, bits ? c.bit : -1, c.swap);
    if (c.write) {
        const int size = c.data.size();
        c.data = c.op == Op::WriteCoils || c.op == Op::WriteRegisterBits ? bitStates(size)
                                                                         : words((size + 1) / 2);
        c.data.resize(size);
    }
    return c;
}
