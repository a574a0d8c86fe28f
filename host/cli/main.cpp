// teco-cli: runs a driver plug-in of the panel runtime from a PC. It loads the
// plug-in by path as the panel does (QPluginLoader), opens a serial link (or,
// without --port, a simulated drive on a pseudo-terminal) and reads, writes,
// polls and scans through the driver.

#include "command.h"
#include "faultrule.h"
#include "installation.h"
#include "session.h"

#include <QCoreApplication>

#include <cstdio>

namespace {

const char usageText[]
    = "Usage: teco-cli [options] COMMAND [arguments]\n"
      "\n"
      "commands:\n"
      "  info                             the driver's identity and default settings\n"
      "  read ADDRESS [--type T | --format F] [--count N]\n"
      "                                   read N values (T: bit, byte, word, dword)\n"
      "  write ADDRESS VALUE... [--type T | --format F]\n"
      "                                   write the values from ADDRESS on\n"
      "  poll TAG... [--interval MS] [--cycles N] [--duration S] [--format F] [--log FILE] [--every]\n"
      "       [--merge-gap N | --no-merge]\n"
      "                                   read tags (ADDRESS[:TYPE|FORMAT][:COUNT][@STATION]) over and\n"
      "                                   over, with a live status line and a summary; Ctrl-C ends it;\n"
      "                                   --log writes every sample to FILE (CSV, JSON Lines with\n"
      "                                   --json) at its answer's time; --every shows every cycle, not\n"
      "                                   only changes; a silent station is read once every 10 cycles;\n"
      "                                   tags of a station at most N registers apart (default 8) are\n"
      "                                   read with one command\n"
      "  scan [--from N] [--to N] [--address ADDRESS]\n"
      "       [--bauds 9600,19200] [--parities N,E] [--stop-bits 1,2]\n"
      "                                   find the stations that answer (default 1..247, HR1), at\n"
      "                                   every combination of the line settings listed\n"
      "  doctor                           check the line step by step (the device, a USB adapter's\n"
      "                                   latency timer, the station, the timing) and say what to do\n"
      "  batch [FILE]                     commands one per line from FILE or standard input, on one\n"
      "                                   link; also \"trace on|off\" and \"fault RULE\" (simulated drive);\n"
      "                                   a FILE is checked whole before anything is sent\n"
      "  shell                            type commands one per line on one link (help lists them)\n"
      "  sniff --port DEVICE [--count N] [--duration S] [--log FILE]\n"
      "                                   listen to a bus without sending: each request with its\n"
      "                                   reply and the station's turnaround, bad frames, garbage;\n"
      "                                   figures per station at the end (--timeout: reply window)\n"
      "  decode HEX...                    what a Modbus RTU frame says, such as\n"
      "                                   decode \"01 03 00 63 00 01 74 14\" (no link needed)\n"
      "  params backup FILE [--group G]   read the map's parameters into FILE (a map with values)\n"
      "  params compare FILE [FILE2]      list the settings whose drive (or FILE2) value differs\n"
      "  params restore FILE [--yes] [--keep-going]\n"
      "                                   show what differs from FILE; --yes writes it, then reads\n"
      "                                   every written parameter back\n"
      "  map check FILE                   check a map file: its parameters and groups\n"
      "  map import FILE [--out F]        a map from a ModbusScope project or a list of addresses\n"
      "                                   and names (to F, else standard output)\n"
      "\n"
      "addresses: HR100 (holding register), IR5 (input register), DO5 (coil), DI2 (discrete\n"
      "  input), HR100.3 (bit 3 of HR100), FN6HR1200 (write with function 6), FN5DO5 (write\n"
      "  with function 5), HR100SW (double word, high word first); numbers are one-based (HR1 is\n"
      "  the first register; HR0x64 is HR100); --zero-based takes wire numbers (HR0 is the first)\n"
      "names: with a map (--map FILE; without --port the simulated drive's own), a parameter's\n"
      "  name stands for its address: read speed-command, write speed-command 1500 (engineering\n"
      "  units, checked against the map's limits before anything is sent), poll motor-speed\n"
      "formats (--format F, or in a tag): int16, uint16, hex, binary, int32, uint32, float32,\n"
      "  float64 (with :ABCD, :CDAB, :BADC or :DCBA; default CDAB, or ABCD for an SW address) and\n"
      "  string (--count: its registers); such as HR100:float32:2 or HR100:int32:ABCD\n"
      "\n"
      "link options (defaults: the driver's own):\n"
      "  --port DEVICE         serial device; without it a simulated drive is started\n"
      "  --link TEXT           line settings, such as \"RS485,9600,NONE,8,2\"\n"
      "  --station N  --timeout MS  --retry N  --delay MS\n"
      "  --late-guard MS       after a failed exchange, hold the next request to that station\n"
      "                        back this long, dropping late answers (default: the time-out; 0: off)\n"
      "  --trace FILE          frame trace to FILE (- for standard error), one decoded line per frame\n"
      "  --trace-format F      decoded (default) or panel (the toolkit's dumpByteArray form)\n"
      "  --no-silence          no RTU silence before requests (point-to-point lines only)\n"
      "  --rs485               let the kernel switch the RS485 transmitter (TIOCSRS485)\n"
      "  --local-echo          the adapter echoes our requests: read them back and drop them\n"
      "  --map FILE            the drive's parameter map (names, units, scaling, limits)\n"
      "  --plugin PATH         the driver plug-in (default: the installed one, found from the\n"
      "                        program's directory; else the one built with it; --version names it)\n"
      "\n"
      "simulated drive (without --port):\n"
      "  --sim-stations LIST   stations it serves, default 1,2,3\n"
      "  --sim-map FILE        its initial values (teco-sim --print-map shows the format)\n"
      "  --sim-fault RULE      a fault to inject; repeatable (see below)\n"
      "\n"
      "other options:\n"
      "  --help                this text\n"
      "  --version             the version of teco-cli and of its default (or --plugin) plug-in\n"
      "  --list-completions    the words the shell's completion offers (options, values, commands)\n"
      "\n"
      "output: a table, or --json for scripts; --quiet drops informational lines on standard\n"
      "error. Exit status: 0 success, 1 a command failed\n"
      "(the driver's error text on standard error), 2 bad usage.\n"
      "\n";

int usage(const std::string &problem)
{
    std::fprintf(stderr, "teco-cli: %s\n(teco-cli --help shows the usage)\n", problem.c_str());
    return ExitUsage;
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    std::vector<std::string> args;
    for (int i = 1; i < argc; ++i)
        args.push_back(argv[i]);

    CliOptions options;
    std::string error;
    if (!parseCliArguments(args, options, false, error))
        return usage(error);
    if (options.help) {
        std::fputs(usageText, stdout);
        std::fputs(faultHelp(), stdout);
        return ExitOk;
    }
    if (options.version) {
        std::fputs(
            versionText("teco-cli", options.session.plugin ? *options.session.plugin : defaultPluginPath())
                .c_str(),
            stdout);
        return ExitOk;
    }
    if (options.listCompletions) {
        std::string list = cliCompletionList() + commandCompletionList();
        for (const std::string &prefix : addressPrefixes())
            list += "prefix " + prefix + "\n";
        std::fputs(list.c_str(), stdout);
        return ExitOk;
    }
    Session session(options.session, options.command);
    const int mapped = session.loadMap();
    if (mapped != ExitOk)
        return mapped;
    Command command;
    if (!prepareCommand(options, false, command, error, session.map()))
        return usage(error);
    for (const std::string &text : options.session.simFaults) {
        FaultRule rule;
        if (!FaultRule::parse(text, rule, error))
            return usage(error);
    }

    // Listening needs no driver.
    if (std::holds_alternative<SniffCommand>(command.kind))
        return session.run(command);
    const int loaded = session.loadDriver();
    if (loaded != ExitOk)
        return loaded;
    return session.run(command);
}
