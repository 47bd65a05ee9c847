// Helpers shared by the fuzz targets and the seed generator: reading the
// fuzzer's input, the table of method codes, framing a body as a peer would.
#ifndef KZ_FUZZ_UTIL_H
#define KZ_FUZZ_UTIL_H

#include <kzapin/kzapin.h>

#include <QByteArray>
#include <QString>
#include <QtGlobal>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace kzfuzz {

/// Reads the fuzzer's bytes front to back; past the end every value is 0.
class Input
{
public:
    Input(const uint8_t* data, size_t size) : p_(data), end_(data + size) {}

    size_t left() const { return size_t(end_ - p_); }
    quint8 u8() { return p_ < end_ ? *p_++ : 0; }
    quint16 u16()
    {
        const quint16 lo = u8();
        return quint16(lo | (u8() << 8));
    }
    /// The next `n` bytes (fewer at the end).
    QByteArray bytes(size_t n)
    {
        if (n > left()) n = left();
        QByteArray b(reinterpret_cast<const char*>(p_), int(n));
        p_ += n;
        return b;
    }
    QByteArray rest() { return bytes(left()); }

private:
    const uint8_t* p_;
    const uint8_t* end_;
};

/// Every method code, in methods.def order.
constexpr quint16 kCodes[] = {
#define KZ_METHOD(name, code, family) code,
#include "methods.def"
#undef KZ_METHOD
};
constexpr int kCodeCount = int(sizeof(kCodes) / sizeof(kCodes[0]));

/// A message body: flag, type 17, method code, payload, terminating zero.
inline QByteArray body(quint8 flag, quint16 code, const QByteArray& payload)
{
    QByteArray b;
    b.reserve(payload.size() + 5);
    b.append(char(flag)).append(char(17)).append(char(code & 0xFF)).append(char(code >> 8));
    b.append(payload).append('\0');
    return b;
}

/// The frame a peer sends for `body`: bytes 1.. coded, packed whole (the
/// capacity is made to fit).
inline QByteArray frame(QByteArray body, int seq = 0)
{
    if (body.size() > 1)
        kz_coding_encrypt_fast(body.data() + 1, body.constData() + 1, body.size() - 1);
    void* engine = kz_type_new(kz__protoiot, 0);
    QByteArray out(KZ_FRAME_OVERHEAD + body.size(), '\0');
    const int n =
        kz_protocol_pack(engine, out.data(), out.size(), seq, "", body.constData(), body.size());
    kz_type_delete(engine);
    out.truncate(n);
    return out;
}

/// Stops the run with a message: a property of the code under test failed.
[[noreturn]] inline void fail(const char* what)
{
    std::fprintf(stderr, "kzfuzz: property violated: %s\n", what);
    std::abort();
}

inline void check(bool ok, const char* what)
{
    if (!ok) fail(what);
}

/// Keeps the resolver's debug lines off the fuzzer's output; they are still
/// formatted, so the logging code runs under the sanitizers too.
inline void dropDebug(QtMsgType type, const QMessageLogContext&, const QString& msg)
{
    if (type == QtDebugMsg || type == QtInfoMsg) return;
    std::fprintf(stderr, "%s\n", qPrintable(msg));
    if (type == QtFatalMsg) std::abort();
}

/// Installs dropDebug; returns true so that it can initialise a static.
inline bool quietDebug()
{
    qInstallMessageHandler(dropDebug);
    return true;
}

} // namespace kzfuzz

#endif // KZ_FUZZ_UTIL_H
