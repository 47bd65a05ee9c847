// Payload primitives: the one writer and the one reader that every message
// uses. The wrapper types name the wire form of a field (`strz`, `flag8`,
// `dtext`, ...) so that an encoder reads like the layout it writes:
//
//     Payload() << strlist(names) << flag8(ok)
//
// and a decoder reads the same fields from a Reader, in wire order.
#ifndef KZRESOLVER_PAYLOAD_H
#define KZRESOLVER_PAYLOAD_H

#include <QByteArray>
#include <QList>
#include <QMap>
#include <QString>
#include <QStringList>
#include <QVarLengthArray>
#include <QVector>
#include <QtEndian>

#include <cstdlib>
#include <cstring>

namespace kz {

// ---------------------------------------------------------------------------
// Wire forms, for writing
// ---------------------------------------------------------------------------

// clang-format off
struct u8 { quint8 v; };
struct u16 { quint16 v; };
struct u32 { quint32 v; };
struct i16 { qint16 v; };
struct i32 { qint32 v; };
/// A boolean as one inverted byte: 0 for true, 1 for false.
struct flag8 { bool v; };
/// u16 byte count (UTF-8 bytes + 1), the UTF-8 bytes, a zero byte.
struct str16 { const QString& v; };
/// UTF-8 bytes and a zero byte, no prefix: the common form of text.
struct strz { const QString& v; };
/// u16 count, then each item as strz.
struct strlist { const QStringList& v; };
/// A double as the text of QString::number(v, 'g', 6), as strz.
struct dtext { double v; };
/// An int as its decimal text, as strz.
struct itext { int v; };
/// QMap<QString, QStringList>: u16 key count, per key strz key and strlist.
struct groupmap { const QMap<QString, QStringList>& v; };
/// QMap<QString, int>: u16 count, per entry strz key and i32 value.
struct strintmap { const QMap<QString, int>& v; };
/// u32 byte count, then the bytes as they are.
struct blob32 { const QByteArray& v; };
/// Raw bytes, no prefix.
struct raw { const char* p; int n; };
/// The bytes of a byte array, no prefix; a large one is shared, not copied.
struct rawbytes { const QByteArray& v; };

/// A list or map count as it travels: 16 bits (the size truncated), read
/// back as signed. `n` is the count meant; the writer notes a count that
/// will not arrive as sent (above 32767, or negative).
struct c16 { quint16 v; qint64 n; };
// clang-format on

/// Counts of lists and maps travel as 16 bits: the size truncated.
inline c16 count16(qint64 n) { return c16{quint16(n), n}; }

/// The payload writer. Appends little-endian fields.
///
/// Small payloads live inside the object (no heap allocation); a larger one
/// grows on the heap. Byte arrays of 512 bytes and more (blob32, rawbytes) are not copied:
/// the payload keeps a shared reference and the send routine reads them
/// from where they are. forEachRun() gives the bytes in order.
///
/// Some wire rules lose values: counts travel as 16 bits and are read back
/// as signed, a str16 length likewise. The writer writes such values as the
/// rule says and notes the first one (noteLoss()); the send routine turns
/// the note into one warning that names the message. An encoder whose
/// layout loses a value in a way the writer cannot see (say, a loop that
/// the receiver stops at a signed 16-bit count, or entries it leaves out)
/// calls noteLoss() itself.
class Payload
{
public:
    Payload() = default;
    /// `reserve`: the bytes the caller expects to write (a hint).
    explicit Payload(int reserve)
    {
        if (reserve > int(kInline)) grow(size_t(reserve));
    }
    Payload(const Payload& other) { *this = other; }
    Payload(Payload&& other) { take(other); }
    Payload& operator=(const Payload& other);
    Payload& operator=(Payload&& other)
    {
        if (this != &other) {
            release();
            take(other);
        }
        return *this;
    }
    ~Payload() { release(); }

