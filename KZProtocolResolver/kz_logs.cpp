// Log queries and the data messages that answer them: processing, run-time,
// abnormal-event, alarm, processing-stop and shutdown logs, and the second
// generation of processing, run-time, abnormal-event and alarm records.
#include "kzprotocolresolver_p.h"

#include <cmath>
#include <limits>

using namespace kz;

namespace {

/// A double sent as a whole number: rounded to the nearest integer (halves
/// to even), as i32. Values beyond the 32-bit range go out at its ends, NaN
/// as 0; both are noted as lost.
struct dblint
{
};

} // namespace

template <>
struct kz::Field<dblint>
{
    using Value = double;
    static void write(Payload& p, double v)
    {
        const double whole = std::nearbyint(v); // the default rounding: halves to even
        constexpr double lo = std::numeric_limits<qint32>::min();
        constexpr double hi = std::numeric_limits<qint32>::max();
        qint32 out = 0;
        if (whole >= lo && whole <= hi)
            out = qint32(whole);
        else {
            out = std::isnan(whole) ? 0 : whole < lo ? qint32(lo) : qint32(hi);
            p.noteLoss("whole-number figure beyond 32 bits", qint64(out));
        }
        p << i32{out};
    }
    static double read(Reader& r) { return r.i32(); }
};

