// File steps: the client sends a 5 MiB work file to the server as a transfer
// task (add task, start, begin, 64 KiB content chunks each acknowledged,
// close, end), every chunk and the whole file carrying the MD5 digest that
// the sender computes; the server shows progress through percent and speed
// reports and keeps the file only once its size and digest match. A second
// connection then drops in the middle of a transfer: the server says so and
// throws the partial file away. Finally the client lists the server's files
// and its shared files.
#include "demo.h"

#include <QCryptographicHash>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QHostAddress>
#include <QTcpServer>
#include <QTemporaryDir>

#include <cstdio>
#include <map>
#include <memory>

namespace {

const QString kMac = QStringLiteral("KZ-0001");
const QString kFileName = QStringLiteral("rose.dst");
constexpr int kFileBytes = 5 * 1024 * 1024;
constexpr int kChunkBytes = 64 * 1024;
constexpr int kTask = 1;

QTemporaryDir* workDir = nullptr; // outbox/ on the client, inbox/ on the server

QString outbox() { return workDir->filePath(QStringLiteral("outbox")); }
QString inbox() { return workDir->filePath(QStringLiteral("inbox")); }

QByteArray md5(const QByteArray& b) { return QCryptographicHash::hash(b, QCryptographicHash::Md5); }

QByteArray md5OfFile(const QString& path)
{
    QFile f(path);
    QCryptographicHash h(QCryptographicHash::Md5);
    if (!f.open(QIODevice::ReadOnly) || !h.addData(&f)) return QByteArray();
    return h.result();
}

QString hexOf(const QByteArray& digest) { return QString::fromLatin1(digest.toHex()); }

// A work file of 5 MiB whose bytes show any lost, doubled or shifted chunk.
QByteArray makeWorkFile()
{
    QByteArray b(kFileBytes, '\0');
    quint32 x = 2463534242u;
    for (int i = 0; i < b.size(); ++i) {
        x ^= x << 13;
        x ^= x >> 17;
        x ^= x << 5;
        b[i] = char(x & 0xFF);
    }
    return b;
}

// -- server: one incoming transfer per connection -------------------------------

struct Incoming
{
    QString name;
    qint64 size = 0;
    QByteArray digest;
    QFile part;
    qint64 received = 0;
    int lastTenth = 0;
    QElapsedTimer clock;
    bool open() const { return part.isOpen(); }
};

std::map<const Peer*, Incoming> incoming;

void onAddTask(void* ctx, bool upload, const QString& mac, const QString& task, const QString& dir,
               bool overwrite, const QStringList& files)
{
    Peer& p = peer(ctx);
    p.handled(
        QStringLiteral("MacTsfFileAddTask %1 %2 task %3 into %4 (overwrite=%5): %6")
            .arg(upload ? QStringLiteral("upload") : QStringLiteral("download"), mac, task, dir)
            .arg(overwrite)
            .arg(files.join(QStringLiteral(", "))));
    incoming[&p].name = files.value(0);
    p.resolver.lanMacTsfFileAddTaskUi(true, mac, files.value(0), kTask, dir,
                                      QStringLiteral("queued"), task);
    p.sent(QStringLiteral("MacTsfFileAddTaskUi ok, task number %1").arg(kTask));
}

void onTaskStart(void* ctx) { peer(ctx).handled(QStringLiteral("MacTsfFileTaskStart")); }

void onTaskBegin(void* ctx, int size, const QByteArray& digest)
{
    Peer& p = peer(ctx);
    Incoming& in = incoming[&p];
    if (in.name.isEmpty()) in.name = kFileName;
    p.handled(QStringLiteral("MacTsfFileTaskBegin %1: %2 bytes, md5 %3")
                  .arg(in.name)
                  .arg(size)
                  .arg(hexOf(digest)));
    QDir().mkpath(inbox());
    in.size = size;
    in.digest = digest;
    in.received = 0;
    in.lastTenth = 0;
    // Written under a name of its own until the digest proves it whole.
    in.part.setFileName(QDir(inbox()).filePath(in.name + QStringLiteral(".part")));
    const bool ok = in.part.open(QIODevice::WriteOnly | QIODevice::Truncate);
    in.clock.start();
    p.resolver.lanMacTsfFileBeginResponse(kTask, ok ? 0 : 1, kChunkBytes);
    p.sent(QStringLiteral("MacTsfFileBeginResponse task %1 %2, chunks of %3 bytes")
               .arg(kTask)
               .arg(ok ? QStringLiteral("ready") : QStringLiteral("cannot write"))
               .arg(kChunkBytes));
}

void onContent(void* ctx, int task, int chunk, int offset, int len, const QByteArray& digest,
               const QByteArray& data)
{
    Peer& p = peer(ctx);
    Incoming& in = incoming[&p];
    if (!in.open() || offset != in.received || data.size() != len || md5(data) != digest) {
        p.handled(QStringLiteral("MacTsfFileContent chunk %1 rejected").arg(chunk));
        p.resolver.lanMacTsfFileContentResponse(chunk, -1);
        return;
    }
    in.part.write(data);
    in.received += len;
    p.resolver.lanMacTsfFileContentResponse(chunk, int(in.received));
    // Progress every tenth of the file: percent (with the bytes so far)
    // and speed (KiB/s, with the milliseconds so far).
    const int tenth = in.size > 0 ? int(in.received * 10 / in.size) : 10;
    if (tenth > in.lastTenth) {
        in.lastTenth = tenth;
        const qint64 ms = qMax<qint64>(1, in.clock.elapsed());
        p.resolver.lanMacTsfFilePercent(task, tenth * 10, int(in.received));
        p.resolver.lanMacTsfFileSpeed(task, int(in.received * 1000 / 1024 / ms), int(ms));
    }
}

void onClose(void* ctx, int task, int chunks, const QByteArray& digest)
{
    Peer& p = peer(ctx);
    Incoming& in = incoming[&p];
    p.handled(QStringLiteral("MacTsfFileClose task %1 after %2 chunks, md5 %3")
                  .arg(task)
                  .arg(chunks)
                  .arg(hexOf(digest)));
    in.part.close();
    const QByteArray got = md5OfFile(in.part.fileName());
    const bool ok = in.received == in.size && got == in.digest && got == digest;
    const QString final = QDir(inbox()).filePath(in.name);
    QFile::remove(final);
    if (ok)
        in.part.rename(final);
    else
        in.part.remove();
    p.handled(QStringLiteral("  %1: %2 bytes, md5 %3 -> %4")
                  .arg(in.name)
                  .arg(in.received)
                  .arg(hexOf(got), ok ? QStringLiteral("kept") : QStringLiteral("discarded")));
    p.resolver.lanMacTsfFileEnd(task, in.name, ok);
    p.sent(QStringLiteral("MacTsfFileEnd task %1 %2 ok=%3").arg(task).arg(in.name).arg(ok));
}

// A connection that closes with a transfer open leaves no file behind.
void onServerDisconnected(Peer& p)
{
    Incoming& in = incoming[&p];
    if (!in.open()) return;
    in.part.close();
    in.part.remove();
    std::printf("[%s] connection lost during the transfer of %s: %lld of %lld bytes received; "
                "the partial file is discarded\n",
                p.name, qPrintable(in.name), (long long)in.received, (long long)in.size);
    std::fflush(stdout);
}

void onMacFiles(void* ctx, const QString& mac, const QString& path, int mode)
{
    Peer& p = peer(ctx);
    p.handled(QStringLiteral("MacFiles %1 %2 mode=%3").arg(mac, path).arg(mode));
    const QStringList files = QDir(inbox()).entryList(QDir::Files, QDir::Name);
    p.resolver.lanMacFilesResponse(path, files.size(), files);
    p.sent(QStringLiteral("MacFilesResponse %1").arg(files.join(QStringLiteral(", "))));
}

void onLoadShared(void* ctx, int kind, const QString& path)
{
    Peer& p = peer(ctx);
    p.handled(QStringLiteral("LoadSharedFiles %1 kind=%2").arg(path).arg(kind));
    const QStringList designs{QStringLiteral("logo.dst"), QStringLiteral("rose.dst")};
    const QStringList fonts{QStringLiteral("serif.fnt")};
    p.resolver.lanLoadSharedFilesResponse(path, designs, fonts);
    p.sent(QStringLiteral("LoadSharedFilesResponse 2 designs, 1 font"));
}

// -- client: one outgoing transfer per connection ----------------------------

struct Outgoing
{
    QByteArray data;
    int nextChunk = 0;
    int dropAfter = -1; // chunks acknowledged before the connection is dropped
};

std::map<const Peer*, Outgoing> outgoing;

void sendChunk(Peer& p)
{
    Outgoing& out = outgoing[&p];
    const int offset = out.nextChunk * kChunkBytes;
    if (offset >= out.data.size()) {
        p.resolver.lanMacTsfFileClose(kTask, out.nextChunk, md5(out.data));
        p.sent(QStringLiteral("MacTsfFileClose after %1 chunks").arg(out.nextChunk));
        return;
    }
    const QByteArray chunk = out.data.mid(offset, kChunkBytes);
    p.resolver.lanMacTsfFileContent(kTask, out.nextChunk, offset, chunk.size(), md5(chunk), chunk);
    ++out.nextChunk;
}

void onAddTaskUi(void* ctx, bool ok, const QString& mac, const QString& file, int task,
                 const QString& dir, const QString& state, const QString& name)
{
    Peer& p = peer(ctx);
    p.handled(QStringLiteral("MacTsfFileAddTaskUi ok=%1 %2 %3 task %4 (%5) into %6 %7")
                  .arg(ok)
                  .arg(mac, file)
                  .arg(task)
                  .arg(name, dir, state));
    if (!ok) return p.demo->fail(QStringLiteral("transfer task refused"));
    p.resolver.lanMacTsfFileTaskStart();
    p.sent(QStringLiteral("MacTsfFileTaskStart"));
    const Outgoing& out = outgoing[&p];
    p.resolver.lanMacTsfFileTaskBegin(out.data.size(), md5(out.data));
    p.sent(QStringLiteral("MacTsfFileTaskBegin %1 bytes, md5 %2")
               .arg(out.data.size())
               .arg(hexOf(md5(out.data))));
}

void onBeginResult(void* ctx, int task, int status, int chunkBytes)
{
    Peer& p = peer(ctx);
    p.handled(QStringLiteral("MacTsfFileBeginResponse task %1 status %2 chunks of %3")
                  .arg(task)
                  .arg(status)
                  .arg(chunkBytes));
    if (status != 0) return p.demo->fail(QStringLiteral("server cannot take the file"));
    sendChunk(p);
}

void onContentResult(void* ctx, int chunk, int received)
{
    Peer& p = peer(ctx);
    Outgoing& out = outgoing[&p];
    if (received < 0) return p.demo->fail(QStringLiteral("chunk %1 rejected").arg(chunk));
    if (chunk + 1 == out.dropAfter) {
        p.handled(QStringLiteral("chunk %1 acknowledged (%2 bytes); dropping the connection")
                      .arg(chunk)
                      .arg(received));
        p.socket->abort();
        return;
    }
    sendChunk(p);
}

void onPercent(void* ctx, int task, int percent, int received)
{
    peer(ctx).handled(QStringLiteral("MacTsfFilePercent task %1: %2% (%3 KiB)")
                          .arg(task)
                          .arg(percent)
                          .arg(received / 1024));
}

void onSpeed(void* ctx, int task, int kibPerSecond, int ms)
{
    peer(ctx).handled(QStringLiteral("MacTsfFileSpeed task %1: %2 KiB/s after %3 ms")
                          .arg(task)
                          .arg(kibPerSecond)
                          .arg(ms));
}

void onEnd(void* ctx, int task, const QString& name, bool ok)
{
    Peer& p = peer(ctx);
    p.handled(QStringLiteral("MacTsfFileEnd task %1 %2 ok=%3").arg(task).arg(name).arg(ok));
    // Both ends are in this process: compare the server's copy with the source.
    const QByteArray sent = md5OfFile(QDir(outbox()).filePath(kFileName));
    const QByteArray kept = md5OfFile(QDir(inbox()).filePath(name));
    p.handled(QStringLiteral("  source md5 %1, server copy md5 %2").arg(hexOf(sent), hexOf(kept)));
    if (!ok || sent.isEmpty() || sent != kept)
        return p.demo->fail(QStringLiteral("transferred file differs from its source"));
    p.demo->next();
}

void onMacFilesResult(void* ctx, const QString& path, int count, const QStringList& files)
{
    Peer& p = peer(ctx);
    p.handled(QStringLiteral("MacFilesResponse %1: %2 files: %3")
                  .arg(path)
                  .arg(count)
                  .arg(files.join(QStringLiteral(", "))));
    // The dropped transfer left nothing behind: only the whole file is there.
    if (files != QStringList{kFileName})
        return p.demo->fail(QStringLiteral("server holds other files than the one sent whole"));
    p.demo->next();
}

void onLoadSharedResult(void* ctx, const QString& path, const QStringList& designs,
                        const QStringList& fonts)
{
    Peer& p = peer(ctx);
    p.handled(QStringLiteral("LoadSharedFilesResponse %1: %2 | %3")
                  .arg(path, designs.join(QStringLiteral(", ")), fonts.join(QStringLiteral(", "))));
    p.demo->next();
}

void attachServer(KZProtocolResolver& r)
{
    r.setLanMacTsfFileAddTaskCB(&onAddTask);
    r.setLanMacTsfFileTaskStartCB(&onTaskStart);
    r.setLanMacTsfFileTaskBeginCB(&onTaskBegin);
    r.setLanMacTsfFileContentCB(&onContent);
    r.setLanMacTsfFileCloseCB(&onClose);
    r.setLanMacFilesCB(&onMacFiles);
    r.setLanLoadSharedFilesCB(&onLoadShared);
}

void attachClient(KZProtocolResolver& r)
{
    r.setLanMacTsfFileAddTaskUiCB(&onAddTaskUi);
    r.setLanMacTsfFileBeginResultCB(&onBeginResult);
    r.setLanMacTsfFileContentResultCB(&onContentResult);
    r.setLanMacTsfFilePercentCB(&onPercent);
    r.setLanMacTsfFileSpeedCB(&onSpeed);
    r.setLanMacTsfFileEndCB(&onEnd);
    r.setLanMacFilesResultCB(&onMacFilesResult);
    r.setLanLoadSharedFilesResultCB(&onLoadSharedResult);
}

// A second connection on which a transfer is dropped after three chunks.
struct DroppedLink
{
    QTcpServer listener;
    QTcpSocket clientSocket;
    Peer server;
    Peer client;
    explicit DroppedLink(Demo& demo)
        : server{"server", &demo}, client{"client (2nd connection)", &demo}
    {}
};

std::unique_ptr<DroppedLink> dropped;

void runDroppedTransfer(Demo& demo)
{
    dropped = std::make_unique<DroppedLink>(demo);
    DroppedLink& link = *dropped;
    attachServer(link.server.resolver);
    attachClient(link.client.resolver);
    Outgoing& out = outgoing[&link.client];
    out.data = outgoing[&demo.client].data;
    out.dropAfter = 3;
    incoming[&link.server].name = QStringLiteral("tulip.dst");

    if (!link.listener.listen(QHostAddress::LocalHost, 0))
        return demo.fail(QStringLiteral("cannot listen for the second connection"));
    QObject::connect(&link.listener, &QTcpServer::newConnection, [&demo, &link] {
        QTcpSocket* s = link.listener.nextPendingConnection();
        wire(link.server, s);
        QObject::connect(s, &QTcpSocket::disconnected, [&demo, &link] {
            onServerDisconnected(link.server);
            if (QFile::exists(QDir(inbox()).filePath(QStringLiteral("tulip.dst"))) ||
                QFile::exists(QDir(inbox()).filePath(QStringLiteral("tulip.dst.part"))))
                return demo.fail(QStringLiteral("a dropped transfer left a file behind"));
            demo.next();
        });
    });
    wire(link.client, &link.clientSocket);
    QObject::connect(&link.clientSocket, &QTcpSocket::connected, [&link] {
        link.client.sent(QStringLiteral("MacTsfFileTaskBegin tulip.dst, %1 bytes")
                             .arg(outgoing[&link.client].data.size()));
        const QByteArray& data = outgoing[&link.client].data;
        link.client.resolver.lanMacTsfFileTaskBegin(data.size(), md5(data));
    });
    link.clientSocket.connectToHost(QHostAddress::LocalHost, link.listener.serverPort());
}

} // namespace

