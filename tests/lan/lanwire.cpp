#include "lanwire.h"

#include <QCoreApplication>
#include <QElapsedTimer>

#include <cstdlib>

namespace lan {

bool waitFor(const std::function<bool()>& done, int ms)
{
    QElapsedTimer t;
    t.start();
    while (!done() && t.elapsed() < ms) QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
    return done();
}

void idle(int ms)
{
    waitFor([] { return false; }, ms);
}

QByteArray framesOf(const std::function<void(KZProtocolResolver&)>& send, int capacity)
{
    QByteArray frames;
    KZProtocolResolver r(capacity);
    r.setReceiveData(&frames);
    r.setParsePackResult([](void* ctx, char* bytes, int n) {
        static_cast<QByteArray*>(ctx)->append(bytes, n);
        std::free(bytes);
    });
    send(r);
    return frames;
}

} // namespace lan
