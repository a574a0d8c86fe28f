#include "session.h"

#include "errorkind.h"
#include "output.h"
#include "pollstats.h"
#include "textfile.h"

#include <QJsonArray>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

namespace {

volatile std::sig_atomic_t interrupted = 0;

void onInterrupt(int) { interrupted = 1; }

bool stderrIsTerminal() { return isatty(STDERR_FILENO) == 1; }

// The lines of a batch: from a file read whole (a regular file within
// userTextFileLimit), or from standard input as they come, so that typed
// commands run at once; a line from standard input is refused beyond
// lineLimit bytes rather than kept growing.
class BatchLines
{
public:
    enum { lineLimit = 65536 };

    bool readFile(const std::string &path, std::string &error)
    {
        fromInput = false;
        return readTextFile(path, userTextFileLimit, pending, error);
    }

    // The next line without its end; false at the end of the batch, with
    // error set if it ended by a failure.
    bool next(std::string &line, std::string &error)
    {
        error.clear();
        for (;;) {
            const size_t end = pending.find('\n', consumed);
            if (end != std::string::npos || atEnd) {
                if (end == std::string::npos && consumed >= pending.size())
                    return false;
                const size_t stop = end == std::string::npos ? pending.size() : end;
                line.assign(pending, consumed, stop - consumed);
                consumed = end == std::string::npos ? pending.size() : end + 1;
                ++lines;
                return true;
            }
            if (!fromInput) {
                atEnd = true;
                continue;
            }
            if (pending.size() - consumed > lineLimit) {
                error = "batch line " + std::to_string(lines + 1) + " is longer than 64 KiB";
                return false;
            }
            pending.erase(0, consumed);
            consumed = 0;
            char buffer[4096];
            const ssize_t n = ::read(STDIN_FILENO, buffer, sizeof buffer);
            if (n < 0 && errno == EINTR)
                continue;
            if (n < 0) {
                error = std::string("cannot read the batch from standard input: ") + std::strerror(errno);
                return false;
            }
            if (n == 0)
                atEnd = true;
            else
                pending.append(buffer, size_t(n));
        }
    }

private:
    std::string pending;
    size_t consumed = 0;
    int lines = 0;
    bool fromInput = true;
    bool atEnd = false;
};

} // namespace

Session::Session(const CliOptions &sessionOptions)
    : session(sessionOptions)
{
}

Session::~Session()
{
    link.close();
    sim.stop();
}

int Session::usage(const std::string &text)
{
    std::fprintf(stderr, "teco-cli: %s\n", text.c_str());
    return ExitUsage;
}

int Session::failure(const Command &c, const std::string &text)
{
    Output::forCommand(c).failed(c, text);
    std::fprintf(stderr, "teco-cli: %s\n", text.c_str());
    return ExitFailed;
}

int Session::loadDriver()
{
    const std::string path = session.plugin ? *session.plugin : std::string(TECO_DEFAULT_PLUGIN);
    std::string error;
    driver = host.load(path, error);
    if (!driver)
        return usage(error);
    // The driver's own defaults, as a new panel project would take them.
    if (!host.defaults(session.link, settings, defaults, error))
        return usage(error);
    if (session.station)
        defaults.station = *session.station;
    if (session.timeout)
        defaults.timeoutMs = *session.timeout;
    if (session.retry)
        defaults.retry = *session.retry;
    if (session.delay)
        defaults.delayMs = (unsigned long)*session.delay;
    if (session.lateGuard)
        defaults.lateGuardMs = *session.lateGuard;
    defaults.silence = !session.noSilence;
    defaults.rs485 = session.rs485;
    defaults.localEcho = session.localEcho;
    return ExitOk;
}

int Session::openLine()
{
    if (lineOpen)
        return ExitOk;
    // Every file named on the command line is checked before anything
    // starts: a bad map leaves no trace file behind, a bad trace path starts
    // no simulated drive.
    std::string error;
    SimDrive::Options so;
    if (session.port) {
        if (!session.simFaults.empty() || session.simMap || session.simStations)
            return usage("the --sim-... options are for the simulated drive, which runs only without --port");
    } else {
        so.link = settings;
        if (session.simStations && !SimDrive::parseStations(*session.simStations, so.stations, error))
            return usage(error);
        for (const std::string &text : session.simFaults) {
            FaultRule rule;
            if (!FaultRule::parse(text, rule, error))
                return usage(error);
            so.faults.push_back(rule);
        }
        if (session.simMap && !readTextFile(*session.simMap, userTextFileLimit, so.map.emplace(), error))
            return usage("cannot read the map " + *session.simMap + ": " + error);
    }
    if (session.trace && !link.setTrace(*session.trace, error))
        return usage(error);
    std::string port;
    if (session.port) {
        port = *session.port;
    } else {
        if (!sim.start(so, error))
            return usage("cannot start the simulated drive: " + error);
        port = sim.devicePath();
        std::string stations;
        for (int s : so.stations)
            stations += (stations.empty() ? "" : ",") + std::to_string(s);
        std::fprintf(stderr,
            "teco-cli: no --port given: talking to the simulated drive on %s (stations %s)\n", port.c_str(),
            stations.c_str());
    }
    if (!link.open(port, settings, defaults, error))
        return usage(error);
    driver->initialize(&link);
    lineOpen = true;
    return ExitOk;
}

