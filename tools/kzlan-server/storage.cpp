// The connection, the schema and its migrations, transactions, users and the
// event log. The other tables are in storage_*.cpp.
#include "storage.h"
#include "storage_p.h"

#include <QDateTime>
#include <QSqlError>
#include <QTimeZone>
#include <QUrl>
#include <QUuid>

Q_LOGGING_CATEGORY(lcStorage, "kz.server.storage")

namespace {

// The schema, one list of statements per version. Applied in order, each
// version in one transaction with its number. The SQL is the subset that
// SQLite and PostgreSQL share: TEXT, INTEGER, BIGINT, DOUBLE PRECISION,
// composite primary keys, no generated ids (ids are taken as MAX + 1 inside
// the writing transaction).
const QList<QStringList> kMigrations = {
    // 1: accounts, machines, plans, stops, files, prices
    {
        QStringLiteral("CREATE TABLE users (name TEXT PRIMARY KEY, text2 TEXT NOT NULL,"
                       " text3 TEXT NOT NULL, permission INTEGER NOT NULL, flag INTEGER NOT NULL,"
                       " lv1 TEXT NOT NULL, lv2 TEXT NOT NULL, group_permission TEXT NOT NULL,"
                       " position INTEGER NOT NULL, salt TEXT NOT NULL, hash TEXT NOT NULL,"
                       " iterations INTEGER NOT NULL)"),
        QStringLiteral("CREATE TABLE item_groups (lv1 TEXT NOT NULL, lv2 TEXT NOT NULL,"
                       " position INTEGER NOT NULL, PRIMARY KEY (lv1, lv2))"),
        QStringLiteral("CREATE TABLE operators (name TEXT PRIMARY KEY, text2 TEXT NOT NULL,"
                       " text3 TEXT NOT NULL, text4 TEXT NOT NULL, text5 TEXT NOT NULL,"
                       " flag_a INTEGER NOT NULL, flag_b INTEGER NOT NULL, lv1 TEXT NOT NULL,"
                       " lv2 TEXT NOT NULL, position INTEGER NOT NULL)"),
        QStringLiteral(
            "CREATE TABLE permissions (key1 TEXT NOT NULL, key2 TEXT NOT NULL,"
            " key3 TEXT NOT NULL, power BIGINT NOT NULL, PRIMARY KEY (key1, key2, key3))"),
        QStringLiteral("CREATE TABLE machines (mac TEXT PRIMARY KEY, text2 TEXT NOT NULL,"
                       " code INTEGER NOT NULL, text4 TEXT NOT NULL, lv1 TEXT NOT NULL,"
                       " lv2 TEXT NOT NULL, value7 INTEGER NOT NULL, position INTEGER NOT NULL)"),
        QStringLiteral("CREATE TABLE plans (plan_date TEXT NOT NULL, file TEXT NOT NULL,"
                       " mac TEXT NOT NULL, quantity INTEGER NOT NULL, n INTEGER NOT NULL,"
                       " created_by TEXT NOT NULL, PRIMARY KEY (plan_date, file, mac))"),
        QStringLiteral("CREATE TABLE workshop_plans (workshop TEXT NOT NULL, name TEXT NOT NULL,"
                       " plan_date TEXT NOT NULL, note TEXT NOT NULL, quantities TEXT NOT NULL,"
                       " n INTEGER NOT NULL, PRIMARY KEY (workshop, name))"),
        QStringLiteral("CREATE TABLE shut_items (id INTEGER PRIMARY KEY, item_date TEXT NOT NULL,"
                       " text TEXT NOT NULL, stops TEXT NOT NULL, names TEXT NOT NULL)"),
        QStringLiteral(
            "CREATE TABLE work_times (work_date TEXT NOT NULL, slot INTEGER NOT NULL,"
            " first TEXT NOT NULL, second TEXT NOT NULL, amount DOUBLE PRECISION NOT NULL,"
            " PRIMARY KEY (work_date, slot))"),
        QStringLiteral("CREATE TABLE out_stops (slot INTEGER PRIMARY KEY, text TEXT NOT NULL)"),
        QStringLiteral("CREATE TABLE files (mac TEXT NOT NULL, name TEXT NOT NULL,"
                       " size BIGINT NOT NULL, md5 TEXT NOT NULL, received_at TEXT NOT NULL,"
                       " received_by TEXT NOT NULL, PRIMARY KEY (mac, name))"),
        QStringLiteral(
            "CREATE TABLE prices (file TEXT PRIMARY KEY, price DOUBLE PRECISION NOT NULL)"),
    },
    // 2: the event log behind log queries
    {
        QStringLiteral("CREATE TABLE events (id BIGINT PRIMARY KEY, at_ms BIGINT NOT NULL,"
                       " mac TEXT NOT NULL, kind TEXT NOT NULL, who TEXT NOT NULL,"
                       " text TEXT NOT NULL)"),
        QStringLiteral("CREATE INDEX events_by_mac ON events (mac, at_ms)"),
    },
};

} // namespace

