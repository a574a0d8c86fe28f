// teco-cli run as a program: exit status 0, 1 with the driver's text, or 2
// with one sentence for bad usage; JSON for scripts; bad input never reaches
// the device.

#include "clirun.h"
#include "hex.h"

#include <QDateTime>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QStringList>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <cctype>
#include <chrono>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <poll.h>
#include <pty.h>
#include <sstream>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <termios.h>
#include <thread>
#include <unistd.h>

namespace {

QJsonObject json(const std::string &line)
{
    return QJsonDocument::fromJson(QByteArray::fromStdString(line)).object();
}

std::vector<std::string> lines(const std::string &text)
{
    std::vector<std::string> out;
    size_t from = 0, nl;
    while ((nl = text.find('\n', from)) != std::string::npos) {
        out.push_back(text.substr(from, nl - from));
        from = nl + 1;
    }
    return out;
}

TEST(Cli, BadUsageGetsOneSentenceAndStatusTwo)
{
    struct Row
    {
        std::vector<std::string> args;
        const char *message;
    } rows[] = {
        // What tests/host checks of addresses, links, options and formats
        // shows here once per way to status 2.
        { { "read", "HR100", "--type", "float" }, "teco-cli: unknown data type \"float\"" },
        { { "read", "DO5", "--type", "word" }, "teco-cli: DO5 is a coil: it holds bits, not words" },
        { { "read", "HR100", "--count", "0" }, "teco-cli: option --count takes a number from 1 to 65535" },
        { { "write", "HR100" }, "teco-cli: usage: write ADDRESS VALUE" },
        { { "write", "HR100", "70000" }, "teco-cli: value 70000 does not fit in a word (-32768 to 65535)" },
        { { "write", "HR100", "12abc" }, "teco-cli: \"12abc\" is not a number" },
        { { "write", "DO1", "2" }, "teco-cli: a bit is 0 or 1" },
        { { "--station", "300", "read", "HR1" }, "teco-cli: option --station takes a number from 0 to 255" },
        { { "poll" }, "teco-cli: usage: poll TAG" },
        { { "--link", "RS485,9600,NONE,7,2", "read", "HR1" }, "teco-cli: Modbus RTU needs 8 data bits" },
        { { "--port", "/dev/null", "read", "HR1" }, "teco-cli: /dev/null is not a serial device" },
        { { "--port", "", "read", "HR1" }, "teco-cli: option --port needs a file name, not an empty word" },
        { { "--plugin", "/no/such/plugin.so", "info" }, "teco-cli: plug-in not found: /no/such/plugin.so" },
        { { "--sim-fault", "explode", "read", "HR1" }, "teco-cli: unknown fault \"explode\"" },
        { { "--sim-stations", "0", "read", "HR1" }, "teco-cli: bad station list \"0\"" },
        { { "--sim-map", "/no/such/map", "read", "HR1" }, "teco-cli: cannot read the map /no/such/map" },
        { { "--trace", "/no/such/dir/trace.txt", "read", "HR1" }, "teco-cli: cannot write the trace to" },
        { { "read", "HR1", "--format", "int16", "--type", "word" },
            "teco-cli: give a data type or a format" },
        { { "write", "HR100", "a", "b", "--format", "string" }, "teco-cli: a string is one value" },
        { { "write", "HR100", "abcde", "--format", "string", "--count", "2" },
            "teco-cli: the string takes 3 registers, more than the 2 given" },
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(joined(row.args));
        const CliRun r = cli(row.args);
        EXPECT_EQ(r.status, 2);
        EXPECT_EQ(r.err.rfind(row.message, 0), 0u) << r.err;
        EXPECT_EQ(r.out, "");
    }
}

// What a command shows of what happened: its status, and a text on standard
// output or standard error. Batch and shell rows read their lines from
// standard input. The shell and batches take what people give them: text
// with a byte-order mark and comments, a pipe (bash's <(command)),
// /dev/stdout for the trace; a line too long or with a NUL byte is refused
// with one sentence and the shell goes on; an empty file name is refused as
// every option that takes a file refuses it.
TEST(Cli, CommandsShowWhatHappened)
{
    const std::string polls = "poll HR100 HR101 --cycles 2 --interval 10\n"
                              "poll HR100 --station 2 --cycles 2 --interval 10\n",
                      marked = scratchDir() + "/marked";
    std::ofstream(marked)
        << "\xEF\xBB\xBF  # a comment line\nwrite HR100 77 # the speed command\nread HR100 --json #\n";
    struct Row
    {
        std::vector<std::string> args;
        int status; // -1: not checked
        bool inOutput; // else in standard error
        const char *shown;
        std::string input = std::string();
        bool endsOutput = false;
        const char *inError = ""; // also in standard error
    } rows[] = {
        // A failed command exits 1 with the driver's text.
        { { "--json", "--sim-fault", "exception:code=2", "write", "FN6HR5", "1", "--retry", "0" }, 1, false,
            "(write 1 word to 1-FN6HR5) [illegal data address]\n" },
        { { "--station", "0", "--retry", "0", "--timeout", "100", "read", "HR100" }, 1, false,
            "teco-cli: note: station 0 is the broadcast address, which no drive answers" },
        // A batch from standard input runs up to its first bad line.
        { { "batch" }, 2, false, "teco-cli: batch line 2: option --port belongs on the command line",
            "read HR100\nread HR100 --port /dev/ttyS0\nread HR101\n" },
        { { "--sim-fault", "noreply", "--retry", "2", "--timeout", "50", "read", "HR100" }, 1, false,
            "teco-cli: on the line: 3 requests, 2 retries, 3 time-outs\nteco-cli: no answer to 3 requests: "
            "check that the drive is station 1 and set to RS485,9600,NONE,8,2" },
        // What the driver serves from its own window says that nothing was sent.
        { { "--json", "--station", "77", "read", "HR60000" }, 0, true, "\"heldByDriver\":true" },
        { { "--sim-fault", "exception:at=HR101,times=1", "--sim-fault", "noreply:station=2,times=1",
              "--timeout", "50", "batch" },
            -1, true, // each poll names only the stations it talked to; HR100 and HR101 are one read
            "station 1: 3 requests, 1 retry, 1 exception\nteco> poll HR100 --station 2", polls },
        { { "--sim-fault", "noreply:station=2,times=1", "--timeout", "50", "batch" }, -1, true,
            "\nstation 2: 3 requests, 1 retry, 1 time-out\n", polls, true },
        { { "decode", "01", "83", "02", "C0", "F1" }, 0, true,
            "reply:   station 1, exception 2 illegal data address to read holding registers, CRC ok" },
        { { "decode", "01 0x" }, 2, false, "teco-cli: \"0x\" is not hexadecimal bytes" },
        { { "--trace", "-", "--trace-format", "panel", "read", "HR100" }, 0, false,
            "RX      (0X1 0X3 0X2 0X5 0Xdc 0Xba 0X8d ) : ......." },
        { { "--trace", "-", "--sim-fault", "noreply", "--retry", "0", "--timeout", "60", "read", "HR100" }, 1,
            false, "[time-out after 0 of 7 bytes]" },
        { { "--trace", "-", "poll", "speed-command@2", "--cycles", "1" }, 0, false,
            "station 2, read holding registers HR402 x1" },
        { { "--trace-format", "hex", "read", "HR100" }, 2, false,
            "teco-cli: option --trace-format takes decoded or panel" },
        { { "batch", marked }, 0, true,
            "  # a comment line\nteco> write HR100 77 # the speed command\nwrote 1 word at HR100, station 1\n"
            "teco> read HR100 --json #\n{\"address\":\"HR100\"" },
        { { "batch" }, 0, true, "{\"address\":\"HR100\"", "\xEF\xBB\xBFread HR100 --json\n" },
        { { "shell" }, 2, true, "{\"address\":\"HR100\"", std::string(70000, 'x') + "\nread HR100 --json\n",
            false, "teco-cli: line 1 is longer than 64 KiB\n" },
        { { "shell" }, 2, true, "teco> read HR1\\0x\n", std::string("read HR1\0x\nread HR100 --json\n", 26),
            false, "teco-cli: the line has a NUL byte at column 9\n" },
        { { "--trace", "/dev/stdout", "read", "HR100" }, 0, true, "01 03 00 63 00 01 74 14" },
        { { "--trace", "", "read", "HR100" }, 2, false,
            "teco-cli: option --trace needs a file name, not an empty word\n" },
        { { "poll", "HR100", "--log", "" }, 2, false,
            "teco-cli: option --log needs a file name, not an empty word\n" },
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(joined(row.args));
        const CliRun r = cli(row.args, row.input);
        if (row.status >= 0) {
            EXPECT_EQ(r.status, row.status) << r.err;
        }
        const std::string &where = row.inOutput ? r.out : r.err;
        EXPECT_NE(where.find(row.shown), std::string::npos) << where;
        if (row.status == 1 && row.args[0] != "--json") {
            EXPECT_EQ(r.out, "") << "nothing shown as read or written";
        }
        if (row.endsOutput) {
            EXPECT_EQ(where.rfind(row.shown) + std::strlen(row.shown), where.size()) << where;
        }
        EXPECT_NE(r.err.find(row.inError), std::string::npos) << r.err.substr(0, 300);
    }
    QProcess b;
    b.start("bash", { "-c", QString(TECO_CLI_PATH) + " batch <(echo read HR100 --json)" });
    ASSERT_TRUE(b.waitForFinished(30000));
    EXPECT_EQ(b.exitCode(), 0) << b.readAllStandardError().toStdString();
    EXPECT_TRUE(b.readAllStandardOutput().contains("\"values\":[1500]"));
    // The batch stopped at its bad line; --quiet leaves only the error.
    EXPECT_EQ(cli({ "batch" }, rows[2].input).out.find("teco> read HR101"), std::string::npos);
    const CliRun q
        = cli({ "--quiet", "--station", "0", "--retry", "0", "--timeout", "100", "read", "HR100" });
    EXPECT_EQ(q.err, "teco-cli: PLC no response (read 1 word(s) from 0-HR100)\n");

    const CliRun e
        = cli({ "--json", "--sim-fault", "exception:code=2", "write", "FN6HR5", "1", "--retry", "0" });
    const QJsonObject o = json(e.out);
    EXPECT_EQ(o["ok"].toBool(true), false);
    EXPECT_EQ(o["error"].toString().toStdString(), "exception code:0x02 (write 1 word to 1-FN6HR5)");
    EXPECT_EQ(o["exception"].toInt(), 2);
    EXPECT_EQ(o["exceptionName"].toString().toStdString(), "illegal data address");

    // A poll's next cycle is a new command: its request is no retry.
    const CliRun p = cli({ "--quiet", "--retry", "0", "--timeout", "50", "--sim-fault",
        "noreply:at=HR104,times=1", "poll", "HR104", "--cycles", "2", "--interval", "10" });
    EXPECT_NE(p.out.find("\nstation 1: 2 requests, 1 time-out\n"), std::string::npos) << p.out;
    // The summary shows no values for a tag whose last read failed.
    const CliRun s = cli(
        { "--json", "--quiet", "--retry", "0", "--timeout", "50", "--sim-fault", "noreply:at=HR104,times=2",
            "poll", "HR104", "HR100", "--cycles", "2", "--interval", "10", "--no-merge" });
    const QJsonArray tags = json(s.out)["tags"].toArray();
    ASSERT_EQ(tags.size(), 2) << s.out;
    EXPECT_EQ(tags[0].toObject()["values"].toArray().size(), 0) << s.out;
    EXPECT_EQ(tags[0].toObject()["error"].toString(), "PLC no response (read 1 word(s) from 1-HR104)");
    EXPECT_EQ(tags[1].toObject()["values"].toArray().first().toInt(), 1500) << s.out;

    const CliRun j = cli({ "--json", "--sim-fault", "noreply:times=1", "--timeout", "50", "read", "HR100" });
    const QJsonObject link = json(j.out)["link"].toObject();
    EXPECT_EQ(link["requests"].toInt(), 2) << j.out;
    EXPECT_EQ(link["retries"].toInt(), 1) << j.out;
    EXPECT_EQ(link["timeOuts"].toInt(), 1) << j.out;
}

// The driver serves HR60000..HR60010 to word reads that begin there; any
// other read covering them shows the drive's registers, and says so.
TEST(Cli, AReadPastTheDriversWindowSaysWhereItsValuesComeFrom)
{
    struct Row
    {
        std::vector<std::string> read;
        bool note;
    } rows[] = {
        { { "HR60001" }, false },
        { { "HR60000", "--format", "uint32" }, false },
        { { "HR60011" }, false },
        { { "IR60000" }, false },
        { { "HR60001.0" }, true },
        { { "HR59999", "--count", "2" }, true },
        { { "HR60000", "--type", "dword" }, true },
        { { "HR59999", "--format", "uint32:ABCD" }, true },
        { { "FN6HR60010", "--type", "byte" }, true },
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.read[0]);
        const CliRun r = cli(with({ "--quiet", "read" }, row.read));
        EXPECT_EQ(r.status, 0) << r.err;
        EXPECT_EQ(
            r.err.find("teco-cli: note: this read of " + row.read[0] + " goes to the drive") == 0, row.note)
            << r.err;
    }
}

