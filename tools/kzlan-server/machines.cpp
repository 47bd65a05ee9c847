// The machine registry, machine reports and the remote panel.
#include "server_p.h"
#include "texts.h"

void Server::attachMachines(Client* c)
{
    KZConnection* k = c->conn;
    KZProtocolResolver* r = c->r;

    // A client (or a machine's gateway) sends its machines: they are
    // registered or updated, announced as new to the others, and the list
    // is pushed.
    connect(k, &KZConnection::macInfo, c, [=](const QList<mac_info>& macs) {
        if (!allowed(c, "MacInfo")) return;
        bool valid = macs.size() <= Texts::kMaxItems;
        for (const mac_info& m : macs)
            valid = valid && Texts::isFileName(m.mac) && Texts::isName(m.mac) &&
                    Texts::isText(m.text2) && Texts::isText(m.text4) &&
                    Texts::isOptionalName(m.lv1Group) && Texts::isOptionalName(m.lv2Group);
        if (!acceptable(c, "MacInfo", valid)) return r->lanMacInfoResponse();
        // The machines that are new, or nothing when the change failed.
        stored(
            c,
            [macs](Storage& s) {
                QList<mac_info> added;
                Storage::Transaction t(s);
                for (const mac_info& m : macs) {
                    bool isNew = false;
                    if (!s.putMachine(m, &isNew)) return std::optional<QList<mac_info>>();
                    if (isNew) added.append(m);
                }
                return t.commit() ? std::optional(added) : std::nullopt;
            },
            [=](const std::optional<QList<mac_info>>& added) {
                r->lanMacInfoResponse();
                if (!added) return;
                for (const mac_info& m : *added) {
                    record(c, m.mac, QStringLiteral("machine added"), m.text2);
                    for (Client* other : std::as_const(clients_))
                        if (other != c && other->loggedIn) other->r->lanAddNewMacResponse(m);
                }
                pushMachines(c);
            });
    });
    connect(k, &KZConnection::macInfoResult, c, [] {}); // a client's acknowledgement of a push
    // EditMac has no reply: everyone, the sender included, gets the list.
    connect(k, &KZConnection::editMac, c, [=](const QString& mac, const QString& text2) {
        if (!allowed(c, "EditMac") || !acceptable(c, "EditMac", Texts::isText(text2))) return;
        stored(
            c, [mac, text2](Storage& s) { return s.renameMachine(mac, text2); },
            [=](bool ok) {
                if (!ok) {
                    qCInfo(lcServer).noquote()
                        << c->peer << "edited the unknown machine" << Texts::forLog(mac);
                    return;
                }
                record(c, mac, QStringLiteral("machine edited"), text2);
                pushMachines(nullptr);
            });
    });
    connect(k, &KZConnection::deleteMac, c, [=](const QStringList& macs) {
        const bool may = allowed(c, "DeleteMac");
        stored(
            c, [may, macs](Storage& s) { return may && s.deleteMachines(macs); },
            [=](bool ok) {
                if (ok)
                    record(c, QString(), QStringLiteral("machines deleted"),
                           macs.join(QLatin1Char(',')));
                r->lanDeleteMacResponse(ok, macs);
                if (ok) pushMachines(c);
            });
    });
    connect(k, &KZConnection::moveMacToGroup, c,
            [=](const QStringList& macs, const QString& lv1, const QString& lv2) {
                const bool may = allowed(c, "MoveMacToGroup") &&
                                 acceptable(c, "MoveMacToGroup",
                                            Texts::areNames(macs) && Texts::isOptionalName(lv1) &&
                                                Texts::isOptionalName(lv2));
                stored(
                    c, [=](Storage& s) { return may && s.moveMachines(macs, lv1, lv2); },
                    [=](bool ok) {
                        r->lanMoveMacToGroupResponse(ok, macs, lv1, lv2);
                        if (ok) pushMachines(c);
                    });
            });

    // Reports of a machine: kept in the event log.
    connect(k, &KZConnection::macWorkLog, c,
            [=](const QString& mac, const QString& date, const QString& text,
                const QList<work_log>& logs, const QMap<QString, int>& counts,
                const QMap<QString, oee_process_data>& processes) {
                if (!allowed(c, "MacWorkLog")) return;
                record(c, mac, QStringLiteral("work log"),
                       QStringLiteral("%1 %2: %3 entries, %4 counts, %5 processes")
                           .arg(date, text)
                           .arg(logs.size())
                           .arg(counts.size())
                           .arg(processes.size()));
                r->lanMacWorkLogResponse();
            });
    connect(k, &KZConnection::macDateTotal, c, [=](const QMap<QString, int>& totals) {
        if (!allowed(c, "MacDateTotal")) return;
        for (auto it = totals.cbegin(); it != totals.cend(); ++it)
            record(c, it.key(), QStringLiteral("date total"), QString::number(*it));
    });

    // The server holds no link to a machine's panel: remote mode is refused.
    connect(k, &KZConnection::remoteSetMode, c, [=](const QString& mac, int mode) {
        if (allowed(c, "RemoteSetMode"))
            qCInfo(lcServer).noquote() << c->peer << "asked for remote mode" << mode << "on"
                                       << Texts::forLog(mac) << "; no panel link";
        r->lanRemoteSetModeResponse(false, mac, mode, 0, 0);
    });
    connect(k, &KZConnection::remoteScreenTouch, c,
            [=](const QString& mac, unsigned char, unsigned short, unsigned short) {
                if (allowed(c, "RemoteScreenTouch"))
                    qCInfo(lcServer).noquote() << c->peer << "touched the panel of"
                                               << Texts::forLog(mac) << "; no panel link";
            });
}
