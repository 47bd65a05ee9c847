// The server's writer: one thread with a database connection of its own,
// running the requests' changes one after the other, so that a write that
// waits for a lock held by another process never holds up the event loop.
#ifndef KZLAN_STORAGETHREAD_H
#define KZLAN_STORAGETHREAD_H

#include "storage.h"

#include <QObject>
#include <QThread>

#include <functional>

class StorageThread
{
public:
    StorageThread();
    /// Closes the connection on its thread, after the jobs already queued.
    ~StorageThread();
    StorageThread(const StorageThread&) = delete;
    StorageThread& operator=(const StorageThread&) = delete;

    /// Opens `location` (as Storage::open) on the thread and waits for it:
    /// called once, before the event loop serves clients.
    bool open(const QString& location, QString* error);
    /// Queues `job` to run on the thread with its storage, after those
    /// queued before. Whatever it captures is touched there only.
    void run(std::function<void(Storage&)> job);

private:
    QThread thread_;
    QObject* context_; ///< lives on thread_: jobs are queued to it
    Storage storage_;  ///< used on thread_ only
};

#endif
