#include "rights.h"

#include <cstring>

namespace Rights {

const QList<Row>& table()
{
    static const QList<Row> rows = {
        // Users and rights: administrators only, but for one's own password.
        {"AddUser", Need::Admin},
        {"DeleteUser", Need::Admin},
        {"UpdateClient", Need::Own},
        {"UpdateUserPermission", Need::Admin},
        {"UpdateUserGroupPermission", Need::Admin},
        {"MoveUserToGroup", Need::Admin},
        {"QueryPermission", Need::Own},
        {"AddPermission", Need::Admin},
        {"EditPermission", Need::Admin},
        {"DelPermission", Need::Admin},
        // Groups and operators.
        {"AddGroup", Need::Operators},
        {"SortItem", Need::Operators},
        {"AddOperatorUser", Need::Operators},
        {"AddOperatorUsers", Need::Operators},
        {"UpdateOperator", Need::Operators},
        {"DeleteOperatorUser", Need::Operators},
        {"MoveOperatorToGroup", Need::Operators},
        // Machines.
        {"MacInfo", Need::Machines},
        {"EditMac", Need::Machines},
        {"DeleteMac", Need::Machines},
        {"MoveMacToGroup", Need::Machines},
        {"RemoteSetMode", Need::Machines},
        {"RemoteScreenTouch", Need::Machines},
        {"MacWorkLog", Need::Reports},
        {"MacDateTotal", Need::Reports},
        {"QueryMacProcess", Need::Reports},
        // Plans, planned stops and work time; reading them needs a login.
        {"InitPlan", Need::Login},
        {"GetDatePlan", Need::Login},
        {"AddPlan", Need::Plans},
        {"EditPlan", Need::Plans},
        {"DelPlan", Need::Plans},
        {"InitWorkshopData", Need::Login},
        {"WorkshopQueryPlan", Need::Login},
        {"WorkshopAddPlan", Need::Plans},
        {"WorkshopEditPlan", Need::Plans},
        {"WorkshopDelPlan", Need::Plans},
        {"AddPlanShutItem", Need::Plans},
        {"EditPlanShutItem", Need::Plans},
        {"DelPlanShutItem", Need::Plans},
        {"DelPlanShutByDate", Need::Plans},
        {"EditPlanWorkTime", Need::Plans},
        {"DelPlanWorkTime", Need::Plans},
        {"EditPlanOutShutItem", Need::Plans},
        {"LoadOEEData", Need::Login},
        {"QueryDateOEEData", Need::Login},
        // Files: a user with Files replaces, renames and deletes only the
        // files they sent; others' files need an administrator.
        {"MacTsfFileAddTask", Need::Files},
        {"MacTsfFileTaskBegin", Need::Files},
        {"MacTsfExchangeFile", Need::Files},
        {"MacFiles", Need::Login},
        {"MacRenameFile", Need::Files},
        {"MacExecuteFile", Need::Files},
        {"MacDeleteFile", Need::Files},
        {"LoadSharedFiles", Need::Login},
        {"AppLoadSharedFiles", Need::Login},
        {"DownloadSharedFiles", Need::Files},
        // The event log and what is made from it.
        {"QueryLog", Need::Logs},
        {"QueryLog2", Need::Logs},
        {"QueryLogsByFilter", Need::Logs},
        {"QueryMacDatas", Need::Logs},
        {"QueryMacStatistic", Need::Logs},
        {"AppQueryProcessLogs", Need::Logs},
        {"AppQueryRuntimeLogs", Need::Logs},
        {"AppQueryAlarmLogs", Need::Logs},
        // Prices: reading needs a login.
        {"LoadFilePrice", Need::Login},
        {"QueryFilePrice", Need::Login},
        {"AddFilePrice", Need::Prices},
        {"UpdateFilePrice", Need::Prices},
        {"DeleteFilePrice", Need::Prices},
        {"AddFilePrices", Need::Prices},
        {"QueryFilePriceInfo", Need::Prices},
    };
    return rows;
}

Need needOf(const char* operation)
{
    for (const Row& row : table())
        if (std::strcmp(row.operation, operation) == 0) return row.need;
    return Need::Admin;
}

namespace {

// Each right: the bit that grants it (none: every logged-in user) and its
// name in the documentation.
struct NeedInfo
{
    Need need;
    quint32 bit;
    const char* name;
};

constexpr NeedInfo kNeeds[] = {
    {Need::Login, 0, "Login"},
    {Need::Own, 0, "Own"},
    {Need::Admin, AdminBit, "Admin"},
    {Need::Operators, OperatorsBit, "Operators"},
    {Need::Machines, MachinesBit, "Machines"},
    {Need::Plans, PlansBit, "Plans"},
    {Need::Files, FilesBit, "Files"},
    {Need::Prices, PricesBit, "Prices"},
    {Need::Logs, LogsBit, "Logs"},
    {Need::Reports, ReportsBit, "Reports"},
};

const NeedInfo& infoOf(Need need)
{
    for (const NeedInfo& i : kNeeds)
        if (i.need == need) return i;
    return kNeeds[2]; // Admin
}

} // namespace

bool isAdmin(qint32 permission) { return quint32(permission) & AdminBit; }

bool grants(qint32 permission, Need need)
{
    const quint32 bit = infoOf(need).bit;
    return isAdmin(permission) || bit == 0 || (quint32(permission) & bit);
}

const char* nameOf(Need need) { return infoOf(need).name; }

} // namespace Rights
