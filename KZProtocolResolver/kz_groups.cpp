// Groups and ordering: creating groups, the reports of removed, renamed and
// reordered groups, reordering items, and moving users, machines and
// operators between groups.
#include "kzprotocolresolver_p.h"

using namespace kz;

namespace {

// SortGroup reply: strz a, strlist items (no success flag)
struct SortGroup : Layout<strz, strlist>
{
    static constexpr const char* names[] = {"a", "items"};
};

// SortItem request: strz a, strz b, strlist items; the reply adds flag8 ok
struct SortItem : Layout<strz, strz, strlist>
{
    static constexpr const char* names[] = {"a", "b", "items"};
};

// The move messages: strlist names, strz lv1, strz lv2; the reply adds flag8
// ok. Only the method code tells a user, machine or operator move apart.
struct Move : Layout<strlist, strz, strz>
{
    static constexpr const char* names[] = {"names", "lv1", "lv2"};
};

} // namespace

// AddGroup: request u16 n { strz lv1, strlist its lv2 names } | reply (empty)
// Each listed lv1 name carries its list from the map (an empty one if absent).
void KZProtocolResolver::lanAddGroup(const QStringList& lv1Names,
                                     const QMap<QString, QStringList>& lv2ByLv1)
{
    Payload p;
    p << count16(lv1Names.size());
    for (const QString& lv1 : lv1Names) p << strz{lv1} << strlist{lv2ByLv1.value(lv1)};
    d->send(Method::AddGroup, Request, p);
}

void KZProtocolResolver::lanAddGroupResponse() { d->send<Empty>(Method::AddGroup, Reply); }

void KZProtocolResolverPrivate::decodeAddGroup(uchar flag, Reader& r)
{
    if (flag == Reply) return take<Empty>(r, cb.onLanAddGroupResultCB);
    if (flag != Request) return;
    QStringList lv1Names;
    QMap<QString, QStringList> lv2ByLv1;
    r.label("lv1Count");
    r.forEach(r.count16(), [&] {
        r.label("lv1Name");
        lv1Names.append(r.strz());
        r.label("lv2Names");
        lv2ByLv1.insert(lv1Names.last(), r.strlist());
    });
    fire(cb.onLanAddGroupCB, lv1Names, lv2ByLv1);
}

// RemoveLv1Group: reply Text
void KZProtocolResolver::lanRemoveLv1GroupResponse(const QString& a)
{
    d->send<Text>(Method::RemoveLv1Group, Reply, a);
}

void KZProtocolResolverPrivate::decodeRemoveLv1Group(uchar flag, Reader& r)
{
    if (flag == Reply) take<Text>(r, cb.onLanRemoveLv1GroupResultCB);
}

// RemoveLv2Group, UpdateLv1Group: reply Texts2; UpdateLv2Group: reply Texts3
void KZProtocolResolver::lanRemoveLv2GroupResponse(const QString& a, const QString& b)
{
    d->send<Texts2>(Method::RemoveLv2Group, Reply, a, b);
}

void KZProtocolResolverPrivate::decodeRemoveLv2Group(uchar flag, Reader& r)
{
    if (flag == Reply) take<Texts2>(r, cb.onLanRemoveLv2GroupResultCB);
}

void KZProtocolResolver::lanUpdateLv1GroupResponse(const QString& a, const QString& b)
{
    d->send<Texts2>(Method::UpdateLv1Group, Reply, a, b);
}

void KZProtocolResolverPrivate::decodeUpdateLv1Group(uchar flag, Reader& r)
{
    if (flag == Reply) take<Texts2>(r, cb.onLanUpdateLv1GroupResultCB);
}

void KZProtocolResolver::lanUpdateLv2GroupResponse(const QString& a, const QString& b,
                                                   const QString& c)
{
    d->send<Texts3>(Method::UpdateLv2Group, Reply, a, b, c);
}

void KZProtocolResolverPrivate::decodeUpdateLv2Group(uchar flag, Reader& r)
{
    if (flag == Reply) take<Texts3>(r, cb.onLanUpdateLv2GroupResultCB);
}

// SortGroup: reply SortGroup
void KZProtocolResolver::lanSortGroupResponse(const QString& a, const QStringList& items)
{
    d->send<SortGroup>(Method::SortGroup, Reply, a, items);
}

void KZProtocolResolverPrivate::decodeSortGroup(uchar flag, Reader& r)
{
    if (flag == Reply) take<SortGroup>(r, cb.onLanSortGroupResultCB);
}

// SortItem: request SortItem | reply WithOk<SortItem>
void KZProtocolResolver::lanSortItem(const QString& a, const QString& b, const QStringList& items)
{
    d->send<SortItem>(Method::SortItem, Request, a, b, items);
}

void KZProtocolResolver::lanSortItemResponse(bool ok, const QString& a, const QString& b,
                                             const QStringList& items)
{
    d->send<WithOk<SortItem>>(Method::SortItem, Reply, ok, a, b, items);
}

void KZProtocolResolverPrivate::decodeSortItem(uchar flag, Reader& r)
{
    route<SortItem, WithOk<SortItem>>(flag, r, cb.onLanSortItemCB, cb.onLanSortItemResultCB);
}

// MoveUserToGroup, MoveMacToGroup, MoveOperatorToGroup: request Move | reply WithOk<Move>
void KZProtocolResolver::lanMoveUserToGroup(const QStringList& names, const QString& lv1,
                                            const QString& lv2)
{
    d->send<Move>(Method::MoveUserToGroup, Request, names, lv1, lv2);
}

void KZProtocolResolver::lanMoveUserToGroupResponse(bool ok, const QStringList& names,
                                                    const QString& lv1, const QString& lv2)
{
    d->send<WithOk<Move>>(Method::MoveUserToGroup, Reply, ok, names, lv1, lv2);
}

void KZProtocolResolver::lanMoveMacToGroup(const QStringList& macs, const QString& lv1,
                                           const QString& lv2)
{
    d->send<Move>(Method::MoveMacToGroup, Request, macs, lv1, lv2);
}

void KZProtocolResolver::lanMoveMacToGroupResponse(bool ok, const QStringList& macs,
                                                   const QString& lv1, const QString& lv2)
{
    d->send<WithOk<Move>>(Method::MoveMacToGroup, Reply, ok, macs, lv1, lv2);
}

void KZProtocolResolver::lanMoveOperatorToGroup(const QStringList& operators, const QString& lv1,
                                                const QString& lv2)
{
    d->send<Move>(Method::MoveOperatorToGroup, Request, operators, lv1, lv2);
}

void KZProtocolResolver::lanMoveOperatorToGroupResponse(bool ok, const QStringList& operators,
                                                        const QString& lv1, const QString& lv2)
{
    d->send<WithOk<Move>>(Method::MoveOperatorToGroup, Reply, ok, operators, lv1, lv2);
}

void KZProtocolResolverPrivate::decodeMoveUserToGroup(uchar flag, Reader& r)
{
    route<Move, WithOk<Move>>(flag, r, cb.onLanMoveUserToGroupCB, cb.onLanMoveUserToGroupResultCB);
}

void KZProtocolResolverPrivate::decodeMoveMacToGroup(uchar flag, Reader& r)
{
    route<Move, WithOk<Move>>(flag, r, cb.onLanMoveMacToGroupCB, cb.onLanMoveMacToGroupResultCB);
}

void KZProtocolResolverPrivate::decodeMoveOperatorToGroup(uchar flag, Reader& r)
{
    route<Move, WithOk<Move>>(flag, r, cb.onLanMoveOperatorToGroupCB,
                              cb.onLanMoveOperatorToGroupResultCB);
}
