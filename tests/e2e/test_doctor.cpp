// teco-cli doctor run as a program against teco-sim: each finding the doctor
// makes about a line, with its advice and exit status.

#include "clirun.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <memory>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace {

// teco-sim with args on its own pseudo-terminal, stopped when it goes.
struct Drive
{
    QProcess process;
    std::string device;
    explicit Drive(const std::vector<std::string> &args)
    {
        QStringList list { "--quiet" };
        for (const std::string &a : args)
            list << QString::fromStdString(a);
        process.start(TECO_SIM_PATH, list);
        if (process.waitForReadyRead(30000))
            device = process.readLine().trimmed().toStdString();
    }
    ~Drive()
    {
        process.kill();
        process.waitForFinished(30000);
    }
};

// teco-cli polling the device, so that it holds it.
struct Holder
{
    QProcess process;
    explicit Holder(const std::string &device)
    {
        process.start(TECO_CLI_PATH,
            { "--quiet", "--port", QString::fromStdString(device), "poll", "HR1", "--interval", "1000" });
        process.waitForReadyRead(30000); // the first value: the line is open
    }
    ~Holder()
    {
        process.kill();
        process.waitForFinished(30000);
    }
};

QJsonObject checkNamed(const QJsonObject &report, const char *name)
{
    for (const QJsonValue &c : report["checks"].toArray())
        if (c.toObject()["name"].toString() == name)
            return c.toObject();
    return QJsonObject();
}

// A fake sysfs tree under root with the latency timer of ttyUSB0.
void fakeLatencyTimer(const std::string &root, int ms)
{
    const std::string dir = root + "/bus/usb-serial/devices/ttyUSB0";
    ASSERT_EQ(system(("mkdir -p " + dir).c_str()), 0);
    std::ofstream(dir + "/latency_timer") << ms << "\n";
}

} // namespace

TEST(Doctor, SaysWhatIsWrongWithTheLineAndWhatToDo)
{
    QTemporaryDir dir;
    ASSERT_TRUE(dir.isValid());
    const std::string tmp = dir.path().toStdString();
    std::ofstream(tmp + "/file") << "not a device\n";
    struct Row
    {
        const char *what;
        bool drive; // a teco-sim runs
        std::vector<std::string> sim; // its options
        std::vector<std::string> args; // teco-cli's before doctor; "DEV": the drive's device
        int latencyTimer; // a fake sysfs tree with this latency timer for ttyUSB0; 0: none
        bool held; // another teco-cli holds the device
        bool locked; // the drive's device is chmod 000 (no test as root, who may open anything)
        int status;
        const char *check, *checkStatus, *finding, *advice;
    } rows[] = {
        { "missing device", false, {}, { "--port", "/dev/no-such-tty" }, 0, false, false, 1, "device", "fail",
            "/dev/no-such-tty does not exist", "plugged in" },
        { "a regular file", false, {}, { "--port", tmp + "/file" }, 0, false, false, 1, "device", "fail",
            "is not a serial device (not a terminal)", "such as /dev/ttyUSB0" },
        { "no permission", true, {}, { "--port", "DEV" }, 0, false, true, 1, "device", "fail",
            "you may not open", "sudo usermod -aG" },
        { "held by another program", true, {}, { "--port", "DEV" }, 0, true, false, 1, "device", "fail",
            "is held by process ", "(teco-cli), then try again" },
        { "latency timer of 16 ms", true, {}, { "--port", "LINK" }, 16, false, false, 0, "latency", "warn",
            "the adapter's latency timer is 16 ms", "ATTR{latency_timer}=\"1\"" },
        { "latency timer of 1 ms", true, {}, { "--port", "LINK" }, 1, false, false, 0, "latency", "ok",
            "the adapter's latency timer is 1 ms", "" },
        { "other baud rate and stop bits", true, { "--link", "RS485,19200,NONE,8,1" }, { "--port", "DEV" }, 0,
            false, false, 1, "station", "fail",
            "station 1 does not answer at RS485,9600,NONE,8,2 (4 requests), but answers at "
            "RS485,19200,NONE,8,1",
            "give --link RS485,19200,NONE,8,1" },
        { "echo of the request", true, { "--echo" }, { "--port", "DEV" }, 0, false, false, 1, "station",
            "fail", "gives back our request before anything else (an echo)", "give --local-echo" },
        { "echo dropped by --local-echo", true, { "--echo" }, { "--port", "DEV", "--local-echo" }, 0, false,
            false, 0, "station", "ok",
            "station 1 answers at RS485,9600,NONE,8,2; the line gives back each request", "" },
        { "--local-echo without an echo", true, {}, { "--port", "DEV", "--local-echo" }, 0, false, false, 1,
            "station", "fail", "gives back no echo of the request", "leave out --local-echo" },
        { "a request lost", true, { "--fault", "noreply:times=1" }, { "--port", "DEV" }, 0, false, false, 0,
            "station", "warn", "station 1 answers at RS485,9600,NONE,8,2; only request 2 got it",
            "the wiring" },
        { "another station answers", true, { "--fault", "wrongstation:as=7" }, { "--port", "DEV" }, 0, false,
            false, 1, "station", "fail", "station 1 was asked, but the answer comes from station 7",
            "give --station 7" },
        { "answers close to the time-out", true, { "--turnaround", "330" },
            { "--port", "DEV", "--timeout", "400" }, 0, false, false, 0, "timing", "warn",
            "125 registers: ", "raise --timeout to at least" },
        { "all is well", true, {}, { "--port", "DEV" }, 0, false, false, 0, "timing", "ok",
            "125 registers: ", "" },
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.what);
        if (row.locked && ::geteuid() == 0)
            continue; // root opens any device
        std::unique_ptr<Drive> drive(row.drive ? new Drive(row.sim) : nullptr);
        ASSERT_TRUE(!drive || !drive->device.empty());
        if (row.locked) {
            ASSERT_EQ(::chmod(drive->device.c_str(), 0), 0);
        }
        const std::string link = tmp + "/ttyUSB0", root = tmp + "/sys";
        ::unlink(link.c_str());
        ASSERT_EQ(system(("rm -rf " + root).c_str()), 0);
        std::vector<std::string> args;
        for (const std::string &a : row.args)
            args.push_back(a == "DEV" ? drive->device : a == "LINK" ? link : a);
        if (drive) {
            ASSERT_EQ(::symlink(drive->device.c_str(), link.c_str()), 0);
        }
        if (row.latencyTimer)
            fakeLatencyTimer(root, row.latencyTimer);
        qputenv("TECO_SYSFS_ROOT", QByteArray::fromStdString(root));
        std::unique_ptr<Holder> holder(row.held ? new Holder(drive->device) : nullptr);
        args.insert(args.end(), { "--quiet", "--json", "doctor" });
        const CliRun r = cli(args);
        qunsetenv("TECO_SYSFS_ROOT");
        EXPECT_EQ(r.status, row.status) << r.out << r.err;
        const QJsonObject report = QJsonDocument::fromJson(QByteArray::fromStdString(r.out)).object();
        EXPECT_EQ(report["ok"].toBool(), row.status == 0) << r.out;
        const QJsonObject c = checkNamed(report, row.check);
        EXPECT_EQ(c["status"].toString().toStdString(), row.checkStatus) << r.out;
        EXPECT_NE(c["finding"].toString().toStdString().find(row.finding), std::string::npos) << r.out;
        EXPECT_NE(c["advice"].toString().toStdString().find(row.advice), std::string::npos) << r.out;
        EXPECT_EQ(r.err, "");
    }
}

