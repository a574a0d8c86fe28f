// The serial link over a pseudo-terminal whose other side the test plays:
// waiting for the bytes asked for, dropping stale bytes, the RTU silence,
// the local echo of 2-wire adapters, the trace, and devices it must refuse.

#include "clirun.h"
#include "hex.h"
#include "seriallink.h"

#include <gtest/gtest.h>

#include <string>

#include <chrono>
#include <cstdio>
#include <fcntl.h>
#include <fstream>
#include <poll.h>
#include <signal.h>
#include <sstream>
#include <termios.h>
#include <thread>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using Clock = std::chrono::steady_clock;

// The device's side of a pseudo-terminal.
class Device : public SilentDevice
{
public:
    void put(const char *hexText)
    {
        const QByteArray b = hex(hexText);
        ASSERT_EQ(::write(fd, b.constData(), size_t(b.size())), b.size());
    }
    // As a drive on a wire answers a request that the link has begun to
    // send: once the request has left the wire and the silence has passed
    // (at 9600 baud), or at once without it. Sooner, the link drops the
    // bytes as late.
    void answer(const char *hexText, int requestBytes = 8, bool keepSilence = true)
    {
        const LinkSettings line;
        std::this_thread::sleep_for(std::chrono::nanoseconds(
            requestBytes * line.characterNs() + (keepSilence ? line.silenceNs() : 0)));
        put(hexText);
    }
    // Reads exactly n bytes (or what came within a generous limit).
    std::string take(int n)
    {
        QByteArray got;
        const auto until = Clock::now() + std::chrono::seconds(10);
        while (got.size() < n && Clock::now() < until) {
            struct pollfd p = { fd, POLLIN, 0 };
            if (poll(&p, 1, 100) <= 0)
                continue;
            char buffer[256];
            const ssize_t r = ::read(fd, buffer, size_t(std::min<int>(n - got.size(), int(sizeof buffer))));
            if (r > 0)
                got.append(buffer, int(r));
        }
        return toHex(got);
    }
};

LinkOptions options(int timeoutMs = 2000)
{
    LinkOptions o;
    o.timeoutMs = timeoutMs;
    return o;
}

std::string received(SerialLink &link, int n, int *count = nullptr)
{
    QByteArray buffer(n, '\0');
    const int got = link.receive(buffer.data(), n);
    if (count)
        *count = got;
    return toHex(buffer.left(std::max(got, 0)));
}

// Opens link on device's pseudo-terminal at the default line settings.
bool opened(SerialLink &link, const Device &device, const LinkOptions &o)
{
    std::string error;
    const bool ok = link.open(device.path, LinkSettings(), o, error);
    EXPECT_TRUE(ok) << error;
    return ok;
}

void send(SerialLink &link, const QByteArray &frame) { link.send(frame.constData(), frame.size()); }

TEST(SerialLink, ReceiveReturnsWhatCameWhenTheTimeOutPasses)
{
    Device device;
    SerialLink link;
    ASSERT_TRUE(opened(link, device, options(150)));
    device.put("01 03 02");
    const auto start = Clock::now();
    int count = -1;
    EXPECT_EQ(received(link, 5, &count), "01 03 02");
    EXPECT_EQ(count, 3);
    EXPECT_GE(Clock::now() - start, std::chrono::milliseconds(150));
    EXPECT_EQ(received(link, 5, &count), "");
    EXPECT_EQ(count, 0);
    EXPECT_EQ(link.counters().shortReceives, 2u);
}

