// Hostile peers. Whatever lengths a peer claims and whatever it sends, the
// memory a resolver holds stays within the frame engine's limits and is all
// returned with the resolver; how a stream is cut changes nothing; garbage
// in a stream costs only the frames it damages.
#include "fuzz_util.h"
#include "sinks.h"
#include "support.h"

#include <gtest/gtest.h>

#include <QRandomGenerator>

#include <malloc.h>

#include <cstdio>
#include <limits>

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define KZ_SANITIZER_HEAP 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define KZ_SANITIZER_HEAP 1
#endif
#endif
#ifdef KZ_SANITIZER_HEAP
// The sanitizer runtime's count of bytes allocated and not yet freed.
extern "C" size_t __sanitizer_get_current_allocated_bytes(void);
#endif

using kzfuzz::Call;
using kzfuzz::Observer;

namespace {

constexpr size_t KiB = 1024;
constexpr size_t MiB = 1024 * KiB;

/// Bytes of heap in use by the whole process.
size_t heapInUse()
{
#ifdef KZ_SANITIZER_HEAP
    return __sanitizer_get_current_allocated_bytes();
#else
    const struct mallinfo2 m = mallinfo2();
    return m.uordblks + m.hblkhd;
#endif
}

/// The largest growth of the heap over a baseline, sampled by the caller.
class Peak
{
public:
    Peak() : base_(heapInUse()) {}
    void sample()
    {
        const size_t now = heapInUse();
        if (now > base_ && now - base_ > peak_) peak_ = now - base_;
    }
    size_t growth() const { return peak_; }
    /// Heap now held beyond the baseline (0 when below it).
    size_t held() const
    {
        const size_t now = heapInUse();
        return now > base_ ? now - base_ : 0;
    }

private:
    size_t base_;
    size_t peak_ = 0;
};

void report(const char* what, size_t bytes)
{
    std::printf("[ memory   ] %s: peak heap growth %.2f MiB\n", what, double(bytes) / double(MiB));
}

QByteArray le32(quint32 v)
{
    QByteArray b(4, '\0');
    for (int i = 0; i < 4; ++i) b[i] = char(v >> (8 * i));
    return b;
}

/// A whole-frame header (with its CRC) that claims `dataLength` bytes of
/// data; see docs/frame-format.md.
QByteArray wholeHeader(quint32 dataLength)
{
    QByteArray h("KZ\x01\x00", 4);
    h += le32(0);             // sequence number
    h += QByteArray(2, '\0'); // attr length
    h += le32(dataLength);
    return h + le32(kz_crc32(0, h.constData(), size_t(h.size())));
}

/// A piece frame carrying `data` at `offset` of body `id` of `total` bytes,
/// made with the engine's own piece tag.
QByteArray pieceFrame(quint32 id, quint32 total, quint32 offset, const QByteArray& data)
{
    const QByteArray tag = "\x01P" + QByteArray::number(id) + ':' + QByteArray::number(total) +
                           ':' + QByteArray::number(offset);
    void* engine = kz_type_new(kz__protoiot, 0);
    QByteArray out(KZ_PIECE_OVERHEAD + data.size(), '\0');
    const int n = kz_protocol_pack(engine, out.data(), out.size(), int(id), tag.constData(),
                                   data.constData(), data.size());
    kz_type_delete(engine);
    return out.left(n);
}

QByteArray logoutFrame(int value)
{
    return kzfuzz::frame(kzfuzz::body(0, 2, le32(quint32(value))));
}

/// A resolver with every callback set, recording what it is told.
struct Receiver
{
    KZProtocolResolver resolver;
    Observer seen;
    Receiver()
    {
        seen.record = true;
        kzfuzz::attachAll(resolver, &seen);
    }
};

/// The calls a fresh resolver makes for `chunks`, fed in order.
QVector<Call> callsOf(const QList<QByteArray>& chunks)
{
    Receiver r;
    for (const QByteArray& c : chunks) r.resolver.parseReceive(c);
    return r.seen.log;
}

QVector<Call> callsOf(const QByteArray& stream) { return callsOf(QList<QByteArray>{stream}); }

QString describe(const QVector<Call>& calls)
{
    QStringList names;
    for (const Call& c : calls) names.append(QString::fromLatin1(kzfuzz::callbackName(c.id)));
    return names.join(QLatin1Char(' '));
}

/// Login and logout traffic, one login long enough to travel in pieces.
QByteArray sessionTraffic()
{
    kztest::FrameSink sink;
    KZProtocolResolver r;
    sink.attach(r);
    r.lanLogin(QStringLiteral("operator"), QStringLiteral("s3cret"));
    r.lanLoginResult(true, 5, false);
    r.lanLogin(QString(5000, QChar(0x00e9)), QStringLiteral("\u4e2d\u6587"));
    r.lanLogout(7);
    return sink.stream();
}

/// The session traffic, then a generic payload under every method code with
/// both flags, so that every decoder a family has implemented takes part.
QByteArray fullTraffic()
{
    QByteArray stream = sessionTraffic();
    const QByteArray payload = QByteArray("\x02\x00"
                                          "a\0bc\0"
                                          "\x05\x00\x00\x00"
                                          "12.5\0"
                                          "\x01\x00"
                                          "key\0"
                                          "\x07\x00\x00\x00"
                                          "\x00\x01",
                                          28);
    for (int i = 0; i < kzfuzz::kCodeCount; ++i)
        for (quint8 flag : {0, 1})
            stream += kzfuzz::frame(kzfuzz::body(flag, kzfuzz::kCodes[i], payload), i);
    return stream;
}

QList<QByteArray> cutAt(const QByteArray& stream, QList<int> cuts)
{
    std::sort(cuts.begin(), cuts.end());
    QList<QByteArray> chunks;
    int from = 0;
    for (int c : cuts) {
        chunks.append(stream.mid(from, c - from));
        from = c;
    }
    chunks.append(stream.mid(from));
    return chunks;
}

} // namespace

