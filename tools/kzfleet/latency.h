// Acknowledgement latencies in a fixed number of buckets, each about 1 %
// wider than the last: a percentile is exact to 1 % whatever the run's
// length, and the memory does not grow with the count.
#ifndef KZFLEET_LATENCY_H
#define KZFLEET_LATENCY_H

#include <array>
#include <cstdint>

class Latency
{
public:
    /// Adds one latency in microseconds.
    void add(std::int64_t us);
    /// The latency in milliseconds under which `fraction` (0.5, 0.99) of the
    /// samples lie; 0 without samples.
    double percentileMs(double fraction) const;
    /// The largest sample, in milliseconds.
    double maxMs() const { return double(max_) / 1000.0; }
    std::uint64_t count() const { return count_; }
    void clear() { *this = Latency(); }

private:
    static constexpr int kBuckets = 2048; // 1 µs to beyond 10 minutes
    std::array<std::uint32_t, kBuckets> buckets_{};
    std::uint64_t count_ = 0;
    std::int64_t max_ = 0;
};

#endif
