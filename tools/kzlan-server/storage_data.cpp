// Plans, workshop plans, planned stops and work time, files and prices.
#include "storage_p.h"

// -- plans ---------------------------------------------------------------------

QList<StoredPlan> Storage::plans(const QString& date)
{
    QList<StoredPlan> list;
    Query q(*this,
            QStringLiteral("SELECT plan_date, file, mac, quantity, n, created_by FROM plans"
                           " WHERE ? = '' OR plan_date = ? ORDER BY plan_date, file, mac"),
            {date, date});
    while (q.next())
        list.append({q.value(0).toString(), q.value(1).toString(), q.value(2).toString(),
                     q.value(3).toInt(), q.value(4).toInt(), q.value(5).toString()});
    return list;
}

QStringList Storage::planDates()
{
    QStringList dates;
    Query q(*this, QStringLiteral("SELECT DISTINCT plan_date FROM plans ORDER BY plan_date"));
    while (q.next()) dates.append(q.value(0).toString());
    return dates;
}

bool Storage::putPlan(const StoredPlan& p)
{
    return inTransaction([&] {
        if (!Query(*this,
                   QStringLiteral("DELETE FROM plans WHERE plan_date = ? AND file = ? AND mac = ?"),
                   {p.date, p.file, p.mac})
                 .ok())
            return false;
        return Query(*this,
                     QStringLiteral(
                         "INSERT INTO plans (plan_date, file, mac, quantity, n, created_by)"
                         " VALUES (?, ?, ?, ?, ?, ?)"),
                     {p.date, p.file, p.mac, p.quantity, p.n, p.createdBy})
            .ok();
    });
}

bool Storage::deletePlan(const QString& date, const QString& file, const QString& mac)
{
    return inTransaction([&] {
        Query q(*this,
                QStringLiteral("DELETE FROM plans WHERE plan_date = ? AND file = ? AND mac = ?"),
                {date, file, mac});
        return q.ok() && q.affected() == 1;
    });
}

QList<WorkshopPlan> Storage::workshopPlans(const QString& workshop)
{
    QList<WorkshopPlan> list;
    Query q(*this,
            QStringLiteral("SELECT workshop, name, plan_date, note, quantities, n"
                           " FROM workshop_plans WHERE ? = '' OR workshop = ?"
                           " ORDER BY workshop, name"),
            {workshop, workshop});
    while (q.next()) {
        WorkshopPlan p;
        p.workshop = q.value(0).toString();
        p.name = q.value(1).toString();
        p.date = q.value(2).toString();
        p.note = q.value(3).toString();
        const QJsonObject o = QJsonDocument::fromJson(q.value(4).toString().toUtf8()).object();
        for (auto it = o.constBegin(); it != o.constEnd(); ++it)
            p.quantities.insert(it.key(), it.value().toInt());
        p.n = q.value(5).toInt();
        list.append(p);
    }
    return list;
}

bool Storage::putWorkshopPlan(const WorkshopPlan& p, const QString& oldName)
{
    if (p.workshop.isEmpty() || p.name.isEmpty()) return false;
    QJsonObject quantities;
    for (auto it = p.quantities.cbegin(); it != p.quantities.cend(); ++it)
        quantities.insert(it.key(), *it);
    return inTransaction([&] {
        if (!Query(
                 *this,
                 QStringLiteral("DELETE FROM workshop_plans WHERE workshop = ? AND name IN (?, ?)"),
                 {p.workshop, p.name, oldName.isEmpty() ? p.name : oldName})
                 .ok())
            return false;
        return Query(*this,
                     QStringLiteral("INSERT INTO workshop_plans (workshop, name, plan_date, note,"
                                    " quantities, n) VALUES (?, ?, ?, ?, ?, ?)"),
                     {p.workshop, p.name, p.date, p.note, jsonText(QJsonDocument(quantities)), p.n})
            .ok();
    });
}

bool Storage::deleteWorkshopPlan(const QString& workshop, const QString& name)
{
    return inTransaction([&] {
        Query q(*this, QStringLiteral("DELETE FROM workshop_plans WHERE workshop = ? AND name = ?"),
                {workshop, name});
        return q.ok() && q.affected() == 1;
    });
}

// -- planned stops and work time -------------------------------------------------------

