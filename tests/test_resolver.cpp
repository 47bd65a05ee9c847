// The resolver frame: construction and teardown, the send routine (body,
// coding, sequence numbers, draining of pieces) and the receive path (queue,
// debug lines, dispatch).
#include "kzprotocolresolver_p.h"
#include "support.h"

#include <gtest/gtest.h>

#include <cstring>

using namespace kztest;

namespace {

quint32 seqOf(const QByteArray& frame)
{
    quint32 v = 0;
    std::memcpy(&v, frame.constData() + 4, 4);
    return v;
}

struct Seen
{
    QList<int> logouts;
    QStringList accounts;
};

void onLogout(void* ctx, int v) { static_cast<Seen*>(ctx)->logouts.append(v); }
void onLogin(void* ctx, const QString& a, const QString&)
{
    static_cast<Seen*>(ctx)->accounts << a;
}

/// What a fresh resolver with both callbacks makes of `stream`.
Seen received(const QByteArray& stream)
{
    Seen seen;
    KZProtocolResolver rx;
    rx.setReceiveData(&seen);
    rx.setLanLoginCB(&onLogin);
    rx.setLanLogoutCB(&onLogout);
    rx.parseReceive(stream);
    return seen;
}

/// A body coded and framed as a peer would send it.
QByteArray frameBody(QByteArray body)
{
    if (body.size() > 1)
        kz_coding_encrypt_fast(body.data() + 1, body.constData() + 1, body.size() - 1);
    void* engine = kz_type_new(kz__protoiot, 0);
    QByteArray out(KZ_FRAME_OVERHEAD + 1 + body.size(), '\0');
    const int n =
        kz_protocol_pack(engine, out.data(), out.size(), 0, "", body.constData(), body.size());
    kz_type_delete(engine);
    return out.left(n);
}

QByteArray logoutBody(int value, uchar flag = 0, quint16 code = 2, uchar type = 17)
{
    QByteArray b;
    b.append(char(flag)).append(char(type)).append(char(code & 0xFF)).append(char(code >> 8));
    return b.append(reinterpret_cast<const char*>(&value), 4).append('\0');
}

} // namespace

TEST(Construction, CapacityDefaultsAndOverride)
{
    // A 3000-byte body fits one 4096-byte frame but needs two of the default 2048.
    const QString account(3000, QLatin1Char('a'));
    for (int cap : {0, -5, 4096}) {
        FrameSink sink;
        KZProtocolResolver r(cap);
        sink.attach(r);
        r.lanLogin(account, QString());
        EXPECT_EQ(sink.frames.size(), cap == 4096 ? 1 : 2) << cap;
        for (const QByteArray& f : sink.frames) EXPECT_LE(f.size(), cap == 4096 ? 4096 : 2048);
    }
}

TEST(Construction, AParentOwnsTheResolver)
{
    // The private object belongs to the resolver alone; the parent sees one
    // child, and destroying the parent frees both exactly once.
    auto* parent = new QObject;
    auto* r = new KZProtocolResolver(0, parent);
    EXPECT_EQ(KZProtocolResolverPrivate::get(r)->parent(), nullptr);
    EXPECT_EQ(parent->children(), QObjectList{r});
    delete parent;
}

TEST(PackSend, BodyBytesAndCoding)
{
    FrameSink sink;
    KZProtocolResolver r;
    sink.attach(r);
    r.lanLogout(7);
    KZProtocolResolverPrivate::get(&r)->send(kz::Method::AddGroup, kz::Reply, kz::Payload());
    const QList<QByteArray> bodies = bodiesOf(sink.stream());
    ASSERT_EQ(bodies.size(), 2);
    EXPECT_EQ(hex(bodies[0]), QStringLiteral("00 11 02 00 07 00 00 00 00"));
    EXPECT_EQ(hex(bodies[1]), QStringLiteral("01 11 10 00 00")); // empty payload: one zero
    // On the wire the flag stays as it is and the rest is coded.
    const QByteArray wire = sink.frames[0].mid(18, 9);
    EXPECT_EQ(wire[0], '\0');
    EXPECT_NE(wire.mid(1), bodies[0].mid(1));
}

TEST(PackSend, SequenceNumbersRiseWithAndWithoutCallback)
{
    FrameSink sink;
    KZProtocolResolver r;
    r.lanLogout(1); // no callback: still consumes sequence 0
    r.lanLogout(2);
    sink.attach(r);
    r.lanLogout(3);
    r.lanLogout(4);
    ASSERT_EQ(sink.frames.size(), 2);
    EXPECT_EQ(seqOf(sink.frames[0]), 2u);
    EXPECT_EQ(seqOf(sink.frames[1]), 3u);
}

