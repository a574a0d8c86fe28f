#ifndef TESTS_E2E_CLIRUN_H
#define TESTS_E2E_CLIRUN_H

// teco-cli and teco-sim run as programs (the tests that include this are
// left out of cross builds), and a pseudo-terminal nobody answers on.

#include <QProcess>
#include <QStringList>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <fcntl.h>
#include <string>
#include <termios.h>
#include <unistd.h>
#include <vector>

struct CliRun
{
    int status = -1; // -1: did not finish normally (crash, hang)
    std::string out, err;
};

// input: what the program reads on standard input; or inputFile, a path
// opened as its standard input.
inline CliRun runProgram(const char *path, const std::vector<std::string> &args, const std::string &input,
    const std::string &inputFile = std::string())
{
    QStringList arguments;
    for (const std::string &a : args)
        arguments << QString::fromStdString(a);
    QProcess p;
    if (!inputFile.empty())
        p.setStandardInputFile(QString::fromStdString(inputFile));
    p.start(path, arguments);
    CliRun r;
    if (!p.waitForStarted(30000))
        return r;
    if (inputFile.empty()) {
        p.write(input.data(), qint64(input.size()));
        p.closeWriteChannel();
    }
    const bool finished = p.waitForFinished(90000);
    r.out = p.readAllStandardOutput().toStdString();
    r.err = p.readAllStandardError().toStdString();
    if (finished && p.exitStatus() == QProcess::NormalExit)
        r.status = p.exitCode();
    return r;
}

inline CliRun cli(const std::vector<std::string> &args, const std::string &input = std::string())
{
    return runProgram(TECO_CLI_PATH, args, input);
}

// The words of a, then those of b.
inline std::vector<std::string> with(std::vector<std::string> a, const std::vector<std::string> &b)
{
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

// A directory of the test program's own, removed when it ends.
inline std::string scratchDir()
{
    static QTemporaryDir dir;
    EXPECT_TRUE(dir.isValid());
    return dir.path().toStdString();
}

// A pseudo-terminal that nobody answers on; the test sees what arrives.
class SilentDevice
{
public:
    SilentDevice()
    {
        fd = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC | O_NONBLOCK);
        char name[128] = { 0 };
        if (fd < 0 || grantpt(fd) < 0 || unlockpt(fd) < 0 || ptsname_r(fd, name, sizeof name) != 0)
            ADD_FAILURE() << "no pseudo-terminal";
        path = name;
        // Keep the other side open so that the device stays up between runs.
        hold = ::open(name, O_RDWR | O_NOCTTY | O_CLOEXEC);
        struct termios t;
        tcgetattr(hold, &t);
        cfmakeraw(&t);
        tcsetattr(hold, TCSANOW, &t);
    }
    ~SilentDevice()
    {
        ::close(hold);
        ::close(fd);
    }
    int bytesArrived()
    {
        int total = 0;
        char buffer[512];
        ssize_t r;
        while ((r = ::read(fd, buffer, sizeof buffer)) > 0)
            total += int(r);
        return total;
    }
    int fd = -1, hold = -1;
    std::string path;
};

#endif // TESTS_E2E_CLIRUN_H