void Session::applyLinkOptions(const CliOptions &o)
{
    LinkOptions &l = link.options();
    l = defaults;
    if (o.station)
        l.station = *o.station;
    if (o.timeout)
        l.timeoutMs = *o.timeout;
    if (o.retry)
        l.retry = *o.retry;
    if (o.delay)
        l.delayMs = (unsigned long)*o.delay;
    if (o.lateGuard)
        l.lateGuardMs = *o.lateGuard;
}

int Session::run(const Command &c)
{
    if (c.name == "info")
        return info(c);
    if (c.name == "batch")
        return batch(c);
    const int opened = openLine();
    if (opened != ExitOk)
        return opened;
    applyLinkOptions(c.options);
    if (c.name == "read")
        return read(c);
    if (c.name == "write")
        return write(c);
    if (c.name == "poll")
        return poll(c);
    if (c.name == "scan")
        return scan(c);
    return usage("unknown command \"" + c.name + "\"");
}

int Session::info(const Command &c)
{
    Output::forCommand(c).info(*driver);
    return ExitOk;
}

int Session::read(const Command &c)
{
    const Tag &t = c.target;
    const DriverHost::Result r = host.read(link, t.address, t.type, t.count);
    if (!r.ok)
        return failure(c, r.errorText);
    Output::forCommand(c).readDone(t, link.options().station, r.elements);
    return ExitOk;
}

int Session::write(const Command &c)
{
    const Tag &t = c.target;
    const DriverHost::Result r = host.write(link, t.address, t.type, c.values);
    if (!r.ok)
        return failure(c, r.errorText);
    Output::forCommand(c).writeDone(t, link.options().station, c.values);
    return ExitOk;
}

int Session::poll(const Command &c)
{
    struct sigaction action, previous;
    std::memset(&action, 0, sizeof action);
    action.sa_handler = onInterrupt; // no SA_RESTART: the pause between cycles ends at once
    sigaction(SIGINT, &action, &previous);
    interrupted = 0;

    const bool live = stderrIsTerminal();
    const bool json = c.options.json;
    Output &out = Output::forCommand(c);
    // Latencies and failures in fixed memory, however long the poll runs.
    PollStats stats;
    int cycle = 0;
    std::vector<std::string> last(c.tags.size());
    std::vector<QJsonArray> lastValues(c.tags.size());
    const int64_t start = monotonicNs();
    int64_t next = start, lastStatus = 0;

    auto ms = [&](double q) { return stats.percentileNs(q) / 1e6; };
    auto statusLine = [&]() {
        const double seconds = double(monotonicNs() - start) / 1e9;
        char text[256];
        std::snprintf(text, sizeof text,
            "%.1f commands/s  p50 %.2f ms  p90 %.2f ms  p99 %.2f ms  errors %llu",
            seconds > 0 ? double(stats.commands()) / seconds : 0.0, ms(0.5), ms(0.9), ms(0.99),
            (unsigned long long)stats.failed());
        std::string line = text;
        for (const auto &e : stats.failuresByText())
            line += " (" + e.first + " " + std::to_string(e.second) + ")";
        return line;
    };
    auto clearStatus = [&]() {
        if (live)
            std::fputs("\r\033[K", stderr);
    };

    while (!interrupted) {
        if (c.cycles && cycle >= c.cycles)
            break;
        if (c.durationS > 0 && double(monotonicNs() - start) / 1e9 >= c.durationS)
            break;
        for (size_t i = 0; i < c.tags.size() && !interrupted; ++i) {
            const Tag &t = c.tags[i];
            const int64_t t0 = monotonicNs();
            const DriverHost::Result r = host.read(link, t.address, t.type, t.count);
            const int64_t latencyNs = monotonicNs() - t0;
            std::string shown;
            QJsonArray values;
            if (!r.ok) {
                stats.addFailure(r.error.text);
                shown = "error: " + r.errorText;
            } else {
                stats.addSuccess(latencyNs);
                for (const Element &e : r.elements) {
                    shown += (shown.empty() ? "" : " ") + std::to_string(e.value);
                    values.append(double(e.value));
                }
                lastValues[i] = values;
            }
            if (shown != last[i] && !json) {
                clearStatus();
                out.pollChange(double(t0 - start) / 1e9, t, shown);
                lastStatus = 0;
            }
            last[i] = shown;
        }
        ++cycle;
        const int64_t now = monotonicNs();
        if (live && now - lastStatus > 200000000) {
            std::fprintf(stderr, "\r\033[K%s", statusLine().c_str());
            std::fflush(stderr);
            lastStatus = now;
        }
        if (c.cycles && cycle >= c.cycles)
            break;
        next += int64_t(c.intervalMs) * 1000000;
        if (next < now)
            next = now; // a slow cycle does not make the next ones rush
        struct timespec ts = { time_t(next / 1000000000), long(next % 1000000000) };
        if (!interrupted)
            clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &ts, nullptr);
    }
    sigaction(SIGINT, &previous, nullptr);
    clearStatus();

    const double seconds = double(monotonicNs() - start) / 1e9;
    PollSummary summary;
    summary.cycles = cycle;
    summary.seconds = seconds;
    summary.stats = &stats;
    summary.tags = &c.tags;
    summary.lastValues = &lastValues;
    out.pollDone(summary);
    return stats.failed() ? ExitFailed : ExitOk;
}