TEST(PackSend, SplitBodyUsesOneSequencePerPiece)
{
    FrameSink sink;
    KZProtocolResolver r;
    sink.attach(r);
    r.lanLogin(QString(5000, QLatin1Char('x')), QStringLiteral("pw"));
    r.lanLogout(9);
    ASSERT_GE(sink.frames.size(), 4);
    for (int i = 0; i < sink.frames.size(); ++i) EXPECT_EQ(seqOf(sink.frames[i]), quint32(i));
    const Seen seen = received(sink.stream());
    EXPECT_EQ(seen.accounts, QStringList{QString(5000, QLatin1Char('x'))});
    EXPECT_EQ(seen.logouts, QList<int>{9});
}

TEST(PackSend, SmallBodyOverCapacityIsDrainedToo)
{
    // 300-byte body, 128-byte frames: a small body, but split all the same.
    FrameSink sink;
    KZProtocolResolver r(128);
    sink.attach(r);
    r.lanLogin(QString(300, QLatin1Char('y')), QString());
    EXPECT_GE(sink.frames.size(), 3);
    for (const QByteArray& f : sink.frames) EXPECT_LE(f.size(), 128);
    EXPECT_EQ(kz_protocol_pending(KZProtocolResolverPrivate::get(&r)->engine)->count, 0);
    EXPECT_EQ(received(sink.stream()).accounts, QStringList{QString(300, QLatin1Char('y'))});
}

TEST(PackSend, FrameThatCannotBePackedIsStillHandedOver)
{
    // 16-byte frames cannot hold a frame header: the host still gets each
    // buffer (to free) with length 0, and the sequence counter moves on.
    FrameSink sink;
    KZProtocolResolver r(16);
    sink.attach(r);
    r.lanLogout(1);
    r.lanLogout(2);
    EXPECT_EQ(sink.frames, (QList<QByteArray>{QByteArray(), QByteArray()}));
    EXPECT_EQ(KZProtocolResolverPrivate::get(&r)->sequence, 2);
}

TEST(PackSend, DrainHonoursNodeFlags)
{
    // Engines that leave pieces with their own sequence number and already
    // packed: neither takes sequence numbers from the resolver.
    for (int mode : {KZ_PIECES_OWN_SEQ, KZ_PIECES_PACKED}) {
        FrameSink sink;
        KZProtocolResolver r(256);
        auto* d = KZProtocolResolverPrivate::get(&r);
        d->adoptEngine(kz_type_new(kz__protoiot, KZ_OPT_CAPACITY, 256, KZ_OPT_PIECES, mode, 0));
        sink.attach(r);
        r.lanLogin(QString(2000, QLatin1Char('z')), QString());
        r.lanLogout(5);
        ASSERT_GE(sink.frames.size(), 9);
        for (int i = 0; i + 1 < sink.frames.size(); ++i)
            EXPECT_EQ(seqOf(sink.frames[i]), 0u) << mode;
        EXPECT_EQ(seqOf(sink.frames.last()), 1u);
        EXPECT_EQ(d->sequence, 2);
        EXPECT_EQ(received(sink.stream()).accounts, QStringList{QString(2000, QLatin1Char('z'))});
    }
}

