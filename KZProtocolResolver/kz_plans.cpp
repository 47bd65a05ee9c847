// Production plans: the plan set, adding, editing and deleting plans, and the
// plans of one date.
#include "kzprotocolresolver_p.h"

using namespace kz;

namespace {

// A plan row: its first six values as text, six strz; back as six QStrings.
using PlanRow = rowof<strz, strz, strz, strz, strz, strz>;

// InitPlan reply: strlist names, u16 n { plan row }
struct InitPlanResult : Layout<strlist, listof<PlanRow>>
{
    static constexpr const char* names[] = {"names", "plans"};
};

// AddPlan request: strz a, strz b, strintmap map, i32 n
struct AddPlan : Layout<strz, strz, strintmap, i32>
{
    static constexpr const char* names[] = {"a", "b", "map", "n"};
};

// EditPlan request: strz a, strz b, strz c, i32 m, i32 n
struct EditPlan : Layout<strz, strz, strz, i32, i32>
{
    static constexpr const char* names[] = {"a", "b", "c", "m", "n"};
};

// GetDatePlan request: strz date
struct Date : Layout<strz>
{
    static constexpr const char* names[] = {"date"};
};

// GetDatePlan reply: strz date, u16 n { plan row }
struct DatePlans : Layout<strz, listof<PlanRow>>
{
    static constexpr const char* names[] = {"date", "plans"};
};

} // namespace

// InitPlan: request (empty) | reply InitPlanResult
void KZProtocolResolver::lanInitPlan() { d->send<Empty>(Method::InitPlan, Request); }

void KZProtocolResolver::lanInitPlanResponse(const QStringList& names, const QList<QVariant>& plans)
{
    d->send<InitPlanResult>(Method::InitPlan, Reply, names, plans);
}

void KZProtocolResolverPrivate::decodeInitPlan(uchar flag, Reader& r)
{
    route<Empty, InitPlanResult>(flag, r, cb.onLanInitPlanCB, cb.onLanInitPlanResultCB);
}

// AddPlan: request AddPlan. An empty map sends nothing at all; kept as it is
// (WorkshopAddPlan, by contrast, sends an empty map as the count 0).
void KZProtocolResolver::lanAddPlan(const QString& a, const QString& b,
                                    const QMap<QString, int>& map, int n)
{
    if (map.isEmpty()) return;
    d->send<AddPlan>(Method::AddPlan, Request, a, b, map, n);
}

void KZProtocolResolverPrivate::decodeAddPlan(uchar flag, Reader& r)
{
    if (flag == Request) take<AddPlan>(r, cb.onLanAddPlanCB);
}

// EditPlan: request EditPlan
void KZProtocolResolver::lanEditPlan(const QString& a, const QString& b, const QString& c, int m,
                                     int n)
{
    d->send<EditPlan>(Method::EditPlan, Request, a, b, c, m, n);
}

void KZProtocolResolverPrivate::decodeEditPlan(uchar flag, Reader& r)
{
    if (flag == Request) take<EditPlan>(r, cb.onLanEditPlanCB);
}

// DelPlan: request Texts3
void KZProtocolResolver::lanDelPlan(const QString& a, const QString& b, const QString& c)
{
    d->send<Texts3>(Method::DelPlan, Request, a, b, c);
}

void KZProtocolResolverPrivate::decodeDelPlan(uchar flag, Reader& r)
{
    if (flag == Request) take<Texts3>(r, cb.onLanDelPlanCB);
}

// GetDatePlan: request Date | reply DatePlans
void KZProtocolResolver::lanGetDatePlan(const QString& date)
{
    d->send<Date>(Method::GetDatePlan, Request, date);
}

void KZProtocolResolver::lanGetDatePlanResponse(const QString& date, const QList<QVariant>& plans)
{
    d->send<DatePlans>(Method::GetDatePlan, Reply, date, plans);
}

// The reply reads rows only when something follows the date and the count
// besides the body's closing zero: a count with no rows behind it gives an
// empty list rather than one row of empty texts.
void KZProtocolResolverPrivate::decodeGetDatePlan(uchar flag, Reader& r)
{
    if (flag == Request) return take<Date>(r, cb.onLanGetDatePlanCB);
    if (flag != Reply) return;
    r.label("date");
    const QString date = r.strz();
    QList<QVariant> plans;
    r.label("plans");
    if (r.remaining() > 3)
        plans = Field<listof<PlanRow>>::read(r);
    else
        r.u16();
    fire(cb.onLanGetDatePlanResultCB, date, plans);
}