namespace {

// kz_log_process: strz text1..text3, u16 n { strz text1, i32 value2..value8 }
void writeProcessEntry(Payload& p, const kz_log_process_entry& e)
{
    p << strz{e.text1} << i32{e.value2} << i32{e.value3} << i32{e.value4} << i32{e.value5}
      << i32{e.value6} << i32{e.value7} << i32{e.value8};
}

kz_log_process_entry readProcessEntry(Reader& r)
{
    kz_log_process_entry e;
    r.label("text1");
    e.text1 = r.strz();
    r.label("value2");
    e.value2 = r.i32();
    r.label("value3");
    e.value3 = r.i32();
    r.label("value4");
    e.value4 = r.i32();
    r.label("value5");
    e.value5 = r.i32();
    r.label("value6");
    e.value6 = r.i32();
    r.label("value7");
    e.value7 = r.i32();
    r.label("value8");
    e.value8 = r.i32();
    return e;
}

using ProcessEntries = listof<record<kz_log_process_entry, writeProcessEntry, readProcessEntry>>;

void writeProcess(Payload& p, const kz_log_process& l)
{
    p << strz{l.text1} << strz{l.text2} << strz{l.text3};
    Field<ProcessEntries>::write(p, l.entries);
}

kz_log_process readProcess(Reader& r)
{
    kz_log_process l;
    r.label("text1");
    l.text1 = r.strz();
    r.label("text2");
    l.text2 = r.strz();
    r.label("text3");
    l.text3 = r.strz();
    r.label("entries");
    l.entries = Field<ProcessEntries>::read(r);
    return l;
}

// kz_log_runtime: strz text1..text3, u16 n { strz text1, strz text2, i32 value3..value5 }
void writeRuntimeEntry(Payload& p, const kz_log_runtime_entry& e)
{
    p << strz{e.text1} << strz{e.text2} << i32{e.value3} << i32{e.value4} << i32{e.value5};
}

kz_log_runtime_entry readRuntimeEntry(Reader& r)
{
    kz_log_runtime_entry e;
    r.label("text1");
    e.text1 = r.strz();
    r.label("text2");
    e.text2 = r.strz();
    r.label("value3");
    e.value3 = r.i32();
    r.label("value4");
    e.value4 = r.i32();
    r.label("value5");
    e.value5 = r.i32();
    return e;
}

using RuntimeEntries = listof<record<kz_log_runtime_entry, writeRuntimeEntry, readRuntimeEntry>>;

void writeRuntime(Payload& p, const kz_log_runtime& l)
{
    p << strz{l.text1} << strz{l.text2} << strz{l.text3};
    Field<RuntimeEntries>::write(p, l.entries);
}

kz_log_runtime readRuntime(Reader& r)
{
    kz_log_runtime l;
    r.label("text1");
    l.text1 = r.strz();
    r.label("text2");
    l.text2 = r.strz();
    r.label("text3");
    l.text3 = r.strz();
    r.label("entries");
    l.entries = Field<RuntimeEntries>::read(r);
    return l;
}

// kz_abnormal_info, short form: strz text2, text0, text4..text7, i32 value8
//                   long form:  strz text1, then the short form
// text2 ahead of text0 is the format; reserved3 travels in neither.
void writeAbnormalShort(Payload& p, const kz_abnormal_info& a)
{
    p << strz{a.text2} << strz{a.text0} << strz{a.text4} << strz{a.text5} << strz{a.text6}
      << strz{a.text7} << i32{a.value8};
}

kz_abnormal_info readAbnormalShort(Reader& r)
{
    kz_abnormal_info a;
    r.label("text2");
    a.text2 = r.strz();
    r.label("text0");
    a.text0 = r.strz();
    r.label("text4");
    a.text4 = r.strz();
    r.label("text5");
    a.text5 = r.strz();
    r.label("text6");
    a.text6 = r.strz();
    r.label("text7");
    a.text7 = r.strz();
    r.label("value8");
    a.value8 = r.i32();
    return a;
}

void writeAbnormalLong(Payload& p, const kz_abnormal_info& a)
{
    p << strz{a.text1};
    writeAbnormalShort(p, a);
}

kz_abnormal_info readAbnormalLong(Reader& r)
{
    r.label("text1");
    const QString text1 = r.strz();
    kz_abnormal_info a = readAbnormalShort(r);
    a.text1 = text1;
    return a;
}

// kz_log_alarm: strz text1..text3, u16 n { strz text1..text3, i32 value4 }
void writeAlarmEntry(Payload& p, const kz_log_alarm_entry& e)
{
    p << strz{e.text1} << strz{e.text2} << strz{e.text3} << i32{e.value4};
}

kz_log_alarm_entry readAlarmEntry(Reader& r)
{
    kz_log_alarm_entry e;
    r.label("text1");
    e.text1 = r.strz();
    r.label("text2");
    e.text2 = r.strz();
    r.label("text3");
    e.text3 = r.strz();
    r.label("value4");
    e.value4 = r.i32();
    return e;
}

using AlarmEntries = listof<record<kz_log_alarm_entry, writeAlarmEntry, readAlarmEntry>>;

void writeAlarm(Payload& p, const kz_log_alarm& l)
{
    p << strz{l.text1} << strz{l.text2} << strz{l.text3};
    Field<AlarmEntries>::write(p, l.entries);
}

kz_log_alarm readAlarm(Reader& r)
{
    kz_log_alarm l;
    r.label("text1");
    l.text1 = r.strz();
    r.label("text2");
    l.text2 = r.strz();
    r.label("text3");
    l.text3 = r.strz();
    r.label("entries");
    l.entries = Field<AlarmEntries>::read(r);
    return l;
}

// kz_log_processstop: strz text1, strz text2, u8 code3 (its low 8 bits, not
// inverted), strz text4, strz text5, i32 value6
void writeProcessStop(Payload& p, const kz_log_processstop& s)
{
    p << strz{s.text1} << strz{s.text2} << u8{quint8(s.code3)} << strz{s.text4} << strz{s.text5}
      << i32{s.value6};
}

kz_log_processstop readProcessStop(Reader& r)
{
    kz_log_processstop s;
    r.label("text1");
    s.text1 = r.strz();
    r.label("text2");
    s.text2 = r.strz();
    r.label("code3");
    s.code3 = r.u8();
    r.label("text4");
    s.text4 = r.strz();
    r.label("text5");
    s.text5 = r.strz();
    r.label("value6");
    s.value6 = r.i32();
    return s;
}

// kz_log_shutdown: strz text1..text4, i32 value5
void writeShutdown(Payload& p, const kz_log_shutdown& s)
{
    p << strz{s.text1} << strz{s.text2} << strz{s.text3} << strz{s.text4} << i32{s.value5};
}

kz_log_shutdown readShutdown(Reader& r)
{
    kz_log_shutdown s;
    r.label("text1");
    s.text1 = r.strz();
    r.label("text2");
    s.text2 = r.strz();
    r.label("text3");
    s.text3 = r.strz();
    r.label("text4");
    s.text4 = r.strz();
    r.label("value5");
    s.value5 = r.i32();
    return s;
}

// kz_log_process_detail: strz text0..text3, i32 value4..value6, dblint figure7,
// i32 value8, dtext figure9, strz text10, dtext figure11, dtext figure12,
// strz text13, dtext figure14, flag8 flag15
void writeProcessDetail(Payload& p, const kz_log_process_detail& d)
{
    p << strz{d.text0} << strz{d.text1} << strz{d.text2} << strz{d.text3} << i32{d.value4}
      << i32{d.value5} << i32{d.value6};
    Field<dblint>::write(p, d.figure7);
    p << i32{d.value8} << dtext{d.figure9} << strz{d.text10} << dtext{d.figure11}
      << dtext{d.figure12} << strz{d.text13} << dtext{d.figure14} << flag8{d.flag15};
}

kz_log_process_detail readProcessDetail(Reader& r)
{
    kz_log_process_detail d;
    r.label("text0");
    d.text0 = r.strz();
    r.label("text1");
    d.text1 = r.strz();
    r.label("text2");
    d.text2 = r.strz();
    r.label("text3");
    d.text3 = r.strz();
    r.label("value4");
    d.value4 = r.i32();
    r.label("value5");
    d.value5 = r.i32();
    r.label("value6");
    d.value6 = r.i32();
    r.label("figure7");
    d.figure7 = Field<dblint>::read(r);
    r.label("value8");
    d.value8 = r.i32();
    r.label("figure9");
    d.figure9 = r.dtext();
    r.label("text10");
    d.text10 = r.strz();
    r.label("figure11");
    d.figure11 = r.dtext();
    r.label("figure12");
    d.figure12 = r.dtext();
    r.label("text13");
    d.text13 = r.strz();
    r.label("figure14");
    d.figure14 = r.dtext();
    r.label("flag15");
    d.flag15 = r.flag8();
    return d;
}

// kz_log_runtime_info: strz text1, text2, text0, text3, i32 value5, strz text4,
// i32 value6, i32 value7 (the order is the format)
void writeRuntimeInfo(Payload& p, const kz_log_runtime_info& i)
{
    p << strz{i.text1} << strz{i.text2} << strz{i.text0} << strz{i.text3} << i32{i.value5}
      << strz{i.text4} << i32{i.value6} << i32{i.value7};
}

kz_log_runtime_info readRuntimeInfo(Reader& r)
{
    kz_log_runtime_info i;
    r.label("text1");
    i.text1 = r.strz();
    r.label("text2");
    i.text2 = r.strz();
    r.label("text0");
    i.text0 = r.strz();
    r.label("text3");
    i.text3 = r.strz();
    r.label("value5");
    i.value5 = r.i32();
    r.label("text4");
    i.text4 = r.strz();
    r.label("value6");
    i.value6 = r.i32();
    r.label("value7");
    i.value7 = r.i32();
    return i;
}

// kz_log_alarm_info: strz text1, text2, text0, text3, text4, text5, dblint figure6
void writeAlarmInfo(Payload& p, const kz_log_alarm_info& a)
{
    p << strz{a.text1} << strz{a.text2} << strz{a.text0} << strz{a.text3} << strz{a.text4}
      << strz{a.text5};
    Field<dblint>::write(p, a.figure6);
}

kz_log_alarm_info readAlarmInfo(Reader& r)
{
    kz_log_alarm_info a;
    r.label("text1");
    a.text1 = r.strz();
    r.label("text2");
    a.text2 = r.strz();
    r.label("text0");
    a.text0 = r.strz();
    r.label("text3");
    a.text3 = r.strz();
    r.label("text4");
    a.text4 = r.strz();
    r.label("text5");
    a.text5 = r.strz();
    r.label("figure6");
    a.figure6 = Field<dblint>::read(r);
    return a;
}

/// A data message: strz text, u16 n { record as Rec }
template <class Rec>
struct LogData : Layout<strz, listof<Rec>>
{
    static constexpr const char* names[] = {"text", "records"};
};

using ProcessData = LogData<record<kz_log_process, writeProcess, readProcess>>;
using RuntimeData = LogData<record<kz_log_runtime, writeRuntime, readRuntime>>;
using AbnormalData = LogData<record<kz_abnormal_info, writeAbnormalShort, readAbnormalShort>>;
using AlarmData = LogData<record<kz_log_alarm, writeAlarm, readAlarm>>;
using ProcessStopData = LogData<record<kz_log_processstop, writeProcessStop, readProcessStop>>;
using ShutdownData = LogData<record<kz_log_shutdown, writeShutdown, readShutdown>>;
using Process2Data = LogData<record<kz_log_process_detail, writeProcessDetail, readProcessDetail>>;
using Runtime2Data = LogData<record<kz_log_runtime_info, writeRuntimeInfo, readRuntimeInfo>>;
using Abnormal2Data = LogData<record<kz_abnormal_info, writeAbnormalLong, readAbnormalLong>>;
using Alarm2Data = LogData<record<kz_log_alarm_info, writeAlarmInfo, readAlarmInfo>>;

// QueryLog request: strz a, strz b, strz c, i32 k, flag8 f1..f4, strlist list
// (k second and the flags after it in the API)
struct QueryLog : Layout<strz, strz, strz, i32, flag8, flag8, flag8, flag8,
                         strlist>::Api<0, 3, 1, 2, 4, 5, 6, 7, 8>
{
    static constexpr const char* names[] = {"a", "b", "c", "k", "f1", "f2", "f3", "f4", "list"};
};

// QueryLogsByFilter request: strz a, strz b, strz c, flag8 f, strlist list1,
// strlist list2 (f first in the API)
struct QueryLogsByFilter : Layout<strz, strz, strz, flag8, strlist, strlist>::Api<3, 0, 1, 2, 4, 5>
{
    static constexpr const char* names[] = {"a", "b", "c", "f", "list1", "list2"};
};

} // namespace

