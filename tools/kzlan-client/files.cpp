// prices and send: the price table of the work files, and a file sent to the
// server as a transfer task.
#include "commands.h"
#include "output.h"

#include <QCryptographicHash>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QThread>

#include <cstdio>
#include <limits>
#include <unistd.h>

namespace {

QByteArray md5(const QByteArray& b) { return QCryptographicHash::hash(b, QCryptographicHash::Md5); }

/// Progress of a transfer on stderr: a bar redrawn in place on a terminal,
/// otherwise one line per tenth.
class Progress
{
public:
    explicit Progress(QString name) : name_(std::move(name)), tty_(isatty(fileno(stderr))) {}

    /// A percent report (with the bytes so far); on a terminal the bar moves
    /// at once, otherwise the line waits for the speed report that follows.
    void percent(int percent, qint64 bytes)
    {
        percent_ = qBound(0, percent, 100);
        bytes_ = bytes;
        pending_ = true;
        if (tty_) show();
    }
    void speed(int kibPerSecond)
    {
        speed_ = kibPerSecond;
        show();
    }
    void end()
    {
        if (pending_) show();
        if (tty_ && drawn_) std::fputc('\n', stderr);
    }

private:
    void show()
    {
        pending_ = false;
        const QString figures =
            QStringLiteral("%1% %2 KiB, %3 KiB/s").arg(percent_, 3).arg(bytes_ / 1024).arg(speed_);
        if (tty_) {
            const int filled = percent_ * 30 / 100;
            const QString bar =
                QString(filled, QLatin1Char('#')) + QString(30 - filled, QLatin1Char('.'));
            std::fprintf(stderr, "\r%s [%s] %s ", name_.toUtf8().constData(),
                         bar.toLatin1().constData(), figures.toUtf8().constData());
            drawn_ = true;
        } else if (percent_ / 10 > lastTenth_) {
            lastTenth_ = percent_ / 10;
            std::fprintf(stderr, "%s: %s\n", name_.toUtf8().constData(),
                         figures.toUtf8().constData());
        }
        std::fflush(stderr);
    }

    QString name_;
    bool tty_;
    bool drawn_ = false;
    bool pending_ = false; ///< a percent not shown yet
    int percent_ = 0;
    int lastTenth_ = 0;
    qint64 bytes_ = 0;
    int speed_ = 0;
};

} // namespace

int cmdPricesList(Session& s, Args& a)
{
    QStringList rest;
    if (!a.positionals(&rest) || !rest.isEmpty()) return usageError();
    if (int rc = s.open()) return rc;
    auto* reply = s.client().loadFilePrice();
    if (int rc = s.await(reply)) return rc;
    QJsonArray rows;
    QJsonObject byFile;
    const QMap<QString, double>& prices = reply->values().prices;
    for (auto it = prices.begin(); it != prices.end(); ++it) {
        rows.append(
            QJsonObject{{QStringLiteral("file"), it.key()}, {QStringLiteral("price"), it.value()}});
        byFile.insert(it.key(), it.value());
    }
    s.close();
    if (s.options().json)
        printJson(byFile);
    else
        printRows({QStringLiteral("file"), QStringLiteral("price")}, rows);
    return ExitOk;
}

int cmdPricesSet(Session& s, Args& a)
{
    QStringList rest;
    if (!a.positionals(&rest) || rest.size() != 2) return usageError();
    const QString file = rest[0], price = rest[1];
    bool isNumber = false;
    price.toDouble(&isNumber);
    if (!isNumber) return usageError(QStringLiteral("not a price: %1").arg(price));
    if (int rc = s.open()) return rc;
    auto* reply = s.client().addFilePrice(file, price);
    if (int rc = s.await(reply)) return rc;
    const bool ok = reply->values().ok;
    s.close();
    return report(s, ok, QStringLiteral("price of %1 set to %2").arg(file, price),
                  QStringLiteral("the server refused the price of %1").arg(file),
                  {{QStringLiteral("file"), file}, {QStringLiteral("price"), price.toDouble()}});
}

