// Round trips of the accounts messages.
#include "loop.h"

namespace {

// Sends one message per iteration and delivers it; the bytes counted per
// message are its frames, measured on a first send before the timing.
template <class Send>
void roundTrips(benchmark::State& state, Loop& loop, Send send)
{
    send();
    const qint64 bytes = loop.wire.size();
    loop.flush();
    loop.delivered = 0;
    for (auto _ : state) {
        send();
        loop.flush();
    }
    finish(state, loop, bytes);
}

// The user list: 100 users in 5 group pairs, each user with a visibility map.
void BM_UserInfo100Users5Groups(benchmark::State& state)
{
    Loop loop;
    loop.receiver.setLanUserInfoCB([](void* ctx, const QList<user_info>& users) {
        if (users.size() == 100) ++loopOf(ctx).delivered;
    });
    QList<user_info> users;
    for (int i = 0; i < 100; ++i) {
        user_info u;
        u.name = QStringLiteral("user-%1").arg(i, 3, 10, QLatin1Char('0'));
        u.text2 = QStringLiteral("Full Name %1").arg(i);
        u.text3 = QStringLiteral("user%1@plant.example").arg(i);
        u.permission = i * 7;
        u.flag = i % 2 == 0;
        u.lv1Group = QStringLiteral("Plant %1").arg(i % 5 / 2);
        u.lv2Group = QStringLiteral("Line %1").arg(i % 5);
        u.groupPermission = {{u.lv1Group, {u.lv2Group}}};
        users.append(u);
    }
    roundTrips(state, loop, [&] { loop.sender.lanUserInfo(users); });
}
BENCHMARK(BM_UserInfo100Users5Groups);

// One added user whose visibility map holds 5 first-level groups of 4 lines.
void BM_AddUserResultGroupMap(benchmark::State& state)
{
    Loop loop;
    loop.receiver.setLanAddUserResultCB(
        [](void* ctx, const user_info&) { ++loopOf(ctx).delivered; });
    user_info u;
    u.name = QStringLiteral("carol");
    u.text2 = QStringLiteral("Carol Meyer");
    u.text3 = QStringLiteral("carol@plant.example");
    u.permission = 15;
    u.flag = true;
    u.lv1Group = QStringLiteral("Plant A");
    u.lv2Group = QStringLiteral("Line 1");
    for (int g = 0; g < 5; ++g)
        for (int l = 0; l < 4; ++l)
            u.groupPermission[QStringLiteral("Plant %1").arg(g)].append(
                QStringLiteral("Line %1").arg(l));
    roundTrips(state, loop, [&] { loop.sender.lanAddUserResult(u); });
}
BENCHMARK(BM_AddUserResultGroupMap);

} // namespace
