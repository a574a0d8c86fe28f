// teco-bench-master: our driver as a master in the peer measurement harness.
// teco-bench-master --help lists its options; the harness runs it as
//
//   teco-bench-master -d DEVICE -b BAUD -p N -S 2 -s STATION -a ADDRESS -r REGISTERS -k COUNT -t SECONDS
//
// Loads the driver plug-in as the panel does (QPluginLoader), opens our serial
// link on DEVICE and reads R holding registers at ADDRESS (zero-based) from
// STATION back to back through the driver's read: one untimed warm-up read,
// then until COUNT reads or SECONDS have passed. Checks that register n holds
// n and prints one line:
//
//   RESULT master=NAME baud=B regs=R n=OK errors=E elapsed_s=S tps=T median_ms=M p99_ms=P min_ms=A max_ms=B

#include "benchoptions.h"
#include "driverinterface.h"
#include "driverhost.h"
#include "seriallink.h"

#include <QCoreApplication>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <optional>
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

struct MasterOptions
{
    std::string device, plugin = TECO_DEFAULT_PLUGIN, name = "ours";
    std::optional<int> baud = 115200, stopBits = 2, station = 1, address = 0, regs = 1, count = 1000,
                       timeoutMs = 1000;
    double seconds = 2.0;
    std::string parity = "NONE";
    bool noSilence = false;
};

BenchCommandLine masterCommandLine(MasterOptions &o)
{
    using T = OptionTable;
    return BenchCommandLine("teco-bench-master",
        {
            { T::checked("device",
                  [&o](const std::string &path, std::string &error) {
                      o.device = path;
                      return checkDeviceOption("device", path, error);
                  }),
                "DEVICE", "the serial device of the line", 'd', true },
            { T::integer("baud", 1, 4000000, o.baud), "BAUD", "the line's baud rate (default 115200)", 'b' },
            { T::checked("parity",
                  [&o](const std::string &text, std::string &error) {
                      const bool known = text == "N" || text == "E" || text == "O";
                      o.parity = text == "E" ? "EVEN" : text == "O" ? "ODD" : "NONE";
                      if (!known)
                          error = "option --parity takes N, E or O, not \"" + text + "\"";
                      return known;
                  }),
                "N|E|O", "the line's parity (default N)", 'p' },
            { T::integer("stop-bits", 1, 2, o.stopBits), "STOPBITS", "the line's stop bits (default 2)",
                'S' },
            { T::integer("station", 0, 255, o.station), "STATION", "the station read (default 1)", 's' },
            { T::integer("address", 0, 65535, o.address), "ADDRESS",
                "the first register, zero-based (default 0)", 'a' },
            { T::integer("registers", 1, 125, o.regs), "REGISTERS", "registers per read (default 1)", 'r' },
            { T::integer("count", 1, 100000000, o.count), "COUNT", "timed reads at most (default 1000)",
                'k' },
            { T::checked("seconds",
                  [&o](const std::string &text, std::string &error) {
                      char *end = nullptr;
                      o.seconds = std::strtod(text.c_str(), &end);
                      const bool good = !text.empty() && *end == '\0' && o.seconds > 0 && o.seconds <= 86400;
                      if (!good)
                          error = "option --seconds takes seconds above 0 up to 86400, not \"" + text + "\"";
                      return good;
                  }),
                "SECONDS", "time for the timed reads at most (default 2)", 't' },
            { T::integer("timeout", 1, 60000, o.timeoutMs), "TIMEOUT_MS",
                "the link's reply time-out in ms (default 1000)", 'T' },
            { T::flag("no-silence", o.noSilence), "", "no RTU silence before a request" },
            { T::text("plugin", [&o](const std::string &path) { o.plugin = path; }), "PATH",
                "the driver plug-in (default the one built here)" },
            { T::text("name", [&o](const std::string &name) { o.name = name; }), "NAME",
                "the master's name in the RESULT line (default ours)" },
        });
}

