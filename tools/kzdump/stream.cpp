#include "stream.h"

#include "kzprotocolresolver_p.h"

#include <kzapin/kzapin.h>

#include <QJsonArray>

#include <cstdio>
#include <cstring>

namespace kzdump {

namespace {

// The largest frame the engine accepts: the history a dropped frame or a
// skipped run is shown from.
constexpr qint64 kKeep = KZ_PIECE_OVERHEAD + 65535 + KZ_DEFAULT_MAX_BODY;

quint32 le32(const uchar* p) { return p[0] | p[1] << 8 | p[2] << 16 | quint32(p[3]) << 24; }

} // namespace

Stream::Stream(Output& out, int connection, QString direction)
    : out_(out), connection_(connection), direction_(std::move(direction))
{
    engine_ = kz_type_new(kz__protoiot, 0);
    auto* obj = static_cast<kz_object*>(engine_);
    obj->user = this;
    obj->handler = &Stream::onEvent;
    counts_ = kz_protocol_rx_counts(engine_);
}

Stream::~Stream() { kz_type_delete(engine_); }

// Byte by byte, so that at each event the stream position is the end of the
// frame concerned.
void Stream::feed(const QByteArray& bytes)
{
    history_.append(bytes);
    for (int i = 0; i < bytes.size(); ++i) {
        ++position_; // counts the byte being fed: events see the stream up to it
        kz_protoiot_engine.input(engine_, bytes.constData() + i, 1);
    }
    account();
    const qint64 excess = history_.size() - kKeep;
    if (excess > 0) {
        history_.remove(0, int(excess));
        historyBase_ += excess;
    }
    std::fflush(stdout);
}

void Stream::finish()
{
    if (finished_) return;
    finished_ = true;
    account();
    flushSkipped();
    for (const auto& [id, body] : bodies_) {
        out_.cut += body.got;
        out_.report(tagged({{"cutBody", double(id)},
                            {"got", double(body.got)},
                            {"total", double(body.total)}}),
                    QStringLiteral("-- %1the stream ends inside split body %2: %3 of %4 bytes "
                                   "arrived")
                        .arg(prefix())
                        .arg(id)
                        .arg(body.got)
                        .arg(body.total));
    }
    bodies_.clear();
    const qint64 tail = position_ - scanned_;
    if (tail > 0) {
        out_.cut += tail;
        const QString hex = hexOf(bytesAt(scanned_, tail));
        out_.report(tagged({{"cut", double(tail)}, {"offset", double(scanned_)}, {"hex", hex}}),
                    QStringLiteral("-- %1the stream ends inside a frame: %2 bytes at offset %3 "
                                   "wait for the rest\n    hex: %4")
                        .arg(prefix())
                        .arg(tail)
                        .arg(scanned_)
                        .arg(hex));
    }
    std::fflush(stdout);
}

int Stream::onEvent(kz_event* e)
{
    auto* s = static_cast<Stream*>(static_cast<kz_object*>(e->object)->user);
    // Whatever the engine skipped before this frame is reported before it.
    s->account();
    if (e->type == KZ_EVENT_DATA)
        s->body(QByteArray(static_cast<const char*>(e->data), e->length), e->length2, e->seq);
    else if (e->type == KZ_EVENT_NOTICE)
        s->notice(e->name ? e->name : "", e->length);
    return 0;
}

// The engine passes over the stream once, in order: each byte either starts
// a frame that passed its checks or is skipped. Its two counts therefore
// tell where each skipped run lies, if the frames it accepted are found
// again at the scan position.
void Stream::account()
{
    const quint64 frames = counts_->frames;
    const quint64 skipped = counts_->skipped;
    while (framesSeen_ < frames || skippedSeen_ < skipped) {
        if (framesSeen_ < frames) {
            const int len = frameLengthAt(scanned_);
            if (len > 0) {
                flushSkipped();
                notePiece(scanned_);
                scanned_ += len;
                ++framesSeen_;
                continue;
            }
            if (skippedSeen_ == skipped) { // lost step: resynchronise on the counts
                framesSeen_ = frames;
                break;
            }
        }
        // With no frame ahead, the whole skipped run is taken at once.
        const quint64 n = framesSeen_ < frames ? 1 : skipped - skippedSeen_;
        if (skipStart_ < 0) skipStart_ = scanned_;
        skipLength_ += qint64(n);
        scanned_ += qint64(n);
        skippedSeen_ += n;
    }
}

void Stream::flushSkipped()
{
    if (skipStart_ < 0) return;
    const qint64 at = skipStart_;
    const qint64 n = skipLength_;
    skipStart_ = -1;
    skipLength_ = 0;
    out_.skipped += n;
    const QString hex = hexOf(bytesAt(at, n));
    out_.report(tagged({{"skipped", double(n)}, {"offset", double(at)}, {"hex", hex}}),
                QStringLiteral("-- %1skipped %2 bytes at offset %3: not part of a good frame\n"
                               "    hex: %4")
                    .arg(prefix())
                    .arg(n)
                    .arg(at)
                    .arg(hex));
}

// The length of a frame at `offset` that passes both checksums, or 0.
int Stream::frameLengthAt(qint64 offset) const
{
    const QByteArray b = bytesAt(offset, qMin<qint64>(KZ_PIECE_OVERHEAD, position_ - offset));
    const auto* p = reinterpret_cast<const uchar*>(b.constData());
    if (b.size() < KZ_FRAME_OVERHEAD || p[0] != 0x4B || p[1] != 0x5A || p[2] != 1 || p[3] > 1)
        return 0;
    const int head = p[3] ? 26 : 14;
    if (b.size() < head + 4 || kz_crc32(0, p, size_t(head)) != le32(p + head)) return 0;
    const qint64 len = qint64(head) + 4 + (p[8] | p[9] << 8) + le32(p + 10) + 4;
    if (len > kKeep || offset + len > position_) return 0;
    const QByteArray frame = bytesAt(offset, len);
    if (frame.size() != len) return 0;
    const auto* f = reinterpret_cast<const uchar*>(frame.constData());
    return kz_crc32(0, f, size_t(len - 4)) == le32(f + len - 4) ? int(len) : 0;
}

// A piece accepted at `offset`: the split body it starts or continues, until
// the body arrives whole (or the engine drops it, which its notice says).
void Stream::notePiece(qint64 offset)
{
    const QByteArray h = bytesAt(offset, 26);
    const auto* p = reinterpret_cast<const uchar*>(h.constData());
    if (h.size() < 26 || p[3] != 1) return;
    const quint32 id = le32(p + 14);
    const qint64 n = le32(p + 10);
    if (le32(p + 22) == 0) {
        if (bodies_.size() >= kBodiesFollowed && !bodies_.count(id)) bodies_.erase(bodies_.begin());
        bodies_[id] = PartialBody{n, le32(p + 18)};
    } else if (auto it = bodies_.find(id); it != bodies_.end()) {
        it->second.got += n;
    }
}

QByteArray Stream::bytesAt(qint64 offset, qint64 n) const
{
    const qint64 start = offset - historyBase_;
    if (start < 0 || n <= 0) return {};
    return history_.mid(int(start), int(qMin<qint64>(n, history_.size() - start)));
}

QJsonObject Stream::tagged(QJsonObject o) const
{
    if (connection_) o.insert("connection", connection_);
    if (!direction_.isEmpty()) o.insert("direction", direction_);
    return o;
}

QString Stream::prefix() const
{
    return direction_.isEmpty() ? QString() : direction_ + QLatin1Char(' ');
}

void Stream::notice(const char* why, int dropped)
{
    ++out_.notices;
    // A damaged frame or a rejected header ends at the byte just fed; the
    // other notices concern assembled pieces, not one run of bytes.
    QByteArray bytes;
    if (!std::strcmp(why, "frame checksum mismatch") ||
        !std::strcmp(why, "frame header out of limits"))
        bytes = bytesAt(position_ - dropped, dropped);
    QJsonObject o{{"notice", QString::fromUtf8(why)}, {"dropped", dropped}};
    QString text = QStringLiteral("-- %1dropped %2 bytes: %3").arg(prefix()).arg(dropped).arg(why);
    if (!bytes.isEmpty()) {
        o.insert("offset", double(position_ - dropped));
        o.insert("hex", hexOf(bytes));
        text += QStringLiteral("\n    hex: ") + hexOf(bytes);
    }
    out_.report(tagged(o), text);
}

void Stream::body(QByteArray body, int frames, quint32 seq)
{
    if (frames > 1) bodies_.erase(seq);
    kz_coding_decrypt_fast(body.data() + 1, body.constData() + 1, body.size() - 1);
    const auto* b = reinterpret_cast<const uchar*>(body.constData());
    const int n = ++out_.messages;
    QJsonObject o =
        tagged({{"n", n}, {"seq", double(seq)}, {"frames", frames}, {"bytes", body.size()}});
    QString head = QStringLiteral("#%1 %2seq %3 ").arg(n).arg(prefix()).arg(seq);
    const QString size = QStringLiteral(", %1 frame%2, %3 bytes")
                             .arg(frames)
                             .arg(frames == 1 ? "" : "s")
                             .arg(body.size());

    if (body.size() < 4) {
        fail(o, head + QStringLiteral("message") + size,
             QStringLiteral("body shorter than the 4-byte message header"), body);
        return;
    }
    const uchar flag = b[0];
    const quint16 code = quint16(b[2] | (b[3] << 8));
    const char* name = kz::methodName(code);
    const QString kind = flag == kz::Request ? QStringLiteral("request")
                         : flag == kz::Reply ? QStringLiteral("reply")
                                             : QStringLiteral("flag %1").arg(flag);
    o.insert("flag", flag);
    o.insert("kind", kind);
    o.insert("code", code);
    if (name) o.insert("method", QString::fromLatin1(name));
    head += QStringLiteral("%1 %2 (0x%3)%4")
                .arg(kind, name ? QString::fromLatin1(name) : QStringLiteral("<unknown code>"))
                .arg(QString::number(code, 16).toUpper().rightJustified(4, QLatin1Char('0')))
                .arg(size);
    if (b[1] != kz::kMessageType)
        return fail(o, head, QStringLiteral("type byte %1, not %2").arg(b[1]).arg(kz::kMessageType),
                    body);
    if (!name) return fail(o, head, QStringLiteral("unknown method code"), body);
    if (flag != kz::Request && flag != kz::Reply)
        return fail(o, head, QStringLiteral("flag is neither request (0) nor reply (1)"), body);

    kz::Trace trace;
    KZProtocolResolverPrivate::get(&resolver_)->dispatch(b, body.size() - 4, &trace);
    QJsonArray fields;
    QString text = head;
    for (const kz::TraceItem& t : trace.fields()) {
        const QString fieldName = t.name ? QString::fromLatin1(t.name) : QStringLiteral("?");
        fields.append(QJsonObject{{"name", fieldName},
                                  {"kind", QString::fromLatin1(t.kind)},
                                  {"offset", t.offset},
                                  {"value", jsonValue(t)}});
        if (!out_.quiet)
            text += QStringLiteral("\n    %1 = %2  (%3 @%4)")
                        .arg(fieldName, t.text, QString::fromLatin1(t.kind))
                        .arg(t.offset);
    }
    o.insert("fields", fields);
    if (trace.cutAt >= 0)
        return fail(
            o, text,
            QStringLiteral("body cut: the data ends inside the field at @%1").arg(trace.cutAt),
            body);
    out_.report(o, text);
}

/// A message that could not be decoded (or only in part): the reason and
/// the restored body as hex.
void Stream::fail(QJsonObject& o, const QString& text, const QString& why, const QByteArray& body)
{
    o.insert("error", why);
    o.insert("hex", hexOf(body));
    out_.report(o, text + QStringLiteral("\n    !! ") + why + QStringLiteral("\n    hex: ") +
                       hexOf(body));
}

} // namespace kzdump
