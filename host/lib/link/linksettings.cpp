#include "linksettings.h"

#include "textutil.h"

#include <algorithm>
#include <cerrno>
#include <iterator>
#include <vector>

namespace {

struct BaudRate
{
    int rate;
    speed_t code;
};

const BaudRate baudRates[] = {
    { 300, B300 },
    { 600, B600 },
    { 1200, B1200 },
    { 2400, B2400 },
    { 4800, B4800 },
    { 9600, B9600 },
    { 19200, B19200 },
    { 38400, B38400 },
    { 57600, B57600 },
    { 115200, B115200 },
    { 230400, B230400 },
    { 460800, B460800 },
    { 921600, B921600 },
};

} // namespace

bool LinkSettings::parse(const std::string &text, LinkSettings &settings, std::string &error)
{
    const std::string example
        = " (expected INTERFACE,BAUD,PARITY,DATABITS,STOPBITS such as \"RS485,9600,NONE,8,2\")";
    std::vector<std::string> fields = splitFields(text, ',');
    for (std::string &field : fields)
        field = trimmed(field);
    if (fields.size() != 5) {
        error = "malformed link \"" + text + "\"" + example;
        return false;
    }
    LinkSettings s;
    s.interface = upperCase(fields[0]);
    if (s.interface != "RS232" && s.interface != "RS422" && s.interface != "RS485") {
        error = "unknown interface \"" + fields[0] + "\" in link \"" + text + "\" (RS232, RS422 or RS485)";
        return false;
    }
    const bool known = parseWholeNumber(fields[1], 0, 921600, s.baudRate) && supportedBaudRate(s.baudRate);
    if (!known) {
        std::string rates;
        for (const BaudRate &b : baudRates)
            rates += (rates.empty() ? "" : ", ") + std::to_string(b.rate);
        error = "unsupported baud rate \"" + fields[1] + "\" in link \"" + text + "\" (the port takes "
            + rates + ")";
        return false;
    }
    const std::string parity = upperCase(fields[2]);
    if (parity == "NONE" || parity == "N")
        s.parity = 'N';
    else if (parity == "EVEN" || parity == "E")
        s.parity = 'E';
    else if (parity == "ODD" || parity == "O")
        s.parity = 'O';
    else {
        error = "unknown parity \"" + fields[2] + "\" in link \"" + text + "\" (NONE, EVEN or ODD)";
        return false;
    }
    if (!parseWholeNumber(fields[3], 7, 8, s.dataBits)) {
        error = "data bits must be 7 or 8, not \"" + fields[3] + "\", in link \"" + text + "\"";
        return false;
    }
    if (!parseWholeNumber(fields[4], 1, 2, s.stopBits)) {
        error = "stop bits must be 1 or 2, not \"" + fields[4] + "\", in link \"" + text + "\"";
        return false;
    }
    settings = s;
    return true;
}

std::string LinkSettings::text() const
{
    const char *parityName = parity == 'E' ? "EVEN" : parity == 'O' ? "ODD" : "NONE";
    return interface + "," + std::to_string(baudRate) + "," + parityName + "," + std::to_string(dataBits)
        + "," + std::to_string(stopBits);
}

bool LinkSettings::supportedBaudRate(int rate)
{
    return std::any_of(
        std::begin(baudRates), std::end(baudRates), [&](const BaudRate &b) { return b.rate == rate; });
}

void setLineBits(struct termios &t, const LinkSettings &settings)
{
    t.c_cflag &= ~(CSIZE | PARENB | PARODD | CSTOPB | CRTSCTS);
    t.c_cflag |= CLOCAL | CREAD | (settings.dataBits == 7 ? CS7 : CS8);
    if (settings.parity != 'N')
        t.c_cflag |= PARENB | (settings.parity == 'O' ? PARODD : 0);
    if (settings.stopBits == 2)
        t.c_cflag |= CSTOPB;
    speed_t speed = B9600;
    for (const BaudRate &b : baudRates)
        if (b.rate == settings.baudRate)
            speed = b.code;
    cfsetispeed(&t, speed);
    cfsetospeed(&t, speed);
}

bool LinkSettings::speedAndStopBitsSetIn(const struct termios &t) const
{
    struct termios wanted = t;
    setLineBits(wanted, *this);
    return (wanted.c_cflag & CSTOPB) == (t.c_cflag & CSTOPB) && cfgetospeed(&wanted) == cfgetospeed(&t);
}

bool applyLine(int fd, int when, const struct termios &t, const LinkSettings &settings)
{
    if (tcsetattr(fd, when, &t) == 0)
        return true;
    const int e = errno;
    struct termios now;
    if (e == EINVAL && tcgetattr(fd, &now) == 0 && settings.speedAndStopBitsSetIn(now))
        return true;
    errno = e;
    return false;
}

int LinkSettings::bitsPerCharacter() const { return 1 + dataBits + (parity == 'N' ? 0 : 1) + stopBits; }

int64_t LinkSettings::characterNs() const { return int64_t(bitsPerCharacter()) * 1000000000 / baudRate; }

int64_t LinkSettings::silenceNs() const { return baudRate <= 19200 ? characterNs() * 7 / 2 : 1750000; }