namespace {

QString stopsToJson(const QMap<int, QList<QVariant>>& stops)
{
    QJsonObject o;
    for (auto it = stops.cbegin(); it != stops.cend(); ++it) {
        const QList<QVariant>& v = *it;
        o.insert(QString::number(it.key()),
                 QJsonArray{v.value(0).toString(), v.value(1).toString(), v.value(2).toDouble()});
    }
    return jsonText(QJsonDocument(o));
}

QMap<int, QList<QVariant>> stopsFromJson(const QString& s)
{
    QMap<int, QList<QVariant>> stops;
    const QJsonObject o = QJsonDocument::fromJson(s.toUtf8()).object();
    for (auto it = o.constBegin(); it != o.constEnd(); ++it) {
        const QJsonArray a = it.value().toArray();
        stops.insert(it.key().toInt(),
                     {a.at(0).toString(), a.at(1).toString(), a.at(2).toDouble()});
    }
    return stops;
}

} // namespace

QList<ShutItem> Storage::shutItems()
{
    QList<ShutItem> list;
    Query q(*this,
            QStringLiteral("SELECT id, item_date, text, stops, names FROM shut_items ORDER BY id"));
    while (q.next())
        list.append({q.value(0).toInt(), q.value(1).toString(), q.value(2).toString(),
                     stopsFromJson(q.value(3).toString()), listFromJson(q.value(4).toString())});
    return list;
}

int Storage::putShutItem(ShutItem item)
{
    int id = 0;
    const bool ok = inTransaction([&] {
        if (item.id <= 0) {
            item.id = int(nextId("shut_items", "id"));
        } else if (!Query(*this, QStringLiteral("DELETE FROM shut_items WHERE id = ?"), {item.id})
                        .ok()) {
            return false;
        }
        id = item.id;
        return Query(
                   *this,
                   QStringLiteral("INSERT INTO shut_items (id, item_date, text, stops, names)"
                                  " VALUES (?, ?, ?, ?, ?)"),
                   {item.id, item.date, item.text, stopsToJson(item.stops), listToJson(item.names)})
            .ok();
    });
    return ok ? id : 0;
}

bool Storage::deleteShutItem(int id)
{
    return inTransaction([&] {
        Query q(*this, QStringLiteral("DELETE FROM shut_items WHERE id = ?"), {id});
        return q.ok() && q.affected() == 1;
    });
}

int Storage::deleteShutItemsOn(const QString& date)
{
    int n = -1;
    inTransaction([&] {
        Query q(*this, QStringLiteral("DELETE FROM shut_items WHERE item_date = ?"), {date});
        n = q.ok() ? q.affected() : -1;
        return q.ok();
    });
    return n;
}

QMap<int, oee_worktime_item> Storage::workTimes(const QString& date)
{
    QMap<int, oee_worktime_item> times;
    Query q(*this,
            QStringLiteral("SELECT slot, first, second, amount FROM work_times"
                           " WHERE work_date = ? ORDER BY slot"),
            {date});
    while (q.next()) {
        oee_worktime_item item;
        item.first = q.value(1).toString();
        item.second = q.value(2).toString();
        item.amount = q.value(3).toDouble();
        times.insert(q.value(0).toInt(), item);
    }
    return times;
}

bool Storage::setWorkTimes(const QString& date, const QMap<int, oee_worktime_item>& times)
{
    return inTransaction([&] {
        if (!Query(*this, QStringLiteral("DELETE FROM work_times WHERE work_date = ?"), {date})
                 .ok())
            return false;
        for (auto it = times.cbegin(); it != times.cend(); ++it)
            if (!Query(*this,
                       QStringLiteral(
                           "INSERT INTO work_times (work_date, slot, first, second, amount)"
                           " VALUES (?, ?, ?, ?, ?)"),
                       {date, it.key(), it->first, it->second, it->amount})
                     .ok())
                return false;
        return true;
    });
}

bool Storage::deleteWorkTimes(const QString& date)
{
    return inTransaction([&] {
        return Query(*this, QStringLiteral("DELETE FROM work_times WHERE work_date = ?"), {date})
            .ok();
    });
}

bool Storage::setOutStops(const QMap<int, QString>& stops)
{
    return inTransaction([&] {
        if (!Query(*this, QStringLiteral("DELETE FROM out_stops")).ok()) return false;
        for (auto it = stops.cbegin(); it != stops.cend(); ++it)
            if (!Query(*this, QStringLiteral("INSERT INTO out_stops (slot, text) VALUES (?, ?)"),
                       {it.key(), *it})
                     .ok())
                return false;
        return true;
    });
}

