// Production plans, workshop plans, planned stops and work time, OEE data.
#include "server_p.h"
#include "texts.h"

#include <QDate>

namespace {

// A plan travels as six texts: date, file, machine, quantity, n, author.
QList<QVariant> planRows(const QList<StoredPlan>& plans)
{
    QList<QVariant> rows;
    for (const StoredPlan& p : plans)
        rows.append(QVariant(QList<QVariant>{p.date, p.file, p.mac, p.quantity, p.n, p.createdBy}));
    return rows;
}

// A workshop plan in the initial data: workshop, name, date, note, n, total
// quantity, machine count, quantities by machine.
QList<QVariant> workshopRows(const QList<WorkshopPlan>& plans)
{
    QList<QVariant> rows;
    for (const WorkshopPlan& p : plans) {
        int total = 0;
        for (int q : p.quantities) total += q;
        rows.append(
            QVariant(QList<QVariant>{p.workshop, p.name, p.date, p.note, p.n, total,
                                     p.quantities.size(), QVariant::fromValue(p.quantities)}));
    }
    return rows;
}

// One row per machine of a workshop's plans: name, date, machine, quantity, n.
QList<QVariant> workshopQueryRows(const QList<WorkshopPlan>& plans)
{
    QList<QVariant> rows;
    for (const WorkshopPlan& p : plans)
        for (auto it = p.quantities.cbegin(); it != p.quantities.cend(); ++it)
            rows.append(QVariant(QList<QVariant>{p.name, p.date, it.key(), *it, p.n}));
    return rows;
}

constexpr int kMaxRows = 30000; // what one message's signed 16-bit count carries

} // namespace

