// The fast-path round trips: one resolver's pack-result callback feeding a
// second resolver's parseReceive, frame by frame.
//
//   kzfastpath                      Google Benchmark: ns per round trip and
//                                   per block byte, blocks 1 KiB .. 16 MiB;
//                                   file chunks; the floor (bench_floor.cpp)
//                                   and, where protobuf is installed, the
//                                   protobuf column (bench_protobuf.cpp)
//   kzfastpath --loop NAME N        N round trips of NAME in one function,
//                                   roundTrips(), for callgrind to count;
//                                   NAME-lent: frames lent by the sender
//                                   (setPackedFrameCB) instead of handed over
//   kzfastpath --peak SIZE          one round trip of a SIZE-byte block;
//                                   prints the peak memory it added
//
// The 16 MiB block is 32 bytes short of it, so that its body (block, text
// and header) stays within the default receive limit.
//
// NAME is logout, delete, adduser, chunk1k, screen1k or screen64k, each
// also with -lent (bench/instructions.sh).
#include "kzprotocolresolver.h"
#include "samples.h"

#include <benchmark/benchmark.h>

#include <QByteArray>
#include <QStringList>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <sys/resource.h>

namespace {

using kzsamples::sampleUser;
using kzsamples::tenNames;

struct Pair
{
    KZProtocolResolver sender;
    KZProtocolResolver receiver;
    long delivered = 0;
    // One array header wraps every frame in turn, as a host reading into a
    // buffer of its own would: handing a frame over allocates nothing.
    QByteArray frame;