TEST(Cli, ALateAnswerIsDroppedInTheGuardAndMarkedInTheTrace)
{
    // HR100's answer comes 150 ms after its request, after the 100 ms
    // time-out: the guard (here per batch line) drops it, and HR200 gets its
    // own value.
    const std::string batch = "write HR200 4660\n"
                              "read HR100 --timeout 100 --retry 0 --late-guard 200\n"
                              "read HR200 --late-guard 200\n";
    const CliRun r = cli({ "--json", "--trace", "-", "--sim-fault", "late:at=HR100,ms=150", "batch" }, batch);
    EXPECT_EQ(r.status, 1) << r.err;
    const std::vector<std::string> out = lines(r.out);
    ASSERT_EQ(out.size(), 3u) << r.out;
    EXPECT_EQ(
        json(out[1])["error"].toString().toStdString(), "PLC no response (read 1 word(s) from 1-HR100)");
    EXPECT_EQ(json(out[2])["values"].toArray().first().toDouble(), 4660) << out[2];
    EXPECT_NE(r.err.find("LATE "), std::string::npos) << r.err;
    EXPECT_NE(
        r.err.find("station 1, reply 2 bytes: 1500, CRC ok  [arrived in the late-answer guard: dropped]"),
        std::string::npos)
        << r.err;
}

