// Remote panel: every message through two resolvers, the exact bytes (the
// leading ok, the touch fields, the block count), a 256 KiB block over split
// frames, and blocks whose declared size exceeds the data.
#include "callback_log.h"

#include <functional>

using namespace kztest;
using R = KZProtocolResolver;

namespace {

using Remote = Catchers<&R::setLanRemoteSetModeCB, &R::setLanRemoteSetModeResultCB,
                        &R::setLanRemoteScreenTouchCB, &R::setLanRemoteUpdatePageResultCB,
                        &R::setLanRemoteUpdateAttrResultCB, &R::setLanRemoteUpdateImageResultCB,
                        &R::setLanRemoteUpdateScreenResultCB>;

const QString kMac = QStringLiteral("mac");

/// Bytes that are not all alike, so a shifted or reordered copy shows.
QByteArray pattern(int n)
{
    QByteArray b(n, '\0');
    for (int i = 0; i < n; ++i) b[i] = char((i * 7 + i / 251) & 0xFF);
    return b;
}

/// The three block replies: one shape, three method codes, three callbacks.
template <void (R::*Send)(const QString&, const QByteArray&), auto Set>
struct Block
{
    static constexpr auto send = Send;
    static constexpr auto set = Set;
};
using Attr = Block<&R::lanRemoteUpdateAttrResponse, &R::setLanRemoteUpdateAttrResultCB>;
using Image = Block<&R::lanRemoteUpdateImageResponse, &R::setLanRemoteUpdateImageResultCB>;
using Screen = Block<&R::lanRemoteUpdateScreenResponse, &R::setLanRemoteUpdateScreenResultCB>;

template <class B>
void blockRoundTrip(const QByteArray& data)
{
    roundTrip<Remote, B::set, nullptr>(
        "block", [&](R& r) { (r.*B::send)(kMac, data); }, kMac, data);
}

/// What a block reply with exactly `payload` delivers, for each of the three codes.
template <class B>
void expectBlock(const QByteArray& payload, const QByteArray& data)
{
    const QByteArray header = sentBody([](R& r) { (r.*B::send)(QString(), QByteArray()); }).left(4);
    expectOnly<B::set>(dispatchBytes<Remote>(header + payload), QStringLiteral("m"), data);
}

} // namespace

TEST(Remote, EveryMessageRoundTrips)
{
    roundTrip<Remote, &R::setLanRemoteSetModeCB, &R::setLanRemoteSetModeResultCB>(
        "RemoteSetMode", [](R& r) { r.lanRemoteSetMode(kMac, -2); }, kMac, -2);
    for (bool ok : {true, false})
        roundTrip<Remote, &R::setLanRemoteSetModeResultCB, &R::setLanRemoteSetModeCB>(
            "RemoteSetModeResponse",
            [&](R& r) { r.lanRemoteSetModeResponse(ok, kMac, 1, -2, 2147483647); }, ok, kMac, 1, -2,
            2147483647);
    roundTrip<Remote, &R::setLanRemoteScreenTouchCB, nullptr>(
        "RemoteScreenTouch", [](R& r) { r.lanRemoteScreenTouch(kMac, 255, 0xFFFF, 0); }, kMac,
        static_cast<unsigned char>(255), static_cast<unsigned short>(0xFFFF),
        static_cast<unsigned short>(0));
    roundTrip<Remote, &R::setLanRemoteUpdatePageResultCB, nullptr>(
        "RemoteUpdatePage", [](R& r) { r.lanRemoteUpdatePageResponse(kMac, 0xFFFFFFF0u); }, kMac,
        0xFFFFFFF0u);
    // Zero bytes inside and at the end of a block travel as they are.
    const QByteArray data = pattern(300) + QByteArray(3, '\0');
    blockRoundTrip<Attr>(data);
    blockRoundTrip<Image>(data);
    blockRoundTrip<Screen>(data);
    blockRoundTrip<Screen>(QByteArray());
}

TEST(Remote, LargeBlockCrossesSplitFrames)
{
    const QByteArray screen = pattern(256 * 1024);
    for (int capacity : {0, 512, 65536}) {
        CallLog log;
        Wire w(&log, capacity);
        Remote::attach(w.receiver);
        w.sender.lanRemoteUpdateScreenResponse(kMac, screen);
        EXPECT_GT(w.sink.frames.size(), 1) << capacity;
        w.deliver();
        expectOnly<&R::setLanRemoteUpdateScreenResultCB>(log, kMac, screen);
    }
}

TEST(Remote, PayloadBytes)
{
    const QString m = QStringLiteral("m");
    const struct
    {
        std::function<void(R&)> send;
        const char* header; // flag, 17, method code
        const char* bytes;
    } cases[] = {
        // ok leads this reply
        {[&](R& r) { r.lanRemoteSetModeResponse(true, m, 1, 2, 3); }, "01 11 01 06",
         "00 6d 00 01 00 00 00 02 00 00 00 03 00 00 00"},
        {[&](R& r) { r.lanRemoteSetModeResponse(false, QString(), 0, 0, -1); }, "01 11 01 06",
         "01 00 00 00 00 00 00 00 00 00 ff ff ff ff"},
        {[&](R& r) { r.lanRemoteSetMode(m, 258); }, "00 11 01 06", "6d 00 02 01 00 00"},
        {[&](R& r) { r.lanRemoteScreenTouch(m, 1, 0x0102, 0x0304); }, "00 11 02 06",
         "6d 00 01 02 01 04 03"},
        {[&](R& r) { r.lanRemoteUpdatePageResponse(m, 0x01020304); }, "01 11 03 06",
         "6d 00 04 03 02 01"},
        {[&](R& r) { r.lanRemoteUpdateAttrResponse(m, QByteArray("\x00\xff", 2)); }, "01 11 04 06",
         "6d 00 02 00 00 00 00 ff"},
        {[&](R& r) { r.lanRemoteUpdateImageResponse(QString(), QByteArray("a")); }, "01 11 05 06",
         "00 01 00 00 00 61"},
        {[&](R& r) { r.lanRemoteUpdateScreenResponse(m, QByteArray()); }, "01 11 06 06",
         "6d 00 00 00 00 00"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(hex(sentBody(c.send).left(4)), QString::fromLatin1(c.header)) << c.bytes;
        EXPECT_EQ(payloadHex(c.send), QString::fromLatin1(c.bytes));
    }
}

TEST(Remote, BlockSizeBeyondTheDataIsCutAtItsEnd)
{
    const QByteArray m = QByteArray("m") + '\0';
    const struct
    {
        const char* what;
        QByteArray payload;
        QByteArray data;
    } cases[] = {
        {"count 10, 3 bytes", m + unhex("0a 00 00 00 61 62 63"), "abc"},
        {"count 2^32-1, 1 byte", m + unhex("ff ff ff ff 7a"), "z"},
        {"count 2^31, none", m + unhex("00 00 00 80"), ""},
        {"count itself cut", m + unhex("05 00"), ""},
        {"no count", QByteArray("m"), ""},
        {"count smaller than the data", m + unhex("01 00 00 00 61 62"), "a"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        expectBlock<Attr>(c.payload, c.data);
        expectBlock<Image>(c.payload, c.data);
        expectBlock<Screen>(c.payload, c.data);
    }
}
