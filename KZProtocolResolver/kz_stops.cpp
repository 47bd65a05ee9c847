// Planned stops and work time: the pushed stop list, adding and editing
// stop sets, deleting them by identifier or date, the stops outside the plan,
// and the work time of a date. Every reply echoes its request behind two
// status flags.
#include "kzprotocolresolver_p.h"

using namespace kz;

namespace {

// Stop map: u16 n { i32 key, strz, strz, dtext } (values 0 and 1 of each
// entry as text, value 2 as a number)
using StopForm = mapof<i32, vrow<strz, strz, dtext>>;

// oee_worktime_item: strz first, strz second, dtext amount
void writeWorkTime(Payload& p, const oee_worktime_item& w)
{
    p << strz{w.first} << strz{w.second} << dtext{w.amount};
}

oee_worktime_item readWorkTime(Reader& r)
{
    oee_worktime_item w;
    r.label("first");
    w.first = r.strz();
    r.label("second");
    w.second = r.strz();
    r.label("amount");
    w.amount = r.dtext();
    return w;
}
using WorkTime = record<oee_worktime_item, writeWorkTime, readWorkTime>;

// Shut group: strz text, stop map, strlist names
void writeShutGroup(Payload& p, const oee_shut_group& g)
{
    p << strz{g.text};
    Field<StopForm>::write(p, g.stops);
    p << strlist{g.names};
}

oee_shut_group readShutGroup(Reader& r)
{
    oee_shut_group g;
    r.label("text");
    g.text = r.strz();
    r.label("stops");
    g.stops = Field<StopForm>::read(r);
    r.label("names");
    g.names = r.strlist();
    return g;
}

// oee_shut_item: i32 id, i32 kind, strz date, strlist names,
//                u16 n { strz key, work time }, u16 n { strz key, shut group }
void writeShutItem(Payload& p, const oee_shut_item& s)
{
    p << i32{s.id} << i32{s.kind} << strz{s.date} << strlist{s.names};
    Field<mapof<strz, WorkTime>>::write(p, s.workTimes);
    Field<mapof<strz, record<oee_shut_group, writeShutGroup, readShutGroup>>>::write(p, s.stops);
}

oee_shut_item readShutItem(Reader& r)
{
    oee_shut_item s;
    r.label("id");
    s.id = r.i32();
    r.label("kind");
    s.kind = r.i32();
    r.label("date");
    s.date = r.strz();
    r.label("names");
    s.names = r.strlist();
    r.label("workTimes");
    s.workTimes = Field<mapof<strz, WorkTime>>::read(r);
    r.label("stops");
    s.stops = Field<mapof<strz, record<oee_shut_group, writeShutGroup, readShutGroup>>>::read(r);
    return s;
}

// The replies of this family: the request's fields, [i32 n,] flag8 ok1,
// flag8 ok2 on the wire; ok1, ok2[, n] lead the API.
template <class Req, bool WithN, class = typename Req::Forms,
          class = std::make_index_sequence<Req::size>>
struct Status;
template <class Req, class... F, std::size_t... I>
struct Status<Req, false, std::tuple<F...>, std::index_sequence<I...>>
    : layout_detail::Impl<layout_detail::Order<sizeof...(F), sizeof...(F) + 1, I...>, F..., flag8,
                          flag8>
{
    static constexpr std::array<const char*, sizeof...(F) + 2> names{
        {Req::names[I]..., "ok1", "ok2"}};
};
template <class Req, class... F, std::size_t... I>
struct Status<Req, true, std::tuple<F...>, std::index_sequence<I...>>
    : layout_detail::Impl<
          layout_detail::Order<sizeof...(F) + 1, sizeof...(F) + 2, sizeof...(F), I...>, F..., i32,
          flag8, flag8>
{
    static constexpr std::array<const char*, sizeof...(F) + 3> names{
        {Req::names[I]..., "n", "ok1", "ok2"}};
};
template <class Req>
using WithFlags = Status<Req, false>;
template <class Req>
using WithResult = Status<Req, true>;

// OeeShutItemList request: u16 n { oee_shut_item }
struct ShutItems : Layout<listof<record<oee_shut_item, writeShutItem, readShutItem>>>
{
    static constexpr const char* names[] = {"items"};
};

// AddPlanShutItem request: strz a, strz b, stop map, strlist names
struct AddShut : Layout<strz, strz, StopForm, strlist>
{
    static constexpr const char* names[] = {"a", "b", "stops", "names"};
};

// EditPlanShutItem request: strz a, strz b, strz c, stop map, strlist names
struct EditShut : Layout<strz, strz, strz, StopForm, strlist>
{
    static constexpr const char* names[] = {"a", "b", "c", "stops", "names"};
};

// DelPlanShutItem request: strz id
struct Id : Layout<strz>
{
    static constexpr const char* names[] = {"id"};
};

// DelPlanShutByDate, DelPlanWorkTime request: strz date
struct Date : Layout<strz>
{
    static constexpr const char* names[] = {"date"};
};

// EditPlanWorkTime request: strz date, u16 n { i32 key, work time }
struct WorkTimes : Layout<strz, mapof<i32, WorkTime>>
{
    static constexpr const char* names[] = {"date", "times"};
};

// EditPlanOutShutItem request: u16 n { i32 key, strz }, i32 n (n first in the API)
struct OutStops : Layout<mapof<i32, strz>, i32>::Api<1, 0>
{
    static constexpr const char* names[] = {"stops", "n"};
};

// EditPlanOutShutItem reply: the out-stop map alone, then the flags
struct OutStopMap : Layout<mapof<i32, strz>>
{
    static constexpr const char* names[] = {"stops"};
};

} // namespace