// QueryLog: request QueryLog | reply Text
void KZProtocolResolver::lanQueryLog(const QString& a, int k, const QString& b, const QString& c,
                                     bool f1, bool f2, bool f3, bool f4, const QStringList& list)
{
    d->send<QueryLog>(Method::QueryLog, Request, a, k, b, c, f1, f2, f3, f4, list);
}

void KZProtocolResolver::lanQueryLogResponse(const QString& text)
{
    d->send<Text>(Method::QueryLog, Reply, text);
}

void KZProtocolResolverPrivate::decodeQueryLog(uchar flag, Reader& r)
{
    route<QueryLog, Text>(flag, r, cb.onLanQueryLogCB, cb.onLanQueryLogResultCB);
}

void KZProtocolResolver::lanQueryLogsByFilter(bool f, const QString& a, const QString& b,
                                              const QString& c, const QStringList& list1,
                                              const QStringList& list2)
{
    d->send<QueryLogsByFilter>(Method::QueryLogsByFilter, Request, f, a, b, c, list1, list2);
}

void KZProtocolResolverPrivate::decodeQueryLogsByFilter(uchar flag, Reader& r)
{
    if (flag == Request) take<QueryLogsByFilter>(r, cb.onLanQueryLogsByFilterCB);
}

void KZProtocolResolver::lanQueryLog2(const QString& a, const QString& b, const QString& c,
                                      const QStringList& list)
{
    d->send<Texts3List>(Method::QueryLog2, Request, a, b, c, list);
}

