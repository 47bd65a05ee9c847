// Machine status reports: state, work log with per-process figures, alarm
// and abnormal-event counts, run times, daily totals, axis speed, bobbin
// thread and plan changes.
#include "kzprotocolresolver_p.h"

using namespace kz;

namespace {

// One work-log entry as the machine work log carries it: strz text8, strz
// text1, strz text2, strz text5, i32 value4, i32 value3 (value6 and value7
// stay home). The order differs from the record's and is kept on purpose.
void writeWorkLogEntry(Payload& p, const work_log& w)
{
    p << strz{w.text8} << strz{w.text1} << strz{w.text2} << strz{w.text5} << i32{w.value4}
      << i32{w.value3};
}

work_log readWorkLogEntry(Reader& r)
{
    work_log w;
    w.text8 = r.strz();
    w.text1 = r.strz();
    w.text2 = r.strz();
    w.text5 = r.strz();
    w.value4 = r.i32();
    w.value3 = r.i32();
    return w;
}

// Process map: u16 n { strz name, i32 count, dtext figure1, dtext figure2 }
void writeProcessMap(Payload& p, const QMap<QString, oee_process_data>& processes)
{
    p << count16(processes.size());
    for (auto it = processes.cbegin(); it != processes.cend(); ++it)
        p << strz{it.key()} << i32{it->count} << dtext{it->figure1} << dtext{it->figure2};
}

QMap<QString, oee_process_data> readProcessMap(Reader& r)
{
    QMap<QString, oee_process_data> out;
    r.forEach(r.count16(), [&] {
        const QString name = r.strz();
        oee_process_data v;
        v.count = r.i32();
        v.figure1 = r.dtext();
        v.figure2 = r.dtext();
        out.insert(name, v);
    });
    return out;
}

// The replies that carry strz a, strz b and a strintmap (alarm counts, run
// times) share one reader.
template <class Slot>
void fireTextsAndMap(const KZProtocolResolverPrivate& d, Slot slot, Reader& r)
{
    const QString a = r.strz();
    const QString b = r.strz();
    const QMap<QString, int> map = r.strintmap();
    d.fire(slot, a, b, map);
}

} // namespace

// MacState: reply strz a, strz b, strz c, u8 state
// The state byte stands last on the wire but third in the arguments.
void KZProtocolResolver::lanMacStateResponse(const QString& a, const QString& b,
                                             unsigned char state, const QString& c)
{
    d->send(Method::MacState, Reply, Payload() << strz{a} << strz{b} << strz{c} << u8{state});
}

void KZProtocolResolverPrivate::decodeMacState(uchar flag, Reader& r)
{
    if (flag != Reply) return;
    const QString a = r.strz();
    const QString b = r.strz();
    const QString c = r.strz();
    const unsigned char state = r.u8();
    fire(cb.onLanMacStateResultCB, a, b, state, c);
}

// MacWorkLog: request strz a, strz b, strz c, u16 n { work-log entry },
//             process map, strintmap counts
//             reply (empty)
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
    p << strz{a} << strz{b} << strz{c} << count16(logs.size());
    for (const work_log& w : logs) writeWorkLogEntry(p, w);
    writeProcessMap(p, processes);
    p << strintmap{counts};
    d->send(Method::MacWorkLog, Request, p);
}

void KZProtocolResolver::lanMacWorkLogResponse() { d->send(Method::MacWorkLog, Reply, Payload()); }

void KZProtocolResolverPrivate::decodeMacWorkLog(uchar flag, Reader& r)
{
    if (flag == Reply) return fire(cb.onLanMacWorkLogResultCB);
    if (flag != Request) return;
    const QString a = r.strz();
    const QString b = r.strz();
    const QString c = r.strz();
    const QList<work_log> logs = r.list<work_log>([&] { return readWorkLogEntry(r); });
    const QMap<QString, oee_process_data> processes = readProcessMap(r);
    const QMap<QString, int> counts = r.strintmap();
    fire(cb.onLanMacWorkLogCB, a, b, c, logs, counts, processes);
}

