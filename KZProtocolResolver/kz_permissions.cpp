// Permissions: the outcome of setting permissions is written here (a result
// that goes out with the request flag and is read under either); the other
// messages come from protocol/permissions.table.
#include "kzprotocolresolver_p.h"

using namespace kz;

// SetPermission: u16 n { strz key, u32 power }, strz target, flag8 ok
void KZProtocolResolver::lanSetPermissionResult(bool ok, const QString& target,
                                                const QMap<QString, fctp_user2_power>& powers)
{
    Payload p(2 + 16 * powers.size() + target.size() + 2);
    p << count16(powers.size());
    for (auto it = powers.cbegin(); it != powers.cend(); ++it)
        p << strz{it.key()} << u32{it.value().word()};
    d->send(Method::SetPermission, Request, p << strz{target} << flag8{ok});
}

template <class R>
void KZProtocolResolverPrivate::decodeSetPermissionReply(R& r)
{
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

#include "kz_permissions.inc"
