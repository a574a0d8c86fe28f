#include "textfile.h"

#include "textutil.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

namespace {

std::string sizeText(unsigned long long bytes)
{
    if (bytes >= (1ull << 20) && bytes % (1ull << 20) == 0)
        return std::to_string(bytes >> 20) + " MiB";
    if (bytes >= (1ull << 10) && bytes % (1ull << 10) == 0)
        return std::to_string(bytes >> 10) + " KiB";
    return std::to_string(bytes) + " bytes";
}

std::string notRegular(mode_t mode)
{
    return std::string("it is ") + fileKindName(mode) + ", not a regular file";
}

std::string tooLarge(unsigned long long size, size_t limit)
{
    return "it holds " + std::to_string(size) + " bytes, more than the limit of " + sizeText(limit);
}

// The reason for a failed open or stat: a symbolic link refused by
// O_NOFOLLOW shows as ELOOP.
std::string openError(int error, bool noFollow)
{
    if (noFollow && error == ELOOP)
        return "it is a symbolic link (name the file itself)";
    return std::strerror(error);
}

// Reads fd to its end into text, at most limit bytes: one byte more is
// refused, so a file that grew past the limit since its stat is refused like
// one that was too large from the start. A FIFO (stream) is waited on while
// a program writes to it; one that nobody writes to is refused.
bool readAll(int fd, bool stream, size_t limit, std::string &text, std::string &error)
{
    char buffer[16384];
    bool writer = false;
    for (;;) {
        const ssize_t n = ::read(fd, buffer, sizeof buffer);
        if (n < 0 && errno == EAGAIN) {
            writer = true;
            struct pollfd p = { fd, POLLIN, 0 };
            ::poll(&p, 1, -1);
            continue;
        }
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0) {
            error = std::strerror(errno);
            return false;
        }
        if (n == 0 && stream && !writer) {
            error = "it is a FIFO that no program writes to";
            return false;
        }
        if (n == 0)
            return true;
        writer = true;
        if (size_t(n) > limit - text.size()) {
            error = stream ? "it gives more than the limit of " + sizeText(limit)
                           : tooLarge((unsigned long long)text.size() + (unsigned long long)n, limit);
            return false;
        }
        text.append(buffer, size_t(n));
    }
}

// The descriptor that /dev/stdout, /dev/stderr or /dev/fd/N names, or -1.
int namedDescriptor(const std::string &path)
{
    int n = -1;
    if (path == "/dev/stdout" || path == "/dev/stderr")
        return path == "/dev/stdout" ? STDOUT_FILENO : STDERR_FILENO;
    if (path.compare(0, 8, "/dev/fd/") != 0 || !parseWholeNumber(path.substr(8), 0, 1 << 20, n))
        return -1;
    return n;
}

// A descriptor of our own for what given is open on, if it is open for
// writing: the output goes where given's goes, after what is there already.
int duplicateForWriting(int given, std::string &error)
{
    const int flags = ::fcntl(given, F_GETFL);
    if (flags < 0 || (flags & O_ACCMODE) == O_RDONLY) {
        error = flags < 0 ? "nothing is open there" : "it is open for reading only";
        return -1;
    }
    const int fd = ::fcntl(given, F_DUPFD_CLOEXEC, 3);
    if (fd < 0)
        error = std::strerror(errno);
    return fd;
}

// Devices that take text without harm: /dev/null and terminals (/dev/tty,
// /dev/pts/N). Others may act when opened (a watchdog, a serial line's
// modem lines) or hold data, and are refused unopened.
bool harmlessDevice(const struct stat &st)
{
    const unsigned kind = major(st.st_rdev);
    return S_ISCHR(st.st_mode)
        && (st.st_rdev == makedev(1, 3) || st.st_rdev == makedev(5, 0) || (kind >= 136 && kind <= 143));
}

