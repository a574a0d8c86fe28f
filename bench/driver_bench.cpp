// The driver's own work per command, without a line: a read of R holding
// registers through DriverTecoServo::read over an in-memory link that answers
// at once. Reports nanoseconds and heap allocations per read.

#include "tools.h"
#include "drivertecoservo.h"
#include "memorylink.h"

#include <benchmark/benchmark.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <new>
#include <sys/prctl.h>

namespace {

std::atomic<long> allocations { 0 };

// The dispatcher waits the link's delay before every attempt, a zero delay
// included; a zero-length sleep still lasts the thread's timer slack (50 us
// by default). The second run sets the slack to 1 ns, as our serial link
// does, and shows the driver's work alone.
void read(benchmark::State &state, unsigned long timerSlackNs)
{
    const long previousSlack = prctl(PR_GET_TIMERSLACK, 0, 0, 0, 0);
    if (timerSlackNs)
        prctl(PR_SET_TIMERSLACK, timerSlackNs, 0, 0, 0);
    DriverTecoServo driver;
    MemoryLink link;
    const CommunicatorCommand cmd(Word, int(state.range(0)), QString("HR1"));
    long before = 0;
    bool first = true;
    for (auto _ : state) {
        if (first) {
            before = allocations.load();
            first = false;
        }
        QByteArray data = driver.read(&link, cmd);
        benchmark::DoNotOptimize(data.constData());
        if (driver.hasError())
            state.SkipWithError("read failed");
    }
    state.counters["allocs_per_read"]
        = benchmark::Counter(double(allocations.load() - before) / double(state.iterations()));
    prctl(PR_SET_TIMERSLACK, (unsigned long)previousSlack, 0, 0, 0);
}

void readRegisters(benchmark::State &state) { read(state, 0); }

void readRegistersFineSlack(benchmark::State &state) { read(state, 1); }

} // namespace

// Every heap allocation of the process passes here: Qt's containers call
// malloc directly, so counting operator new alone would miss them.
// The hook hands each call on to glibc's own allocator under its real names,
// which are reserved identifiers by necessity.
extern "C" {
void *__libc_malloc(size_t size); // NOLINT(bugprone-reserved-identifier): glibc's malloc behind the hook
void *__libc_calloc(size_t n, size_t size); // NOLINT(bugprone-reserved-identifier): glibc's calloc
void *__libc_realloc(void *p, size_t size); // NOLINT(bugprone-reserved-identifier): glibc's realloc
void __libc_free(void *p); // NOLINT(bugprone-reserved-identifier): glibc's free

void *malloc(size_t size)
{
    allocations.fetch_add(1, std::memory_order_relaxed);
    return __libc_malloc(size);
}

void *calloc(size_t n, size_t size)
{
    allocations.fetch_add(1, std::memory_order_relaxed);
    return __libc_calloc(n, size);
}

void *realloc(void *p, size_t size)
{
    allocations.fetch_add(1, std::memory_order_relaxed);
    return __libc_realloc(p, size);
}

void free(void *p) { __libc_free(p); }
}

// The operation alone, without the dispatcher's attempt loop and its sleep:
// frame, CRC, exchange, checks and conversion.
void readWordsOperation(benchmark::State &state)
{
    DriverTecoServo driver;
    MemoryLink link;
    const QByteArray prefix("HR");
    const long before = allocations.load();
    for (auto _ : state) {
        QByteArray data = driver.readWords(&link, prefix, 0, int(state.range(0)));
        benchmark::DoNotOptimize(data.constData());
    }
    state.counters["allocs_per_read"]
        = benchmark::Counter(double(allocations.load() - before) / double(state.iterations()));
}

BENCHMARK(readRegisters)->Arg(1)->Arg(10)->Arg(125);
BENCHMARK(readRegistersFineSlack)->Arg(1)->Arg(10)->Arg(125);
BENCHMARK(readWordsOperation)->Arg(1)->Arg(10)->Arg(125);
BENCHMARK_MAIN();