// -- the connection --------------------------------------------------------------

Storage::Storage()
    : connectionName_(QStringLiteral("kzlan-") + QUuid::createUuid().toString(QUuid::WithoutBraces))
{}

Storage::~Storage() { close(); }

void Storage::close()
{
    if (!db_.isValid()) return;
    db_.close();
    db_ = QSqlDatabase();
    QSqlDatabase::removeDatabase(connectionName_);
}

bool Storage::isPostgres() const { return db_.driverName() == QLatin1String("QPSQL"); }

bool Storage::open(const QString& location, QString* error, int upTo)
{
    close();
    location_ = location;
    const bool postgres = location.startsWith(QLatin1String("postgresql://")) ||
                          location.startsWith(QLatin1String("postgres://"));
    db_ = QSqlDatabase::addDatabase(postgres ? QStringLiteral("QPSQL") : QStringLiteral("QSQLITE"),
                                    connectionName_);
    if (!db_.isValid()) {
        *error = QStringLiteral("the Qt SQL driver for %1 is not installed")
                     .arg(postgres ? QStringLiteral("PostgreSQL") : QStringLiteral("SQLite"));
        return false;
    }
    if (postgres) {
        const QUrl url(location);
        db_.setHostName(url.host().isEmpty() ? QStringLiteral("localhost") : url.host());
        db_.setPort(url.port(5432));
        db_.setUserName(url.userName());
        db_.setPassword(url.password());
        db_.setDatabaseName(url.path().mid(1));
    } else {
        db_.setDatabaseName(location);
        db_.setConnectOptions(QStringLiteral("QSQLITE_BUSY_TIMEOUT=%1").arg(busyTimeoutMs_));
    }
    if (!db_.open()) {
        *error = db_.lastError().text();
        return false;
    }
    if (!postgres) {
        // Write-ahead log: a killed server loses no committed transaction,
        // and readers do not wait for the writer.
        Query wal(*this, QStringLiteral("PRAGMA journal_mode=WAL"));
        Query sync(*this, QStringLiteral("PRAGMA synchronous=FULL"));
        if (!wal.ok() || !sync.ok()) {
            *error = QStringLiteral("cannot switch the database to write-ahead logging");
            return false;
        }
    }
    return migrate(upTo, error);
}

void Storage::setBusyTimeout(int ms)
{
    busyTimeoutMs_ = ms;
    if (db_.isOpen() && !isPostgres())
        Query(*this, QStringLiteral("PRAGMA busy_timeout = %1").arg(ms));
}

void Storage::setEventLimits(int rows, int days)
{
    eventRows_ = rows;
    eventDays_ = days;
}

int Storage::schemaVersion()
{
    Query q(*this, QStringLiteral("SELECT MAX(version) FROM schema_version"));
    return q.next() ? q.value(0).toInt() : 0;
}

