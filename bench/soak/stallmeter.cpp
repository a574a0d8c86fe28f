#include "stallmeter.h"

#include "seriallink.h" // monotonicNs()

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <dirent.h>
#include <fcntl.h>
#include <string>
#include <sys/prctl.h>
#include <unistd.h>

namespace {

const int64_t WatchPeriodNs = 1000000; // the watch thread wakes every millisecond
const int64_t LateNs = 500000; // a wake-up later than this is a stall
const size_t KeptSpans = 4096;

// A thread's run-queue wait in ns, the second figure of its schedstat; -1
// where the kernel keeps none.
int64_t runQueueWaitNs(const std::string &path)
{
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return -1;
    char text[128];
    const ssize_t n = ::read(fd, text, sizeof text - 1);
    ::close(fd);
    if (n <= 0)
        return -1;
    text[n] = '\0';
    unsigned long long running = 0, waiting = 0;
    if (std::sscanf(text, "%llu %llu", &running, &waiting) != 2)
        return -1;
    return int64_t(waiting);
}

// Every thread's run-queue wait so far, by thread id, in ascending order.
std::vector<std::pair<long, int64_t>> runQueueWaits()
{
    std::vector<std::pair<long, int64_t>> waits;
    DIR *tasks = ::opendir("/proc/self/task");
    if (!tasks)
        return waits;
    while (const dirent *entry = ::readdir(tasks)) {
        const long tid = std::strtol(entry->d_name, nullptr, 10);
        if (tid <= 0)
            continue;
        const int64_t waited = runQueueWaitNs("/proc/self/task/" + std::string(entry->d_name) + "/schedstat");
        if (waited >= 0)
            waits.push_back({ tid, waited });
    }
    ::closedir(tasks);
    std::sort(waits.begin(), waits.end());
    return waits;
}

} // namespace

StallMeter::StallMeter()
    : spans(KeptSpans, Span { 0, 0 })
{
}

StallMeter::~StallMeter() { stop(); }

void StallMeter::start()
{
    if (running.exchange(true))
        return;
    // Due from now, not from when the thread first runs: a stall that keeps
    // the new thread from running at all counts too.
    const int64_t firstDue = monotonicNs() + WatchPeriodNs;
    dueNs.store(firstDue);
    watcher = std::thread([this, firstDue] { watch(firstDue); });
}

void StallMeter::stop()
{
    if (!running.exchange(false))
        return;
    watcher.join();
}

void StallMeter::watch(int64_t due)
{
    // Wake on time, so that lateness is the machine's and not the timer's.
    prctl(PR_SET_TIMERSLACK, 1UL, 0UL, 0UL, 0UL);
    while (running.load(std::memory_order_relaxed)) {
        dueNs.store(due);
        timespec at { time_t(due / 1000000000), long(due % 1000000000) };
        while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &at, nullptr) != 0) { }
        const int64_t woke = monotonicNs();
        if (woke - due > LateNs)
            record(due, woke);
        due = std::max(due, woke) + WatchPeriodNs;
    }
}

void StallMeter::record(int64_t fromNs, int64_t toNs)
{
    std::lock_guard<std::mutex> lock(mutex);
    spans[next] = Span { fromNs, toNs };
    next = (next + 1) % spans.size();
}

int64_t StallMeter::stoodWithin(int64_t fromNs, int64_t toNs) const
{
    std::lock_guard<std::mutex> lock(mutex);
    int64_t sum = 0;
    for (const Span &s : spans)
        sum += std::max<int64_t>(0, std::min(s.to, toNs) - std::max(s.from, fromNs));
    return sum;
}

StallMeter::Mark StallMeter::mark() const
{
    Mark m;
    m.waits = runQueueWaits();
    m.atNs = monotonicNs();
    return m;
}

StallMeter::Stall StallMeter::since(const Mark &from) const
{
    Stall s;
    const int64_t now = monotonicNs();
    for (const auto &now : runQueueWaits()) {
        const auto before
            = std::lower_bound(from.waits.begin(), from.waits.end(), std::make_pair(now.first, int64_t(0)));
        if (before != from.waits.end() && before->first == now.first)
            s.waitedNs = std::max(s.waitedNs, now.second - before->second);
    }
    s.stoodNs = stoodWithin(from.atNs, now);
    // A stall that still lasts for the watch thread: it has not woken since
    // it was due (the process came back, and this thread ran first).
    const int64_t due = dueNs.load();
    if (running.load() && now - due > LateNs)
        s.stoodNs += now - std::max(due, from.atNs);
    return s;
}
