// teco-poll-memory: a long poll's memory. Loads the driver plug-in as the
// panel does (QPluginLoader, through DriverHost) and runs its read N times over an in-memory link
// that answers at once, recording every command in PollStats as teco-cli's
// poll does; prints the process's memory (peak and current resident size,
// bytes allocated with malloc, mapped blocks included) at 10^3, 10^4, ...
// commands.
//
// teco-poll-memory --help lists its options.
//
// The link answers reads of 1 to 10 holding registers at HR1..HR1000 with
// registers that hold their own numbers, and every 97th request with an
// exception whose code runs through 1..255, so that the failure texts
// outnumber PollStats' limit. Every value read is checked.
// --keep-samples also keeps every latency in a vector and sorts a copy of it
// at each report, as poll did before PollStats, for comparison.

#include "benchoptions.h"
#include "driverhost.h"
#include "driverinterface.h"
#include "memorylink.h"
#include "pollstats.h"
#include "seriallink.h"
#include "tools.h"

#include <QCoreApplication>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <malloc.h>
#include <optional>
#include <string>
#include <sys/prctl.h>
#include <unistd.h>
#include <vector>

namespace {

long residentKiB()
{
    FILE *f = std::fopen("/proc/self/statm", "r");
    long size = 0, resident = 0;
    if (f) {
        if (std::fscanf(f, "%ld %ld", &size, &resident) != 2)
            resident = 0;
        std::fclose(f);
    }
    return resident * (sysconf(_SC_PAGESIZE) / 1024);
}

// The peak resident size (VmHWM), which the kernel keeps up to date when
// read here, unlike getrusage's maximum.
long maxResidentKiB()
{
    FILE *f = std::fopen("/proc/self/status", "r");
    long peak = 0;
    char line[256];
    while (f && std::fgets(line, sizeof line, f))
        if (std::sscanf(line, "VmHWM: %ld", &peak) == 1)
            break;
    if (f)
        std::fclose(f);
    return peak;
}

struct PollOptions
{
    std::optional<int> commands = 1000000;
    bool keepSamples = false;
    std::string plugin = TECO_DEFAULT_PLUGIN;
};

BenchCommandLine pollCommandLine(PollOptions &o)
{
    using T = OptionTable;
    return BenchCommandLine("teco-poll-memory",
        {
            { T::integer("commands", 1, 1000000000, o.commands), "N", "commands to run (default 1000000)" },
            { T::flag("keep-samples", o.keepSamples), "",
                "also keep every latency and sort a copy per report, as poll did once" },
            { T::text("plugin", [&o](const std::string &path) { o.plugin = path; }), "PATH",
                "the driver plug-in (default the one built here)" },
        });
}

// What the reads have met so far.
struct PollRun
{
    PollStats stats;
    std::vector<double> kept; // every latency in ms, with --keep-samples
    uint64_t wrong = 0;
};

// One read of 1 to 10 registers at HR1..HR1000, recorded and checked:
// register n (zero-based) holds n, low byte first in the panel's order.
void readOnce(DriverInterface *driver, MemoryLink &link, long long i, bool keepSamples, PollRun &run)
{
    const int count = 1 + int(i % 10);
    const int first = 1 + int(i % 1000);
    const CommunicatorCommand cmd(Word, count, QString("HR%1").arg(first));
    const int64_t t0 = monotonicNs();
    const QByteArray data = driver->read(&link, cmd);
    const int64_t ns = monotonicNs() - t0;
    if (driver->hasError()) {
        run.stats.addFailure(driver->getLastError().toStdString());
        return;
    }
    run.stats.addSuccess(ns);
    if (keepSamples)
        run.kept.push_back(double(ns) / 1e6);
    bool good = data.size() == 2 * count;
    for (int k = 0; good && k < count; ++k) {
        const unsigned v
            = unsigned((unsigned char)data[2 * k]) | unsigned((unsigned char)data[2 * k + 1]) << 8;
        good = v == unsigned(first - 1 + k);
    }
    run.wrong += good ? 0 : 1;
}

void printHeader(bool keepSamples)
{
    std::printf("%s%s\n",
        "| commands | max RSS KiB | RSS KiB | heap in use KiB | failure texts | p50 us | p99 us | max us |",
        keepSamples ? " kept samples KiB |" : "");
    std::printf(
        "%s%s\n", "| ---: | ---: | ---: | ---: | ---: | ---: | ---: | ---: |", keepSamples ? " ---: |" : "");
}

// One row of the table after done commands.
void printReport(long long done, bool keepSamples, const PollRun &run)
{
    size_t keptBytes = 0;
    if (keepSamples) {
        std::vector<double> sorted(run.kept); // as the status line did
        std::sort(sorted.begin(), sorted.end());
        keptBytes = (run.kept.capacity() + sorted.capacity()) * sizeof(double);
    }
    const struct mallinfo2 heap = mallinfo2();
    const PollStats &stats = run.stats;
    std::printf("| %lld | %ld | %ld | %zu | %zu | %.1f | %.1f | %.1f |", done, maxResidentKiB(),
        residentKiB(), (heap.uordblks + heap.hblkhd) / 1024, stats.failuresByText().size(),
        stats.percentileNs(0.5) / 1e3, stats.percentileNs(0.99) / 1e3, double(stats.maxNs()) / 1e3);
    if (keepSamples)
        std::printf(" %zu |", keptBytes / 1024);
    std::printf("\n");
    std::fflush(stdout);
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    PollOptions o;
    if (const int status = pollCommandLine(o).parse(argc, argv); status >= 0)
        return status;
    DriverHost host;
    std::string error;
    DriverInterface *driver = host.load(o.plugin, error);
    if (!driver) {
        std::fprintf(stderr, "teco-poll-memory: %s\n", error.c_str());
        return 2;
    }
    // As our serial link does on the thread that sends: the driver's zero
    // delay before each attempt then costs microseconds, not the default
    // 50 us slack.
    prctl(PR_SET_TIMERSLACK, 1UL, 0, 0, 0);

    MemoryLink link(97);
    driver->initialize(&link);
    PollRun run;
    printHeader(o.keepSamples);
    const long long total = *o.commands;
    long long nextReport = 1000;
    const int64_t start = monotonicNs();
    for (long long i = 0; i < total; ++i) {
        readOnce(driver, link, i, o.keepSamples, run);
        if (i + 1 == nextReport || i + 1 == total) {
            printReport(i + 1, o.keepSamples, run);
            nextReport *= 10;
        }
    }
    const double seconds = double(monotonicNs() - start) / 1e9;
    std::printf("\n%llu commands in %.1f s, %llu failed (exceptions as answered), %llu wrong values\n",
        (unsigned long long)run.stats.commands(), seconds, (unsigned long long)run.stats.failed(),
        (unsigned long long)run.wrong);
    return run.wrong ? 1 : 0;
}
