#include "session.h"

#include "errorkind.h"
#include "output.h"
#include "terminal.h"
#include "pollstats.h"

#include <QJsonArray>

#include <time.h>

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

    while (!interrupted()) {
        if (c.cycles && cycle >= c.cycles)
            break;
        if (c.durationS > 0 && double(monotonicNs() - start) / 1e9 >= c.durationS)
            break;
        for (size_t i = 0; i < c.tags.size() && !interrupted(); ++i) {
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
        if (!interrupted())
            clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &ts, nullptr);
    }
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
