// Test support: a wire between resolvers, frame capture, body extraction and
// debug-line capture.
#ifndef KZ_TESTS_SUPPORT_H
#define KZ_TESTS_SUPPORT_H

#include "kzprotocolresolver.h"

#include <kzapin/kzapin.h>

#include <QByteArray>
#include <QList>
#include <QLoggingCategory>
#include <QStringList>

#include <cstdlib>
#include <functional>

namespace kztest {

/// Collects the frames a resolver hands out (and frees their buffers).
struct FrameSink
{
    QList<QByteArray> frames;

    static void onFrame(void* ctx, char* bytes, int n)
    {
        static_cast<FrameSink*>(ctx)->frames.append(QByteArray(bytes, n));
        std::free(bytes);
    }
    QByteArray stream() const
    {
        QByteArray all;
        for (const QByteArray& f : frames) all += f;
        return all;
    }
    void attach(KZProtocolResolver& r)
    {
        r.setParsePackResult(&FrameSink::onFrame);
        r.setReceiveData(this);
    }
};

/// A sender whose frames are collected, and a receiver whose callbacks see
/// `ctx` as their context pointer.
struct Wire
{
    KZProtocolResolver sender;
    KZProtocolResolver receiver;
    FrameSink sink;

    explicit Wire(void* ctx = nullptr, int capacity = 0) : sender(capacity), receiver(capacity)
    {
        sink.attach(sender);
        receiver.setReceiveData(ctx);
    }
    /// Feeds everything sent so far to the receiver and forgets it.
    void deliver()
    {
        receiver.parseReceive(sink.stream());
        sink.frames.clear();
    }
};

/// The restored bodies (flag, type, code, payload, zero) carried by a byte
/// stream of frames, in order.
QList<QByteArray> bodiesOf(const QByteArray& stream);

/// The payload (between the 4-byte header and the final zero byte) of the
/// only body in `stream`, or of body `index`.
QByteArray payloadOf(const QByteArray& stream, int index = 0);

/// Captures the debug lines written while it lives (debug output enabled),
/// with the logging category of each.
class DebugCapture
{
public:
    DebugCapture();
    ~DebugCapture();
    QStringList lines;
    QStringList categories;
};

/// Hex text of bytes, "00 11 02".
QString hex(const QByteArray& b);
/// Bytes from hex text; blanks and commas are ignored.
QByteArray unhex(const char* text);

} // namespace kztest

#endif
