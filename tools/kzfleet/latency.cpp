#include "latency.h"

#include <algorithm>
#include <cmath>

namespace {

const double kGrowth = std::log(1.01);

int bucketOf(std::int64_t us)
{
    if (us < 1) return 0;
    return int(std::log(double(us)) / kGrowth) + 1;
}

/// The upper edge of bucket `b` in microseconds.
double upperOf(int b) { return b == 0 ? 1.0 : std::exp(b * kGrowth); }

} // namespace

void Latency::add(std::int64_t us)
{
    ++buckets_[size_t(std::min(bucketOf(us), kBuckets - 1))];
    ++count_;
    max_ = std::max(max_, us);
}

double Latency::percentileMs(double fraction) const
{
    if (count_ == 0) return 0;
    const auto rank = std::uint64_t(std::ceil(fraction * double(count_)));
    std::uint64_t seen = 0;
    for (int b = 0; b < kBuckets; ++b) {
        seen += buckets_[size_t(b)];
        if (seen < std::max<std::uint64_t>(rank, 1)) continue;
        // The last bucket has no upper edge: the largest sample stands for it.
        return (b == kBuckets - 1 ? double(max_) : std::min(upperOf(b), double(max_))) / 1000.0;
    }
    return double(max_) / 1000.0;
}
