// Users: the user list in its group tree is written here; the other messages
// come from protocol/users.table.
#include "grouping.h"
#include "kzprotocolresolver_p.h"

using namespace kz;

// UserInfo: request u16 n1 { strz lv1, u16 n2 { strz lv2, u16 n3 { user_info
//           without its group names } } } (no reply)
void KZProtocolResolver::lanUserInfo(const QList<user_info>& users)
{
    Payload p(2 + 48 * users.size());
    writeGroupTree(p, users, &user_info::lv1Group, &user_info::lv2Group, &user_info::name,
                   &Field<form_user_info_inTree>::write);
    d->send(Method::UserInfo, Request, p);
}

template <class R>
void KZProtocolResolverPrivate::decodeUserInfoRequest(R& r)
{
    QList<user_info> users;
    r.label("lv1Count");
    r.forEach(r.count16(), [&] {
        r.label("lv1");
        const QString lv1 = r.strz();
        r.label("lv2Count");
        r.forEach(r.count16(), [&] {
            r.label("lv2");
            const QString lv2 = r.strz();
            r.label("userCount");
            r.forEach(r.count16(), [&] {
                users.append(Field<form_user_info_inTree>::read(r));
                users.last().lv1Group = lv1;
                users.last().lv2Group = lv2;
            });
        });
    });
    fire(cb.onLanUserInfoCB, users);
}

#include "kz_users.inc"
