#include "seriallink.h"

#include <algorithm>
#include <cstring>
#include <sys/prctl.h>
#include <vector>

SerialLink::SerialLink() { port.countLateWakesIn(&linkHealth.counters().lateWakeNs); }

SerialLink::~SerialLink()
{
    close();
    std::string ignored;
    setTrace(std::string(), ignored);
}

bool SerialLink::open(
    const std::string &device, const LinkSettings &settings, const LinkOptions &options, std::string &error)
{
    if (!port.open(device, settings, options.rs485, error))
        return false;
    opts = options;
    const int64_t openedNs = monotonicNs();
    tracer.setOpened(openedNs);
    port.markQuiet(openedNs);
    // The health of this line's stations, not of an earlier one's.
    linkHealth = LinkHealth();
    guard.forgetLine();
    reply.forgetExchange();
    requestStation = -1;
    requestEndNs = -1;
    tracer.setRequestEnd(requestEndNs);
    return true;
}

bool SerialLink::reopen(std::string &error)
{
    const std::string device = port.device();
    const LinkHealth kept = linkHealth;
    const LinkSettings line = port.settings();
    // The answers stations owe are kept too: open() forgets them, as for a new line.
    LateGuard::Owed owed = guard.owedAnswers();
    close();
    if (!open(device, line, opts, error))
        return false;
    linkHealth = kept;
    guard.setOwedAnswers(owed);
    return true;
}

bool SerialLink::setLine(const LinkSettings &settings, std::string &error)
{
    return port.setLine(settings, error);
}

void SerialLink::close() { port.close(); }

bool SerialLink::setTrace(const std::string &path, std::string &error, TraceFormat format)
{
    return tracer.setFile(path, error, format);
}

void SerialLink::commandBegins()
{
    reply.settle(requestStation);
    reply.forgetAnswerTime();
    linkHealth.commandBegins();
}

void SerialLink::dropStaleBytes()
{
    port.dropWaiting([this](const char *junk, int length) {
        linkHealth.counters().staleBytesDropped += uint64_t(length);
        if (requestStation >= 0)
            linkHealth.of(requestStation).staleBytesDropped += uint64_t(length);
        tracer.trace(
            TraceEvent::Kind::Stale, junk, length, requestStation, "stale bytes dropped before the request");
    });
}

void SerialLink::waitForSilence()
{
    // Bytes that arrive while we wait mean the line was not quiet: drop them
    // and wait again, but not longer than one reply time-out in all.
    const int64_t giveUp = monotonicNs() + int64_t(opts.timeoutMs) * 1000000;
    for (;;) {
        if (port.quietUntil(port.quietSinceNs() + port.settings().silenceNs()))
            return;
        dropStaleBytes();
        if (monotonicNs() >= giveUp)
            return;
    }
}

int SerialLink::send(const char *frame, int length)
{
    if (!port.isOpen() || length <= 0)
        return -1;
    // The previous exchange ends here; its answer may still come.
    reply.finish(requestStation);
    // From here on, bytes dropped before this request count for its station.
    requestStation = static_cast<unsigned char>(frame[0]);
    // Timed waits of this thread end within a microsecond, not within the
    // default 50 us timer slack: the silence before a request and the
    // driver's own (often zero) delay before each attempt.
    static thread_local bool fineTimerSlack = false;
    if (!fineTimerSlack) {
        prctl(PR_SET_TIMERSLACK, 1UL, 0UL, 0UL, 0UL);
        fineTimerSlack = true;
    }
    guard.holdBack(frame, length, requestStation);
    if (opts.silence)
        waitForSilence();
    else
        dropStaleBytes();
    const int sent = writeRequest(frame, length);
    ++linkHealth.counters().requests;
    linkHealth.counters().bytesSent += uint64_t(sent);
    linkHealth.requestSent(requestStation, frame, length);
    tracer.trace(TraceEvent::Kind::Sent, frame, sent, requestStation,
        sent < length ? "the line took only part of the frame" : "");
    if (opts.localEcho && sent > 0)
        readBackEcho(frame, sent);
    reply.begin(frame, length, sent, requestEndNs);
    return sent;
}

int SerialLink::writeRequest(const char *frame, int length)
{
    const LinkSettings &line = port.settings();
    const int64_t writeStartNs = monotonicNs();
    const int sent = port.write(
        frame, length, writeStartNs + int64_t(opts.timeoutMs) * 1000000 + length * line.characterNs());
    // The silence, the echo and the kernel's RS485 switching count from the
    // moment the last character has left the line: once tcdrain says so,
    // and never before the request's wire time after the write began (a
    // pseudo-terminal drains at once). Its answer cannot begin before that
    // wire time: a frame that begins sooner answers something else. A drive
    // may answer at once (many frame a request by its length and keep no
    // silence), so nothing is added. (tcdrain may return late on some
    // adapters, so this bound does not count on it.)
    if (opts.silence || opts.localEcho || opts.rs485)
        port.drain();
    const int64_t wireEndNs = writeStartNs + sent * line.characterNs();
    guard.requestLeft(wireEndNs);
    requestEndNs = std::max(monotonicNs(), wireEndNs);
    tracer.setRequestEnd(requestEndNs);
    port.markQuiet(requestEndNs);
    reply.awaitAnswer();
    return sent;
}

void SerialLink::readBackEcho(const char *frame, int sent)
{
    std::vector<char> echo(size_t(sent), 0);
    const int64_t echoDeadline
        = monotonicNs() + int64_t(opts.timeoutMs) * 1000000 + sent * port.settings().characterNs();
    const int got = port.readUntil(echo.data(), sent, echoDeadline, true);
    const bool same = got == sent && std::memcmp(echo.data(), frame, size_t(sent)) == 0;
    if (!same)
        ++linkHealth.counters().echoMismatches;
    tracer.trace(TraceEvent::Kind::Echo, echo.data(), got, requestStation,
        same ? "" : "the echo differs from the request: collision?");
    port.markQuiet(std::max(monotonicNs(), requestEndNs));
}

int SerialLink::receive(char *buffer, int length)
{
    if (!port.isOpen() || length <= 0)
        return 0;
    return reply.receive(buffer, length, requestStation);
}

bool SerialLink::setParameter(int, const QVariant &)
{
    // Parameter 12 (the only one drivers set, to 0, before each request)
    // needs no action here: send() prepares the line itself.
    return true;
}
