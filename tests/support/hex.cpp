#include "hex.h"

#include <cstdio>

QByteArray hex(const char *text)
{
    return QByteArray::fromHex(QByteArray(text).replace(' ', ""));
}

std::string toHex(const QByteArray &bytes)
{
    std::string out;
    char buf[4];
    for (int i = 0; i < bytes.size(); ++i) {
        std::snprintf(buf, sizeof buf, i ? " %02X" : "%02X", static_cast<unsigned char>(bytes.at(i)));
        out += buf;
    }
    return out;
}

QT_BEGIN_NAMESPACE
void PrintTo(const QByteArray &bytes, std::ostream *os)
{
    *os << "[" << toHex(bytes) << "]";
}

void PrintTo(const QString &text, std::ostream *os)
{
    *os << "\"" << text.toStdString() << "\"";
}
QT_END_NAMESPACE
