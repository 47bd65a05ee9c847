// The logins waiting for their password check. Guessing is throttled where
// it costs: after failures of an address or of a name, the next attempt
// from that address or for that name waits before it is checked at all, and
// only one such attempt is checked at a time. The queue is bounded in all
// and per address, and served in turns across addresses, so that a flood
// from one address barely delays a login from another. An attempt whose
// connection has gone before its turn is dropped unchecked.
#ifndef KZLAN_SERVER_LOGINQUEUE_H
#define KZLAN_SERVER_LOGINQUEUE_H

#include <QHash>
#include <QObject>
#include <QQueue>
#include <QSet>
#include <QString>
#include <QStringList>
#include <QTimer>

#include <functional>

class LoginQueue : public QObject
{
public:
    /// Starts the check of a queued attempt; false when its connection has
    /// gone (the attempt is dropped and takes no turn).
    using Start = std::function<bool()>;

    /// Failures are forgotten this long after the last one of their key.
    static constexpr qint64 kForgetMs = 15 * 60 * 1000;
    /// Keys (addresses and names) with failures remembered at most: beyond,
    /// the forgotten ones go, then the oldest.
    static constexpr int kMaxKeys = 100000;

    /// `running`: checks at once (the threads that hash).
    explicit LoginQueue(int running, QObject* parent = nullptr);

    void setBounds(int total, int perAddress);
    /// Queues an attempt of `name` from `address`; false (nothing queued)
    /// when the queue or the address's share of it is full.
    bool add(const QString& address, const QString& name, Start start);
    /// The check of an attempt that start() began has ended.
    void finished(const QString& address, const QString& name, bool ok);

    /// The wait before the next attempt after `failures` recent failures.
    static int delayMs(int failures);
    /// Recent failures of an address or a name, the greater.
    int failuresOf(const QString& address, const QString& name) const;
    /// Attempts waiting (not yet started).
    int waiting() const { return waiting_; }
    /// Checks started since the queue was made.
    qint64 started() const { return started_; }

private:
    struct Attempt
    {
        QString name;
        Start start;
    };
    struct Failures
    {
        int count = 0;
        qint64 lastMs = 0;
    };
    static QString addressKey(const QString& a) { return QStringLiteral("a ") + a; }
    static QString nameKey(const QString& n) { return QStringLiteral("n ") + n; }
    int failures(const QString& key, qint64 now) const;
    /// When an attempt of `key` may start (0: now); -1 while one of a key
    /// with failures is being checked.
    qint64 readyAt(const QString& key, qint64 now) const;
    void noteFailure(const QString& key, qint64 now);
    void pump();

    int running_;
    int busy_ = 0;
    int total_ = 256;
    int perAddress_ = 16;
    int waiting_ = 0;
    qint64 started_ = 0;
    QHash<QString, QQueue<Attempt>> queues_; ///< by address
    QStringList turns_;                      ///< addresses with attempts, in turn order
    QHash<QString, int> checking_;           ///< keys with a check running
    QHash<QString, Failures> failures_;
    QTimer wake_;
};

#endif
