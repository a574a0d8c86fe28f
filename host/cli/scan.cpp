#include "session.h"

#include "errorkind.h"
#include "output.h"
#include "scanprobe.h"
#include "terminal.h"
#include "textutil.h"

#include <cmath>

namespace {

std::string timeText(double seconds)
{
    const long s = std::lround(seconds);
    char text[32];
    if (s >= 60)
        std::snprintf(text, sizeof text, "%ld min %02ld s", s / 60, s % 60);
    else
        std::snprintf(text, sizeof text, "%ld s", s);
    return text;
}

// One scan under way: the stations probed at one line setting after
// another, the stations heard, and the progress line on a terminal.
struct ScanRun
{
    const DriverHost &host;
    SerialLink &link;
    const ScanCommand &c;
    Output &out;
    ValueType type;
    bool live;
    int64_t start;
    ScanSummary summary;

    // Probes every station at the link's present setting (linkText);
    // where names it on the progress line when settings are listed.
    void probeStations(const std::string &linkText, const std::string &where);
    void showProgress(const std::string &where) const;
    void clearProgress() const
    {
        if (live)
            std::fputs("\r\033[K", stderr);
    }
};

void ScanRun::probeStations(const std::string &linkText, const std::string &where)
{
    for (int s = c.from; s <= c.to; ++s) {
        link.options().station = s;
        const DriverHost::Result r = host.read(link, c.probe, type, 1);
        if (InterruptScope::interrupted())
            break; // this probe may have been cut short: it does not count
        ++summary.probed;
        const ScanVerdict v = judgeScanProbe(r);
        if (v.heard) {
            summary.stations.push_back({ s, v.text, linkText });
            summary.answering += v.answers ? 1 : 0;
            clearProgress();
            out.scanFound(summary, summary.stations.back());
        }
        if (live)
            showProgress(where);
    }
}

void ScanRun::showProgress(const std::string &where) const
{
    const int width = 30, filled = summary.probed * width / summary.probes;
    const double elapsed = double(monotonicNs() - start) / 1e9;
    const double left = elapsed / summary.probed * (summary.probes - summary.probed);
    char text[160];
    std::snprintf(text, sizeof text, "scan [%s%s] %d/%d, %d answering%s, %s left",
        std::string(size_t(filled), '#').c_str(), std::string(size_t(width - filled), '.').c_str(),
        summary.probed, summary.probes, summary.answering, where.c_str(), timeText(left).c_str());
    // Like poll's status line: one column short of the width, so it never wraps.
    std::fprintf(stderr, "\r\033[K%s", fitColumns(text, stderrColumns() - 1).c_str());
    std::fflush(stderr);
}

ScanSummary startSummary(const ScanCommand &c, ValueType type, size_t lines, bool switching)
{
    ScanSummary summary;
    summary.from = c.from;
    summary.to = c.to;
    summary.type = type;
    summary.probe = c.probe.text();
    summary.settings = int(lines);
    summary.settingsListed = switching;
    const int stations = c.to - c.from + 1;
    summary.probes = stations * int(lines);
    return summary;
}

// The exit status of a finished scan, with its one sentence if it failed.
int scanStatus(const ScanCommand &c, const ScanSummary &summary, const std::string &error)
{
    if (!error.empty()) {
        std::fprintf(stderr, "teco-cli: %s\n", error.c_str());
        return ExitFailed;
    }
    if (summary.answering == 0) {
        std::fprintf(stderr, "teco-cli: no station answered between %d and %d\n", c.from, c.to);
        return ExitFailed;
    }
    return ExitOk;
}

} // namespace

int Session::run(const Command &c, const ScanCommand &s)
{
    const int opened = openLineFor(c, false);
    if (opened != ExitOk)
        return opened;
    InterruptScope stop; // Ctrl-C ends the scan; what it found is kept and shown
    LinkOptions &l = link().options();
    l.timeoutMs = c.options.timeout ? *c.options.timeout : scanTimeoutMs;
    l.retry = c.options.retry ? *c.options.retry : scanRetry;
    const ValueType type = defaultType(s.probe);
    const LinkSettings own = link().settings();
    const std::vector<LinkSettings> lines = lineSettingsToTry(s.bauds, s.parities, s.stopBits, own);
    const bool switching = !s.bauds.empty() || !s.parities.empty() || !s.stopBits.empty();
    ScanRun run { host(), link(), s, Output::choose(c.options.json), type, stderrIsTerminal(), monotonicNs(),
        startSummary(s, type, lines.size(), switching) };
    std::string error;
    for (size_t k = 0; k < lines.size() && !InterruptScope::interrupted() && error.empty(); ++k) {
        const std::string linkText = lines[k].text();
        if (switching && !link().setLine(lines[k], error))
            break;
        const std::string where = switching
            ? ", " + linkText + " (" + std::to_string(k + 1) + " of " + std::to_string(lines.size()) + ")"
            : std::string();
        run.probeStations(linkText, where);
    }
    run.clearProgress();
    std::string restoreError;
    if (switching && !link().setLine(own, restoreError) && error.empty())
        error = restoreError;
    run.summary.interrupted = InterruptScope::interrupted();
    run.out.scanDone(run.summary);
    return scanStatus(s, run.summary, error);
}
