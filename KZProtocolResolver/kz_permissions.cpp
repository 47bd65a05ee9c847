// Permissions: querying, adding, editing and deleting per-machine permission
// entries, and the outcome of setting them.
#include "kzprotocolresolver_p.h"

using namespace kz;

namespace {

// mac_user_power: strz key1, strz key2, strz key3, u32 power
mac_user_power readEntry(Reader& r)
{
    mac_user_power e;
    e.key1 = r.strz();
    e.key2 = r.strz();
    e.key3 = r.strz();
    e.power = fctp_user2_power(r.u32());
    return e;
}

} // namespace

// QueryPermission: request strlist keys | reply u16 n { mac_user_power }
void KZProtocolResolver::lanQueryPermission(const QStringList& keys)
{
    d->send(Method::QueryPermission, Request, Payload() << strlist{keys});
}

void KZProtocolResolver::lanQueryPermissionResult(const QList<mac_user_power>& entries)
{
    Payload p(2 + 24 * entries.size());
    p << count16(entries.size());
    for (const mac_user_power& e : entries)
        p << strz{e.key1} << strz{e.key2} << strz{e.key3} << u32{e.power.word()};
    d->send(Method::QueryPermission, Reply, p);
}

void KZProtocolResolverPrivate::decodeQueryPermission(uchar flag, Reader& r)
{
    if (flag == Request) return fire(cb.onLanQueryPermissionCB, r.strlist());
    if (flag != Reply) return;
    const auto entries = r.list<mac_user_power>([&] { return readEntry(r); });
    fire(cb.onLanQueryPermissionResultCB, entries);
}

// AddPermission: request strlist keys, strz target, u32 power (no reply)
void KZProtocolResolver::lanAddPermission(const QStringList& keys, const QString& target,
                                          unsigned int power)
{
    d->send(Method::AddPermission, Request,
            Payload() << strlist{keys} << strz{target} << u32{power});
}

void KZProtocolResolverPrivate::decodeAddPermission(uchar flag, Reader& r)
{
    if (flag != Request) return;
    const QStringList keys = r.strlist();
    const QString target = r.strz();
    const unsigned int power = r.u32();
    fire(cb.onLanAddPermissionCB, keys, target, power);
}

// EditPermission: request groupmap scope, strz target, u32 power (no reply)
void KZProtocolResolver::lanEditPermission(const QMap<QString, QStringList>& scope,
                                           const QString& target, unsigned int power)
{
    d->send(Method::EditPermission, Request,
            Payload() << groupmap{scope} << strz{target} << u32{power});
}

void KZProtocolResolverPrivate::decodeEditPermission(uchar flag, Reader& r)
{
    if (flag != Request) return;
    const QMap<QString, QStringList> scope = r.groupmap();
    const QString target = r.strz();
    const unsigned int power = r.u32();
    fire(cb.onLanEditPermissionCB, scope, target, power);
}

// DelPermission: request groupmap scope (no reply)
void KZProtocolResolver::lanDelPermission(const QMap<QString, QStringList>& scope)
{
    d->send(Method::DelPermission, Request, Payload() << groupmap{scope});
}

void KZProtocolResolverPrivate::decodeDelPermission(uchar flag, Reader& r)
{
    if (flag == Request) fire(cb.onLanDelPermissionCB, r.groupmap());
}

// SetPermission: u16 n { strz key, u32 power }, strz target, flag8 ok
// A result that goes out with the request flag, kept so for the peers that
// expect it there; it is decoded under either flag, as it has one form only.
void KZProtocolResolver::lanSetPermissionResult(bool ok, const QString& target,
                                                const QMap<QString, fctp_user2_power>& powers)
{
    Payload p(2 + 16 * powers.size() + target.size() + 2);
    p << count16(powers.size());
    for (auto it = powers.cbegin(); it != powers.cend(); ++it)
        p << strz{it.key()} << u32{it.value().word()};
    d->send(Method::SetPermission, Request, p << strz{target} << flag8{ok});
}

void KZProtocolResolverPrivate::decodeSetPermission(uchar flag, Reader& r)
{
    if (flag != Request && flag != Reply) return;
    QMap<QString, fctp_user2_power> powers;
    r.forEach(r.count16(), [&] {
        const QString key = r.strz();
        powers.insert(key, fctp_user2_power(r.u32()));
    });
    const QString target = r.strz();
    const bool ok = r.flag8();
    fire(cb.onLanSetPermissionResultCB, ok, target, powers);
}
