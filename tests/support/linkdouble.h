#ifndef TESTS_LINKDOUBLE_H
#define TESTS_LINKDOUBLE_H

#include "driverinterface.h"

#include <QByteArray>
#include <deque>
#include <string>
#include <vector>

// The runtime's link, doubled: records every call in order and serves
// scripted replies in order. With nothing queued, receive() returns 0.
class LinkDouble : public AbstractDeviceInterface
{
public:
    int receive(char *buffer, int length) override;
    int send(const char *frame, int length) override;
    bool setParameter(int id, const QVariant &value) override;
    int retryCount() override;
    int stationId() override;
    unsigned long delayMs() override;

    // Bytes of one reply on the line, of which receive() takes what it asks
    // for, as a real link would with its time-out: fewer bytes when the reply
    // holds fewer, and the next receive goes on with the rest of it.
    void line(const char *hexText);
    void line(const QByteArray &bytes);
    // A reply on the line, in hex text without its CRC, which is appended.
    void reply(const char *hexText);
    // One receive that gets nothing.
    void silence();
    // One scripted receive: copies min(asked, bytes) and returns count
    // (0, -1, short or longer than asked; -2: the number of bytes copied).
    void piece(const char *hexText, int count = -2);

    // Every call in order: "setParameter 12 0", "send 01 03 ...",
    // "receive 5", "retryCount", "stationId", "delayMs".
    std::vector<std::string> calls;
    // The frames sent, in hex text.
    std::vector<std::string> sent() const;
    int countOf(const std::string &call) const;
    // Calls of the kinds given, in order (for example {"send", "delayMs"}).
    std::vector<std::string> callsOf(std::initializer_list<const char *> kinds) const;

    int retries = 0;
    int station = 1;
    unsigned long delay = 0;

private:
    template <typename T> T logged(const char *call, T value)
    {
        calls.push_back(call);
        return value;
    }
    struct Item
    {
        QByteArray bytes;
        int count; // -2: a reply on the line; otherwise one receive's result
    };
    std::deque<Item> script;
};

#endif
