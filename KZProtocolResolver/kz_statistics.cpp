// Machine data and statistics: data and processing-record queries, the
// statistics over a date range, processing statistics, and the app queries
// for the logs of several machines at once.
#include "kzprotocolresolver_p.h"

#include <QDate>

using namespace kz;

namespace {

const QString kDayFormat = QStringLiteral("yyyy-MM-dd");

// QueryStatisticItem: strz text1, strz text3, i32 value2
void writeStatisticItem(Payload& p, const QueryStatisticItem& s)
{
    p << strz{s.text1} << strz{s.text3} << i32{s.value2};
}

QueryStatisticItem readStatisticItem(Reader& r)
{
    QueryStatisticItem s;
    r.label("text1");
    s.text1 = r.strz();
    r.label("text3");
    s.text3 = r.strz();
    r.label("value2");
    s.value2 = r.i32();
    return s;
}

// work_log in QueryMacProcess: strz text8, text1, text2, i32 value4, value3
void writeMacProcessLog(Payload& p, const work_log& w)
{
    p << strz{w.text8} << strz{w.text1} << strz{w.text2} << i32{w.value4} << i32{w.value3};
}

work_log readMacProcessLog(Reader& r)
{
    work_log w;
    r.label("text8");
    w.text8 = r.strz();
    r.label("text1");
    w.text1 = r.strz();
    r.label("text2");
    w.text2 = r.strz();
    r.label("value4");
    w.value4 = r.i32();
    r.label("value3");
    w.value3 = r.i32();
    return w;
}

// work_log in AppQueryProcessLogs: strz text1, text2, i32 value3, value4,
// strz text5, i32 value6, value7 (text8 stays home)
void writeAppProcessLog(Payload& p, const work_log& w)
{
    p << strz{w.text1} << strz{w.text2} << i32{w.value3} << i32{w.value4} << strz{w.text5}
      << i32{w.value6} << i32{w.value7};
}

work_log readAppProcessLog(Reader& r)
{
    work_log w;
    r.label("text1");
    w.text1 = r.strz();
    r.label("text2");
    w.text2 = r.strz();
    r.label("value3");
    w.value3 = r.i32();
    r.label("value4");
    w.value4 = r.i32();
    r.label("text5");
    w.text5 = r.strz();
    r.label("value6");
    w.value6 = r.i32();
    r.label("value7");
    w.value7 = r.i32();
    return w;
}

// boot_record: strz text1, strz text2, i32 value3, i32 value5 (reserved4 stays home)
void writeBoot(Payload& p, const boot_record& b)
{
    p << strz{b.text1} << strz{b.text2} << i32{b.value3} << i32{b.value5};
}

boot_record readBoot(Reader& r)
{
    boot_record b;
    r.label("text1");
    b.text1 = r.strz();
    r.label("text2");
    b.text2 = r.strz();
    r.label("value3");
    b.value3 = r.i32();
    r.label("value5");
    b.value5 = r.i32();
    return b;
}

// alarm_log_info: strz text1, strz text2
void writeAlarmLog(Payload& p, const alarm_log_info& a) { p << strz{a.text1} << strz{a.text2}; }

alarm_log_info readAlarmLog(Reader& r)
{
    alarm_log_info a;
    r.label("text1");
    a.text1 = r.strz();
    r.label("text2");
    a.text2 = r.strz();
    return a;
}

/// A map of text to a list: u16 keys { strz key, u16 n { record as Rec } }
template <class Rec>
using ListMap = mapof<strz, listof<Rec>>;

// QueryProcessStatistic data: strz text, ListMap of items
struct ProcessStatistic
    : Layout<strz, ListMap<record<QueryStatisticItem, writeStatisticItem, readStatisticItem>>>
{
    static constexpr const char* names[] = {"text", "statistic"};
};

// QueryMacProcess request: strz a, strz b, u16 n { work_log as above }
struct MacProcess
    : Layout<strz, strz, listof<record<work_log, writeMacProcessLog, readMacProcessLog>>>
{
    static constexpr const char* names[] = {"a", "b", "logs"};
};

// QueryMacStatistic request: strz s1, s2, s3, s4
struct Texts4 : Layout<strz, strz, strz, strz>
{
    static constexpr const char* names[] = {"s1", "s2", "s3", "s4"};
};

// App queries: their requests, and their data as a ListMap of records
struct AppProcessQuery : Layout<strz, strz, flag8, strz, strlist>
{
    static constexpr const char* names[] = {"a", "b", "f", "c", "list"};
};

struct AppQuery : Layout<strz, strz, strlist>
{
    static constexpr const char* names[] = {"a", "b", "list"};
};

template <class Rec>
struct AppData : Layout<ListMap<Rec>>
{
    static constexpr const char* names[] = {"map"};
};

using AppProcessData = AppData<record<work_log, writeAppProcessLog, readAppProcessLog>>;
using AppRuntimeData = AppData<record<boot_record, writeBoot, readBoot>>;
using AppAlarmData = AppData<record<alarm_log_info, writeAlarmLog, readAlarmLog>>;

} // namespace

