// A file sent to a simulated machine: one transfer task at a time, each
// chunk's MD5 checked as it comes, the whole file's MD5 at the close; the
// bytes dropped, or kept in a folder given on the command line.
#ifndef KZFLEET_FILERECEIVER_H
#define KZFLEET_FILERECEIVER_H

#include <QByteArray>
#include <QCryptographicHash>
#include <QFile>
#include <QString>
#include <QStringList>

class KZProtocolResolver;

class FileReceiver
{
public:
    /// How a transfer ended.
    enum class End { Running, Done, Failed };

    static constexpr int kChunkBytes = 64 * 1024;      ///< asked of the sender
    static constexpr int kMaxChunkBytes = 1024 * 1024; ///< accepted from it
    static constexpr qint64 kMaxFileBytes = 256LL << 20;

    /// `storeDir` empty: nothing is written.
    FileReceiver(const QString& mac, const QString& storeDir, int task);
    ~FileReceiver();

    /// The announcement: one upload of one plain file name is taken. False
    /// when refused (answered already).
    bool addTask(KZProtocolResolver& r, bool upload, const QString& mac, const QString& task,
                 const QString& dir, const QStringList& files);
    /// The size and MD5 of the whole file.
    End begin(KZProtocolResolver& r, int size, const QByteArray& digest);
    /// One chunk: acknowledged with the bytes so far, or -1.
    void content(KZProtocolResolver& r, int task, int chunk, int offset, int len,
                 const QByteArray& digest, const QByteArray& data);
    /// The close with the whole file's MD5: the end is sent with the outcome.
    End close(KZProtocolResolver& r, int task, const QByteArray& digest);
    /// The sender gave up.
    End cancel(KZProtocolResolver& r, int task);

    int task() const { return task_; }

private:
    void discard();

    QString mac_;
    QString storeDir_;
    QString name_;
    int task_;
    qint64 size_ = -1;
    qint64 received_ = 0;
    int lastTenth_ = 0;
    QByteArray digest_;
    QCryptographicHash hash_{QCryptographicHash::Md5};
    QFile part_;
};

#endif