TEST(SerialLink, CountsHowLongItsWaitsEndedPastTheirDeadlinesAndNoMore)
{
    // A wait the machine holds past its deadline (here the process stopped
    // while the link waits for an answer that does not come) counts the
    // overrun; a wait that ends on time counts nothing, however long it is.
    const struct
    {
        const char *what;
        bool stopped;
    } rows[] = {
        { "a 200 ms time-out kept", false },
        { "the process stopped for 150 ms in the wait", true }, // last: it may be skipped
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.what);
        Device device;
        SerialLink link;
        ASSERT_TRUE(opened(link, device, options(row.stopped ? 20 : 200)));
        send(link, withCrc("01 03 00 63 00 01"));
        const pid_t us = getpid();
        const pid_t stopper = row.stopped ? fork() : -1;
        if (stopper == 0) {
            const struct timespec start = { 0, 5000000 }, stop = { 0, 150000000 };
            nanosleep(&start, nullptr);
            kill(us, SIGSTOP);
            nanosleep(&stop, nullptr);
            kill(us, SIGCONT);
            _exit(0);
        }
        const int64_t began = monotonicNs();
        EXPECT_EQ(received(link, 5), "");
        const int64_t waitedNs = monotonicNs() - began;
        if (stopper > 0)
            waitpid(stopper, nullptr, 0);
        if (row.stopped && waitedNs < 140000000)
            GTEST_SKIP() << "the machine ran the stopper only after the wait had ended";
        if (row.stopped)
            EXPECT_GE(link.counters().lateWakeNs, 100000000u);
        else
            EXPECT_LT(link.counters().lateWakeNs, 50000000u);
    }
}

TEST(SerialLink, ReopeningKeepsTheCountsAndOpeningAnewClearsThem)
{
    // A device that went away and came back continues the counts (a poll's
    // summary spans the gap); a line opened anew starts its own.
    for (bool reopen : { true, false }) {
        SCOPED_TRACE(reopen ? "reopened" : "opened anew");
        Device device;
        SerialLink link;
        std::string error;
        ASSERT_TRUE(opened(link, device, options(20)));
        const QByteArray request = withCrc("01 03 00 63 00 01");
        send(link, request);
        EXPECT_EQ(received(link, 7), "");
        ASSERT_TRUE(reopen ? link.reopen(error) : opened(link, device, options(20))) << error;
        EXPECT_EQ(link.counters().requests, reopen ? 1u : 0u);
        EXPECT_EQ(link.healthOf(1).timeOuts, reopen ? 1u : 0u);
        // The last line's exchange neither holds the first request back nor counts on this line.
        send(link, request);
        EXPECT_EQ(link.counters().guardWaits, 0u);
        EXPECT_EQ(link.healthOf(1).timeOuts, reopen ? 1u : 0u);
    }
}

// Bytes that are no answer: waiting before the request (a late answer and
// noise), with the silence kept or not, or the local echo of the request on
// a 2-wire adapter, as sent or garbled. Each is dropped and counted, and the
// answer read.
TEST(SerialLink, BytesThatAreNoAnswerAreDroppedAndTheAnswerRead)
{
    struct Row
    {
        bool silence, localEcho;
        const char *before, *echo;
        uint64_t stale, mismatches;
    } rows[] = {
        { true, false, "01 03 02 99 99 F8 0E AA", "", 8, 0 },
        { false, false, "01 03 02 99 99 F8 0E AA", "", 8, 0 },
        { true, true, "", "01 03 00 63 00 01 74 14", 0, 0 },
        { true, true, "", "01 03 00 63 00 FF 74 14", 0, 1 },
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(
            std::string(row.silence ? "with silence: " : "without silence: ") + row.before + row.echo);
        Device device;
        SerialLink link;
        LinkOptions o = options();
        o.silence = row.silence;
        o.localEcho = row.localEcho;
        ASSERT_TRUE(opened(link, device, o));
        device.put(row.before);
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        std::thread adapter([&device, &row] {
            EXPECT_EQ(device.take(8), "01 03 00 63 00 01 74 14");
            device.put(row.echo);
            device.answer("01 03 02 12 34 B5 33");
        });
        const QByteArray request = hex("01 03 00 63 00 01 74 14");
        EXPECT_EQ(link.send(request.constData(), request.size()), 8);
        adapter.join();
        EXPECT_EQ(received(link, 5), "01 03 02 12 34");
        EXPECT_EQ(received(link, 2), "B5 33");
        EXPECT_EQ(link.counters().staleBytesDropped, row.stale);
        EXPECT_EQ(link.counters().echoMismatches, row.mismatches);
    }
}

