// Groups, operators, permissions and machines.
#include "storage_p.h"

// -- groups --------------------------------------------------------------------

bool Storage::ensureGroup(const QString& lv1, const QString& lv2)
{
    // A group row per first-level group (lv2 empty) and per pair.
    const auto ensure = [this](const QString& a, const QString& b) {
        Query q(*this, QStringLiteral("SELECT 1 FROM item_groups WHERE lv1 = ? AND lv2 = ?"),
                {a, b});
        if (q.next()) return true;
        Query pos(*this,
                  QStringLiteral("SELECT COALESCE(MAX(position), 0) + 1 FROM item_groups"
                                 " WHERE lv1 = ?"),
                  {a});
        const int position = pos.next() ? pos.value(0).toInt() : 0;
        return Query(
                   *this,
                   QStringLiteral("INSERT INTO item_groups (lv1, lv2, position) VALUES (?, ?, ?)"),
                   {a, b, position})
            .ok();
    };
    if (lv1.isEmpty()) return true;
    return ensure(lv1, QString()) && (lv2.isEmpty() || ensure(lv1, lv2));
}

bool Storage::addGroups(const QStringList& lv1Names, const QMap<QString, QStringList>& lv2ByLv1)
{
    return inTransaction([&] {
        for (const QString& lv1 : lv1Names) {
            if (lv1.isEmpty() || !ensureGroup(lv1, QString())) return false;
            for (const QString& lv2 : lv2ByLv1.value(lv1))
                if (!ensureGroup(lv1, lv2)) return false;
        }
        return true;
    });
}

QList<QPair<QString, QStringList>> Storage::groups()
{
    QList<QPair<QString, QStringList>> tree;
    // First-level rows (lv2 empty) come first within their group.
    Query q(*this, QStringLiteral("SELECT g.lv1, g.lv2 FROM item_groups g JOIN item_groups top"
                                  " ON top.lv1 = g.lv1 AND top.lv2 = ''"
                                  " ORDER BY top.position, g.lv1, g.lv2 <> '', g.position, g.lv2"));
    while (q.next()) {
        const QString lv1 = q.value(0).toString();
        const QString lv2 = q.value(1).toString();
        if (tree.isEmpty() || tree.last().first != lv1) tree.append({lv1, {}});
        if (!lv2.isEmpty()) tree.last().second.append(lv2);
    }
    return tree;
}

bool Storage::sortItems(const QString& lv1, const QString& lv2, const QStringList& items)
{
    return inTransaction([&] {
        for (int i = 0; i < items.size(); ++i) {
            const int position = i + 1;
            if (lv1.isEmpty()) {
                if (!Query(*this,
                           QStringLiteral(
                               "UPDATE item_groups SET position = ? WHERE lv1 = ? AND lv2 = ''"),
                           {position, items[i]})
                         .ok())
                    return false;
            } else if (lv2.isEmpty()) {
                if (!Query(*this,
                           QStringLiteral(
                               "UPDATE item_groups SET position = ? WHERE lv1 = ? AND lv2 = ?"),
                           {position, lv1, items[i]})
                         .ok())
                    return false;
            } else {
                for (const char* sql :
                     {"UPDATE users SET position = ? WHERE lv1 = ? AND lv2 = ? AND name = ?",
                      "UPDATE machines SET position = ? WHERE lv1 = ? AND lv2 = ? AND mac = ?",
                      "UPDATE operators SET position = ? WHERE lv1 = ? AND lv2 = ? AND name = ?"})
                    if (!Query(*this, QString::fromLatin1(sql), {position, lv1, lv2, items[i]})
                             .ok())
                        return false;
            }
        }
        return true;
    });
}

bool Storage::moveItems(const char* table, const char* key, const QStringList& names,
                        const QString& lv1, const QString& lv2)
{
    return inTransaction([&] {
        if (!ensureGroup(lv1, lv2)) return false;
        for (const QString& name : names) {
            Query q(*this,
                    QStringLiteral("UPDATE %1 SET lv1 = ?, lv2 = ? WHERE %2 = ?")
                        .arg(QLatin1String(table), QLatin1String(key)),
                    {lv1, lv2, name});
            if (!q.ok() || q.affected() != 1) return false;
        }
        return true;
    });
}

bool Storage::deleteItems(const char* table, const char* key, const QStringList& names)
{
    return inTransaction([&] {
        for (const QString& name : names) {
            Query q(*this,
                    QStringLiteral("DELETE FROM %1 WHERE %2 = ?")
                        .arg(QLatin1String(table), QLatin1String(key)),
                    {name});
            if (!q.ok() || q.affected() != 1) return false;
        }
        return true;
    });
}

// -- operators -------------------------------------------------------------------

QList<operator_user> Storage::operators()
{
    QList<operator_user> list;
    Query q(*this, QStringLiteral("SELECT name, text2, text3, text4, text5, flag_a, flag_b"
                                  " FROM operators ORDER BY lv1, lv2, position, name"));
    while (q.next()) {
        operator_user op;
        op.name = q.value(0).toString();
        op.text2 = q.value(1).toString();
        op.text3 = q.value(2).toString();
        op.text4 = q.value(3).toString();
        op.text5 = q.value(4).toString();
        op.flagA = q.value(5).toInt() != 0;
        op.flagB = q.value(6).toInt() != 0;
        list.append(op);
    }
    return list;
}

