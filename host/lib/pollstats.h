#ifndef HOST_POLLSTATS_H
#define HOST_POLLSTATS_H

// Statistics of a long poll in memory that does not grow with its length:
// command and failure counts, latencies in a fixed log-scaled histogram, and
// failures counted by their text.
//
// Latencies are kept in nanoseconds. Up to 63 ns every nanosecond has its
// own bucket; above, each power of two is split into 64 equal buckets, so a
// bucket is at most 1/64 of its lower bound wide. A percentile is taken as
// the middle of the bucket that holds it, clamped to the exact minimum and
// maximum, so it is within percentileRelativeError (1/128, under 0.8 %) of
// the recorded latency of that rank. The histogram has a fixed 3,712
// buckets (29 KiB) and covers every latency an int64_t can hold.
//
// Failure texts: the first errorTextLimit distinct texts are counted each on
// their own; later new texts are counted together as otherText. Texts are
// kept to their first errorTextLength bytes.

#include <array>
#include <cstdint>
#include <map>
#include <string>

class PollStats
{
public:
    static constexpr double percentileRelativeError = 1.0 / 128;
    static constexpr size_t errorTextLimit = 32;
    static constexpr size_t errorTextLength = 160;
    static constexpr const char *otherText = "other";

    PollStats();

    // A command that succeeded in latencyNs (negative counts as 0).
    void addSuccess(int64_t latencyNs);
    // A command that failed with this text; its latency is not recorded.
    void addFailure(const std::string &text);

    uint64_t commands() const { return successes + failures; }
    uint64_t failed() const { return failures; }
    // Latencies recorded: the successful commands.
    uint64_t samples() const { return successes; }

    // The q-quantile of the latencies by nearest rank: the latency of rank
    // ceil(q * samples()) in ascending order (the product taken less 1e-6,
    // so that 0.07 * 100 is rank 7; rank 1 for q <= 0, the maximum for
    // q >= 1), within percentileRelativeError. 0 without samples.
    double percentileNs(double q) const;
    // Exact; 0 without samples.
    int64_t minNs() const { return successes ? minimum : 0; }
    int64_t maxNs() const { return successes ? maximum : 0; }

    // Failures by text, in the order of the texts; texts beyond the limit
    // are under otherText.
    const std::map<std::string, uint64_t> &failuresByText() const { return errors; }

    void clear();

    // The histogram's shape, for tests: a latency's bucket and that bucket's
    // lower bound and width in nanoseconds.
    static size_t bucketOf(int64_t ns);
    static int64_t bucketLow(size_t bucket);
    static int64_t bucketWidth(size_t bucket);
    static constexpr size_t subBucketBits = 6;
    static constexpr size_t subBuckets = size_t(1) << subBucketBits;
    static constexpr size_t bucketCount = subBuckets + (63 - subBucketBits) * subBuckets;

private:
    std::array<uint64_t, bucketCount> counts;
    uint64_t successes = 0;
    uint64_t failures = 0;
    int64_t minimum = 0;
    int64_t maximum = 0;
    std::map<std::string, uint64_t> errors;
    size_t distinctTexts = 0;
};

#endif // HOST_POLLSTATS_H