    Payload& operator<<(u8 x)
    {
        char c = char(x.v);
        return append(&c, 1);
    }
    Payload& operator<<(u16 x) { return put(x.v); }
    Payload& operator<<(c16 x)
    {
        if (x.n < 0 || x.n > 0x7FFF) noteLoss("16-bit count", x.n);
        return put(x.v);
    }
    Payload& operator<<(u32 x) { return put(x.v); }
    Payload& operator<<(i16 x) { return put(quint16(x.v)); }
    Payload& operator<<(i32 x) { return put(quint32(x.v)); }
    Payload& operator<<(flag8 x) { return *this << u8{quint8(x.v ? 0 : 1)}; }
    Payload& operator<<(str16 x);
    Payload& operator<<(strz x);
    Payload& operator<<(strlist x);
    Payload& operator<<(dtext x);
    Payload& operator<<(itext x);
    Payload& operator<<(groupmap x);
    Payload& operator<<(strintmap x);
    Payload& operator<<(blob32 x);
    Payload& operator<<(raw x) { return append(x.p, x.n > 0 ? size_t(x.n) : 0); }
    Payload& operator<<(rawbytes x);

    /// The whole payload as one byte array (a copy).
    QByteArray bytes() const;
    /// Its length in bytes.
    qint64 size() const { return qint64(size_ + shared_); }
    /// The bytes, when they lie in one run (nothing shared); null otherwise.
    const char* contiguous() const { return shares_.isEmpty() ? buf_ : nullptr; }

    /// Calls `fn(const char* data, size_t n)` for the bytes [from, from + n)
    /// of the payload, in order, in as few runs as they are stored in.
    template <class F>
    void forEachRun(size_t from, size_t n, F fn) const
    {
        size_t own = 0; // bytes of the own buffer before the current share
        size_t at = 0;  // payload offset of buf_[own]
        for (const Share& s : shares_) {
            if (n == 0) return;
            runOf(buf_ + own, s.at - own, at, from, n, fn);
            at += s.at - own;
            own = s.at;
            runOf(s.bytes.constData(), size_t(s.bytes.size()), at, from, n, fn);
            at += size_t(s.bytes.size());
        }
        if (n) runOf(buf_ + own, size_ - own, at, from, n, fn);
    }

    /// Notes a value that will not arrive as the caller gave it (a count
    /// truncated to 16 bits, rows skipped by a signed-count loop). The wire
    /// stays as it is; the first note is kept for the sender to report.
    Payload& noteLoss(const char* what, qint64 value)
    {
        if (!lossWhat_) {
            lossWhat_ = what;
            lossValue_ = value;
        }
        return *this;
    }
    /// The first noted loss: its description (null when none) and value.
    const char* lossWhat() const { return lossWhat_; }
    qint64 lossValue() const { return lossValue_; }

    /// Byte arrays at least this long are shared rather than copied.
    static constexpr int kShareFrom = 512;

private:
    static constexpr size_t kInline = 256;

    // A shared byte array that stands at own-buffer offset `at`.
    struct Share
    {
        size_t at;
        QByteArray bytes;
    };

    template <class T>
    Payload& put(T v)
    {
        char le[sizeof(T)];
        for (unsigned i = 0; i < sizeof(T); ++i) le[i] = char((v >> (8 * i)) & 0xFF);
        return append(le, sizeof(T));
    }
    Payload& append(const char* p, size_t n)
    {
        if (n > cap_ - size_) grow(size_ + n);
        if (n) std::memcpy(buf_ + size_, p, n);
        size_ += n;
        return *this;
    }
    // Room for `need` own bytes in all.
    void grow(size_t need);
    void release()
    {
        if (buf_ != inline_) std::free(buf_);
        buf_ = inline_;
        size_ = 0;
        cap_ = kInline;
    }
    void take(Payload& other);
    // The part of the run [p, p + len) at payload offset `at` that lies in
    // [from, from + n), handed to fn; advances from and n past it.
    template <class F>
    static void runOf(const char* p, size_t len, size_t at, size_t& from, size_t& n, F& fn)
    {
        if (n == 0 || len == 0 || from >= at + len) return;
        const size_t skip = from - at;
        const size_t k = qMin(len - skip, n);
        fn(p + skip, k);
        from += k;
        n -= k;
    }

    char* buf_ = inline_;
    size_t size_ = 0;
    size_t cap_ = kInline;
    size_t shared_ = 0;                // bytes in shares_
    QVarLengthArray<Share, 2> shares_; // no heap for the usual one or two
    const char* lossWhat_ = nullptr;
    qint64 lossValue_ = 0;
    char inline_[kInline];
};

// ---------------------------------------------------------------------------
// The reader
// ---------------------------------------------------------------------------

/// The bounds-safe payload reader. Its one bounds check is in take(): a read
/// past the end yields zero or empty text and marks the reader short; it
/// never reads outside [data, data + size).
///
/// remaining() is the byte budget that list and map loops test: they stop
/// when their count is used up or the budget reaches zero.
///
/// The composite forms (flags, counted lists, maps, length-prefixed text)
/// are read by the rules in namespace `rule`, written once for this reader
/// and for TracingReader, which records what a decoder reads. Decoders are
/// templates over the reader; the structure calls (label(), record(),
/// entry(), composite()) cost nothing here.
class Reader
{
public:
    Reader(const uchar* data, int size) : p_(data), begin_(data), end_(data + (size > 0 ? size : 0))
    {}