TEST(Cli, APollSummarisesItsCyclesAndErrors)
{
    const CliRun p = cli({ "--json", "--sim-fault", "noreply:at=IR1", "--timeout", "300", "--retry", "0",
        "poll", "HR100", "IR1:2", "--cycles", "3", "--interval", "10" });
    EXPECT_EQ(p.status, 1) << p.err;
    const QJsonObject summary = json(p.out);
    EXPECT_EQ(summary["cycles"].toInt(), 3);
    EXPECT_EQ(summary["commands"].toInt(), 6);
    EXPECT_EQ(summary["errors"].toInt(), 3);
    EXPECT_EQ(summary["errorsByText"].toObject()["PLC no response"].toInt(), 3);
    EXPECT_EQ(summary["tags"].toArray()[0].toObject()["values"].toArray()[0].toInt(), 1500);
}

// Neighbouring tags are one read; a register of that read that fails (the
// drive refuses it, or does not answer for it) costs its neighbours one
// retry alone, then is read on its own while they stay joined.
TEST(Cli, APollJoinsNeighboursAndOneBadRegisterCannotBlindThem)
{
    struct Row
    {
        const char *name;
        std::vector<std::string> options;
        const char *badError; // HR103's error in the summary ("": its value, 200)
        int requests; // on the line in three cycles
    } rows[] = {
        { "joined: one read a cycle", {}, "", 3 },
        { "a refused register", { "--sim-fault", "exception:at=HR103,code=2" }, "exception code:0x02",
            5 + 3 + 3 },
        { "a register the drive does not answer for", { "--sim-fault", "noreply:at=HR103" },
            "PLC no response", 5 + 3 + 3 },
        { "each tag alone", { "--no-merge" }, "", 12 },
    };
    for (const Row &row : rows) {
        const CliRun p = cli(with(with({ "--json", "--timeout", "100", "--retry", "0" }, row.options),
            { "poll", "HR100", "HR101:int16", "HR103", "HR104SW", "--cycles", "3", "--interval", "10" }));
        const QJsonObject summary = json(p.out);
        const QJsonArray tags = summary["tags"].toArray();
        EXPECT_EQ(tags[0].toObject()["values"].toArray()[0].toInt(), 1500) << row.name << p.out;
        EXPECT_EQ(tags[1].toObject()["values"].toArray()[0].toInt(), 300) << row.name;
        EXPECT_EQ(tags[3].toObject()["values"].toArray()[0].toDouble(), 100000) << row.name;
        if (*row.badError)
            EXPECT_NE(
                tags[2].toObject()["error"].toString().toStdString().find(row.badError), std::string::npos)
                << row.name << p.out;
        else
            EXPECT_EQ(tags[2].toObject()["values"].toArray()[0].toInt(), 200) << row.name;
        EXPECT_EQ(summary["link"].toObject()["1"].toObject()["requests"].toInt(), row.requests) << row.name;
    }
}

TEST(Cli, InfoNamesTheDriver)
{
    const CliRun r = cli({ "--json", "info" });
    EXPECT_EQ(r.status, 0);
    const QJsonObject o = json(r.out);
    EXPECT_EQ(o["name"].toString(), "Teco Servo");
    EXPECT_EQ(o["defaultLink"].toString(), "RS485,9600,NONE,8,2");
    EXPECT_EQ(o["defaultTimeoutMs"].toInt(), 500);
}