int Session::scan(const Command &c)
{
    LinkOptions &l = link.options();
    // Scanning waits for every silent station: a short time-out and a
    // single attempt unless asked otherwise.
    l.timeoutMs = c.options.timeout ? *c.options.timeout : 100;
    l.retry = c.options.retry ? *c.options.retry : 0;
    const bool live = stderrIsTerminal();
    const ValueType type = defaultType(c.probe);
    ScanSummary summary;
    summary.from = c.from;
    summary.to = c.to;
    summary.type = type;
    summary.probe = c.probe.text();
    std::vector<ScanSummary::Station> &found = summary.stations;
    int &answering = summary.answering;
    const int total = c.to - c.from + 1;
    for (int s = c.from; s <= c.to; ++s) {
        l.station = s;
        const DriverHost::Result r = host.read(link, c.probe, type, 1);
        if (r.ok) {
            found.push_back({ s, "answers" });
            ++answering;
        } else {
            const DriverError &e = r.error;
            if (e.kind == ErrorKind::Exception) {
                found.push_back({ s, "answers with " + e.text });
                ++answering;
            } else if (e.kind != ErrorKind::TimeOut) {
                found.push_back({ s, "garbled answer: " + e.text });
            }
        }
        if (live) {
            const int done = s - c.from + 1;
            const int width = 30, filled = done * width / total;
            std::fprintf(stderr, "\r\033[Kscan [%s%s] %d/%d stations, %d answering",
                std::string(size_t(filled), '#').c_str(), std::string(size_t(width - filled), '.').c_str(),
                done, total, answering);
            std::fflush(stderr);
        }
    }
    if (live)
        std::fputs("\r\033[K", stderr);
    Output::forCommand(c).scanDone(summary);
    if (answering == 0) {
        std::fprintf(stderr, "teco-cli: no station answered between %d and %d\n", c.from, c.to);
        return ExitFailed;
    }
    return ExitOk;
}

int Session::batch(const Command &c)
{
    BatchLines in;
    std::string error;
    if (c.argument != "-" && !in.readFile(c.argument, error))
        return usage("cannot read the batch " + c.argument + ": " + error);
    struct stat input;
    if (c.argument == "-" && fstat(STDIN_FILENO, &input) == 0 && S_ISDIR(input.st_mode))
        return usage("cannot read the batch from standard input: it is a directory");
    const int opened = openLine();
    if (opened != ExitOk)
        return opened;
    bool anyFailed = false;
    std::string text;
    int lineNumber = 0;
    Command batchCommand;
    batchCommand.options.json = session.json;
    while (in.next(text, error)) {
        ++lineNumber;
        if (!text.empty() && text.back() == '\r')
            text.pop_back();
        const size_t first = text.find_first_not_of(" \t");
        if (first == std::string::npos)
            continue;
        Output &out = Output::forCommand(batchCommand);
        if (text[first] == '#') {
            out.batchLine(text);
            continue;
        }
        out.batchLine("teco> " + text.substr(first));
        std::vector<std::string> words;
        CliOptions lineOptions;
        Command command;
        bool good = splitWords(text, words, error) && parseCliArguments(words, lineOptions, true, error);
        lineOptions.json = lineOptions.json || session.json;
        if (!good || !prepareCommand(lineOptions, true, command, error))
            return usage("batch line " + std::to_string(lineNumber) + ": " + error);
        int rc = ExitOk;
        if (command.name == "trace") {
            if (command.argument == "on" && !session.trace && !link.setTrace("-", error))
                return usage(error);
            link.setTraceEnabled(command.argument == "on");
        } else if (command.name == "fault") {
            if (!sim.running())
                return usage("batch line " + std::to_string(lineNumber)
                    + ": fault needs the simulated drive (no --port)");
            FaultRule rule;
            FaultRule::parse(command.argument, rule, error);
            sim.addFault(rule);
        } else {
            rc = run(command);
        }
        if (rc == ExitUsage)
            return rc;
        anyFailed = anyFailed || rc != ExitOk;
        std::fflush(stdout);
    }
    if (!error.empty())
        return usage(error);
    return anyFailed ? ExitFailed : ExitOk;
}