// -- files ---------------------------------------------------------------------

namespace {

const QString kFileColumns = QStringLiteral("mac, name, size, md5, received_at, received_by");

StoredFile fileFrom(const QSqlQuery& q)
{
    return {q.value(0).toString(), q.value(1).toString(), q.value(2).toLongLong(),
            q.value(3).toString(), q.value(4).toString(), q.value(5).toString()};
}

} // namespace

QList<StoredFile> Storage::files(const QString& mac)
{
    QList<StoredFile> list;
    Query q(*this,
            QStringLiteral("SELECT %1 FROM files WHERE mac = ? ORDER BY name").arg(kFileColumns),
            {mac});
    while (q.next()) list.append(fileFrom(q.q()));
    return list;
}

QList<StoredFile> Storage::allFiles()
{
    QList<StoredFile> list;
    Query q(*this, QStringLiteral("SELECT %1 FROM files ORDER BY mac, name").arg(kFileColumns));
    while (q.next()) list.append(fileFrom(q.q()));
    return list;
}

bool Storage::putFile(const StoredFile& f)
{
    return inTransaction([&] {
        if (!Query(*this, QStringLiteral("DELETE FROM files WHERE mac = ? AND name = ?"),
                   {f.mac, f.name})
                 .ok())
            return false;
        return Query(*this,
                     QStringLiteral("INSERT INTO files (%1) VALUES (?, ?, ?, ?, ?, ?)")
                         .arg(kFileColumns),
                     {f.mac, f.name, f.size, f.md5, f.receivedAt, f.receivedBy})
            .ok();
    });
}

bool Storage::renameFile(const QString& mac, const QString& from, const QString& to)
{
    return inTransaction([&] {
        Query taken(*this, QStringLiteral("SELECT 1 FROM files WHERE mac = ? AND name = ?"),
                    {mac, to});
        if (taken.next()) return false;
        Query q(*this, QStringLiteral("UPDATE files SET name = ? WHERE mac = ? AND name = ?"),
                {to, mac, from});
        return q.ok() && q.affected() == 1;
    });
}

bool Storage::deleteFiles(const QString& mac, const QStringList& names)
{
    return inTransaction([&] {
        for (const QString& name : names) {
            Query q(*this, QStringLiteral("DELETE FROM files WHERE mac = ? AND name = ?"),
                    {mac, name});
            if (!q.ok() || q.affected() != 1) return false;
        }
        return true;
    });
}

Storage::Usage Storage::usageOfUser(const QString& user)
{
    Query q(*this, QStringLiteral("SELECT COUNT(*), SUM(size) FROM files WHERE received_by = ?"),
            {user});
    return q.next() ? Usage{q.value(0).toInt(), q.value(1).toLongLong()} : Usage{};
}

Storage::Usage Storage::usageOfMachine(const QString& mac)
{
    Query q(*this, QStringLiteral("SELECT COUNT(*), SUM(size) FROM files WHERE mac = ?"), {mac});
    return q.next() ? Usage{q.value(0).toInt(), q.value(1).toLongLong()} : Usage{};
}

// -- prices --------------------------------------------------------------------

QMap<QString, double> Storage::prices()
{
    QMap<QString, double> table;
    Query q(*this, QStringLiteral("SELECT file, price FROM prices"));
    while (q.next()) table.insert(q.value(0).toString(), q.value(1).toDouble());
    return table;
}

bool Storage::hasPrice(const QString& file)
{
    Query q(*this, QStringLiteral("SELECT 1 FROM prices WHERE file = ?"), {file});
    return q.next();
}

bool Storage::setPrice(const QString& file, double price)
{
    if (file.isEmpty()) return false;
    return inTransaction([&] {
        if (!Query(*this, QStringLiteral("DELETE FROM prices WHERE file = ?"), {file}).ok())
            return false;
        return Query(*this, QStringLiteral("INSERT INTO prices (file, price) VALUES (?, ?)"),
                     {file, price})
            .ok();
    });
}

bool Storage::deletePrices(const QStringList& files)
{
    return deleteItems("prices", "file", files);
}
