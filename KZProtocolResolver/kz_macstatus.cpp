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
    r.label("text8");
    w.text8 = r.strz();
    r.label("text1");
    w.text1 = r.strz();
    r.label("text2");
    w.text2 = r.strz();
    r.label("text5");
    w.text5 = r.strz();
    r.label("value4");
    w.value4 = r.i32();
    r.label("value3");
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

// MacState reply: strz a, strz b, strz c, u8 state; the state byte stands
// last on the wire but third in the arguments.
struct MacState : Layout<strz, strz, strz, u8>::Api<0, 1, 3, 2>
{
    static constexpr const char* names[] = {"a", "b", "c", "state"};
};

// MacAbnormal reply: strz a, strz b, strz c, i32 n, u16 count { i32 key, i32 value }
struct MacAbnormal : Layout<strz, strz, strz, i32, mapof<i32, i32>>::Api<0, 1, 4, 2, 3>
{
    static constexpr const char* names[] = {"a", "b", "c", "n", "counts"};
};

// MacDateTotal request: strintmap totals
struct MacDateTotal : Layout<strintmap>
{
    static constexpr const char* names[] = {"totals"};
};

// MacUpdateAxisSpeed reply: strz mac, i32 speed
struct AxisSpeed : Layout<strz, i32>
{
    static constexpr const char* names[] = {"mac", "speed"};
};

// MacUpdateBobbinThread reply: strz mac, i32 x, i32 y
struct BobbinThread : Layout<strz, i32, i32>
{
    static constexpr const char* names[] = {"mac", "x", "y"};
};

} // namespace

void KZProtocolResolver::lanMacStateResponse(const QString& a, const QString& b,
                                             unsigned char state, const QString& c)
{
    d->send<MacState>(Method::MacState, Reply, a, b, state, c);
}

void KZProtocolResolverPrivate::decodeMacState(uchar flag, Reader& r)
{
    if (flag == Reply) take<MacState>(r, cb.onLanMacStateResultCB);
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

void KZProtocolResolver::lanMacWorkLogResponse() { d->send<Empty>(Method::MacWorkLog, Reply); }

void KZProtocolResolverPrivate::decodeMacWorkLog(uchar flag, Reader& r)
{
    if (flag == Reply) return take<Empty>(r, cb.onLanMacWorkLogResultCB);
    if (flag != Request) return;
    r.label("a");
    const QString a = r.strz();
    r.label("b");
    const QString b = r.strz();
    r.label("c");
    const QString c = r.strz();
    r.label("logs");
    const QList<work_log> logs = r.list<work_log>([&] { return readWorkLogEntry(r); });
    const QMap<QString, oee_process_data> processes = readProcessMap(r);
    r.label("counts");
    const QMap<QString, int> counts = r.strintmap();
    fire(cb.onLanMacWorkLogCB, a, b, c, logs, counts, processes);
}

void KZProtocolResolver::lanMacAbnormalResponse(const QString& a, const QString& b,
                                                const QMap<int, int>& counts, const QString& c,
                                                int n)
{
    d->send<MacAbnormal>(Method::MacAbnormal, Reply, a, b, counts, c, n);
}

void KZProtocolResolverPrivate::decodeMacAbnormal(uchar flag, Reader& r)
{
    if (flag == Reply) take<MacAbnormal>(r, cb.onLanMacAbnormalResultCB);
}

// MacAlarmLog, MacRunTime: reply Texts2Map (counts, times)
void KZProtocolResolver::lanMacAlarmLogResponse(const QString& a, const QString& b,
                                                const QMap<QString, int>& counts)
{
    d->send<Texts2Map>(Method::MacAlarmLog, Reply, a, b, counts);
}

void KZProtocolResolverPrivate::decodeMacAlarmLog(uchar flag, Reader& r)
{
    if (flag == Reply) take<Texts2Map>(r, cb.onLanMacAlarmLogResultCB);
}

void KZProtocolResolver::lanMacRunTimeResponse(const QString& a, const QString& b,
                                               const QMap<QString, int>& times)
{
    d->send<Texts2Map>(Method::MacRunTime, Reply, a, b, times);
}

void KZProtocolResolverPrivate::decodeMacRunTime(uchar flag, Reader& r)
{
    if (flag == Reply) take<Texts2Map>(r, cb.onLanMacRunTimeResultCB);
}

void KZProtocolResolver::lanMacDateTotal(const QMap<QString, int>& totals)
{
    d->send<MacDateTotal>(Method::MacDateTotal, Request, totals);
}

void KZProtocolResolverPrivate::decodeMacDateTotal(uchar flag, Reader& r)
{
    if (flag == Request) take<MacDateTotal>(r, cb.onLanMacDateTotalCB);
}

void KZProtocolResolver::lanMacUpdateAxisSpeedResponse(const QString& mac, int speed)
{
    d->send<AxisSpeed>(Method::MacUpdateAxisSpeed, Reply, mac, speed);
}

void KZProtocolResolverPrivate::decodeMacUpdateAxisSpeed(uchar flag, Reader& r)
{
    if (flag == Reply) take<AxisSpeed>(r, cb.onLanMacUpdateAxisSpeedResultCB);
}

void KZProtocolResolver::lanMacUpdateBobbinThreadResponse(const QString& mac, int x, int y)
{
    d->send<BobbinThread>(Method::MacUpdateBobbinThread, Reply, mac, x, y);
}

void KZProtocolResolverPrivate::decodeMacUpdateBobbinThread(uchar flag, Reader& r)
{
    if (flag == Reply) take<BobbinThread>(r, cb.onLanMacUpdateBobbinThreadResultCB);
}

// UpdateMacPlan: reply Texts2Int
void KZProtocolResolver::lanUpdateMacPlanResponse(const QString& a, const QString& b, int n)
{
    d->send<Texts2Int>(Method::UpdateMacPlan, Reply, a, b, n);
}

void KZProtocolResolverPrivate::decodeUpdateMacPlan(uchar flag, Reader& r)
{
    if (flag == Reply) take<Texts2Int>(r, cb.onLanUpdateMacPlanResultCB);
}
