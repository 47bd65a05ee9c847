// Operators: adding them one by one or in bulk, editing and deleting them,
// their login state, and the operator table.
#include "kzprotocolresolver_p.h"

#include <QVariant>

using namespace kz;

namespace {

// operator_user: strz name, text2, text3, text4, text5 (its texts),
//                then flag8 flagA, flag8 flagB
void writeTexts(Payload& p, const operator_user& u)
{
    p << strz{u.name} << strz{u.text2} << strz{u.text3} << strz{u.text4} << strz{u.text5};
}

void writeOperator(Payload& p, const operator_user& u)
{
    writeTexts(p, u);
    p << flag8{u.flagA} << flag8{u.flagB};
}

operator_user readTexts(Reader& r)
{
    operator_user u;
    u.name = r.strz();
    u.text2 = r.strz();
    u.text3 = r.strz();
    u.text4 = r.strz();
    u.text5 = r.strz();
    return u;
}

operator_user readOperator(Reader& r)
{
    operator_user u = readTexts(r);
    u.flagA = r.flag8();
    u.flagB = r.flag8();
    return u;
}

operator_user operatorOf(const QString& s1, const QString& s2, const QString& s3, const QString& s4,
                         const QString& s5, bool b1 = false, bool b2 = false)
{
    return operator_user{s1, s2, s3, s4, s5, b1, b2};
}

// Bulk rows: u16 n { strz of each of the first five items of the row's
// variant list }. Missing items go out as empty text; a row comes back as a
// QVariantList of five QStrings.
Payload rowsPayload(const QList<QVariant>& rows)
{
    Payload p;
    p << count16(rows.size());
    for (const QVariant& row : rows) {
        const QVariantList items = row.toList();
        for (int i = 0; i < 5; ++i) p << strz{items.value(i).toString()};
    }
    return p;
}

QList<QVariant> readRows(Reader& r)
{
    QList<QVariant> rows;
    r.forEach(r.count16(), [&] {
        const operator_user u = readTexts(r);
        rows.append(QVariant(QVariantList{u.name, u.text2, u.text3, u.text4, u.text5}));
    });
    return rows;
}

} // namespace

// AddOperatorUser: request strz s1..s5
//                  reply   strz s1..s5, flag8 ok, flag8 b1, flag8 b2 (ok first, unlike
//                  UpdateOperator: kept as the peers expect it)
void KZProtocolResolver::lanAddOperatorUser(const QString& s1, const QString& s2, const QString& s3,
                                            const QString& s4, const QString& s5)
{
    Payload p;
    writeTexts(p, operatorOf(s1, s2, s3, s4, s5));
    d->send(Method::AddOperatorUser, Request, p);
}

void KZProtocolResolver::lanAddOperatorUserResponse(bool ok, const QString& s1, const QString& s2,
                                                    const QString& s3, const QString& s4,
                                                    const QString& s5, bool b1, bool b2)
{
    Payload p;
    writeTexts(p, operatorOf(s1, s2, s3, s4, s5));
    d->send(Method::AddOperatorUser, Reply, p << flag8{ok} << flag8{b1} << flag8{b2});
}

void KZProtocolResolverPrivate::decodeAddOperatorUser(uchar flag, Reader& r)
{
    const operator_user u = readTexts(r);
    if (flag == Request)
        fire(cb.onLanAddOperatorUserCB, u.name, u.text2, u.text3, u.text4, u.text5);
    else if (flag == Reply) {
        const bool ok = r.flag8();
        const bool b1 = r.flag8();
        const bool b2 = r.flag8();
        fire(cb.onLanAddOperatorUserResultCB, ok, u.name, u.text2, u.text3, u.text4, u.text5, b1,
             b2);
    }
}

// AddOperatorUsers: request rows | reply rows, flag8 ok
void KZProtocolResolver::lanAddOperatorUsers(const QList<QVariant>& rows)
{
    d->send(Method::AddOperatorUsers, Request, rowsPayload(rows));
}

