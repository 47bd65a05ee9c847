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

// A 64 KiB body: a login whose account text fills the 16-bit length field.
void BM_Body64KiB(benchmark::State& state)
{
    Loop loop;
    loop.receiver.setLanLoginCB(
        [](void* ctx, const QString&, const QString&) { ++loopOf(ctx).delivered; });
    const QString account(65530, QLatin1Char('a'));
    for (auto _ : state) {
        loop.sender.lanLogin(account, QString());
        loop.flush();
    }
    finish(state, loop, 65536);
}
BENCHMARK(BM_Body64KiB);

} // namespace

BENCHMARK_MAIN();
