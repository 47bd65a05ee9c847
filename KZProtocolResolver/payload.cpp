#include "payload.h"

namespace kz {

// ---------------------------------------------------------------------------
// Payload
// ---------------------------------------------------------------------------

Payload& Payload::operator<<(str16 x)
{
    const QByteArray u = x.v.toUtf8();
    // The length is read back as signed 16 bits: a longer text arrives
    // empty or cut.
    if (u.size() + 1 > 0x7FFF) noteLoss("16-bit text length", u.size() + 1);
    *this << u16{quint16(u.size() + 1)};
    b_.append(u.constData(), u.size() + 1); // with its zero byte
    return *this;
}

Payload& Payload::operator<<(strz x)
{
    const QByteArray u = x.v.toUtf8();
    b_.append(u.constData(), u.size() + 1);
    return *this;
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
    b_.append(x.v);
    return *this;
}

// ---------------------------------------------------------------------------
// Reader
// ---------------------------------------------------------------------------

void Reader::markShort()
{
    if (!short_ && root_) root_->append({"cut", offset(), QString(), nullptr});
    short_ = true;
}

QString Reader::entryText(const QVector<TraceItem>& items)
{
    if (items.size() == 1 && !items[0].name) return items[0].value;
    QStringList parts;
    for (const TraceItem& t : items)
        parts.append(t.name ? QLatin1String(t.name) + QLatin1Char(' ') + t.value : t.value);
    return QLatin1Char('{') + parts.join(QStringLiteral(", ")) + QLatin1Char('}');
}

bool Reader::take(void* dst, int n)
{
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

quint8 Reader::u8()
{
    const int at = offset();
    quint8 v;
    take(&v, 1);
    record("u8", at, v);
    return v;
}

quint16 Reader::u16()
{
    const int at = offset();
    uchar b[2];
    take(b, 2);
    const quint16 v = quint16(b[0] | (b[1] << 8));
    record("u16", at, v);
    return v;
}

qint16 Reader::i16()
{
    const int at = offset();
    uchar b[2];
    take(b, 2);
    const qint16 v = qint16(quint16(b[0] | (b[1] << 8)));
    record("i16", at, v);
    return v;
}

quint32 Reader::u32()
{
    const int at = offset();
    uchar b[4];
    take(b, 4);
    const quint32 v =
        quint32(b[0]) | quint32(b[1]) << 8 | quint32(b[2]) << 16 | quint32(b[3]) << 24;
    record("u32", at, v);
    return v;
}

qint32 Reader::i32()
{
    const Quiet q(this, "i32");
    const qint32 v = qint32(u32());
    q.done(QString::number(v));
    return v;
}

// A flag past the end of the data reads as false. The data the decoders
// get ends with the body's closing zero byte, though, so a reply that lacks
// only its last flag reads that flag from the zero: as true, as the wire
// says. Only a reply cut shorter than that reads it as false.
bool Reader::flag8()
{
    const Quiet q(this, "flag8");
    const quint8 b = u8();
    const bool v = b == 0 && !short_;
    q.done(v ? QStringLiteral("true") : QStringLiteral("false"));
    return v;
}

bool Reader::flag8x()
{
    const Quiet q(this, "flag8");
    const quint8 b = u8();
    const bool v = (b ^ 1) != 0 && !short_;
    q.done(v ? QStringLiteral("true") : QStringLiteral("false"));
    return v;
}

QString Reader::strz()
{
    const int at = offset();
    const void* z = std::memchr(p_, 0, size_t(remaining()));
    const uchar* stop = z ? static_cast<const uchar*>(z) : end_;
    const QString s = QString::fromUtf8(reinterpret_cast<const char*>(p_), int(stop - p_));
    if (!z) markShort();
    p_ = z ? stop + 1 : end_;
    if (trace_ && depth_ == 0) record("strz", at, QLatin1Char('"') + s + QLatin1Char('"'));
    return s;
}

QString Reader::str16()
{
    const Quiet q(this, "str16");
    const int n = i16();
    const QByteArray b = bytes(n);
    // The text ends at its first zero byte (the sender's terminator).
    const int z = b.indexOf('\0');
    const QString s = QString::fromUtf8(b.constData(), z < 0 ? b.size() : z);
    q.done(QLatin1Char('"') + s + QLatin1Char('"'));
    return s;
}

double Reader::dtext()
{
    const Quiet q(this, "dtext");
    const double v = strz().toDouble();
    q.done(QString::number(v, 'g', 6));
    return v;
}

int Reader::itext()
{
    const Quiet q(this, "itext");
    const int v = strz().toInt(nullptr, 10);
    q.done(QString::number(v));
    return v;
}

QStringList Reader::strlist()
{
    const Quiet q(this, "strlist");
    QStringList out;
    forEach(count16(), [&] { out.append(strz()); });
    q.done(QStringLiteral("[%1]{\"%2\"}").arg(out.size()).arg(out.join(QStringLiteral("\",\""))));
    return out;
}

QMap<QString, QStringList> Reader::groupmap()
{
    const Quiet q(this, "groupmap");
    QMap<QString, QStringList> out;
    forEach(count16(), [&] {
        const QString key = strz();
        out.insert(key, strlist());
    });
    q.done(QStringLiteral("[%1]").arg(out.size()));
    return out;
}

QMap<QString, int> Reader::strintmap()
{
    const Quiet q(this, "strintmap");
    QMap<QString, int> out;
    forEach(count16(), [&] {
        const QString key = strz();
        out.insert(key, i32());
    });
    q.done(QStringLiteral("[%1]").arg(out.size()));
    return out;
}

QByteArray Reader::bytes(int n)
{
    if (n <= 0) return QByteArray();
    if (n > remaining()) {
        markShort();
        n = remaining();
    }
    const int at = offset();
    const QByteArray b(reinterpret_cast<const char*>(p_), n);
    p_ += n;
    if (trace_ && depth_ == 0) record("bytes", at, QStringLiteral("[%1 bytes]").arg(n));
    return b;
}

QByteArray Reader::blob32()
{
    const Quiet q(this, "blob32");
    const quint32 n = u32();
    // A count larger than the data is cut at the end of the data.
    if (n > quint32(remaining())) markShort();
    const QByteArray b = bytes(int(qMin(n, quint32(remaining()))));
    q.done(QStringLiteral("[%1 bytes]").arg(b.size()));
    return b;
}

} // namespace kz
