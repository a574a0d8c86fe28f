#include "tcpline.h"

#include "textutil.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

const char tcpPrefix[] = "tcp:";
const int connectTimeoutMs = 3000;

std::string formHint(const std::string &what)
{
    return "bad network address \"" + what + "\": give it as " + (isTcpDevice(what) ? "tcp:" : "")
        + "HOST:PORT, such as " + (isTcpDevice(what) ? "tcp:" : "") + "192.168.1.50:4001";
}

// Resolves host and port; nullptr with error set.
struct addrinfo *resolve(const std::string &host, const std::string &port, bool passive, std::string &error)
{
    struct addrinfo hints;
    std::memset(&hints, 0, sizeof hints);
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_flags = passive ? AI_PASSIVE : 0;
    struct addrinfo *found = nullptr;
    const int rc = getaddrinfo(host.c_str(), port.c_str(), &hints, &found);
    if (rc != 0) {
        error = "cannot find the host " + host + ": " + gai_strerror(rc);
        return nullptr;
    }
    return found;
}

// Waits for a non-blocking connect to end; 0 or the error it ended with.
int connectResult(int fd)
{
    struct pollfd p = { fd, POLLOUT, 0 };
    int ready;
    while ((ready = poll(&p, 1, connectTimeoutMs)) < 0 && errno == EINTR) { }
    if (ready == 0)
        return ETIMEDOUT;
    int e = 0;
    socklen_t length = sizeof e;
    if (ready < 0 || getsockopt(fd, SOL_SOCKET, SO_ERROR, &e, &length) < 0)
        return errno;
    return e;
}

int connectTo(const struct addrinfo *a, int &error)
{
    const int fd = socket(a->ai_family, a->ai_socktype | SOCK_NONBLOCK | SOCK_CLOEXEC, a->ai_protocol);
    if (fd < 0) {
        error = errno;
        return -1;
    }
    error = connect(fd, a->ai_addr, a->ai_addrlen) == 0 ? 0
        : errno == EINPROGRESS                          ? connectResult(fd)
                                                        : errno;
    if (error != 0) {
        ::close(fd);
        return -1;
    }
    const int on = 1;
    setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    setsockopt(fd, SOL_SOCKET, SO_KEEPALIVE, &on, sizeof on);
    return fd;
}

} // namespace

bool isTcpDevice(const std::string &device)
{
    return device.compare(0, sizeof tcpPrefix - 1, tcpPrefix) == 0;
}

bool parseHostPort(const std::string &text, const std::string &what, std::string &host, std::string &port,
    std::string &error)
{
    const size_t colon = text.rfind(':');
    if (colon == std::string::npos || colon == 0 || colon + 1 == text.size()) {
        error = formHint(what);
        return false;
    }
    host = text.substr(0, colon);
    if (host.size() > 2 && host.front() == '[' && host.back() == ']')
        host = host.substr(1, host.size() - 2);
    else if (host.find(':') != std::string::npos) {
        error = formHint(what) + " (an IPv6 address goes in brackets: [::1]:4001)";
        return false;
    }
    int number = 0;
    if (!parseWholeNumber(text.substr(colon + 1), 1, 65535, number)
        && !(text.substr(colon + 1) == "0" && !isTcpDevice(what))) {
        error = "bad network address \"" + what + "\": the port is a number from 1 to 65535";
        return false;
    }
    port = text.substr(colon + 1);
    return true;
}

bool checkTcpDevice(const std::string &device, std::string &error)
{
    std::string host, port;
    return !isTcpDevice(device)
        || parseHostPort(device.substr(sizeof tcpPrefix - 1), device, host, port, error);
}

int connectTcp(const std::string &device, std::string &error)
{
    std::string host, port;
    if (!parseHostPort(device.substr(sizeof tcpPrefix - 1), device, host, port, error))
        return -1;
    struct addrinfo *found = resolve(host, port, false, error);
    if (!found)
        return -1;
    int fd = -1, e = 0;
    for (const struct addrinfo *a = found; a && fd < 0; a = a->ai_next)
        fd = connectTo(a, e);
    freeaddrinfo(found);
    if (fd < 0)
        error = "cannot connect to " + host + ":" + port + ": " + std::strerror(e);
    return fd;
}

int listenTcp(const std::string &address, std::string &error)
{
    std::string host, port;
    if (!parseHostPort(address, address, host, port, error))
        return -1;
    struct addrinfo *found = resolve(host, port, true, error);
    if (!found)
        return -1;
    int fd = -1, e = 0;
    for (const struct addrinfo *a = found; a && fd < 0; a = a->ai_next) {
        fd = socket(a->ai_family, a->ai_socktype | SOCK_NONBLOCK | SOCK_CLOEXEC, a->ai_protocol);
        const int on = 1;
        if (fd >= 0
            && (setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) < 0
                || bind(fd, a->ai_addr, a->ai_addrlen) < 0 || ::listen(fd, 1) < 0)) {
            e = errno;
            ::close(fd);
            fd = -1;
        } else if (fd < 0) {
            e = errno;
        }
    }
    freeaddrinfo(found);
    if (fd < 0)
        error = "cannot listen on " + address + ": " + std::strerror(e);
    return fd;
}

std::string listeningAddress(int fd)
{
    struct sockaddr_storage a;
    socklen_t length = sizeof a;
    char host[NI_MAXHOST] = { 0 }, port[NI_MAXSERV] = { 0 };
    if (getsockname(fd, reinterpret_cast<struct sockaddr *>(&a), &length) < 0
        || getnameinfo(reinterpret_cast<struct sockaddr *>(&a), length, host, sizeof host, port, sizeof port,
               NI_NUMERICHOST | NI_NUMERICSERV)
            != 0)
        return std::string();
    const bool v6 = a.ss_family == AF_INET6;
    return std::string(v6 ? "[" : "") + host + (v6 ? "]:" : ":") + port;
}
