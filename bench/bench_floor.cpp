// The floor under the block round trips: what the wire format itself costs.
// Each iteration codes and checksums a block's bytes on the sending side
// and checksums and decodes them on the receiving side, piece by piece as
// the resolver frames them (2014 bytes of body per 2048-byte frame), and
// nothing else: no message header, no frame header, no allocation, no
// callback.
//
//   BM_Floor/SIZE        the coding and the CRC one after the other
//   BM_FloorFused/SIZE   in one pass per side (kz_coding_encrypt_crc32 and
//                        kz_coding_decrypt_crc32)
#include <kzapin/kzapin.h>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdint>
#include <vector>

namespace {

constexpr int kPiece = 2048 - KZ_PIECE_OVERHEAD;

struct FloorBytes
{
    std::vector<unsigned char> block, frame, received;
    explicit FloorBytes(size_t n) : block(n), frame(kPiece), received(n)
    {
        uint32_t x = 0x2545F491u;
        for (auto& b : block) {
            x ^= x << 13, x ^= x >> 17, x ^= x << 5;
            b = static_cast<unsigned char>(x);
        }
    }
};

template <class Side>
void floorLoop(benchmark::State& state, Side side)
{
    FloorBytes f(size_t(state.range(0)));
    const int64_t n = state.range(0);
    bool agreed = true;
    for (auto _ : state) {
        for (int64_t at = 0; at < n; at += kPiece) {
            const int k = int(std::min<int64_t>(kPiece, n - at));
            agreed &= side(f, at, k);
        }
        benchmark::DoNotOptimize(f.received.data());
    }
    if (!agreed) state.SkipWithError("a checksum did not match");
    state.SetBytesProcessed(state.iterations() * n);
    state.counters["ns/B"] =
        benchmark::Counter(double(state.iterations()) * double(n),
                           benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

void BM_Floor(benchmark::State& state)
{
    floorLoop(state, [](FloorBytes& f, int64_t at, int k) {
        kz_coding_code_at(f.frame.data(), f.block.data() + at, k, at);
        const uint32_t sent = kz_crc32(0, f.frame.data(), size_t(k));
        const uint32_t got = kz_crc32(0, f.frame.data(), size_t(k));
        kz_coding_code_at(f.received.data() + at, f.frame.data(), k, at);
        return sent == got;
    });
}

void BM_FloorFused(benchmark::State& state)
{
    floorLoop(state, [](FloorBytes& f, int64_t at, int k) {
        const uint32_t sent =
            kz_coding_encrypt_crc32(f.frame.data(), f.block.data() + at, k, at, 0);
        return kz_coding_decrypt_crc32(f.received.data() + at, f.frame.data(), k, at, 0) == sent;
    });
}

#define KZ_FLOOR_SIZES ->Arg(1 << 10)->Arg(64 << 10)->Arg(1 << 20)->Arg((16 << 20) - 32)
BENCHMARK(BM_Floor) KZ_FLOOR_SIZES;
BENCHMARK(BM_FloorFused) KZ_FLOOR_SIZES;

} // namespace
