#ifndef TESTS_LINKDOUBLE_H
#define TESTS_LINKDOUBLE_H

#include "driverinterface.h"

#include <QByteArray>
#include <deque>
#include <string>
#include <vector>

// The runtime's link, doubled: records every call in order and serves
// scripted replies.
//
// Replies come from two sources. Scripted pieces (piece()) are served first,
// one per receive call, each with the count it should return (0, -1, short or
// longer than asked). After them, receive() takes what it asks for from the
// "line" (line()), as a real link would with its time-out: fewer bytes, or
// 0, when the line holds fewer.
class LinkDouble : public AbstractDeviceInterface
{
public:
    int receive(char *buffer, int length) override;
    int send(const char *frame, int length) override;
    bool setParameter(int id, const QVariant &value) override;
    int retryCount() override;
    int stationId() override;
    unsigned long delayMs() override;

    // Bytes that arrive on the line, in hex text or as an array.
    void line(const char *hexText);
    void line(const QByteArray &bytes);
    // One scripted receive: copies min(asked, bytes) and returns count
    // (count < 0 means "the number of bytes copied").
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
    struct Piece {
        QByteArray bytes;
        int count;
    };
    std::deque<Piece> pieces;
    QByteArray pending;
};

#endif
