// How long the machine kept the soak from running while a command ran, so
// that a command that ends past its time bound because the machine stalled
// (a loaded CI machine, a stopped process, a hypervisor's pause) is told
// apart from a command that is late by itself.
//
// Two measures, of which the larger counts:
// - waited: the longest time that one of the process's threads stood ready
//   to run without a processor (the kernel's run-queue wait,
//   /proc/self/task/*/schedstat): the command's own thread, or the simulated
//   drive's, whose answer the command waits for;
// - stood: how long a watch thread that wakes every millisecond woke late by
//   more than half a millisecond, counted where that lateness overlaps the
//   command; it also sees the process stopped or the machine paused, which
//   no run queue shows.
// Neither sees a thread that waits in the kernel for a disk or a page (a
// trace file's write on a busy disk), nor one whose poll of a terminal waits
// in the kernel for the worker thread that moves the bytes that came in (a
// poll that finds no input flushes that work first, past its time-out when
// the worker gets no processor). The soak adds a third measure for those:
// - late: how long the link's own timed waits ended past their deadlines
//   (SerialLink::Counters::lateWakeNs), which only the machine can cause.
#pragma once

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

class StallMeter
{
public:
    struct Mark
    {
        int64_t atNs = 0; // monotonicNs()
        std::vector<std::pair<long, int64_t>> waits; // each thread's run-queue wait so far, by thread id
    };
    struct Stall
    {
        int64_t waitedNs = 0;
        int64_t stoodNs = 0;
        int64_t lateNs = 0; // set by the caller: see above
        int64_t ns() const { return std::max(std::max(waitedNs, stoodNs), lateNs); }
    };

    StallMeter();
    ~StallMeter();
    StallMeter(const StallMeter &) = delete;
    StallMeter &operator=(const StallMeter &) = delete;

    // The watch thread; without it only the run-queue wait is measured.
    void start();
    void stop();

    Mark mark() const;
    // The stall from FROM until now.
    Stall since(const Mark &from) const;

    // A span [fromNs, toNs) in which the watch thread should have run and did
    // not. Kept for the last few seconds' worth of spans.
    void record(int64_t fromNs, int64_t toNs);
    // How much of the recorded spans lies within [fromNs, toNs).
    int64_t stoodWithin(int64_t fromNs, int64_t toNs) const;

private:
    struct Span
    {
        int64_t from, to;
    };
    void watch(int64_t firstDueNs);

    mutable std::mutex mutex;
    std::vector<Span> spans; // a ring of the newest spans
    size_t next = 0;
    std::atomic<bool> running { false };
    std::atomic<int64_t> dueNs { 0 }; // when the watch thread is next due to wake
    std::thread watcher;
};
