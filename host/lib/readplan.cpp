#include "readplan.h"

#include <algorithm>
#include <tuple>

int tagSpan(const Tag &t)
{
    const AddressText &a = t.address;
    if (!a.isRegister())
        return t.count;
    if (t.format) {
        int registers = 1;
        std::string ignored;
        return formattedRegisterCount(a, *t.format, t.count, registers, ignored) ? registers : 1;
    }
    switch (t.type) {
    case ValueType::Bit:
        return (std::max(a.bit, 0) + t.count + 15) / 16;
    case ValueType::Byte:
        return (t.count + 1) / 2;
    case ValueType::DWord:
        return 2 * t.count;
    case ValueType::Word:
        break;
    }
    return t.count;
}

namespace {

// Whether a tag may share a read: registers and bits of the drive; not the
// driver's own window, nor a byte read, nor a read the driver refuses.
bool joinable(const Tag &t)
{
    std::string ignored;
    if (!t.format && t.type == ValueType::Byte)
        return false;
    const int last = t.address.number + tagSpan(t) - 1;
    if (t.address.area == Area::HoldingRegisters && last >= driverWindowFirst
        && t.address.number <= driverWindowLast)
        return false;
    return tagFitsDriver(t, false, ignored);
}

// A block of one station and area from first to last (registers or bits).
struct JoinedSpan
{
    int station = -1;
    Area area = Area::HoldingRegisters;
    int first = 0, last = 0;
    std::vector<size_t> members;
};

// Whether t can join b: the same station and area, no more than gap apart,
// within the driver's read limit, not reaching over the driver's window nor
// over a tag kept out of joined reads.
bool extends(const JoinedSpan &b, const Tag &t, int gap, const std::vector<JoinedSpan> &keptOut)
{
    const AddressText &a = t.address;
    if (t.station != b.station || a.area != b.area)
        return false;
    const long long apart = (long long)a.number - b.last - 1;
    if (apart > (a.isRegister() ? (long long)gap : 16LL * gap))
        return false;
    const int last = std::max(b.last, a.number + tagSpan(t) - 1);
    const long long limit = a.isRegister() ? driverMaxReadRegisters : driverMaxReadBits;
    if (last - b.first + 1 > limit)
        return false;
    if (a.area == Area::HoldingRegisters && b.first < driverWindowFirst && last >= driverWindowFirst)
        return false;
    return std::none_of(keptOut.begin(), keptOut.end(), [&](const JoinedSpan &k) {
        return k.station == b.station && k.area == b.area && k.first <= last && k.last >= b.first;
    });
}

PlannedRead alone(const std::vector<Tag> &tags, size_t i)
{
    PlannedRead r;
    r.tag = tags[i];
    r.members = { i };
    return r;
}

PlannedRead readOf(const JoinedSpan &b, const std::vector<Tag> &tags)
{
    if (b.members.size() == 1)
        return alone(tags, b.members.front());
    PlannedRead r;
    AddressText &a = r.tag.address;
    a.area = b.area;
    a.prefix = areaPrefix(b.area);
    a.number = b.first;
    r.tag.type = a.isRegister() ? ValueType::Word : ValueType::Bit;
    r.tag.count = b.last - b.first + 1;
    r.tag.station = b.station;
    r.tag.text = a.text();
    r.members = b.members;
    r.joined = true;
    return r;
}

JoinedSpan blockOf(const Tag &t, size_t i)
{
    return JoinedSpan { t.station, t.address.area, t.address.number, t.address.number + tagSpan(t) - 1,
        { i } };
}

} // namespace

std::vector<PlannedRead> planReads(const std::vector<Tag> &tags, int gap, const std::vector<bool> &excluded)
{
    std::vector<size_t> order;
    std::vector<PlannedRead> reads;
    std::vector<JoinedSpan> keptOut; // what no joined read may cover
    for (size_t i = 0; i < tags.size(); ++i) {
        const bool kept = i < excluded.size() && excluded[i];
        if (gap >= 0 && joinable(tags[i]) && !kept)
            order.push_back(i);
        else
            reads.push_back(alone(tags, i));
        if (kept)
            keptOut.push_back(blockOf(tags[i], i));
    }
    std::stable_sort(order.begin(), order.end(), [&tags](size_t x, size_t y) {
        const Tag &a = tags[x], &b = tags[y];
        return std::make_tuple(a.station, a.address.area, a.address.number)
            < std::make_tuple(b.station, b.address.area, b.address.number);
    });
    JoinedSpan block;
    for (size_t i : order) {
        if (!block.members.empty() && extends(block, tags[i], gap, keptOut)) {
            block.last = std::max(block.last, tags[i].address.number + tagSpan(tags[i]) - 1);
            block.members.push_back(i);
            continue;
        }
        if (!block.members.empty())
            reads.push_back(readOf(block, tags));
        block = blockOf(tags[i], i);
    }
    if (!block.members.empty())
        reads.push_back(readOf(block, tags));
    auto firstPlace
        = [](const PlannedRead &r) { return *std::min_element(r.members.begin(), r.members.end()); };
    std::stable_sort(reads.begin(), reads.end(),
        [&](const PlannedRead &x, const PlannedRead &y) { return firstPlace(x) < firstPlace(y); });
    return reads;
}

namespace {

// The bytes the driver returns for a read of t alone, from the words (bits
// outside registers) of a joined read that begin at t's first one.
QByteArray driverBytes(const Tag &t, const std::vector<Element> &from, size_t at)
{
    QByteArray out;
    auto word = [&](size_t k) { return from[at + k].value & 0xFFFF; };
    if (t.type == ValueType::Bit) {
        out.fill('\0', (t.count + 7) / 8);
        const int first = t.address.isRegister() ? std::max(t.address.bit, 0) : 0;
        for (int i = 0; i < t.count; ++i) {
            const int k = first + i;
            const uint32_t bit = t.address.isRegister() ? (word(size_t(k / 16)) >> (k % 16)) & 1
                                                        : from[at + size_t(i)].value & 1;
            out[i / 8] = char(static_cast<unsigned char>(out[i / 8]) | (bit << (i % 8)));
        }
        return out;
    }
    std::vector<uint32_t> values;
    for (int i = 0; i < t.count; ++i) {
        if (t.type != ValueType::DWord) {
            values.push_back(word(size_t(i)));
            continue;
        }
        const uint32_t first = word(2 * size_t(i)), second = word(2 * size_t(i) + 1);
        values.push_back(t.address.swap ? (first << 16) | second : (second << 16) | first);
    }
    return packValues(values, t.type);
}

} // namespace

FormattedResult memberResult(const Tag &block, const Tag &t, const DriverHost::Result &r)
{
    const int span = tagSpan(t);
    if (!r.ok)
        return textsOfRead(r, t.address, t.format, span);
    const long long at = (long long)t.address.number - block.address.number;
    if (t.address.area != block.address.area || at < 0 || size_t(at + span) > r.elements.size()) {
        DriverHost::Result failed = r;
        failed.ok = false;
        failed.errorText = "the read of " + block.address.text() + " did not cover " + t.address.text();
        failed.error = classifyDriverError(failed.errorText);
        return textsOfRead(failed, t.address, t.format, span);
    }
    DriverHost::Result part = r;
    if (t.format)
        part.elements.assign(r.elements.begin() + at, r.elements.begin() + at + span);
    else
        part.elements = unpackValues(driverBytes(t, r.elements, size_t(at)), t.address, t.type, t.count);
    return textsOfRead(part, t.address, t.format, span);
}
