// Groups and ordering: creating groups, the reports of removed, renamed and
// reordered groups, reordering items, and moving users, machines and
// operators between groups.
#include "kzprotocolresolver_p.h"

using namespace kz;

namespace {

// The move messages: strlist names, strz lv1, strz lv2 (the reply adds flag8 ok).
// Only the method code tells a user, machine or operator move apart.
Payload movePayload(const QStringList& names, const QString& lv1, const QString& lv2)
{
    Payload p;
    p << strlist{names} << strz{lv1} << strz{lv2};
    return p;
}

void decodeMove(const KZProtocolResolverPrivate& d, uchar flag, Reader& r,
                KZProtocolResolver::LanMoveUserToGroupCB request,
                KZProtocolResolver::LanMoveUserToGroupResultCB reply)
{
    const QStringList names = r.strlist();
    const QString lv1 = r.strz();
    const QString lv2 = r.strz();
    if (flag == Request)
        d.fire(request, names, lv1, lv2);
    else if (flag == Reply) {
        const bool ok = r.flag8();
        d.fire(reply, ok, names, lv1, lv2);
    }
}

} // namespace

// AddGroup: request u16 n { strz lv1, strlist its lv2 names } | reply (empty)
void KZProtocolResolver::lanAddGroup(const QStringList& lv1Names,
                                     const QMap<QString, QStringList>& lv2ByLv1)
{
    Payload p;
    p << count16(lv1Names.size());
    for (const QString& lv1 : lv1Names) p << strz{lv1} << strlist{lv2ByLv1.value(lv1)};
    d->send(Method::AddGroup, Request, p);
}

void KZProtocolResolver::lanAddGroupResponse() { d->send(Method::AddGroup, Reply, Payload()); }

void KZProtocolResolverPrivate::decodeAddGroup(uchar flag, Reader& r)
{
    if (flag == Reply) return fire(cb.onLanAddGroupResultCB);
    if (flag != Request) return;
    QStringList lv1Names;
    QMap<QString, QStringList> lv2ByLv1;
    r.forEach(r.count16(), [&] {
        lv1Names.append(r.strz());
        lv2ByLv1.insert(lv1Names.last(), r.strlist());
    });
    fire(cb.onLanAddGroupCB, lv1Names, lv2ByLv1);
}

// RemoveLv1Group: reply strz a
void KZProtocolResolver::lanRemoveLv1GroupResponse(const QString& a)
{
    d->send(Method::RemoveLv1Group, Reply, Payload() << strz{a});
}

void KZProtocolResolverPrivate::decodeRemoveLv1Group(uchar flag, Reader& r)
{
    if (flag == Reply) fire(cb.onLanRemoveLv1GroupResultCB, r.strz());
}

// RemoveLv2Group: reply strz a, strz b
void KZProtocolResolver::lanRemoveLv2GroupResponse(const QString& a, const QString& b)
{
    d->send(Method::RemoveLv2Group, Reply, Payload() << strz{a} << strz{b});
}

void KZProtocolResolverPrivate::decodeRemoveLv2Group(uchar flag, Reader& r)
{
    if (flag != Reply) return;
    const QString a = r.strz();
    const QString b = r.strz();
    fire(cb.onLanRemoveLv2GroupResultCB, a, b);
}

// UpdateLv1Group: reply strz a, strz b
void KZProtocolResolver::lanUpdateLv1GroupResponse(const QString& a, const QString& b)
{
    d->send(Method::UpdateLv1Group, Reply, Payload() << strz{a} << strz{b});
}

void KZProtocolResolverPrivate::decodeUpdateLv1Group(uchar flag, Reader& r)
{
    if (flag != Reply) return;
    const QString a = r.strz();
    const QString b = r.strz();
    fire(cb.onLanUpdateLv1GroupResultCB, a, b);
}

// UpdateLv2Group: reply strz a, strz b, strz c
void KZProtocolResolver::lanUpdateLv2GroupResponse(const QString& a, const QString& b,
                                                   const QString& c)
{
    d->send(Method::UpdateLv2Group, Reply, Payload() << strz{a} << strz{b} << strz{c});
}

