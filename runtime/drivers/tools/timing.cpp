#include "tools.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <ctime>
#include <sys/types.h>

void HRSleep(unsigned long ms)
{
    struct timespec wait;
    wait.tv_sec = static_cast<time_t>(ms / 1000);
    wait.tv_nsec = static_cast<long>(ms % 1000) * 1000000L;
    struct timespec rest;
    while (nanosleep(&wait, &rest) != 0) {
        if (errno != EINTR)
            return;
        wait = rest; // a signal woke us: sleep what is left
    }
}

qint64 CurrentMSecsSinceBoot()
{
    struct timespec now;
    if (clock_gettime(CLOCK_MONOTONIC, &now) != 0)
        return 0;
    return qint64(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}

bool ProcessIsRunning(long long pid)
{
    if (kill(static_cast<pid_t>(pid), 0) == 0)
        return true;
    return errno == EPERM;
}

namespace {
int hexDigit(unsigned char c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    return -1;
}
} // namespace

quint32 HexToUInt(const char *text, int len)
{
    if (!text || len < 1 || text[0] == '\0')
        return 0;
    int i = 0;
    if (text[0] == '0') {
        // Look at the second character only when it lies inside len.
        i = (len > 1 && (text[1] == 'x' || text[1] == 'X')) ? 2 : 1;
    }
    if (i >= len || text[i] == '\0')
        return 0;
    quint32 value = 0;
    for (; i < len && text[i] != '\0'; ++i) {
        int digit = hexDigit(static_cast<unsigned char>(text[i]));
        if (digit < 0)
            return 0;
        value = value * 16u + quint32(digit);
    }
    return value;
}

QString dumpByteArray(const QByteArray &a)
{
    QString out("(");
    for (int i = 0; i < a.size(); ++i)
        out += QLatin1String("0X") + QString::number(static_cast<unsigned char>(a.at(i)), 16)
            + QLatin1Char(' ');
    out += QLatin1String(") : ");
    const void *zero = std::memchr(a.constData(), 0, size_t(a.size()));
    const int textLength = zero ? int(static_cast<const char *>(zero) - a.constData()) : a.size();
    out += QString::fromLatin1(a.constData(), textLength);
    return out;
}
