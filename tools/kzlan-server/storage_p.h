// Inside the storage: the query helper and the JSON forms of the columns
// that hold a map or a list.
#ifndef KZLAN_STORAGE_P_H
#define KZLAN_STORAGE_P_H

#include "storage.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSqlQuery>

#include <initializer_list>

/// One statement, prepared, bound and run at construction. A failure is
/// logged and marks the running transaction as failed.
class Storage::Query
{
public:
    Query(Storage& s, const QString& sql, std::initializer_list<QVariant> binds = {});
    bool ok() const { return ok_; }
    /// The next row; false at the end, or on a read error (logged, and
    /// noted for takeReadFailure()).
    bool next();
    QVariant value(int i) const { return q_.value(i); }
    int affected() const { return q_.numRowsAffected(); }
    const QSqlQuery& q() const { return q_; }

private:
    Storage& s_;
    QSqlQuery q_;
    bool ok_ = false;
};

template <typename Fn>
bool Storage::inTransaction(Fn fn)
{
    if (!begin()) return false;
    if (!fn()) {
        rollback();
        return false;
    }
    return commit();
}

inline QString jsonText(const QJsonDocument& d)
{
    return QString::fromUtf8(d.toJson(QJsonDocument::Compact));
}

inline QString groupMapToJson(const QMap<QString, QStringList>& m)
{
    QJsonObject o;
    for (auto it = m.cbegin(); it != m.cend(); ++it)
        o.insert(it.key(), QJsonArray::fromStringList(*it));
    return jsonText(QJsonDocument(o));
}

inline QMap<QString, QStringList> groupMapFromJson(const QString& s)
{
    QMap<QString, QStringList> m;
    const QJsonObject o = QJsonDocument::fromJson(s.toUtf8()).object();
    for (auto it = o.constBegin(); it != o.constEnd(); ++it) {
        QStringList l;
        for (const QJsonValue& v : it.value().toArray()) l.append(v.toString());
        m.insert(it.key(), l);
    }
    return m;
}

inline QString listToJson(const QStringList& l)
{
    return jsonText(QJsonDocument(QJsonArray::fromStringList(l)));
}

inline QStringList listFromJson(const QString& s)
{
    QStringList l;
    for (const QJsonValue& v : QJsonDocument::fromJson(s.toUtf8()).array()) l.append(v.toString());
    return l;
}

#endif