    int remaining() const { return int(end_ - p_); }
    int offset() const { return int(p_ - begin_); }
    bool atEnd() const { return p_ >= end_; }
    /// True once any read wanted more bytes than there were.
    bool isShort() const { return short_; }
    /// Marks the data as cut: a field claimed more than there is.
    void markShort() { short_ = true; }
    /// Bytes a byte field that starts here may have: up to the end of the
    /// data, or of the tail where the data ends.
    int bytesAhead() const { return tail_ && p_ == end_ ? tail_->size() : remaining(); }

    // Fixed-width fields: read in line when the bytes are there, plain.
    quint8 u8() { return plainAhead(1) ? *p_++ : u8Slow(); }
    quint16 u16() { return plainAhead(2) ? quint16(le(2)) : u16Slow(); }
    qint16 i16() { return plainAhead(2) ? qint16(quint16(le(2))) : i16Slow(); }
    quint32 u32() { return plainAhead(4) ? le(4) : u32Slow(); }
    qint32 i32() { return plainAhead(4) ? qint32(le(4)) : i32Slow(); }
    QString strz();
    /// Up to n bytes (fewer at the end of the data; none for n <= 0).
    QByteArray bytes(int n);

    // The composite forms, by the rules below.
    /// Inverted boolean, zero test: true exactly when the byte is 0. A
    /// flag past the end of the data is false (but a decoder's data ends
    /// with the body's closing zero, which reads as true).
    inline bool flag8();
    /// Inverted boolean, low-bit flip: true unless the byte is 1 (b ^ 1).
    /// A flag past the end of the data is false.
    inline bool flag8x();
    inline QString str16();
    inline double dtext();
    inline int itext();
    inline QStringList strlist();
    inline QMap<QString, QStringList> groupmap();
    inline QMap<QString, int> strintmap();
    inline QByteArray blob32();
    /// A list or map count: u16 read as signed; zero or below means empty.
    inline int count16();
    /// count16() of a list or map read as one field, its entries following.
    int entryCount() { return count16(); }

    /// Runs `entry` for each of `count` entries, stopping early when the
    /// budget (the bytes that remain) reaches zero.
    template <class F>
    void forEach(int count, F entry)
    {
        for (int i = 0; i < count && !atEnd(); ++i) entry();
    }
    /// A list: a count16, then entries read by `one` (forEach rule).
    template <class T, class F>
    QList<T> list(F one);

    // What a TracingReader records; nothing here.
    /// Names the next field read.
    void label(const char*) {}
    /// The fields of one record, read by `fields`.
    template <class F>
    void record(F fields)
    {
        fields();
    }
    /// One entry of a list or map, read by `read`.
    template <class F>
    void entry(F read)
    {
        read();
    }
    /// A composite field read by `read`; `text` would render it.
    template <class F, class T>
    auto composite(const char*, F read, T) -> decltype(read())
    {
        return read();
    }

    /// Declares the data still coded as it arrived (the body coding, whose
    /// keystream is at `position` at the first byte): it is decoded in
    /// place as the reads reach it, and a large byte field is decoded
    /// straight into its array instead of in place and then copied. `data`
    /// is the reader's data, writable.
    void setCoded(uchar* data, qint64 position)
    {
        if (data != begin_ || data == end_) return;
        coded_ = data;
        codedAt_ = position;
    }

