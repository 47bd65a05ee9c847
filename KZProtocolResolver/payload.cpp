#include "payload.h"

#include <algorithm>
#include <kzapin/kzapin.h>

namespace kz {

// ---------------------------------------------------------------------------
// Payload
// ---------------------------------------------------------------------------

Payload& Payload::operator=(const Payload& other)
{
    if (this == &other) return *this;
    size_ = 0;
    if (other.size_ > cap_) grow(other.size_);
    if (other.size_) std::memcpy(buf_, other.buf_, other.size_);
    size_ = other.size_;
    shared_ = other.shared_;
    shares_ = other.shares_;
    lossWhat_ = other.lossWhat_;
    lossValue_ = other.lossValue_;
    return *this;
}

void Payload::take(Payload& other)
{
    if (other.buf_ == other.inline_) {
        std::memcpy(inline_, other.inline_, other.size_);
        buf_ = inline_;
    } else {
        buf_ = other.buf_;
    }
    size_ = other.size_;
    cap_ = other.cap_;
    shared_ = other.shared_;
    shares_ = other.shares_;
    lossWhat_ = other.lossWhat_;
    lossValue_ = other.lossValue_;
    other.buf_ = other.inline_;
    other.size_ = 0;
    other.cap_ = kInline;
    other.shared_ = 0;
    other.shares_.clear();
}

void Payload::grow(size_t need)
{
    if (need <= cap_) return;
    size_t cap = qMax(need, cap_ * 2);
    char* p = static_cast<char*>(buf_ == inline_ ? std::malloc(cap) : std::realloc(buf_, cap));
    if (!p) {
        // As a byte array does when memory runs out.
        qBadAlloc();
    }
    if (buf_ == inline_ && size_) std::memcpy(p, inline_, size_);
    buf_ = p;
    cap_ = cap;
}

QByteArray Payload::bytes() const
{
    QByteArray out;
    out.reserve(int(size()));
    forEachRun(0, size_t(size()), [&](const char* p, size_t n) { out.append(p, int(n)); });
    return out;
}

// Text as UTF-8: plain ASCII is written straight into the payload; other
// text goes through QString::toUtf8.
static bool isAscii(const QString& s)
{
    const QChar* u = s.constData();
    for (int i = 0, n = s.size(); i < n; ++i)
        if (u[i].unicode() >= 0x80) return false;
    return true;
}

Payload& Payload::operator<<(str16 x)
{
    if (isAscii(x.v)) {
        const int n = x.v.size();
        if (n + 1 > 0x7FFF) noteLoss("16-bit text length", n + 1);
        *this << u16{quint16(n + 1)};
        return *this << strz{x.v};
    }
    const QByteArray u = x.v.toUtf8();
    // The length is read back as signed 16 bits: a longer text arrives
    // empty or cut.
    if (u.size() + 1 > 0x7FFF) noteLoss("16-bit text length", u.size() + 1);
    *this << u16{quint16(u.size() + 1)};
    return append(u.constData(), size_t(u.size()) + 1); // with its zero byte
}

Payload& Payload::operator<<(strz x)
{
    const int n = x.v.size();
    const QChar* u = x.v.constData();
    if (size_t(n) + 1 > cap_ - size_) grow(size_ + size_t(n) + 1);
    char* out = buf_ + size_;
    int i = 0;
    for (; i < n && u[i].unicode() < 0x80; ++i) out[i] = char(u[i].unicode());
    if (i == n) {
        out[n] = '\0';
        size_ += size_t(n) + 1;
        return *this;
    }
    const QByteArray b = x.v.toUtf8();
    return append(b.constData(), size_t(b.size()) + 1);
}

Payload& Payload::operator<<(strlist x)
{
    *this << count16(x.v.size());
    for (const QString& s : x.v) *this << strz{s};
    return *this;
}

Payload& Payload::operator<<(dtext x)
{
    const QString t = QString::number(x.v, 'g', 6);
    return *this << strz{t};
}

Payload& Payload::operator<<(itext x)
{
    const QString t = QString::number(x.v, 10);
    return *this << strz{t};
}

Payload& Payload::operator<<(groupmap x)
{
    *this << count16(x.v.size());
    for (auto it = x.v.cbegin(); it != x.v.cend(); ++it)
        *this << strz{it.key()} << strlist{it.value()};
    return *this;
}

Payload& Payload::operator<<(strintmap x)
{
    *this << count16(x.v.size());
    for (auto it = x.v.cbegin(); it != x.v.cend(); ++it) *this << strz{it.key()} << i32{it.value()};
    return *this;
}

Payload& Payload::operator<<(blob32 x)
{
    *this << u32{quint32(x.v.size())};
    return *this << rawbytes{x.v};
}

Payload& Payload::operator<<(rawbytes x)
{
    if (x.v.size() < kShareFrom) return append(x.v.constData(), size_t(x.v.size()));
    shares_.append(Share{size_, x.v});
    shared_ += size_t(x.v.size());
    return *this;
}

// ---------------------------------------------------------------------------
// Reader
// ---------------------------------------------------------------------------

void Reader::decodeTo(const uchar* want)
{
    // Small steps would cost a call each; large ones decode what a big
    // byte field would rather take straight into its array.
    constexpr int kStep = 256;
    const qptrdiff k = qMin<qptrdiff>(qMax<qptrdiff>(want - coded_, kStep), end_ - coded_);
    const uchar* stop = coded_ + k;
    kz_coding_code_at(coded_, coded_, int(k), codedAt_ + (coded_ - begin_));
    coded_ = stop == end_ ? nullptr : const_cast<uchar*>(stop);
}

bool Reader::take(void* dst, int n)
{
    ensure(n);
    if (remaining() < n) {
        std::memset(dst, 0, size_t(n));
        markShort();
        p_ = end_;
        return false;
    }
    std::memcpy(dst, p_, size_t(n));
    p_ += n;
    return true;
}

quint8 Reader::u8Slow()
{
    quint8 v;
    take(&v, 1);
    return v;
}

quint16 Reader::u16Slow()
{
    uchar b[2];
    take(b, 2);
    return quint16(b[0] | (b[1] << 8));
}

qint16 Reader::i16Slow() { return qint16(u16Slow()); }

quint32 Reader::u32Slow()
{
    uchar b[4];
    take(b, 4);
    return quint32(b[0]) | quint32(b[1]) << 8 | quint32(b[2]) << 16 | quint32(b[3]) << 24;
}

qint32 Reader::i32Slow() { return qint32(u32Slow()); }

QString Reader::strz()
{
    const void* z = nullptr;
    for (;;) {
        // Searched in what is plain so far, which grows until the zero is
        // found or the data ends.
        const uchar* plainEnd = coded_ ? coded_ : end_;
        z = std::memchr(p_, 0, size_t(plainEnd - p_));
        if (z || !coded_) break;
        decodeTo(coded_ + (coded_ - p_) + 1);
    }
    const uchar* stop = z ? static_cast<const uchar*>(z) : end_;
    const QString s = QString::fromUtf8(reinterpret_cast<const char*>(p_), int(stop - p_));
    if (!z) markShort();
    p_ = z ? stop + 1 : end_;
    return s;
}

QByteArray Reader::bytes(int n)
{
    if (n <= 0) return QByteArray();
    if (tail_ && p_ == end_) return takeTail(n);
    if (n > remaining()) {
        markShort();
        n = remaining();
    }
    QByteArray b;
    constexpr int kDecodeInto = 1024;
    if (coded_ && n >= kDecodeInto) {
        // Decoded on its way into the array: one pass instead of two.
        b = QByteArray(n, Qt::Uninitialized);
        const int plain = int(std::clamp<qptrdiff>(coded_ - p_, 0, n));
        if (plain) std::memcpy(b.data(), p_, size_t(plain));
        kz_coding_code_at(b.data() + plain, p_ + plain, n - plain,
                          codedAt_ + (p_ + plain - begin_));
        p_ += n;
        // The bytes taken stay coded in the buffer; nothing reads them again.
        if (coded_ < p_) coded_ = p_ == end_ ? nullptr : const_cast<uchar*>(p_);
    } else {
        ensure(n);
        b = QByteArray(reinterpret_cast<const char*>(p_), n);
        p_ += n;
    }
    return b;
}

QByteArray Reader::takeTail(int n)
{
    QByteArray b;
    if (n > tail_->size()) {
        markShort();
        n = tail_->size();
    }
    if (n > tail_->size() / 2) {
        // The usual case: all of it but the body's closing zero.
        tail_->truncate(n);
        b.swap(*tail_);
    } else {
        b = tail_->left(n);
    }
    tail_ = nullptr;
    return b;
}

} // namespace kz