// Opens an existing name for writing, never through a symbolic link: the
// user's own regular file of one name (emptied), a FIFO that a program reads
// or a harmless device; -1 with the reason in error otherwise.
int openExisting(const std::string &path, std::string &error)
{
    // Look at the name without following or opening it.
    struct stat named;
    if (::lstat(path.c_str(), &named) < 0) {
        error = std::strerror(errno);
        return -1;
    }
    std::string reason;
    const bool regular = S_ISREG(named.st_mode);
    if (S_ISLNK(named.st_mode))
        reason = openError(ELOOP, true);
    else if (!regular && !S_ISFIFO(named.st_mode) && !harmlessDevice(named))
        reason = notRegular(named.st_mode);
    else if (regular && named.st_uid != ::geteuid())
        reason = "it belongs to another user";
    else if (regular && named.st_nlink != 1)
        reason = "it has other names (hard links)";
    if (!reason.empty()) {
        error = reason;
        return -1;
    }
    int fd = ::open(path.c_str(), O_WRONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
    if (fd < 0) {
        error = errno == ENXIO ? "it is a FIFO that no program reads" : openError(errno, true);
        return -1;
    }
    // What was opened must be what was looked at, or the name was replaced
    // in between: truncate only then.
    struct stat opened;
    if (::fstat(fd, &opened) < 0 || opened.st_dev != named.st_dev || opened.st_ino != named.st_ino
        || (opened.st_mode & S_IFMT) != (named.st_mode & S_IFMT))
        reason = "it was replaced while being opened";
    else if (regular && ::ftruncate(fd, 0) < 0)
        reason = std::strerror(errno);
    if (!reason.empty()) {
        error = reason;
        ::close(fd);
        return -1;
    }
    const int flags = ::fcntl(fd, F_GETFL);
    if (flags >= 0)
        ::fcntl(fd, F_SETFL, flags & ~O_NONBLOCK);
    return fd;
}

} // namespace

const char *fileKindName(unsigned mode)
{
    switch (mode & S_IFMT) {
    case S_IFREG:
        return "a regular file";
    case S_IFDIR:
        return "a directory";
    case S_IFCHR:
    case S_IFBLK:
        return "a device";
    case S_IFIFO:
        return "a FIFO";
    case S_IFSOCK:
        return "a socket";
    case S_IFLNK:
        return "a symbolic link";
    default:
        return "not a file";
    }
}

bool readTextFile(const std::string &path, size_t limit, std::string &contents, std::string &error)
{
    // stat first, so that a device is refused without being opened (opening
    // a terminal may raise its modem lines); fstat after the open checks
    // what was actually opened. A FIFO is opened without waiting.
    struct stat named;
    if (::stat(path.c_str(), &named) < 0) {
        error = std::strerror(errno);
        return false;
    }
    const bool stream = S_ISFIFO(named.st_mode);
    if (!S_ISREG(named.st_mode) && !stream) {
        error = notRegular(named.st_mode);
        return false;
    }
    if (!stream && (unsigned long long)named.st_size > limit) {
        error = tooLarge((unsigned long long)named.st_size, limit);
        return false;
    }
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK);
    if (fd < 0) {
        error = std::strerror(errno);
        return false;
    }
    struct stat opened;
    std::string text;
    bool read = false;
    if (::fstat(fd, &opened) < 0)
        error = std::strerror(errno);
    else if ((opened.st_mode & S_IFMT) != (named.st_mode & S_IFMT))
        error = notRegular(opened.st_mode);
    else
        read = readAll(fd, stream, limit, text, error);
    ::close(fd);
    if (!read)
        return false;
    if (text.compare(0, 3, utf8ByteOrderMark) == 0)
        text.erase(0, 3);
    contents.swap(text);
    return true;
}

FILE *createTextFile(const std::string &path, std::string &error)
{
    const int given = namedDescriptor(path);
    // A new file: O_EXCL makes sure that we are the ones who create it, and
    // refuses any existing name, a dangling symbolic link included.
    int fd = given >= 0
        ? duplicateForWriting(given, error)
        : ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC | O_NOCTTY, 0666);
    if (given < 0 && fd < 0 && errno == EEXIST)
        fd = openExisting(path, error);
    else if (given < 0 && fd < 0)
        error = openError(errno, false);
    if (fd < 0)
        return nullptr;
    FILE *file = ::fdopen(fd, "w");
    if (!file) {
        error = std::strerror(errno);
        ::close(fd);
    }
    return file;
}