    /// Declares that the data goes on, past its end, in `tail`: a byte
    /// field that starts where the data ends is taken from there (moved
    /// out, not copied) instead of being cut. A body whose large last field
    /// was received straight into an array of its own is read this way.
    void setTail(QByteArray* tail) { tail_ = tail; }

private:
    bool take(void* dst, int n);
    QByteArray takeTail(int n);
    bool plainAhead(int n) const { return end_ - p_ >= n && (!coded_ || coded_ - p_ >= n); }
    // The next n (2 or 4) bytes, little-endian; they are there.
    // n is 1, 2 or 4, known where it is called: one load.
    quint32 le(int n)
    {
        const quint32 v = n == 4   ? qFromLittleEndian<quint32>(p_)
                          : n == 2 ? qFromLittleEndian<quint16>(p_)
                                   : quint32(*p_);
        p_ += n;
        return v;
    }
    quint8 u8Slow();
    quint16 u16Slow();
    qint16 i16Slow();
    quint32 u32Slow();
    qint32 i32Slow();
    // Makes the next min(n, remaining()) bytes plain.
    void ensure(int n)
    {
        if (coded_ && n > coded_ - p_) decodeTo(p_ + qMin(n, remaining()));
    }
    // Decodes from coded_ to at least `want` (in steps of some size).
    void decodeTo(const uchar* want);

    const uchar* p_;
    const uchar* begin_;
    const uchar* end_;
    bool short_ = false;
    uchar* coded_ = nullptr;     // first byte not decoded yet; null when all is plain
    qint64 codedAt_ = 0;         // keystream position of begin_
    QByteArray* tail_ = nullptr; // where the data goes on; see setTail()
};

/// The reading rules of the composite forms, stated once for every reader
/// (R: Reader or TracingReader).
namespace rule {

template <class R>
int count16(R& r)
{
    const int n = r.i16();
    return n > 0 ? n : 0;
}

template <class R>
bool flag8(R& r)
{
    const quint8 b = r.u8();
    return b == 0 && !r.isShort();
}

template <class R>
bool flag8x(R& r)
{
    const quint8 b = r.u8();
    return (b ^ 1) != 0 && !r.isShort();
}

/// The text ends at its first zero byte (the sender's terminator).
template <class R>
QString str16(R& r)
{
    const int n = r.i16();
    const QByteArray b = r.bytes(n);
    const int z = b.indexOf('\0');
    return QString::fromUtf8(b.constData(), z < 0 ? b.size() : z);
}

template <class R>
double dtext(R& r)
{
    return r.strz().toDouble();
}

template <class R>
int itext(R& r)
{
    return r.strz().toInt(nullptr, 10);
}

template <class R>
QStringList strlist(R& r)
{
    QStringList out;
    r.forEach(r.entryCount(), [&] { out.append(r.strz()); });
    return out;
}

template <class R>
QMap<QString, QStringList> groupmap(R& r)
{
    QMap<QString, QStringList> out;
    r.forEach(r.entryCount(), [&] {
        r.entry([&] {
            const QString key = r.strz();
            out.insert(key, r.strlist());
        });
    });
    return out;
}

template <class R>
QMap<QString, int> strintmap(R& r)
{
    QMap<QString, int> out;
    r.forEach(r.entryCount(), [&] {
        r.entry([&] {
            const QString key = r.strz();
            out.insert(key, r.i32());
        });
    });
    return out;
}

/// A count larger than the data is cut at the end of the data.
template <class R>
QByteArray blob32(R& r)
{
    const quint32 n = r.u32();
    const quint32 ahead = quint32(r.bytesAhead());
    if (n > ahead) r.markShort();
    return r.bytes(int(qMin(n, ahead)));
}

template <class T, class R, class F>
QList<T> list(R& r, F one)
{
    QList<T> out;
    r.forEach(r.entryCount(), [&] { r.entry([&] { out.append(one()); }); });
    return out;
}

} // namespace rule

inline bool Reader::flag8() { return rule::flag8(*this); }
inline bool Reader::flag8x() { return rule::flag8x(*this); }
inline QString Reader::str16() { return rule::str16(*this); }
inline double Reader::dtext() { return rule::dtext(*this); }
inline int Reader::itext() { return rule::itext(*this); }
inline QStringList Reader::strlist() { return rule::strlist(*this); }
inline QMap<QString, QStringList> Reader::groupmap() { return rule::groupmap(*this); }
inline QMap<QString, int> Reader::strintmap() { return rule::strintmap(*this); }
inline QByteArray Reader::blob32() { return rule::blob32(*this); }
inline int Reader::count16() { return rule::count16(*this); }
template <class T, class F>
QList<T> Reader::list(F one)
{
    return rule::list<T>(*this, one);
}

} // namespace kz

#endif // KZRESOLVER_PAYLOAD_H
