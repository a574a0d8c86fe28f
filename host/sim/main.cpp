// teco-sim: a simulated servo drive on a pseudo-terminal (or a serial port),
// for testing masters and panel projects without hardware.

#include "installation.h"
#include "optiontable.h"
#include "registermap.h"
#include "simdrive.h"
#include "tcpline.h"
#include "textfile.h"

#include <csignal>
#include <cstdio>
#include <limits>
#include <optional>
#include <pthread.h>
#include <string>

namespace {

const char usageText[] = "Usage: teco-sim [options]\n"
                         "  Serves Modbus RTU stations as a simulated servo drive. Without --device it\n"
                         "  creates a pseudo-terminal and prints, as its first line, the device that a\n"
                         "  master opens. Runs until interrupted (Ctrl-C), then prints its counters.\n"
                         "\n"
                         "options:\n"
                         "  --device PATH      serve on this serial device instead of a new pseudo-terminal\n"
                         "  --listen HOST:PORT serve RTU frames over TCP instead, as a serial device server\n"
                         "                     passes them (no Modbus TCP header); one connection at a\n"
                         "                     time; port 0: one the system picks (the first line says)\n"
                         "  --link TEXT        line settings, default \"RS485,9600,NONE,8,2\"\n"
                         "  --stations LIST    stations to serve, default 1,2,3 (such as 1,2,5-7)\n"
                         "  --map FILE         initial values: a parameter map (as --print-map prints) or\n"
                         "                     the older ADDRESS VALUE NAME lines\n"
                         "  --print-map        print the built-in servo map and exit (it has a motor that\n"
                         "                     moves: speed command HR402, motor speed IR401, ...)\n"
                         "  --convert-map FILE print a map of the older form as a parameter map and exit\n"
                         "  --fault RULE       inject a fault; repeatable (see below)\n"
                         "  --seed N           seed for faults by rate, default 1\n"
                         "  --turnaround MS    answer MS milliseconds after the request's end (default:\n"
                         "                     once the RTU silence has passed)\n"
                         "  --echo             give back each request on the line before its answer, as a\n"
                         "                     2-wire RS485 adapter without echo suppression does\n"
                         "  --quiet            no line per request on standard error\n"
                         "  --help             this text\n"
                         "  --version          the version of teco-sim\n"
                         "\n";

// As teco-cli: the problem in one sentence and where the usage is.
int usage(const std::string &problem)
{
    std::fprintf(stderr, "teco-sim: %s\n(teco-sim --help shows the usage)\n", problem.c_str());
    return 2;
}

// What the command line asks for.
struct SimArguments
{
    SimDrive::Options drive;
    std::optional<std::string> mapPath;
    std::optional<std::string> convertPath;
    bool help = false;
    bool printMap = false;
    bool version = false;
    bool listCompletions = false; // for the shell's completion, not in the usage
};

OptionTable simOptionTable(SimArguments &a)
{
    using T = OptionTable;
    return OptionTable({
        T::checked("device",
            [&a](const std::string &path, std::string &error) {
                a.drive.device = path;
                return checkDeviceOption("device", path, error);
            })
            .completing("file"),
        T::checked("listen",
            [&a](const std::string &address, std::string &error) {
                std::string host, port;
                a.drive.listen = address;
                return parseHostPort(address, address, host, port, error);
            }),
        T::checked("link",
            [&a](const std::string &text, std::string &error) {
                return parseRtuLink(text, a.drive.link, error);
            }),
        T::checked("stations",
            [&a](const std::string &text, std::string &error) {
                return SimDrive::parseStations(text, a.drive.stations, error);
            }),
        T::text("map", a.mapPath).completing("file"),
        T::flag("print-map", a.printMap),
        T::text("convert-map", a.convertPath).completing("file"),
        T::checked("fault",
            [&a](const std::string &text, std::string &error) {
                FaultRule rule;
                if (!FaultRule::parse(text, rule, error))
                    return false;
                a.drive.faults.push_back(rule);
                return true;
            }),
        T::integer(
            "seed", 0, std::numeric_limits<int>::max(), [&a](int seed) { a.drive.seed = unsigned(seed); }),
        T::integer("turnaround", 0, 60000, [&a](int ms) { a.drive.turnaroundMs = ms; }),
        T::flag("echo", a.drive.echo),
        T::flag("quiet", [&a] { a.drive.log = nullptr; }),
        T::flag("help", a.help),
        T::flag("version", a.version),
        T::flag("list-completions", a.listCompletions),
    });
}

// --convert-map: the older map at path as a parameter map on standard output.
int convertMap(const std::string &path)
{
    std::string text, csv, error;
    if (!readTextFile(path, userTextFileLimit, text, error)) {
        std::fprintf(stderr, "teco-sim: cannot read the map %s: %s\n", path.c_str(), error.c_str());
        return 2;
    }
    if (!convertRegisterMap(text, csv, error)) {
        std::fprintf(stderr, "teco-sim: register map %s, %s\n", path.c_str(), error.c_str());
        return 2;
    }
    std::fputs(csv.c_str(), stdout);
    return 0;
}

// Serves until a stop signal, then prints the counters.
int serve(const SimDrive::Options &options)
{
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

} // namespace

int main(int argc, char **argv)
{
    SimArguments arguments;
    arguments.drive.log = stderr;
    std::string error;
    if (!simOptionTable(arguments).parse(std::vector<std::string>(argv + 1, argv + argc), nullptr, error))
        return usage(error);
    if (arguments.help) {
        std::fputs(usageText, stdout);
        std::fputs(faultHelp(), stdout);
        return 0;
    }
    if (arguments.version) {
        std::fputs(versionText("teco-sim").c_str(), stdout);
        return 0;
    }
    if (arguments.listCompletions) {
        std::fputs(simOptionTable(arguments).completionList().c_str(), stdout);
        return 0;
    }
    if (arguments.printMap) {
        std::fputs(builtinServoMap(), stdout);
        return 0;
    }
    if (arguments.convertPath)
        return convertMap(*arguments.convertPath);
    SimDrive::Options &options = arguments.drive;
    if (!options.listen.empty() && !options.device.empty())
        return usage("--listen and --device name two lines: give one");
    if (arguments.mapPath
        && !readTextFile(*arguments.mapPath, userTextFileLimit, options.map.emplace(), error)) {
        std::fprintf(
            stderr, "teco-sim: cannot read the map %s: %s\n", arguments.mapPath->c_str(), error.c_str());
        return 2;
    }

    return serve(options);
}