// The timing split shows the drive's turnaround: the time from the end of
// the request to the first byte of the answer. The least of a few runs
// counts: the busy machine may hold the drive's thread back.
TEST(Doctor, TheTimingShowsTheDrivesTurnaround)
{
    struct Row
    {
        std::vector<std::string> sim;
        double least, most; // the turnaround shown, ms
    } rows[] = {
        { {}, 0, 10 }, // the silence, 4 ms at 9600 baud
        { { "--turnaround", "40" }, 38, 55 },
    };
    for (const Row &row : rows) {
        Drive drive(row.sim);
        ASSERT_FALSE(drive.device.empty());
        for (const char *read : { "read1", "read125" }) {
            SCOPED_TRACE(read);
            double least = 1e9;
            std::string out;
            for (int run = 0; run < 5 && least > row.most; ++run) {
                const CliRun r = cli({ "--port", drive.device, "--quiet", "--json", "doctor" });
                ASSERT_EQ(r.status, 0) << r.out << r.err;
                const QJsonObject report = QJsonDocument::fromJson(QByteArray::fromStdString(r.out)).object();
                least = std::min(least,
                    checkNamed(report, "timing")["figures"]
                        .toObject()[QString(read) + ".turnaroundMs"]
                        .toDouble(1e9));
                out = r.out;
            }
            EXPECT_GE(least, row.least) << out;
            EXPECT_LE(least, row.most) << out;
        }
    }
}

// Any command on a device that another program holds names that program.
TEST(Doctor, ACommandOnAHeldDeviceNamesTheProgramThatHoldsIt)
{
    Drive drive({});
    ASSERT_FALSE(drive.device.empty());
    Holder holder(drive.device);
    const CliRun r = cli({ "--port", drive.device, "read", "HR1" });
    EXPECT_EQ(r.status, 2);
    const std::string busy = "teco-cli: " + drive.device + " is busy: process "
        + std::to_string(holder.process.processId()) + " (teco-cli) has it open";
    EXPECT_EQ(r.err.rfind(busy, 0), 0u) << r.err;
}
