// Who may do what: the right every request needs and the bits of a user's
// permission value (user_info::permission) that grant it. The one table is
// in rights.cpp; docs/server.md shows it to users (a test keeps the two in
// step).
#ifndef KZLAN_RIGHTS_H
#define KZLAN_RIGHTS_H

#include <QList>
#include <QtGlobal>

namespace Rights {

/// The bits of user_info::permission that the server reads. The others are
/// stored and listed as they are; they mean nothing to the server.
enum Bit : quint32 {
    AdminBit = 1u << 0,     ///< everything, and the only way to manage accounts and rights
    OperatorsBit = 1u << 1, ///< operators, groups and the order of items in them
    MachinesBit = 1u << 2,  ///< the machine registry and the remote panel
    PlansBit = 1u << 3,     ///< production and workshop plans, planned stops, work time
    FilesBit = 1u << 4,     ///< sending files, renaming, deleting and executing them
    PricesBit = 1u << 5,    ///< changing file prices
    LogsBit = 1u << 6,      ///< reading the event log and the statistics made from it
    ReportsBit = 1u << 7,   ///< sending machine reports (for a machine's gateway)
};

/// What a request needs.
enum class Need {
    Login,     ///< a logged-in user
    Own,       ///< a logged-in user for their own account; an administrator for others
    Admin,     ///< AdminBit
    Operators, ///< OperatorsBit (or AdminBit)
    Machines,  ///< MachinesBit (or AdminBit)
    Plans,     ///< PlansBit (or AdminBit)
    Files,     ///< FilesBit (or AdminBit)
    Prices,    ///< PricesBit (or AdminBit)
    Logs,      ///< LogsBit (or AdminBit)
    Reports,   ///< ReportsBit (or AdminBit)
};

/// One row of the table: a request by its message name, and its right.
struct Row
{
    const char* operation;
    Need need;
};

/// Every request the server serves after login, with its right.
const QList<Row>& table();
/// The right `operation` needs; Admin for a name the table does not hold.
Need needOf(const char* operation);
/// Whether a user whose permission value is `permission` has `need`.
bool grants(qint32 permission, Need need);
bool isAdmin(qint32 permission);
/// The name of `need` as the documentation writes it ("Plans", ...).
const char* nameOf(Need need);

} // namespace Rights

#endif
