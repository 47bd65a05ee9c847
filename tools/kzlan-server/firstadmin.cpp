#include "firstadmin.h"

#include "passwords.h"
#include "storage.h"

#include <QFile>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace {

constexpr qint64 kMaxPasswordFileBytes = 4096;

// Creates `file` with the password, readable by its owner only; fails if the
// file appeared in the meantime rather than writing through a link.
bool writePasswordFile(const QString& file, const QString& password, QString* error)
{
    // Made with its final mode, so that no one else can open it in between.
    const int fd = ::open(QFile::encodeName(file).constData(),
                          O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
    if (fd < 0) {
        *error = QStringLiteral("cannot write the admin password to %1: %2")
                     .arg(file, QString::fromLocal8Bit(std::strerror(errno)));
        return false;
    }
    QFile f;
    const bool ok = f.open(fd, QIODevice::WriteOnly, QFileDevice::AutoCloseHandle) &&
                    f.write(password.toUtf8() + '\n') > 0 && f.flush();
    if (!ok) {
        *error =
            QStringLiteral("cannot write the admin password to %1: %2").arg(file, f.errorString());
        f.close();
        QFile::remove(file);
    }
    return ok;
}

} // namespace

QString readPasswordFile(const QString& file, QString* error)
{
    QFile f(file);
    if (!f.open(QIODevice::ReadOnly)) {
        *error = QStringLiteral("cannot read %1: %2").arg(file, f.errorString());
        return QString();
    }
    const QByteArray bytes = f.read(kMaxPasswordFileBytes + 1);
    if (bytes.size() > kMaxPasswordFileBytes) {
        *error = QStringLiteral("%1 is larger than a password file can be (%2 bytes)")
                     .arg(file)
                     .arg(kMaxPasswordFileBytes);
        return QString();
    }
    QByteArray line = bytes.left(bytes.indexOf('\n') < 0 ? bytes.size() : bytes.indexOf('\n'));
    if (line.endsWith('\r')) line.chop(1);
    return QString::fromUtf8(line.constData(), line.size()); // never null
}

bool ensureAdmin(Storage& storage, const AdminPasswordSource& source, QString* note, QString* error)
{
    note->clear();
    if (!storage.passwordOf(QStringLiteral("admin")).isNull()) {
        if (source.isGiven || !source.file.isEmpty())
            *note = QStringLiteral("the admin account exists; its password stays as it is");
        return true;
    }
    QString password;
    bool print = false;
    if (source.isGiven) {
        password = source.given;
    } else if (!source.file.isEmpty() && QFile::exists(source.file)) {
        password = readPasswordFile(source.file, error);
        if (password.isNull()) return false;
    } else {
        password = Passwords::generate();
        print = source.file.isEmpty();
        if (!print && !writePasswordFile(source.file, password, error)) return false;
    }
    if (password.isEmpty()) {
        *error = QStringLiteral("the admin password is empty");
        return false;
    }
    user_info admin;
    admin.name = QStringLiteral("admin");
    admin.text2 = QStringLiteral("Administrator");
    admin.permission = -1;
    admin.lv1Group = QStringLiteral("System");
    admin.lv2Group = QStringLiteral("Administrators");
    if (!storage.addUser(admin, Passwords::hash(password))) {
        *error = QStringLiteral("cannot create the admin account");
        return false;
    }
    if (print) {
        std::printf("admin password: %s\n", qPrintable(password));
        std::fflush(stdout);
    }
    *note = QStringLiteral("admin account created");
    if (!source.isGiven && !source.file.isEmpty())
        *note +=
            QStringLiteral(" with the password in %1 (keep it elsewhere, then delete the file)")
                .arg(source.file);
    return true;
}