// MacAbnormal: reply strz a, strz b, strz c, i32 n, u16 count { i32 key, i32 value }
void KZProtocolResolver::lanMacAbnormalResponse(const QString& a, const QString& b,
                                                const QMap<int, int>& counts, const QString& c,
                                                int n)
{
    Payload p;
    p << strz{a} << strz{b} << strz{c} << i32{n} << count16(counts.size());
    for (auto it = counts.cbegin(); it != counts.cend(); ++it)
        p << i32{it.key()} << i32{it.value()};
    d->send(Method::MacAbnormal, Reply, p);
}

void KZProtocolResolverPrivate::decodeMacAbnormal(uchar flag, Reader& r)
{
    if (flag != Reply) return;
    const QString a = r.strz();
    const QString b = r.strz();
    const QString c = r.strz();
    const int n = r.i32();
    QMap<int, int> counts;
    r.forEach(r.count16(), [&] {
        const int key = r.i32();
        counts.insert(key, r.i32());
    });
    fire(cb.onLanMacAbnormalResultCB, a, b, counts, c, n);
}

// MacAlarmLog: reply strz a, strz b, strintmap counts
void KZProtocolResolver::lanMacAlarmLogResponse(const QString& a, const QString& b,
                                                const QMap<QString, int>& counts)
{
    d->send(Method::MacAlarmLog, Reply, Payload() << strz{a} << strz{b} << strintmap{counts});
}

void KZProtocolResolverPrivate::decodeMacAlarmLog(uchar flag, Reader& r)
{
    if (flag == Reply) fireTextsAndMap(*this, cb.onLanMacAlarmLogResultCB, r);
}

// MacDateTotal: request strintmap totals
void KZProtocolResolver::lanMacDateTotal(const QMap<QString, int>& totals)
{
    d->send(Method::MacDateTotal, Request, Payload() << strintmap{totals});
}

void KZProtocolResolverPrivate::decodeMacDateTotal(uchar flag, Reader& r)
{
    if (flag == Request) fire(cb.onLanMacDateTotalCB, r.strintmap());
}

// MacRunTime: reply strz a, strz b, strintmap times
void KZProtocolResolver::lanMacRunTimeResponse(const QString& a, const QString& b,
                                               const QMap<QString, int>& times)
{
    d->send(Method::MacRunTime, Reply, Payload() << strz{a} << strz{b} << strintmap{times});
}

void KZProtocolResolverPrivate::decodeMacRunTime(uchar flag, Reader& r)
{
    if (flag == Reply) fireTextsAndMap(*this, cb.onLanMacRunTimeResultCB, r);
}

// MacUpdateAxisSpeed: reply strz mac, i32 speed
void KZProtocolResolver::lanMacUpdateAxisSpeedResponse(const QString& mac, int speed)
{
    d->send(Method::MacUpdateAxisSpeed, Reply, Payload() << strz{mac} << i32{speed});
}

void KZProtocolResolverPrivate::decodeMacUpdateAxisSpeed(uchar flag, Reader& r)
{
    if (flag != Reply) return;
    const QString mac = r.strz();
    const int speed = r.i32();
    fire(cb.onLanMacUpdateAxisSpeedResultCB, mac, speed);
}

// MacUpdateBobbinThread: reply strz mac, i32 x, i32 y
void KZProtocolResolver::lanMacUpdateBobbinThreadResponse(const QString& mac, int x, int y)
{
    d->send(Method::MacUpdateBobbinThread, Reply, Payload() << strz{mac} << i32{x} << i32{y});
}

void KZProtocolResolverPrivate::decodeMacUpdateBobbinThread(uchar flag, Reader& r)
{
    if (flag != Reply) return;
    const QString mac = r.strz();
    const int x = r.i32();
    const int y = r.i32();
    fire(cb.onLanMacUpdateBobbinThreadResultCB, mac, x, y);
}

// UpdateMacPlan: reply strz a, strz b, i32 n
void KZProtocolResolver::lanUpdateMacPlanResponse(const QString& a, const QString& b, int n)
{
    d->send(Method::UpdateMacPlan, Reply, Payload() << strz{a} << strz{b} << i32{n});
}

void KZProtocolResolverPrivate::decodeUpdateMacPlan(uchar flag, Reader& r)
{
    if (flag != Reply) return;
    const QString a = r.strz();
    const QString b = r.strz();
    const int n = r.i32();
    fire(cb.onLanUpdateMacPlanResultCB, a, b, n);
}