// QueryMacDatas: request Texts2 (no reply message)
void KZProtocolResolver::lanQueryMacDatas(const QString& a, const QString& b)
{
    d->send<Texts2>(Method::QueryMacDatas, Request, a, b);
}

void KZProtocolResolverPrivate::decodeQueryMacDatas(uchar flag, Reader& r)
{
    if (flag == Request) take<Texts2>(r, cb.onLanQueryMacDatasCB);
}

// QueryProcessStatistic: data ProcessStatistic, under the request flag
void KZProtocolResolver::lanQueryProcessStatisticResponse(const QString& text,
                                                          const MapQueryStatistic& statistic)
{
    d->send<ProcessStatistic>(Method::QueryProcessStatistic, Request, text, statistic);
}

void KZProtocolResolverPrivate::decodeQueryProcessStatistic(uchar flag, Reader& r)
{
    if (flag == Request) take<ProcessStatistic>(r, cb.onLanQueryProcessStatisticResultCB);
}

void KZProtocolResolver::lanQueryMacProcess(const QString& a, const QString& b,
                                            const QList<work_log>& logs)
{
    d->send<MacProcess>(Method::QueryMacProcess, Request, a, b, logs);
}

void KZProtocolResolverPrivate::decodeQueryMacProcess(uchar flag, Reader& r)
{
    if (flag == Request) take<MacProcess>(r, cb.onLanQueryMacProcessCB);
}

// QueryMacStatistic: request Texts4
// reply strz start, strz end,
//       u16 names { strz name, i32 m1[name], i32 m2[name] },
//       u16 n (days from start to end, plus one),
//       n + 1 times { strz day, i32 m3[day], i32 m4[day] } from start on,
//       strintmap m5, strintmap m6
// The day entries run one past the count written (the day after end is
// included) and the receiver reads as many: kept as the peers expect it.
void KZProtocolResolver::lanQueryMacStatistic(const QString& s1, const QString& s2,
                                              const QString& s3, const QString& s4)
{
    d->send<Texts4>(Method::QueryMacStatistic, Request, s1, s2, s3, s4);
}

void KZProtocolResolver::lanQueryMacStatisticResult(
    const QString& start, const QString& end, const QStringList& names,
    const QMap<QString, int>& m1, const QMap<QString, int>& m2, const QMap<QString, int>& m3,
    const QMap<QString, int>& m4, const QMap<QString, int>& m5, const QMap<QString, int>& m6)
{
    const QDate from = QDate::fromString(start, kDayFormat);
    const QDate to = QDate::fromString(end, kDayFormat);
    // An invalid date gives -1: no day entries, and the receiver reads none.
    const qint64 n = from.isValid() && to.isValid() ? from.daysTo(to) + 1 : -1;

    Payload p(32 + 16 * names.size() + 24 * int(qBound(qint64(0), n + 1, qint64(1) << 16)));
    p << strz{start} << strz{end} << count16(names.size());
    if (names.size() > 0xFFFF) p.noteLoss("statistics names beyond 16 bits", names.size());
    for (const QString& name : names) p << strz{name} << i32{m1.value(name)} << i32{m2.value(name)};
    p << count16(int(n));
    if (n < -0x8000 || n > 0x7FFF) p.noteLoss("statistics day count beyond 16 bits", n);
    for (qint64 i = 0; i <= n; ++i) {
        const QString day = from.addDays(i).toString(kDayFormat);
        p << strz{day} << i32{m3.value(day)} << i32{m4.value(day)};
    }
    p << strintmap{m5} << strintmap{m6};
    d->send(Method::QueryMacStatistic, Reply, p);
}

