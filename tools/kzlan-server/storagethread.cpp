#include "storagethread.h"

#include "handoff.h"

StorageThread::StorageThread(const QString& name) : context_(new QObject)
{
    thread_.setObjectName(name);
    context_->moveToThread(&thread_);
    QObject::connect(&thread_, &QThread::finished, context_, &QObject::deleteLater);
    thread_.start();
}

StorageThread::~StorageThread() { finish(); }

void StorageThread::finish()
{
    if (finished_.exchange(true)) return;
    // After the jobs queued before it: a quit alone could leave them unrun.
    handoff::post(
        context_, [this] { storage_.close(); }, Qt::BlockingQueuedConnection);
    thread_.quit();
    thread_.wait();
}

bool StorageThread::open(const QString& location, QString* error)
{
    bool ok = false;
    QString why;
    handoff::post(
        context_, [&] { ok = storage_.open(location, &why); }, Qt::BlockingQueuedConnection);
    if (!ok && error) *error = why;
    return ok;
}

void StorageThread::run(std::function<void(Storage&)> job)
{
    if (finished_) return;
    handoff::post(context_, [this, job = std::move(job)] { job(storage_); });
}