// ---------------------------------------------------------------------------
// Sinks (what the fuzz targets and these tests observe callbacks with)
// ---------------------------------------------------------------------------

TEST(HostileSinks, ReadEveryFieldOfARecordWhateverItsValue)
{
    // A negative figure once made the sink's own folding undefined (a double
    // converted to an unsigned type); see fuzz/regressions/decode_fuzz.
    const double figures[] = {-8.0, -1e300, std::numeric_limits<double>::quiet_NaN(),
                              -std::numeric_limits<double>::infinity(), 0.5};
    for (double f : figures) {
        oee_date_data a;
        a.amount = f;
        a.process[QStringLiteral("p")] = oee_process_data{f, -3, -f};
        a.values[QStringLiteral("k")] = f;
        oee_date_data b = a;
        EXPECT_EQ(kzfuzz::touch(a), kzfuzz::touch(b));
        // Every field takes part, the last and the most deeply nested too.
        b.values[QStringLiteral("l")] = 1.0;
        EXPECT_NE(kzfuzz::touch(a), kzfuzz::touch(b));
        b = a;
        b.process[QStringLiteral("p")].figure2 = 1.0;
        EXPECT_NE(kzfuzz::touch(a), kzfuzz::touch(b));
    }
}

// ---------------------------------------------------------------------------
// Limits
// ---------------------------------------------------------------------------

TEST(HostileLimits, ClaimsBeyondTheBodyLimitAllocateNothing)
{
    struct Claim
    {
        const char* what;
        QByteArray header;
    };
    const Claim claims[] = {
        {"whole frame of 4 GiB", wholeHeader(0xFFFFFFFFu)},
        {"whole frame of 2 GiB", wholeHeader(0x80000000u)},
        {"whole frame one byte over the limit", wholeHeader(KZ_DEFAULT_MAX_BODY + 1)},
        {"piece of a 4 GiB body", pieceFrame(1, 0xFFFFFFFFu, 0, QByteArray(1000, 'x'))},
        {"piece of a body one byte over the limit",
         pieceFrame(2, KZ_DEFAULT_MAX_BODY + 1, 0, QByteArray(1000, 'x'))},
    };
    const QByteArray filler(64 * KiB, 'x');
    for (const Claim& c : claims) {
        SCOPED_TRACE(c.what);
        Peak peak;
        {
            Receiver r;
            for (int round = 0; round < 16; ++round) {
                r.resolver.parseReceive(c.header);
                for (int i = 0; i < 8; ++i) r.resolver.parseReceive(filler); // 8 MiB in all
                peak.sample();
            }
            r.resolver.parseReceive(logoutFrame(3));
            EXPECT_EQ(r.seen.calls, 1) << "the frame after the claims still arrives";
        }
        EXPECT_LT(peak.growth(), 1 * MiB);
        EXPECT_LT(peak.held(), 64 * KiB) << "memory not returned with the resolver";
        report(c.what, peak.growth());
    }
}

