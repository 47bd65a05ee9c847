// The thread rules of the public header, exercised: one thread sending while
// another receives on the same resolver, and resolvers on threads of their
// own. Run under ThreadSanitizer in CI.
#include "fuzz_util.h"
#include "sinks.h"
#include "support.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <thread>

using kzfuzz::Call;
using kzfuzz::Observer;

namespace {

/// The context of a resolver that sends on one thread and receives on
/// another: the receiving thread records calls (Observer), the sending
/// thread collects frames. The two never touch the same member.
struct Duplex : Observer
{
    QList<QByteArray> sent;

    static void onFrame(void* ctx, char* bytes, int n)
    {
        static_cast<Duplex*>(static_cast<Observer*>(ctx))->sent.append(QByteArray(bytes, n));
        std::free(bytes);
    }
};

/// What a peer sends: logouts 0..n-1, with a login every 50th message and a
/// login long enough to travel in pieces every 200th.
QByteArray peerTraffic(int n)
{
    kztest::FrameSink sink;
    KZProtocolResolver peer;
    sink.attach(peer);
    for (int i = 0; i < n; ++i) {
        if (i % 200 == 0)
            peer.lanLogin(QString(3000, QLatin1Char('a' + i % 26)), QStringLiteral("pw"));
        else if (i % 50 == 0)
            peer.lanLogin(QStringLiteral("user%1").arg(i), QStringLiteral("secret"));
        else
            peer.lanLogout(i);
    }
    return sink.stream();
}

QVector<Call> callsOf(const QByteArray& stream)
{
    Observer seen;
    seen.record = true;
    KZProtocolResolver r;
    kzfuzz::attachAll(r, &seen);
    r.parseReceive(stream);
    return seen.log;
}

quint32 sequenceOf(const QByteArray& frame)
{
    quint32 v = 0;
    std::memcpy(&v, frame.constData() + 4, 4);
    return v;
}

} // namespace

TEST(Threads, OneThreadSendsWhileAnotherReceivesOnTheSameResolver)
{
    const QByteArray incoming = peerTraffic(1500);
    const QVector<Call> expectedIn = callsOf(incoming);

    Duplex ctx;
    ctx.record = true;
    KZProtocolResolver r;
    kzfuzz::attachAll(r, &ctx);
    r.setParsePackResult(&Duplex::onFrame);

    std::atomic<int> ready{0}; // both threads start together, so that they overlap
    const auto gate = [&ready] {
        ready++;
        while (ready.load() < 2) std::this_thread::yield();
    };
    std::thread receiver([&] {
        gate();
        for (int at = 0; at < incoming.size(); at += 61) r.parseReceive(incoming.mid(at, 61));
    });
    std::thread sender([&] {
        gate();
        for (int i = 0; i < 1500; ++i) {
            if (i % 100 == 0)
                r.lanLogin(QString(2500, QLatin1Char('s')), QStringLiteral("pw")); // in pieces
            else
                r.lanLogout(i);
        }
    });
    receiver.join();
    sender.join();

    EXPECT_EQ(ctx.log, expectedIn) << "every incoming message, in order";

    // Every frame sent is intact, numbered in order, and decodes in order.
    for (int i = 0; i < ctx.sent.size(); ++i) ASSERT_EQ(sequenceOf(ctx.sent[i]), quint32(i));
    const QList<QByteArray> bodies = kztest::bodiesOf(ctx.sent.join());
    ASSERT_EQ(bodies.size(), 1500);
    for (int i = 0; i < bodies.size(); ++i) {
        const char code = i % 100 == 0 ? 0 : 2;
        ASSERT_EQ(bodies[i][2], code) << "message " << i;
        if (code == 2) {
            qint32 value = 0;
            std::memcpy(&value, bodies[i].constData() + 4, 4);
            ASSERT_EQ(value, i);
        }
    }
}

TEST(Threads, TwoResolverPairsOnTwoThreads)
{
    // Each thread runs its own sender and receiver: encoders, the engine,
    // the cipher of the login and the receive path all run on both threads
    // at once, with garbage between the frames.
    struct Run
    {
        int seed;
        QVector<Call> calls;
        QVector<Call> expected;
    };
    Run runs[2] = {{1, {}, {}}, {2, {}, {}}};
    const auto work = [](Run& run) {
        kztest::FrameSink sink;
        KZProtocolResolver sender;
        sink.attach(sender);
        Observer seen;
        seen.record = true;
        KZProtocolResolver receiver;
        kzfuzz::attachAll(receiver, &seen);
        QByteArray all;
        for (int i = 0; i < 400; ++i) {
            if (i % 40 == 0)
                sender.lanLogin(QString(2200 + run.seed, QLatin1Char('r')), QStringLiteral("pw"));
            else if (i % 7 == 0)
                sender.lanLoginResult(i % 2 == 0, i, run.seed == 1);
            else
                sender.lanLogout(run.seed * 1000 + i);
            for (const QByteArray& f : sink.frames) {
                receiver.parseReceive(QByteArray(run.seed * 3, 'g')); // garbage, no sync marker
                receiver.parseReceive(f.left(f.size() / 2));
                receiver.parseReceive(f.mid(f.size() / 2));
                all += f;
            }
            sink.frames.clear();
        }
        run.calls = seen.log;
        run.expected = callsOf(all);
    };
    std::thread a(work, std::ref(runs[0]));
    std::thread b(work, std::ref(runs[1]));
    a.join();
    b.join();
    for (const Run& run : runs) {
        EXPECT_EQ(run.calls.size(), 400);
        EXPECT_EQ(run.calls, run.expected);
    }
}