bool Storage::migrate(int upTo, QString* error)
{
    upTo = qBound(0, upTo, kSchemaVersion);
    if (!begin()) {
        *error = db_.lastError().text();
        return false;
    }
    bool ok =
        Query(*this, QStringLiteral(
                         "CREATE TABLE IF NOT EXISTS schema_version (version INTEGER NOT NULL)"))
            .ok();
    // Servers sharing one PostgreSQL database may start together: one
    // migrates, the others wait here and then find the work done.
    if (ok && isPostgres())
        ok = Query(*this, QStringLiteral("SELECT pg_advisory_xact_lock(7600)")).ok();
    const int from = ok ? schemaVersion() : 0;
    if (from > kSchemaVersion) {
        rollback();
        *error = QStringLiteral("the database has schema version %1, newer than this server's %2")
                     .arg(from)
                     .arg(kSchemaVersion);
        return false;
    }
    for (int v = from + 1; ok && v <= upTo; ++v) {
        for (const QString& sql : kMigrations[v - 1]) ok = ok && Query(*this, sql).ok();
        ok = ok &&
             Query(*this, QStringLiteral("INSERT INTO schema_version (version) VALUES (?)"), {v})
                 .ok();
        if (ok) qCInfo(lcStorage) << "schema migrated to version" << v;
    }
    if (!ok) {
        rollback();
        *error = QStringLiteral("the schema migration failed: ") + db_.lastError().text();
        return false;
    }
    if (!commit()) {
        *error = QStringLiteral("the schema migration could not be committed");
        return false;
    }
    return true;
}

// -- queries and transactions ------------------------------------------------------

Storage::Query::Query(Storage& s, const QString& sql, std::initializer_list<QVariant> binds)
    : s_(s), q_(s.db_)
{
    const auto run = [&] {
        // PostgreSQL prepares no schema statements: those without values
        // run as they are.
        if (binds.size() == 0) return q_.exec(sql);
        bool ok = q_.prepare(sql);
        for (QVariant v : binds) {
            // A null QString would be bound as SQL NULL; every text column
            // holds empty text instead.
            if (v.userType() == QMetaType::QString && v.toString().isNull())
                v = QVariant(QString::fromLatin1(""));
            q_.addBindValue(v);
        }
        return ok && q_.exec();
    };
    ok_ = run();
    // Outside a transaction a lost connection is opened again and the
    // statement repeated once; inside one, the transaction fails.
    if (!ok_ && s_.depth_ == 0 && s_.isPostgres() &&
        !QSqlQuery(s_.db_).exec(QStringLiteral("SELECT 1")) && s_.reconnect()) {
        q_ = QSqlQuery(s_.db_);
        ok_ = run();
    }
    if (!ok_) {
        qCWarning(lcStorage).noquote() << "query failed:" << sql << "-" << q_.lastError().text();
        s_.failed_ = true;
        s_.readFailed_ = true;
    }
}

bool Storage::Query::next()
{
    if (!ok_) return false;
    if (q_.next()) return true;
    if (q_.lastError().type() != QSqlError::NoError) {
        qCWarning(lcStorage).noquote()
            << "a read failed midway:" << q_.lastQuery() << "-" << q_.lastError().text();
        ok_ = false;
        s_.failed_ = true;
        s_.readFailed_ = true;
    }
    return false;
}

bool Storage::takeReadFailure()
{
    const bool failed = readFailed_;
    readFailed_ = false;
    return failed;
}

bool Storage::checkIntegrity(QString* problem)
{
    if (isPostgres()) return true;
    QStringList found;
    Query q(*this, QStringLiteral("PRAGMA quick_check"));
    while (q.next() && found.size() < 5) found.append(q.value(0).toString());
    if (q.ok() && found == QStringList{QStringLiteral("ok")}) return true;
    *problem = found.isEmpty() ? db_.lastError().text() : found.join(QStringLiteral("; "));
    return false;
}

bool Storage::reconnect()
{
    if (!isPostgres()) return false; // a file does not go away
    qCWarning(lcStorage) << "the connection to the database is lost; connecting again";
    db_.close();
    if (db_.open()) return true;
    qCWarning(lcStorage).noquote() << "cannot connect again:" << db_.lastError().text();
    return false;
}

bool Storage::begin()
{
    if (depth_++ > 0) return true;
    failed_ = false;
    // SQLite: the write lock is taken at the start, so that a transaction
    // that reads before it writes waits for the server's other connection
    // (busy time-out) instead of failing at once on a stale snapshot.
    const auto start = [this] {
        return isPostgres() ? db_.transaction()
                            : QSqlQuery(db_).exec(QStringLiteral("BEGIN IMMEDIATE"));
    };
    if (start() || (reconnect() && start())) return true;
    qCWarning(lcStorage).noquote() << "cannot begin a transaction:" << db_.lastError().text();
    depth_ = 0;
    return false;
}