// OeeShutItemList: request ShutItems (no reply)
void KZProtocolResolver::lanOeeShutItemList(const QList<oee_shut_item>& items)
{
    d->send<ShutItems>(Method::OeeShutItemList, Request, items);
}

void KZProtocolResolverPrivate::decodeOeeShutItemList(uchar flag, Reader& r)
{
    if (flag == Request) take<ShutItems>(r, cb.onLanOeeShutItemCB);
}

// AddPlanShutItem: request AddShut | reply WithResult<AddShut>
void KZProtocolResolver::lanAddPlanShutItem(const QString& a, const QString& b,
                                            const QMap<int, QList<QVariant>>& stops,
                                            const QStringList& names)
{
    d->send<AddShut>(Method::AddPlanShutItem, Request, a, b, stops, names);
}

void KZProtocolResolver::lanAddPlanShutItemResponse(bool ok1, bool ok2, int n, const QString& a,
                                                    const QString& b,
                                                    const QMap<int, QList<QVariant>>& stops,
                                                    const QStringList& names)
{
    d->send<WithResult<AddShut>>(Method::AddPlanShutItem, Reply, ok1, ok2, n, a, b, stops, names);
}

void KZProtocolResolverPrivate::decodeAddPlanShutItem(uchar flag, Reader& r)
{
    route<AddShut, WithResult<AddShut>>(flag, r, cb.onLanAddPlanShutItemCB,
                                        cb.onLanAddPlanShutItemResultCB);
}

// EditPlanShutItem: request EditShut | reply WithResult<EditShut>
void KZProtocolResolver::lanEditPlanShutItem(const QString& a, const QString& b, const QString& c,
                                             const QMap<int, QList<QVariant>>& stops,
                                             const QStringList& names)
{
    d->send<EditShut>(Method::EditPlanShutItem, Request, a, b, c, stops, names);
}

void KZProtocolResolver::lanEditPlanShutItemResponse(bool ok1, bool ok2, int n, const QString& a,
                                                     const QString& b, const QString& c,
                                                     const QMap<int, QList<QVariant>>& stops,
                                                     const QStringList& names)
{
    d->send<WithResult<EditShut>>(Method::EditPlanShutItem, Reply, ok1, ok2, n, a, b, c, stops,
                                  names);
}

void KZProtocolResolverPrivate::decodeEditPlanShutItem(uchar flag, Reader& r)
{
    route<EditShut, WithResult<EditShut>>(flag, r, cb.onLanEditPlanShutItemCB,
                                          cb.onLanEditPlanShutItemResultCB);
}

