// Machine steps: the server pushes its machine list, a machine's work log
// and state are reported, and the client takes over a machine's panel:
// remote mode, a touch on the screen, and the 256 KiB screen contents back
// (a body split over many frames), checked byte for byte.
#include "demo.h"

#include <QCryptographicHash>

namespace {

const QString kMac = QStringLiteral("KZ-0001");
constexpr int kScreenBytes = 256 * 1024;

QList<mac_info> machineList()
{
    const struct
    {
        const char *mac, *lv1, *lv2;
        int code;
    } rows[] = {{"KZ-0001", "Hall 1", "Line A", 1},
                {"KZ-0002", "Hall 1", "Line B", 2},
                {"KZ-0003", "Hall 2", "Line A", 1},
                {"KZ-0004", "Hall 1", "Line A", 3}};
    QList<mac_info> out;
    for (const auto& r : rows) {
        mac_info m;
        m.mac = QString::fromLatin1(r.mac);
        m.text2 = QStringLiteral("embroidery");
        m.code = quint8(r.code);
        m.text4 = QStringLiteral("v2.1");
        m.lv1Group = QString::fromUtf8(r.lv1);
        m.lv2Group = QString::fromUtf8(r.lv2);
        m.value7 = 12;
        out.append(m);
    }
    return out;
}

// The panel's screen: 512 x 256 pixels of 16 bits, a pattern that shows any
// lost, doubled or shifted byte.
QByteArray screenContents()
{
    QByteArray b(kScreenBytes, '\0');
    for (int i = 0; i < b.size(); ++i) b[i] = char((i * 31 + (i >> 10)) & 0xFF);
    return b;
}

QString digest(const QByteArray& b)
{
    return QString::fromLatin1(
        QCryptographicHash::hash(b, QCryptographicHash::Sha1).toHex().left(16));
}

// -- server ------------------------------------------------------------------

void onEditMac(void* ctx, const QString& mac, const QString& value)
{
    Peer& p = peer(ctx);
    p.handled(QStringLiteral("EditMac %1 -> %2").arg(mac, value));
    const QList<mac_info> macs = machineList();
    p.resolver.lanMacInfo(macs);
    p.sent(QStringLiteral("MacInfo %1 machines").arg(macs.size()));
}

void onMacInfoAck(void* ctx) { peer(ctx).handled(QStringLiteral("MacInfoResponse")); }

void onWorkLog(void* ctx, const QString& mac, const QString& date, const QString& shift,
               const QList<work_log>& logs, const QMap<QString, int>& counts,
               const QMap<QString, oee_process_data>& processes)
{
    Peer& p = peer(ctx);
    p.handled(QStringLiteral("MacWorkLog %1 %2 %3: %4 entries, %5 counts")
                  .arg(mac, date, shift)
                  .arg(logs.size())
                  .arg(counts.size()));
    for (auto it = processes.cbegin(); it != processes.cend(); ++it)
        p.handled(QStringLiteral("  process %1: count=%2 figures=%3, %4")
                      .arg(it.key())
                      .arg(it->count)
                      .arg(it->figure1)
                      .arg(it->figure2));
    p.resolver.lanMacWorkLogResponse();
    p.sent(QStringLiteral("MacWorkLogResponse"));
    p.resolver.lanMacStateResponse(mac, date, 2, QStringLiteral("running"));
    p.sent(QStringLiteral("MacState %1 state=2").arg(mac));
}

void onSetMode(void* ctx, const QString& mac, int mode)
{
    Peer& p = peer(ctx);
    p.handled(QStringLiteral("RemoteSetMode %1 mode=%2").arg(mac).arg(mode));
    p.resolver.lanRemoteSetModeResponse(true, mac, mode, 512, 256);
    p.sent(QStringLiteral("RemoteSetModeResponse ok, screen 512x256"));
}

void onTouch(void* ctx, const QString& mac, unsigned char kind, unsigned short x, unsigned short y)
{
    Peer& p = peer(ctx);
    p.handled(QStringLiteral("RemoteScreenTouch %1 kind=%2 at (%3, %4)")
                  .arg(mac)
                  .arg(kind)
                  .arg(x)
                  .arg(y));
    p.resolver.lanRemoteUpdatePageResponse(mac, 3);
    p.sent(QStringLiteral("RemoteUpdatePage page=3"));
    const QByteArray screen = screenContents();
    p.resolver.lanRemoteUpdateScreenResponse(mac, screen);
    p.sent(QStringLiteral("RemoteUpdateScreen %1 bytes, sha1 %2")
               .arg(screen.size())
               .arg(digest(screen)));
}

// -- client ------------------------------------------------------------------

void onMacInfo(void* ctx, const QList<mac_info>& macs)
{
    Peer& p = peer(ctx);
    p.handled(QStringLiteral("MacInfo %1 machines").arg(macs.size()));
    for (const mac_info& m : macs)
        p.handled(
            QStringLiteral("  %1/%2: %3 code=%4").arg(m.lv1Group, m.lv2Group, m.mac).arg(m.code));
    if (macs.size() != machineList().size())
        return p.demo->fail(QStringLiteral("machine list incomplete"));
    p.resolver.lanMacInfoResponse();
    p.sent(QStringLiteral("MacInfoResponse"));
    p.demo->next();
}

void onWorkLogAck(void* ctx) { peer(ctx).handled(QStringLiteral("MacWorkLogResponse")); }

void onMacState(void* ctx, const QString& mac, const QString& date, unsigned char state,
                const QString& text)
{
    Peer& p = peer(ctx);
    p.handled(QStringLiteral("MacState %1 %2 state=%3 %4").arg(mac, date).arg(state).arg(text));
    p.demo->next();
}

void onSetModeResult(void* ctx, bool ok, const QString& mac, int mode, int width, int height)
{
    Peer& p = peer(ctx);
    p.handled(QStringLiteral("RemoteSetModeResponse ok=%1 %2 mode=%3 screen %4x%5")
                  .arg(ok)
                  .arg(mac)
                  .arg(mode)
                  .arg(width)
                  .arg(height));
    if (!ok) return p.demo->fail(QStringLiteral("remote mode refused"));
    p.demo->next();
}

void onPage(void* ctx, const QString& mac, unsigned int page)
{
    peer(ctx).handled(QStringLiteral("RemoteUpdatePage %1 page=%2").arg(mac).arg(page));
}

void onScreen(void* ctx, const QString& mac, const QByteArray& screen)
{
    Peer& p = peer(ctx);
    p.handled(QStringLiteral("RemoteUpdateScreen %1: %2 bytes, sha1 %3")
                  .arg(mac)
                  .arg(screen.size())
                  .arg(digest(screen)));
    if (screen != screenContents()) return p.demo->fail(QStringLiteral("screen block damaged"));
    p.demo->next();
}

} // namespace

