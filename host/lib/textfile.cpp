#include "textfile.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
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
    // stat first, so that a device or FIFO is refused without being opened
    // (opening a FIFO waits for a writer, opening a terminal may raise its
    // modem lines); fstat after the open checks what was actually opened.
    struct stat named;
    if (::stat(path.c_str(), &named) < 0) {
        error = std::strerror(errno);
        return false;
    }
    if (!S_ISREG(named.st_mode)) {
        error = notRegular(named.st_mode);
        return false;
    }
    if ((unsigned long long)named.st_size > limit) {
        error = tooLarge((unsigned long long)named.st_size, limit);
        return false;
    }
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK);
    if (fd < 0) {
        error = std::strerror(errno);
        return false;
    }
    struct stat opened;
    if (::fstat(fd, &opened) < 0) {
        error = std::strerror(errno);
        ::close(fd);
        return false;
    }
    if (!S_ISREG(opened.st_mode)) {
        error = notRegular(opened.st_mode);
        ::close(fd);
        return false;
    }
    // Read at most one byte more than the limit: a file that grew past it
    // since the stat is refused like one that was too large from the start.
    std::string text;
    text.reserve(size_t(opened.st_size) < limit ? size_t(opened.st_size) : limit);
    char buffer[16384];
    for (;;) {
        const ssize_t n = ::read(fd, buffer, sizeof buffer);
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0) {
            error = std::strerror(errno);
            ::close(fd);
            return false;
        }
        if (n == 0)
            break;
        if (size_t(n) > limit - text.size()) {
            error = tooLarge((unsigned long long)text.size() + (unsigned long long)n, limit);
            ::close(fd);
            return false;
        }
        text.append(buffer, size_t(n));
    }
    ::close(fd);
    contents.swap(text);
    return true;
}

FILE *createTextFile(const std::string &path, std::string &error)
{
    // A new file: O_EXCL makes sure that we are the ones who create it, and
    // refuses any existing name, a dangling symbolic link included.
    int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC | O_NOCTTY, 0666);
    if (fd < 0 && errno == EEXIST) {
        // An existing name: look at it without following or opening it.
        struct stat named;
        if (::lstat(path.c_str(), &named) < 0) {
            error = std::strerror(errno);
            return nullptr;
        }
        if (S_ISLNK(named.st_mode)) {
            error = openError(ELOOP, true);
            return nullptr;
        }
        if (!S_ISREG(named.st_mode)) {
            error = notRegular(named.st_mode);
            return nullptr;
        }
        if (named.st_uid != ::geteuid()) {
            error = "it belongs to another user";
            return nullptr;
        }
        if (named.st_nlink != 1) {
            error = "it has other names (hard links)";
            return nullptr;
        }
        fd = ::open(path.c_str(), O_WRONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
        if (fd < 0) {
            error = openError(errno, true);
            return nullptr;
        }
        // What was opened must be what was looked at, or the name was
        // replaced in between: truncate only then.
        struct stat opened;
        if (::fstat(fd, &opened) < 0 || opened.st_dev != named.st_dev || opened.st_ino != named.st_ino
            || !S_ISREG(opened.st_mode)) {
            ::close(fd);
            error = "it was replaced while being opened";
            return nullptr;
        }
        if (::ftruncate(fd, 0) < 0) {
            error = std::strerror(errno);
            ::close(fd);
            return nullptr;
        }
        const int flags = ::fcntl(fd, F_GETFL);
        if (flags >= 0)
            ::fcntl(fd, F_SETFL, flags & ~O_NONBLOCK);
    } else if (fd < 0) {
        error = openError(errno, false);
        return nullptr;
    }
    FILE *file = ::fdopen(fd, "w");
    if (!file) {
        error = std::strerror(errno);
        ::close(fd);
    }
    return file;
}
