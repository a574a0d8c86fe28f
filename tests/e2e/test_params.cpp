// A drive's parameters by name through teco-cli run as a program, against
// teco-sim on a pseudo-terminal (one drive that keeps its values from run to
// run): backup, change, compare, restore with read-back; a restore that a
// drive refuses midway; names and engineering values refused before anything
// is sent.

#include "clirun.h"

#include <QProcess>
#include <QStringList>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <cstdio>
#include <fcntl.h>
#include <fstream>
#include <string>
#include <termios.h>
#include <unistd.h>
#include <vector>

namespace {

// A map of settings of every shape (a value list, a signed format, a scale,
// a high-word-first double word, a float), one measurement and one command.
const char mapText[] = "name,address,format,scale,unit,min,max,access,group,values\n"
                       "control-mode,HR1000,,,,,,rw,basic,0=speed;1=position;2=torque\n"
                       "speed-command,HR1001,int16,,rpm,-3000,3000,rw,basic,\n"
                       "current-limit,HR1002,,0.01,A,0,20,rw,limits,\n"
                       "position-target,HR1004SW,,,counts,,,rw,limits,\n"
                       "gain,HR1010,float32,,,0,1000,rw,gains,\n"
                       "motor-speed,IR401,int16,,rpm,,,r,monitor,\n"
                       "fault-reset,HR1020,,,,,,w,basic,\n";

// teco-sim on its own pseudo-terminal, with teco-cli's arguments to reach it.
class Drive
{
public:
    explicit Drive(const QTemporaryDir &dir, const QStringList &simArgs = {})
        : mapPath(dir.path().toStdString() + "/drive.csv")
    {
        std::ofstream(mapPath) << mapText;
        sim.start(TECO_SIM_PATH, QStringList { "--quiet" } + simArgs);
        if (sim.waitForReadyRead(30000))
            device = sim.readLine().trimmed().toStdString();
    }
    ~Drive()
    {
        sim.kill();
        sim.waitForFinished(30000);
    }
    CliRun cli(std::vector<std::string> args) const
    {
        args.insert(args.begin(), { "--quiet", "--port", device, "--map", mapPath, "--retry", "0" });
        return ::cli(args);
    }
    QProcess sim;
    std::string mapPath, device;
};

// The names in the first column of a table's rows after its header.
std::vector<std::string> firstColumn(const std::string &table)
{
    std::vector<std::string> names;
    size_t from = table.find('\n') + 1, nl;
    while ((nl = table.find('\n', from)) != std::string::npos) {
        const std::string line = table.substr(from, nl - from);
        if (line.find("  ") != std::string::npos)
            names.push_back(line.substr(0, line.find(' ')));
        from = nl + 1;
    }
    return names;
}

// Backup, three changes by name, compare, restore, compare: the compare
// lists exactly what changed, the restore puts it back and reads it back.
TEST(Params, ARestorePutsBackWhatWasChangedByName)
{
    QTemporaryDir dir;
    ASSERT_TRUE(dir.isValid());
    Drive drive(dir);
    ASSERT_FALSE(drive.device.empty());
    const std::string backup = dir.path().toStdString() + "/backup.csv";
    // A value its list does not name is backed up as the number, and restored.
    ASSERT_EQ(drive.cli({ "write", "control-mode", "7" }).status, 0);
    const CliRun b = drive.cli({ "params", "backup", backup });
    ASSERT_EQ(b.status, 0) << b.err;
    // A command a backup cannot hold, added by hand: left alone, and said.
    std::ofstream(backup, std::ios::app) << "fault-reset,HR1020,,,,,,,w,,basic,,,,,1,1,,\n";
    for (const auto &change : std::vector<std::vector<std::string>> {
             { "control-mode", "torque" }, { "current-limit", "12.5" }, { "position-target", "70000" } }) {
        const CliRun w = drive.cli({ "write", change[0], change[1] });
        ASSERT_EQ(w.status, 0) << w.err;
    }
    const CliRun c = drive.cli({ "params", "compare", backup });
    EXPECT_EQ(c.status, 1) << c.err;
    EXPECT_EQ(
        firstColumn(c.out), (std::vector<std::string> { "control-mode", "current-limit", "position-target" }))
        << c.out;
    // The drive's values as a joined read shows them: scaled, from the list,
    // a double word high word first.
    for (const char *shown : { "torque", "12.50", "70000" })
        EXPECT_NE(c.out.find(shown), std::string::npos) << c.out;

    const CliRun plan = drive.cli({ "params", "restore", backup, "--json" });
    EXPECT_NE(plan.out.find(R"("notWritten":[{"name":"fault-reset","reason":"write-only)"), std::string::npos)
        << plan.out;
    const CliRun r = drive.cli({ "params", "restore", backup, "--yes" });
    EXPECT_EQ(r.status, 0) << r.out << r.err;
    EXPECT_NE(r.out.find("not written: fault-reset (write-only"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("restored 3 parameters; each reads back as written; 1 parameter not written"),
        std::string::npos)
        << r.out;
    const CliRun again = drive.cli({ "params", "compare", backup });
    EXPECT_EQ(again.status, 0) << again.out << again.err;
    const CliRun hr = drive.cli({ "read", "HR1004", "--count", "2" });
    EXPECT_NE(hr.out.find("HR1005                     0"), std::string::npos) << hr.out;
}

// A drive that refuses writes to current-limit (an exception on HR1002): the
// restore writes what comes before it, stops there naming the parameter and
// the driver's text, and leaves what comes after it unwritten.
TEST(Params, ARestoreStopsAtAFailedWriteAndNamesIt)
{
    QTemporaryDir dir;
    ASSERT_TRUE(dir.isValid());
    const std::string backup = dir.path().toStdString() + "/backup.csv";
    {
        Drive clean(dir);
        ASSERT_EQ(clean.cli({ "params", "backup", backup }).status, 0);
    }
    Drive drive(dir, { "--fault", "exception:at=HR1002,code=4" });
    for (const auto &change : std::vector<std::vector<std::string>> {
             { "control-mode", "torque" }, { "position-target", "70000" } })
        ASSERT_EQ(drive.cli({ "write", change[0], change[1] }).status, 0);
    const CliRun r = drive.cli({ "params", "restore", backup, "--yes" });
    EXPECT_EQ(r.status, 1) << r.out;
    EXPECT_NE(r.err.find("cannot write current-limit (HR1002): "), std::string::npos) << r.err;
    EXPECT_NE(r.err.find("1 parameter not written"), std::string::npos) << r.err;
    EXPECT_NE(drive.cli({ "read", "control-mode" }).out.find("control-mode = speed"), std::string::npos);
    EXPECT_NE(drive.cli({ "read", "position-target" }).out.find("= 70000 counts"), std::string::npos);
}

// A name or an engineering value the map refuses is bad usage, said in one
// sentence before anything goes on the line.
TEST(Params, ANameOrValueTheMapRefusesSendsNothing)
{
    struct Row
    {
        std::vector<std::string> args;
        const char *message;
    } rows[] = {
        { { "write", "speed-command", "4000" }, "speed-command takes -3000 to 3000 rpm: 4000 is outside" },
        { { "write", "current-limit", "1.005" },
            "current-limit takes steps of 0.01 A: 1.005 is between two" },
        { { "write", "motor-speed", "3" }, "motor-speed is read-only" },
        { { "write", "control-mode", "flying" }, "control-mode" },
        { { "write", "speed-command", "1", "2" }, "a parameter takes one value: write NAME VALUE" },
        { { "read", "spede-command" }, "unknown parameter \"spede-command\" (closest: speed-command)" },
        { { "read", "gain", "--type", "dword" }, "option --type does not apply to a parameter's name" },
        { { "poll", "speed-comand" }, "closest: speed-command" },
        { { "params", "restore", "nowhere.csv", "--group", "x" },
            "option --group does not apply to params restore" },
        { { "params", "restore", "moved.csv" },
            "moved.csv line 2: \"gain\" is HR1012 there but HR1010 in the map" },
    };
    const std::string map = scratchDir() + "/drive.csv";
    std::ofstream(map) << mapText;
    std::ofstream("moved.csv") << "name,address,format,value\ngain,HR1012,float32,1\n";
    SilentDevice line;
    for (const Row &row : rows) {
        const CliRun r
            = cli(with({ "--port", line.path, "--map", map, "--timeout", "50", "--retry", "0" }, row.args));
        SCOPED_TRACE(row.args[1]);
        EXPECT_EQ(r.status, 2) << r.err;
        EXPECT_NE(r.err.find(row.message), std::string::npos) << r.err;
        EXPECT_EQ(line.bytesArrived(), 0);
    }
    std::remove("moved.csv");
}

} // namespace
