// teco-sim: a simulated servo drive on a pseudo-terminal (or a serial port),
// for testing masters and panel projects without hardware.

#include "registermap.h"
#include "simdrive.h"
#include "textfile.h"

#include <csignal>
#include <cstdio>
#include <cstring>
#include <pthread.h>
#include <string>

namespace {

const char usageText[] = "usage: teco-sim [options]\n"
                         "  Serves Modbus RTU stations as a simulated servo drive. Without --device it\n"
                         "  creates a pseudo-terminal and prints, as its first line, the device that a\n"
                         "  master opens. Runs until interrupted (Ctrl-C), then prints its counters.\n"
                         "options:\n"
                         "  --device PATH      serve on this serial device instead of a new pseudo-terminal\n"
                         "  --link TEXT        line settings, default \"RS485,9600,NONE,8,2\"\n"
                         "  --stations LIST    stations to serve, default 1,2,3 (such as 1,2,5-7)\n"
                         "  --map FILE         initial values (see --print-map for the format)\n"
                         "  --print-map        print the built-in servo map and exit\n"
                         "  --fault RULE       inject a fault; repeatable (see below)\n"
                         "  --seed N           seed for faults by rate, default 1\n"
                         "  --quiet            no line per request on standard error\n";

int usage(const std::string &problem)
{
    std::fprintf(stderr, "teco-sim: %s\n%s%s", problem.c_str(), usageText, faultHelp());
    return 2;
}

} // namespace

int main(int argc, char **argv)
{
    SimDrive::Options options;
    options.log = stderr;
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        const bool hasValue = i + 1 < argc;
        const std::string value = hasValue ? argv[i + 1] : "";
        std::string error;
        if (arg == "--help" || arg == "-h") {
            std::fputs(usageText, stdout);
            std::fputs(faultHelp(), stdout);
            return 0;
        } else if (arg == "--print-map") {
            std::fputs(builtinServoMap(), stdout);
            return 0;
        } else if (arg == "--quiet") {
            options.log = nullptr;
            continue;
        } else if (!hasValue) {
            return usage(arg.compare(0, 2, "--") == 0 ? "option " + arg + " needs a value"
                                                      : "unknown argument " + arg);
        } else if (arg == "--device") {
            options.device = value;
        } else if (arg == "--link") {
            if (!LinkSettings::parse(value, options.link, error))
                return usage(error);
        } else if (arg == "--stations") {
            if (!SimDrive::parseStations(value, options.stations, error))
                return usage(error);
        } else if (arg == "--map") {
            if (!readTextFile(value, userTextFileLimit, options.map.emplace(), error)) {
                std::fprintf(stderr, "teco-sim: cannot read the map %s: %s\n", value.c_str(), error.c_str());
                return 2;
            }
        } else if (arg == "--fault") {
            FaultRule rule;
            if (!FaultRule::parse(value, rule, error))
                return usage(error);
            options.faults.push_back(rule);
        } else if (arg == "--seed") {
            if (value.empty() || value.size() > 9
                || value.find_first_not_of("0123456789") != std::string::npos)
                return usage("--seed takes a number");
            options.seed = unsigned(std::stoul(value));
        } else {
            return usage("unknown option " + arg);
        }
        ++i;
    }

    // Signals are taken by sigwait below, on this thread only.
    sigset_t stopSignals;
    sigemptyset(&stopSignals);
    sigaddset(&stopSignals, SIGINT);
    sigaddset(&stopSignals, SIGTERM);
    sigaddset(&stopSignals, SIGHUP);
    pthread_sigmask(SIG_BLOCK, &stopSignals, nullptr);

    SimDrive drive;
    std::string error;
    if (!drive.start(options, error)) {
        std::fprintf(stderr, "teco-sim: %s\n", error.c_str());
        return 2;
    }
    std::printf("%s\n", drive.devicePath().c_str());
    std::fflush(stdout);
    std::string served;
    for (int s : options.stations)
        served += (served.empty() ? "" : ",") + std::to_string(s);
    std::fprintf(stderr, "teco-sim: serving stations %s on %s (%s)\n", served.c_str(),
        drive.devicePath().c_str(), options.link.text().c_str());
    for (const FaultRule &f : options.faults)
        std::fprintf(stderr, "teco-sim: injecting %s\n", f.text().c_str());

    int signal = 0;
    sigwait(&stopSignals, &signal);
    drive.stop();
    const SimDrive::Stats s = drive.stats();
    std::fprintf(stderr, "teco-sim: %llu requests, %llu answers, %llu for other stations, %llu bad frames",
        (unsigned long long)s.requests, (unsigned long long)s.replies, (unsigned long long)s.ignored,
        (unsigned long long)s.badFrames);
    for (int k = 0; k < FaultRule::KindCount; ++k)
        if (s.faults[k])
            std::fprintf(
                stderr, ", %llu %s", (unsigned long long)s.faults[k], faultKindName(FaultRule::Kind(k)));
    std::fprintf(stderr, "\n");
    return 0;
}
