// Round trips of the machines messages.
#include "loop.h"

namespace {

// The machine list of a large plant: 500 machines in 5 halls of 10 lines.
void BM_MacInfo500(benchmark::State& state)
{
    Loop loop;
    loop.receiver.setLanMacInfoCB([](void* ctx, const QList<mac_info>& macs) {
        if (macs.size() == 500) ++loopOf(ctx).delivered;
    });
    QList<mac_info> macs;
    for (int i = 0; i < 500; ++i) {
        mac_info m;
        m.mac = QStringLiteral("KZ-%1").arg(i, 4, 10, QLatin1Char('0'));
        m.text2 = QStringLiteral("embroidery");
        m.code = quint8(i % 7);
        m.text4 = QStringLiteral("v2.1");
        m.lv1Group = QStringLiteral("Hall %1").arg(i % 5);
        m.lv2Group = QStringLiteral("Line %1").arg(i / 5 % 10);
        m.value7 = i;
        macs.append(m);
    }
    qint64 bytes = 0;
    for (auto _ : state) {
        loop.sender.lanMacInfo(macs);
        bytes = loop.wire.size();
        loop.flush();
    }
    finish(state, loop, bytes);
}
BENCHMARK(BM_MacInfo500);

// One 256 KiB screen block: a body split over many frames and reassembled.
void BM_RemoteScreen256KiB(benchmark::State& state)
{
    Loop loop;
    loop.receiver.setLanRemoteUpdateScreenResultCB(
        [](void* ctx, const QString&, const QByteArray& data) {
            if (data.size() == 256 * 1024) ++loopOf(ctx).delivered;
        });
    QByteArray screen(256 * 1024, '\0');
    for (int i = 0; i < screen.size(); ++i) screen[i] = char(i * 31);
    const QString mac = QStringLiteral("KZ-0001");
    for (auto _ : state) {
        loop.sender.lanRemoteUpdateScreenResponse(mac, screen);
        loop.flush();
    }
    finish(state, loop, screen.size());
}
BENCHMARK(BM_RemoteScreen256KiB);

} // namespace
