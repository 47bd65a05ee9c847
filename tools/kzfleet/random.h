// A small, seedable generator (SplitMix64): the same seed gives the same
// values on every platform, which std::mt19937's distributions do not promise.
#ifndef KZFLEET_RANDOM_H
#define KZFLEET_RANDOM_H

#include <cstdint>

class Random
{
public:
    explicit Random(std::uint64_t seed = 0) : state_(seed) {}

    /// The next 64 random bits.
    std::uint64_t next()
    {
        std::uint64_t z = (state_ += 0x9E3779B97F4A7C15ULL);
        z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ULL;
        z = (z ^ (z >> 27)) * 0x94D049BB133111EBULL;
        return z ^ (z >> 31);
    }
    /// A whole number from `lo` to `hi`, both included.
    int between(int lo, int hi)
    {
        const std::uint64_t span = std::uint64_t(std::int64_t(hi) - lo + 1);
        return int(std::int64_t(lo) + std::int64_t(next() % span));
    }
    /// A number in [0, 1).
    double unit() { return double(next() >> 11) * (1.0 / 9007199254740992.0); }
    /// True with probability `p`.
    bool chance(double p) { return unit() < p; }

private:
    std::uint64_t state_;
};

#endif