// A host lowers the body limit (a server before login) and raises it again;
// set from inside a callback, the limit applies from the next block on.
TEST(HostileLimits, TheBodyLimitIsTheHostsPerResolver)
{
    Receiver r;
    EXPECT_EQ(r.resolver.maxReceiveBody(), KZ_DEFAULT_MAX_BODY);
    r.resolver.setMaxReceiveBody(0); // ignored
    EXPECT_EQ(r.resolver.maxReceiveBody(), KZ_DEFAULT_MAX_BODY);
    const QByteArray large = kzfuzz::frame(kzfuzz::body(0, 2, QByteArray(5000, 'x')));
    r.resolver.setMaxReceiveBody(4096);
    r.resolver.parseReceive(large + logoutFrame(1) + pieceFrame(7, 100000, 0, "abc"));
    EXPECT_EQ(r.seen.calls, 1);
    EXPECT_EQ(r.resolver.statistics().drops[KZProtocolResolver::DropOversizedBody], 2u);

    // Raised from the logout's callback: the large frame in the same block is
    // still refused, the one in the next block passes.
    KZProtocolResolver raising;
    static int logouts = 0;
    logouts = 0;
    raising.setReceiveData(&raising);
    raising.setMaxReceiveBody(4096);
    raising.setLanLogoutCB([](void* ctx, int) {
        ++logouts;
        static_cast<KZProtocolResolver*>(ctx)->setMaxReceiveBody(1 << 20);
    });
    raising.parseReceive(logoutFrame(1) + large);
    EXPECT_EQ(raising.statistics().drops[KZProtocolResolver::DropOversizedBody], 1u);
    EXPECT_EQ(raising.maxReceiveBody(), 1 << 20);
    raising.parseReceive(large);
    EXPECT_EQ(raising.statistics().drops[KZProtocolResolver::DropOversizedBody], 1u);
    EXPECT_EQ(raising.statistics().messagesDispatched, 2u);
    EXPECT_EQ(logouts, 2) << "the large body is a logout with a long tail";
}

TEST(HostileLimits, AClaimWithinTheLimitBuffersOnlyWhatArrives)
{
    // A frame that claims the largest body allowed and never completes: the
    // engine holds the bytes that came, not the bytes that were promised.
    Peak peak;
    {
        Receiver r;
        r.resolver.parseReceive(wholeHeader(KZ_DEFAULT_MAX_BODY));
        const QByteArray block(64 * KiB, 'y');
        for (int i = 0; i < 64; ++i) { // 4 MiB of the 16 MiB claimed
            r.resolver.parseReceive(block);
            peak.sample();
        }
        EXPECT_EQ(r.seen.calls, 0);
    }
    EXPECT_LT(peak.growth(), 2 * 4 * MiB + 256 * KiB); // geometric growth at most doubles
    EXPECT_LT(peak.held(), 64 * KiB);
    report("16 MiB claimed, 4 MiB sent", peak.growth());
}

TEST(HostileLimits, EndlessPartialBodiesStayWithinTheBodyLimit)
{
    // Peers that start bodies of the largest allowed size and feed them piece
    // by piece without ever finishing one: the partial bodies together stay
    // within one body limit, however many there are and however long it goes.
    const QByteArray data(60 * KiB, 'p');
    Peak peak;
    {
        Receiver r;
        quint32 offsets[6] = {};
        for (int round = 0; round < 160; ++round) { // 6 x 160 x 60 KiB = 56 MiB sent
            for (quint32 id = 0; id < 6; ++id) {
                const quint32 offset = offsets[id];
                offsets[id] =
                    (offset + 2 * data.size() > KZ_DEFAULT_MAX_BODY) ? 0 : offset + data.size();
                r.resolver.parseReceive(pieceFrame(100 + id, KZ_DEFAULT_MAX_BODY, offset, data));
            }
            peak.sample();
        }
        EXPECT_EQ(r.seen.calls, 0);
    }
    EXPECT_LT(peak.growth(), KZ_DEFAULT_MAX_BODY + 1 * MiB);
    EXPECT_LT(peak.held(), 64 * KiB);
    report("endless partial bodies (56 MiB of pieces)", peak.growth());
}

TEST(HostileLimits, GarbageForeverKeepsMemoryFlat)
{
    // Random bytes salted with sync markers and frame starts, 48 MiB of them.
    QRandomGenerator rng(11);
    QByteArray block(64 * KiB, '\0');
    Peak peak;
    {
        Receiver r;
        for (int i = 0; i < 768; ++i) {
            rng.fillRange(reinterpret_cast<quint32*>(block.data()), block.size() / 4);
            for (int k = 0; k < 256; ++k) {
                const int at = int(rng.bounded(block.size() - 4));
                std::memcpy(block.data() + at, k % 2 ? "KZ\x01\x00" : "KZ\x01\x01", 4);
            }
            r.resolver.parseReceive(block);
            peak.sample();
        }
        r.resolver.parseReceive(QByteArray(64, '\0') + logoutFrame(9)); // ends any candidate
        EXPECT_EQ(r.seen.calls, 1);
    }
    EXPECT_LT(peak.growth(), 1 * MiB);
    EXPECT_LT(peak.held(), 64 * KiB);
    report("48 MiB of garbage", peak.growth());
}

