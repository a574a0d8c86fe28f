#include "session.h"

#include "errorkind.h"
#include "formattedio.h"
#include "output.h"
#include "pollstats.h"
#include "samplelog.h"
#include "stationbackoff.h"
#include "terminal.h"
#include "textutil.h"

#include <QJsonArray>

#include <time.h>

namespace {

// One read of a tag as a sample: its values as texts in the tag's format
// (unsigned numbers for a plain type), or the driver's text. Its time is
// when the answer was complete; without one, when the read gave up.
Sample readTag(
    const DriverHost &host, CommandLink link, const Tag &t, DriverError &error, int64_t &requestsSent)
{
    Sample s;
    s.tag = t.text;
    FormattedResult r = readAsTexts(host, link, t.address, t.type, t.format, t.count);
    s.wallMs = r.answeredMs > 0 ? r.answeredMs : wallClockMs();
    s.ok = r.ok;
    s.numeric = !t.format || t.format->isNumeric();
    s.addresses = std::move(r.addresses);
    s.values = std::move(r.values);
    s.error = r.errorText;
    error = r.error;
    requestsSent = r.requestsSent;
    return s;
}

std::string stationList(const std::vector<int> &stations)
{
    std::string text;
    for (int s : stations)
        text += (text.empty() ? "" : ",") + std::to_string(s);
    return text;
}

// One poll: cycles over its tags, each read at its station; a station that
// stops answering is backed off (StationBackoff) so that it never stretches
// the other stations' interval; a device that goes away is waited for.
class PollRun
{
public:
    PollRun(const Command &command, const DriverHost &driverHost, SerialLink &serialLink, SampleLog &log,
        const std::string &goneText)
        : c(command)
        , host(driverHost)
        , link(serialLink)
        , pollLog(log)
        , gone(goneText)
        , out(Output::forCommand(command))
        , live(stderrIsTerminal())
        , last(command.tags.size())
        , lastValues(command.tags.size())
        , lastErrors(command.tags.size())
        , stale(command.tags.size(), false)
        , commandOptions(serialLink.options())
        , startWallMs(wallClockMs())
        , start(monotonicNs())
        , totalAtStart(serialLink.totalHealth())
    {
    }
    int run(const std::map<int, SerialLink::StationHealth> &healthAtStart);

private:
    bool finished() const;
    void cycle();
    void readOne(size_t i);
    void show(size_t i, const Sample &sample, const std::string &shown);
    bool deviceBack();
    void clearStatus() const;
    std::string statusLine() const;
    void waitForNextCycle(int64_t cycleStartNs);

