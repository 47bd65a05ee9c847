// Operators: every message through two resolvers, the two replies that
// place ok differently, the operator table built from its order list, bulk
// rows of variants, and decoding of hand-built payloads.
#include "callback_log.h"

#include <functional>

using namespace kztest;
using R = KZProtocolResolver;

namespace {

using Operators =
    Catchers<&R::setLanAddOperatorUserCB, &R::setLanAddOperatorUserResultCB,
             &R::setLanAddOperatorUsersCB, &R::setLanAddOperatorUsersResultCB,
             &R::setLanUpdateOperatorCB, &R::setLanUpdateOperatorResultCB,
             &R::setLanUpdateOperatorUserLoginResultCB, &R::setLanDeleteOperatorUserCB,
             &R::setLanDeleteOperatorUserResultCB, &R::setLanOperatorUserInfoCB>;

const QString s1 = QStringLiteral("op1"), s2 = QStringLiteral("s2"),
              s3 = QString::fromUtf8("\xC3\xBC"), s4, s5 = QStringLiteral("s5");
const QString kA = QStringLiteral("a"), kB = QStringLiteral("b"), kC = QStringLiteral("c"),
              kD = QStringLiteral("d"), kE = QStringLiteral("e");

QVariant row(const QString& a, const QString& b, const QString& c, const QString& d,
             const QString& e)
{
    return QVariantList{a, b, c, d, e};
}

} // namespace

TEST(Operators, EveryMessageRoundTrips)
{
    roundTrip<Operators, &R::setLanAddOperatorUserCB, &R::setLanAddOperatorUserResultCB>(
        "AddOperatorUser", [&](R& r) { r.lanAddOperatorUser(s1, s2, s3, s4, s5); }, s1, s2, s3, s4,
        s5);
    // Three flags in two arrangements, so that any two swapped flags show.
    for (const auto& f : {std::make_tuple(true, false, true), std::make_tuple(false, true, true)}) {
        const bool ok = std::get<0>(f), b1 = std::get<1>(f), b2 = std::get<2>(f);
        roundTrip<Operators, &R::setLanAddOperatorUserResultCB, &R::setLanAddOperatorUserCB>(
            "AddOperatorUserResponse",
            [&](R& r) { r.lanAddOperatorUserResponse(ok, s1, s2, s3, s4, s5, b1, b2); }, ok, s1, s2,
            s3, s4, s5, b1, b2);
        roundTrip<Operators, &R::setLanUpdateOperatorResultCB, &R::setLanUpdateOperatorCB>(
            "UpdateOperatorResponse",
            [&](R& r) { r.lanUpdateOperatorResponse(ok, s1, s2, s3, s4, s5, b1, b2); }, ok, s1, s2,
            s3, s4, s5, b1, b2);
        roundTrip<Operators, &R::setLanUpdateOperatorCB, &R::setLanUpdateOperatorResultCB>(
            "UpdateOperator", [&](R& r) { r.lanUpdateOperator(s1, s2, s3, s4, s5, b1, ok); }, s1,
            s2, s3, s4, s5, b1, ok);
    }
    const QList<QVariant> rows{row(kA, kB, kC, kD, kE), row(s1, s2, s3, s4, s5)};
    roundTrip<Operators, &R::setLanAddOperatorUsersCB, &R::setLanAddOperatorUsersResultCB>(
        "AddOperatorUsers", [&](R& r) { r.lanAddOperatorUsers(rows); }, rows);
    roundTrip<Operators, &R::setLanAddOperatorUsersResultCB, &R::setLanAddOperatorUsersCB>(
        "AddOperatorUsersResponse", [&](R& r) { r.lanAddOperatorUsersResponse(false, rows); },
        false, rows);
    for (bool state : {true, false}) {
        roundTrip<Operators, &R::setLanUpdateOperatorUserLoginResultCB, nullptr>(
            "UpdateOperatorUserLoginResponse",
            [&](R& r) { r.lanUpdateOperatorUserLoginResponse(s1, state); }, s1, state);
    }
    const QStringList names{kA, QString(), kB};
    roundTrip<Operators, &R::setLanDeleteOperatorUserCB, &R::setLanDeleteOperatorUserResultCB>(
        "DeleteOperatorUser", [&](R& r) { r.lanDeleteOperatorUser(names); }, names);
    roundTrip<Operators, &R::setLanDeleteOperatorUserResultCB, &R::setLanDeleteOperatorUserCB>(
        "DeleteOperatorUserResponse", [&](R& r) { r.lanDeleteOperatorUserResponse(true, names); },
        true, names);
    const operator_user full{kA, kB, kC, kD, kE, true, false};
    roundTrip<Operators, &R::setLanOperatorUserInfoCB, nullptr>(
        "OperatorUserInfo",
        [&](R& r) {
            r.lanOperatorUserInfo({kB, kA}, {{kA, full}});
        },
        QStringList{kB, kA},
        QMap<QString, operator_user>{{kA, full},
                                     {kB, operator_user{kB, {}, {}, {}, {}, false, false}}});
}