// Frames lent from the resolver's send buffer (setPackedFrameCB) are the
// bytes the owning callback gets, frame for frame, on every send path.
TEST(PackSend, LentFramesAreTheOwnedFrames)
{
    struct Row
    {
        const char* what;
        int capacity;
        int pieces; // engine piece mode, 0: the resolver's own engine
        std::function<void(KZProtocolResolver&)> send;
    };
    const QString longName(5000, QLatin1Char('x'));
    const Row rows[] = {
        {"logout", 0, 0, [](KZProtocolResolver& r) { r.lanLogout(7); }},
        {"one long frame", 0, 0,
         [](KZProtocolResolver& r) { r.lanLogin(QString(900, QLatin1Char('w')), QString()); }},
        {"split", 0, 0, [&](KZProtocolResolver& r) { r.lanLogin(longName, QStringLiteral("pw")); }},
        {"small body split", 128, 0,
         [](KZProtocolResolver& r) { r.lanLogin(QString(300, QLatin1Char('y')), QString()); }},
        {"cannot be packed", 16, 0, [](KZProtocolResolver& r) { r.lanLogout(1); }},
        {"own sequence", 256, KZ_PIECES_OWN_SEQ,
         [&](KZProtocolResolver& r) { r.lanLogin(longName, QString()); }},
        {"packed by the engine", 256, KZ_PIECES_PACKED,
         [&](KZProtocolResolver& r) { r.lanLogin(longName, QString()); }},
    };
    struct Lent
    {
        QList<QByteArray> frames;
        static void onFrame(void* ctx, const char* bytes, int n)
        {
            static_cast<Lent*>(ctx)->frames.append(QByteArray(bytes, n));
        }
    };
    for (const Row& row : rows) {
        FrameSink owned;
        Lent lent;
        KZProtocolResolver a(row.capacity), b(row.capacity);
        if (row.pieces) {
            for (KZProtocolResolver* r : {&a, &b})
                KZProtocolResolverPrivate::get(r)->adoptEngine(kz_type_new(
                    kz__protoiot, KZ_OPT_CAPACITY, row.capacity, KZ_OPT_PIECES, row.pieces, 0));
        }
        owned.attach(a);
        b.setReceiveData(&lent);
        b.setPackedFrameCB(&Lent::onFrame);
        for (int i = 0; i < 2; ++i) { // the second time into the kept buffer
            row.send(a);
            row.send(b);
            a.lanLogout(i);
            b.lanLogout(i);
        }
        QList<QByteArray> sent;
        for (const QByteArray& f : owned.frames)
            if (!f.isEmpty()) sent.append(f); // nothing to send is not lent
        EXPECT_EQ(lent.frames, sent) << row.what;
    }
}

// A frame stays intact while the host sends another message from inside
// the frame callback: the nested frame does not reuse the lent buffer.
TEST(PackSend, LentFrameSurvivesASendFromItsCallback)
{
    struct Host
    {
        KZProtocolResolver r;
        QList<QByteArray> frames;
        static void onFrame(void* ctx, const char* bytes, int n)
        {
            auto* h = static_cast<Host*>(ctx);
            if (h->frames.isEmpty()) {
                h->frames.append(QByteArray());
                h->r.lanLogout(2); // before this frame is copied
                h->frames[0] = QByteArray(bytes, n);
            } else {
                h->frames.append(QByteArray(bytes, n));
            }
        }
    } host;
    host.r.setReceiveData(&host);
    host.r.setPackedFrameCB(&Host::onFrame);
    host.r.lanLogout(1);
    ASSERT_EQ(host.frames.size(), 2);
    QByteArray stream = host.frames[0] + host.frames[1];
    EXPECT_EQ(received(stream).logouts, (QList<int>{1, 2}));
    EXPECT_EQ(seqOf(host.frames[0]), 0u);
    EXPECT_EQ(seqOf(host.frames[1]), 1u);
}

TEST(Receive, GarbageAndDamagedFramesAroundGoodOnes)
{
    Seen seen;
    Wire w(&seen);
    w.receiver.setLanLogoutCB(&onLogout);
    w.receiver.parseReceive(QByteArray());
    w.receiver.parseReceive(QByteArray("garbage without any frame in it KZ KZ \x4b\x5a\x01", 42));
    EXPECT_TRUE(KZProtocolResolverPrivate::get(&w.receiver)->eventQueue.isEmpty());
    for (int v = 1; v <= 5; ++v) w.sender.lanLogout(v);
    const QList<QByteArray>& f = w.sink.frames;
    QByteArray corrupt = f[0];
    corrupt[corrupt.size() - 6] = char(corrupt[corrupt.size() - 6] ^ 0x40); // a data byte
    QByteArray huge = f[2];
    const quint32 claim = 0xFFFFFFF0u; // a data length of nearly 4 GiB
    std::memcpy(huge.data() + 10, &claim, 4);
    w.receiver.parseReceive("noise" + corrupt + f[1].left(10) + huge + f[3] + f[4] + "tail");
    EXPECT_EQ(seen.logouts, (QList<int>{4, 5}));
}

TEST(Receive, ZeroLengthDataEventIsOneDebugLine)
{
    DebugCapture debug;
    EXPECT_TRUE(received(frameBody(QByteArray())).logouts.isEmpty());
    // The text keeps its trailing blank, then the (null) data and the length.
    EXPECT_EQ(debug.lines, QStringList{QStringLiteral(
                               "data==nullptr || data_len ==0 and ready to return  0x0 0")});
    EXPECT_EQ(debug.categories, QStringList{QStringLiteral("default")});
}

