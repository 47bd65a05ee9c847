// File transfers into the storage folder, the files kept for machines and
// the shared files.
#include "server_p.h"
#include "texts.h"

#include <QCryptographicHash>
#include <QDateTime>
#include <QDir>
#include <QDirIterator>

#include <unistd.h>

namespace {

constexpr int kChunkBytes = 64 * 1024;      // asked of the sender
constexpr int kMaxChunkBytes = 1024 * 1024; // accepted from it
constexpr qint64 kMaxFileBytes = 1LL << 30; // 1 GiB

// The file on disk (before it is renamed and listed) and its MD5; empty when
// it cannot be read. Slow for a large file: run off the event loop.
QByteArray syncAndDigest(const QString& path)
{
    QFile f(path);
    if (!f.open(QIODevice::ReadOnly) || ::fsync(f.handle()) != 0) return QByteArray();
    QCryptographicHash h(QCryptographicHash::Md5);
    return h.addData(&f) ? h.result() : QByteArray();
}

QString hex(const QByteArray& b) { return QString::fromLatin1(b.toHex()); }

} // namespace

/// The folder of a machine's files, or of the shared files.
static QString folderOf(const QString& storageDir, const QString& mac)
{
    return mac.isEmpty() ? QDir(storageDir).filePath(QStringLiteral("shared"))
                         : QDir(storageDir).filePath(QStringLiteral("machines/") + mac);
}