void KZProtocolResolver::lanAddOperatorUsersResponse(bool ok, const QList<QVariant>& rows)
{
    d->send(Method::AddOperatorUsers, Reply, rowsPayload(rows) << flag8{ok});
}

void KZProtocolResolverPrivate::decodeAddOperatorUsers(uchar flag, Reader& r)
{
    const QList<QVariant> rows = readRows(r);
    if (flag == Request)
        fire(cb.onLanAddOperatorUsersCB, rows);
    else if (flag == Reply) {
        const bool ok = r.flag8();
        fire(cb.onLanAddOperatorUsersResultCB, ok, rows);
    }
}

// UpdateOperator: request strz s1..s5, flag8 b1, flag8 b2 | reply the same, flag8 ok
void KZProtocolResolver::lanUpdateOperator(const QString& s1, const QString& s2, const QString& s3,
                                           const QString& s4, const QString& s5, bool b1, bool b2)
{
    Payload p;
    writeOperator(p, operatorOf(s1, s2, s3, s4, s5, b1, b2));
    d->send(Method::UpdateOperator, Request, p);
}

void KZProtocolResolver::lanUpdateOperatorResponse(bool ok, const QString& s1, const QString& s2,
                                                   const QString& s3, const QString& s4,
                                                   const QString& s5, bool b1, bool b2)
{
    Payload p;
    writeOperator(p, operatorOf(s1, s2, s3, s4, s5, b1, b2));
    d->send(Method::UpdateOperator, Reply, p << flag8{ok});
}

void KZProtocolResolverPrivate::decodeUpdateOperator(uchar flag, Reader& r)
{
    const operator_user u = readOperator(r);
    if (flag == Request)
        fire(cb.onLanUpdateOperatorCB, u.name, u.text2, u.text3, u.text4, u.text5, u.flagA,
             u.flagB);
    else if (flag == Reply) {
        const bool ok = r.flag8();
        fire(cb.onLanUpdateOperatorResultCB, ok, u.name, u.text2, u.text3, u.text4, u.text5,
             u.flagA, u.flagB);
    }
}

// UpdateOperatorUserLogin: reply strz name, flag8 state
void KZProtocolResolver::lanUpdateOperatorUserLoginResponse(const QString& name, bool state)
{
    d->send(Method::UpdateOperatorUserLogin, Reply, Payload() << strz{name} << flag8{state});
}

void KZProtocolResolverPrivate::decodeUpdateOperatorUserLogin(uchar flag, Reader& r)
{
    if (flag != Reply) return;
    const QString name = r.strz();
    const bool state = r.flag8();
    fire(cb.onLanUpdateOperatorUserLoginResultCB, name, state);
}

// DeleteOperatorUser: request strlist names | reply strlist names, flag8 ok
void KZProtocolResolver::lanDeleteOperatorUser(const QStringList& names)
{
    d->send(Method::DeleteOperatorUser, Request, Payload() << strlist{names});
}

void KZProtocolResolver::lanDeleteOperatorUserResponse(bool ok, const QStringList& names)
{
    d->send(Method::DeleteOperatorUser, Reply, Payload() << strlist{names} << flag8{ok});
}

void KZProtocolResolverPrivate::decodeDeleteOperatorUser(uchar flag, Reader& r)
{
    const QStringList names = r.strlist();
    if (flag == Request)
        fire(cb.onLanDeleteOperatorUserCB, names);
    else if (flag == Reply) {
        const bool ok = r.flag8();
        fire(cb.onLanDeleteOperatorUserResultCB, ok, names);
    }
}

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
        writeOperator(p, u);
    }
    d->send(Method::OperatorUserInfo, Request, p);
}

void KZProtocolResolverPrivate::decodeOperatorUserInfo(uchar flag, Reader& r)
{
    if (flag != Request) return;
    QStringList order;
    QMap<QString, operator_user> table;
    r.forEach(r.count16(), [&] {
        const operator_user u = readOperator(r);
        order.append(u.name);
        table.insert(u.name, u);
    });
    fire(cb.onLanOperatorUserInfoCB, order, table);
}