// The link to the harness's line as the options give it, for the driver.
bool openLink(const MasterOptions &o, SerialLink &link, std::string &error)
{
    LinkSettings settings;
    const std::string text
        = "RS485," + std::to_string(*o.baud) + "," + o.parity + ",8," + std::to_string(*o.stopBits);
    if (!LinkSettings::parse(text, settings, error))
        return false;
    LinkOptions options;
    options.timeoutMs = *o.timeoutMs;
    options.retry = 0;
    options.station = *o.station;
    options.silence = !o.noSilence;
    return link.open(o.device, settings, options, error);
}

// Register n holds n, low byte first in the panel's order.
bool holdsOwnNumbers(const QByteArray &data, int address, int regs)
{
    bool ok = data.size() == 2 * regs;
    for (int i = 0; ok && i < regs; ++i) {
        const unsigned value = unsigned(static_cast<unsigned char>(data[2 * i]))
            | unsigned(static_cast<unsigned char>(data[2 * i + 1])) << 8;
        ok = value == unsigned((address + i) & 0xFFFF);
    }
    return ok;
}

struct Measurement
{
    std::vector<int64_t> latencies; // of the good reads, sorted
    long errors = 0;
    int64_t elapsedNs = 0;
};

// Reads back to back after one untimed warm-up read until COUNT reads or SECONDS.
Measurement measure(DriverInterface *driver, SerialLink &link, const MasterOptions &o)
{
    const CommunicatorCommand cmd(Word, *o.regs, QString("HR%1").arg(*o.address + 1));
    driver->read(&link, cmd); // warm-up
    Measurement m;
    m.latencies.reserve(size_t(*o.count));
    const int64_t start = monotonicNs(), limit = int64_t(o.seconds * 1e9);
    while (m.latencies.size() < size_t(*o.count) && monotonicNs() - start < limit) {
        const int64_t t0 = monotonicNs();
        const QByteArray data = driver->read(&link, cmd);
        const int64_t t1 = monotonicNs();
        if (!driver->hasError() && holdsOwnNumbers(data, *o.address, *o.regs)) {
            m.latencies.push_back(t1 - t0);
        } else if (m.errors++ == 0) {
            std::fprintf(stderr, "teco-bench-master: read failed: %s\n",
                driver->hasError() ? driver->getLastError().toLocal8Bit().constData()
                                   : "wrong register values");
        }
    }
    m.elapsedNs = monotonicNs() - start;
    std::sort(m.latencies.begin(), m.latencies.end());
    return m;
}

void printResult(const MasterOptions &o, const Measurement &m)
{
    const std::vector<int64_t> &l = m.latencies;
    const double secs = double(m.elapsedNs) / 1e9;
    std::printf("RESULT master=%s baud=%d regs=%d n=%zu errors=%ld elapsed_s=%.3f tps=%.1f median_ms=%.3f "
                "p99_ms=%.3f min_ms=%.3f max_ms=%.3f\n",
        o.name.c_str(), *o.baud, *o.regs, l.size(), m.errors, secs, secs > 0 ? double(l.size()) / secs : 0.0,
        percentile(l, 0.5), percentile(l, 0.99), l.empty() ? 0.0 : double(l.front()) / 1e6,
        l.empty() ? 0.0 : double(l.back()) / 1e6);
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    MasterOptions o;
    if (const int status = masterCommandLine(o).parse(argc, argv); status >= 0)
        return status;
    if (*o.address + *o.regs > 65536) {
        std::fprintf(stderr,
            "teco-bench-master: --address %d with --registers %d runs past the last register, 65535\n"
            "(teco-bench-master --help shows the usage)\n",
            *o.address, *o.regs);
        return 2;
    }
    DriverHost host;
    std::string error;
    DriverInterface *driver = host.load(o.plugin, error);
    if (!driver) {
        std::fprintf(stderr, "teco-bench-master: %s\n", error.c_str());
        return 1;
    }
    SerialLink link;
    if (!openLink(o, link, error)) {
        std::fprintf(stderr, "teco-bench-master: %s\n", error.c_str());
        return 1;
    }
    driver->initialize(&link);
    printResult(o, measure(driver, link, o));
    return 0;
}
