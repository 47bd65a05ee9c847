// The event loop in a test without QtTest: an application to run it, and runs until a
// condition holds or a time passes.
#ifndef KZTEST_EVENTLOOP_H
#define KZTEST_EVENTLOOP_H

#include <QCoreApplication>
#include <QElapsedTimer>

#include <functional>

namespace kztest {

/// Makes the test program's QCoreApplication once.
inline void ensureApp()
{
    static int argc = 1;
    static char name[] = "kztest";
    static char* argv[] = {name, nullptr};
    static QCoreApplication* app = new QCoreApplication(argc, argv);
    (void)app;
}

/// Runs the event loop until `done` holds or `ms` pass.
inline bool waitFor(const std::function<bool()>& done, int ms = 5000)
{
    QElapsedTimer t;
    t.start();
    while (!done() && t.elapsed() < ms) QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
    return done();
}

/// Runs the event loop for `ms`: what would still come, comes.
inline void spin(int ms = 150)
{
    waitFor([] { return false; }, ms);
}

} // namespace kztest

#endif
