// Lines over TCP: teco-cli reaching teco-sim --listen as it would a serial
// device server, a connection that the drive's side closes, and addresses
// that cannot be used.

#include "clirun.h"

#include <QProcess>

#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <string>

namespace {

// teco-sim --listen on the loopback; the address a master gives (tcp:...).
std::string startListening(QProcess &sim, const std::string &address = "127.0.0.1:0")
{
    sim.start(TECO_SIM_PATH, { "--quiet", "--listen", QString::fromStdString(address) });
    if (!sim.waitForReadyRead(30000))
        return std::string();
    return sim.readLine().trimmed().toStdString();
}

TEST(Tcp, ReadsWritesAndPollsReachTheSimulatedDriveOverTcp)
{
    QProcess sim;
    const std::string port = startListening(sim);
    ASSERT_EQ(port.rfind("tcp:127.0.0.1:", 0), 0u) << port;
    struct Row
    {
        std::vector<std::string> args;
        const char *shows;
    } rows[] = {
        { { "read", "HR100" }, "HR100                   1500        1500  0x05DC\n" },
        { { "write", "HR100", "4321" }, "wrote 1 word at HR100, station 1\n" },
        { { "read", "HR100", "--count", "2" }, "HR100                   4321        4321  0x10E1\nHR101 " },
        { { "poll", "HR100", "--cycles", "3", "--interval", "20" }, "4321" },
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.args[0]);
        std::vector<std::string> args = { "--port", port, "--timeout", "1000" };
        args.insert(args.end(), row.args.begin(), row.args.end());
        const CliRun r = cli(args);
        EXPECT_EQ(r.status, 0) << r.err;
        EXPECT_NE(r.out.find(row.shows), std::string::npos) << r.out;
    }
    sim.kill();
    sim.waitForFinished(30000);
}

// The drive's side closes the connection (teco-sim is killed) under a poll
// and between two commands of one batch: each says so once, and the line is
// connected anew for the next cycle or command.
TEST(Tcp, ALostConnectionIsReportedOnceAndMadeAnewForTheNextCommand)
{
    for (const bool polling : { true, false }) {
        SCOPED_TRACE(polling ? "poll" : "batch");
        QProcess first, second, master;
        const std::string port = startListening(first);
        const std::string address = port.substr(4);
        master.start(TECO_CLI_PATH,
            polling ? QStringList { "--quiet", "--port", QString::fromStdString(port), "--timeout", "100",
                "--retry", "0", "poll", "HR100", "--interval", "50" }
                    : QStringList { "--port", QString::fromStdString(port), "--timeout", "100", "--retry",
                        "0", "batch" });
        ASSERT_TRUE(master.waitForStarted(30000));
        std::string out, err;
        auto waitFor = [&](const std::string &text, std::string &where, size_t from = 0) {
            for (int i = 0; i < 300 && where.find(text, from) == std::string::npos; ++i) {
                master.waitForReadyRead(100);
                out += master.readAllStandardOutput().toStdString();
                err += master.readAllStandardError().toStdString();
            }
            return where.find(text, from) != std::string::npos;
        };
        if (!polling)
            master.write("read HR100\n");
        ASSERT_TRUE(waitFor(" 1500", out)) << out << err;
        first.kill();
        first.waitForFinished(30000);
        const std::string lost = "teco-cli: connection to " + address + " lost: ";
        if (!polling)
            master.write("read HR100\n");
        ASSERT_TRUE(waitFor(lost, err)) << err;
        const size_t before = out.size();
        ASSERT_EQ(startListening(second, address), port);
        if (!polling) {
            master.write("read HR100\n");
            master.closeWriteChannel();
        }
        EXPECT_TRUE(waitFor(" 1500", out, before)) << out << err;
        if (polling)
            ::kill(pid_t(master.processId()), SIGINT);
        ASSERT_TRUE(master.waitForFinished(30000));
        err += master.readAllStandardError().toStdString();
        EXPECT_EQ(err.find(lost), err.rfind(lost)) << "said once: " << err;
        second.kill();
        second.waitForFinished(30000);
    }
}

// An answer that comes late, while the retry is out, is the same answer (the
// same request); the answer to the retry is then stale before the next
// request and dropped, as on a serial line: each read shows its own value.
TEST(Tcp, ALateAnswerAndStaleBytesAreHandledAsOnASerialLine)
{
    QProcess sim;
    sim.start(TECO_SIM_PATH, { "--quiet", "--listen", "127.0.0.1:0", "--fault", "late:ms=500,times=1" });
    ASSERT_TRUE(sim.waitForReadyRead(30000));
    const std::string port = sim.readLine().trimmed().toStdString();
    const CliRun r
        = cli({ "--port", port, "--timeout", "200", "--retry", "1", "batch" }, "read HR100\nread HR101\n");
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.out.find("HR100                   1500        1500  0x05DC\n(1 retry, 1 time-out)\n"),
        std::string::npos)
        << r.out;
    EXPECT_NE(r.out.find("HR101                    300         300  0x012C\n(7 stale bytes dropped)\n"),
        std::string::npos)
        << r.out;
    sim.kill();
    sim.waitForFinished(30000);
}

TEST(Tcp, AddressesThatCannotBeUsedAreRefusedInOneSentence)
{
    struct Row
    {
        const char *program;
        std::vector<std::string> args;
        const char *says;
    } rows[] = {
        { TECO_CLI_PATH, { "--port", "tcp:", "read", "HR1" },
            "teco-cli: bad network address \"tcp:\": give it as tcp:HOST:PORT" },
        { TECO_CLI_PATH, { "--port", "tcp:host", "read", "HR1" },
            "teco-cli: bad network address \"tcp:host\": give it" },
        { TECO_CLI_PATH, { "--port", "tcp:host:99999", "read", "HR1" },
            "teco-cli: bad network address \"tcp:host:99999\": the port is a number from 1 to 65535\n" },
        { TECO_CLI_PATH, { "--port", "tcp:::1:502", "read", "HR1" },
            "teco-cli: bad network address \"tcp:::1:502\": give it as tcp:HOST:PORT, such as "
            "tcp:192.168.1.50:4001 (an IPv6 address goes in brackets: [::1]:4001)\n" },
        { TECO_CLI_PATH, { "--port", "tcp:no-such-host.invalid:4001", "read", "HR1" },
            "teco-cli: cannot find the host no-such-host.invalid: " },
        { TECO_SIM_PATH, { "--listen", "127.0.0.1" },
            "teco-sim: bad network address \"127.0.0.1\": give it as HOST:PORT" },
        { TECO_SIM_PATH, { "--listen", "127.0.0.1:0", "--device", "/dev/null" },
            "teco-sim: --listen and --device name two lines" },
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.args[1]);
        const CliRun r = runProgram(row.program, row.args, "");
        EXPECT_EQ(r.status, 2) << r.err;
        EXPECT_EQ(r.err.rfind(row.says, 0), 0u) << r.err;
        EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n') <= 2, true) << r.err;
    }
}

} // namespace
