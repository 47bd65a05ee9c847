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
    r.label("name");
    u.name = r.strz();
    r.label("text2");
    u.text2 = r.strz();
    r.label("text3");
    u.text3 = r.strz();
    r.label("text4");
    u.text4 = r.strz();
    r.label("text5");
    u.text5 = r.strz();
    return u;
}

operator_user readOperator(Reader& r)
{
    operator_user u = readTexts(r);
    r.label("flagA");
    u.flagA = r.flag8();
    r.label("flagB");
    u.flagB = r.flag8();
    return u;
}

// Bulk rows: u16 n { strz of each of the first five items of the row's
// variant list }. Missing items go out as empty text; a row comes back as a
// QVariantList of five QStrings.
void writeRow(Payload& p, const QVariant& row)
{
    const QVariantList items = row.toList();
    for (int i = 0; i < 5; ++i) p << strz{items.value(i).toString()};
}

QVariant readRow(Reader& r)
{
    const operator_user u = readTexts(r);
    return QVariant(QVariantList{u.name, u.text2, u.text3, u.text4, u.text5});
}

// AddOperatorUser request: strz s1..s5
struct OperatorTexts : Layout<strz, strz, strz, strz, strz>
{
    static constexpr const char* names[] = {"s1", "s2", "s3", "s4", "s5"};
};

// AddOperatorUser reply: strz s1..s5, flag8 ok, flag8 b1, flag8 b2
struct AddOperatorUserResult
    : Layout<strz, strz, strz, strz, strz, flag8, flag8, flag8>::Api<5, 0, 1, 2, 3, 4, 6, 7>
{
    static constexpr const char* names[] = {"s1", "s2", "s3", "s4", "s5", "ok", "b1", "b2"};
};

// AddOperatorUsers request: u16 n { row }; the reply adds flag8 ok
struct Rows : Layout<listof<record<QVariant, writeRow, readRow>>>
{
    static constexpr const char* names[] = {"rows"};
};

// UpdateOperator request: operator_user as strz s1..s5, flag8 b1, flag8 b2
struct UpdateOperator : Layout<strz, strz, strz, strz, strz, flag8, flag8>
{
    static constexpr const char* names[] = {"s1", "s2", "s3", "s4", "s5", "b1", "b2"};
};

// UpdateOperatorUserLogin reply: strz name, flag8 state
struct OperatorLogin : Layout<strz, flag8>
{
    static constexpr const char* names[] = {"name", "state"};
};

} // namespace

// AddOperatorUser: request strz s1..s5
//                  reply   strz s1..s5, flag8 ok, flag8 b1, flag8 b2 (ok ahead of the two
//                  flags, unlike UpdateOperator: kept as the peers expect it)
void KZProtocolResolver::lanAddOperatorUser(const QString& s1, const QString& s2, const QString& s3,
                                            const QString& s4, const QString& s5)
{
    d->send<OperatorTexts>(Method::AddOperatorUser, Request, s1, s2, s3, s4, s5);
}

void KZProtocolResolver::lanAddOperatorUserResponse(bool ok, const QString& s1, const QString& s2,
                                                    const QString& s3, const QString& s4,
                                                    const QString& s5, bool b1, bool b2)
{
    d->send<AddOperatorUserResult>(Method::AddOperatorUser, Reply, ok, s1, s2, s3, s4, s5, b1, b2);
}

void KZProtocolResolverPrivate::decodeAddOperatorUser(uchar flag, Reader& r)
{
    route<OperatorTexts, AddOperatorUserResult>(flag, r, cb.onLanAddOperatorUserCB,
                                                cb.onLanAddOperatorUserResultCB);
}

// AddOperatorUsers: request rows | reply rows, flag8 ok
void KZProtocolResolver::lanAddOperatorUsers(const QList<QVariant>& rows)
{
    d->send<Rows>(Method::AddOperatorUsers, Request, rows);
}

void KZProtocolResolver::lanAddOperatorUsersResponse(bool ok, const QList<QVariant>& rows)
{
    d->send<WithOk<Rows>>(Method::AddOperatorUsers, Reply, ok, rows);
}

void KZProtocolResolverPrivate::decodeAddOperatorUsers(uchar flag, Reader& r)
{
    route<Rows, WithOk<Rows>>(flag, r, cb.onLanAddOperatorUsersCB,
                              cb.onLanAddOperatorUsersResultCB);
}

// UpdateOperator: request operator_user | reply operator_user, flag8 ok
void KZProtocolResolver::lanUpdateOperator(const QString& s1, const QString& s2, const QString& s3,
                                           const QString& s4, const QString& s5, bool b1, bool b2)
{
    d->send<UpdateOperator>(Method::UpdateOperator, Request, s1, s2, s3, s4, s5, b1, b2);
}

void KZProtocolResolver::lanUpdateOperatorResponse(bool ok, const QString& s1, const QString& s2,
                                                   const QString& s3, const QString& s4,
                                                   const QString& s5, bool b1, bool b2)
{
    d->send<WithOk<UpdateOperator>>(Method::UpdateOperator, Reply, ok, s1, s2, s3, s4, s5, b1, b2);
}

void KZProtocolResolverPrivate::decodeUpdateOperator(uchar flag, Reader& r)
{
    route<UpdateOperator, WithOk<UpdateOperator>>(flag, r, cb.onLanUpdateOperatorCB,
                                                  cb.onLanUpdateOperatorResultCB);
}

// UpdateOperatorUserLogin: reply strz name, flag8 state
void KZProtocolResolver::lanUpdateOperatorUserLoginResponse(const QString& name, bool state)
{
    d->send<OperatorLogin>(Method::UpdateOperatorUserLogin, Reply, name, state);
}

void KZProtocolResolverPrivate::decodeUpdateOperatorUserLogin(uchar flag, Reader& r)
{
    if (flag == Reply) take<OperatorLogin>(r, cb.onLanUpdateOperatorUserLoginResultCB);
}

// DeleteOperatorUser: request Names | reply WithOk<Names>
void KZProtocolResolver::lanDeleteOperatorUser(const QStringList& names)
{
    d->send<Names>(Method::DeleteOperatorUser, Request, names);
}

void KZProtocolResolver::lanDeleteOperatorUserResponse(bool ok, const QStringList& names)
{
    d->send<WithOk<Names>>(Method::DeleteOperatorUser, Reply, ok, names);
}

void KZProtocolResolverPrivate::decodeDeleteOperatorUser(uchar flag, Reader& r)
{
    route<Names, WithOk<Names>>(flag, r, cb.onLanDeleteOperatorUserCB,
                                cb.onLanDeleteOperatorUserResultCB);
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
    r.label("userCount");
    r.forEach(r.count16(), [&] {
        const operator_user u = readOperator(r);
        order.append(u.name);
        table.insert(u.name, u);
    });
    fire(cb.onLanOperatorUserInfoCB, order, table);
}
