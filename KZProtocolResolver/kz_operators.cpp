// Operators: the operator table (a name list and a map, sent as one list) is
// written here; the other messages come from protocol/operators.table.
#include "kzprotocolresolver_p.h"

using namespace kz;

// OperatorUserInfo: request u16 n { operator_user } (no reply). One entry per
// name of the order list, its record looked up in the table, the list's name
// written in place of the record's own.
void KZProtocolResolver::lanOperatorUserInfo(const QStringList& order,
                                             const QMap<QString, operator_user>& table)
{
    Payload p(2 + 24 * order.size());
    p << count16(order.size());
    for (const QString& name : order) {
        operator_user u = table.value(name);
        u.name = name;
        Field<form_operator_user>::write(p, u);
    }
    d->send(Method::OperatorUserInfo, Request, p);
}

template <class R>
void KZProtocolResolverPrivate::decodeOperatorUserInfoRequest(R& r)
{
    QStringList order;
    QMap<QString, operator_user> table;
    r.label("userCount");
    r.forEach(r.count16(), [&] {
        const operator_user u = Field<form_operator_user>::read(r);
        order.append(u.name);
        table.insert(u.name, u);
    });
    fire(cb.onLanOperatorUserInfoCB, order, table);
}

#include "kz_operators.inc"