void Server::attachFiles(Client* c)
{
    KZConnection* k = c->conn;
    KZProtocolResolver* r = c->r;
    Client::Incoming& in = c->in;

    const auto finish = [this, c] {
        c->in.closing = false;
        transfersInProgress_.remove(c->in.key);
        c->in.key.clear();
        c->in.name.clear();
        c->in.size = -1;
        c->in.part.setFileName(QString());
    };
    // A user who is not an administrator replaces, renames and deletes only
    // the files they sent.
    const auto mayChange = [this, c](const QString& mac, const QString& name) {
        if (c->admin) return true;
        for (const StoredFile& f : storage_.files(mac))
            if (f.name == name && f.receivedBy != c->user) {
                qCInfo(lcAuth).noquote() << c->peer << c->user << "may not change"
                                         << Texts::forLog(name) << "sent by" << f.receivedBy;
                return false;
            }
        return true;
    };
    const auto discard = [=] {
        c->in.part.close();
        c->in.part.remove();
        finish();
    };

    // The quotas of the sender and of the machine, for `size` more bytes.
    const auto withinQuota = [this, c](const QString& mac, qint64 size) {
        const qint64 mib = 1024 * 1024;
        const Storage::Usage user =
            wholeRead(c, "MacTsfFileTaskBegin", [&] { return storage_.usageOfUser(c->user); });
        const Storage::Usage machine =
            wholeRead(c, "MacTsfFileTaskBegin", [&] { return storage_.usageOfMachine(mac); });
        const ServerLimits& l = limits_;
        const bool ok = (!l.userQuotaFiles || user.files < l.userQuotaFiles) &&
                        (!l.userQuotaMiB || user.bytes + size <= l.userQuotaMiB * mib) &&
                        (!l.machineQuotaFiles || machine.files < l.machineQuotaFiles) &&
                        (!l.machineQuotaMiB || machine.bytes + size <= l.machineQuotaMiB * mib);
        if (!ok)
            qCInfo(lcServer).noquote() << c->peer << "transfer refused:" << c->user << "or"
                                       << Texts::forLog(mac) << "is over its quota";
        return ok;
    };

    // AddTask: upload, machine, task name, folder, overwrite, file names.
    // One file per task, into the machine's folder (shared without one).
    connect(k, &KZConnection::macTsfFileAddTask, c,
            [=, &in](bool upload, const QString& mac, const QString& task, const QString& dir,
                     bool overwrite, const QStringList& files) {
                const QString name = files.value(0);
                const QString key = mac + QLatin1Char('/') + name;
                QString refusal;
                if (!allowed(c, "MacTsfFileAddTask"))
                    refusal = QStringLiteral("not logged in");
                else if (!upload || files.size() != 1)
                    refusal = QStringLiteral("only uploads of one file are taken");
                else if (!Texts::isFileName(name) || (!mac.isEmpty() && !Texts::isFileName(mac)))
                    refusal = QStringLiteral("not a plain file or machine name");
                else if (in.part.isOpen() || !in.key.isEmpty())
                    refusal = QStringLiteral("a transfer is already running on this connection");
                else if (transfersInProgress_.contains(key))
                    refusal = QStringLiteral("the file is being received from another client");
                else if (!overwrite &&
                         QFile::exists(QDir(folderOf(storageDir_, mac)).filePath(name)))
                    refusal = QStringLiteral("the file exists");
                else if (!mayChange(mac, name))
                    refusal = QStringLiteral("the file was sent by another user");
                if (!refusal.isEmpty()) {
                    qCInfo(lcServer).noquote()
                        << c->peer << "transfer of" << Texts::forLog(name) << "refused:" << refusal;
                    r->lanMacTsfFileAddTaskUi(false, mac, name, 0, dir, refusal, task);
                    return;
                }
                in.mac = mac;
                in.name = name;
                in.key = key;
                in.task = ++lastTask_;
                in.size = -1;
                transfersInProgress_.insert(key);
                r->lanMacTsfFileAddTaskUi(true, mac, name, in.task, dir, QStringLiteral("queued"),
                                          task);
            });
    connect(k, &KZConnection::macTsfFileTaskStart, c, [] {});
    // Begin: size and MD5 of the whole file. Answered with the task, 0 (ready)
    // or 1 (refused) and the chunk size to use.
    connect(k, &KZConnection::macTsfFileTaskBegin, c, [=, &in](int size, const QByteArray& digest) {
        if (!allowed(c, "MacTsfFileTaskBegin") || in.key.isEmpty() || in.closing || size < 0 ||
            size > kMaxFileBytes || !withinQuota(in.mac, size)) {
            r->lanMacTsfFileBeginResponse(in.task, 1, 0);
            return;
        }
        const QString folder = folderOf(storageDir_, in.mac);
        in.part.close(); // a begin again restarts the file
        in.part.setFileName(QDir(folder).filePath(in.name + QStringLiteral(".part")));
        const bool ok =
            QDir().mkpath(folder) && in.part.open(QIODevice::WriteOnly | QIODevice::Truncate);
        if (!ok) qCWarning(lcServer).noquote() << "cannot write" << in.part.fileName();
        in.size = size;
        in.digest = digest;
        in.received = 0;
        in.chunks = 0;
        in.lastTenth = 0;
        in.clock.start();
        qCInfo(lcServer).noquote()
            << c->peer << "sends" << Texts::forLog(in.key) << size << "bytes, md5" << hex(digest);
        r->lanMacTsfFileBeginResponse(in.task, ok ? 0 : 1, kChunkBytes);
    });
    // A chunk: task, number, offset, length, MD5, bytes. Acknowledged with
    // the bytes received so far, or -1 (then the sender sends it again).
    connect(k, &KZConnection::macTsfFileContent, c,
            [=, &in](int task, int chunk, int offset, int len, const QByteArray& digest,
                     const QByteArray& data) {
                const bool ok = in.part.isOpen() && task == in.task && offset == in.received &&
                                len == data.size() && len <= kMaxChunkBytes &&
                                in.received + len <= in.size &&
                                QCryptographicHash::hash(data, QCryptographicHash::Md5) == digest &&
                                in.part.write(data) == len;
                if (!ok) {
                    qCInfo(lcServer).noquote() << c->peer << "chunk" << chunk << "of"
                                               << Texts::forLog(in.key) << "rejected";
                    r->lanMacTsfFileContentResponse(chunk, -1);
                    return;
                }
                in.received += len;
                ++in.chunks;
                r->lanMacTsfFileContentResponse(chunk, int(in.received));
                // Progress every tenth: percent with the bytes so far, speed
                // in KiB/s with the milliseconds so far.
                const int tenth = in.size > 0 ? int(in.received * 10 / in.size) : 10;
                if (tenth > in.lastTenth) {
                    in.lastTenth = tenth;
                    const qint64 ms = qMax<qint64>(1, in.clock.elapsed());
                    r->lanMacTsfFilePercent(task, tenth * 10, int(in.received));
                    r->lanMacTsfFileSpeed(task, int(in.received * 1000 / 1024 / ms), int(ms));
                }
            });
    // Close: the MD5 of the whole file once more. The file gets its name
    // only if its size and both digests match. Writing it out and reading
    // it back for its digest run off the event loop.
    connect(
        k, &KZConnection::macTsfFileClose, c, [=, &in](int task, int, const QByteArray& digest) {
            if (!in.part.isOpen() || task != in.task) {
                r->lanMacTsfFileEnd(task, in.name, false);
                return;
            }
            in.part.close();
            in.closing = true;
            later(
                c, [path = in.part.fileName()] { return syncAndDigest(path); },
                [=, &in](const QByteArray& got) {
                    if (!in.closing || in.task != task) return; // cancelled meanwhile
                    in.closing = false;
                    const QString final = QDir(folderOf(storageDir_, in.mac)).filePath(in.name);
                    bool ok = in.received == in.size && got == in.digest && got == digest;
                    if (ok) {
                        QFile::remove(final);
                        ok = in.part.rename(final) &&
                             storage_.putFile(
                                 {in.mac, in.name, in.received, hex(got),
                                  QDateTime::currentDateTimeUtc().toString(Qt::ISODate), c->user});
                        if (!ok) QFile::remove(final);
                    }
                    qCInfo(lcServer).noquote()
                        << c->peer << Texts::forLog(in.key) << in.received << "bytes, md5"
                        << hex(got) << (ok ? "kept" : "discarded");
                    record(c, in.mac,
                           ok ? QStringLiteral("file received") : QStringLiteral("file discarded"),
                           QStringLiteral("%1 (%2 bytes)").arg(in.name).arg(in.received));
                    const QString name = in.name;
                    if (ok)
                        finish();
                    else
                        discard();
                    r->lanMacTsfFileEnd(task, name, ok);
                });
        });
    connect(k, &KZConnection::macTsfFileCancel, c, [=, &in](const QString&, int task) {
        if (in.key.isEmpty()) return;
        qCInfo(lcServer).noquote()
            << c->peer << "cancelled the transfer of" << Texts::forLog(in.key);
        const QString name = in.name;
        discard();
        r->lanMacTsfFileEnd(task, name, false);
    });
    // Pausing is the sender's: it stops sending chunks, and the part waits.
    connect(k, &KZConnection::macTsfFilePause, c, [] {});
    connect(k, &KZConnection::macTsfFileResume, c, [] {});
    connect(k, &KZConnection::macTsfExchangeFile, c, [=](const QMap<QString, QStringList>& files) {
        if (allowed(c, "MacTsfExchangeFile"))
            qCInfo(lcServer).noquote() << c->peer << "offered" << files.size() << "file entries";
    });

    // -- the files kept for a machine -------------------------------------------------
    connect(k, &KZConnection::macFiles, c, [=](const QString& mac, const QString& path, int) {
        QStringList names;
        if (allowed(c, "MacFiles"))
            for (const StoredFile& f : storage_.files(mac)) names.append(f.name);
        r->lanMacFilesResponse(path, names.size(), names);
    });
    connect(k, &KZConnection::macRenameFile, c,
            [=](const QString& mac, const QString& from, const QString& to) {
                bool ok = allowed(c, "MacRenameFile") && Texts::isFileName(from) &&
                          Texts::isFileName(to) &&
                          !transfersInProgress_.contains(mac + QLatin1Char('/') + to) &&
                          mayChange(mac, from);
                if (ok) {
                    const QDir folder(folderOf(storageDir_, mac));
                    Storage::Transaction t(storage_);
                    ok = storage_.renameFile(mac, from, to) && !folder.exists(to) &&
                         QFile::rename(folder.filePath(from), folder.filePath(to));
                    ok = ok && t.commit();
                }
                if (ok)
                    record(c, mac, QStringLiteral("file renamed"),
                           from + QStringLiteral(" to ") + to);
                r->lanMacRenameFileResponse(ok);
            });
    connect(k, &KZConnection::macExecuteFile, c, [=](const QString& mac, const QString& file) {
        bool ok = allowed(c, "MacExecuteFile");
        if (ok) {
            ok = false;
            for (const StoredFile& f : storage_.files(mac)) ok = ok || f.name == file;
        }
        if (ok) record(c, mac, QStringLiteral("file executed"), file);
        r->lanMacExecuteFileResponse(ok);
    });
    connect(k, &KZConnection::macDeleteFile, c, [=](const QString& mac, const QStringList& files) {
        bool ok = allowed(c, "MacDeleteFile");
        for (const QString& f : files) ok = ok && Texts::isFileName(f) && mayChange(mac, f);
        if (ok) {
            Storage::Transaction t(storage_);
            ok = storage_.deleteFiles(mac, files) && t.commit();
        }
        if (ok) {
            QDir folder(folderOf(storageDir_, mac));
            for (const QString& f : files) folder.remove(f);
            record(c, mac, QStringLiteral("files deleted"), files.join(QLatin1Char(',')));
        }
        r->lanMacDeleteFileResponse(ok);
    });

    // -- shared files: the shared folder's names, then "<machine>/<name>" of
    // the files kept for machines.
    const auto sharedLists = [this](QStringList* shared, QStringList* perMachine) {
        for (const StoredFile& f : storage_.allFiles()) {
            if (f.mac.isEmpty())
                shared->append(f.name);
            else
                perMachine->append(f.mac + QLatin1Char('/') + f.name);
        }
        *shared = shared->mid(0, 30000);
        *perMachine = perMachine->mid(0, 30000);
    };
    connect(k, &KZConnection::loadSharedFiles, c, [=](int, const QString& path) {
        QStringList shared, perMachine;
        if (allowed(c, "LoadSharedFiles")) sharedLists(&shared, &perMachine);
        r->lanLoadSharedFilesResponse(path, shared, perMachine);
    });
    connect(k, &KZConnection::appLoadSharedFiles, c, [=](const QString& path) {
        QStringList shared, perMachine;
        if (allowed(c, "AppLoadSharedFiles")) sharedLists(&shared, &perMachine);
        r->lanAppLoadSharedFilesResult(shared, perMachine, path);
    });
    connect(k, &KZConnection::downloadSharedFiles, c,
            [=](int, const QString& path, const QStringList& first, const QStringList& second) {
                if (!allowed(c, "DownloadSharedFiles")) return;
                record(c, QString(), QStringLiteral("download requested"),
                       QStringLiteral("%1: %2").arg(path, (first + second).join(QLatin1Char(','))));
            });
}

void Server::removeStaleParts()
{
    // Parts left by a server that was killed cannot be resumed.
    QDirIterator it(storageDir_, {QStringLiteral("*.part")}, QDir::Files,
                    QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString path = it.next();
        qCInfo(lcServer).noquote() << "removing the partial file" << path;
        QFile::remove(path);
    }
}