int cmdSend(Session& s, Args& a)
{
    const QString mac = a.option(QStringLiteral("machine")); // none: a shared file
    const QString dir = a.option(QStringLiteral("dir"), QStringLiteral("/"));
    bool limitOk = true;
    const int limit = a.option(QStringLiteral("limit"), QStringLiteral("0")).toInt(&limitOk);
    QStringList rest;
    if (!a.positionals(&rest) || rest.size() != 1 || !limitOk || limit < 0) return usageError();
    QFile file(rest[0]);
    if (!file.open(QIODevice::ReadOnly)) {
        printError(QStringLiteral("cannot read %1: %2").arg(rest[0], file.errorString()));
        return ExitUsage;
    }
    const QString name = QFileInfo(file).fileName();
    const qint64 size = file.size();
    if (size > std::numeric_limits<int>::max()) {
        printError(QStringLiteral("%1 is too large to send (%2 bytes)").arg(name).arg(size));
        return ExitUsage;
    }
    QCryptographicHash whole(QCryptographicHash::Md5);
    whole.addData(&file);
    const QByteArray digest = whole.result();
    if (int rc = s.open()) return rc;

    // Task announced, accepted, begun with the file's size and digest; then
    // chunks, each with its own digest and acknowledged before the next one
    // goes; then closed with the whole digest, and the server's verdict.
    KZConnection& c = s.connection();
    KZProtocolResolver& lan = s.lan();
    Progress progress(name);
    QElapsedTimer clock;
    int task = 0, chunkBytes = 64 * 1024, chunk = 0;
    qint64 offset = 0;
    bool kept = false;
    const auto sendNext = [&] {
        if (offset >= size) return lan.lanMacTsfFileClose(task, chunk, digest);
        file.seek(offset);
        const QByteArray data = file.read(chunkBytes);
        if (limit > 0) { // no faster than --limit KiB/s
            const qint64 due = (offset + data.size()) * 1000 / (qint64(limit) * 1024);
            if (due > clock.elapsed()) QThread::msleep(ulong(due - clock.elapsed()));
        }
        lan.lanMacTsfFileContent(task, chunk, int(offset), data.size(), md5(data), data);
        offset += data.size();
        ++chunk;
    };
    QObject::connect(&c, &KZConnection::macTsfFileAddTaskUi, &s,
                     [&](bool ok, const QString&, const QString&, int n, const QString&,
                         const QString&, const QString&) {
                         if (!ok)
                             return s.fail(
                                 ExitRefused,
                                 QStringLiteral("the server refused the transfer of %1").arg(name));
                         task = n;
                         lan.lanMacTsfFileTaskStart();
                         lan.lanMacTsfFileTaskBegin(int(size), digest);
                     });
    QObject::connect(&c, &KZConnection::macTsfFileBeginResult, &s, [&](int, int status, int bytes) {
        if (status != 0)
            return s.fail(
                ExitRefused,
                QStringLiteral("the server cannot take %1 (status %2)").arg(name).arg(status));
        if (bytes > 0) chunkBytes = qMin(bytes, 1024 * 1024);
        clock.start();
        sendNext();
    });
    QObject::connect(&c, &KZConnection::macTsfFileContentResult, &s, [&](int n, int received) {
        if (received < 0)
            return s.fail(ExitRefused,
                          QStringLiteral("the server rejected chunk %1 of %2").arg(n).arg(name));
        sendNext();
    });
    QObject::connect(&c, &KZConnection::macTsfFilePercent, &s,
                     [&](int, int percent, int bytes) { progress.percent(percent, bytes); });
    QObject::connect(&c, &KZConnection::macTsfFileSpeed, &s,
                     [&](int, int kibPerSecond, int) { progress.speed(kibPerSecond); });
    QObject::connect(&c, &KZConnection::macTsfFileEnd, &s, [&](int, const QString&, bool ok) {
        kept = ok;
        s.finish();
    });
    const int rc =
        s.run([&] { lan.lanMacTsfFileAddTask(true, mac, name, dir, true, QStringList{name}); });
    progress.end();
    if (rc) return rc;
    s.close();
    const double seconds = clock.isValid() ? clock.elapsed() / 1000.0 : 0.0;
    return report(
        s, kept,
        QStringLiteral("sent %1: %2 bytes in %3 chunks, md5 %4, %5 s")
            .arg(name)
            .arg(size)
            .arg(chunk)
            .arg(QString::fromLatin1(digest.toHex()))
            .arg(seconds, 0, 'f', 2),
        QStringLiteral("the server did not keep %1: size or digest did not match").arg(name),
        {{QStringLiteral("file"), name},
         {QStringLiteral("bytes"), double(size)},
         {QStringLiteral("chunks"), chunk},
         {QStringLiteral("md5"), QString::fromLatin1(digest.toHex())},
         {QStringLiteral("seconds"), seconds}});
}