// Paths that name something other than a file of ours, file batches with a
// bad line anywhere (a batch is read and checked to its end first), and bad
// usage given with a device or to teco-sim: each refused with its whole text
// and status 2 before anything is sent, started or shown; a FIFO is never waited on, a device never read, a
// symbolic link never followed for writing.
TEST(Cli, WhatItCannotTakeIsRefusedBeforeAnythingIsSent)
{
    const std::string root = scratchDir();
    const std::string target = root + "/target", link = root + "/link", sub = root + "/dir",
                      fifo = root + "/fifo", big = root + "/big";
    std::ofstream(target) << "read HR1\n";
    ASSERT_EQ(::symlink(target.c_str(), link.c_str()), 0);
    ASSERT_EQ(::mkdir(sub.c_str(), 0700), 0);
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    std::ofstream(big).close();
    ASSERT_EQ(::truncate(big.c_str(), 2 << 20), 0); // 2 MiB, sparse

    SilentDevice device;
    const std::vector<std::string> port = { "--port", device.path };
    const std::string bigText = ": it holds 2097152 bytes, more than the limit of 1 MiB",
                      hint = "(teco-cli --help shows the usage)",
                      simHint = "\n(teco-sim --help shows the usage)";
    auto batch = [&root](const std::string &name, const char *text) {
        std::ofstream(root + "/" + name) << text;
        return std::vector<std::string> { "batch", root + "/" + name };
    };
    struct Row
    {
        const char *program;
        std::vector<std::string> args;
        std::string input; // standard input; "<PATH" opens PATH as standard input
        std::string message;
    } rows[] = {
        // Which kinds of file each reader refuses is checked in tests/host; here
        // each reader and writer is wired to those checks once.
        { TECO_CLI_PATH, with(port, { "--trace", link, "read", "HR1" }), "",
            "teco-cli: cannot write the trace to " + link
                + ": it is a symbolic link (name the file itself)" },
        { TECO_CLI_PATH, with(port, { "poll", "HR1", "--log", sub }), "",
            "teco-cli: cannot write the log to " + sub + ": it is a directory, not a regular file" },
        { TECO_CLI_PATH, { "--sim-map", fifo, "read", "HR1" }, "",
            "teco-cli: cannot read the map " + fifo + ": it is a FIFO that no program writes to" },
        { TECO_CLI_PATH, with(port, { "batch", big }), "",
            "teco-cli: cannot read the batch " + big + bigText },
        { TECO_CLI_PATH, with(port, { "batch" }), std::string(70000, 'x'),
            "teco-cli: batch line 1 is longer than 64 KiB" },
        { TECO_CLI_PATH, with(port, { "batch" }), "<" + sub,
            "teco-cli: cannot read the batch from standard input: it is a directory" },
        { TECO_SIM_PATH, { "--map", big }, "", "teco-sim: cannot read the map " + big + bigText },
        { TECO_CLI_PATH, with(port, batch("value", "read HR1\nread HR2 # comment\n\nwrite HR1 70000\n")), "",
            "teco-cli: batch line 4: value 70000 does not fit in a word (-32768 to 65535)" },
        { TECO_CLI_PATH, with(port, batch("option", "# first\nread HR1 --port /dev/ttyS0\nread HR2\n")), "",
            "teco-cli: batch line 2: option --port belongs on the command line, before the batch" },
        { TECO_CLI_PATH, with(port, batch("fault", "read HR1\nfault noreply\n")), "",
            "teco-cli: batch line 2: fault needs the simulated drive (no --port)" },
        { TECO_CLI_PATH, with(port, batch("quote", "read HR1\r\nread \"HR2\r\n")), "",
            "teco-cli: batch line 2: unterminated quote" },
        { TECO_CLI_PATH, with(port, { "write", "HR100", "70000" }), "",
            "teco-cli: value 70000 does not fit in a word (-32768 to 65535)\n" + hint },
        { TECO_CLI_PATH, with(port, { "--link", "RS485,9600,NONE,8,3", "write", "HR100", "1" }), "",
            "teco-cli: stop bits must be 1 or 2, not \"3\", in link \"RS485,9600,NONE,8,3\"" },
        { TECO_CLI_PATH, batch("shell", "read HR1\nshell\n"), "", // the simulated drive
            "teco-cli: batch line 2: a batch cannot start a shell" },
        // teco-sim's bad usage as teco-cli's: one sentence, then the hint.
        { TECO_SIM_PATH, { "--bogus" }, "", "teco-sim: unknown option --bogus" + simHint },
        { TECO_SIM_PATH, { "--seed", "x" }, "",
            "teco-sim: option --seed takes a number from 0 to 2147483647, not \"x\"" + simHint },
        { TECO_SIM_PATH, { "--stations", "0" }, "",
            "teco-sim: bad station list \"0\" (numbers 1 to 247, such as 1,2,5-7)" + simHint },
        { TECO_SIM_PATH, { "--link", "RS485,9600,NONE,7,2" }, "",
            "teco-sim: Modbus RTU needs 8 data bits; the link \"RS485,9600,NONE,7,2\" has 7" + simHint },
        { TECO_SIM_PATH, { "--fault", "explode" }, "",
            "teco-sim: unknown fault \"explode\" (noreply, corrupt, truncate, late, exception, wrongstation "
            "or "
            "noise)"
                + simHint },
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(joined(row.args));
        const bool fromFile = !row.input.empty() && row.input[0] == '<';
        const CliRun r = runProgram(
            row.program, row.args, fromFile ? "" : row.input, fromFile ? row.input.substr(1) : "");
        EXPECT_EQ(r.status, 2);
        EXPECT_EQ(r.err, row.message + "\n"); // no simulated drive was started either
        EXPECT_EQ(r.out, "");
    }
    EXPECT_EQ(device.bytesArrived(), 0);

    // The same files through the symbolic link to a regular file: read.
    const CliRun r = cli(with(port, { "--retry", "0", "--timeout", "50", "batch", link }));
    EXPECT_EQ(r.status, 1) << r.err;
    EXPECT_EQ(device.bytesArrived(), 8); // the read of HR1, unanswered
    // A good command does reach the device (which nobody answers).
    const CliRun w = cli(with(port, { "--retry", "0", "--timeout", "50", "write", "HR100", "1" }));
    EXPECT_EQ(w.status, 1);
    EXPECT_EQ(w.err,
        "teco-cli: PLC no response (write 1 word to 1-HR100)\nteco-cli: no answer to 1 request: check that "
        "the drive is station 1 and set to RS485,9600,NONE,8,2 (baud rate, parity, stop bits), and its "
        "wiring\n");
    EXPECT_EQ(device.bytesArrived(), 11);
}