    // `lent`: the sender lends each frame from its send buffer, as a host
    // that writes frames out at once takes them; otherwise each frame is
    // handed over in a buffer of its own, which the host frees.
    explicit Pair(bool lent = false)
    {
        sender.setReceiveData(this);
        if (lent)
            sender.setPackedFrameCB([](void* ctx, const char* bytes, int n) {
                auto* p = static_cast<Pair*>(ctx);
                p->receiver.parseReceive(p->frame.setRawData(bytes, uint(n)));
            });
        else
            sender.setParsePackResult([](void* ctx, char* bytes, int n) {
                auto* p = static_cast<Pair*>(ctx);
                p->receiver.parseReceive(p->frame.setRawData(bytes, uint(n)));
                std::free(bytes);
            });
        receiver.setReceiveData(this);
        receiver.setLanLogoutCB([](void* ctx, int) { ++static_cast<Pair*>(ctx)->delivered; });
        receiver.setLanDeleteUserCB(
            [](void* ctx, const QStringList&) { ++static_cast<Pair*>(ctx)->delivered; });
        receiver.setLanAddUserResultCB(
            [](void* ctx, const user_info&) { ++static_cast<Pair*>(ctx)->delivered; });
        receiver.setLanMacTsfFileContentCB(
            [](void* ctx, int, int, int, int, const QByteArray&, const QByteArray& data) {
                if (!data.isEmpty()) ++static_cast<Pair*>(ctx)->delivered;
            });
        receiver.setLanRemoteUpdateScreenResultCB(
            [](void* ctx, const QString&, const QByteArray& data) {
                if (!data.isEmpty()) ++static_cast<Pair*>(ctx)->delivered;
            });
    }
};

QByteArray block(int n)
{
    QByteArray b(n, Qt::Uninitialized);
    quint32 x = 0x2545F491u;
    for (int i = 0; i < n; ++i) {
        x ^= x << 13;
        x ^= x >> 17;
        x ^= x << 5;
        b[i] = char(x);
    }
    return b;
}

const QString kMac = QStringLiteral("KZ-0001");
const QByteArray kChunkKey(16, '\x42');

void BM_FastLogout(benchmark::State& state)
{
    Pair p;
    for (auto _ : state) p.sender.lanLogout(7);
    if (p.delivered != long(state.iterations())) state.SkipWithError("a message was lost");
}
BENCHMARK(BM_FastLogout);

void BM_FastLogoutLent(benchmark::State& state)
{
    Pair p(true);
    for (auto _ : state) p.sender.lanLogout(7);
    if (p.delivered != long(state.iterations())) state.SkipWithError("a message was lost");
}
BENCHMARK(BM_FastLogoutLent);

void BM_FastDeleteTenUsers(benchmark::State& state)
{
    Pair p;
    const QStringList names = tenNames();
    for (auto _ : state) p.sender.lanDeleteUser(names);
    if (p.delivered != long(state.iterations())) state.SkipWithError("a message was lost");
}
BENCHMARK(BM_FastDeleteTenUsers);

void BM_FastAddUserResult(benchmark::State& state)
{
    Pair p;
    const user_info user = sampleUser();
    for (auto _ : state) p.sender.lanAddUserResult(user);
    if (p.delivered != long(state.iterations())) state.SkipWithError("a message was lost");
}
BENCHMARK(BM_FastAddUserResult);

void BM_FastBlock(benchmark::State& state)
{
    Pair p;
    const QByteArray data = block(int(state.range(0)));
    for (auto _ : state) p.sender.lanRemoteUpdateScreenResponse(kMac, data);
    if (p.delivered != long(state.iterations())) state.SkipWithError("a message was lost");
    state.SetBytesProcessed(state.iterations() * state.range(0));
    state.counters["ns/B"] =
        benchmark::Counter(double(state.iterations()) * double(state.range(0)),
                           benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}
BENCHMARK(BM_FastBlock)
    ->Arg(1 << 10)
    ->Arg(16 << 10)
    ->Arg(64 << 10)
    ->Arg(1 << 20)
    ->Arg((16 << 20) - 32);

// A file chunk with its 16-byte block: the row the protobuf column
// (bench_protobuf.cpp) carries the same values for.
void BM_FastFileChunk(benchmark::State& state)
{
    Pair p(state.range(1) != 0);
    const QByteArray data = block(int(state.range(0)));
    for (auto _ : state) p.sender.lanMacTsfFileContent(1, 2, 3, data.size(), kChunkKey, data);
    if (p.delivered != long(state.iterations())) state.SkipWithError("a message was lost");
    state.SetBytesProcessed(state.iterations() * state.range(0));
}
// Second argument 1: frames lent by the sender.
BENCHMARK(BM_FastFileChunk)->ArgsProduct({{1 << 10, 64 << 10}, {0, 1}});

} // namespace

// The function callgrind counts (--toggle-collect=roundTrips): everything
// from the encoder call to the receiver's callback, N times.
extern "C" __attribute__((noinline)) long roundTrips(Pair* p, const char* what, long n,
                                                     const QStringList* names,
                                                     const user_info* user, const QByteArray* data)
{
    // The message is chosen once, so the loop holds nothing but the calls.
    const std::string w = what;
    if (w == "logout")
        for (long i = 0; i < n; ++i) p->sender.lanLogout(7);
    else if (w == "delete")
        for (long i = 0; i < n; ++i) p->sender.lanDeleteUser(*names);
    else if (w == "adduser")
        for (long i = 0; i < n; ++i) p->sender.lanAddUserResult(*user);
    else if (w == "chunk1k")
        for (long i = 0; i < n; ++i)
            p->sender.lanMacTsfFileContent(1, 2, 3, data->size(), kChunkKey, *data);
    else
        for (long i = 0; i < n; ++i) p->sender.lanRemoteUpdateScreenResponse(kMac, *data);
    return p->delivered;
}

static long peakKiB()
{
    rusage u{};
    getrusage(RUSAGE_SELF, &u);
    return u.ru_maxrss;
}

int main(int argc, char** argv)
{
    if (argc == 4 && std::strcmp(argv[1], "--loop") == 0) {
        std::string what = argv[2];
        const std::string lentSuffix = "-lent";
        const bool lent =
            what.size() > lentSuffix.size() &&
            what.compare(what.size() - lentSuffix.size(), lentSuffix.size(), lentSuffix) == 0;
        if (lent) what.resize(what.size() - lentSuffix.size());
        Pair p(lent);
        const QStringList names = tenNames();
        const user_info user = sampleUser();
        const bool small = what == "screen1k" || what == "chunk1k";
        const QByteArray data = block(small ? 1 << 10 : 64 << 10);
        const long n = std::atol(argv[3]);
        roundTrips(&p, what.c_str(), 1, &names, &user, &data); // warm: first-use allocations
        const long got = roundTrips(&p, what.c_str(), n, &names, &user, &data);
        std::printf("%ld delivered\n", got);
        return got == n + 1 ? 0 : 1;
    }
    if (argc == 3 && std::strcmp(argv[1], "--peak") == 0) {
        const int size = std::atoi(argv[2]);
        Pair p;
        const QByteArray data = block(size);
        p.sender.lanLogout(1); // first-use allocations out of the figure
        const long before = peakKiB();
        p.sender.lanRemoteUpdateScreenResponse(kMac, data);
        const long after = peakKiB();
        std::printf("block %d B: peak +%ld KiB = %.2f x the block\n", size, after - before,
                    double(after - before) * 1024.0 / size);
        return p.delivered == 2 ? 0 : 1;
    }
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
