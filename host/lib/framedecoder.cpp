#include "framedecoder.h"

#include "addresstext.h"
#include "errorkind.h"
#include "rtuframe.h"
#include "tools.h"

#include <QByteArray>
#include <QString>

#include <cctype>
#include <cstdio>

namespace {

int byteAt(const std::string &b, size_t i) { return static_cast<unsigned char>(b[i]); }

int wordAt(const std::string &b, size_t i) { return (byteAt(b, i) << 8) | byteAt(b, i + 1); }

// The panel's one-based text of a zero-based wire number.
std::string addressText(Area area, int wireNumber)
{
    return std::string(areaPrefix(area)) + std::to_string(wireNumber + 1);
}

std::string plural(int n, const char *one) { return std::to_string(n) + " " + one + (n == 1 ? "" : "s"); }

// Registers as decimal numbers, from byte offset to offset + count * 2.
std::string registerList(const std::string &b, size_t offset, int count)
{
    std::string text;
    for (int i = 0; i < count; ++i)
        text += (i ? " " : "") + std::to_string(wordAt(b, offset + size_t(i) * 2));
    return text;
}

// Packed bits, the first bit of each byte first.
std::string bitList(const std::string &b, size_t offset, int bytes, int bits)
{
    std::string text;
    for (int i = 0; i < bits && i / 8 < bytes; ++i)
        text
            += std::string(i ? " " : "") + (((byteAt(b, offset + size_t(i / 8)) >> (i % 8)) & 1) ? "1" : "0");
    return text;
}

std::string requestMeaning(const std::string &b, const ModbusFunction &f)
{
    const int address = wordAt(b, 2), quantity = wordAt(b, 4);
    const std::string where = addressText(f.area, address);
    switch (f.layout) {
    case FrameLayout::ReadBits:
    case FrameLayout::ReadRegisters:
        return std::string(f.name) + " " + where + " x" + std::to_string(quantity);
    case FrameLayout::WriteSingle:
        if (f.area == Area::Coils) {
            const char *state = quantity == 0xFF00 ? "on" : quantity == 0 ? "off" : nullptr;
            if (state)
                return std::string(f.name) + " " + where + " " + state;
            char text[48];
            std::snprintf(text, sizeof text, " value 0x%04X (neither on nor off)", quantity);
            return std::string(f.name) + " " + where + text;
        }
        return std::string(f.name) + " " + where + " = " + std::to_string(quantity);
    case FrameLayout::WriteMultiple: {
        const int bytes = byteAt(b, 6);
        const std::string values = f.area == Area::Coils ? bitList(b, 7, bytes, quantity)
                                                         : registerList(b, 7, std::min(quantity, bytes / 2));
        return std::string(f.name) + " " + where + " x" + std::to_string(quantity) + ": " + values;
    }
    }
    return f.name;
}

std::string replyMeaning(const std::string &b, const ModbusFunction &f)
{
    const std::string where = addressText(f.area, wordAt(b, 2));
    switch (f.layout) {
    case FrameLayout::ReadBits: {
        const int bytes = byteAt(b, 2);
        return "reply " + plural(bytes, "byte") + ": bits " + bitList(b, 3, bytes, bytes * 8);
    }
    case FrameLayout::ReadRegisters: {
        const int bytes = byteAt(b, 2);
        return "reply " + plural(bytes, "byte") + ": " + registerList(b, 3, bytes / 2);
    }
    case FrameLayout::WriteSingle:
        return "done: " + requestMeaning(b, f);
    case FrameLayout::WriteMultiple:
        return "done: wrote " + where + " x" + std::to_string(wordAt(b, 4));
    }
    return f.name;
}

} // namespace

DecodedFrame decodeFrame(const std::string &b, FrameRole role)
{
    DecodedFrame d;
    d.role = role;
    if (b.empty()) {
        d.meaning = "no bytes";
        return d;
    }
    d.station = byteAt(b, 0);
    const std::string station = d.station == 0 ? "broadcast" : "station " + std::to_string(d.station);
    if (b.size() < 2) {
        d.meaning = station + ", nothing more";
        return d;
    }
    d.function = byteAt(b, 1);
    const bool exception = role == FrameRole::Reply && (d.function & 0x80);
    const ModbusFunction *f = modbusFunction(d.function & (exception ? 0x7F : 0xFF));
    const int known = frameLength(reinterpret_cast<const uint8_t *>(b.data()), int(b.size()), role);
    const size_t length = known > 0 ? size_t(known) : 0;
    d.fits = length != 0 && b.size() == length;
    d.crcOk = modbusCrcOk(reinterpret_cast<const uint8_t *>(b.data()), int(b.size()));
    char name[32];
    std::snprintf(name, sizeof name, "function %d", d.function & 0x7F);
    const std::string what = f ? f->name : name;
    if (!f && !exception) {
        d.meaning = station + ", " + what + " (not one this decoder knows)";
        return d;
    }
    if (!d.fits) {
        d.meaning = station + ", " + (exception ? "exception to " : "") + what + ": "
            + plural(int(b.size()), "byte")
            + (length ? ", a " + std::string(role == FrameRole::Request ? "request" : "reply") + " of it has "
                        + std::to_string(length)
                      : ", too short to tell its length");
        return d;
    }
    if (exception) {
        const int code = byteAt(b, 2);
        const char *text = exceptionName(code);
        d.meaning = station + ", exception " + std::to_string(code) + " "
            + (text ? text : "(no standard name)") + " to " + what;
        return d;
    }
    d.meaning = station + ", " + (role == FrameRole::Request ? requestMeaning(b, *f) : replyMeaning(b, *f));
    return d;
}

