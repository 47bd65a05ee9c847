// Groups and ordering: creating groups is written here (a list and a map
// travel as one list of pairs); the other messages come from
// protocol/groups.table.
#include "kzprotocolresolver_p.h"

using namespace kz;

// AddGroup: request u16 n { strz lv1, strlist its lv2 names }
// Each listed lv1 name carries its list from the map (an empty one if absent).
void KZProtocolResolver::lanAddGroup(const QStringList& lv1Names,
                                     const QMap<QString, QStringList>& lv2ByLv1)
{
    Payload p;
    p << count16(lv1Names.size());
    for (const QString& lv1 : lv1Names) p << strz{lv1} << strlist{lv2ByLv1.value(lv1)};
    d->send(Method::AddGroup, Request, p);
}

template <class R>
void KZProtocolResolverPrivate::decodeAddGroupRequest(R& r)
{
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

#include "kz_groups.inc"