TEST(SerialLink, ADriveThatAnswersTheMomentTheRequestHasLeftIsHeard)
{
    // Many drives, and libmodbus slaves, frame a request by its length and
    // answer at once, keeping no silence.
    Device device;
    SerialLink link;
    ASSERT_TRUE(opened(link, device, options(100)));
    for (int i = 0; i < 3; ++i) {
        std::thread drive([&device] {
            device.take(8);
            device.answer("01 03 02 12 34 B5 33", 8, false);
        });
        send(link, withCrc("01 03 00 63 00 01"));
        EXPECT_EQ(received(link, 7), "01 03 02 12 34 B5 33");
        drive.join();
    }
    EXPECT_EQ(link.counters().lateBytesDropped, 0u);
}

TEST(SerialLink, KeepsTheRtuSilenceAfterTheLastFrameOnTheLine)
{
    // At 1200 baud, 8N2, a character takes 9.2 ms and the silence 32 ms:
    // long enough to see on any machine. Lower bounds only.
    Device device;
    SerialLink link;
    std::string error;
    LinkSettings slow;
    ASSERT_TRUE(LinkSettings::parse("RS485,1200,NONE,8,2", slow, error)) << error;
    ASSERT_TRUE(link.open(device.path, slow, options(), error)) << error;
    device.put("01 03 02 12 34 B5 33");
    // Taken before the answer is read: the line is quiet from the end of that
    // read on, never earlier, so this is a true lower bound under any load.
    const auto answered = Clock::now();
    EXPECT_EQ(received(link, 7), "01 03 02 12 34 B5 33");
    send(link, hex("01 03 00 63 00 01 74 14"));
    EXPECT_GE(Clock::now() - answered, std::chrono::nanoseconds(slow.silenceNs()));
    EXPECT_EQ(device.take(8), "01 03 00 63 00 01 74 14");
}

// The line's settings, at open and changed while open. A pseudo-terminal
// keeps no parity, so a change of parity alone changes nothing there: the
// link still takes the line at its speed and stop bits.
TEST(SerialLink, TakesTheLineAtItsSettingsAndChangesThemWhileOpen)
{
    struct Row
    {
        const char *opened, *changed;
    } rows[] = {
        { "RS485,38400,NONE,8,1", "RS485,38400,EVEN,8,1" },
        { "RS485,38400,NONE,8,1", "RS485,19200,EVEN,8,2" },
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(std::string(row.opened) + " then " + row.changed);
        Device device;
        struct termios t;
        ASSERT_EQ(tcgetattr(device.fd, &t), 0);
        t.c_cflag |= CLOCAL | CREAD; // raw as the simulated drive leaves it: only the parity differs
        ASSERT_EQ(tcsetattr(device.fd, TCSANOW, &t), 0);
        SerialLink link;
        std::string error;
        LinkSettings opened, changed;
        ASSERT_TRUE(LinkSettings::parse(row.opened, opened, error)
            && LinkSettings::parse(row.changed, changed, error));
        ASSERT_TRUE(link.open(device.path, opened, options(), error)) << error;
        ASSERT_EQ(tcgetattr(device.fd, &t), 0);
        EXPECT_TRUE(opened.speedAndStopBitsSetIn(t));
        ASSERT_TRUE(link.setLine(changed, error)) << error;
        ASSERT_EQ(tcgetattr(device.fd, &t), 0);
        EXPECT_TRUE(changed.speedAndStopBitsSetIn(t));
        EXPECT_FALSE(opened.speedAndStopBitsSetIn(t) && opened.baudRate != changed.baudRate);
        EXPECT_EQ(link.settings().text(), row.changed);
        send(link, hex("01 03 00 63 00 01 74 14"));
        EXPECT_EQ(device.take(8), "01 03 00 63 00 01 74 14");
    }
}

