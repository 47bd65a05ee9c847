#include "loginqueue.h"

#include <QDateTime>

#include <algorithm>
#include <limits>

LoginQueue::LoginQueue(int running, QObject* parent)
    : QObject(parent), running_(std::max(1, running))
{
    wake_.setSingleShot(true);
    connect(&wake_, &QTimer::timeout, this, &LoginQueue::pump);
}

void LoginQueue::setBounds(int total, int perAddress)
{
    total_ = total;
    perAddress_ = perAddress;
}

int LoginQueue::delayMs(int failures)
{
    if (failures <= 0) return 0;
    return std::min(5000, 100 << std::min(failures - 1, 10));
}

int LoginQueue::failures(const QString& key, qint64 now) const
{
    const auto it = failures_.constFind(key);
    if (it == failures_.cend() || now - it->lastMs > kForgetMs) return 0;
    return it->count;
}

int LoginQueue::failuresOf(const QString& address, const QString& name) const
{
    const qint64 now = QDateTime::currentMSecsSinceEpoch();
    return std::max(failures(addressKey(address), now), failures(nameKey(name), now));
}

qint64 LoginQueue::readyAt(const QString& key, qint64 now) const
{
    const int n = failures(key, now);
    if (n == 0) return 0;
    if (checking_.value(key) > 0) return -1;
    return failures_.value(key).lastMs + delayMs(n);
}

void LoginQueue::noteFailure(const QString& key, qint64 now)
{
    if (failures_.size() >= kMaxKeys) {
        for (auto it = failures_.begin(); it != failures_.end();)
            it = now - it->lastMs > kForgetMs ? failures_.erase(it) : std::next(it);
        if (failures_.size() >= kMaxKeys) failures_.clear();
    }
    Failures& f = failures_[key];
    f.count = failures(key, now) + 1;
    f.lastMs = now;
}

bool LoginQueue::add(const QString& address, const QString& name, Start start)
{
    QQueue<Attempt>& q = queues_[address];
    if (waiting_ >= total_ || q.size() >= perAddress_) {
        if (q.isEmpty()) queues_.remove(address);
        return false;
    }
    if (q.isEmpty()) turns_.append(address);
    q.enqueue({name, std::move(start)});
    ++waiting_;
    pump();
    return true;
}

void LoginQueue::finished(const QString& address, const QString& name, bool ok)
{
    const qint64 now = QDateTime::currentMSecsSinceEpoch();
    --busy_;
    for (const QString& key : {addressKey(address), nameKey(name)}) {
        if (--checking_[key] <= 0) checking_.remove(key);
        if (ok)
            failures_.remove(key);
        else
            noteFailure(key, now);
    }
    pump();
}

void LoginQueue::pump()
{
    const qint64 now = QDateTime::currentMSecsSinceEpoch();
    qint64 wakeAt = std::numeric_limits<qint64>::max();
    // Passes over the addresses in turn order: in each, an address may start
    // its first attempt, then goes to the back of the turns.
    for (bool progress = true; progress && busy_ < running_;) {
        progress = false;
        for (int seen = 0, n = int(turns_.size()); seen < n && busy_ < running_; ++seen) {
            const QString address = turns_.takeFirst();
            QQueue<Attempt>& q = queues_[address];
            bool started = false;
            while (!q.isEmpty() && !started) {
                const QString aKey = addressKey(address), nKey = nameKey(q.head().name);
                const qint64 a = readyAt(aKey, now), b = readyAt(nKey, now);
                if (a < 0 || b < 0 || std::max(a, b) > now) {
                    if (a >= 0 && b >= 0) wakeAt = std::min(wakeAt, std::max(a, b));
                    break; // this address waits; the next one may go
                }
                Attempt attempt = q.dequeue();
                --waiting_;
                if (!attempt.start()) continue; // its connection has gone
                ++started_;
                ++busy_;
                ++checking_[aKey];
                ++checking_[nKey];
                started = progress = true;
            }
            if (q.isEmpty())
                queues_.remove(address);
            else
                turns_.append(address);
        }
    }
    if (wakeAt != std::numeric_limits<qint64>::max() && busy_ < running_)
        wake_.start(int(std::clamp<qint64>(wakeAt - now, 0, 5000)));
}
