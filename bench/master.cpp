// teco-bench-master: our driver as a master in the peer measurement harness.
//
//   teco-bench-master -d DEVICE [-b BAUD] [-p N|E|O] [-S STOPBITS] [-s STATION] [-a ADDRESS]
//                     [-r REGISTERS] [-k COUNT] [-t SECONDS] [-T TIMEOUT_MS]
//                     [--no-silence] [--plugin PATH] [--name NAME]
//
// Loads the driver plug-in as the panel does (QPluginLoader), opens our serial
// link on DEVICE and reads R holding registers at ADDRESS (zero-based) from
// STATION back to back through the driver's read: one untimed warm-up read,
// then until COUNT reads or SECONDS have passed. Checks that register n holds
// n and prints one line:
//
//   RESULT master=NAME baud=B regs=R n=OK errors=E elapsed_s=S tps=T median_ms=M p99_ms=P min_ms=A max_ms=B

#include "driverinterface.h"
#include "driverhost.h"
#include "seriallink.h"

#include <QCoreApplication>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <getopt.h>
#include <string>
#include <vector>

namespace {

double percentile(const std::vector<int64_t> &sorted, double q)
{
    if (sorted.empty())
        return 0;
    size_t rank = size_t(q * double(sorted.size()) + 0.999999);
    rank = std::min(std::max<size_t>(rank, 1), sorted.size());
    return double(sorted[rank - 1]) / 1e6;
}

int usage()
{
    std::fprintf(stderr,
        "usage: teco-bench-master -d DEVICE [-b BAUD] [-p N|E|O] [-S STOPBITS] [-s STATION] "
        "[-a ADDR] [-r REGS] [-k COUNT] [-t SECONDS] [-T TIMEOUT_MS] [--no-silence] "
        "[--plugin PATH] [--name NAME]\n");
    return 2;
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    std::string device, plugin = TECO_DEFAULT_PLUGIN, name = "ours";
    int baud = 115200, stopBits = 2, station = 1, address = 0, regs = 1, count = 1000, timeoutMs = 1000;
    double seconds = 2.0;
    char parity = 'N';
    bool silence = true;
    static const struct option longOptions[]
        = { { "no-silence", no_argument, nullptr, 'n' }, { "plugin", required_argument, nullptr, 'P' },
              { "name", required_argument, nullptr, 'N' }, { nullptr, 0, nullptr, 0 } };
    int opt;
    while ((opt = getopt_long(argc, argv, "d:b:p:S:s:a:r:k:t:T:", longOptions, nullptr)) != -1) {
        switch (opt) {
        case 'd':
            device = optarg;
            break;
        case 'b':
            baud = std::atoi(optarg);
            break;
        case 'p':
            parity = optarg[0];
            break;
        case 'S':
            stopBits = std::atoi(optarg);
            break;
        case 's':
            station = std::atoi(optarg);
            break;
        case 'a':
            address = std::atoi(optarg);
            break;
        case 'r':
            regs = std::atoi(optarg);
            break;
        case 'k':
            count = std::atoi(optarg);
            break;
        case 't':
            seconds = std::atof(optarg);
            break;
        case 'T':
            timeoutMs = std::atoi(optarg);
            break;
        case 'n':
            silence = false;
            break;
        case 'P':
            plugin = optarg;
            break;
        case 'N':
            name = optarg;
            break;
        default:
            return usage();
        }
    }
    if (device.empty() || regs < 1 || regs > 125 || count < 1 || address < 0 || address + regs > 65536)
        return usage();

    DriverHost host;
    std::string error;
    DriverInterface *driver = host.load(plugin, error);
    if (!driver) {
        std::fprintf(stderr, "teco-bench-master: %s\n", error.c_str());
        return 1;
    }
    LinkSettings settings;
    const std::string text = "RS485," + std::to_string(baud) + ","
        + (parity == 'E'        ? "EVEN"
                : parity == 'O' ? "ODD"
                                : "NONE")
        + ",8," + std::to_string(stopBits);
    if (!LinkSettings::parse(text, settings, error)) {
        std::fprintf(stderr, "teco-bench-master: %s\n", error.c_str());
        return 2;
    }
    LinkOptions options;
    options.timeoutMs = timeoutMs;
    options.retry = 0;
    options.station = station;
    options.silence = silence;
    SerialLink link;
    if (!link.open(device, settings, options, error)) {
        std::fprintf(stderr, "teco-bench-master: %s\n", error.c_str());
        return 1;
    }
    driver->initialize(&link);

    const CommunicatorCommand cmd(Word, regs, QString("HR%1").arg(address + 1));
    driver->read(&link, cmd); // warm-up
    std::vector<int64_t> latencies;
    latencies.reserve(size_t(count));
    long errors = 0;
    const int64_t start = monotonicNs(), limit = int64_t(seconds * 1e9);
    while (latencies.size() < size_t(count) && monotonicNs() - start < limit) {
        const int64_t t0 = monotonicNs();
        const QByteArray data = driver->read(&link, cmd);
        const int64_t t1 = monotonicNs();
        bool ok = !driver->hasError() && data.size() == 2 * regs;
        for (int i = 0; ok && i < regs; ++i) {
            const unsigned value = unsigned(static_cast<unsigned char>(data[2 * i]))
                | unsigned(static_cast<unsigned char>(data[2 * i + 1])) << 8;
            ok = value == unsigned((address + i) & 0xFFFF);
        }
        if (!ok) {
            if (errors++ == 0)
                std::fprintf(stderr, "teco-bench-master: read failed: %s\n",
                    driver->hasError() ? driver->getLastError().toLocal8Bit().constData()
                                       : "wrong register values");
            continue;
        }
        latencies.push_back(t1 - t0);
    }
    const int64_t elapsed = monotonicNs() - start;
    std::sort(latencies.begin(), latencies.end());
    const double secs = double(elapsed) / 1e9;
    std::printf("RESULT master=%s baud=%d regs=%d n=%zu errors=%ld elapsed_s=%.3f tps=%.1f median_ms=%.3f "
                "p99_ms=%.3f min_ms=%.3f max_ms=%.3f\n",
        name.c_str(), baud, regs, latencies.size(), errors, secs,
        secs > 0 ? double(latencies.size()) / secs : 0.0, percentile(latencies, 0.5),
        percentile(latencies, 0.99), latencies.empty() ? 0.0 : double(latencies.front()) / 1e6,
        latencies.empty() ? 0.0 : double(latencies.back()) / 1e6);
    return 0;
}