// Values in number formats land in the registers in the order the format
// names, or the address implies (CDAB as the driver's double word, ABCD for
// SW), and read back as written; hexadecimal and zero-based addresses name
// the panel's registers.
TEST(Cli, NumberFormatsWriteAndReadTheirRegisters)
{
    // (What docs/number-formats.md shows of float32 and strings is left out.)
    const std::string batch = "write HR104SW 3.25 --format float32\n"
                              "read HR104 --count 2\n"
                              "write HR110 \"servo 1\" --format string --count 4\n"
                              "read HR110 --count 4\n"
                              "write HR120 -2 3 --format int32:ABCD\n"
                              "read HR120 --format int32:ABCD --count 2\n"
                              "read HR0x78 --format hex --count 4\n"
                              "read HR119 --zero-based --format int16 --count 2\n"
                              "write HR130 1e300 --format float64:BADC\n"
                              "read HR130 --format float64:BADC\n"
                              "write HR140 16777217 --format float32\n"
                              "read IR1 --type byte --count 3\n"
                              "read DI1 --count 3\n";
    const CliRun r = cli({ "--json", "--quiet", "batch" }, batch);
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.err, "");
    const std::vector<std::string> out = lines(r.out);
    ASSERT_EQ(out.size(), 13u) << r.out;
    auto values = [&](int line) {
        return QString::fromUtf8(
            QJsonDocument(json(out[size_t(line)])["values"].toArray()).toJson(QJsonDocument::Compact))
            .toStdString();
    };
    struct Row
    {
        int line;
        const char *values;
    } rows[] = {
        { 1, "[16464,0]" }, // 0x4050 0000, high word first
        { 2, "[\"servo 1\"]" }, { 3, "[29541,29302,28448,12544]" }, // "se" "rv" "o " "1\0"
        { 5, "[-2,3]" }, { 6, "[\"0xFFFF\",\"0xFFFE\",\"0x0000\",\"0x0003\"]" }, { 7, "[-1,-2]" },
        { 9, "[1e+300]" }, { 10, "[16777216]" }, // what the float32 holds, not what was typed
        { 11, "[218,5,125]" }, { 12, "[1,1,0]" }, // IR1 = 1498 (0x05DA), IR2 = 125; DI1, DI2 on
    };
    for (const Row &row : rows)
        EXPECT_EQ(values(row.line), row.values) << out[size_t(row.line)];
    EXPECT_EQ(json(out[2])["registers"].toInt(), 4);
    EXPECT_EQ(json(out[6])["addresses"].toArray().first().toString(), "HR120");
    EXPECT_EQ(json(out[7])["addresses"].toArray().first().toString(), "HR120") << "shown one-based";

    // A session's --zero-based holds for every line of its batch.
    const CliRun z = cli({ "--json", "--zero-based", "batch" }, "read HR119 --format uint16\n");
    EXPECT_EQ(json(z.out)["addresses"].toArray().first().toString(), "HR120") << z.out;
}

// Poll in a format, every sample logged with its time (the CSV log and the
// cycles shown of the same poll are checked in docs/teco-cli.md).
TEST(Cli, PollLogsEverySample)
{
    const std::string jsonl = scratchDir() + "/poll.jsonl";
    const CliRun j = cli({ "--quiet", "--sim-fault", "noreply:at=IR1,times=1", "--retry", "0", "--timeout",
        "100", "poll", "HR104SW:int32", "IR1:uint16:2", "HR1:binary", "--cycles", "2", "--interval", "10",
        "--every", "--log", jsonl, "--json" });
    EXPECT_EQ(j.status, 1) << j.err;
    std::ifstream jin(jsonl);
    std::vector<QJsonObject> samples;
    for (std::string line; std::getline(jin, line);)
        samples.push_back(json(line));
    ASSERT_EQ(samples.size(), 6u);
    EXPECT_EQ(samples[0]["values"].toArray().first().toInt(), 100000);
    EXPECT_EQ(samples[1]["error"].toString(), "PLC no response (read 2 word(s) from 1-IR1)");
    EXPECT_EQ(samples[2]["values"].toArray().first().toString(), "0b0000000000000010");
    EXPECT_EQ(samples[4]["addresses"].toArray().last().toString(), "IR2");
    EXPECT_TRUE(QDateTime::fromString(samples[5]["time"].toString(), Qt::ISODateWithMs).isValid());
    // --every with --json: the same samples on standard output, then the summary.
    EXPECT_EQ(lines(j.out).size(), 7u) << j.out;
}

// A value's time is when its answer was complete: HR100's answer comes after
// a 200 ms time-out and a retry, so it is shown and logged 0.2 s into the
// poll, next to HR101's, which follows at once; a read's JSON says the same.
TEST(Cli, AValuesTimeIsWhenItsAnswerCame)
{
    const std::string csv = scratchDir() + "/poll.csv";
    const CliRun p = cli({ "--quiet", "--sim-fault", "noreply:at=HR100,times=1", "--timeout", "200", "poll",
        "HR100", "HR101", "--cycles", "1", "--log", csv });
    EXPECT_EQ(p.status, 0) << p.err;
    const std::vector<std::string> shown = lines(p.out);
    ASSERT_GE(shown.size(), 2u) << p.out;
    EXPECT_GE(std::stod(shown[0]), 0.2) << shown[0];
    std::ifstream in(csv);
    std::vector<qint64> times;
    for (std::string line; std::getline(in, line);)
        if (line.rfind("time,", 0) != 0)
            times.push_back(
                QDateTime::fromString(QString::fromStdString(line.substr(0, 24)), Qt::ISODateWithMs)
                    .toMSecsSinceEpoch());
    ASSERT_EQ(times.size(), 2u);
    EXPECT_LT(times[1] - times[0], 100) << "HR100 stamped when its read began";

    const qint64 before = QDateTime::currentMSecsSinceEpoch();
    const CliRun r = cli({ "--json", "--sim-fault", "noreply:times=1", "--timeout", "200", "read", "HR100" });
    const QDateTime answered = QDateTime::fromString(json(r.out)["time"].toString(), Qt::ISODateWithMs);
    ASSERT_TRUE(answered.isValid()) << r.out;
    EXPECT_GE(answered.toMSecsSinceEpoch() - before, 200) << r.out;
}