std::vector<DecodedFrame> decodeAnyFrame(const std::string &bytes)
{
    std::vector<DecodedFrame> readings;
    for (FrameRole role : { FrameRole::Request, FrameRole::Reply }) {
        DecodedFrame d = decodeFrame(bytes, role);
        if (d.fits)
            readings.push_back(d);
    }
    if (readings.empty())
        readings.push_back(decodeFrame(bytes, FrameRole::Request));
    return readings;
}

std::string hexBytes(const std::string &bytes)
{
    static const char digits[] = "0123456789ABCDEF";
    std::string text;
    text.reserve(bytes.size() * 3);
    for (size_t i = 0; i < bytes.size(); ++i) {
        if (i)
            text += ' ';
        text += digits[byteAt(bytes, i) >> 4];
        text += digits[byteAt(bytes, i) & 15];
    }
    return text;
}

bool parseHexBytes(const std::string &text, std::string &bytes, std::string &error)
{
    bytes.clear();
    size_t i = 0;
    auto isSeparator = [](unsigned char c) { return std::isspace(c) || c == ',' || c == ':' || c == '-'; };
    while (i < text.size()) {
        if (isSeparator(static_cast<unsigned char>(text[i]))) {
            ++i;
            continue;
        }
        size_t end = i;
        while (end < text.size() && !isSeparator(static_cast<unsigned char>(text[end])))
            ++end;
        std::string token = text.substr(i, end - i);
        if (token.size() > 2 && token[0] == '0' && (token[1] == 'x' || token[1] == 'X'))
            token.erase(0, 2);
        for (char c : token)
            if (!std::isxdigit(static_cast<unsigned char>(c))) {
                error = "\"" + text.substr(i, end - i) + "\" is not hexadecimal bytes (such as 01 03 00 63)";
                return false;
            }
        if (token.size() % 2) {
            error = "\"" + text.substr(i, end - i) + "\" has an odd number of hex digits";
            return false;
        }
        for (size_t k = 0; k < token.size(); k += 2)
            bytes += char(std::stoi(token.substr(k, 2), nullptr, 16));
        i = end;
    }
    if (bytes.empty()) {
        error = "no bytes given (such as \"01 03 00 63 00 01 74 14\")";
        return false;
    }
    return true;
}

const char *traceKindName(TraceEvent::Kind kind)
{
    switch (kind) {
    case TraceEvent::Kind::Sent:
        return "TX";
    case TraceEvent::Kind::Received:
        return "RX";
    case TraceEvent::Kind::Stale:
        return "DROP";
    case TraceEvent::Kind::Late:
        return "LATE";
    case TraceEvent::Kind::Echo:
        return "ECHO";
    case TraceEvent::Kind::TimeOut:
        return "TIMEOUT";
    }
    return "?";
}

std::string describeFrame(const TraceEvent &event)
{
    std::string text;
    // Stale bytes are whatever was left on the line: not a frame to decode.
    if (!event.bytes.empty() && event.kind != TraceEvent::Kind::Stale) {
        const bool request = event.kind == TraceEvent::Kind::Sent || event.kind == TraceEvent::Kind::Echo;
        const DecodedFrame d = decodeFrame(event.bytes, request ? FrameRole::Request : FrameRole::Reply);
        text = d.meaning;
        if (event.bytes.size() >= 4 && (d.fits || event.kind != TraceEvent::Kind::TimeOut))
            text += d.crcOk ? ", CRC ok" : ", CRC BAD";
    }
    if (!event.note.empty())
        text += (text.empty() ? "[" : "  [") + event.note + "]";
    return text;
}

bool parseTraceFormat(const std::string &text, TraceFormat &format)
{
    if (text == "decoded")
        format = TraceFormat::Decoded;
    else if (text == "panel")
        format = TraceFormat::Panel;
    else
        return false;
    return true;
}

std::string traceLine(const TraceEvent &event, TraceFormat format)
{
    char head[64];
    const double seconds = double(event.sinceOpenNs) / 1e9;
    if (format == TraceFormat::Panel) {
        QString dump = dumpByteArray(QByteArray::fromRawData(event.bytes.data(), int(event.bytes.size())));
        // The text part of the dump shows the bytes as they are; control
        // characters would garble a terminal, so they are shown as dots.
        const int textAt = dump.indexOf(QLatin1String(") : "));
        if (textAt >= 0)
            for (int i = textAt + 4; i < dump.size(); ++i)
                if (dump.at(i).unicode() < 0x20 || dump.at(i).unicode() >= 0x7F)
                    dump[i] = QLatin1Char('.');
        std::snprintf(head, sizeof head, "%11.6f %-7s ", seconds, traceKindName(event.kind));
        std::string line = head + std::string(dump.toLatin1().constData());
        if (!event.note.empty())
            line += "  [" + event.note + "]";
        return line;
    }
    // Replies and the link's events show how long after the request they came.
    char since[24] = "";
    if (event.kind != TraceEvent::Kind::Sent && event.kind != TraceEvent::Kind::Echo
        && event.sinceRequestNs >= 0)
        std::snprintf(since, sizeof since, "+%.1f ms", double(event.sinceRequestNs) / 1e6);
    std::snprintf(head, sizeof head, "%11.6f %-7s %-10s ", seconds, traceKindName(event.kind), since);
    std::string line = head + hexBytes(event.bytes);
    const std::string meaning = describeFrame(event);
    if (!meaning.empty())
        line += (event.bytes.empty() ? "" : "  ") + meaning;
    return line;
}