TEST(Receive, EventsTheHandlerCannotUseAreLoggedAndSwallowed)
{
    // The engine never raises these: a null event or data, a foreign object,
    // an engine without a resolver.
    KZProtocolResolver rx;
    auto* d = KZProtocolResolverPrivate::get(&rx);
    void* bare = kz_type_new(kz__protoiot, 0);
    char notAnObject[64] = {};
    char byte = 0;
    kz_event noData{KZ_EVENT_DATA, d->engine, "data", nullptr, 4, 1, 0};
    kz_event foreign{KZ_EVENT_DATA, notAnObject, "data", &byte, 1, 1, 0};
    kz_event orphan{KZ_EVENT_DATA, bare, "data", &byte, 1, 1, 0};
    DebugCapture debug;
    EXPECT_EQ(KZProtocolResolverPrivate::eventHandler(&noData), 0);
    EXPECT_EQ(KZProtocolResolverPrivate::eventHandler(nullptr), 0);
    testing::internal::CaptureStderr(); // the failed cast reports itself there
    EXPECT_EQ(KZProtocolResolverPrivate::eventHandler(&foreign), 0);
    testing::internal::GetCapturedStderr();
    EXPECT_EQ(KZProtocolResolverPrivate::eventHandler(&orphan), 0);
    kz_type_delete(bare);
    EXPECT_EQ(debug.lines, (QStringList{QStringLiteral("before reutrn e || e->data nullptr"),
                                        QStringLiteral("before reutrn e || e->data nullptr"),
                                        QStringLiteral("before return proto"),
                                        QStringLiteral("before return resolver nullptr")}));
    EXPECT_EQ(debug.categories.count(QStringLiteral("default")), 4);
    EXPECT_TRUE(d->eventQueue.isEmpty());
}

TEST(Receive, WrongTypeByteUnknownCodeAndReplyFlagAreDropped)
{
    DebugCapture debug;
    const Seen seen = received(frameBody(logoutBody(1, 0, 2, 18)) +  // type 18
                               frameBody(logoutBody(2, 0, 0x0003)) + // no such method
                               frameBody(logoutBody(3, 1)) +         // logout as a reply
                               frameBody(logoutBody(4)));
    EXPECT_EQ(seen.logouts, QList<int>{4});
    EXPECT_TRUE(debug.lines.isEmpty());
}

TEST(Receive, QueuedEventsAreFreedOnTeardownWithoutCallbacks)
{
    Seen seen;
    {
        KZProtocolResolver rx;
        rx.setReceiveData(&seen);
        rx.setLanLogoutCB(&onLogout);
        auto* d = KZProtocolResolverPrivate::get(&rx);
        QByteArray body = logoutBody(5);
        kz_event e{KZ_EVENT_DATA, d->engine, "data", body.data(), int(body.size()), 1, 0};
        KZProtocolResolverPrivate::eventHandler(&e);
        EXPECT_EQ(d->eventQueue.size(), 1);
    }
    EXPECT_TRUE(seen.logouts.isEmpty());
}

namespace {
struct Reentry
{
    KZProtocolResolver* rx;
    QByteArray more;
    QList<int> values;
};
void onLogoutFeedMore(void* ctx, int v)
{
    auto* s = static_cast<Reentry*>(ctx);
    s->values.append(v);
    if (!s->more.isEmpty()) {
        const QByteArray more = s->more;
        s->more.clear();
        s->rx->parseReceive(more); // taken after the current block
        s->values.append(-v);
    }
}
} // namespace

TEST(Receive, ParseReceiveFromACallbackIsDeferred)
{
    Wire w;
    Reentry state{&w.receiver, {}, {}};
    w.receiver.setReceiveData(&state);
    w.receiver.setLanLogoutCB(&onLogoutFeedMore);
    w.sender.lanLogout(1);
    w.sender.lanLogout(2);
    const QByteArray first = w.sink.stream();
    w.sink.frames.clear();
    w.sender.lanLogout(3);
    state.more = w.sink.stream();
    w.receiver.parseReceive(first);
    EXPECT_EQ(state.values, (QList<int>{1, -1, 2, 3}));
}

TEST(Dispatch, EveryCodeHasANameAndNoOtherDoes)
{
    int known = 0;
    for (int code = 0; code <= 0xFFFF; ++code) known += kz::methodName(quint16(code)) != nullptr;
    EXPECT_EQ(known, 117);
    EXPECT_STREQ(kz::methodName(0x001B), "DeleteUser");
    EXPECT_STREQ(kz::methodName(0x0802), "AppQueryProcessLogs");
    EXPECT_EQ(kz::methodName(0x0003), nullptr);
}
