#include "filereceiver.h"

#include "kzprotocolresolver.h"

#include <QDir>

namespace {

bool isPlainName(const QString& s)
{
    return !s.isEmpty() && s != QLatin1String(".") && s != QLatin1String("..") && s.size() <= 255 &&
           !s.contains(QLatin1Char('/')) && !s.contains(QLatin1Char('\\')) && !s.contains(QChar(0));
}

} // namespace

FileReceiver::FileReceiver(const QString& mac, const QString& storeDir, int task)
    : mac_(mac), storeDir_(storeDir), task_(task)
{}

FileReceiver::~FileReceiver() { discard(); }

void FileReceiver::discard()
{
    if (part_.fileName().isEmpty()) return;
    part_.close();
    part_.remove();
    part_.setFileName(QString());
}

bool FileReceiver::addTask(KZProtocolResolver& r, bool upload, const QString& mac,
                           const QString& task, const QString& dir, const QStringList& files)
{
    name_ = files.value(0);
    QString refusal;
    if (!upload || files.size() != 1)
        refusal = QStringLiteral("only uploads of one file are taken");
    else if (mac != mac_)
        refusal = QStringLiteral("not this machine");
    else if (!isPlainName(name_))
        refusal = QStringLiteral("not a plain file name");
    if (!refusal.isEmpty()) {
        r.lanMacTsfFileAddTaskUi(false, mac, name_, 0, dir, refusal, task);
        return false;
    }
    r.lanMacTsfFileAddTaskUi(true, mac, name_, task_, dir, QStringLiteral("queued"), task);
    return true;
}

FileReceiver::End FileReceiver::begin(KZProtocolResolver& r, int size, const QByteArray& digest)
{
    bool ok = size >= 0 && size <= kMaxFileBytes;
    discard(); // a begin again restarts the file
    if (ok && !storeDir_.isEmpty()) {
        const QString folder = QDir(storeDir_).filePath(mac_);
        part_.setFileName(QDir(folder).filePath(name_ + QStringLiteral(".part")));
        ok = QDir().mkpath(folder) && part_.open(QIODevice::WriteOnly | QIODevice::Truncate);
    }
    size_ = size;
    digest_ = digest;
    received_ = 0;
    lastTenth_ = 0;
    hash_.reset();
    r.lanMacTsfFileBeginResponse(task_, ok ? 0 : 1, kChunkBytes);
    return ok ? End::Running : End::Failed;
}

void FileReceiver::content(KZProtocolResolver& r, int task, int chunk, int offset, int len,
                           const QByteArray& digest, const QByteArray& data)
{
    const bool ok = size_ >= 0 && task == task_ && offset == received_ && len == data.size() &&
                    len <= kMaxChunkBytes && received_ + len <= size_ &&
                    QCryptographicHash::hash(data, QCryptographicHash::Md5) == digest &&
                    (!part_.isOpen() || part_.write(data) == len);
    if (!ok) {
        r.lanMacTsfFileContentResponse(chunk, -1);
        return;
    }
    hash_.addData(data);
    received_ += len;
    r.lanMacTsfFileContentResponse(chunk, int(received_));
    const int tenth = size_ > 0 ? int(received_ * 10 / size_) : 10;
    if (tenth > lastTenth_) {
        lastTenth_ = tenth;
        r.lanMacTsfFilePercent(task, tenth * 10, int(received_));
    }
}

FileReceiver::End FileReceiver::close(KZProtocolResolver& r, int task, const QByteArray& digest)
{
    const QByteArray got = hash_.result();
    bool ok = task == task_ && size_ >= 0 && received_ == size_ && got == digest_ && got == digest;
    if (ok && part_.isOpen()) {
        part_.close();
        const QString final = QDir(QDir(storeDir_).filePath(mac_)).filePath(name_);
        QFile::remove(final);
        ok = part_.rename(final);
        if (ok) part_.setFileName(QString()); // kept: not discarded
    }
    discard();
    r.lanMacTsfFileEnd(task, name_, ok);
    return ok ? End::Done : End::Failed;
}

FileReceiver::End FileReceiver::cancel(KZProtocolResolver& r, int task)
{
    discard();
    r.lanMacTsfFileEnd(task, name_, false);
    return End::Failed;
}