void addFilesSteps(Demo& demo)
{
    static QTemporaryDir dir;
    workDir = &dir;
    attachServer(demo.server.resolver);
    attachClient(demo.client.resolver);

    // Each step goes in before the logout, which stays last.
    const auto step = [&demo](std::function<void()> fn) {
        demo.steps.insert(demo.steps.size() - 1, fn);
    };

    step([&demo] {
        // The work file is written to disk and read back, as a host would.
        QDir().mkpath(outbox());
        QFile f(QDir(outbox()).filePath(kFileName));
        if (!f.open(QIODevice::WriteOnly) || f.write(makeWorkFile()) != kFileBytes)
            return demo.fail(QStringLiteral("cannot write the work file"));
        f.close();
        if (!f.open(QIODevice::ReadOnly)) return demo.fail(QStringLiteral("cannot read it back"));
        outgoing[&demo.client].data = f.readAll();
        demo.client.sent(QStringLiteral("MacTsfFileAddTask upload %1 (%2 bytes)")
                             .arg(kFileName)
                             .arg(kFileBytes));
        demo.client.resolver.lanMacTsfFileAddTask(true, kMac, QStringLiteral("job-17"),
                                                  QStringLiteral("/designs"), false, {kFileName});
    });
    step([&demo] { runDroppedTransfer(demo); });
    step([&demo] {
        demo.client.sent(QStringLiteral("MacFiles %1 /designs").arg(kMac));
        demo.client.resolver.lanMacFiles(kMac, QStringLiteral("/designs"), 0);
    });
    step([&demo] {
        dropped.reset(); // its signals are all delivered by now
        demo.client.sent(QStringLiteral("LoadSharedFiles /shared kind=1"));
        demo.client.resolver.lanLoadSharedFiles(1, QStringLiteral("/shared"));
    });
}
