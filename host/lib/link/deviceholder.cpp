#include "deviceholder.h"

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <memory>
#include <unistd.h>

namespace {

std::string baseName(const std::string &path)
{
    const size_t slash = path.rfind('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

std::string realPath(const std::string &path)
{
    char resolved[PATH_MAX];
    return ::realpath(path.c_str(), resolved) ? std::string(resolved) : path;
}

bool alive(int pid) { return pid > 0 && (::kill(pid, 0) == 0 || errno == EPERM); }

// The process number a lock file holds: as text (the usual form) or as a
// binary int (an older form), 0 when it holds neither.
int pidInLockFile(const std::string &path)
{
    std::ifstream in(path, std::ios::binary);
    char raw[16] = {};
    in.read(raw, sizeof raw - 1);
    const std::streamsize got = in.gcount();
    if (got == 4) {
        int binary = 0;
        std::memcpy(&binary, raw, sizeof binary);
        return binary;
    }
    char *end = nullptr;
    const long pid = std::strtol(raw, &end, 10);
    return end != raw && pid > 0 && pid < INT_MAX ? int(pid) : 0;
}

std::string processName(int pid)
{
    std::ifstream in("/proc/" + std::to_string(pid) + "/comm");
    std::string name;
    std::getline(in, name);
    return name;
}

bool isNumber(const char *text)
{
    if (!*text)
        return false;
    for (; *text; ++text)
        if (static_cast<unsigned char>(*text) < '0' || static_cast<unsigned char>(*text) > '9')
            return false;
    return true;
}

// Whether process pid has target open.
bool hasOpen(const std::string &pid, const std::string &target)
{
    const std::string dir = "/proc/" + pid + "/fd";
    std::unique_ptr<DIR, int (*)(DIR *)> fds(::opendir(dir.c_str()), ::closedir);
    if (!fds)
        return false;
    char link[PATH_MAX];
    while (const struct dirent *e = ::readdir(fds.get())) {
        const ssize_t n = ::readlink((dir + "/" + e->d_name).c_str(), link, sizeof link - 1);
        if (n > 0 && target.compare(0, std::string::npos, link, size_t(n)) == 0)
            return true;
    }
    return false;
}

// Another process that has the device open; 0: none found (or none we may look at).
int openerOf(const std::string &device)
{
    const std::string target = realPath(device);
    const std::string self = std::to_string(::getpid());
    std::unique_ptr<DIR, int (*)(DIR *)> proc(::opendir("/proc"), ::closedir);
    if (!proc)
        return 0;
    while (const struct dirent *e = ::readdir(proc.get()))
        if (isNumber(e->d_name) && self != e->d_name && hasOpen(e->d_name, target))
            return std::atoi(e->d_name);
    return 0;
}

// The process that holds a flock on the device, from /proc/locks
// ("1: FLOCK  ADVISORY  WRITE 1234 00:18:3 0 EOF"); 0: none.
int flockHolder(const std::string &device)
{
    struct stat st;
    if (::stat(device.c_str(), &st) != 0)
        return 0;
    char id[64];
    std::snprintf(
        id, sizeof id, "%02x:%02x:%lu", major(st.st_dev), minor(st.st_dev), (unsigned long)st.st_ino);
    std::ifstream in("/proc/locks");
    std::string line;
    while (std::getline(in, line)) {
        std::istringstream words(line);
        std::string number, kind, mode, access, where;
        int pid = 0;
        if (words >> number >> kind >> mode >> access >> pid >> where && kind == "FLOCK" && where == id
            && pid != ::getpid())
            return pid;
    }
    return 0;
}

} // namespace

int lockFileHolder(const std::string &device)
{
    for (const std::string &path : { realPath(device), device })
        for (const char *dir : { "/var/lock", "/run/lock" }) {
            const int pid = pidInLockFile(std::string(dir) + "/LCK.." + baseName(path));
            if (pid != ::getpid() && alive(pid))
                return pid;
        }
    return 0;
}

std::string deviceHolder(const std::string &device)
{
    int pid = flockHolder(device);
    if (pid == 0)
        pid = lockFileHolder(device);
    if (pid == 0)
        pid = openerOf(device);
    if (pid == 0)
        return std::string();
    const std::string name = processName(pid);
    return "process " + std::to_string(pid) + (name.empty() ? std::string() : " (" + name + ")");
}
