#include "pollstats.h"

#include <algorithm>
#include <cmath>

PollStats::PollStats() { clear(); }

void PollStats::clear()
{
    counts.fill(0);
    successes = failures = 0;
    minimum = maximum = 0;
    errors.clear();
    distinctTexts = 0;
}

size_t PollStats::bucketOf(int64_t ns)
{
    if (ns < int64_t(subBuckets))
        return ns < 0 ? 0 : size_t(ns);
    const uint64_t v = uint64_t(ns);
    const int power = 63 - __builtin_clzll(v); // subBucketBits .. 62
    const int shift = power - int(subBucketBits);
    const size_t sub = size_t(v >> shift) - subBuckets;
    return subBuckets + size_t(shift) * subBuckets + sub;
}

int64_t PollStats::bucketLow(size_t bucket)
{
    if (bucket < subBuckets)
        return int64_t(bucket);
    const size_t shift = (bucket - subBuckets) / subBuckets;
    const size_t sub = (bucket - subBuckets) % subBuckets;
    return int64_t(uint64_t(subBuckets + sub) << shift);
}

int64_t PollStats::bucketWidth(size_t bucket)
{
    if (bucket < subBuckets)
        return 1;
    return int64_t(1) << ((bucket - subBuckets) / subBuckets);
}

void PollStats::addSuccess(int64_t latencyNs)
{
    const int64_t ns = std::max<int64_t>(latencyNs, 0);
    ++counts[bucketOf(ns)];
    if (successes == 0 || ns < minimum)
        minimum = ns;
    if (successes == 0 || ns > maximum)
        maximum = ns;
    ++successes;
}

void PollStats::addFailure(const std::string &text)
{
    ++failures;
    const std::string key = text.size() > errorTextLength ? text.substr(0, errorTextLength) : text;
    auto it = errors.find(key);
    if (it != errors.end()) {
        ++it->second;
        return;
    }
    if (distinctTexts < errorTextLimit) {
        errors.emplace(key, 1);
        ++distinctTexts;
        return;
    }
    ++errors[otherText];
}

double PollStats::percentileNs(double q) const
{
    if (successes == 0)
        return 0;
    if (!(q < 1))
        return double(maximum);
    const double wanted = std::ceil(q * double(successes) - 1e-6);
    const uint64_t rank = wanted < 1 ? 1 : std::min<uint64_t>(uint64_t(wanted), successes);
    uint64_t seen = 0;
    for (size_t b = 0; b < bucketCount; ++b) {
        seen += counts[b];
        if (seen >= rank) {
            // The middle of the bucket's integer latencies.
            const double middle = double(bucketLow(b)) + double(bucketWidth(b) - 1) / 2;
            return std::min(std::max(middle, double(minimum)), double(maximum));
        }
    }
    return double(maximum);
}