bool Storage::commit()
{
    if (--depth_ > 0) return !failed_;
    if (failed_) {
        db_.rollback();
        return false;
    }
    if (db_.commit()) return true;
    qCWarning(lcStorage).noquote() << "commit failed:" << db_.lastError().text();
    db_.rollback();
    return false;
}

void Storage::rollback()
{
    failed_ = true;
    if (--depth_ > 0) return;
    db_.rollback();
}

Storage::Transaction::Transaction(Storage& s) : s_(s) { outer_ = s_.begin(); }

Storage::Transaction::~Transaction()
{
    if (outer_ && !done_) s_.rollback();
}

bool Storage::Transaction::commit()
{
    if (!outer_ || done_) return false;
    done_ = true;
    return s_.commit();
}

qint64 Storage::nextId(const char* table, const char* column)
{
    Query q(*this, QStringLiteral("SELECT COALESCE(MAX(%1), 0) + 1 FROM %2")
                       .arg(QLatin1String(column), QLatin1String(table)));
    return q.next() ? q.value(0).toLongLong() : 0;
}

// -- users ---------------------------------------------------------------------

namespace {

const QString kUserColumns =
    QStringLiteral("name, text2, text3, permission, flag, lv1, lv2, group_permission");

user_info userFrom(const QSqlQuery& q)
{
    user_info u;
    u.name = q.value(0).toString();
    u.text2 = q.value(1).toString();
    u.text3 = q.value(2).toString();
    u.permission = q.value(3).toInt();
    u.flag = q.value(4).toInt() != 0;
    u.lv1Group = q.value(5).toString();
    u.lv2Group = q.value(6).toString();
    u.groupPermission = groupMapFromJson(q.value(7).toString());
    return u;
}

} // namespace

int Storage::userCount()
{
    Query q(*this, QStringLiteral("SELECT COUNT(*) FROM users"));
    return q.next() ? q.value(0).toInt() : 0;
}

int Storage::administratorCount()
{
    Query q(*this, QStringLiteral("SELECT COUNT(*) FROM users WHERE (permission & 1) = 1"));
    return q.next() ? q.value(0).toInt() : 0;
}

QList<user_info> Storage::users()
{
    QList<user_info> list;
    Query q(
        *this,
        QStringLiteral("SELECT %1 FROM users ORDER BY lv1, lv2, position, name").arg(kUserColumns));
    while (q.next()) list.append(userFrom(q.q()));
    return list;
}

std::optional<user_info> Storage::user(const QString& name)
{
    Query q(*this, QStringLiteral("SELECT %1 FROM users WHERE name = ?").arg(kUserColumns), {name});
    if (!q.next()) return std::nullopt;
    return userFrom(q.q());
}

PasswordHash Storage::passwordOf(const QString& name)
{
    PasswordHash h;
    Query q(*this, QStringLiteral("SELECT salt, hash, iterations FROM users WHERE name = ?"),
            {name});
    if (!q.next()) return h;
    h.salt = QByteArray::fromHex(q.value(0).toString().toLatin1());
    h.hash = QByteArray::fromHex(q.value(1).toString().toLatin1());
    h.iterations = q.value(2).toInt();
    return h;
}

bool Storage::addUser(const user_info& u, const PasswordHash& password)
{
    if (u.name.isEmpty()) return false;
    return inTransaction([&] {
        if (user(u.name)) return false;
        ensureGroup(u.lv1Group, u.lv2Group);
        return Query(*this,
                     QStringLiteral("INSERT INTO users (%1, position, salt, hash, iterations)"
                                    " VALUES (?, ?, ?, ?, ?, ?, ?, ?, 0, ?, ?, ?)")
                         .arg(kUserColumns),
                     {u.name, u.text2, u.text3, u.permission, int(u.flag), u.lv1Group, u.lv2Group,
                      groupMapToJson(u.groupPermission), QString::fromLatin1(password.salt.toHex()),
                      QString::fromLatin1(password.hash.toHex()), password.iterations})
            .ok();
    });
}

bool Storage::setPassword(const QString& name, const PasswordHash& password)
{
    return inTransaction([&] {
        Query q(
            *this,
            QStringLiteral("UPDATE users SET salt = ?, hash = ?, iterations = ? WHERE name = ?"),
            {QString::fromLatin1(password.salt.toHex()), QString::fromLatin1(password.hash.toHex()),
             password.iterations, name});
        return q.ok() && q.affected() == 1;
    });
}

