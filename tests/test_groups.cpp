// Groups and ordering: every message through two resolvers, the exact bytes
// of the group tree and the move payloads, the reply-only messages, and
// decoding of hand-built payloads.
#include "callback_log.h"

#include <functional>

using namespace kztest;
using R = KZProtocolResolver;

namespace {

using Groups =
    Catchers<&R::setLanAddGroupCB, &R::setLanAddGroupResultCB, &R::setLanRemoveLv1GroupResultCB,
             &R::setLanRemoveLv2GroupResultCB, &R::setLanUpdateLv1GroupResultCB,
             &R::setLanUpdateLv2GroupResultCB, &R::setLanSortGroupResultCB, &R::setLanSortItemCB,
             &R::setLanSortItemResultCB, &R::setLanMoveUserToGroupCB,
             &R::setLanMoveUserToGroupResultCB, &R::setLanMoveMacToGroupCB,
             &R::setLanMoveMacToGroupResultCB, &R::setLanMoveOperatorToGroupCB,
             &R::setLanMoveOperatorToGroupResultCB>;

const QString kA = QStringLiteral("A"), kB = QStringLiteral("B"), kC = QStringLiteral("C");
const QString kX = QStringLiteral("x"), kY = QStringLiteral("y");
const QStringList kItems{QStringLiteral("i1"), QString(), QString::fromUtf8("\xC3\xA9")};

} // namespace

TEST(Groups, EveryMessageRoundTrips)
{
    // Every listed name maps to its list on arrival, an empty one included.
    const QMap<QString, QStringList> lv2{{kA, {kX, kY}}, {kC, {kX}}};
    roundTrip<Groups, &R::setLanAddGroupCB, &R::setLanAddGroupResultCB>(
        "AddGroup",
        [&](R& r) {
            r.lanAddGroup({kB, kA}, lv2);
        },
        QStringList{kB, kA}, QMap<QString, QStringList>{{kA, {kX, kY}}, {kB, {}}});
    roundTrip<Groups, &R::setLanAddGroupResultCB, &R::setLanAddGroupCB>(
        "AddGroupResponse", [](R& r) { r.lanAddGroupResponse(); });
    roundTrip<Groups, &R::setLanRemoveLv1GroupResultCB, nullptr>(
        "RemoveLv1GroupResponse", [&](R& r) { r.lanRemoveLv1GroupResponse(kA); }, kA);
    roundTrip<Groups, &R::setLanRemoveLv2GroupResultCB, nullptr>(
        "RemoveLv2GroupResponse", [&](R& r) { r.lanRemoveLv2GroupResponse(kA, kB); }, kA, kB);
    roundTrip<Groups, &R::setLanUpdateLv1GroupResultCB, nullptr>(
        "UpdateLv1GroupResponse", [&](R& r) { r.lanUpdateLv1GroupResponse(kA, kB); }, kA, kB);
    roundTrip<Groups, &R::setLanUpdateLv2GroupResultCB, nullptr>(
        "UpdateLv2GroupResponse", [&](R& r) { r.lanUpdateLv2GroupResponse(kA, kB, kC); }, kA, kB,
        kC);
    roundTrip<Groups, &R::setLanSortGroupResultCB, nullptr>(
        "SortGroupResponse", [&](R& r) { r.lanSortGroupResponse(kA, kItems); }, kA, kItems);
    roundTrip<Groups, &R::setLanSortItemCB, &R::setLanSortItemResultCB>(
        "SortItem", [&](R& r) { r.lanSortItem(kA, kB, kItems); }, kA, kB, kItems);
    for (bool ok : {true, false}) {
        roundTrip<Groups, &R::setLanSortItemResultCB, &R::setLanSortItemCB>(
            "SortItemResponse", [&](R& r) { r.lanSortItemResponse(ok, kA, kB, kItems); }, ok, kA,
            kB, kItems);
        roundTrip<Groups, &R::setLanMoveUserToGroupResultCB, &R::setLanMoveUserToGroupCB>(
            "MoveUserToGroupResponse",
            [&](R& r) { r.lanMoveUserToGroupResponse(ok, kItems, kA, kB); }, ok, kItems, kA, kB);
        roundTrip<Groups, &R::setLanMoveMacToGroupResultCB, &R::setLanMoveMacToGroupCB>(
            "MoveMacToGroupResponse",
            [&](R& r) { r.lanMoveMacToGroupResponse(ok, kItems, kA, kB); }, ok, kItems, kA, kB);
        roundTrip<Groups, &R::setLanMoveOperatorToGroupResultCB, &R::setLanMoveOperatorToGroupCB>(
            "MoveOperatorToGroupResponse",
            [&](R& r) { r.lanMoveOperatorToGroupResponse(ok, kItems, kA, kB); }, ok, kItems, kA,
            kB);
    }
    roundTrip<Groups, &R::setLanMoveUserToGroupCB, &R::setLanMoveUserToGroupResultCB>(
        "MoveUserToGroup", [&](R& r) { r.lanMoveUserToGroup(kItems, kA, kB); }, kItems, kA, kB);
    roundTrip<Groups, &R::setLanMoveMacToGroupCB, &R::setLanMoveMacToGroupResultCB>(
        "MoveMacToGroup", [&](R& r) { r.lanMoveMacToGroup(kItems, kA, kB); }, kItems, kA, kB);
    roundTrip<Groups, &R::setLanMoveOperatorToGroupCB, &R::setLanMoveOperatorToGroupResultCB>(
        "MoveOperatorToGroup", [&](R& r) { r.lanMoveOperatorToGroup(kItems, kA, kB); }, kItems, kA,
        kB);
}

