// The admin account made on the server's first start, with a password that
// never has to appear on a command line.
#ifndef KZLAN_SERVER_FIRSTADMIN_H
#define KZLAN_SERVER_FIRSTADMIN_H

#include <QString>

class Storage;

/// Where the first admin password comes from.
struct AdminPasswordSource
{
    /// Given by --admin-password (convenient on a developer's machine; seen
    /// by every local user in the process list).
    QString given;
    bool isGiven = false;
    /// --admin-password-file: the password is the file's first line. A file
    /// that does not exist yet is created (mode 0600) with a generated
    /// password, so that a service's first start leaves it where only the
    /// service user and root can read it.
    QString file;
};

/// Makes the admin account if the database has none. Without a given
/// password or a file, a generated password is printed once on standard
/// output. False with `*error` set if the password cannot be read or
/// written, is empty, or the account cannot be stored. `*note` says what
/// happened, for the log (empty when the account existed).
bool ensureAdmin(Storage& storage, const AdminPasswordSource& source, QString* note,
                 QString* error);

/// The password in `file`: its first line, without the line end. Null with
/// `*error` set if the file cannot be read or is larger than a password can be.
QString readPasswordFile(const QString& file, QString* error);

#endif
