// Permissions: the permission word's fields at their bits, every message
// through two resolvers, the set-permission result under the request flag
// (and accepted under the reply flag), exact bytes and hand-built payloads.
#include "callback_log.h"

#include <functional>

using namespace kztest;
using R = KZProtocolResolver;

namespace {

using Permissions = Catchers<&R::setLanQueryPermissionCB, &R::setLanQueryPermissionResultCB,
                             &R::setLanAddPermissionCB, &R::setLanEditPermissionCB,
                             &R::setLanDelPermissionCB, &R::setLanSetPermissionResultCB>;

const QString kT = QStringLiteral("target");
const QStringList kKeys{QStringLiteral("k1"), QStringLiteral("k2")};
const QMap<QString, QStringList> kScope{
    {QStringLiteral("B"), {}}, {QStringLiteral("A"), {QStringLiteral("x"), QStringLiteral("y")}}};

// The fields of a permission word by name, bit 0 first.
std::vector<unsigned> fieldsOf(const fctp_user2_power& p)
{
    return {p.flag0,  p.flag1,  p.flag2,  p.flag3,  p.flag4,  p.flag5,  p.flag6,
            p.flag7,  p.flag8,  p.flag9,  p.flag10, p.flag11, p.flag12, p.flag13,
            p.flag14, p.flag15, p.flag16, p.flag17, p.flag18, p.upper};
}

} // namespace

TEST(Permissions, PowerWordFieldsSitAtTheirBits)
{
    static_assert(sizeof(fctp_user2_power) == 4, "one 32-bit word");
    EXPECT_EQ(fctp_user2_power().word(), 0u);
    for (int bit = 0; bit < 32; ++bit) {
        const quint32 w = 1u << bit;
        const fctp_user2_power p(w);
        EXPECT_EQ(p.word(), w) << bit;
        std::vector<unsigned> expected(20, 0);
        if (bit < 19)
            expected[size_t(bit)] = 1;
        else
            expected[19] = 1u << (bit - 19);
        EXPECT_EQ(fieldsOf(p), expected) << bit;
    }
    // All nineteen flags and nothing else; then the upper field all ones and nothing else.
    std::vector<unsigned> flags(19, 1), upper(19, 0);
    flags.push_back(0);
    upper.push_back(0x1FFF);
    EXPECT_EQ(fieldsOf(fctp_user2_power(0x0007FFFF)), flags);
    EXPECT_EQ(fieldsOf(fctp_user2_power(0xFFF80000)), upper);
}

TEST(Permissions, EveryMessageRoundTrips)
{
    const QList<mac_user_power> entries{
        {QStringLiteral("a"), QStringLiteral("b"), QStringLiteral("c"),
         fctp_user2_power(0xFFF80000)},
        {QString(), QString(), QStringLiteral("z"), fctp_user2_power(0x0007FFFF)}};
    roundTrip<Permissions, &R::setLanQueryPermissionCB, &R::setLanQueryPermissionResultCB>(
        "QueryPermission", [&](R& r) { r.lanQueryPermission(kKeys); }, kKeys);
    roundTrip<Permissions, &R::setLanQueryPermissionResultCB, &R::setLanQueryPermissionCB>(
        "QueryPermissionResult", [&](R& r) { r.lanQueryPermissionResult(entries); }, entries);
    for (unsigned power : {0x0007FFFFu, 0xFFF80000u}) {
        roundTrip<Permissions, &R::setLanAddPermissionCB, nullptr>(
            "AddPermission", [&](R& r) { r.lanAddPermission(kKeys, kT, power); }, kKeys, kT, power);
        roundTrip<Permissions, &R::setLanEditPermissionCB, nullptr>(
            "EditPermission", [&](R& r) { r.lanEditPermission(kScope, kT, power); }, kScope, kT,
            power);
    }
    roundTrip<Permissions, &R::setLanDelPermissionCB, nullptr>(
        "DelPermission", [&](R& r) { r.lanDelPermission(kScope); }, kScope);
    // One form only: sent with the request flag, taken under either flag.
    const QMap<QString, fctp_user2_power> powers{
        {QStringLiteral("m2"), fctp_user2_power(5)},
        {QStringLiteral("m1"), fctp_user2_power(0x80000001)}};
    for (bool ok : {true, false}) {
        roundTrip<Permissions, &R::setLanSetPermissionResultCB, &R::setLanSetPermissionResultCB>(
            "SetPermissionResult", [&](R& r) { r.lanSetPermissionResult(ok, kT, powers); }, ok, kT,
            powers);
    }
}

TEST(Permissions, BytesFlagsAndCodes)
{
    const QString t = QStringLiteral("t"), k = QStringLiteral("k");
    const struct
    {
        std::function<void(R&)> send;
        const char* header;
        const char* bytes;
    } cases[] = {
        {[&](R& r) { r.lanAddPermission({k}, t, 0x0007FFFF); }, "00 11 11 10",
         "01 00 6b 00 74 00 ff ff 07 00"},
        {[&](R& r) { r.lanAddPermission({}, t, 0xFFF80000); }, "00 11 11 10",
         "00 00 74 00 00 00 f8 ff"},
        {[&](R& r) {
             r.lanEditPermission({{k, {t}}}, t, 1);
         },
         "00 11 12 10", "01 00 6b 00 01 00 74 00 74 00 01 00 00 00"},
        {[](R& r) { r.lanDelPermission({}); }, "00 11 13 10", "00 00"},
        {[](R& r) { r.lanQueryPermissionResult({}); }, "01 11 10 10", "00 00"},
        {[&](R& r) {
             r.lanQueryPermissionResult({{k, t, {}, fctp_user2_power(0x01020304)}});
         },
         "01 11 10 10", "01 00 6b 00 74 00 00 04 03 02 01"},
        // Map entries in key order, then target, then ok as the last byte; request flag.
        {[&](R& r) {
             r.lanSetPermissionResult(
                 true, t, {{t, fctp_user2_power(2)}, {k, fctp_user2_power(0x80000001)}});
         },
         "00 11 14 10", "02 00 6b 00 01 00 00 80 74 00 02 00 00 00 74 00 00"},
        {[&](R& r) { r.lanSetPermissionResult(false, t, {}); }, "00 11 14 10", "00 00 74 00 01"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(hex(sentBody(c.send).left(4)), QString::fromLatin1(c.header));
        EXPECT_EQ(payloadHex(c.send), QString::fromLatin1(c.bytes));
    }
}

TEST(Permissions, DecodesHandBuiltPayloads)
{
    // Entries stop at the end of the data; a cut power word reads as 0.
    expectOnly<&R::setLanQueryPermissionResultCB>(
        dispatchBytes<Permissions>(
            unhex("01 11 10 10 05 00 61 00 62 00 63 00 ff ff ff ff 64 00 00 00 07")),
        QList<mac_user_power>{{QStringLiteral("a"), QStringLiteral("b"), QStringLiteral("c"),
                               fctp_user2_power(0xFFFFFFFF)},
                              {QStringLiteral("d"), QString(), QString(), fctp_user2_power(0)}});
    // A result with a negative count, a target and a non-zero ok byte.
    expectOnly<&R::setLanSetPermissionResultCB>(
        dispatchBytes<Permissions>(unhex("00 11 14 10 00 80 74 00 01")), false, QStringLiteral("t"),
        QMap<QString, fctp_user2_power>());
}
