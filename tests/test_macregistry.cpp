// Machine registry: every message through two resolvers, the exact bytes
// (the grouped listing, the code as text, the ok byte last), the listing
// decoder's own index rules on hand-built payloads, and the add-machine code.
#include "callback_log.h"

#include <functional>
#include <ostream>

using namespace kztest;
using R = KZProtocolResolver;

void PrintTo(const mac_info& m, std::ostream* os)
{
    *os << '{' << qPrintable(m.mac) << ',' << qPrintable(m.text2) << ',' << int(m.code) << ','
        << qPrintable(m.text4) << ',' << qPrintable(m.lv1Group) << '/' << qPrintable(m.lv2Group)
        << ',' << m.value7 << '}';
}

namespace {

using Registry = Catchers<&R::setLanMacInfoCB, &R::setLanMacInfoResultCB,
                          &R::setLanAddNewMacResultCB, &R::setLanEditMacCB, &R::setLanDeleteMacCB,
                          &R::setLanDeleteMacResultCB, &R::setLanMacLoginResultCB>;

mac_info mac(const char* id, const char* lv1, const char* lv2, quint8 code = 1, int value7 = 0,
             const char* text2 = "t2", const char* text4 = "t4")
{
    mac_info m;
    m.mac = QString::fromUtf8(id);
    m.text2 = QString::fromUtf8(text2);
    m.code = code;
    m.text4 = QString::fromUtf8(text4);
    m.lv1Group = QString::fromUtf8(lv1);
    m.lv2Group = QString::fromUtf8(lv2);
    m.value7 = value7;
    return m;
}

/// One machine entry of the listing: strz mac, strz text2, u8 code, strz text4, i32 value7.
QByteArray entry(const char* id, quint8 code = 1, const char* text2 = "t", const char* text4 = "u",
                 qint32 value7 = 7)
{
    QByteArray e = QByteArray(id) + '\0' + text2 + '\0' + char(code) + text4 + '\0';
    return e.append(reinterpret_cast<const char*>(&value7), 4); // little-endian host
}

/// What a listing request with exactly `payload` decodes to, as "lv1/lv2/mac/code".
QStringList listing(const QByteArray& payload)
{
    const CallLog log = dispatchBytes<Registry>(unhex("00 11 31 00") + payload);
    using Args = On<&R::setLanMacInfoCB>::Args;
    const Args* args = log.calls.size() == 1 ? std::any_cast<Args>(&log.calls[0].args) : nullptr;
    if (!args) return {QStringLiteral("<not one MacInfo call>")};
    QStringList out;
    for (const mac_info& m : std::get<0>(*args))
        out << QStringLiteral("%1/%2/%3/%4").arg(m.lv1Group, m.lv2Group, m.mac).arg(m.code);
    return out;
}

} // namespace

TEST(MacRegistry, EveryMessageRoundTrips)
{
    const QList<mac_info> macs{mac("m1", "A", "x", 0, -1, "", ""),
                               mac("m\u00e4", "\u5382", "", 255, 2147483647, "two", "four"),
                               mac("m2", "C", "y", 17, 3)};
    roundTrip<Registry, &R::setLanMacInfoCB, &R::setLanMacInfoResultCB>(
        "MacInfo", [&](R& r) { r.lanMacInfo(macs); }, macs);
    roundTrip<Registry, &R::setLanMacInfoCB, &R::setLanMacInfoResultCB>(
        "MacInfo empty", [&](R& r) { r.lanMacInfo({}); }, QList<mac_info>());
    // Under the request flag the empty reply reads as an empty listing.
    roundTrip<Registry, &R::setLanMacInfoResultCB, &R::setLanMacInfoCB>(
        "MacInfoResponse", [&](R& r) { r.lanMacInfoResponse(); });

    // value7 does not travel with a new machine: it arrives as 0.
    mac_info added = mac("m9", "B", "y", 200, 77, "text2", "text4");
    mac_info arrives = added;
    arrives.value7 = 0;
    roundTrip<Registry, &R::setLanAddNewMacResultCB, nullptr>(
        "AddNewMacResponse", [&](R& r) { r.lanAddNewMacResponse(added); }, arrives);

    const QString a = QStringLiteral("m1"), b = QStringLiteral("new");
    roundTrip<Registry, &R::setLanEditMacCB, nullptr>(
        "EditMac", [&](R& r) { r.lanEditMac(a, b); }, a, b);
    const QStringList ids{a, QString(), b};
    roundTrip<Registry, &R::setLanDeleteMacCB, &R::setLanDeleteMacResultCB>(
        "DeleteMac", [&](R& r) { r.lanDeleteMac(ids); }, ids);
    for (bool ok : {true, false})
        roundTrip<Registry, &R::setLanDeleteMacResultCB, &R::setLanDeleteMacCB>(
            "DeleteMacResponse", [&](R& r) { r.lanDeleteMacResponse(ok, ids); }, ok, ids);
    roundTrip<Registry, &R::setLanMacLoginResultCB, nullptr>(
        "MacLoginResponse", [&](R& r) { r.lanMacLoginResponse(a); }, a);
}

