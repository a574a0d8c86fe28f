// teco-cli sniff on a bus: a master and the simulated drive, with faults of
// every kind, talk through teco-tap; sniff must see every request the
// master sent, each answer as the drive sent it, spoiled answers as bad
// frames and noise as garbage, and never send a byte itself.

#include "clirun.h"
#include "hex.h"

#include <QProcess>
#include <QRegularExpression>
#include <QThread>

#include <gtest/gtest.h>

#include <fstream>
#include <memory>
#include <sstream>

namespace {

std::string fileText(const std::string &path)
{
    std::ifstream in(path);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}

int countOf(const std::string &text, const char *pattern)
{
    return int(QString::fromStdString(text).count(QRegularExpression(QString::fromLatin1(pattern))));
}

// The hex bytes of every match of pattern's first group, in order.
QStringList allOf(const std::string &text, const char *pattern)
{
    QStringList found;
    auto it = QRegularExpression(QString::fromLatin1(pattern), QRegularExpression::MultilineOption)
                  .globalMatch(QString::fromStdString(text));
    while (it.hasNext())
        found << it.next().captured(1).trimmed();
    return found;
}

// teco-tap with its three devices: drive, master, listener.
struct Tap
{
    QProcess process;
    QStringList devices;
    Tap()
    {
        process.start(TECO_TAP_PATH, { "-b", "115200" });
        while (devices.size() < 3 && process.waitForReadyRead(10000))
            while (process.canReadLine())
                devices << QString::fromLatin1(process.readLine()).trimmed();
    }
};

void start(QProcess &p, const char *program, const QStringList &args)
{
    p.start(program, args);
    ASSERT_TRUE(p.waitForStarted(10000)) << program;
}

std::string stop(QProcess &p, bool out = true)
{
    p.terminate();
    p.waitForFinished(20000);
    return (out ? p.readAllStandardOutput() : p.readAllStandardError()).toStdString();
}

TEST(Sniff, SeesEveryFrameOfABusWithFaults)
{
    Tap tap;
    ASSERT_EQ(tap.devices.size(), 3);
    const QString link = "RS485,115200,NONE,8,2";
    QProcess sim, sniff;
    QStringList faults;
    for (const char *f :
        { "noreply:", "corrupt:", "truncate:", "late:ms=150,", "exception:", "wrongstation:", "noise:" })
        faults << "--fault" << QString::fromLatin1(f) + "rate=3%";
    start(sim, TECO_SIM_PATH,
        QStringList { "--device", tap.devices[0], "--link", link, "--seed", "7" } + faults);
    // The events go to the log: a pipe that nobody reads would fill and hold sniff up.
    const std::string log = std::string(::testing::TempDir()) + "sniff.jsonl";
    sniff.setStandardOutputFile(QProcess::nullDevice());
    start(sniff, TECO_CLI_PATH,
        { "sniff", "--port", tap.devices[2], "--link", link, "--json", "--timeout", "200", "--log",
            QString::fromStdString(log) });
    QThread::msleep(300);
    std::string batch;
    for (int i = 0; i < 50; ++i)
        batch += "read HR1 --station 1\nwrite FN6HR101 9 --station 3\nread HR10 --count 20 --station 2\n"
                 "write HR200 1 2 3 --station 1\n";
    const std::string trace = std::string(::testing::TempDir()) + "sniff-master.trace";
    const CliRun master = cli({ "--port", tap.devices[1].toStdString(), "--link", link.toStdString(),
                                  "--timeout", "200", "--retry", "0", "--quiet", "--trace", trace, "batch" },
        batch);
    ASSERT_NE(master.status, -1);
    QThread::msleep(300);
    stop(sniff);
    EXPECT_EQ(sniff.exitCode(), 0);
    const std::string seen = fileText(log);
    const std::string simLog = stop(sim, false);
    const std::string tapSays = stop(tap.process, false);
    std::ofstream(std::string(::testing::TempDir()) + "sniff-sim.log") << simLog; // for a failure

    // Every request, in order, as the master sent it.
    const QStringList sent = allOf(fileText(trace), R"re(^\s*[0-9.]+ TX\s+((?:[0-9A-F]{2} )+))re");
    EXPECT_EQ(sent.size(), 200);
    EXPECT_EQ(allOf(seen, R"re("request":"([0-9A-F ]+)")re"), sent);
    // Every answer the drive sent whole; spoiled ones as bad frames; the noise as garbage.
    const int answered = countOf(simLog, ": answered ");
    const int spoiled = countOf(simLog, R"re(answered .*\[(corrupt|truncate) injected\])re");
    const int noise = countOf(simLog, R"re(answered .*\[noise injected\])re");
    EXPECT_GT(spoiled, 0);
    EXPECT_GT(noise, 0);
    EXPECT_EQ(countOf(seen, R"re("reply":)re"), answered - spoiled);
    EXPECT_EQ(countOf(seen, R"re("event":"(crc-bad|truncated)")re"), spoiled);
    EXPECT_NE(seen.find("\"garbageBytes\":" + std::to_string(noise * 4) + ","), std::string::npos) << seen;
    EXPECT_NE(tapSays.find("the listener sent 0 bytes"), std::string::npos) << tapSays;
}

TEST(Sniff, SaysWhatWentWrong)
{
    struct Row
    {
        std::vector<std::string> args;
        int status;
        const char *message;
    } rows[] = {
        { { "sniff" }, 2, "teco-cli: sniff listens on a serial line: give it with --port DEVICE\n" },
        { { "sniff", "--port", "/dev/pts/1", "extra" }, 2, "teco-cli: usage: sniff --port DEVICE" },
        { { "sniff", "--port", "/nonexistent/tty" }, 2, "teco-cli: " },
        { { "sniff", "--port", "/dev/null", "--log", "/" }, 2, "teco-cli: cannot write the log to /: " },
        { { "sniff", "--port", "/dev/null", "--link", "RS485,9600,NONE,7,2" }, 2,
            "Modbus RTU needs 8 data bits" },
    };
    for (const Row &row : rows) {
        const CliRun r = cli(row.args);
        EXPECT_EQ(r.status, row.status) << joined(row.args);
        EXPECT_NE(r.err.find(row.message), std::string::npos) << joined(row.args) << r.err;
        EXPECT_EQ(r.out, "") << joined(row.args);
    }
}

TEST(Sniff, ALineThatGoesAwayEndsItWithTheFigures)
{
    auto tap = std::make_unique<Tap>();
    ASSERT_EQ(tap->devices.size(), 3);
    QProcess sniff;
    start(sniff, TECO_CLI_PATH, { "sniff", "--port", tap->devices[2], "--quiet" });
    QThread::msleep(300);
    stop(tap->process);
    ASSERT_TRUE(sniff.waitForFinished(10000));
    EXPECT_EQ(sniff.exitCode(), 1);
    EXPECT_NE(sniff.readAllStandardOutput().toStdString().find("sniff: 0 frames"), std::string::npos);
    EXPECT_NE(sniff.readAllStandardError().toStdString().find("went away"), std::string::npos);
}

} // namespace
