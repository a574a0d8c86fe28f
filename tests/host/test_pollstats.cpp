// PollStats: percentiles from the fixed histogram against the exact
// nearest-rank percentiles of the same samples, within the stated relative
// error; exact minimum and maximum; failure texts counted up to the limit.

#include "pollstats.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <random>
#include <vector>

namespace {

// The latency of rank ceil(q * n) in ascending order (rank 1 at least).
int64_t exactPercentile(const std::vector<int64_t> &sorted, double q)
{
    double wanted = std::ceil(q * double(sorted.size()) - 1e-6);
    size_t rank = wanted < 1 ? 1 : std::min(size_t(wanted), sorted.size());
    return sorted[rank - 1];
}

TEST(PollStats, PercentilesAreWithinTheStatedErrorOfTheExactOnes)
{
    struct Row
    {
        const char *what;
        size_t n;
        std::function<int64_t(std::mt19937_64 &, size_t)> sample;
    } rows[] = {
        { "one sample", 1, [](std::mt19937_64 &, size_t) { return int64_t(8123456); } },
        { "every nanosecond 0..99, exact below 64", 100,
            [](std::mt19937_64 &, size_t i) { return int64_t(i); } },
        { "log-uniform 1 us to 100 s", 50000,
            [](std::mt19937_64 &g, size_t) {
                return int64_t(
                    std::exp(std::uniform_real_distribution<double>(std::log(1e3), std::log(1e11))(g)));
            } },
        { "answers at 8 ms, 2 % retried after a 500 ms time-out", 20000,
            [](std::mt19937_64 &g, size_t) {
                const int64_t base = std::normal_distribution<double>(8e6, 2e5)(g);
                return std::uniform_int_distribution<int>(0, 99)(g) < 2 ? base + 500000000 : base;
            } },
        { "powers of two and their neighbours", 3 * 62,
            [](std::mt19937_64 &, size_t i) { return (int64_t(1) << (i / 3)) + int64_t(i % 3) - 1; } },
        { "near the largest int64_t", 1000,
            [](std::mt19937_64 &g, size_t) {
                return INT64_MAX - std::uniform_int_distribution<int64_t>(0, int64_t(1) << 60)(g);
            } },
    };
    // 0.07 and 0.57 times 100 come out just above 7 and 57 in floating point.
    const double quantiles[]
        = { 0, 0.001, 0.01, 0.07, 0.1, 0.25, 0.5, 0.57, 0.75, 0.9, 0.95, 0.99, 0.999, 1 };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.what);
        std::mt19937_64 generator(12345);
        std::vector<int64_t> samples;
        PollStats stats;
        for (size_t i = 0; i < row.n; ++i) {
            samples.push_back(row.sample(generator, i));
            stats.addSuccess(samples.back());
        }
        std::sort(samples.begin(), samples.end());
        EXPECT_EQ(stats.samples(), row.n);
        EXPECT_EQ(stats.minNs(), samples.front());
        EXPECT_EQ(stats.maxNs(), samples.back());
        for (double q : quantiles) {
            SCOPED_TRACE(q);
            const double exact = double(exactPercentile(samples, q));
            const double estimate = stats.percentileNs(q);
            EXPECT_LE(std::fabs(estimate - exact), exact * PollStats::percentileRelativeError)
                << "estimate " << estimate << ", exact " << exact;
        }
        EXPECT_EQ(stats.percentileNs(1), double(samples.back()));
    }
}

TEST(PollStats, BucketsCoverEveryLatencyWithoutGapsOrOverlaps)
{
    // Every bucket starts where the one before ends, and none is wider than
    // 1/64 of its lower bound (the first 64 are one nanosecond wide).
    for (size_t b = 1; b < PollStats::bucketCount; ++b) {
        SCOPED_TRACE(b);
        ASSERT_EQ(PollStats::bucketLow(b), PollStats::bucketLow(b - 1) + PollStats::bucketWidth(b - 1));
        ASSERT_LE(PollStats::bucketWidth(b) * int64_t(PollStats::subBuckets),
            std::max<int64_t>(PollStats::bucketLow(b), int64_t(PollStats::subBuckets)));
    }
    const size_t last = PollStats::bucketCount - 1;
    EXPECT_EQ(PollStats::bucketLow(last) - 1 + PollStats::bucketWidth(last), INT64_MAX);
    for (int64_t v : { int64_t(0), int64_t(63), int64_t(64), int64_t(65), int64_t(127), int64_t(128),
             int64_t(8123456), int64_t(1) << 40, INT64_MAX }) {
        SCOPED_TRACE(v);
        const size_t b = PollStats::bucketOf(v);
        ASSERT_LT(b, PollStats::bucketCount);
        EXPECT_LE(PollStats::bucketLow(b), v);
        EXPECT_LE(v - PollStats::bucketLow(b), PollStats::bucketWidth(b) - 1);
    }
}

TEST(PollStats, CountsCommandsAndFailureTextsWithinTheLimit)
{
    struct Row
    {
        const char *what;
        int distinct; // failures with texts "text 0" .. "text N-1", each twice
        size_t kept; // texts counted on their own
        uint64_t other;
    } rows[] = {
        { "no failures", 0, 0, 0 },
        { "a few texts", 3, 3, 0 },
        { "exactly the limit", int(PollStats::errorTextLimit), PollStats::errorTextLimit, 0 },
        { "ten more than the limit", int(PollStats::errorTextLimit) + 10, PollStats::errorTextLimit, 20 },
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.what);
        PollStats stats;
        stats.addSuccess(1000);
        for (int round = 0; round < 2; ++round)
            for (int i = 0; i < row.distinct; ++i)
                stats.addFailure("text " + std::to_string(i));
        EXPECT_EQ(stats.commands(), 1 + 2 * uint64_t(row.distinct));
        EXPECT_EQ(stats.failed(), 2 * uint64_t(row.distinct));
        EXPECT_EQ(stats.samples(), 1u);
        const auto &texts = stats.failuresByText();
        EXPECT_EQ(texts.size(), row.kept + (row.other ? 1 : 0));
        uint64_t total = 0;
        for (const auto &t : texts) {
            total += t.second;
            if (t.first != PollStats::otherText) {
                EXPECT_EQ(t.second, 2u) << t.first; // a kept text keeps counting after the limit
            }
        }
        EXPECT_EQ(total, stats.failed());
        const auto other = texts.find(PollStats::otherText);
        EXPECT_EQ(other == texts.end() ? 0 : other->second, row.other);
    }

    PollStats stats;
    stats.addFailure(std::string(1000, 'x'));
    stats.addFailure(std::string(2000, 'x'));
    ASSERT_EQ(stats.failuresByText().size(), 1u);
    EXPECT_EQ(stats.failuresByText().begin()->first.size(), PollStats::errorTextLength);
    EXPECT_EQ(stats.failuresByText().begin()->second, 2u);
    EXPECT_EQ(stats.percentileNs(0.5), 0.0); // no latency recorded for failures
    EXPECT_EQ(stats.maxNs(), 0);
}

} // namespace
