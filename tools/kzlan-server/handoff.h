// Work handed from one thread to another through Qt's queues: a queued
// invocation on an object of another thread, or the thread pool. Qt orders
// the two sides with a mutex of its own, which ThreadSanitizer cannot see
// in an uninstrumented Qt: every hand-off would be reported as a race. These
// wrappers tell it (a release before the hand-off, an acquire where the work
// starts), so that it still reports any race in the server's own code.
// Without ThreadSanitizer they are the plain Qt calls.
#ifndef KZLAN_HANDOFF_H
#define KZLAN_HANDOFF_H

#include <QMetaObject>
#include <QObject>
#include <QThreadPool>

#include <functional>
#include <memory>
#include <utility>

#if defined(__SANITIZE_THREAD__)
#define KZ_HANDOFF_TSAN 1
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define KZ_HANDOFF_TSAN 1
#endif
#endif

#ifdef KZ_HANDOFF_TSAN
#include <sanitizer/tsan_interface.h>
// ThreadSanitizer's dynamic annotations: this thread's memory accesses are
// not recorded between the two.
extern "C" void AnnotateIgnoreWritesBegin(const char* file, int line);
extern "C" void AnnotateIgnoreWritesEnd(const char* file, int line);
#endif

namespace handoff {

/// `f`, preceded on its thread by what the calling thread did before.
template <typename F>
auto ordered(F f)
{
#ifdef KZ_HANDOFF_TSAN
    auto token = std::make_shared<char>(); // an address of this hand-off's own
    __tsan_release(token.get());
    return [token, f = std::move(f)]() mutable {
        __tsan_acquire(token.get());
        f();
    };
#else
    return f;
#endif
}

/// Runs `f` on the thread of `context` (queued, or blocking until it ran:
/// then what `f` did precedes what the caller does next).
template <typename F>
void post(QObject* context, F f, Qt::ConnectionType type = Qt::QueuedConnection)
{
    if (type != Qt::BlockingQueuedConnection) {
        auto call = ordered(std::move(f));
#ifdef KZ_HANDOFF_TSAN
        // Qt's slot object is made and filled after the release, in code
        // that does no more than copy the call: not recorded.
        AnnotateIgnoreWritesBegin(__FILE__, __LINE__);
#endif
        QMetaObject::invokeMethod(context, std::move(call), type);
#ifdef KZ_HANDOFF_TSAN
        AnnotateIgnoreWritesEnd(__FILE__, __LINE__);
#endif
        return;
    }
    char done = 0; // an address of this call's own
#ifdef KZ_HANDOFF_TSAN
    AnnotateIgnoreWritesBegin(__FILE__, __LINE__);
#endif
    QMetaObject::invokeMethod(context, ordered([&done, &f] {
                                  f();
#ifdef KZ_HANDOFF_TSAN
                                  __tsan_release(&done);
#endif
                              }),
                              type);
#ifdef KZ_HANDOFF_TSAN
    AnnotateIgnoreWritesEnd(__FILE__, __LINE__);
#endif
#ifdef KZ_HANDOFF_TSAN
    __tsan_acquire(&done);
#endif
    (void)done;
}

#ifdef KZ_HANDOFF_TSAN
/// A pool's job that orders itself: its own address is the hand-off's.
template <typename F>
struct OrderedJob
{
    F f;
    void operator()()
    {
        __tsan_acquire(this);
        f();
    }
};
#endif

/// Runs `f` on a thread of `pool`.
template <typename F>
void start(QThreadPool& pool, F f)
{
#ifdef KZ_HANDOFF_TSAN
    // Made before the release: the pool only moves the stored job.
    std::function<void()> job = OrderedJob<F>{std::move(f)};
    __tsan_release(job.template target<OrderedJob<F>>());
    pool.start(std::move(job));
#else
    pool.start(std::function<void()>(std::move(f)));
#endif
}

} // namespace handoff

#endif
