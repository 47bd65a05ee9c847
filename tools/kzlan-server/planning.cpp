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
    // included, gets the plans of the date that changed, read with the change.
    // `change(Storage&)` is recorded as `kind` when it went through.
    const auto changeDate = [=](const QString& date, const QString& mac, const QString& kind,
                                const QString& text, auto change) {
        stored(
            c,
            [date, change](Storage& s) {
                const bool ok = change(s);
                return std::make_pair(ok, planRows(s.plans(date).mid(0, kMaxRows)));
            },
            [=](const std::pair<bool, QList<QVariant>>& done) {
                if (done.first) record(c, mac, kind, text);
                sendToAll(KZEncodedMessages(
                    [&](KZProtocolResolver& r) { r.lanGetDatePlanResponse(date, done.second); }));
            });
    };
    connect(k, &KZConnection::initPlan, c, [=] {
        lookUp(
            c, "InitPlan", allowed(c, "InitPlan"),
            [](Storage& s) {
                return std::make_pair(s.planDates().mid(0, kMaxRows),
                                      planRows(s.plans().mid(0, kMaxRows)));
            },
            [r](const std::pair<QStringList, QList<QVariant>>& plans) {
                r->lanInitPlanResponse(plans.first, plans.second);
            });
    });
    connect(k, &KZConnection::getDatePlan, c, [=](const QString& date) {
        lookUp(
            c, "GetDatePlan", allowed(c, "GetDatePlan"),
            [date](Storage& s) { return planRows(s.plans(date).mid(0, kMaxRows)); },
            [r, date](const QList<QVariant>& rows) { r->lanGetDatePlanResponse(date, rows); });
    });
    // AddPlan: date, file, quantity by machine, n.
    connect(
        k, &KZConnection::addPlan, c,
        [=](const QString& date, const QString& file, const QMap<QString, int>& quantities, int n) {
            if (!allowed(c, "AddPlan")) return;
            const bool ok = !date.isEmpty() && !file.isEmpty();
            changeDate(
                date, QString(), QStringLiteral("plan added"), date + QLatin1Char(' ') + file,
                [ok, date, file, quantities, n, user = c->user](Storage& s) {
                    Storage::Transaction t(s);
                    bool done = ok;
                    for (auto it = quantities.cbegin(); done && it != quantities.cend(); ++it)
                        done = s.putPlan({date, file, it.key(), *it, n, user});
                    return done && t.commit();
                });
        });
    // EditPlan: date, file, machine, quantity, n.
    connect(k, &KZConnection::editPlan, c,
            [=](const QString& date, const QString& file, const QString& mac, int quantity, int n) {
                if (!allowed(c, "EditPlan")) return;
                changeDate(date, mac, QStringLiteral("plan edited"), date + QLatin1Char(' ') + file,
                           [plan = StoredPlan{date, file, mac, quantity, n, c->user}](Storage& s) {
                               return s.putPlan(plan);
                           });
            });
    connect(k, &KZConnection::delPlan, c,
            [=](const QString& date, const QString& file, const QString& mac) {
                if (!allowed(c, "DelPlan")) return;
                changeDate(date, mac, QStringLiteral("plan deleted"),
                           date + QLatin1Char(' ') + file,
                           [=](Storage& s) { return s.deletePlan(date, file, mac); });
            });

    // -- workshop plans ----------------------------------------------------------
    // As the production plans: the workshop's plans to every logged-in client.
    const auto changeWorkshop = [=](const QString& workshop, const QString& name, auto change) {
        stored(
            c,
            [workshop, change](Storage& s) {
                const bool ok = change(s);
                return std::make_pair(
                    ok, workshopQueryRows(s.workshopPlans(workshop)).mid(0, kMaxRows));
            },
            [=](const std::pair<bool, QList<QVariant>>& done) {
                if (done.first && !name.isEmpty())
                    record(c, QString(), QStringLiteral("workshop plan"),
                           workshop + QLatin1Char(' ') + name);
                sendToAll(KZEncodedMessages([&](KZProtocolResolver& r) {
                    r.lanWorkshopQueryPlanResult(workshop, done.second);
                }));
            });
    };
    connect(k, &KZConnection::initWorkshopData, c, [=] {
        lookUp(
            c, "InitWorkshopData", allowed(c, "InitWorkshopData"),
            [](Storage& s) { return workshopRows(s.workshopPlans()).mid(0, kMaxRows); },
            [r](const QList<QVariant>& rows) { r->lanInitWorkshopDataResponse(rows); });
    });
    connect(k, &KZConnection::workshopQueryPlan, c, [=](const QString& workshop) {
        lookUp(
            c, "WorkshopQueryPlan", allowed(c, "WorkshopQueryPlan"),
            [workshop](Storage& s) {
                return workshopQueryRows(s.workshopPlans(workshop)).mid(0, kMaxRows);
            },
            [r, workshop](const QList<QVariant>& rows) {
                r->lanWorkshopQueryPlanResult(workshop, rows);
            });
    });
    // A workshop plan without machines is not kept: its row would carry no
    // map count, which a receiver cannot tell from the next row.
    const auto putWorkshop = [=](const WorkshopPlan& p, const QString& oldName) {
        if (p.quantities.isEmpty())
            qCInfo(lcServer).noquote() << c->peer << "sent the workshop plan"
                                       << Texts::forLog(p.name) << "without machines; not kept";
        changeWorkshop(p.workshop, p.name, [p, oldName](Storage& s) {
            return !p.quantities.isEmpty() && s.putWorkshopPlan(p, oldName);
        });
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
                changeWorkshop(workshop, QString(),
                               [=](Storage& s) { return s.deleteWorkshopPlan(workshop, name); });
            });

    // -- planned stops and work time ----------------------------------------------
    // AddPlanShutItem: date, text, stops, names; the reply's number is the
    // new set's id. Edit names the set by its id first.
    connect(k, &KZConnection::addPlanShutItem, c,
            [=](const QString& date, const QString& text, const KZProtocolResolver::StopMap& stops,
                const QStringList& names) {
                const bool may = allowed(c, "AddPlanShutItem");
                stored(
                    c,
                    [=](Storage& s) {
                        return may ? s.putShutItem({0, date, text, stops, names}) : 0;
                    },
                    [=](int id) {
                        if (id > 0) record(c, QString(), QStringLiteral("stops added"), date);
                        r->lanAddPlanShutItemResponse(id > 0, id > 0, id, date, text, stops, names);
                    });
            });
    connect(k, &KZConnection::editPlanShutItem, c,
            [=](const QString& id, const QString& date, const QString& text,
                const KZProtocolResolver::StopMap& stops, const QStringList& names) {
                const bool may = allowed(c, "EditPlanShutItem") && id.toInt() > 0;
                stored(
                    c,
                    [=](Storage& s) {
                        if (!may) return false;
                        Storage::Transaction t(s);
                        return s.deleteShutItem(id.toInt()) &&
                               s.putShutItem({id.toInt(), date, text, stops, names}) > 0 &&
                               t.commit();
                    },
                    [=](bool ok) {
                        r->lanEditPlanShutItemResponse(ok, ok, id.toInt(), id, date, text, stops,
                                                       names);
                    });
            });
    connect(k, &KZConnection::delPlanShutItem, c, [=](const QString& id) {
        const bool may = allowed(c, "DelPlanShutItem");
        stored(
            c, [=](Storage& s) { return may && s.deleteShutItem(id.toInt()); },
            [=](bool ok) { r->lanDelPlanShutItemResponse(ok, ok, id.toInt()); });
    });
    connect(k, &KZConnection::delPlanShutByDate, c, [=](const QString& date) {
        const bool may = allowed(c, "DelPlanShutByDate");
        stored(
            c, [=](Storage& s) { return may && s.deleteShutItemsOn(date) >= 0; },
            [=](bool ok) { r->lanDelPlanShutByDateResponse(ok, ok, date); });
    });
    connect(k, &KZConnection::editPlanWorkTime, c,
            [=](const QString& date, const QMap<int, oee_worktime_item>& times) {
                const bool may = allowed(c, "EditPlanWorkTime");
                stored(
                    c, [=](Storage& s) { return may && s.setWorkTimes(date, times); },
                    [=](bool ok) { r->lanEditPlanWorkTimeResponse(ok, ok, date, times); });
            });
    connect(k, &KZConnection::delPlanWorkTime, c, [=](const QString& date) {
        const bool may = allowed(c, "DelPlanWorkTime");
        stored(
            c, [=](Storage& s) { return may && s.deleteWorkTimes(date); },
            [=](bool ok) { r->lanDelPlanWorkTimeResponse(ok, ok, date); });
    });
    connect(k, &KZConnection::editPlanOutShutItem, c, [=](int, const QMap<int, QString>& stops) {
        const bool may = allowed(c, "EditPlanOutShutItem");
        stored(
            c, [=](Storage& s) { return may && s.setOutStops(stops); },
            [=](bool ok) { r->lanEditPlanOutShutItemResponse(ok, ok, stops); });
    });

    // -- OEE data --------------------------------------------------------------
    // Figures from what the server keeps: planned quantities by file and
    // planned work time.
    connect(k, &KZConnection::loadOEEData, c,
            [=](const QStringList& macs, const QString& from, const QString& to, int n) {
                lookUp(
                    c, "LoadOEEData", allowed(c, "LoadOEEData"),
                    [=](Storage& s) {
                        QMap<QString, oee_date_data> data;
                        for (const StoredPlan& p : s.plans()) {
                            if (!macs.contains(p.mac) || p.date < from || p.date > to) continue;
                            oee_date_data& d = data[p.mac];
                            d.first = from;
                            d.second = to;
                            d.counts[p.file] += p.quantity;
                            d.amount += p.quantity;
                        }
                        return data;
                    },
                    [=](const QMap<QString, oee_date_data>& data) {
                        r->lanLoadOEEDataResult(macs, from, to, n, data);
                    });
            });
    // One figure row per day: date, three empty texts, planned quantity,
    // planned hours and four figures the server does not measure (0).
    connect(k, &KZConnection::queryDateOEEData, c, [=](const QDate& from, const QDate& to, int n) {
        lookUp(
            c, "QueryDateOEEData", allowed(c, "QueryDateOEEData") && from.isValid() && to.isValid(),
            [=](Storage& s) {
                QList<QVariant> figures;
                for (QDate d = from; d <= to && figures.size() < 366; d = d.addDays(1)) {
                    const QString day = d.toString(QStringLiteral("yyyy-MM-dd"));
                    int quantity = 0;
                    for (const StoredPlan& p : s.plans(day)) quantity += p.quantity;
                    double hours = 0;
                    for (const oee_worktime_item& w : s.workTimes(day)) hours += w.amount;
                    figures.append(QVariant(QList<QVariant>{day, QString(), QString(), QString(),
                                                            quantity, hours, 0.0, 0.0, 0.0, 0.0}));
                }
                return figures;
            },
            [=](const QList<QVariant>& figures) {
                r->lanQueryDateOEEDataResult(n, figures, {}, {});
            });
    });
}