// A station that stops answering is backed off: after 3 silent cycles its
// tags are read once every 10 cycles, with one attempt, and the other
// station keeps its cycle; one that answers again is read as before.
TEST(Cli, ASilentStationIsBackedOffAndComesBack)
{
    struct Row
    {
        const char *name;
        std::string tag; // the second tag, after HR100 at station 1
        std::string fault;
        int requests; // of the second tag's station over 14 cycles
        bool backedOff; // at the end
    } rows[] = {
        // Cycles 0 to 2 with a retry each, then the probe in cycle 12: 7, not 28.
        { "no drive at station 9", "HR100@9", "none", 7, true },
        { "station 2 silent for 3 cycles", "HR100@2", "noreply:station=2,times=6", 8, false },
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.name);
        std::vector<std::string> args = { "--json", "--quiet", "--timeout", "50", "--retry", "1" };
        if (row.fault != "none")
            args.insert(args.end(), { "--sim-fault", row.fault });
        args.insert(args.end(), { "poll", "HR100", row.tag, "--cycles", "14", "--interval", "10" });
        const CliRun r = cli(args);
        const QJsonObject o = json(r.out);
        const std::string station = row.tag.substr(row.tag.find('@') + 1);
        EXPECT_EQ(o["link"].toObject()[QString::fromStdString(station)].toObject()["requests"].toInt(),
            row.requests)
            << r.out;
        EXPECT_EQ(o["link"].toObject()["1"].toObject()["requests"].toInt(), 14) << r.out;
        EXPECT_EQ(o["backedOff"].toArray().size(), row.backedOff ? 1 : 0) << r.out;
        const QJsonObject second = o["tags"].toArray()[1].toObject();
        EXPECT_EQ(second["stale"].toBool(), row.backedOff) << r.out;
        EXPECT_EQ(second["values"].toArray().isEmpty(), row.backedOff) << r.out;
        EXPECT_GE(o["missedIntervals"].toInt(), 3) << "the silent cycles took longer than 10 ms: " << r.out;
    }
}

// Reads p's standard output into out and its standard error into err until
// where (one of the two) shows text after from, or 30 s pass; whether it did.
bool shows(QProcess &p, std::string &out, std::string &err, const std::string &where, const std::string &text,
    size_t from = 0)
{
    for (int i = 0; i < 300 && where.find(text, from) == std::string::npos; ++i) {
        p.waitForReadyRead(100);
        out += p.readAllStandardOutput().toStdString();
        err += p.readAllStandardError().toStdString();
    }
    return where.find(text, from) != std::string::npos;
}

// Starts teco-cli with args and input, and reads its standard output until
// it shows text (or 30 s pass).
std::string started(QProcess &p, const QStringList &args, const char *input, const std::string &text)
{
    p.start(TECO_CLI_PATH, args);
    std::string out, err;
    if (p.waitForStarted(30000) && p.write(input) >= 0)
        shows(p, out, err, out, text);
    return out;
}

// The device goes away under a running poll (the simulated drive at the
// other end of its pseudo-terminal is killed): the poll says so once, waits,
// and reads on once the device is back (here a new drive behind the same
// name).
TEST(Cli, APollSaysOnceThatItsDeviceWentAwayAndReadsOnWhenItIsBack)
{
    const std::string port = scratchDir() + "/port";
    auto startDrive = [&](QProcess &sim) {
        sim.start(TECO_SIM_PATH, { "--quiet" });
        if (!sim.waitForReadyRead(30000))
            return false;
        const std::string device = sim.readLine().trimmed().toStdString();
        ::unlink(port.c_str());
        return ::symlink(device.c_str(), port.c_str()) == 0;
    };
    QProcess first, second, poll;
    ASSERT_TRUE(startDrive(first));
    poll.start(TECO_CLI_PATH,
        { "--quiet", "--port", QString::fromStdString(port), "--timeout", "100", "--retry", "0", "poll",
            "HR100", "--interval", "50" });
    ASSERT_TRUE(poll.waitForStarted(30000));
    std::string out, err;
    ASSERT_TRUE(shows(poll, out, err, out, " 1500\n")) << out << err;
    // As an adapter that is pulled out, the name goes with the device: a
    // pseudo-terminal's number may be given to another test's line at once.
    ::unlink(port.c_str());
    first.kill();
    first.waitForFinished(30000);
    ASSERT_TRUE(shows(poll, out, err, err, "; waiting for it to come back\n")) << err;
    EXPECT_EQ(err.rfind("teco-cli: the device " + port + " is gone", 0), 0u) << err;
    const size_t whileGone = out.size();
    ASSERT_TRUE(startDrive(second));
    EXPECT_TRUE(shows(poll, out, err, err, "teco-cli: the device " + port + " is back\n")) << err;
    EXPECT_TRUE(shows(poll, out, err, out, " 1500\n", whileGone)) << out;
    ::kill(pid_t(poll.processId()), SIGINT);
    ASSERT_TRUE(poll.waitForFinished(30000));
    err += poll.readAllStandardError().toStdString();
    EXPECT_EQ(err.find(" is gone"), err.rfind(" is gone")) << "said once: " << err;
    second.kill();
    second.waitForFinished(30000);

    // A read on a device that went away says so after the driver's text.
    SilentDevice device;
    QProcess batch;
    batch.start(TECO_CLI_PATH,
        { "--port", QString::fromStdString(device.path), "--timeout", "50", "--retry", "0", "batch" });
    ASSERT_TRUE(batch.waitForStarted(30000));
    batch.write("read HR1\n");
    std::string shown, said;
    shows(batch, shown, said, said, "PLC no response"); // the first read, unanswered, on the open device
    ::close(device.fd);
    device.fd = -1;
    batch.write("read HR1\n");
    batch.closeWriteChannel();
    ASSERT_TRUE(batch.waitForFinished(30000));
    said += batch.readAllStandardError().toStdString();
    EXPECT_NE(said.find("PLC no response (read 1 word(s) from 1-HR1)\nteco-cli: the device " + device.path
                  + " is gone (unplugged, or its other end closed)\n"),
        std::string::npos)
        << said;
}

// The live status line of a poll fits the terminal that standard error is
// on: here 40 columns, so each line is cut to 39 and ends in "...".
TEST(Cli, TheStatusLineFitsTheTerminal)
{
    struct winsize size = {};
    size.ws_col = 40;
    size.ws_row = 24;
    int master = -1;
    const pid_t child = forkpty(&master, nullptr, nullptr, &size);
    ASSERT_GE(child, 0);
    if (child == 0) {
        const int null = ::open("/dev/null", O_WRONLY);
        dup2(null, STDOUT_FILENO);
        execl(TECO_CLI_PATH, TECO_CLI_PATH, "--quiet", "poll", "HR1", "--cycles", "3", "--interval", "250",
            static_cast<char *>(nullptr));
        _exit(127);
    }
    std::string seen;
    char buffer[512];
    ssize_t n;
    while ((n = ::read(master, buffer, sizeof buffer)) > 0) // EIO once the program has closed it
        seen.append(buffer, size_t(n));
    int status = 0;
    waitpid(child, &status, 0);
    ::close(master);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << seen;
    const std::string clear = "\r\033[K";
    int cut = 0;
    for (size_t at = seen.find(clear); at != std::string::npos;) {
        const size_t next = seen.find(clear, at + clear.size());
        const std::string line
            = seen.substr(at + clear.size(), next == std::string::npos ? next : next - at - clear.size());
        EXPECT_LE(line.size(), 39u) << line;
        cut += line.size() > 3 && line.compare(line.size() - 3, 3, "...") == 0 ? 1 : 0;
        at = next;
    }
    EXPECT_GE(cut, 2) << seen;
}

