#include "session.h"

#include "errorkind.h"
#include "output.h"
#include "scanprobe.h"
#include "terminal.h"

int Session::scan(const Command &c)
{
    LinkOptions &l = link.options();
    l.timeoutMs = c.options.timeout ? *c.options.timeout : scanTimeoutMs;
    l.retry = c.options.retry ? *c.options.retry : scanRetry;
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
        const ScanVerdict v = judgeScanProbe(host.read(link, c.probe, type, 1));
        if (v.heard)
            found.push_back({ s, v.text });
        answering += v.answers ? 1 : 0;
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
