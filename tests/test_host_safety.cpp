// What a host relies on beyond the messages: the resolver's lifetime under
// Qt ownership and when deleted from its own callbacks, the counts of what
// it received and dropped, and the lines of its logging category.
#include "kzprotocolresolver_p.h"
#include "support.h"

#include <gtest/gtest.h>

#include <QLoggingCategory>

#include <cstring>

using namespace kztest;

namespace {

/// Captures every line of the "kz.resolver" category (debug lines on)
/// and counts the lines of the "default" category.
struct CategoryCapture
{
    QStringList lines;
    int defaultLines = 0;

    explicit CategoryCapture(bool debugOn = true)
    {
        QLoggingCategory::setFilterRules(debugOn ? QStringLiteral("kz.*=true\ndefault.debug=true")
                                                 : QStringLiteral("default.debug=true"));
        current = this;
        previous = qInstallMessageHandler(&CategoryCapture::handler);
    }
    ~CategoryCapture()
    {
        qInstallMessageHandler(previous);
        current = nullptr;
        QLoggingCategory::setFilterRules(QString());
    }
    static void handler(QtMsgType type, const QMessageLogContext& ctx, const QString& msg)
    {
        const QString category = QString::fromLatin1(ctx.category ? ctx.category : "");
        if (category == QLatin1String("kz.resolver"))
            current->lines.append(
                (type == QtWarningMsg ? QStringLiteral("W ") : QStringLiteral("D ")) + msg);
        else if (category == QLatin1String("default"))
            ++current->defaultLines;
    }
    static CategoryCapture* current;
    static QtMessageHandler previous;
};
CategoryCapture* CategoryCapture::current = nullptr;
QtMessageHandler CategoryCapture::previous = nullptr;

QByteArray body(uchar flag, uchar type, quint16 code, const QByteArray& payload)
{
    QByteArray b;
    b.append(char(flag)).append(char(type)).append(char(code & 0xFF)).append(char(code >> 8));
    return b + payload + '\0';
}

/// A body coded and framed as a peer would send it.
QByteArray framed(QByteArray b)
{
    if (b.size() > 1) kz_coding_encrypt_fast(b.data() + 1, b.constData() + 1, b.size() - 1);
    void* engine = kz_type_new(kz__protoiot, 0);
    QByteArray out(KZ_FRAME_OVERHEAD + 1 + b.size(), '\0');
    out.truncate(kz_protocol_pack(engine, out.data(), out.size(), 0, "", b.constData(), b.size()));
    kz_type_delete(engine);
    return out;
}

QByteArray logout(int value, uchar flag = 0, quint16 code = 2, uchar type = 17)
{
    return framed(body(flag, type, code, QByteArray(reinterpret_cast<const char*>(&value), 4)));
}

// A host that drops its connection object (here: the resolver) in a handler.
struct Host
{
    KZProtocolResolver* resolver = nullptr;
    int deleteAt = 0; // delete the resolver in this callback (1-based)
    QList<int> values;
    int frames = 0;
    bool answer = false; // answer each logout, deleting from the pack-result callback
};

void onLogout(void* ctx, int v)
{
    auto* h = static_cast<Host*>(ctx);
    h->values.append(v);
    if (h->answer) {
        h->resolver->lanLogout(-v); // its frame's callback deletes the resolver
        return;
    }
    if (h->values.size() == h->deleteAt) delete h->resolver;
}

void onFrame(void* ctx, char* bytes, int)
{
    auto* h = static_cast<Host*>(ctx);
    std::free(bytes);
    if (++h->frames == h->deleteAt) delete h->resolver;
}

Host* newHost(Host& h, int deleteAt, int capacity = 0)
{
    h.resolver = new KZProtocolResolver(capacity);
    h.deleteAt = deleteAt;
    h.resolver->setReceiveData(&h);
    h.resolver->setLanLogoutCB(&onLogout);
    h.resolver->setParsePackResult(&onFrame);
    return &h;
}

} // namespace

TEST(HostLifetime, ReparentedResolverSurvivesBothParents)
{
    // The private object must not follow the constructor's parent: after a
    // reparent, deleting both parents (or the first one's children by hand)
    // frees everything once.
    for (bool byHand : {false, true}) {
        auto* p1 = new QObject;
        auto* p2 = new QObject;
        auto* r = new KZProtocolResolver(0, p1);
        EXPECT_EQ(p1->children(), QObjectList{r});
        r->setParent(p2);
        if (byHand) qDeleteAll(p1->children());
        delete p1;
        EXPECT_EQ(p2->children(), QObjectList{r});
        delete p2;
    }
}

