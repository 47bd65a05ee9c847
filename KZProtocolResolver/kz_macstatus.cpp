// Machine status reports: the work log is written here (it is not sent at all
// when empty, and its process map reads field by field); the other messages
// come from protocol/macstatus.table.
#include "kzprotocolresolver_p.h"

using namespace kz;

namespace {

// Process map: u16 n { strz name, i32 count, dtext figure1, dtext figure2 }
template <class R>
QMap<QString, oee_process_data> readProcessMap(R& r)
{
    QMap<QString, oee_process_data> out;
    r.label("processCount");
    r.forEach(r.count16(), [&] {
        r.label("name");
        const QString name = r.strz();
        oee_process_data v;
        r.label("count");
        v.count = r.i32();
        r.label("figure1");
        v.figure1 = r.dtext();
        r.label("figure2");
        v.figure2 = r.dtext();
        out.insert(name, v);
    });
    return out;
}

} // namespace

// MacWorkLog: request strz a, strz b, strz c, u16 n { work-log entry },
//             process map, strintmap counts
// The process map (sixth argument) travels before the count map (fifth).
void KZProtocolResolver::lanMacWorkLog(const QString& a, const QString& b, const QString& c,
                                       const QList<work_log>& logs,
                                       const QMap<QString, int>& counts,
                                       const QMap<QString, oee_process_data>& processes)
{
    // A log whose 16-bit count is 0 (empty, or exactly 65536 entries) is not sent at all.
    if (count16(logs.size()).v == 0) {
        if (!logs.isEmpty()) d->warnLoss(Method::MacWorkLog, Request, "16-bit count", logs.size());
        return;
    }
    Payload p(64 + 48 * logs.size());
    p << strz{a} << strz{b} << strz{c};
    Field<listof<form_work_log_workLog>>::write(p, logs);
    Field<mapof<strz, form_oee_process_data_workLog>>::write(p, processes);
    p << strintmap{counts};
    d->send(Method::MacWorkLog, Request, p);
}

template <class R>
void KZProtocolResolverPrivate::decodeMacWorkLogRequest(R& r)
{
    r.label("a");
    const QString a = r.strz();
    r.label("b");
    const QString b = r.strz();
    r.label("c");
    const QString c = r.strz();
    r.label("logs");
    const QList<work_log> logs = Field<listof<form_work_log_workLog>>::read(r);
    const QMap<QString, oee_process_data> processes = readProcessMap(r);
    r.label("counts");
    const QMap<QString, int> counts = r.strintmap();
    fire(cb.onLanMacWorkLogCB, a, b, c, logs, counts, processes);
}

#include "kz_macstatus.inc"