TEST(SerialLink, AFrameThatCannotAnswerTheRequestIsDroppedAndTheWaitGoesOn)
{
    // Each request is answered first by a well-formed frame that answers
    // something else, then by its own answer, within one time-out. (Which
    // frames answer what is replycheck's table; here, the framing of each
    // kind of answer and the wait that goes on.)
    struct Row
    {
        const char *what, *request, *stray, *answer;
    } rows[] = {
        { "another byte count", "01 03 00 63 00 01", "01 03 04 11 11 22 22", "01 03 02 12 34" },
        { "an exception to another function", "01 03 00 63 00 01", "01 84 02", "01 03 02 12 34" },
        { "write: another value", "01 06 00 63 00 05", "01 06 00 63 00 04", "01 06 00 63 00 05" },
        { "write: another quantity", "01 10 00 63 00 01 02 00 05", "01 10 00 63 00 02", "01 10 00 63 00 01" },
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.what);
        Device device;
        SerialLink link;
        ASSERT_TRUE(opened(link, device, options()));
        const QByteArray request = withCrc(row.request);
        send(link, request);
        device.take(request.size());
        const QByteArray stray = withCrc(row.stray), answer = withCrc(row.answer);
        device.answer(toHex(stray + answer).c_str(), request.size());
        EXPECT_EQ(received(link, 5), toHex(answer.left(5)));
        EXPECT_EQ(received(link, answer.size() - 5), toHex(answer.mid(5)));
        EXPECT_EQ(link.counters().framesRejected, 1u);
        EXPECT_EQ(link.counters().lateBytesDropped, uint64_t(stray.size()));
        EXPECT_EQ(link.counters().shortReceives, 0u);
    }
}

TEST(SerialLink, NoiseRightAfterAnAnswerShorterThanExpectedIsNotTakenWithIt)
{
    // The link reads as many bytes as a normal answer has when they are
    // there; an exception is shorter, and what follows it is noise, dropped
    // before the next request, which goes out at once.
    Device device;
    SerialLink link;
    ASSERT_TRUE(opened(link, device, options()));
    send(link, withCrc("01 03 00 63 00 01"));
    device.take(8);
    const QByteArray exception = withCrc("01 83 02");
    device.answer((toHex(exception) + " AA BB").c_str());
    EXPECT_EQ(received(link, 5), toHex(exception));
    const QByteArray next = withCrc("01 03 00 64 00 01"), answer = withCrc("01 03 02 12 34");
    std::thread drive([&] {
        device.take(8);
        device.answer(toHex(answer).c_str());
    });
    send(link, next);
    EXPECT_EQ(received(link, 7), toHex(answer));
    drive.join();
    EXPECT_EQ(link.counters().guardWaits, 0u);
    EXPECT_EQ(link.counters().staleBytesDropped, 2u);
    EXPECT_EQ(link.counters().bytesReceived, uint64_t(exception.size() + answer.size()));
}