void KZProtocolResolverPrivate::decodeQueryLog2(uchar flag, Reader& r)
{
    if (flag == Request) take<Texts3List>(r, cb.onLanQueryLog2CB);
}

// The data messages: LogData of their record, sent and read under the
// request flag although the answering side sends them (peers expect it).
void KZProtocolResolver::lanQueryProcessResponse(const QString& text,
                                                 const QList<kz_log_process>& logs)
{
    d->send<ProcessData>(Method::QueryProcess, Request, text, logs);
}

void KZProtocolResolverPrivate::decodeQueryProcess(uchar flag, Reader& r)
{
    if (flag == Request) take<ProcessData>(r, cb.onLanQueryProcessResultCB);
}

void KZProtocolResolver::lanQueryRuntimeResponse(const QString& text,
                                                 const QList<kz_log_runtime>& logs)
{
    d->send<RuntimeData>(Method::QueryRuntime, Request, text, logs);
}

void KZProtocolResolverPrivate::decodeQueryRuntime(uchar flag, Reader& r)
{
    if (flag == Request) take<RuntimeData>(r, cb.onLanQueryRuntimeResultCB);
}

void KZProtocolResolver::lanQueryAbnormalResponse(const QString& text,
                                                  const QList<kz_abnormal_info>& events)
{
    d->send<AbnormalData>(Method::QueryAbnormal, Request, text, events);
}