// The shell with its lines from a pipe: each shown as it runs, a typing
// error or a failed command reported on standard error and the shell going
// on; quit ends it. The exit status is the worst of its lines.
TEST(Cli, TheShellGoesOnAfterBadAndFailedLines)
{
    const std::string input = "read XR1\n"
                              "write HR100 42 --json\n"
                              "fault noreply:times=1\n"
                              "read HR100 --retry 0 --timeout 100 --json\n"
                              "help\n"
                              "read HR100 --json # again\n"
                              "quit\n"
                              "read HR101 --json\n";
    const CliRun r = cli({ "shell" }, input);
    EXPECT_EQ(r.status, 2) << r.err;
    std::vector<std::string> shown; // the JSON of each line: docs/shell.md shows its text
    for (const std::string &line : lines(r.out))
        if (line.rfind("teco> ", 0) == 0)
            shown.push_back(line.substr(6));
    EXPECT_EQ(shown,
        (std::vector<std::string> { "read XR1", "write HR100 42 --json", "fault noreply:times=1",
            "read HR100 --retry 0 --timeout 100 --json", "help", "read HR100 --json # again", "quit" }));
    EXPECT_NE(r.out.find("quit, exit or Ctrl-D"), std::string::npos) << "help";
    EXPECT_NE(r.err.find("teco-cli: unknown address \"XR1\""), std::string::npos) << r.err;
}

// Ctrl-C during a poll ends the poll, with its summary; the shell reads on.
TEST(Cli, CtrlCStopsTheShellsCommandNotTheShell)
{
    QProcess p;
    std::string out = started(p, { "shell" }, "poll HR100 --interval 20\n", " 1500\n");
    ASSERT_NE(out.find(" 1500\n"), std::string::npos) << "the poll did not start: " << out;
    ::kill(pid_t(p.processId()), SIGINT);
    p.write("read HR101 --json\n");
    p.closeWriteChannel();
    ASSERT_TRUE(p.waitForFinished(30000));
    out += p.readAllStandardOutput().toStdString();
    EXPECT_EQ(p.exitStatus(), QProcess::NormalExit);
    EXPECT_EQ(p.exitCode(), 0) << p.readAllStandardError().toStdString();
    EXPECT_NE(out.find("\npoll: "), std::string::npos) << out;
    const std::vector<std::string> all = lines(out);
    ASSERT_FALSE(all.empty());
    EXPECT_EQ(json(all.back())["values"].toArray().first().toDouble(), 300) << out; // the built-in map
}

