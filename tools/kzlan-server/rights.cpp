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

bool isAdmin(qint32 permission) { return quint32(permission) & AdminBit; }

bool grants(qint32 permission, Need need)
{
    const quint32 bits = quint32(permission);
    if (bits & AdminBit) return true;
    switch (need) {
    case Need::Login:
    case Need::Own:
        return true;
    case Need::Admin:
        return false;
    case Need::Operators:
        return bits & OperatorsBit;
    case Need::Machines:
        return bits & MachinesBit;
    case Need::Plans:
        return bits & PlansBit;
    case Need::Files:
        return bits & FilesBit;
    case Need::Prices:
        return bits & PricesBit;
    case Need::Logs:
        return bits & LogsBit;
    case Need::Reports:
        return bits & ReportsBit;
    }
    return false;
}

const char* nameOf(Need need)
{
    switch (need) {
    case Need::Login:
        return "Login";
    case Need::Own:
        return "Own";
    case Need::Admin:
        return "Admin";
    case Need::Operators:
        return "Operators";
    case Need::Machines:
        return "Machines";
    case Need::Plans:
        return "Plans";
    case Need::Files:
        return "Files";
    case Need::Prices:
        return "Prices";
    case Need::Logs:
        return "Logs";
    case Need::Reports:
        return "Reports";
    }
    return "?";
}

} // namespace Rights
