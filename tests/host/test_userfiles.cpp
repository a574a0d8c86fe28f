// Files that users name: maps and batches are read only when they are regular
// files within the limit; a trace is written only to a new file or to the
// user's own regular file, never through a symbolic link. Refusals never
// block (FIFOs) and never touch what they refuse.

#include "textfile.h"

#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <fcntl.h>
#include <fstream>
#include <sstream>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>
#include <vector>

namespace {

std::string contentsOf(const std::string &path)
{
    std::ifstream in(path);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

void writeFile(const std::string &path, const std::string &text) { std::ofstream(path) << text; }

// A scratch directory with one file of every kind a user might name.
class Scratch
{
public:
    Scratch()
    {
        EXPECT_TRUE(dir.isValid());
        root = dir.path().toStdString();
        writeFile(path("small"), "HR1 2\n");
        writeFile(path("marked"), std::string(utf8ByteOrderMark) + "HR1 2\n");
        writeFile(path("empty"), "");
        writeFile(path("target"), "keep me\n");
        EXPECT_EQ(::symlink("target", path("link").c_str()), 0);
        EXPECT_EQ(::symlink("nowhere", path("dangling").c_str()), 0);
        EXPECT_EQ(::mkdir(path("dir").c_str(), 0700), 0);
        EXPECT_EQ(::mkfifo(path("fifo").c_str(), 0600), 0);
        writeFile(path("twice"), "old trace\n");
        EXPECT_EQ(::link(path("twice").c_str(), path("twice2").c_str()), 0);
        writeFile(path("old"), "an earlier trace\n");
        // Files of exactly the limit and one byte more (sparse: nothing is written).
        for (const auto &sized : { std::make_pair("atlimit", off_t(userTextFileLimit)),
                 std::make_pair("overlimit", off_t(userTextFileLimit) + 1) }) {
            const int fd = ::open(path(sized.first).c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
            EXPECT_EQ(::ftruncate(fd, sized.second), 0);
            ::close(fd);
        }
        socketFd = ::socket(AF_UNIX, SOCK_STREAM, 0);
        struct sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        const std::string socketPath = path("socket");
        if (socketPath.size() < sizeof address.sun_path) {
            std::copy(socketPath.begin(), socketPath.end(), address.sun_path);
            hasSocket = ::bind(socketFd, reinterpret_cast<sockaddr *>(&address), sizeof address) == 0;
        }
    }
    ~Scratch()
    {
        ::close(socketFd);
        for (int fd : pipeEnds)
            ::close(fd);
    }
    // A pipe that holds text, its writing end closed: "/dev/fd/N" for its
    // reading end, as bash's <(command) names one.
    std::string pipeHolding(const std::string &text)
    {
        int ends[2];
        EXPECT_EQ(::pipe(ends), 0);
        EXPECT_EQ(::write(ends[1], text.data(), text.size()), ssize_t(text.size()));
        ::close(ends[1]);
        pipeEnds.push_back(ends[0]);
        return "/dev/fd/" + std::to_string(ends[0]);
    }
    std::string path(const std::string &name) const { return root + "/" + name; }

    QTemporaryDir dir;
    std::string root;
    int socketFd = -1;
    bool hasSocket = false;
    std::vector<int> pipeEnds;
};

TEST(UserFiles, ReadOnlyRegularFilesWithinTheLimit)
{
    Scratch s;
    struct Row
    {
        const char *name; // in the scratch directory, or an absolute path
        bool read;
        const char *error; // the reason, from its start
        size_t size;
    } rows[] = {
        { "small", true, "", 6 },
        { "marked", true, "", 6 }, // without its byte-order mark
        { "empty", true, "", 0 },
        { "atlimit", true, "", userTextFileLimit },
        { "link", true, "", 8 }, // a symbolic link to a regular file is read
        { "overlimit", false, "it holds 1048577 bytes, more than the limit of 1 MiB", 0 },
        { "dir", false, "it is a directory, not a regular file", 0 },
        { "fifo", false, "it is a FIFO that no program writes to", 0 }, // not waited on
        { "socket", false, "it is a socket, not a regular file", 0 },
        { "/dev/zero", false, "it is a device, not a regular file", 0 },
        { "dangling", false, "No such file or directory", 0 },
        { "small/below", false, "Not a directory", 0 },
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.name);
        if (std::string(row.name) == "socket" && !s.hasSocket)
            continue;
        const std::string path = row.name[0] == '/' ? row.name : s.path(row.name);
        std::string contents = "unchanged", error;
        EXPECT_EQ(readTextFile(path, userTextFileLimit, contents, error), row.read);
        if (row.read) {
            EXPECT_EQ(contents.size(), row.size);
            EXPECT_EQ(error, "");
        } else {
            EXPECT_EQ(contents, "unchanged");
            EXPECT_EQ(error.rfind(row.error, 0), 0u) << error;
        }
    }
    std::string contents, error;
    ASSERT_TRUE(readTextFile(s.path("link"), 100, contents, error));
    EXPECT_EQ(contents, "keep me\n");
    EXPECT_FALSE(readTextFile(s.path("link"), 7, contents, error));
    EXPECT_EQ(error, "it holds 8 bytes, more than the limit of 7 bytes");
    // A pipe is read to its end, within the limit.
    ASSERT_TRUE(
        readTextFile(s.pipeHolding(std::string(utf8ByteOrderMark) + "read HR1\n"), 100, contents, error))
        << error;
    EXPECT_EQ(contents, "read HR1\n");
    EXPECT_FALSE(readTextFile(s.pipeHolding("read HR1\n"), 8, contents, error));
    EXPECT_EQ(error, "it gives more than the limit of 8 bytes");
}

TEST(UserFiles, TraceFilesAreNewOrTheUsersOwn)
{
    Scratch s;
    struct Row
    {
        const char *name;
        bool opened;
        const char *error;
        const char *left; // what the name holds afterwards (nullptr: not a file to read)
    } rows[] = {
        { "new", true, "", "written\n" },
        { "old", true, "", "written\n" }, // emptied, then written
        { "link", false, "it is a symbolic link (name the file itself)", "keep me\n" },
        { "dangling", false, "it is a symbolic link (name the file itself)", nullptr },
        { "twice", false, "it has other names (hard links)", "old trace\n" },
        { "dir", false, "it is a directory, not a regular file", nullptr },
        { "fifo", false, "it is a FIFO that no program reads", nullptr }, // not waited on
        { "socket", false, "it is a socket, not a regular file", nullptr },
        { "/dev/null", true, "", nullptr },
        { "/dev/zero", false, "it is a device, not a regular file", nullptr },
        { "nodir/trace", false, "No such file or directory", nullptr },
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.name);
        if (std::string(row.name) == "socket" && !s.hasSocket)
            continue;
        const std::string path = row.name[0] == '/' ? row.name : s.path(row.name);
        std::string error;
        FILE *file = createTextFile(path, error);
        EXPECT_EQ(file != nullptr, row.opened) << error;
        if (file) {
            std::fputs("written\n", file);
            std::fclose(file);
        } else {
            EXPECT_EQ(error, row.error);
        }
        if (row.left) {
            EXPECT_EQ(contentsOf(path), row.left);
        }
    }
    // Following the dangling link would have created its target.
    struct stat st;
    EXPECT_NE(::lstat(s.path("nowhere").c_str(), &st), 0);
    EXPECT_EQ(contentsOf(s.path("target")), "keep me\n");
    EXPECT_EQ(contentsOf(s.path("twice2")), "old trace\n");
}

// /dev/stdout, /dev/stderr and /dev/fd/N write where the descriptor goes,
// after what is there, and leave the descriptor open.
TEST(UserFiles, ADescriptorNamedIsWrittenToAsItIs)
{
    Scratch s;
    int ends[2];
    ASSERT_EQ(::pipe(ends), 0);
    const int appended = ::open(s.path("old").c_str(), O_WRONLY | O_APPEND);
    ASSERT_GE(appended, 0);
    struct Row
    {
        int fd;
        const char *error;
    } rows[] = { { ends[1], "" }, { appended, "" }, { ends[0], "it is open for reading only" },
        { 1000, "nothing is open there" } };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.fd);
        std::string error;
        FILE *file = createTextFile("/dev/fd/" + std::to_string(row.fd), error);
        EXPECT_EQ(error, row.error);
        if (file) {
            std::fputs("written\n", file);
            std::fclose(file);
            EXPECT_GE(::fcntl(row.fd, F_GETFD), 0) << "closed";
        }
    }
    char got[16] = {};
    ::fcntl(ends[0], F_SETFL, O_NONBLOCK); // nothing written: no wait
    EXPECT_EQ(::read(ends[0], got, sizeof got), 8);
    EXPECT_STREQ(got, "written\n");
    EXPECT_EQ(contentsOf(s.path("old")), "an earlier trace\nwritten\n");
    for (int fd : { ends[0], ends[1], appended })
        ::close(fd);
}

TEST(UserFiles, AnotherUsersFileIsNotTruncated)
{
    if (::geteuid() != 0)
        GTEST_SKIP() << "needs root to give a file to another user";
    Scratch s;
    const std::string path = s.path("theirs");
    writeFile(path, "their trace\n");
    ASSERT_EQ(::chown(path.c_str(), 65534, 65534), 0);
    std::string error;
    EXPECT_EQ(createTextFile(path, error), nullptr);
    EXPECT_EQ(error, "it belongs to another user");
    EXPECT_EQ(contentsOf(path), "their trace\n");
}

} // namespace
