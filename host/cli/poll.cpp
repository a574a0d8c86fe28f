#include "session.h"

#include "errorkind.h"
#include "formattedio.h"
#include "output.h"
#include "pollstats.h"
#include "samplelog.h"
#include "terminal.h"
#include "textutil.h"

#include <QJsonArray>

#include <time.h>

namespace {

// One read of a tag as a sample: its values as texts in the tag's format
// (unsigned numbers for a plain type), or the driver's text.
Sample readTag(const DriverHost &host, AbstractDeviceInterface &link, const Tag &t, DriverError &error)
{
    Sample s;
    s.wallMs = Sample::nowMs();
    s.tag = t.text;
    FormattedResult r = readAsTexts(host, link, t.address, t.type, t.format, t.count);
    s.ok = r.ok;
    s.numeric = !t.format || t.format->isNumeric();
    s.addresses = std::move(r.addresses);
    s.values = std::move(r.values);
    s.error = r.errorText;
    error = r.error;
    return s;
}

} // namespace

int Session::poll(const Command &c)
{
    InterruptScope stop; // Ctrl-C ends the poll, with its summary
    auto interrupted = [] { return InterruptScope::interrupted(); };

    const bool live = stderrIsTerminal();
    const bool json = c.options.json;
    Output &out = Output::forCommand(c);
    // Latencies and failures in fixed memory, however long the poll runs.
    PollStats stats;
    int cycle = 0;
    std::vector<std::string> last(c.tags.size());
    std::vector<QJsonArray> lastValues(c.tags.size());
    std::vector<std::string> lastErrors(c.tags.size());
    const int64_t start = monotonicNs();
    int64_t next = start, lastStatus = 0;
    const std::map<int, SerialLink::StationHealth> healthAtStart = link.health();
    for (const Tag &t : c.tags)
        noteWindow(t);
    const SerialLink::StationHealth totalAtStart = link.totalHealth();

    auto ms = [&](double q) { return stats.percentileNs(q) / 1e6; };
    auto statusLine = [&]() {
        const double seconds = double(monotonicNs() - start) / 1e9;
        char text[256];
        std::snprintf(text, sizeof text,
            "%.1f commands/s  p50 %.2f ms  p90 %.2f ms  p99 %.2f ms  errors %llu",
            seconds > 0 ? double(stats.commands()) / seconds : 0.0, ms(0.5), ms(0.9), ms(0.99),
            (unsigned long long)stats.failed());
        std::string line = text;
        const std::string health = healthText(link.totalHealth() - totalAtStart);
        if (!health.empty())
            line += "  " + health;
        for (const auto &e : stats.failuresByText())
            line += " (" + e.first + " " + std::to_string(e.second) + ")";
        return line;
    };
    auto clearStatus = [&]() {
        if (live)
            std::fputs("\r\033[K", stderr);
    };

    bool logFailed = false;
    while (!interrupted() && !logFailed) {
        if (c.cycles && cycle >= c.cycles)
            break;
        if (c.durationS > 0 && double(monotonicNs() - start) / 1e9 >= c.durationS)
            break;
        for (size_t i = 0; i < c.tags.size() && !interrupted(); ++i) {
            const Tag &t = c.tags[i];
            const int64_t t0 = monotonicNs();
            DriverError error;
            const Sample sample = readTag(host, link, t, error);
            const int64_t latencyNs = monotonicNs() - t0;
            std::string shown;
            QJsonArray values;
            if (!sample.ok) {
                stats.addFailure(error.text);
                shown = "error: " + sample.error;
                // The summary shows a tag's last read: no values when it failed.
                lastValues[i] = QJsonArray();
                lastErrors[i] = sample.error;
            } else {
                lastErrors[i].clear();
                stats.addSuccess(latencyNs);
                for (const std::string &v : sample.values) {
                    shown += (shown.empty() ? "" : " ") + v;
                    values.append(jsonValue(v, sample.numeric));
                }
                lastValues[i] = values;
            }
            if ((c.options.every || shown != last[i]) && !json) {
                clearStatus();
                out.pollChange(double(t0 - start) / 1e9, t, shown);
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
                break;
            }
        }
        ++cycle;
        const int64_t now = monotonicNs();
        if (live && now - lastStatus > 200000000) {
            // One column less than the width: a line that fills the last
            // column wraps on some terminals, and \r would not return to it.
            std::fprintf(stderr, "\r\033[K%s", fitColumns(statusLine(), stderrColumns() - 1).c_str());
            std::fflush(stderr);
            lastStatus = now;
        }
        if (logFailed || (c.cycles && cycle >= c.cycles))
            break;
        next += int64_t(c.intervalMs) * 1000000;
        if (next < now)
            next = now; // a slow cycle does not make the next ones rush
        struct timespec ts = { time_t(next / 1000000000), long(next % 1000000000) };
        if (!interrupted())
            clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &ts, nullptr);
    }
    clearStatus();
    pollLog.close();

    const double seconds = double(monotonicNs() - start) / 1e9;
    PollSummary summary;
    for (const auto &s : link.health()) {
        const auto before = healthAtStart.find(s.first);
        const SerialLink::StationHealth during
            = before == healthAtStart.end() ? s.second : s.second - before->second;
        if (during.requests || !healthText(during).empty())
            summary.health[s.first] = during; // only the stations this poll talked to or heard from
    }
    summary.cycles = cycle;
    summary.seconds = seconds;
    summary.stats = &stats;
    summary.tags = &c.tags;
    summary.lastValues = &lastValues;
    summary.lastErrors = &lastErrors;
    summary.logFailed = logFailed;
    out.pollDone(summary);
    return stats.failed() || logFailed ? ExitFailed : ExitOk;
}