TEST(HostLifetime, DeleteFromAMessageCallback)
{
    const QByteArray block = logout(1) + logout(2) + logout(3);
    // From the first of three: the rest stay queued and are freed unseen.
    // From the last one of the block: nothing is left, nothing breaks.
    for (int at : {1, 3}) {
        Host h;
        newHost(h, at)->resolver->parseReceive(block);
        EXPECT_EQ(h.values.size(), at);
    }
    // With more bytes handed in from the callback before the delete.
    Host h;
    newHost(h, 1);
    h.resolver->setLanLogoutCB([](void* ctx, int v) {
        auto* host = static_cast<Host*>(ctx);
        host->values.append(v);
        host->resolver->parseReceive(logout(9));
        delete host->resolver;
    });
    h.resolver->parseReceive(block);
    EXPECT_EQ(h.values, QList<int>{1});
}

TEST(HostLifetime, DeleteFromThePackResultCallback)
{
    // A body split in pieces: the first frame's callback deletes the
    // resolver; the pieces still pending are freed, not handed out.
    Host h;
    newHost(h, 1, 256)->resolver->lanLogin(QString(2000, QLatin1Char('a')), QString());
    EXPECT_EQ(h.frames, 1);

    // Answering from a message callback, the answer's frame deletes the
    // resolver while the drain below it is still running.
    Host a;
    newHost(a, 1)->answer = true;
    a.resolver->parseReceive(logout(1) + logout(2));
    EXPECT_EQ(a.values, QList<int>{1});
    EXPECT_EQ(a.frames, 1);
}

TEST(HostStatistics, ExactCountsAfterAStreamWithKnownDamage)
{
    FrameSink sink;
    KZProtocolResolver sender;
    sink.attach(sender);
    sender.lanLogin(QString(3000, QLatin1Char('a')), QString()); // two pieces
    ASSERT_EQ(sink.frames.size(), 2);
    const QByteArray orphan = sink.frames[1];
    sink.frames.clear();
    sender.lanRemoteUpdateScreenResponse(QStringLiteral("KZ-1"), QByteArray(16 << 20, 'x'));
    const QByteArray oversized = sink.stream(); // 16 MiB + header: over the limit
    ASSERT_GT(sink.frames.size(), 8000);

    QByteArray corrupt = logout(7);
    corrupt[corrupt.size() - 6] = char(corrupt[corrupt.size() - 6] ^ 0x40);
    const QByteArray noise("no frame here");
    const QByteArray stream = noise + logout(1) + corrupt + orphan + logout(2, 0, 0x0003) +
                              logout(3, 0, 2, 18) + framed(QByteArray()) + oversized + logout(4);

    Host h;
    KZProtocolResolver rx;
    rx.setReceiveData(&h);
    rx.setLanLogoutCB(&onLogout);
    // Cut anywhere, the counts are the same.
    for (int at = 0; at < stream.size();) {
        const int n = qMin(1000 + at % 977, int(stream.size()) - at);
        rx.parseReceive(stream.mid(at, n));
        at += n;
    }
    EXPECT_EQ(h.values, (QList<int>{1, 4}));

    const KZProtocolResolver::Statistics s = rx.statistics();
    EXPECT_EQ(s.bytesReceived, quint64(stream.size()));
    EXPECT_EQ(s.framesAccepted, 6u); // two logouts, orphan, unknown code, type 18, empty
    EXPECT_EQ(s.messagesDispatched, 2u);
    EXPECT_EQ(s.garbageBytes, quint64(noise.size() + corrupt.size() + oversized.size()));
    quint64 expected[KZProtocolResolver::DropReasonCount] = {};
    expected[KZProtocolResolver::DropBadChecksum] = 1;
    expected[KZProtocolResolver::DropOrphanPiece] = 1;
    expected[KZProtocolResolver::DropUnknownMethod] = 1;
    expected[KZProtocolResolver::DropUnknownType] = 1;
    expected[KZProtocolResolver::DropEmptyBody] = 1;
    expected[KZProtocolResolver::DropOversizedBody] = 1; // once, not per piece
    for (int i = 0; i < KZProtocolResolver::DropReasonCount; ++i)
        EXPECT_EQ(s.drops[i], expected[i])
            << KZProtocolResolver::dropReasonText(KZProtocolResolver::DropReason(i));
    EXPECT_EQ(s.totalDrops(), 6u);
}