void KZProtocolResolverPrivate::decodeQueryMacStatistic(uchar flag, Reader& r)
{
    if (flag == Request) return take<Texts4>(r, cb.onLanQueryMacStatisticCB);
    if (flag != Reply) return;
    r.label("start");
    const QString start = r.strz();
    r.label("end");
    const QString end = r.strz();
    QStringList names;
    QMap<QString, int> m1, m2, m3, m4;
    r.label("nameCount");
    r.forEach(r.count16(), [&] {
        r.label("name");
        const QString name = r.strz();
        r.label("v1");
        const int v1 = r.i32();
        r.label("v2");
        const int v2 = r.i32();
        names.append(name);
        m1.insert(name, v1);
        m2.insert(name, v2);
    });
    r.label("days");
    const int days = r.i16() + 1;
    r.forEach(days, [&] {
        r.label("day");
        const QString day = r.strz();
        r.label("v3");
        const int v3 = r.i32();
        r.label("v4");
        const int v4 = r.i32();
        m3.insert(day, v3);
        m4.insert(day, v4);
    });
    r.label("m5");
    const QMap<QString, int> m5 = r.strintmap();
    r.label("m6");
    const QMap<QString, int> m6 = r.strintmap();
    fire(cb.onLanQueryMacStatisticResultCB, start, end, names, m1, m2, m3, m4, m5, m6);
}

// App queries: request (reply flag) AppProcessQuery or AppQuery | data
// (request flag) AppData. The flags are reversed and kept so: peers send
// and expect them this way.
void KZProtocolResolver::lanAppQueryProcessLogs(const QString& a, const QString& b, bool f,
                                                const QString& c, const QStringList& list)
{
    d->send<AppProcessQuery>(Method::AppQueryProcessLogs, Reply, a, b, f, c, list);
}

void KZProtocolResolver::lanAppQueryProcessLogsResponse(const QMap<QString, QList<work_log>>& logs)
{
    d->send<AppProcessData>(Method::AppQueryProcessLogs, Request, logs);
}

void KZProtocolResolverPrivate::decodeAppQueryProcessLogs(uchar flag, Reader& r)
{
    route<AppProcessData, AppProcessQuery>(flag, r, cb.onLanAppQueryProcessLogsResultCB,
                                           cb.onLanAppQueryProcessLogsCB);
}

void KZProtocolResolver::lanAppQueryRuntimeLogs(const QString& a, const QString& b,
                                                const QStringList& list)
{
    d->send<AppQuery>(Method::AppQueryRuntimeLogs, Reply, a, b, list);
}

void KZProtocolResolver::lanAppQueryRuntimeLogsResponse(
    const QMap<QString, QList<boot_record>>& boots)
{
    d->send<AppRuntimeData>(Method::AppQueryRuntimeLogs, Request, boots);
}

void KZProtocolResolverPrivate::decodeAppQueryRuntimeLogs(uchar flag, Reader& r)
{
    route<AppRuntimeData, AppQuery>(flag, r, cb.onLanAppQueryRuntimeLogsResultCB,
                                    cb.onLanAppQueryRuntimeLogsCB);
}

void KZProtocolResolver::lanAppQueryAlarmLogs(const QString& a, const QString& b,
                                              const QStringList& list)
{
    d->send<AppQuery>(Method::AppQueryAlarmLogs, Reply, a, b, list);
}

void KZProtocolResolver::lanAppQueryAlarmLogsResponse(
    const QMap<QString, QList<alarm_log_info>>& alarms)
{
    d->send<AppAlarmData>(Method::AppQueryAlarmLogs, Request, alarms);
}

void KZProtocolResolverPrivate::decodeAppQueryAlarmLogs(uchar flag, Reader& r)
{
    route<AppAlarmData, AppQuery>(flag, r, cb.onLanAppQueryAlarmLogsResultCB,
                                  cb.onLanAppQueryAlarmLogsCB);
}