TEST(Operators, PayloadBytes)
{
    const QString x = QStringLiteral("x");
    operator_user stored{QStringLiteral("other"), kB, {}, {}, {}, false, true};
    const struct
    {
        std::function<void(R&)> send;
        const char* bytes;
    } cases[] = {
        // ok first of the three flags here, last in UpdateOperator's reply.
        {[](R& r) { r.lanAddOperatorUserResponse(true, kA, kB, kC, kD, kE, true, false); },
         "61 00 62 00 63 00 64 00 65 00 00 00 01"},
        {[](R& r) { r.lanUpdateOperatorResponse(true, kA, kB, kC, kD, kE, true, false); },
         "61 00 62 00 63 00 64 00 65 00 00 01 00"},
        {[](R& r) { r.lanUpdateOperator(kA, kB, kC, kD, kE, false, true); },
         "61 00 62 00 63 00 64 00 65 00 01 00"},
        {[&](R& r) { r.lanUpdateOperatorUserLoginResponse(x, false); }, "78 00 01"},
        {[&](R& r) { r.lanOperatorUserInfo({x}, {}); }, "01 00 78 00 00 00 00 00 01 01"},
        // The list's name replaces the record's own; keys not in the list are not sent.
        {[&](R& r) {
             r.lanOperatorUserInfo({x}, {{x, stored}, {kA, stored}});
         },
         "01 00 78 00 62 00 00 00 00 01 00"},
        // Rows: five items as text, missing ones empty.
        {[](R& r) {
             r.lanAddOperatorUsers({QVariant(QVariantList{kA, 5, true})});
         },
         "01 00 61 00 35 00 74 72 75 65 00 00 00"},
        {[](R& r) { r.lanAddOperatorUsersResponse(true, {}); }, "00 00 00"},
    };
    for (const auto& c : cases) EXPECT_EQ(payloadHex(c.send), QString::fromLatin1(c.bytes));
}

TEST(Operators, DecodesHandBuiltPayloads)
{
    // Rows arrive as five texts, whatever variants were sent.
    CallLog log;
    Wire w(&log);
    Operators::attach(w.receiver);
    w.sender.lanAddOperatorUsers({QVariant(QVariantList{kA, 5})});
    w.deliver();
    expectOnly<&R::setLanAddOperatorUsersCB>(
        log, QList<QVariant>{row(kA, QStringLiteral("5"), {}, {}, {})});

    // The login state is true only for a 0 byte.
    expectOnly<&R::setLanUpdateOperatorUserLoginResultCB>(
        dispatchBytes<Operators>(unhex("01 11 1f 00 78 00 ff 00")), QStringLiteral("x"), false);
    // A table announcing two entries that ends inside the first: one record, missing texts
    // empty and missing flags false.
    expectOnly<&R::setLanOperatorUserInfoCB>(
        dispatchBytes<Operators>(unhex("00 11 36 00 02 00 78 00 62")),
        QStringList{QStringLiteral("x")},
        QMap<QString, operator_user>{
            {QStringLiteral("x"),
             operator_user{QStringLiteral("x"), kB, {}, {}, {}, false, false}}});
}
