#include "generator.h"

#include "model.h"

#include <algorithm>
#include <cctype>

namespace {

// The register window: zero-based 59999..60009, texts HR60000..HR60010.
const int WindowFirst = 59999;
const int WindowLast = 60009;

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
    c.op = Op::ReadWords;
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
    c.op = Op::ReadDWords;
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
    c.op = Op::ReadBytes;
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
    c.op = Op::ReadBits;
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
    c.op = Op::ReadRegisterBits;
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
    c.op = Op::ReadWindow;
    c.dataType = 2;
    c.station = station();
    // Reads that reach HR60010 read it back from a station; those that would
    // only time out are drawn less often.
    const int readBack = model.readBackStation();
    const bool reachRelay = chance(readBack < 0 || model.serves(readBack) ? 0.4 : 0.1);
    c.start = uniform(0, reachRelay ? 10 : 9);
    c.count = c.elements = reachRelay ? 11 - c.start : uniform(1, 10 - c.start);
    c.address = text(chance(0.7) ? "HR" : "FN6HR", WindowFirst + c.start);
    return c;
}

SoakCommand CommandGenerator::writeWords()
{
    SoakCommand c;
    c.op = Op::WriteWords;
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
    c.op = Op::WriteDWords;
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
    c.op = Op::WriteBytes;
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
    c.op = Op::WriteCoils;
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
    c.op = Op::WriteRegisterBits;
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
        c.op = Op::WriteWindowBit;
        c.dataType = chance(0.3) ? 6 : 0;
        c.start = chance(0.1) ? 0 : uniform(1, 9);
        c.bit = chance(0.9) ? uniform(0, 15) : uniform(16, 20);
        c.count = c.elements = chance(0.8) ? 1 : 2;
        c.data = bitStates(c.count);
        c.address = text(chance(0.7) ? "HR" : "FN6HR", WindowFirst + c.start, c.bit);
        return c;
    }
    c.start = SoakModel::RelayIndex;
    c.single = chance(0.4);
    if (r <= 75) {
        c.op = Op::Relay;
        c.dataType = 2;
        c.count = c.elements = 1;
        c.data = words(1);
        c.address = text(c.single ? "FN6HR" : "HR", WindowLast);
        return c;
    }
    c.op = Op::RelayBit;
    c.dataType = chance(0.3) ? 6 : 0;
    c.bit = chance(0.9) ? uniform(0, 15) : uniform(16, 19);
    c.count = c.elements = chance(0.8) ? 1 : 2;
    c.data = bitStates(c.count);
    c.address = text(c.single ? "FN6HR" : "HR", WindowLast, c.bit);
    return c;
}

SoakCommand CommandGenerator::configureWindow()
{
    SoakCommand c;
    c.op = Op::WriteWindowWords;
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
    c.address = text(chance(0.7) ? "HR" : "FN6HR", WindowFirst + c.start);
    return c;
}

SoakCommand CommandGenerator::refused()
{
    SoakCommand c;
    c.op = Op::Refused;
    c.station = station();
    c.dataType = 2;
    switch (uniform(0, 18)) {
    case 0: // more than 125 registers
        c.count = 126;
        c.address = text("HR", uniform(0, 1000));
        break;
    case 1:
        c.dataType = 3;
        c.count = 63;
        c.address = text("IR", uniform(0, 1000));
        break;
    case 2:
        c.dataType = 1;
        c.count = 251;
        c.address = text("HR", uniform(0, 1000));
        break;
    case 3: // more than 2008 bits
        c.dataType = 0;
        c.count = 2009;
        c.address = text(chance(0.5) ? "DI" : "DO", uniform(0, 1000));
        break;
    case 4: // past the top of the address space
        c.count = 7;
        c.address = text("HR", 65530);
        break;
    case 5: // register bits that need 126 registers
        c.dataType = 0;
        c.count = 2001;
        c.address = text("HR", uniform(0, 1000), 0);
        break;
    case 6: // more than 123 registers in one write
        c.write = true;
        c.data = words(124);
        c.address = text("HR", uniform(0, 1000));
        break;
    case 7: // more than 1976 coils
        c.write = true;
        c.dataType = 0;
        c.data = bitStates(1977);
        c.address = text("DO", uniform(0, 1000));
        break;
    case 8: // areas that cannot be written
        c.write = true;
        c.data = words(1);
        c.address = text("IR", uniform(0, 1000));
        break;
    case 9:
        c.write = true;
        c.dataType = 0;
        c.data = bitStates(1);
        c.address = text("DI", uniform(0, 1000));
        break;
    case 10:
        c.write = true;
        c.dataType = 1;
        c.data = words(1);
        c.address = text("DO", uniform(0, 1000));
        break;
    case 11:
        c.write = true;
        c.dataType = 3;
        c.data = words(2);
        c.address = text("IR", uniform(0, 1000));
        break;
    case 12: // an unsupported data type
        c.write = chance(0.5);
        c.dataType = 4;
        c.count = 1;
        c.data = c.write ? words(4) : QByteArray();
        c.address = text("HR", uniform(0, 1000));
        break;
    case 13: // past the end of the register window
        c.count = 7;
        c.address = text("HR", WindowFirst + 5);
        break;
    case 14: // HR60010 takes one word on its own
        c.write = true;
        c.data = words(2);
        c.address = text("HR", chance(0.5) ? WindowLast - 1 : WindowLast);
        break;
    case 15: // words of an odd number of bytes
        c.write = true;
        c.data = words(2);
        c.data.resize(3);
        c.address = text("HR", uniform(0, 1000));
        break;
    case 16: // a station number above 255
        c.station = 300;
        c.count = 1;
        c.address = text("HR", uniform(0, 1000));
        break;
    case 17: // a double word in the last register
        c.write = true;
        c.dataType = 3;
        c.data = words(2);
        c.address = text("HR", 65535);
        break;
    default:
        c.write = true;
        c.dataType = 0;
        c.data = bitStates(2);
        c.address = text("DO", 65535);
        break;
    }
    if (c.write)
        c.count = 1;
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