TEST(HostLogging, OneCategoryLinePerDropQuietByDefault)
{
    QByteArray corrupt = logout(7);
    corrupt[corrupt.size() - 6] = char(corrupt[corrupt.size() - 6] ^ 0x40);
    const QByteArray stream = corrupt + logout(2, 0, 0x0003) + logout(3, 0, 2, 18) +
                              framed(QByteArray()) + framed(QByteArray("\0\x11", 2));
    {
        CategoryCapture quiet(false);
        KZProtocolResolver rx;
        rx.parseReceive(stream);
        EXPECT_TRUE(quiet.lines.isEmpty());
        EXPECT_EQ(quiet.defaultLines, 1); // the empty body's own line, always
    }
    CategoryCapture log;
    KZProtocolResolver rx;
    rx.parseReceive(stream);
    EXPECT_EQ(log.lines,
              (QStringList{
                  QStringLiteral("D drop: frame checksum mismatch, %1 bytes").arg(corrupt.size()),
                  QStringLiteral("D drop: unknown method code 0x0003, 9 bytes"),
                  QStringLiteral("D drop: unknown message type 18, 9 bytes"),
                  QStringLiteral("D drop: empty body, 0 bytes"),
                  QStringLiteral("D drop: body shorter than its header, 2 bytes"),
              }));
    EXPECT_EQ(log.defaultLines, 1);
}

TEST(HostLogging, LossyEncodersWarnOnceAndSendTheWireUnchanged)
{
    CategoryCapture log;
    FrameSink sink;
    KZProtocolResolver tx;
    sink.attach(tx);

    QStringList names;
    for (int i = 0; i < 40000; ++i) names.append(QString());
    tx.lanDeleteUserResponse(true, names); // 40000 reads back as -25536: empty
    EXPECT_EQ(hex(payloadOf(sink.stream()).left(2)), QStringLiteral("40 9c")); // as the rule says
    sink.frames.clear();
    tx.lanDeleteUser(names.mid(0, 32767)); // the largest count that arrives
    tx.lanLogin(QString(40000, QLatin1Char('a')), QString());
    QMap<QString, QStringList> groups{{QStringLiteral("g"), QStringList()}};
    for (int i = 0; i < 70000; ++i) groups[QStringLiteral("g")].append(QString());
    groups[QStringLiteral("h")] = names;
    tx.lanUpdateUserGroupPermission(QStringLiteral("n"), groups);
    QList<work_log> logs;
    tx.lanMacWorkLog(QString(), QString(), QString(), logs << work_log(), {}, {});
    while (logs.size() < 65536) logs.append(work_log());
    sink.frames.clear();
    tx.lanMacWorkLog(QString(), QString(), QString(), logs, {}, {}); // the count reads 0
    EXPECT_TRUE(sink.frames.isEmpty());
    tx.lanRemoteUpdateScreenResponse(QStringLiteral("KZ-1"), QByteArray(16 << 20, 'x'));

    EXPECT_EQ(log.lines,
              (QStringList{
                  QStringLiteral("W DeleteUser reply: 16-bit count 40000 will not arrive as sent"),
                  QStringLiteral("W Login request: 16-bit text length 40001 will not arrive as "
                                 "sent"),
                  // Only the first loss of a message is named.
                  QStringLiteral("W UpdateUserGroupPermission request: 16-bit count 70000 will "
                                 "not arrive as sent"),
                  QStringLiteral("W MacWorkLog request: 16-bit count 65536 will not arrive as "
                                 "sent"),
                  QStringLiteral("W RemoteUpdateScreen reply: body over the receive limit, "
                                 "bytes: 16777230 will not arrive as sent"),
              }));
}

TEST(HostLogging, NoteLossKeepsTheFirst)
{
    kz::Payload p;
    EXPECT_EQ(p.lossWhat(), nullptr);
    p << kz::count16(32767) << kz::count16(0);
    EXPECT_EQ(p.lossWhat(), nullptr);
    p << kz::count16(-1);
    p.noteLoss("later", 5);
    EXPECT_STREQ(p.lossWhat(), "16-bit count");
    EXPECT_EQ(p.lossValue(), -1);
}
