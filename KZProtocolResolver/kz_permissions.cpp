// Permissions: querying, adding, editing and deleting per-machine permission
// entries, and the outcome of setting them.
#include "kzprotocolresolver_p.h"

using namespace kz;

namespace {

// mac_user_power: strz key1, strz key2, strz key3, u32 power
mac_user_power readEntry(Reader& r)
{
    mac_user_power e;
    r.label("key1");
    e.key1 = r.strz();
    r.label("key2");
    e.key2 = r.strz();
    r.label("key3");
    e.key3 = r.strz();
    r.label("power");
    e.power = fctp_user2_power(r.u32());
    return e;
}

void writeEntry(Payload& p, const mac_user_power& e)
{
    p << strz{e.key1} << strz{e.key2} << strz{e.key3} << u32{e.power.word()};
}

// QueryPermission request: strlist keys
struct Keys : Layout<strlist>
{
    static constexpr const char* names[] = {"keys"};
};

// QueryPermission reply: u16 n { mac_user_power }
struct Entries : Layout<listof<record<mac_user_power, writeEntry, readEntry>>>
{
    static constexpr const char* names[] = {"entries"};
};

// AddPermission request: strlist keys, strz target, u32 power
struct AddPermission : Layout<strlist, strz, u32>
{
    static constexpr const char* names[] = {"keys", "target", "power"};
};

// EditPermission request: groupmap scope, strz target, u32 power
struct EditPermission : Layout<groupmap, strz, u32>
{
    static constexpr const char* names[] = {"scope", "target", "power"};
};

// DelPermission request: groupmap scope
struct DelPermission : Layout<groupmap>
{
    static constexpr const char* names[] = {"scope"};
};

} // namespace

// QueryPermission: request strlist keys | reply u16 n { mac_user_power }
void KZProtocolResolver::lanQueryPermission(const QStringList& keys)
{
    d->send<Keys>(Method::QueryPermission, Request, keys);
}

void KZProtocolResolver::lanQueryPermissionResult(const QList<mac_user_power>& entries)
{
    d->send<Entries>(Method::QueryPermission, Reply, entries);
}

void KZProtocolResolverPrivate::decodeQueryPermission(uchar flag, Reader& r)
{
    route<Keys, Entries>(flag, r, cb.onLanQueryPermissionCB, cb.onLanQueryPermissionResultCB);
}

void KZProtocolResolver::lanAddPermission(const QStringList& keys, const QString& target,
                                          unsigned int power)
{
    d->send<AddPermission>(Method::AddPermission, Request, keys, target, power);
}

void KZProtocolResolverPrivate::decodeAddPermission(uchar flag, Reader& r)
{
    if (flag == Request) take<AddPermission>(r, cb.onLanAddPermissionCB);
}

void KZProtocolResolver::lanEditPermission(const QMap<QString, QStringList>& scope,
                                           const QString& target, unsigned int power)
{
    d->send<EditPermission>(Method::EditPermission, Request, scope, target, power);
}

void KZProtocolResolverPrivate::decodeEditPermission(uchar flag, Reader& r)
{
    if (flag == Request) take<EditPermission>(r, cb.onLanEditPermissionCB);
}

void KZProtocolResolver::lanDelPermission(const QMap<QString, QStringList>& scope)
{
    d->send<DelPermission>(Method::DelPermission, Request, scope);
}

void KZProtocolResolverPrivate::decodeDelPermission(uchar flag, Reader& r)
{
    if (flag == Request) take<DelPermission>(r, cb.onLanDelPermissionCB);
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
    r.label("powerCount");
    r.forEach(r.count16(), [&] {
        r.label("key");
        const QString key = r.strz();
        r.label("power");
        powers.insert(key, fctp_user2_power(r.u32()));
    });
    r.label("target");
    const QString target = r.strz();
    r.label("ok");
    const bool ok = r.flag8();
    fire(cb.onLanSetPermissionResultCB, ok, target, powers);
}
