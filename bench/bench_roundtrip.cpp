// Round trips through two resolvers: encode -> pack -> parseReceive ->
// callback, the sender's frames collected and fed to the receiver in one
// block, as a socket read would deliver them.
#include "loop.h"

namespace {

void BM_Logout(benchmark::State& state)
{
    Loop loop;
    loop.receiver.setLanLogoutCB([](void* ctx, int) { ++loopOf(ctx).delivered; });
    for (auto _ : state) {
        loop.sender.lanLogout(7);
        loop.flush();
    }
    finish(state, loop, 4);
}
BENCHMARK(BM_Logout);

void BM_Login(benchmark::State& state)
{
    Loop loop;
    loop.receiver.setLanLoginCB(
        [](void* ctx, const QString&, const QString&) { ++loopOf(ctx).delivered; });
    const QString account = QStringLiteral("operator-01");
    const QString password = QStringLiteral("correct horse battery");
    for (auto _ : state) {
        loop.sender.lanLogin(account, password);
        loop.flush();
    }
    finish(state, loop, account.size() + password.size());
}
BENCHMARK(BM_Login);

// Large bodies, split into 2048-byte frames and reassembled: a block of
// 64 KiB and one of 1 MiB carried by the screen-update reply (raw bytes, so
// the figure is the frame layer's, not a text conversion's).
void BM_Body(benchmark::State& state)
{
    Loop loop;
    const int size = int(state.range(0));
    loop.receiver.setLanRemoteUpdateScreenResultCB(
        [](void* ctx, const QString&, const QByteArray& data) {
            if (!data.isEmpty()) ++loopOf(ctx).delivered;
        });
    QByteArray block(size, '\0');
    for (int i = 0; i < size; ++i) block[i] = char(i * 131 + (i >> 9));
    const QString mac = QStringLiteral("KZ-0001");
    for (auto _ : state) {
        loop.sender.lanRemoteUpdateScreenResponse(mac, block);
        loop.flush();
    }
    finish(state, loop, size);
}
BENCHMARK(BM_Body)->Arg(64 << 10)->Arg(1 << 20);

} // namespace

BENCHMARK_MAIN();
