#include "session.h"

#include "output.h"
#include "poller.h"
#include "samplelog.h"
#include "terminal.h"
#include "textutil.h"

#include <QJsonArray>

#include <time.h>

namespace {

// A named tag's value in engineering units with its unit ("12.50 A"), as
// shown and logged; a raw value that gives none fails the sample.
void engineeringSample(const Parameter &param, Sample &s)
{
    std::string value, error;
    if (!s.ok || s.values.size() != 1)
        return;
    if (!engineeringValue(param, s.values[0], value, error)) {
        s.ok = false;
        s.error = error;
        s.values.clear();
        return;
    }
    s.values = { withUnit(param, value) };
    s.numeric = false;
}

// A poll's read as the log and the output take it: its values as texts in
// the tag's format (unsigned numbers for a plain type), or the driver's text;
// a parameter named by the tag in engineering units.
Sample sampleOf(const Tag &t, const Parameter *param, PollSample &&p)
{
    Sample s;
    s.tag = t.text;
    s.wallMs = p.wallMs;
    s.ok = p.result.ok;
    s.numeric = !t.format || t.format->isNumeric();
    s.addresses = std::move(p.result.addresses);
    s.values = std::move(p.result.values);
    s.error = p.result.errorText;
    if (param)
        engineeringSample(*param, s);
    return s;
}

std::string stationList(const std::vector<int> &stations)
{
    std::string text;
    for (int s : stations)
        text += (text.empty() ? "" : ",") + std::to_string(s);
    return text;
}

// One poll as teco-cli shows it: the poller's samples as lines that
// change, a live status line, the log, and the summary at the end.
class PollRun
{
public:
    PollRun(const PollCommand &command, bool json, DriverSession &session, SampleLog &log)
        : c(command)
        , json(json)
        , drive(session)
        , poller(session, true)
        , pollLog(log)
        , out(Output::choose(json))
        , live(stderrIsTerminal())
        , last(command.tags.size())
        , lastValues(command.tags.size())
        , lastErrors(command.tags.size())
        , stale(command.tags.size(), false)
        , startWallMs(wallClockMs())
        , start(monotonicNs())
        , totalAtStart(session.totalHealth())
    {
        poller.setTags(command.tags);
        poller.setMergeGap(command.mergeGap);
    }
    int run(const std::map<int, SerialLink::StationHealth> &healthAtStart);

private:
    bool finished() const;
    void cycle();
    void render(PollSample &&sample);
    void show(size_t i, const Sample &sample, const std::string &shown);
    void clearStatus() const;
    std::string statusLine() const;
    void waitForNextCycle();

