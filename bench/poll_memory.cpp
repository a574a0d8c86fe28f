// teco-poll-memory: a long poll's memory. Loads the driver plug-in as the
// panel does (QPluginLoader, through DriverHost) and runs its read N times over an in-memory link
// that answers at once, recording every command in PollStats as teco-cli's
// poll does; prints the process's memory (peak and current resident size,
// bytes allocated with malloc, mapped blocks included) at 10^3, 10^4, ...
// commands.
//
//   teco-poll-memory [--commands N] [--keep-samples] [--plugin PATH]
//
// The link answers reads of 1 to 10 holding registers at HR1..HR1000 with
// registers that hold their own numbers, and every 97th request with an
// exception whose code runs through 1..255, so that the failure texts
// outnumber PollStats' limit. Every value read is checked.
// --keep-samples also keeps every latency in a vector and sorts a copy of it
// at each report, as poll did before PollStats, for comparison.

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

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    long long total = 1000000;
    bool keepSamples = false;
    std::string plugin = TECO_DEFAULT_PLUGIN;
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        if (arg == "--commands" && i + 1 < argc)
            total = std::atoll(argv[++i]);
        else if (arg == "--keep-samples")
            keepSamples = true;
        else if (arg == "--plugin" && i + 1 < argc)
            plugin = argv[++i];
        else {
            std::fprintf(stderr, "usage: teco-poll-memory [--commands N] [--keep-samples] [--plugin PATH]\n");
            return 2;
        }
    }
    if (total < 1) {
        std::fprintf(stderr, "teco-poll-memory: --commands takes a positive number\n");
        return 2;
    }
    DriverHost host;
    std::string error;
    DriverInterface *driver = host.load(plugin, error);
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
    PollStats stats;
    std::vector<double> kept;
    uint64_t wrong = 0;
    std::printf("%s%s\n",
        "| commands | max RSS KiB | RSS KiB | heap in use KiB | failure texts | p50 us | p99 us | max us |",
        keepSamples ? " kept samples KiB |" : "");
    std::printf(
        "%s%s\n", "| ---: | ---: | ---: | ---: | ---: | ---: | ---: | ---: |", keepSamples ? " ---: |" : "");
    long long nextReport = 1000;
    const int64_t start = monotonicNs();
    for (long long i = 0; i < total; ++i) {
        const int count = 1 + int(i % 10);
        const int first = 1 + int(i % 1000);
        const CommunicatorCommand cmd(Word, count, QString("HR%1").arg(first));
        const int64_t t0 = monotonicNs();
        const QByteArray data = driver->read(&link, cmd);
        const int64_t ns = monotonicNs() - t0;
        if (driver->hasError()) {
            stats.addFailure(driver->getLastError().toStdString());
        } else {
            stats.addSuccess(ns);
            if (keepSamples)
                kept.push_back(double(ns) / 1e6);
            // Register n (zero-based) holds n, low byte first in the panel's order.
            bool good = data.size() == 2 * count;
            for (int k = 0; good && k < count; ++k) {
                const unsigned v
                    = unsigned((unsigned char)data[2 * k]) | unsigned((unsigned char)data[2 * k + 1]) << 8;
                good = v == unsigned(first - 1 + k);
            }
            wrong += good ? 0 : 1;
        }
        if (i + 1 == nextReport || i + 1 == total) {
            size_t keptBytes = 0;
            if (keepSamples) {
                std::vector<double> sorted(kept); // as the status line did
                std::sort(sorted.begin(), sorted.end());
                keptBytes = (kept.capacity() + sorted.capacity()) * sizeof(double);
            }
            const struct mallinfo2 heap = mallinfo2();
            std::printf("| %lld | %ld | %ld | %zu | %zu | %.1f | %.1f | %.1f |", i + 1, maxResidentKiB(),
                residentKiB(), (heap.uordblks + heap.hblkhd) / 1024, stats.failuresByText().size(),
                stats.percentileNs(0.5) / 1e3, stats.percentileNs(0.99) / 1e3, double(stats.maxNs()) / 1e3);
            if (keepSamples)
                std::printf(" %zu |", keptBytes / 1024);
            std::printf("\n");
            std::fflush(stdout);
            nextReport *= 10;
        }
    }
    const double seconds = double(monotonicNs() - start) / 1e9;
    std::printf("\n%llu commands in %.1f s, %llu failed (exceptions as answered), %llu wrong values\n",
        (unsigned long long)stats.commands(), seconds, (unsigned long long)stats.failed(),
        (unsigned long long)wrong);
    return wrong ? 1 : 0;
}