void addMachinesSteps(Demo& demo)
{
    KZProtocolResolver& server = demo.server.resolver;
    server.setLanEditMacCB(&onEditMac);
    server.setLanMacInfoResultCB(&onMacInfoAck);
    server.setLanMacWorkLogCB(&onWorkLog);
    server.setLanRemoteSetModeCB(&onSetMode);
    server.setLanRemoteScreenTouchCB(&onTouch);

    KZProtocolResolver& client = demo.client.resolver;
    client.setLanMacInfoCB(&onMacInfo);
    client.setLanMacWorkLogResultCB(&onWorkLogAck);
    client.setLanMacStateResultCB(&onMacState);
    client.setLanRemoteSetModeResultCB(&onSetModeResult);
    client.setLanRemoteUpdatePageResultCB(&onPage);
    client.setLanRemoteUpdateScreenResultCB(&onScreen);

    // Each step goes in before the logout, which stays last.
    const auto step = [&demo](std::function<void()> fn) {
        demo.steps.insert(demo.steps.size() - 1, fn);
    };

    step([&demo] {
        demo.client.sent(QStringLiteral("EditMac %1 -> Line A").arg(kMac));
        demo.client.resolver.lanEditMac(kMac, QStringLiteral("Line A"));
    });
    step([&demo] {
        // The client speaks for machine KZ-0001 here: its shift's work log.
        work_log w;
        w.text1 = QStringLiteral("rose.dst");
        w.text2 = QStringLiteral("08:00");
        w.value3 = 12000;
        w.value4 = 3;
        w.text5 = QStringLiteral("10:15");
        w.text8 = QStringLiteral("job-17");
        const QMap<QString, oee_process_data> processes = {
            {QStringLiteral("stitch"), {0.925, 41, 1234567.0}},
            {QStringLiteral("trim"), {0.5, 7, 12.75}}};
        const QMap<QString, int> counts = {{QStringLiteral("thread break"), 2},
                                           {QStringLiteral("bobbin change"), 5}};
        demo.client.sent(QStringLiteral("MacWorkLog %1: 1 entry, 2 processes").arg(kMac));
        demo.client.resolver.lanMacWorkLog(kMac, QStringLiteral("2024-05-06"),
                                           QStringLiteral("early"), {w}, counts, processes);
    });
    step([&demo] {
        demo.client.sent(QStringLiteral("RemoteSetMode %1 mode=1").arg(kMac));
        demo.client.resolver.lanRemoteSetMode(kMac, 1);
    });
    step([&demo] {
        demo.client.sent(
            QStringLiteral("RemoteScreenTouch %1 kind=1 at (0x0102, 0x0304)").arg(kMac));
        demo.client.resolver.lanRemoteScreenTouch(kMac, 1, 0x0102, 0x0304);
    });
}