    const PollCommand &c;
    const bool json;
    DriverSession &drive;
    Poller poller;
    SampleLog &pollLog;
    Output &out;
    const bool live;
    bool logFailed = false;
    std::vector<std::string> last;
    std::vector<QJsonArray> lastValues;
    std::vector<std::string> lastErrors;
    std::vector<bool> stale; // the tag's station is backed off: its last values are old
    const int64_t startWallMs;
    const int64_t start;
    int64_t lastStatus = 0;
    const SerialLink::StationHealth totalAtStart;
};

bool PollRun::finished() const
{
    return InterruptScope::interrupted() || logFailed || (c.cycles && poller.cycles() >= uint64_t(c.cycles))
        || (c.durationS > 0 && double(monotonicNs() - start) / 1e9 >= c.durationS);
}

void PollRun::clearStatus() const
{
    if (live)
        std::fputs("\r\033[K", stderr);
}

std::string PollRun::statusLine() const
{
    const PollStats &stats = poller.stats();
    auto ms = [&](double q) { return stats.percentileNs(q) / 1e6; };
    const double seconds = double(monotonicNs() - start) / 1e9;
    char text[256];
    std::snprintf(text, sizeof text, "%.1f commands/s  p50 %.2f ms  p90 %.2f ms  p99 %.2f ms  errors %llu",
        seconds > 0 ? double(stats.commands()) / seconds : 0.0, ms(0.5), ms(0.9), ms(0.99),
        (unsigned long long)stats.failed());
    std::string line = text;
    if (poller.deviceGone())
        line += "  device gone";
    const std::vector<int> off = poller.backoff().backedOffStations();
    if (!off.empty())
        line += std::string("  backed off: station") + (off.size() == 1 ? " " : "s ") + stationList(off);
    if (poller.missedIntervals())
        line += "  interval missed " + std::to_string(poller.missedIntervals()) + "x";
    const std::string health = healthText(drive.totalHealth() - totalAtStart);
    if (!health.empty())
        line += "  " + health;
    for (const auto &e : stats.failuresByText())
        line += " (" + e.first + " " + std::to_string(e.second) + ")";
    return line;
}

void PollRun::show(size_t i, const Sample &sample, const std::string &shown)
{
    const Tag &t = c.tags[i];
    if ((c.every || shown != last[i]) && !json) {
        clearStatus();
        out.pollChange(double(sample.wallMs - startWallMs) / 1e3, t, shown);
        lastStatus = 0;
    } else if (c.every) {
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

void PollRun::render(PollSample &&p)
{
    const size_t i = p.index;
    const Tag &t = c.tags[i];
    const bool newlyBackedOff = p.newlyBackedOff;
    stale[i] = p.backedOff;
    const int station = p.station;
    const Sample sample = sampleOf(t, i < c.params.size() ? c.params[i] : nullptr, std::move(p));
    std::string shown;
    if (!sample.ok) {
        shown = "error: " + sample.error;
        lastValues[i] = QJsonArray(); // the summary shows a tag's last read: no values when it failed
        lastErrors[i] = sample.error;
    } else {
        lastErrors[i].clear();
        QJsonArray values;
        for (const std::string &v : sample.values) {
            shown += (shown.empty() ? "" : " ") + v;
            values.append(jsonValue(v, sample.numeric));
        }
        lastValues[i] = values;
    }
    if (newlyBackedOff)
        shown += "  (station " + std::to_string(station) + " backed off: read once every "
            + std::to_string(poller.backoff().everyCycles()) + " cycles until it answers)";
    show(i, sample, shown);
}

void PollRun::cycle()
{
    const Poller::CycleStart begun = poller.beginCycle();
    if (begun == Poller::CycleStart::DeviceBack) {
        clearStatus();
        std::fprintf(stderr, "teco-cli: the device %s is back\n", drive.link().device().c_str());
    }
    PollSample sample;
    while (!InterruptScope::interrupted() && !logFailed && poller.next(sample)) {
        const bool goneNow = sample.deviceGone;
        render(std::move(sample));
        if (goneNow) {
            clearStatus();
            std::fprintf(
                stderr, "teco-cli: %s; waiting for it to come back\n", drive.deviceGoneText().c_str());
        }
    }
    poller.abandonCycle(); // an interrupt or a failed log ends it early
}

void PollRun::waitForNextCycle()
{
    const int64_t now = monotonicNs();
    if (live && now - lastStatus > 200000000) {
        // One column less than the width: a line that fills the last
        // column wraps on some terminals, and \r would not return to it.
        std::fprintf(stderr, "\r\033[K%s", fitColumns(statusLine(), stderrColumns() - 1).c_str());
        std::fflush(stderr);
        lastStatus = now;
    }
    if (finished())
        return;
    const int64_t next = poller.nextCycleAt(int64_t(c.intervalMs) * 1000000);
    struct timespec ts = { time_t(next / 1000000000), long(next % 1000000000) };
    if (!InterruptScope::interrupted() && next > monotonicNs())
        clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &ts, nullptr);
}

int PollRun::run(const std::map<int, SerialLink::StationHealth> &healthAtStart)
{
    while (!finished()) {
        cycle();
        poller.endCycle();
        waitForNextCycle();
    }
    clearStatus();
    pollLog.close();
    PollSummary summary;
    for (const auto &s : drive.health()) {
        const auto before = healthAtStart.find(s.first);
        const SerialLink::StationHealth during
            = before == healthAtStart.end() ? s.second : s.second - before->second;
        if (during.requests || !healthText(during).empty())
            summary.health[s.first] = during; // only the stations this poll talked to or heard from
    }
    const PollStats &stats = poller.stats();
    summary.cycles = int(poller.cycles());
    summary.seconds = double(monotonicNs() - start) / 1e9;
    summary.stats = &stats;
    summary.tags = &c.tags;
    summary.lastValues = &lastValues;
    summary.lastErrors = &lastErrors;
    summary.stale = &stale;
    summary.logFailed = logFailed;
    summary.backedOff = poller.backoff().backedOffStations();
    summary.backoffEvery = poller.backoff().everyCycles();
    summary.intervalMs = c.intervalMs;
    summary.missedIntervals = poller.missedIntervals();
    summary.longestCycleMs = double(poller.longestCycleNs()) / 1e6;
    summary.deviceGone = poller.deviceGone() ? drive.link().device() : std::string();
    out.pollDone(summary);
    return stats.failed() || logFailed || poller.deviceGone() ? ExitFailed : ExitOk;
}

} // namespace

int Session::run(const Command &c, const PollCommand &p)
{
    // The log is created before the line opens: a refused path sends nothing.
    std::string error;
    if (p.log && !pollLog.open(*p.log, c.options.json, error))
        return usage("cannot write the log to " + *p.log + ": " + error);
    const int opened = openLineFor(c, true);
    if (opened != ExitOk)
        return opened;
    InterruptScope stop; // Ctrl-C ends the poll, with its summary
    for (const Tag &t : p.tags)
        noteWindow(t);
    const std::map<int, SerialLink::StationHealth> healthAtStart = drive.health();
    PollRun run(p, c.options.json, drive, pollLog);
    return run.run(healthAtStart);
}
