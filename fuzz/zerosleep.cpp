// Linked into the targets that run the driver. The driver waits the link's
// delay before every attempt; the link doubles' delay is 0, but a sleep of 0
// still enters the kernel and gives the processor away, which costs the
// fuzzer most of its speed. Zero waits return at once here; any other wait
// sleeps as it would.

#include <ctime>
#include <sys/syscall.h>
#include <unistd.h>

extern "C" int nanosleep(const struct timespec *request, struct timespec *remaining)
{
    if (request && request->tv_sec == 0 && request->tv_nsec == 0)
        return 0;
    return int(syscall(SYS_nanosleep, request, remaining));
}