void KZProtocolResolverPrivate::decodeUpdateLv2Group(uchar flag, Reader& r)
{
    if (flag != Reply) return;
    const QString a = r.strz();
    const QString b = r.strz();
    const QString c = r.strz();
    fire(cb.onLanUpdateLv2GroupResultCB, a, b, c);
}

// SortGroup: reply strz a, strlist items (no success flag)
void KZProtocolResolver::lanSortGroupResponse(const QString& a, const QStringList& items)
{
    d->send(Method::SortGroup, Reply, Payload() << strz{a} << strlist{items});
}

void KZProtocolResolverPrivate::decodeSortGroup(uchar flag, Reader& r)
{
    if (flag != Reply) return;
    const QString a = r.strz();
    const QStringList items = r.strlist();
    fire(cb.onLanSortGroupResultCB, a, items);
}

// SortItem: request strz a, strz b, strlist items | reply the same, flag8 ok
void KZProtocolResolver::lanSortItem(const QString& a, const QString& b, const QStringList& items)
{
    d->send(Method::SortItem, Request, Payload() << strz{a} << strz{b} << strlist{items});
}

void KZProtocolResolver::lanSortItemResponse(bool ok, const QString& a, const QString& b,
                                             const QStringList& items)
{
    d->send(Method::SortItem, Reply,
            Payload() << strz{a} << strz{b} << strlist{items} << flag8{ok});
}

void KZProtocolResolverPrivate::decodeSortItem(uchar flag, Reader& r)
{
    const QString a = r.strz();
    const QString b = r.strz();
    const QStringList items = r.strlist();
    if (flag == Request)
        fire(cb.onLanSortItemCB, a, b, items);
    else if (flag == Reply) {
        const bool ok = r.flag8();
        fire(cb.onLanSortItemResultCB, ok, a, b, items);
    }
}

// MoveUserToGroup, MoveMacToGroup, MoveOperatorToGroup: the move payload
void KZProtocolResolver::lanMoveUserToGroup(const QStringList& names, const QString& lv1,
                                            const QString& lv2)
{
    d->send(Method::MoveUserToGroup, Request, movePayload(names, lv1, lv2));
}

void KZProtocolResolver::lanMoveUserToGroupResponse(bool ok, const QStringList& names,
                                                    const QString& lv1, const QString& lv2)
{
    d->send(Method::MoveUserToGroup, Reply, movePayload(names, lv1, lv2) << flag8{ok});
}

void KZProtocolResolver::lanMoveMacToGroup(const QStringList& macs, const QString& lv1,
                                           const QString& lv2)
{
    d->send(Method::MoveMacToGroup, Request, movePayload(macs, lv1, lv2));
}

void KZProtocolResolver::lanMoveMacToGroupResponse(bool ok, const QStringList& macs,
                                                   const QString& lv1, const QString& lv2)
{
    d->send(Method::MoveMacToGroup, Reply, movePayload(macs, lv1, lv2) << flag8{ok});
}

void KZProtocolResolver::lanMoveOperatorToGroup(const QStringList& operators, const QString& lv1,
                                                const QString& lv2)
{
    d->send(Method::MoveOperatorToGroup, Request, movePayload(operators, lv1, lv2));
}

void KZProtocolResolver::lanMoveOperatorToGroupResponse(bool ok, const QStringList& operators,
                                                        const QString& lv1, const QString& lv2)
{
    d->send(Method::MoveOperatorToGroup, Reply, movePayload(operators, lv1, lv2) << flag8{ok});
}

void KZProtocolResolverPrivate::decodeMoveUserToGroup(uchar flag, Reader& r)
{
    decodeMove(*this, flag, r, cb.onLanMoveUserToGroupCB, cb.onLanMoveUserToGroupResultCB);
}

void KZProtocolResolverPrivate::decodeMoveMacToGroup(uchar flag, Reader& r)
{
    decodeMove(*this, flag, r, cb.onLanMoveMacToGroupCB, cb.onLanMoveMacToGroupResultCB);
}

void KZProtocolResolverPrivate::decodeMoveOperatorToGroup(uchar flag, Reader& r)
{
    decodeMove(*this, flag, r, cb.onLanMoveOperatorToGroupCB, cb.onLanMoveOperatorToGroupResultCB);
}
