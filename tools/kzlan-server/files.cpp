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

// Who asks to change a stored file.
struct Changer
{
    bool admin = false;
    QString user;
    QString peer;
};

// A user who is not an administrator replaces, renames and deletes only the
// files they sent.
bool mayChange(Storage& s, const Changer& who, const QString& mac, const QString& name)
{
    if (who.admin) return true;
    for (const StoredFile& f : s.files(mac))
        if (f.name == name && f.receivedBy != who.user) {
            qCInfo(lcAuth).noquote() << who.peer << who.user << "may not change"
                                     << Texts::forLog(name) << "sent by" << f.receivedBy;
            return false;
        }
    return true;
}

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
    const auto changer = [c] { return Changer{c->admin, c->user, c->peer}; };
    const auto discard = [=] {
        c->in.part.close();
        c->in.part.remove();
        finish();
    };

    // The quotas of the sender and of the machine, for `size` more bytes.
    using Usages = std::pair<Storage::Usage, Storage::Usage>;
    const auto withinQuota = [this, c](const QString& mac, qint64 size, const Usages& usage) {
        const qint64 mib = 1024 * 1024;
        const Storage::Usage& user = usage.first;
        const Storage::Usage& machine = usage.second;
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
    // The task is taken at once, so that a begin sent right behind it finds
    // it; whether the caller may replace the file is read meanwhile, and the
    // task dropped again if not.
    connect(
        k, &KZConnection::macTsfFileAddTask, c,
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
            else if (!overwrite && QFile::exists(QDir(folderOf(storageDir_, mac)).filePath(name)))
                refusal = QStringLiteral("the file exists");
            const bool may = refusal.isEmpty();
            if (may) {
                in.mac = mac;
                in.name = name;
                in.key = key;
                in.task = ++lastTask_;
                in.size = -1;
                transfersInProgress_.insert(key);
            }
            queried(
                c,
                [may, mac, name, who = changer()](Storage& s) {
                    return may && mayChange(s, who, mac, name);
                },
                [=, &in, ours = in.task](bool ownFile) mutable {
                    if (may && !ownFile) {
                        refusal = QStringLiteral("the file was sent by another user");
                        if (in.task == ours) discard();
                    }
                    if (!refusal.isEmpty()) {
                        qCInfo(lcServer).noquote() << c->peer << "transfer of"
                                                   << Texts::forLog(name) << "refused:" << refusal;
                        r->lanMacTsfFileAddTaskUi(false, mac, name, 0, dir, refusal, task);
                        return;
                    }
                    r->lanMacTsfFileAddTaskUi(true, mac, name, ours, dir, QStringLiteral("queued"),
                                              task);
                });
        });
    connect(k, &KZConnection::macTsfFileTaskStart, c, [] {});
    // Begin: size and MD5 of the whole file. Answered with the task, 0 (ready)
    // or 1 (refused) and the chunk size to use. The part is opened at once,
    // so that chunks sent right behind the begin find it; the quotas are
    // read meanwhile, and the part dropped again when they refuse.
    connect(k, &KZConnection::macTsfFileTaskBegin, c, [=, &in](int size, const QByteArray& digest) {
        const bool may = allowed(c, "MacTsfFileTaskBegin") && !in.key.isEmpty() && !in.closing &&
                         size >= 0 && size <= kMaxFileBytes;
        bool opened = false;
        if (may) {
            const QString folder = folderOf(storageDir_, in.mac);
            in.part.close(); // a begin again restarts the file
            in.part.setFileName(QDir(folder).filePath(in.name + QStringLiteral(".part")));
            opened =
                QDir().mkpath(folder) && in.part.open(QIODevice::WriteOnly | QIODevice::Truncate);
            if (!opened) qCWarning(lcServer).noquote() << "cannot write" << in.part.fileName();
            in.size = size;
            in.digest = digest;
            in.received = 0;
            in.chunks = 0;
            in.lastTenth = 0;
            in.clock.start();
        }
        queried(
            c,
            [may, user = c->user, mac = in.mac](Storage& s) {
                std::optional<Usages> usage;
                if (!may) return usage;
                const auto byUser = whole(s, [&] { return s.usageOfUser(user); });
                const auto byMachine = whole(s, [&] { return s.usageOfMachine(mac); });
                if (byUser && byMachine) usage = Usages(*byUser, *byMachine);
                return usage;
            },
            [=, &in, task = in.task](const std::optional<Usages>& usage) {
                if (may && !usage) refuseForStorage(c, "MacTsfFileTaskBegin");
                const bool current = in.task == task && !in.key.isEmpty() && !in.closing;
                if (!usage || !current || !withinQuota(in.mac, size, *usage)) {
                    if (may && current) { // the task stays; the part goes
                        in.part.close();
                        in.part.remove();
                        in.size = -1;
                    }
                    return r->lanMacTsfFileBeginResponse(task, 1, 0);
                }
                qCInfo(lcServer).noquote() << c->peer << "sends" << Texts::forLog(in.key) << size
                                           << "bytes, md5" << hex(digest);
                r->lanMacTsfFileBeginResponse(task, opened ? 0 : 1, kChunkBytes);
            });
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
            // The digest on the pool; the file renamed and listed on the
            // writer, when sizes and digests match.
            StoredFile kept{in.mac, in.name, in.received, QString(), QString(), c->user};
            const bool whole = in.received == in.size;
            stored(
                c, [path = in.part.fileName()] { return syncAndDigest(path); },
                [=, path = in.part.fileName(), expected = in.digest,
                 final = QDir(folderOf(storageDir_, in.mac)).filePath(in.name)](
                    Storage& s, const QByteArray& got) mutable {
                    bool ok = whole && got == expected && got == digest && QFile::exists(path);
                    if (ok) {
                        kept.md5 = hex(got);
                        kept.receivedAt = QDateTime::currentDateTimeUtc().toString(Qt::ISODate);
                        QFile::remove(final);
                        ok = QFile::rename(path, final) && s.putFile(kept);
                        if (!ok) QFile::remove(final);
                    }
                    return std::make_pair(got, ok);
                },
                [=, &in](const std::pair<QByteArray, bool>& done) {
                    if (!in.closing || in.task != task) return; // cancelled meanwhile
                    const bool ok = done.second;
                    qCInfo(lcServer).noquote()
                        << c->peer << Texts::forLog(in.key) << in.received << "bytes, md5"
                        << hex(done.first) << (ok ? "kept" : "discarded");
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
        lookUp(
            c, "MacFiles", allowed(c, "MacFiles"),
            [mac](Storage& s) {
                QStringList names;
                for (const StoredFile& f : s.files(mac)) names.append(f.name);
                return names;
            },
            [r, path](const QStringList& names) {
                r->lanMacFilesResponse(path, names.size(), names);
            });
    });
    // Renaming and deleting change the list and the folder together, on the
    // writer.
    connect(k, &KZConnection::macRenameFile, c,
            [=](const QString& mac, const QString& from, const QString& to) {
                const bool may = allowed(c, "MacRenameFile") && Texts::isFileName(from) &&
                                 Texts::isFileName(to) &&
                                 !transfersInProgress_.contains(mac + QLatin1Char('/') + to);
                stored(
                    c,
                    [=, who = changer(), folder = QDir(folderOf(storageDir_, mac))](Storage& s) {
                        if (!may || !mayChange(s, who, mac, from)) return false;
                        Storage::Transaction t(s);
                        return s.renameFile(mac, from, to) && !folder.exists(to) &&
                               QFile::rename(folder.filePath(from), folder.filePath(to)) &&
                               t.commit();
                    },
                    [=](bool ok) {
                        if (ok)
                            record(c, mac, QStringLiteral("file renamed"),
                                   from + QStringLiteral(" to ") + to);
                        r->lanMacRenameFileResponse(ok);
                    });
            });
    connect(k, &KZConnection::macExecuteFile, c, [=](const QString& mac, const QString& file) {
        lookUp(
            c, "MacExecuteFile", allowed(c, "MacExecuteFile"),
            [mac, file](Storage& s) {
                bool found = false;
                for (const StoredFile& f : s.files(mac)) found = found || f.name == file;
                return found;
            },
            [=](bool found) {
                if (found) record(c, mac, QStringLiteral("file executed"), file);
                r->lanMacExecuteFileResponse(found);
            });
    });
    connect(k, &KZConnection::macDeleteFile, c, [=](const QString& mac, const QStringList& files) {
        const bool may = allowed(c, "MacDeleteFile");
        stored(
            c,
            [=, who = changer(), folder = QDir(folderOf(storageDir_, mac))](Storage& s) mutable {
                bool ok = may;
                for (const QString& f : files)
                    ok = ok && Texts::isFileName(f) && mayChange(s, who, mac, f);
                Storage::Transaction t(s);
                ok = ok && s.deleteFiles(mac, files) && t.commit();
                for (const QString& f : ok ? files : QStringList()) folder.remove(f);
                return ok;
            },
            [=](bool ok) {
                if (ok)
                    record(c, mac, QStringLiteral("files deleted"), files.join(QLatin1Char(',')));
                r->lanMacDeleteFileResponse(ok);
            });
    });

    // -- shared files: the shared folder's names, then "<machine>/<name>" of
    // the files kept for machines.
    const auto sharedLists = [=](const char* what, bool may, auto answer) {
        lookUp(
            c, what, may,
            [](Storage& s) {
                QStringList shared, perMachine;
                for (const StoredFile& f : s.allFiles()) {
                    if (f.mac.isEmpty())
                        shared.append(f.name);
                    else
                        perMachine.append(f.mac + QLatin1Char('/') + f.name);
                }
                return std::make_pair(shared.mid(0, 30000), perMachine.mid(0, 30000));
            },
            answer);
    };
    using Lists = std::pair<QStringList, QStringList>;
    connect(k, &KZConnection::loadSharedFiles, c, [=](int, const QString& path) {
        sharedLists("LoadSharedFiles", allowed(c, "LoadSharedFiles"), [r, path](const Lists& l) {
            r->lanLoadSharedFilesResponse(path, l.first, l.second);
        });
    });
    connect(k, &KZConnection::appLoadSharedFiles, c, [=](const QString& path) {
        sharedLists(
            "AppLoadSharedFiles", allowed(c, "AppLoadSharedFiles"),
            [r, path](const Lists& l) { r->lanAppLoadSharedFilesResult(l.first, l.second, path); });
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
