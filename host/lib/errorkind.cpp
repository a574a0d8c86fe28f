#include "errorkind.h"

#include "drivertexts.h"

#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace {

// The fixed part of a text format: everything before its first placeholder.
std::string fixedPart(const char *format)
{
    const char *placeholder = std::strchr(format, '%');
    return placeholder ? std::string(format, size_t(placeholder - format)) : std::string(format);
}

bool startsWith(const std::string &text, const std::string &prefix)
{
    return text.compare(0, prefix.size(), prefix) == 0;
}

// The description that the driver appends after the last failed attempt.
std::string withoutDescription(const std::string &text)
{
    for (const char *const *suffixes : { DriverTexts::ReadSuffix, DriverTexts::WriteSuffix }) {
        for (int i = 0; i < 4; ++i) {
            const size_t at = text.rfind(fixedPart(suffixes[i]));
            if (at != std::string::npos && text.back() == ')')
                return text.substr(0, at);
        }
    }
    return text;
}

// The number that is the whole rest of text, from position from on.
bool wholeNumber(const std::string &text, size_t from, int base, long &value)
{
    if (from >= text.size() || std::isspace(static_cast<unsigned char>(text[from])) || text[from] == '+')
        return false;
    char *end = nullptr;
    errno = 0;
    value = std::strtol(text.c_str() + from, &end, base);
    return errno == 0 && end && *end == '\0';
}

} // namespace

DriverError classifyDriverError(const std::string &fullText)
{
    DriverError e;
    if (fullText.empty())
        return e;
    e.text = withoutDescription(fullText);
    const std::string &t = e.text;
    long number = 0;
    const std::string slaveId = fixedPart(DriverTexts::InvalidSlaveId);
    const std::string exception = fixedPart(DriverTexts::ExceptionCode);
    if (t == DriverTexts::NoResponse)
        e.kind = ErrorKind::TimeOut;
    else if (startsWith(t, fixedPart(DriverTexts::ReceivedTooFew)))
        e.kind = ErrorKind::ShortReply;
    else if (t == DriverTexts::PacketLoss)
        e.kind = ErrorKind::PacketLoss;
    else if (t == DriverTexts::CrcError)
        e.kind = ErrorKind::Crc;
    else if (t == DriverTexts::InvalidResponse)
        e.kind = ErrorKind::InvalidResponse;
    else if (startsWith(t, exception) && wholeNumber(t, exception.size(), 16, number) && number >= 0
        && number <= 255) {
        e.kind = ErrorKind::Exception;
        e.exceptionCode = int(number);
    } else if (startsWith(t, slaveId) && wholeNumber(t, slaveId.size(), 10, number)) {
        // The same text refuses a station number above 255 before sending,
        // and names the station byte of a reply from another station.
        e.kind = number >= 0 && number <= 255 ? ErrorKind::WrongStation : ErrorKind::Refused;
    } else if (startsWith(t, "can't ") || startsWith(t, DriverTexts::UnsupportedDataType))
        e.kind = ErrorKind::Refused;
    else
        e.kind = ErrorKind::Other;
    return e;
}

const char *errorKindName(ErrorKind kind)
{
    switch (kind) {
    case ErrorKind::None:
        return "none";
    case ErrorKind::TimeOut:
        return "time-out";
    case ErrorKind::ShortReply:
        return "short reply";
    case ErrorKind::PacketLoss:
        return "packet loss";
    case ErrorKind::Crc:
        return "CRC";
    case ErrorKind::Exception:
        return "exception";
    case ErrorKind::WrongStation:
        return "wrong station";
    case ErrorKind::InvalidResponse:
        return "invalid response";
    case ErrorKind::Refused:
        return "refused";
    case ErrorKind::Other:
        break;
    }
    return "other";
}

const char *exceptionName(int code)
{
    static const char *const names[] = { nullptr, "illegal function", "illegal data address",
        "illegal data value", "server device failure", "acknowledge", "server device busy", nullptr,
        "memory parity error", nullptr, "gateway path unavailable", "gateway target failed to respond" };
    return code >= 0 && code < int(sizeof names / sizeof names[0]) ? names[code] : nullptr;
}