void Server::attachPlanning(Client* c)
{
    KZConnection* k = c->conn;
    KZProtocolResolver* r = c->r;

    // -- production plans ------------------------------------------------------
    // Add, edit and delete have no reply: every logged-in client, the sender
    // included, gets the plans of the date that changed.
    const auto pushDate = [this](const QString& date) {
        const QList<QVariant> rows = planRows(storage_.plans(date).mid(0, kMaxRows));
        for (Client* other : std::as_const(clients_))
            if (other->loggedIn) other->r->lanGetDatePlanResponse(date, rows);
    };
    connect(k, &KZConnection::initPlan, c, [=] {
        if (!allowed(c, "InitPlan")) return r->lanInitPlanResponse({}, {});
        r->lanInitPlanResponse(storage_.planDates().mid(0, kMaxRows),
                               planRows(storage_.plans().mid(0, kMaxRows)));
    });
    connect(k, &KZConnection::getDatePlan, c, [=](const QString& date) {
        if (!allowed(c, "GetDatePlan")) return r->lanGetDatePlanResponse(date, {});
        r->lanGetDatePlanResponse(date, planRows(storage_.plans(date).mid(0, kMaxRows)));
    });
    // AddPlan: date, file, quantity by machine, n.
    connect(
        k, &KZConnection::addPlan, c,
        [=](const QString& date, const QString& file, const QMap<QString, int>& quantities, int n) {
            if (!allowed(c, "AddPlan")) return;
            bool ok = !date.isEmpty() && !file.isEmpty();
            {
                Storage::Transaction t(storage_);
                for (auto it = quantities.cbegin(); ok && it != quantities.cend(); ++it)
                    ok = storage_.putPlan({date, file, it.key(), *it, n, c->user});
                ok = ok && t.commit();
            }
            if (ok)
                record(c, QString(), QStringLiteral("plan added"), date + QLatin1Char(' ') + file);
            pushDate(date);
        });
    // EditPlan: date, file, machine, quantity, n.
    connect(k, &KZConnection::editPlan, c,
            [=](const QString& date, const QString& file, const QString& mac, int quantity, int n) {
                if (!allowed(c, "EditPlan")) return;
                if (storage_.putPlan({date, file, mac, quantity, n, c->user}))
                    record(c, mac, QStringLiteral("plan edited"), date + QLatin1Char(' ') + file);
                pushDate(date);
            });
    connect(k, &KZConnection::delPlan, c,
            [=](const QString& date, const QString& file, const QString& mac) {
                if (!allowed(c, "DelPlan")) return;
                if (storage_.deletePlan(date, file, mac))
                    record(c, mac, QStringLiteral("plan deleted"), date + QLatin1Char(' ') + file);
                pushDate(date);
            });

    // -- workshop plans ----------------------------------------------------------
    const auto pushWorkshop = [this](const QString& workshop) {
        const QList<QVariant> rows =
            workshopQueryRows(storage_.workshopPlans(workshop)).mid(0, kMaxRows);
        for (Client* other : std::as_const(clients_))
            if (other->loggedIn) other->r->lanWorkshopQueryPlanResult(workshop, rows);
    };
    connect(k, &KZConnection::initWorkshopData, c, [=] {
        if (!allowed(c, "InitWorkshopData")) return r->lanInitWorkshopDataResponse({});
        r->lanInitWorkshopDataResponse(workshopRows(storage_.workshopPlans()).mid(0, kMaxRows));
    });
    connect(k, &KZConnection::workshopQueryPlan, c, [=](const QString& workshop) {
        if (!allowed(c, "WorkshopQueryPlan")) return r->lanWorkshopQueryPlanResult(workshop, {});
        r->lanWorkshopQueryPlanResult(
            workshop, workshopQueryRows(storage_.workshopPlans(workshop)).mid(0, kMaxRows));
    });
    // A workshop plan without machines is not kept: its row would carry no
    // map count, which a receiver cannot tell from the next row.
    const auto putWorkshop = [=](const WorkshopPlan& p, const QString& oldName) {
        if (p.quantities.isEmpty()) {
            qCInfo(lcServer).noquote() << c->peer << "sent the workshop plan"
                                       << Texts::forLog(p.name) << "without machines; not kept";
        } else if (storage_.putWorkshopPlan(p, oldName)) {
            record(c, QString(), QStringLiteral("workshop plan"),
                   p.workshop + QLatin1Char(' ') + p.name);
        }
        pushWorkshop(p.workshop);
    };
    // WorkshopAddPlan: workshop, name, date, quantity by machine, n.
    connect(k, &KZConnection::workshopAddPlan, c,
            [=](const QString& workshop, const QString& name, const QString& date,
                const QMap<QString, int>& quantities, int n) {
                if (!allowed(c, "WorkshopAddPlan")) return;
                putWorkshop({workshop, name, date, QString(), quantities, n}, QString());
            });
    // WorkshopEditPlan: workshop, name, new name, date, note, quantities, n.
    connect(
        k, &KZConnection::workshopEditPlan, c,
        [=](const QString& workshop, const QString& name, const QString& newName,
            const QString& date, const QString& note, const QMap<QString, int>& quantities, int n) {
            if (!allowed(c, "WorkshopEditPlan")) return;
            putWorkshop({workshop, newName.isEmpty() ? name : newName, date, note, quantities, n},
                        name);
        });
    connect(k, &KZConnection::workshopDelPlan, c,
            [=](const QString& workshop, const QString& name) {
                if (!allowed(c, "WorkshopDelPlan")) return;
                storage_.deleteWorkshopPlan(workshop, name);
                pushWorkshop(workshop);
            });

    // -- planned stops and work time ----------------------------------------------
    // AddPlanShutItem: date, text, stops, names; the reply's number is the
    // new set's id. Edit names the set by its id first.
    connect(k, &KZConnection::addPlanShutItem, c,
            [=](const QString& date, const QString& text, const KZProtocolResolver::StopMap& stops,
                const QStringList& names) {
                const int id = allowed(c, "AddPlanShutItem")
                                   ? storage_.putShutItem({0, date, text, stops, names})
                                   : 0;
                if (id) record(c, QString(), QStringLiteral("stops added"), date);
                r->lanAddPlanShutItemResponse(id > 0, id > 0, id, date, text, stops, names);
            });
    connect(k, &KZConnection::editPlanShutItem, c,
            [=](const QString& id, const QString& date, const QString& text,
                const KZProtocolResolver::StopMap& stops, const QStringList& names) {
                bool ok = allowed(c, "EditPlanShutItem") && id.toInt() > 0;
                if (ok) {
                    Storage::Transaction t(storage_);
                    ok = storage_.deleteShutItem(id.toInt()) &&
                         storage_.putShutItem({id.toInt(), date, text, stops, names}) > 0 &&
                         t.commit();
                }
                r->lanEditPlanShutItemResponse(ok, ok, id.toInt(), id, date, text, stops, names);
            });
    connect(k, &KZConnection::delPlanShutItem, c, [=](const QString& id) {
        const bool ok = allowed(c, "DelPlanShutItem") && storage_.deleteShutItem(id.toInt());
        r->lanDelPlanShutItemResponse(ok, ok, id.toInt());
    });
    connect(k, &KZConnection::delPlanShutByDate, c, [=](const QString& date) {
        const bool ok = allowed(c, "DelPlanShutByDate") && storage_.deleteShutItemsOn(date) >= 0;
        r->lanDelPlanShutByDateResponse(ok, ok, date);
    });
    connect(k, &KZConnection::editPlanWorkTime, c,
            [=](const QString& date, const QMap<int, oee_worktime_item>& times) {
                const bool ok =
                    allowed(c, "EditPlanWorkTime") && storage_.setWorkTimes(date, times);
                r->lanEditPlanWorkTimeResponse(ok, ok, date, times);
            });
    connect(k, &KZConnection::delPlanWorkTime, c, [=](const QString& date) {
        const bool ok = allowed(c, "DelPlanWorkTime") && storage_.deleteWorkTimes(date);
        r->lanDelPlanWorkTimeResponse(ok, ok, date);
    });
    connect(k, &KZConnection::editPlanOutShutItem, c, [=](int, const QMap<int, QString>& stops) {
        const bool ok = allowed(c, "EditPlanOutShutItem") && storage_.setOutStops(stops);
        r->lanEditPlanOutShutItemResponse(ok, ok, stops);
    });

    // -- OEE data --------------------------------------------------------------
    // Figures from what the server keeps: planned quantities by file and
    // planned work time.
    connect(k, &KZConnection::loadOEEData, c,
            [=](const QStringList& macs, const QString& from, const QString& to, int n) {
                QMap<QString, oee_date_data> data;
                if (allowed(c, "LoadOEEData")) {
                    for (const StoredPlan& p : storage_.plans()) {
                        if (!macs.contains(p.mac) || p.date < from || p.date > to) continue;
                        oee_date_data& d = data[p.mac];
                        d.first = from;
                        d.second = to;
                        d.counts[p.file] += p.quantity;
                        d.amount += p.quantity;
                    }
                }
                r->lanLoadOEEDataResult(macs, from, to, n, data);
            });
    // One figure row per day: date, three empty texts, planned quantity,
    // planned hours and four figures the server does not measure (0).
    connect(k, &KZConnection::queryDateOEEData, c, [=](const QDate& from, const QDate& to, int n) {
        QList<QVariant> figures;
        if (allowed(c, "QueryDateOEEData") && from.isValid() && to.isValid()) {
            for (QDate d = from; d <= to && figures.size() < 366; d = d.addDays(1)) {
                const QString day = d.toString(QStringLiteral("yyyy-MM-dd"));
                int quantity = 0;
                for (const StoredPlan& p : storage_.plans(day)) quantity += p.quantity;
                double hours = 0;
                for (const oee_worktime_item& w : storage_.workTimes(day)) hours += w.amount;
                figures.append(QVariant(QList<QVariant>{day, QString(), QString(), QString(),
                                                        quantity, hours, 0.0, 0.0, 0.0, 0.0}));
            }
        }
        r->lanQueryDateOEEDataResult(n, figures, {}, {});
    });
}