bool Storage::updateUser(const user_info& u)
{
    return inTransaction([&] {
        ensureGroup(u.lv1Group, u.lv2Group);
        Query q(*this,
                QStringLiteral("UPDATE users SET text2 = ?, text3 = ?, flag = ?, lv1 = ?, lv2 = ?"
                               " WHERE name = ?"),
                {u.text2, u.text3, int(u.flag), u.lv1Group, u.lv2Group, u.name});
        return q.ok() && q.affected() == 1;
    });
}

bool Storage::deleteUsers(const QStringList& names) { return deleteItems("users", "name", names); }

bool Storage::setUserPermission(const QString& name, int permission)
{
    return inTransaction([&] {
        Query q(*this, QStringLiteral("UPDATE users SET permission = ? WHERE name = ?"),
                {permission, name});
        return q.ok() && q.affected() == 1;
    });
}

bool Storage::setUserGroupPermission(const QString& name, const QMap<QString, QStringList>& groups)
{
    return inTransaction([&] {
        Query q(*this, QStringLiteral("UPDATE users SET group_permission = ? WHERE name = ?"),
                {groupMapToJson(groups), name});
        return q.ok() && q.affected() == 1;
    });
}

bool Storage::moveUsers(const QStringList& names, const QString& lv1, const QString& lv2)
{
    return moveItems("users", "name", names, lv1, lv2);
}

// -- event log -------------------------------------------------------------------

bool Storage::addEvent(const QString& mac, const QString& kind, const QString& who,
                       const QString& text)
{
    return inTransaction([&] {
        const qint64 id = nextId("events", "id");
        const qint64 now = QDateTime::currentMSecsSinceEpoch();
        if (!Query(*this,
                   QStringLiteral("INSERT INTO events (id, at_ms, mac, kind, who, text)"
                                  " VALUES (?, ?, ?, ?, ?, ?)"),
                   {id, now, mac, kind, who, text})
                 .ok())
            return false;
        // The cap, kept every 64 rows: ids grow by one, so the rows over the
        // cap are those below the newest id less the cap.
        if (id % 64 != 0 || (eventRows_ <= 0 && eventDays_ <= 0)) return true;
        const qint64 below = eventRows_ > 0 ? id - eventRows_ : 0;
        const qint64 before = eventDays_ > 0 ? now - qint64(eventDays_) * 24 * 3600 * 1000 : 0;
        return Query(*this, QStringLiteral("DELETE FROM events WHERE id <= ? OR at_ms < ?"),
                     {below, before})
            .ok();
    });
}

QList<StoredEvent> Storage::events(const QString& mac, const QString& from, const QString& to,
                                   int limit)
{
    // A bare date as the end takes in the whole day.
    const auto parse = [](const QString& s, bool end) -> qint64 {
        QDateTime t = QDateTime::fromString(s, QStringLiteral("yyyy-MM-dd HH:mm:ss"));
        if (!t.isValid()) {
            const QDate d = QDate::fromString(s, QStringLiteral("yyyy-MM-dd"));
            if (!d.isValid()) return end ? std::numeric_limits<qint64>::max() : 0;
            t = QDateTime(end ? d.addDays(1) : d, QTime(0, 0));
        }
        t.setTimeZone(QTimeZone::utc());
        return t.toMSecsSinceEpoch() - (end && s.size() == 10 ? 1 : 0);
    };
    QList<StoredEvent> list;
    Query q(*this,
            QStringLiteral("SELECT id, at_ms, mac, kind, who, text FROM events"
                           " WHERE (? = '' OR mac = ?) AND at_ms >= ? AND at_ms <= ?"
                           " ORDER BY at_ms, id LIMIT ?"),
            {mac, mac, parse(from, false), parse(to, true), limit});
    while (q.next()) {
        StoredEvent e;
        e.id = q.value(0).toLongLong();
        e.at = QDateTime::fromMSecsSinceEpoch(q.value(1).toLongLong(), Qt::UTC)
                   .toString(QStringLiteral("yyyy-MM-dd HH:mm:ss"));
        e.mac = q.value(2).toString();
        e.kind = q.value(3).toString();
        e.who = q.value(4).toString();
        e.text = q.value(5).toString();
        list.append(e);
    }
    return list;
}