TEST(SerialLink, ALateAnswerIsDroppedWhileTheNextRequestIsOnTheWire)
{
    // A request times out; its answer comes just after the time-out, while
    // a request that went out at once (to another station, or with the
    // guard off) is still on the wire: that cannot be its answer. Each takes
    // its own answer. (Holding the same station back for the guard: the
    // out-of-step test below and LateAnswer.*.)
    struct Row
    {
        const char *what;
        int guardMs;
        const char *next; // the next request
    } rows[] = {
        { "another station", -1, "02 03 00 C7 00 01" },
        { "guard switched off", 0, "01 03 00 C7 00 01" },
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.what);
        Device device;
        SerialLink link;
        LinkOptions o = options(100);
        o.lateGuardMs = row.guardMs;
        ASSERT_TRUE(opened(link, device, o));
        send(link, withCrc("01 03 00 63 00 01"));
        device.take(8);
        EXPECT_EQ(received(link, 5), "");
        const QByteArray lateAnswer = withCrc("01 03 02 11 11");
        const QByteArray next = withCrc(row.next);
        const QByteArray answer = withCrc((std::string(row.next).substr(0, 2) + " 03 02 22 22").c_str());
        std::string requestSeen;
        std::thread drive([&] {
            // The late answer, just after the master gave up; then the answer.
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
            device.put(toHex(lateAnswer).c_str());
            requestSeen = device.take(8);
            device.answer(toHex(answer).c_str());
        });
        // As the driver does: the answer is asked for as soon as the request is sent.
        send(link, next);
        const std::string got = received(link, 7);
        drive.join();
        EXPECT_EQ(link.counters().guardWaits, 0u);
        EXPECT_EQ(requestSeen, toHex(next));
        EXPECT_EQ(got, toHex(answer));
        EXPECT_EQ(link.counters().lateBytesDropped, uint64_t(lateAnswer.size()));
    }
}

TEST(SerialLink, AnEarlyFrameFromAStationThatOwedNoAnswerShowsTheLineOutOfStep)
{
    // The last exchange took a clean answer, yet a frame of the same station
    // begins while the next request is on the wire: an answer taken before
    // was another request's, and this one's may be behind it. The exchange
    // takes nothing, and the guard holds the next request back.
    Device device;
    SerialLink link;
    ASSERT_TRUE(opened(link, device, options(100)));
    const QByteArray first = withCrc("01 03 00 63 00 01"), second = withCrc("01 03 00 64 00 01");
    send(link, first);
    device.take(8);
    device.answer(toHex(withCrc("01 03 02 11 11")).c_str());
    EXPECT_EQ(received(link, 7), toHex(withCrc("01 03 02 11 11")));
    std::thread drive([&device] {
        device.take(8);
        device.put(toHex(withCrc("01 03 02 11 11")).c_str());
        device.answer(toHex(withCrc("01 03 02 22 22")).c_str());
    });
    send(link, second);
    EXPECT_EQ(received(link, 7), "");
    drive.join();
    send(link, second);
    EXPECT_EQ(link.counters().guardWaits, 1u);
    EXPECT_EQ(link.counters().lateBytesDropped, 14u);
}

