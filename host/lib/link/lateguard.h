#ifndef HOST_LINK_LATEGUARD_H
#define HOST_LINK_LATEGUARD_H

// The late-answer guard. After an exchange that did not end in a clean
// answer, the next request to that station (to every station, when the
// request was not one the link can judge) waits until the guard has passed,
// and what arrives meanwhile is dropped. After a request, bytes that began
// before it had left the wire cannot be its answer. A frame from the station that begins that early while the
// station owed no answer shows that an answer taken before was another
// request's: the answers are out of step with the requests.

#include "linkhealth.h"
#include "linksettings.h"
#include "serialport.h"
#include "tracer.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <iterator>

class LateGuard
{
public:
    LateGuard(SerialPort &port, const LinkOptions &options, LinkHealth &health, Tracer &tracer)
        : port(port)
        , opts(options)
        , health(health)
        , tracer(tracer)
    {
    }

    // An answer to the exchange that just failed may still be on its way:
    // nothing goes to station (-1: to any) until the guard from fromNs has
    // passed. The exchange under way has then set its guard.
    void owe(int station, int64_t fromNs);
    bool owedThisExchange() const { return owedNow; }
    // Holds the request back for its guard, dropping what arrives; station:
    // the request's own.
    void holdBack(const char *frame, int length, int station);

    // A request has left the line: its answer cannot begin before notBeforeNs.
    void requestLeft(int64_t notBeforeNs) { answerNotBeforeNs = notBeforeNs; }
    // A new exchange begins: it has set no guard and seen nothing early.
    void exchangeBegins() { owedNow = outOfStepNow = false; }
    // Waits for the answer until deadlineNs, reading what arrived before it
    // may begin, up to capacity (SerialPort::readArrivedBefore).
    int collectEarly(char *buffer, int capacity, int64_t deadlineNs, bool &ready)
    {
        return port.readArrivedBefore(buffer, capacity, answerNotBeforeNs, deadlineNs, ready);
    }
    // A frame from station began before the answer to a request to
    // expectedStation could.
    void frameCameEarly(int station, int expectedStation);
    bool outOfStep() const { return outOfStepNow; }

    // An exchange with station got nothing: its answer may still come.
    void answerMayCome(int station) { owed[station & 255] = true; }
    // The station's answer came (or was dropped): it owes none.
    void answerCame(int station) { owed[station & 255] = false; }
    // A new line: no station owes an answer, and no request waits for one.
    void forgetLine()
    {
        owed.fill(false);
        std::fill(std::begin(guardUntilNs), std::end(guardUntilNs), int64_t(0));
    }
    // Which stations owe an answer, to keep over a device that comes back.
    using Owed = std::array<bool, 256>;
    const Owed &owedAnswers() const { return owed; }
    void setOwedAnswers(const Owed &stations) { owed = stations; }

private:
    int64_t guardNs() const;

    SerialPort &port;
    const LinkOptions &opts;
    LinkHealth &health;
    Tracer &tracer;
    // Until when a request to a station must wait (monotonic ns). Index 256:
    // every station.
    int64_t guardUntilNs[257] = {};
    bool owedNow = false; // the exchange under way has set its guard
    int64_t answerNotBeforeNs = 0;
    bool outOfStepNow = false;
    Owed owed {};
};

#endif // HOST_LINK_LATEGUARD_H