// The shell on a terminal: Tab completes, Ctrl-C at the prompt drops the
// line typed, Ctrl-D ends it with the status of its last line (a typing
// error or a line too long earlier does not stay), and the lines run are
// kept as its history, a line refused for its length not.
TEST(Cli, TheShellOnATerminalCompletesDropsALineOnCtrlCAndKeepsItsHistory)
{
    const std::string home = scratchDir();
    int terminal = -1;
    const pid_t child = forkpty(&terminal, nullptr, nullptr, nullptr);
    ASSERT_GE(child, 0);
    if (child == 0) {
        setenv("HOME", home.c_str(), 1);
        execl(TECO_CLI_PATH, TECO_CLI_PATH, "shell", static_cast<char *>(nullptr));
        _exit(127);
    }
    // A shell still running when the test ends (or fails) is killed.
    struct End
    {
        pid_t pid;
        int terminal;
        ~End()
        {
            if (pid > 0 && ::kill(pid, SIGKILL) == 0)
                waitpid(pid, nullptr, 0);
            ::close(terminal);
        }
    } end { child, terminal };
    std::string seen;
    // What the terminal shows until it shows text (or 20 s pass).
    auto waitFor = [&](const std::string &text) {
        const auto until = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        while (seen.find(text) == std::string::npos && std::chrono::steady_clock::now() < until) {
            struct pollfd p = { terminal, POLLIN, 0 };
            char buffer[512];
            ssize_t n = 0;
            if (poll(&p, 1, 100) > 0 && (n = ::read(terminal, buffer, sizeof buffer)) > 0)
                seen.append(buffer, size_t(n));
            else if (n < 0)
                break;
        }
        return seen.find(text) != std::string::npos;
    };
    auto type = [&](const std::string &keys) {
        ASSERT_EQ(::write(terminal, keys.data(), keys.size()), ssize_t(keys.size()));
    };
    // The prompt is shown and the line editor waits for keys: the terminal
    // is out of canonical mode (as it is not while a command runs).
    auto atPrompt = [&]() {
        if (!waitFor("teco> "))
            return false;
        seen.clear();
        struct termios t;
        for (int i = 0; i < 2000; ++i) {
            if (tcgetattr(terminal, &t) == 0 && !(t.c_lflag & ICANON))
                return true;
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        return false;
    };
    ASSERT_TRUE(atPrompt()) << seen;
    type("re\tHR10\t0\r"); // "read " completed; nothing completes after HR10
    EXPECT_TRUE(waitFor("HR100                   1500")) << seen;
    ASSERT_TRUE(atPrompt()) << seen;
    type("read XR1\r");
    EXPECT_TRUE(waitFor("unknown address \"XR1\"")) << seen;
    ASSERT_TRUE(atPrompt()) << seen;
    type("--f\t\t"); // every option, before the command too
    EXPECT_TRUE(waitFor("--from")) << seen;
    EXPECT_NE(seen.find("--format"), std::string::npos) << seen;
    EXPECT_TRUE(waitFor("teco> --f")) << seen; // the line again, under the list
    seen.clear();
    type("\x03");
    ASSERT_TRUE(atPrompt()) << seen;
    type("read HR100 --json --format int1\t\r"); // int16
    EXPECT_TRUE(waitFor("\"values\":[1500]")) << seen;
    ASSERT_TRUE(atPrompt()) << seen;
    // A line too long, typed while its echo is read (or both sides would wait).
    const std::string longLine = "write HR100 " + std::string(70000, '1') + "\r";
    const int flags = fcntl(terminal, F_GETFL);
    fcntl(terminal, F_SETFL, flags | O_NONBLOCK);
    for (size_t at = 0; at < longLine.size();) {
        const ssize_t n
            = ::write(terminal, longLine.data() + at, std::min<size_t>(256, longLine.size() - at));
        at += n > 0 ? size_t(n) : 0;
        char echo[4096];
        while (::read(terminal, echo, sizeof echo) > 0) { }
        std::this_thread::sleep_for(std::chrono::milliseconds(n > 0 ? 0 : 5));
    }
    fcntl(terminal, F_SETFL, flags);
    EXPECT_TRUE(waitFor("teco-cli: the line is longer than 64 KiB")) << seen.substr(0, 200);
    ASSERT_TRUE(atPrompt()) << seen;
    type("write HR100 9");
    EXPECT_TRUE(waitFor("write HR100 9")) << seen;
    type("\x03");
    ASSERT_TRUE(atPrompt()) << seen;
    type("read HR100 --json\r");
    EXPECT_TRUE(waitFor("\"values\":[1500]")) << seen << " (the write was dropped with its line)";
    ASSERT_TRUE(atPrompt()) << seen;
    type("\x04");
    waitFor(std::string(1, '\0')); // drains the terminal until the shell closes it
    int status = -1;
    for (int i = 0; i < 100 && waitpid(child, &status, WNOHANG) == 0; ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    end.pid = status == -1 ? child : 0;
    ASSERT_NE(status, -1) << "the shell did not end at Ctrl-D: " << seen;
    ASSERT_TRUE(WIFEXITED(status)) << seen;
    EXPECT_EQ(WEXITSTATUS(status), 0) << seen;
    std::ifstream history(home + "/.teco_cli_history");
    std::stringstream kept;
    kept << history.rdbuf();
    EXPECT_NE(kept.str().find("HR100"), std::string::npos) << kept.str();
    EXPECT_EQ(kept.str().find("HR100 9"), std::string::npos) << kept.str();
    EXPECT_LT(kept.str().size(), 1000u) << "the line too long was kept";
}

// The usage names every option the program takes, each as a whole word
// ("--trace" apart from "--trace-format"); the shell's help every option
// that a line takes: those that the shell refuses as the command line's are
// the only ones it leaves out.
TEST(Cli, UsageAndShellHelpNameEveryOption)
{
    const CliRun list = cli({ "--list-completions" });
    const CliRun usage = cli({ "--help" });
    ASSERT_EQ(usage.status, 0) << usage.err;
    const auto named = [&usage](const std::string &option) {
        for (size_t at = usage.out.find(option); at != std::string::npos;
             at = usage.out.find(option, at + 1)) {
            const char next = at + option.size() < usage.out.size() ? usage.out[at + option.size()] : ' ';
            if (next != '-' && !std::isalnum(static_cast<unsigned char>(next)))
                return true;
        }
        return false;
    };
    std::string input = "help\n";
    std::vector<std::string> options;
    for (const std::string &line : lines(list.out))
        if (line.rfind("option ", 0) == 0) {
            options.push_back(line.substr(7, line.find(' ', 7) - 7));
            EXPECT_TRUE(named(options.back())) << options.back();
            input += "info " + options.back() + " 1\n";
        }
    ASSERT_GT(options.size(), 30u) << list.out;
    const CliRun r = cli({ "shell" }, input);
    const size_t helpEnd = r.out.find("teco> info");
    ASSERT_NE(helpEnd, std::string::npos) << r.out;
    const std::string help = r.out.substr(0, helpEnd);
    for (const std::string &option : options) {
        const bool commandLine
            = r.err.find("option " + option + " belongs on the command line") != std::string::npos;
        EXPECT_EQ(help.find(option) == std::string::npos, commandLine) << option << "\n" << help;
    }
}

// A scan over line settings finds the simulated drive at its own speed and
// stop bits (as docs/teco-cli.md shows) and leaves the link at its own
// settings for the next command. A pseudo-terminal keeps no parity, so the
// drive answers at every parity tried.
TEST(Cli, AScanOverLineSettingsFindsTheDriveAtItsOwn)
{
    struct Row
    {
        const char *lists;
        std::vector<std::string> found;
    } rows[] = {
        { "--bauds 4800,9600 --stop-bits 1,2", {} },
        { "--bauds 19200 --parities N,E", { "RS485,19200,NONE,8,1", "RS485,19200,EVEN,8,1" } },
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.lists);
        const CliRun r = cli(
            { "--json", "--link", "RS485,19200,EVEN,8,1", "--sim-stations", "2", "--station", "2", "batch" },
            std::string("scan --to 3 ") + row.lists + "\nread HR1\n");
        const std::vector<std::string> out = lines(r.out);
        ASSERT_EQ(out.size(), 2u) << r.out << r.err;
        std::vector<std::string> found;
        for (const QJsonValue &v : json(out[0])["stations"].toArray()) {
            EXPECT_EQ(v.toObject()["station"].toInt(), 2);
            EXPECT_EQ(v.toObject()["status"].toString(), "answers");
            found.push_back(v.toObject()["link"].toString().toStdString());
        }
        EXPECT_EQ(found, row.found);
        EXPECT_EQ(json(out[1])["ok"].toBool(), true) << "the link is back at its own settings: " << out[1];
        EXPECT_EQ(r.status, row.found.empty() ? 1 : 0) << r.err;
    }
}

// A scan shows each station as it answers, and on Ctrl-C ends with what it
// found so far.
TEST(Cli, AScanShowsStationsAsTheyAnswerAndKeepsThemOnCtrlC)
{
    QProcess p;
    std::string out = started(p, { "--sim-stations", "2", "scan", "--timeout", "50" }, "", "\n");
    EXPECT_EQ(out, "station   2  answers\n");
    ::kill(pid_t(p.processId()), SIGINT);
    ASSERT_TRUE(p.waitForFinished(30000));
    out += p.readAllStandardOutput().toStdString();
    EXPECT_EQ(p.exitStatus(), QProcess::NormalExit);
    EXPECT_EQ(p.exitCode(), 0);
    const std::vector<std::string> all = lines(out);
    ASSERT_EQ(all.size(), 2u) << out;
    EXPECT_EQ(all[1].rfind("scan: interrupted after ", 0), 0u) << out;
    EXPECT_NE(all[1].find(" of 247 probes; 1 answered (word at HR1)"), std::string::npos) << out;
}

} // namespace
