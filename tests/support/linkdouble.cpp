#include "linkdouble.h"
#include "hex.h"

#include <algorithm>
#include <cstring>

int LinkDouble::receive(char *buffer, int length)
{
    calls.push_back("receive " + std::to_string(length));
    if (script.empty())
        return 0;
    Item &item = script.front();
    const int copied = std::min(std::max(length, 0), item.bytes.size());
    std::memcpy(buffer, item.bytes.constData(), copied);
    if (item.count != -2) {
        const int count = item.count == -3 ? copied : item.count;
        script.pop_front();
        return count;
    }
    item.bytes.remove(0, copied);
    if (item.bytes.isEmpty() || copied < length)
        script.pop_front();
    return copied;
}

int LinkDouble::send(const char *frame, int length)
{
    calls.push_back("send " + toHex(QByteArray(frame, length)));
    return length;
}

bool LinkDouble::setParameter(int id, const QVariant &value)
{
    calls.push_back(
        "setParameter " + std::to_string(id) + " " + value.toString().toStdString() + " " + value.typeName());
    return true;
}

int LinkDouble::retryCount() { return logged("retryCount", retries); }

int LinkDouble::stationId() { return logged("stationId", station); }

unsigned long LinkDouble::delayMs() { return logged("delayMs", delay); }

void LinkDouble::line(const char *hexText) { line(hex(hexText)); }

void LinkDouble::line(const QByteArray &bytes) { script.push_back(Item { bytes, -2 }); }

void LinkDouble::reply(const char *hexText) { line(withCrc(hexText)); }

void LinkDouble::silence() { script.push_back(Item { QByteArray(), 0 }); }

void LinkDouble::piece(const char *hexText, int count)
{
    script.push_back(Item { hex(hexText), count == -2 ? -3 : count });
}

std::vector<std::string> LinkDouble::sent() const
{
    std::vector<std::string> frames;
    for (const std::string &c : callsOf({ "send " }))
        frames.push_back(c.substr(5));
    return frames;
}

int LinkDouble::countOf(const std::string &call) const { return int(callsOf({ call.c_str() }).size()); }

std::vector<std::string> LinkDouble::callsOf(std::initializer_list<const char *> kinds) const
{
    std::vector<std::string> out;
    for (const std::string &c : calls)
        for (const char *k : kinds)
            if (c.compare(0, std::strlen(k), k) == 0) {
                out.push_back(c);
                break;
            }
    return out;
}