bool Storage::addOperator(const operator_user& op)
{
    if (op.name.isEmpty()) return false;
    return inTransaction([&] {
        Query exists(*this, QStringLiteral("SELECT 1 FROM operators WHERE name = ?"), {op.name});
        if (exists.next()) return false;
        return Query(
                   *this,
                   QStringLiteral(
                       "INSERT INTO operators (name, text2, text3, text4, text5, flag_a,"
                       " flag_b, lv1, lv2, position) VALUES (?, ?, ?, ?, ?, ?, ?, '', '', 0)"),
                   {op.name, op.text2, op.text3, op.text4, op.text5, int(op.flagA), int(op.flagB)})
            .ok();
    });
}

bool Storage::updateOperator(const operator_user& op)
{
    return inTransaction([&] {
        Query q(*this,
                QStringLiteral("UPDATE operators SET text2 = ?, text3 = ?, text4 = ?, text5 = ?,"
                               " flag_a = ?, flag_b = ? WHERE name = ?"),
                {op.text2, op.text3, op.text4, op.text5, int(op.flagA), int(op.flagB), op.name});
        return q.ok() && q.affected() == 1;
    });
}

bool Storage::deleteOperators(const QStringList& names)
{
    return deleteItems("operators", "name", names);
}

bool Storage::moveOperators(const QStringList& names, const QString& lv1, const QString& lv2)
{
    return moveItems("operators", "name", names, lv1, lv2);
}

// -- permissions -------------------------------------------------------------------

QList<mac_user_power> Storage::permissions(const QStringList& keys)
{
    QList<mac_user_power> list;
    Query q(*this, QStringLiteral("SELECT key1, key2, key3, power FROM permissions"
                                  " ORDER BY key1, key2, key3"));
    while (q.next()) {
        mac_user_power e;
        e.key1 = q.value(0).toString();
        if (!keys.isEmpty() && !keys.contains(e.key1)) continue;
        e.key2 = q.value(1).toString();
        e.key3 = q.value(2).toString();
        e.power = fctp_user2_power(quint32(q.value(3).toLongLong()));
        list.append(e);
    }
    return list;
}

bool Storage::setPermission(const QString& key1, const QString& key2, const QString& key3,
                            quint32 power)
{
    return inTransaction([&] {
        Query exists(
            *this,
            QStringLiteral("SELECT 1 FROM permissions WHERE key1 = ? AND key2 = ? AND key3 = ?"),
            {key1, key2, key3});
        if (exists.next())
            return Query(
                       *this,
                       QStringLiteral("UPDATE permissions SET power = ? WHERE key1 = ? AND key2 = ?"
                                      " AND key3 = ?"),
                       {qlonglong(power), key1, key2, key3})
                .ok();
        return Query(*this,
                     QStringLiteral(
                         "INSERT INTO permissions (key1, key2, key3, power) VALUES (?, ?, ?, ?)"),
                     {key1, key2, key3, qlonglong(power)})
            .ok();
    });
}

bool Storage::deletePermissions(const QString& key2, const QString& key3)
{
    return inTransaction([&] {
        return Query(*this, QStringLiteral("DELETE FROM permissions WHERE key2 = ? AND key3 = ?"),
                     {key2, key3})
            .ok();
    });
}

// -- machines ---------------------------------------------------------------------

namespace {

mac_info machineFrom(const QSqlQuery& q)
{
    mac_info m;
    m.mac = q.value(0).toString();
    m.text2 = q.value(1).toString();
    m.code = quint8(q.value(2).toInt());
    m.text4 = q.value(3).toString();
    m.lv1Group = q.value(4).toString();
    m.lv2Group = q.value(5).toString();
    m.value7 = q.value(6).toInt();
    return m;
}

const QString kMachineColumns = QStringLiteral("mac, text2, code, text4, lv1, lv2, value7");

} // namespace

QList<mac_info> Storage::machines()
{
    QList<mac_info> list;
    Query q(*this, QStringLiteral("SELECT %1 FROM machines ORDER BY lv1, lv2, position, mac")
                       .arg(kMachineColumns));
    while (q.next()) list.append(machineFrom(q.q()));
    return list;
}

std::optional<mac_info> Storage::machine(const QString& mac)
{
    Query q(*this, QStringLiteral("SELECT %1 FROM machines WHERE mac = ?").arg(kMachineColumns),
            {mac});
    if (!q.next()) return std::nullopt;
    return machineFrom(q.q());
}

bool Storage::putMachine(const mac_info& m, bool* added)
{
    if (m.mac.isEmpty()) return false;
    return inTransaction([&] {
        const bool exists = machine(m.mac).has_value();
        if (added) *added = !exists;
        if (!ensureGroup(m.lv1Group, m.lv2Group)) return false;
        if (exists)
            return Query(
                       *this,
                       QStringLiteral("UPDATE machines SET text2 = ?, code = ?, text4 = ?, lv1 = ?,"
                                      " lv2 = ?, value7 = ? WHERE mac = ?"),
                       {m.text2, int(m.code), m.text4, m.lv1Group, m.lv2Group, m.value7, m.mac})
                .ok();
        return Query(*this,
                     QStringLiteral(
                         "INSERT INTO machines (%1, position) VALUES (?, ?, ?, ?, ?, ?, ?, 0)")
                         .arg(kMachineColumns),
                     {m.mac, m.text2, int(m.code), m.text4, m.lv1Group, m.lv2Group, m.value7})
            .ok();
    });
}

bool Storage::renameMachine(const QString& mac, const QString& text2)
{
    return inTransaction([&] {
        Query q(*this, QStringLiteral("UPDATE machines SET text2 = ? WHERE mac = ?"), {text2, mac});
        return q.ok() && q.affected() == 1;
    });
}

bool Storage::deleteMachines(const QStringList& macs)
{
    return deleteItems("machines", "mac", macs);
}

bool Storage::moveMachines(const QStringList& macs, const QString& lv1, const QString& lv2)
{
    return moveItems("machines", "mac", macs, lv1, lv2);
}