TEST(MacRegistry, PayloadBytes)
{
    const struct
    {
        std::function<void(R&)> send;
        const char* header; // flag, 17, method code
        const char* bytes;
    } cases[] = {
        // code as decimal text, third; the groups before text4
        {[](R& r) { r.lanAddNewMacResponse(mac("m", "A", "x", 7, 5)); }, "01 11 30 00",
         "6d 00 74 32 00 37 00 41 00 78 00 74 34 00"},
        {[](R& r) { r.lanAddNewMacResponse(mac("m", "A", "x", 200)); }, "01 11 30 00",
         "6d 00 74 32 00 32 30 30 00 41 00 78 00 74 34 00"},
        // one machine in A/x: the tree, then mac, text2, raw code, text4, value7
        {[](R& r) { r.lanMacInfo({mac("m", "A", "x", 9, 0x01020304)}); }, "00 11 31 00",
         "01 00 41 00 01 00 78 00 01 00 6d 00 74 32 00 09 74 34 00 04 03 02 01"},
        {[](R& r) { r.lanMacInfo({}); }, "00 11 31 00", "00 00"},
        {[](R& r) { r.lanMacInfoResponse(); }, "01 11 31 00", ""},
        {[](R& r) { r.lanEditMac(QStringLiteral("a"), QStringLiteral("b")); }, "00 11 02 04",
         "61 00 62 00"},
        {[](R& r) { r.lanDeleteMac({QStringLiteral("a")}); }, "00 11 03 04", "01 00 61 00"},
        {[](R& r) { r.lanDeleteMacResponse(false, {}); }, "01 11 03 04", "00 00 01"},
        {[](R& r) { r.lanDeleteMacResponse(true, {}); }, "01 11 03 04", "00 00 00"},
        {[](R& r) { r.lanMacLoginResponse(QStringLiteral("m")); }, "01 11 06 04", "6d 00"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(hex(sentBody(c.send).left(4)), QString::fromLatin1(c.header)) << c.bytes;
        EXPECT_EQ(payloadHex(c.send), QString::fromLatin1(c.bytes));
    }
}

TEST(MacRegistry, ListingGroupsInFirstAppearanceOrder)
{
    // Interleaved groups travel grouped as A{x, z}, B{y}; a repeated mac in
    // one pair is sent once (the first wins), in another pair it is kept.
    const QList<mac_info> in{mac("1", "A", "x", 1), mac("2", "B", "y"),    mac("3", "A", "z"),
                             mac("4", "A", "x"),    mac("1", "A", "x", 2), mac("1", "A", "z")};
    const auto e = [](const char* id) { return entry(id, 1, "t2", "t4", 0); };
    const QByteArray want = unhex("02 00") + "A" + '\0' + unhex("02 00") + "x" + '\0' +
                            unhex("02 00") + e("1") + e("4") + "z" + '\0' + unhex("02 00") +
                            e("3") + e("1") + "B" + '\0' + unhex("01 00") + "y" + '\0' +
                            unhex("01 00") + e("2");
    EXPECT_EQ(payloadHex([&](R& r) { r.lanMacInfo(in); }), hex(want));

    CallLog log;
    Wire w(&log);
    Registry::attach(w.receiver);
    w.sender.lanMacInfo(in);
    w.deliver();
    expectOnly<&R::setLanMacInfoCB>(log, QList<mac_info>{in[0], in[3], in[2], in[5], in[1]});
}

TEST(MacRegistry, ListingDecoderIndexRules)
{
    const QByteArray A = QByteArray("A") + '\0', x = QByteArray("x") + '\0',
                     y = QByteArray("y") + '\0';
    const struct
    {
        const char* what;
        QByteArray payload;
        QStringList expected;
    } cases[] = {
        {"first-level count zero",
         unhex("00 00") + A + unhex("01 00") + x + unhex("01 00") + entry("m"),
         {}},
        {"first-level count negative",
         unhex("ff ff") + A + unhex("01 00") + x + unhex("01 00") + entry("m"),
         {}},
        {"repeated mac in a pair skipped, also across a repeated group",
         unhex("02 00") + A + unhex("02 00") + x + unhex("02 00") + entry("m", 1) + entry("m", 2) +
             y + unhex("01 00") + entry("m", 3) + A + unhex("01 00") + x + unhex("02 00") +
             entry("m", 4) + entry("n", 5),
         {"A/x/m/1", "A/y/m/3", "A/x/n/5"}},
        {"negative machine count reads until the data ends",
         unhex("01 00") + A + unhex("01 00") + x + unhex("ff ff") + entry("a") + entry("b") +
             entry("c") + '\0', // with the body's terminating zero, as it arrives
         {"A/x/a/1", "A/x/b/1", "A/x/c/1"}},
        {"negative group count reads until the data ends",
         unhex("01 00") + A + unhex("00 80") + x + unhex("01 00") + entry("a") + y +
             unhex("01 00") + entry("b"),
         {"A/x/a/1", "A/y/b/1"}},
        {"oversized counts stop at the end of the data",
         unhex("05 00") + A + unhex("09 00") + x + unhex("ff 7f") + entry("a"),
         {"A/x/a/1"}},
        {"a machine cut by the end of the data is dropped",
         unhex("01 00") + A + unhex("01 00") + x + unhex("02 00") + entry("a") + entry("b").left(5),
         {"A/x/a/1"}},
        {"zero inner counts",
         unhex("02 00") + A + unhex("00 00") + x + unhex("01 00") + y + unhex("00 00"),
         {}},
        {"nothing at all", QByteArray(), {}},
    };
    for (const auto& c : cases) EXPECT_EQ(listing(c.payload), c.expected) << c.what;
}

TEST(MacRegistry, LastGroupOfMoreThan32767MachinesStillArrives)
{
    // 40000 travels as the u16 0x9C40, which reads back negative: the inner
    // loop then runs to the end of the data, so such a group arrives whole
    // only as the last one (one sent before others reads on into them).
    QList<mac_info> macs;
    for (int i = 0; i < 40000; ++i) macs.append(mac(QByteArray::number(i).constData(), "A", "x"));
    CallLog log;
    Wire w(&log);
    Registry::attach(w.receiver);
    w.sender.lanMacInfo(macs);
    w.deliver();
    expectOnly<&R::setLanMacInfoCB>(log, macs);
}

TEST(MacRegistry, AddNewMacCodeText)
{
    const struct
    {
        const char* text;
        quint8 code;
    } cases[] = {{"7", 7}, {"255", 255}, {"300", 44}, {"-1", 255}, {"abc", 0}, {"", 0}};
    for (const auto& c : cases) {
        const QByteArray payload = QByteArray("m") + '\0' + "t" + '\0' + c.text + '\0' + "A" +
                                   '\0' + "x" + '\0' + "four" + '\0';
        mac_info m = mac("m", "A", "x", c.code, 0, "t", "four");
        expectOnly<&R::setLanAddNewMacResultCB>(
            dispatchBytes<Registry>(unhex("01 11 30 00") + payload), m);
    }
}