// Stale bytes, a reply cut short, a frame from another station and the
// answer: what the sink gets, what each trace form writes, and the health.
TEST(SerialLink, TraceAndHealthShowWhatHappenedOnTheLine)
{
    if (std::string(TECO_EMULATOR) != "")
        GTEST_SKIP() << "under an emulator, when bytes arrive says nothing of the line";
    struct Row
    {
        TraceFormat format;
        std::vector<std::string> lines; // each appears in the file, in this order
    };
    const Row rows[] = {
        { TraceFormat::Decoded,
            { "DROP               AA  [stale bytes dropped before the request]",
                "TX                 01 03 00 63 00 01 74 14  station 1, read holding registers HR100 x1, CRC "
                "ok",
                "01 03 02 41 42  station 1, read holding registers: 5 bytes, a reply of it has 7  "
                "[time-out "
                "after 5 of 7 bytes]",
                "02 03 02 00 01 3D 84  station 2, reply 2 bytes: 1, CRC ok  [not the answer: another "
                "station; "
                "dropped]",
                "01 03 02 12 34 B5 33  station 1, reply 2 bytes: 4660, CRC ok\n" } },
        { TraceFormat::Panel,
            { "DROP    (0Xaa ) : .  [stale bytes dropped before the request]",
                "TX      (0X1 0X3 0X0 0X63 0X0 0X1 0X74 0X14 ) : ..",
                "TIMEOUT (0X1 0X3 0X2 0X41 0X42 ) : ...AB  [time-out after 5 of 7 bytes]",
                "LATE    (0X2 0X3 0X2 0X0 0X1 0X3d 0X84 ) : ...  [not the answer: another station; dropped]",
                "RX      (0X1 0X3 0X2 0X12 0X34 0Xb5 0X33 ) : ....4.3\n" } },
    };
    for (const Row &row : rows) {
        Device device;
        SerialLink link;
        std::string error;
        const std::string path = testing::TempDir() + "seriallink-trace.txt";
        ASSERT_TRUE(link.setTrace(path, error, row.format)) << error;
        std::vector<TraceEvent> events;
        link.setTraceSink([&events](const TraceEvent &e) { events.push_back(e); });
        ASSERT_TRUE(link.open(device.path, LinkSettings(), options(100), error)) << error;
        device.put("AA");
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        const QByteArray request = hex("01 03 00 63 00 01 74 14");
        send(link, request);
        device.answer("01 03 02 41 42");
        received(link, 5);
        received(link, 2);
        // The same request again after a failure: a retry.
        send(link, request);
        device.answer("02 03 02 00 01 3D 84 01 03 02 12 34 B5 33");
        received(link, 7);
        link.setTrace("", error);
        std::ifstream in(path);
        std::stringstream text;
        text << in.rdbuf();
        const std::string t = text.str();
        size_t at = 0;
        for (const std::string &line : row.lines) {
            const size_t found = t.find(line, at);
            EXPECT_NE(found, std::string::npos) << line << "\nin\n" << t;
            at = found == std::string::npos ? at : found;
        }
        std::remove(path.c_str());

        using K = TraceEvent::Kind;
        const std::vector<std::pair<K, int>> expected = { { K::Stale, 1 }, { K::Sent, 1 }, { K::TimeOut, 1 },
            { K::Sent, 1 }, { K::Late, 2 }, { K::Received, 1 } };
        ASSERT_EQ(events.size(), expected.size());
        for (size_t i = 0; i < expected.size(); ++i) {
            EXPECT_EQ(events[i].kind, expected[i].first) << i;
            EXPECT_EQ(events[i].station, expected[i].second) << i;
        }
        EXPECT_GE(events[2].sinceRequestNs, 100000000) << "the time-out came a time-out after the request";

        const SerialLink::StationHealth one = link.healthOf(1), two = link.healthOf(2);
        EXPECT_EQ(one.requests, 2u);
        EXPECT_EQ(one.retries, 1u);
        EXPECT_EQ(one.timeOuts, 1u);
        EXPECT_EQ(one.crcErrors + one.exceptions, 0u);
        EXPECT_EQ(two.lateBytesDropped, 7u);
        EXPECT_EQ(two.requests, 0u);
    }
}

TEST(SerialLink, RefusesDevicesItCannotUse)
{
    Device device;
    SerialLink first;
    std::string error;
    ASSERT_TRUE(first.open(device.path, LinkSettings(), options(), error)) << error;
    LinkOptions rs485 = options();
    rs485.rs485 = true;
    struct Row
    {
        std::string device;
        LinkOptions options;
        std::string error;
    } rows[] = {
        { "/dev/no-such-port", options(), "cannot open /dev/no-such-port: No such file or directory" },
        { "/dev/null", options(), "/dev/null is not a serial device" },
        { device.path, options(), device.path + " is busy: another program has it open" },
    };
    for (const Row &row : rows) {
        SerialLink link;
        EXPECT_FALSE(link.open(row.device, LinkSettings(), row.options, error));
        EXPECT_EQ(error, row.error);
        EXPECT_FALSE(link.isOpen());
    }
    first.close();
    // A pseudo-terminal has no RS485 transmitter to switch.
    SerialLink link;
    EXPECT_FALSE(link.open(device.path, LinkSettings(), rs485, error));
    EXPECT_NE(error.find("does not support kernel RS485 direction control"), std::string::npos) << error;
    EXPECT_TRUE(link.open(device.path, LinkSettings(), options(), error))
        << "the failed open left the device usable";
}

} // namespace