// ---------------------------------------------------------------------------
// Streams
// ---------------------------------------------------------------------------

TEST(HostileStreams, EveryCutGivesTheSameCallbacks)
{
    // Every single cut of the session traffic (which includes a body in
    // pieces), and the full traffic fed one byte at a time.
    const QByteArray session = sessionTraffic();
    const QVector<Call> sessionCalls = callsOf(session);
    ASSERT_EQ(sessionCalls.size(), 4) << describe(sessionCalls).toStdString();
    for (int at = 0; at <= session.size(); ++at)
        ASSERT_EQ(callsOf(cutAt(session, {at})), sessionCalls) << "cut at " << at;

    const QByteArray full = fullTraffic();
    const QVector<Call> fullCalls = callsOf(full);
    QList<QByteArray> bytes;
    for (int i = 0; i < full.size(); ++i) bytes.append(full.mid(i, 1));
    EXPECT_EQ(callsOf(bytes), fullCalls);
}

TEST(HostileStreams, RandomCutsGiveTheSameCallbacks)
{
    const QByteArray full = fullTraffic();
    const QVector<Call> expected = callsOf(full);
    QRandomGenerator rng(7);
    for (int trial = 0; trial < 60; ++trial) {
        QList<int> cuts;
        for (int at = 0; at < full.size(); at += 1 + int(rng.bounded(trial % 2 ? 700 : 40)))
            cuts.append(at);
        ASSERT_EQ(callsOf(cutAt(full, cuts)), expected) << "trial " << trial;
    }
}

TEST(HostileStreams, GarbageBetweenFramesLosesOnlyTheDamagedFrame)
{
    // Twenty messages, one of them a login in three pieces, with random
    // garbage (salted with sync markers) before, between and after them.
    QList<QList<QByteArray>> messages;
    for (int i = 0; i < 20; ++i) {
        if (i == 10) {
            kztest::FrameSink sink;
            KZProtocolResolver r;
            sink.attach(r);
            r.lanLogin(QString(5000, QLatin1Char('L')), QStringLiteral("pw"));
            ASSERT_EQ(sink.frames.size(), 3);
            messages.append(sink.frames);
        } else {
            messages.append({logoutFrame(i)});
        }
    }

    using Damage = void (*)(QByteArray&);
    struct Case
    {
        const char* what;
        int message;
        int frame;
        Damage damage;
    };
    const Case cases[] = {
        {"none", -1, 0, nullptr},
        {"a data byte flipped", 4, 0,
         [](QByteArray& f) { f[f.size() - 6] = char(f[f.size() - 6] ^ 0x40); }},
        {"a header byte flipped", 5, 0, [](QByteArray& f) { f[6] = char(f[6] ^ 0x01); }},
        {"the length grown", 6, 0, [](QByteArray& f) { f[10] = char(f[10] + 3); }},
        {"the tail cut off", 7, 0, [](QByteArray& f) { f.chop(5); }},
        {"the sync marker lost", 8, 0, [](QByteArray& f) { f.remove(0, 1); }},
        {"the frame checksum flipped", 19, 0,
         [](QByteArray& f) { f[f.size() - 1] = char(~f[f.size() - 1]); }},
        {"the middle piece of a split body", 10, 1,
         [](QByteArray& f) { f[40] = char(f[40] ^ 0x10); }},
        {"the last piece of a split body cut", 10, 2, [](QByteArray& f) { f.chop(1); }},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        QRandomGenerator rng(3);
        const auto garbage = [&rng] {
            QByteArray g;
            const int n = int(rng.bounded(48));
            for (int i = 0; i < n; ++i) g += char(rng.bounded(256));
            if (rng.bounded(2)) g.insert(int(rng.bounded(g.size() + 1)), "KZ\x01");
            return g;
        };
        QByteArray soiled;
        QByteArray intact; // the same messages without the damaged one
        for (int m = 0; m < messages.size(); ++m) {
            soiled += garbage();
            for (int f = 0; f < messages[m].size(); ++f) {
                QByteArray frame = messages[m][f];
                if (m == c.message && f == c.frame) c.damage(frame);
                soiled += frame;
            }
            if (m != c.message) intact += messages[m].join();
        }
        soiled += garbage();
        const QVector<Call> expected = callsOf(intact);
        EXPECT_EQ(expected.size(), c.message < 0 ? 20 : 19);
        EXPECT_EQ(callsOf(soiled), expected) << describe(callsOf(soiled)).toStdString();
    }
}