void KZProtocolResolverPrivate::decodeQueryAbnormal(uchar flag, Reader& r)
{
    if (flag == Request) take<AbnormalData>(r, cb.onLanQueryAbnormalResultCB);
}

void KZProtocolResolver::lanQueryAlarmResponse(const QString& text, const QList<kz_log_alarm>& logs)
{
    d->send<AlarmData>(Method::QueryAlarm, Request, text, logs);
}

void KZProtocolResolverPrivate::decodeQueryAlarm(uchar flag, Reader& r)
{
    if (flag == Request) take<AlarmData>(r, cb.onLanQueryAlarmResultCB);
}

void KZProtocolResolver::lanQueryProcessStopResponse(const QString& text,
                                                     const QList<kz_log_processstop>& stops)
{
    d->send<ProcessStopData>(Method::QueryProcessStop, Request, text, stops);
}

void KZProtocolResolverPrivate::decodeQueryProcessStop(uchar flag, Reader& r)
{
    if (flag == Request) take<ProcessStopData>(r, cb.onLanQueryProcessStopResultCB);
}

void KZProtocolResolver::lanQueryShutdownResponse(const QString& text,
                                                  const QList<kz_log_shutdown>& shutdowns)
{
    d->send<ShutdownData>(Method::QueryShutdown, Request, text, shutdowns);
}

void KZProtocolResolverPrivate::decodeQueryShutdown(uchar flag, Reader& r)
{
    if (flag == Request) take<ShutdownData>(r, cb.onLanQueryShutdownResultCB);
}

void KZProtocolResolver::lanQueryProcess2Result(const QString& text,
                                                const QList<kz_log_process_detail>& records)
{
    d->send<Process2Data>(Method::QueryProcess2, Request, text, records);
}

void KZProtocolResolverPrivate::decodeQueryProcess2(uchar flag, Reader& r)
{
    if (flag == Request) take<Process2Data>(r, cb.onLanQueryProcess2ResultCB);
}

void KZProtocolResolver::lanQueryRuntime2Result(const QString& text,
                                                const QList<kz_log_runtime_info>& records)
{
    d->send<Runtime2Data>(Method::QueryRuntime2, Request, text, records);
}

void KZProtocolResolverPrivate::decodeQueryRuntime2(uchar flag, Reader& r)
{
    if (flag == Request) take<Runtime2Data>(r, cb.onLanQueryRuntime2ResultCB);
}

void KZProtocolResolver::lanQueryAbnormal2Result(const QString& text,
                                                 const QList<kz_abnormal_info>& events)
{
    d->send<Abnormal2Data>(Method::QueryAbnormal2, Request, text, events);
}

void KZProtocolResolverPrivate::decodeQueryAbnormal2(uchar flag, Reader& r)
{
    if (flag == Request) take<Abnormal2Data>(r, cb.onLanQueryAbnormal2ResultCB);
}

void KZProtocolResolver::lanQueryAlarm2Result(const QString& text,
                                              const QList<kz_log_alarm_info>& records)
{
    d->send<Alarm2Data>(Method::QueryAlarm2, Request, text, records);
}

void KZProtocolResolverPrivate::decodeQueryAlarm2(uchar flag, Reader& r)
{
    if (flag == Request) take<Alarm2Data>(r, cb.onLanQueryAlarm2ResultCB);
}
