#include "linkdoctor.h"

#include "deviceholder.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <grp.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

DoctorCheck failed(const std::string &name, const std::string &finding, const std::string &advice)
{
    DoctorCheck c;
    c.name = name;
    c.status = DoctorCheck::Status::Fail;
    c.finding = finding;
    c.advice = advice;
    return c;
}

// The group that owns the device, unless that is root: "" then.
std::string groupOf(const struct stat &st)
{
    const struct group *g = ::getgrgid(st.st_gid);
    return g && g->gr_name && std::strcmp(g->gr_name, "root") != 0 ? std::string(g->gr_name) : std::string();
}

DoctorCheck openFailed(const std::string &device, const struct stat &st, int error)
{
    if (error == EACCES || error == EPERM) {
        const std::string group = groupOf(st);
        const std::string which = group.empty() ? "the dialout group (serial adapters usually belong to it)"
                                                : "the " + group + " group, which owns it";
        return failed("device", "you may not open " + device + " (permission denied)",
            "add yourself to " + which + ": sudo usermod -aG " + (group.empty() ? "dialout" : group)
                + " $USER, then log in again");
    }
    return failed("device", "cannot open " + device + ": " + std::strerror(error),
        "check that the adapter works: unplug it and plug it in again, and look at dmesg");
}

DoctorCheck heldBy(const std::string &device, const std::string &holder)
{
    const std::string who = holder.empty() ? "another program" : holder;
    return failed("device", device + " is held by " + who,
        holder.empty()
            ? "close the program that uses the port (fuser -v " + device + " names it), then try again"
            : "close " + who + ", then try again");
}

std::string baseName(const std::string &path)
{
    const size_t slash = path.rfind('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

// The names sysfs may know the device by: as given, and as its link resolves.
std::vector<std::string> deviceNames(const std::string &device)
{
    std::vector<std::string> names { baseName(device) };
    char resolved[PATH_MAX];
    if (::realpath(device.c_str(), resolved) && baseName(resolved) != names[0])
        names.push_back(baseName(resolved));
    return names;
}

// The first latency timer file under root for the device, and its value; "" when none.
std::string findLatencyTimer(const std::string &device, const std::string &root, int &ms)
{
    for (const std::string &name : deviceNames(device))
        for (const std::string &path : { root + "/bus/usb-serial/devices/" + name + "/latency_timer",
                 root + "/class/tty/" + name + "/device/latency_timer" }) {
            std::ifstream in(path);
            if (in >> ms)
                return path;
        }
    return std::string();
}

} // namespace

const char *doctorStatusName(DoctorCheck::Status status)
{
    switch (status) {
    case DoctorCheck::Status::Ok:
        return "ok";
    case DoctorCheck::Status::Warn:
        return "warn";
    case DoctorCheck::Status::Fail:
        break;
    }
    return "fail";
}

std::string sysfsRoot()
{
    const char *root = std::getenv("TECO_SYSFS_ROOT");
    return root && *root ? std::string(root) : std::string("/sys");
}

DoctorCheck checkDevice(const std::string &device)
{
    struct stat st;
    if (::stat(device.c_str(), &st) != 0)
        return failed("device",
            errno == ENOENT ? device + " does not exist"
                            : "cannot look at " + device + ": " + std::strerror(errno),
            "check that the adapter is plugged in and the name: ls /dev/ttyUSB* /dev/ttyACM* "
            "/dev/serial/by-id/");
    if (!S_ISCHR(st.st_mode))
        return failed("device", device + " is not a serial device (not a terminal)",
            "give the serial adapter's device, such as /dev/ttyUSB0 or a name under /dev/serial/by-id/");
    const int fd = ::open(device.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0)
        return openFailed(device, st, errno);
    const bool terminal = ::isatty(fd);
    const bool locked = terminal && ::flock(fd, LOCK_EX | LOCK_NB) == 0;
    ::close(fd);
    if (!terminal)
        return failed("device", device + " is not a serial device (not a terminal)",
            "give the serial adapter's device, such as /dev/ttyUSB0 or a name under /dev/serial/by-id/");
    if (!locked || lockFileHolder(device) != 0)
        return heldBy(device, deviceHolder(device));
    DoctorCheck c;
    c.name = "device";
    c.finding = device + " is a serial device that no other program holds";
    return c;
}

DoctorCheck checkLatencyTimer(const std::string &device, const std::string &root)
{
    DoctorCheck c;
    c.name = "latency";
    int ms = 0;
    const std::string path = findLatencyTimer(device, root, ms);
    if (path.empty()) {
        c.finding = "no latency timer: " + device + " is not a USB serial adapter that has one";
        return c;
    }
    c.figures.push_back({ "latencyTimerMs", double(ms) });
    if (ms <= 1) {
        c.finding = "the adapter's latency timer is " + std::to_string(ms) + " ms";
        return c;
    }
    c.status = DoctorCheck::Status::Warn;
    c.finding = "the adapter's latency timer is " + std::to_string(ms) + " ms: it holds an answer up to "
        + std::to_string(ms) + " ms before it passes it on";
    c.advice = "set it to 1 ms now: echo 1 | sudo tee " + path
        + "; and at every plug-in with a udev rule, a file /etc/udev/rules.d/99-serial-latency.rules with "
          "the "
          "line ACTION==\"add\", SUBSYSTEM==\"usb-serial\", DRIVER==\"ftdi_sio\", ATTR{latency_timer}=\"1\"";
    return c;
}
