// A thread with a database connection of its own, running jobs one after
// the other: the server has one for its changes (a write that waits for a
// lock held by another process holds up no other thread) and one for its
// reads, so that the event loop never touches the database.
#ifndef KZLAN_STORAGETHREAD_H
#define KZLAN_STORAGETHREAD_H

#include "storage.h"

#include <QObject>
#include <QThread>

#include <atomic>
#include <functional>

class StorageThread
{
public:
    /// `name` names the thread (for debuggers and `top -H`).
    explicit StorageThread(const QString& name);
    /// As finish().
    ~StorageThread();
    StorageThread(const StorageThread&) = delete;
    StorageThread& operator=(const StorageThread&) = delete;

    /// Opens `location` (as Storage::open) on the thread and waits for it:
    /// called once, before the event loop serves clients.
    bool open(const QString& location, QString* error);
    /// Queues `job` to run on the thread with its storage, after those
    /// queued before. Whatever it captures is touched there only.
    void run(std::function<void(Storage&)> job);
    /// Runs the jobs already queued, closes the connection and ends the
    /// thread; jobs queued later are not run. Called again, does nothing.
    void finish();

private:
    QThread thread_;
    QObject* context_; ///< lives on thread_: jobs are queued to it
    Storage storage_;  ///< used on thread_ only
    std::atomic<bool> finished_{false};
};

#endif