    const Command &c;
    const DriverHost &host;
    SerialLink &link;
    SampleLog &pollLog;
    const std::string gone; // what to say when the device goes away
    Output &out;
    const bool live;
    PollStats stats;
    StationBackoff backoff;
    int cycles = 0;
    int missedIntervals = 0;
    int64_t longestCycleNs = 0;
    bool deviceGone = false;
    bool logFailed = false;
    std::vector<std::string> last;
    std::vector<QJsonArray> lastValues;
    std::vector<std::string> lastErrors;
    std::vector<bool> stale; // the tag's station is backed off: its last values are old
    const LinkOptions commandOptions; // station, retry, ... of the poll command
    const int64_t startWallMs;
    const int64_t start;
    int64_t next = 0, lastStatus = 0;
    const SerialLink::StationHealth totalAtStart;
};

bool PollRun::finished() const
{
    return InterruptScope::interrupted() || logFailed || (c.cycles && cycles >= c.cycles)
        || (c.durationS > 0 && double(monotonicNs() - start) / 1e9 >= c.durationS);
}

void PollRun::clearStatus() const
{
    if (live)
        std::fputs("\r\033[K", stderr);
}

std::string PollRun::statusLine() const
{
    auto ms = [&](double q) { return stats.percentileNs(q) / 1e6; };
    const double seconds = double(monotonicNs() - start) / 1e9;
    char text[256];
    std::snprintf(text, sizeof text, "%.1f commands/s  p50 %.2f ms  p90 %.2f ms  p99 %.2f ms  errors %llu",
        seconds > 0 ? double(stats.commands()) / seconds : 0.0, ms(0.5), ms(0.9), ms(0.99),
        (unsigned long long)stats.failed());
    std::string line = text;
    if (deviceGone)
        line += "  device gone";
    const std::vector<int> off = backoff.backedOffStations();
    if (!off.empty())
        line += std::string("  backed off: station") + (off.size() == 1 ? " " : "s ") + stationList(off);
    if (missedIntervals)
        line += "  interval missed " + std::to_string(missedIntervals) + "x";
    const std::string health = healthText(link.totalHealth() - totalAtStart);
    if (!health.empty())
        line += "  " + health;
    for (const auto &e : stats.failuresByText())
        line += " (" + e.first + " " + std::to_string(e.second) + ")";
    return line;
}

void PollRun::show(size_t i, const Sample &sample, const std::string &shown)
{
    const Tag &t = c.tags[i];
    if ((c.options.every || shown != last[i]) && !c.options.json) {
        clearStatus();
        out.pollChange(double(sample.wallMs - startWallMs) / 1e3, t, shown);
        lastStatus = 0;
    } else if (c.options.every) {
        out.pollSample(sample);
    }
    last[i] = shown;
    std::string logError;
    if (pollLog.isOpen() && !pollLog.write(sample, logError)) {
        clearStatus();
        std::fprintf(stderr, "teco-cli: %s\n", logError.c_str());
        logFailed = true;
    }
}

void PollRun::readOne(size_t i)
{
    const Tag &t = c.tags[i];
    const int station = t.station >= 0 ? t.station : commandOptions.station;
    const bool wasBackedOff = backoff.backedOff(station);
    link.options() = commandOptions;
    link.options().station = station;
    if (wasBackedOff)
        link.options().retry = 0; // a probe: one attempt
    const int64_t t0 = monotonicNs();
    DriverError error;
    int64_t requestsSent = -1;
    const Sample sample = readTag(host, link, t, error, requestsSent);
    const int64_t latencyNs = monotonicNs() - t0;
    link.options() = commandOptions;
    if (requestsSent != 0)
        backoff.record(station, uint64_t(cycles), sample.ok || error.kind == ErrorKind::Exception);
    std::string shown;
    if (!sample.ok) {
        stats.addFailure(error.text);
        shown = "error: " + sample.error;
        lastValues[i] = QJsonArray(); // the summary shows a tag's last read: no values when it failed
        lastErrors[i] = sample.error;
    } else {
        lastErrors[i].clear();
        stats.addSuccess(latencyNs);
        QJsonArray values;
        for (const std::string &v : sample.values) {
            shown += (shown.empty() ? "" : " ") + v;
            values.append(jsonValue(v, sample.numeric));
        }
        lastValues[i] = values;
    }
    stale[i] = backoff.backedOff(station);
    if (stale[i] && !wasBackedOff)
        shown += "  (station " + std::to_string(station) + " backed off: read once every "
            + std::to_string(backoff.everyCycles()) + " cycles until it answers)";
    show(i, sample, shown);
}

bool PollRun::deviceBack()
{
    std::string error;
    if (!link.reopen(error))
        return false;
    clearStatus();
    std::fprintf(stderr, "teco-cli: the device %s is back\n", link.device().c_str());
    deviceGone = false;
    return true;
}

void PollRun::cycle()
{
    if (deviceGone && !deviceBack())
        return;
    for (size_t i = 0; i < c.tags.size() && !InterruptScope::interrupted() && !logFailed; ++i) {
        const Tag &t = c.tags[i];
        if (!backoff.due(t.station >= 0 ? t.station : commandOptions.station, uint64_t(cycles)))
            continue;
        readOne(i);
        if (link.deviceGone()) {
            clearStatus();
            std::fprintf(stderr, "teco-cli: %s; waiting for it to come back\n", gone.c_str());
            deviceGone = true;
            link.close();
            return;
        }
    }
}

void PollRun::waitForNextCycle(int64_t cycleStartNs)
{
    const int64_t now = monotonicNs();
    const int64_t interval = int64_t(c.intervalMs) * 1000000;
    longestCycleNs = std::max(longestCycleNs, now - cycleStartNs);
    if (live && now - lastStatus > 200000000) {
        // One column less than the width: a line that fills the last
        // column wraps on some terminals, and \r would not return to it.
        std::fprintf(stderr, "\r\033[K%s", fitColumns(statusLine(), stderrColumns() - 1).c_str());
        std::fflush(stderr);
        lastStatus = now;
    }
    if (finished())
        return;
    next += interval;
    if (next < now) {
        ++missedIntervals;
        next = now; // a slow cycle does not make the next ones rush
    }
    struct timespec ts = { time_t(next / 1000000000), long(next % 1000000000) };
    if (!InterruptScope::interrupted())
        clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &ts, nullptr);
}

int PollRun::run(const std::map<int, SerialLink::StationHealth> &healthAtStart)
{
    next = start;
    while (!finished()) {
        const int64_t cycleStart = monotonicNs();
        cycle();
        ++cycles;
        waitForNextCycle(cycleStart);
    }
    clearStatus();
    pollLog.close();
    PollSummary summary;
    for (const auto &s : link.health()) {
        const auto before = healthAtStart.find(s.first);
        const SerialLink::StationHealth during
            = before == healthAtStart.end() ? s.second : s.second - before->second;
        if (during.requests || !healthText(during).empty())
            summary.health[s.first] = during; // only the stations this poll talked to or heard from
    }
    summary.cycles = cycles;
    summary.seconds = double(monotonicNs() - start) / 1e9;
    summary.stats = &stats;
    summary.tags = &c.tags;
    summary.lastValues = &lastValues;
    summary.lastErrors = &lastErrors;
    summary.stale = &stale;
    summary.logFailed = logFailed;
    summary.backedOff = backoff.backedOffStations();
    summary.backoffEvery = backoff.everyCycles();
    summary.intervalMs = c.intervalMs;
    summary.missedIntervals = missedIntervals;
    summary.longestCycleMs = double(longestCycleNs) / 1e6;
    summary.deviceGone = deviceGone ? link.device() : std::string();
    out.pollDone(summary);
    return stats.failed() || logFailed || deviceGone ? ExitFailed : ExitOk;
}

} // namespace

int Session::poll(const Command &c)
{
    InterruptScope stop; // Ctrl-C ends the poll, with its summary
    for (const Tag &t : c.tags)
        noteWindow(t);
    const std::map<int, SerialLink::StationHealth> healthAtStart = link.health();
    PollRun run(c, host, link, pollLog, deviceGoneText());
    return run.run(healthAtStart);
}