TEST(Groups, PayloadBytes)
{
    const QMap<QString, QStringList> lv2{{kA, {kX, kY}}, {kC, {kY}}}; // C is not listed: not sent
    const QStringList m1{QStringLiteral("m1")};
    const struct
    {
        std::function<void(R&)> send;
        const char* bytes;
    } cases[] = {
        {[&](R& r) {
             r.lanAddGroup({kA, kB}, lv2);
         },
         "02 00 41 00 02 00 78 00 79 00 42 00 00 00"},
        {[&](R& r) { r.lanAddGroup({}, lv2); }, "00 00"},
        {[&](R& r) { r.lanAddGroupResponse(); }, ""},
        {[&](R& r) { r.lanMoveMacToGroupResponse(true, m1, kA, kX); },
         "01 00 6d 31 00 41 00 78 00 00"},
        {[&](R& r) { r.lanMoveMacToGroupResponse(false, m1, kA, kX); },
         "01 00 6d 31 00 41 00 78 00 01"},
        {[&](R& r) { r.lanMoveUserToGroup(m1, kA, kX); }, "01 00 6d 31 00 41 00 78 00"},
        {[&](R& r) { r.lanSortItemResponse(false, kA, kB, {kX}); }, "41 00 42 00 01 00 78 00 01"},
        {[&](R& r) { r.lanSortGroupResponse(kA, {kX}); }, "41 00 01 00 78 00"},
        {[&](R& r) { r.lanUpdateLv2GroupResponse(kA, kB, kC); }, "41 00 42 00 43 00"},
    };
    for (const auto& c : cases) EXPECT_EQ(payloadHex(c.send), QString::fromLatin1(c.bytes));
}

TEST(Groups, FlagsAndCodesOnTheWire)
{
    const QStringList m1{QStringLiteral("m1")};
    const struct
    {
        std::function<void(R&)> send;
        const char* header; // flag, type, code
    } cases[] = {
        {[](R& r) { r.lanAddGroupResponse(); }, "01 11 10 00"},
        {[&](R& r) { r.lanRemoveLv1GroupResponse(kA); }, "01 11 11 00"},
        {[&](R& r) { r.lanSortGroupResponse(kA, m1); }, "01 11 15 00"},
        {[&](R& r) { r.lanMoveUserToGroup(m1, kA, kB); }, "00 11 37 00"},
        {[&](R& r) { r.lanMoveMacToGroup(m1, kA, kB); }, "00 11 38 00"},
        {[&](R& r) { r.lanMoveOperatorToGroupResponse(true, m1, kA, kB); }, "01 11 39 00"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(hex(sentBody(c.send).left(4)), QString::fromLatin1(c.header));
    // An empty payload is the body's single zero byte.
    EXPECT_EQ(sentBody([](R& r) { r.lanAddGroupResponse(); }).size(), 5);
}

TEST(Groups, DecodesHandBuiltPayloads)
{
    // A sort reply whose ok byte is not 0 is a failure.
    expectOnly<&R::setLanSortItemResultCB>(
        dispatchBytes<Groups>(unhex("01 11 16 00 41 00 42 00 00 00 05 00")), false, kA, kB,
        QStringList());
    // Group tree announcing three names but holding one and a half.
    expectOnly<&R::setLanAddGroupCB>(
        dispatchBytes<Groups>(unhex("00 11 10 00 03 00 41 00 02 00 78 00 79 00 42 00 05")),
        QStringList{kA, kB}, QMap<QString, QStringList>{{kA, {kX, kY}}, {kB, {}}});
    // A move cut inside its list keeps the names read so far and empty groups.
    expectOnly<&R::setLanMoveOperatorToGroupCB>(
        dispatchBytes<Groups>(unhex("00 11 39 00 05 00 41 00 42")), QStringList{kA, kB}, QString(),
        QString());
}
