#include "formattedio.h"

namespace {

// The address whose words the driver moves: the same registers without "SW".
AddressText plainWords(const AddressText &address)
{
    AddressText plain = address;
    plain.swap = false;
    return plain;
}

} // namespace

bool settleFormat(const AddressText &address, ValueFormat &format, std::string &error)
{
    const std::string name = format.text();
    const std::string plain = plainWords(address).textAt(address.number, -1);
    if (!address.isRegister()) {
        error = "formats apply to registers: " + address.text() + " is a " + areaName(address.area)
            + " (read its bits with --type bit)";
        return false;
    }
    if (address.bit >= 0) {
        error = "formats apply to whole registers: " + address.text() + " names bit "
            + std::to_string(address.bit) + " (give " + address.textAt(address.number, -1)
            + ", or --type bit)";
        return false;
    }
    if (address.swap && !format.isWide()) {
        error = "\"SW\" in " + address.text() + " orders the words of 32- and 64-bit values, not of " + name;
        return false;
    }
    const bool lowFirst = format.order == WordOrder::CDAB || format.order == WordOrder::DCBA;
    if (address.swap && format.orderGiven && lowFirst) {
        error = address.text() + " puts the high word first, which " + name + " contradicts (give " + plain
            + " for low word first)";
        return false;
    }
    if (format.isWide() && !format.orderGiven)
        format.order = address.swap ? WordOrder::ABCD : WordOrder::CDAB;
    return true;
}

bool formattedRegisterCount(
    const AddressText &address, const ValueFormat &format, int count, int &registers, std::string &error)
{
    const long long total = (long long)count * format.registersPerValue();
    if (count < 1 || address.number + total - 1 > 65536) {
        error = std::to_string(count) + " " + format.text() + " value(s) from " + address.text() + " take "
            + std::to_string(total) + " registers, past the last one (65536)";
        return false;
    }
    registers = int(total);
    return true;
}

bool registersFromTexts(const std::vector<std::string> &texts, const ValueFormat &format,
    std::optional<int> padTo, std::vector<uint16_t> &registers, std::string &error)
{
    std::vector<uint16_t> all;
    if (format.number == NumberFormat::String && texts.size() != 1) {
        error = "a string is one value: quote it as one word, such as \"servo 1\"";
        return false;
    }
    for (const std::string &text : texts) {
        std::vector<uint16_t> one;
        if (!parseFormatted(text, format, one, error))
            return false;
        all.insert(all.end(), one.begin(), one.end());
    }
    if (padTo && format.number == NumberFormat::String) {
        if (int(all.size()) > *padTo) {
            error = "the string takes " + std::to_string(all.size()) + " registers, more than the "
                + std::to_string(*padTo) + " given";
            return false;
        }
        all.resize(size_t(*padTo), 0);
    }
    registers = all;
    return true;
}

FormattedResult textsOfRead(const DriverHost::Result &r, const AddressText &address,
    const std::optional<ValueFormat> &format, int registers)
{
    FormattedResult out;
    out.answeredMs = r.answeredMs;
    out.requestsSent = r.requestsSent;
    out.errorText = r.errorText;
    out.error = r.error;
    if (!r.ok)
        return out;
    if (!format) {
        for (const Element &e : r.elements) {
            out.addresses.push_back(e.address);
            out.values.push_back(std::to_string(e.value));
        }
        out.ok = true;
        return out;
    }
    std::vector<uint16_t> words;
    for (const Element &e : r.elements)
        words.push_back(uint16_t(e.value));
    if (!formatRegisters(words, *format, out.values, out.errorText)) {
        out.error = classifyDriverError(out.errorText);
        return out;
    }
    const int per = format->number == NumberFormat::String ? registers : format->registersPerValue();
    for (size_t i = 0; i < out.values.size(); ++i)
        out.addresses.push_back(address.textAt(address.number + int(i) * per, -1));
    out.ok = true;
    return out;
}

FormattedResult readFormatted(const DriverHost &host, CommandLink link, const AddressText &address,
    const ValueFormat &format, int count)
{
    int registers = 0;
    std::string error;
    if (!formattedRegisterCount(address, format, count, registers, error)) {
        FormattedResult out;
        out.errorText = error;
        out.error = classifyDriverError(out.errorText);
        return out;
    }
    const DriverHost::Result r = host.read(link, plainWords(address), ValueType::Word, registers);
    return textsOfRead(r, address, format, registers);
}

FormattedResult readAsTexts(const DriverHost &host, CommandLink link, const AddressText &address,
    ValueType type, const std::optional<ValueFormat> &format, int count)
{
    if (format)
        return readFormatted(host, link, address, *format, count);
    return textsOfRead(host.read(link, address, type, count), address, std::nullopt, 0);
}

DriverHost::Result writeRegisters(const DriverHost &host, CommandLink link, const AddressText &address,
    const std::vector<uint16_t> &registers)
{
    return host.write(link, plainWords(address), ValueType::Word,
        std::vector<uint32_t>(registers.begin(), registers.end()));
}