// DelPlanShutItem: request Id | reply i32 n, flag8 ok1, flag8 ok2
void KZProtocolResolver::lanDelPlanShutItem(const QString& id)
{
    d->send<Id>(Method::DelPlanShutItem, Request, id);
}

void KZProtocolResolver::lanDelPlanShutItemResponse(bool ok1, bool ok2, int n)
{
    d->send<WithResult<Empty>>(Method::DelPlanShutItem, Reply, ok1, ok2, n);
}

void KZProtocolResolverPrivate::decodeDelPlanShutItem(uchar flag, Reader& r)
{
    route<Id, WithResult<Empty>>(flag, r, cb.onLanDelPlanShutItemCB,
                                 cb.onLanDelPlanShutItemResultCB);
}

// DelPlanShutByDate: request Date | reply WithFlags<Date>
void KZProtocolResolver::lanDelPlanShutByDate(const QString& date)
{
    d->send<Date>(Method::DelPlanShutByDate, Request, date);
}

void KZProtocolResolver::lanDelPlanShutByDateResponse(bool ok1, bool ok2, const QString& date)
{
    d->send<WithFlags<Date>>(Method::DelPlanShutByDate, Reply, ok1, ok2, date);
}

void KZProtocolResolverPrivate::decodeDelPlanShutByDate(uchar flag, Reader& r)
{
    route<Date, WithFlags<Date>>(flag, r, cb.onLanDelPlanShutByDateCB,
                                 cb.onLanDelPlanShutByDateResultCB);
}

// EditPlanWorkTime: request WorkTimes | reply WithFlags<WorkTimes>
void KZProtocolResolver::lanEditPlanWorkTime(const QString& date,
                                             const QMap<int, oee_worktime_item>& times)
{
    d->send<WorkTimes>(Method::EditPlanWorkTime, Request, date, times);
}

void KZProtocolResolver::lanEditPlanWorkTimeResponse(bool ok1, bool ok2, const QString& date,
                                                     const QMap<int, oee_worktime_item>& times)
{
    d->send<WithFlags<WorkTimes>>(Method::EditPlanWorkTime, Reply, ok1, ok2, date, times);
}

void KZProtocolResolverPrivate::decodeEditPlanWorkTime(uchar flag, Reader& r)
{
    route<WorkTimes, WithFlags<WorkTimes>>(flag, r, cb.onLanEditPlanWorkTimeCB,
                                           cb.onLanEditPlanWorkTimeResultCB);
}

// DelPlanWorkTime: request Date | reply WithFlags<Date>
void KZProtocolResolver::lanDelPlanWorkTime(const QString& date)
{
    d->send<Date>(Method::DelPlanWorkTime, Request, date);
}

void KZProtocolResolver::lanDelPlanWorkTimeResponse(bool ok1, bool ok2, const QString& date)
{
    d->send<WithFlags<Date>>(Method::DelPlanWorkTime, Reply, ok1, ok2, date);
}

void KZProtocolResolverPrivate::decodeDelPlanWorkTime(uchar flag, Reader& r)
{
    route<Date, WithFlags<Date>>(flag, r, cb.onLanDelPlanWorkTimeCB,
                                 cb.onLanDelPlanWorkTimeResultCB);
}

// EditPlanOutShutItem: request OutStops | reply WithFlags<OutStopMap> (n is
// not echoed)
void KZProtocolResolver::lanEditPlanOutShutItem(int n, const QMap<int, QString>& stops)
{
    d->send<OutStops>(Method::EditPlanOutShutItem, Request, n, stops);
}

void KZProtocolResolver::lanEditPlanOutShutItemResponse(bool ok1, bool ok2,
                                                        const QMap<int, QString>& stops)
{
    d->send<WithFlags<OutStopMap>>(Method::EditPlanOutShutItem, Reply, ok1, ok2, stops);
}

void KZProtocolResolverPrivate::decodeEditPlanOutShutItem(uchar flag, Reader& r)
{
    route<OutStops, WithFlags<OutStopMap>>(flag, r, cb.onLanEditPlanOutShutItemCB,
                                           cb.onLanEditPlanOutShutItemResultCB);
}
