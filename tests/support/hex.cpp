#include "hex.h"

QByteArray hex(const char *text) { return QByteArray::fromHex(QByteArray(text).replace(' ', "")); }

std::string toHex(const QByteArray &bytes) { return bytes.toHex(' ').toUpper().toStdString(); }

std::string joined(const std::vector<std::string> &words)
{
    std::string out;
    for (const std::string &w : words)
        out += w + " ";
    return out;
}

quint16 bitwiseCrc16(const QByteArray &bytes)
{
    quint16 crc = 0xFFFF;
    for (char c : bytes) {
        crc ^= static_cast<unsigned char>(c);
        for (int bit = 0; bit < 8; ++bit)
            crc = (crc & 1) ? (crc >> 1) ^ 0xA001 : crc >> 1;
    }
    return crc;
}

QByteArray withCrc(const char *text) { return withCrc(hex(text)); }

QByteArray withCrc(const QByteArray &frame)
{
    const quint16 crc = bitwiseCrc16(frame);
    QByteArray out = frame;
    out.append(char(crc & 0xFF));
    out.append(char(crc >> 8));
    return out;
}

std::vector<std::string> framesWithCrc(const std::vector<std::string> &frames)
{
    std::vector<std::string> out;
    for (const std::string &f : frames)
        out.push_back(toHex(withCrc(f.c_str())));
    return out;
}

QByteArray repeated(const char *bytes, int times) { return hex(bytes).repeated(times); }

QByteArray words(std::initializer_list<quint16> values)
{
    QByteArray out;
    for (quint16 v : values)
        out.append(char(v & 0xFF)).append(char(v >> 8));
    return out;
}

QT_BEGIN_NAMESPACE
void PrintTo(const QByteArray &bytes, std::ostream *os) { *os << "[" << toHex(bytes) << "]"; }

void PrintTo(const QString &text, std::ostream *os) { *os << "\"" << text.toStdString() << "\""; }
QT_END_NAMESPACE
