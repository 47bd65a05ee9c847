// Sending: the body of every message built, coded and framed, usually
// straight into the buffer the host gets, and the pieces of a long body handed
// out as they are packed.
#include "kzprotocolresolver_p.h"

#include <kzapin/kzapin.h>

#include <QVarLengthArray>

#include <climits>
#include <cstdlib>
#include <cstring>
#include <new>

using namespace kz;

// ---------------------------------------------------------------------------
// Sending
// ---------------------------------------------------------------------------

void KZProtocolResolverPrivate::warnLoss(Method method, uchar flag, const char* what, qint64 value)
{
    const char* name = methodName(quint16(method));
    qCWarning(lcResolver).nospace().noquote()
        << (name ? name : "?") << (flag == Request ? " request" : " reply") << ": " << what << " "
        << value << " will not arrive as sent";
}

void KZProtocolResolverPrivate::warnSend(Method method, uchar flag, const Payload& payload)
{
    if (payload.lossWhat()) warnLoss(method, flag, payload.lossWhat(), payload.lossValue());
    const qint64 bodyLength = 4 + qint64(payload.size()) + 1;
    if (bodyLength > KZ_DEFAULT_MAX_BODY)
        warnLoss(method, flag, "body over the receive limit, bytes:", bodyLength);
}

char* KZProtocolResolverPrivate::frameBuffer(size_t n)
{
    if (!packedFrame || sendBufferBusy || n > size_t(qMax(frameCapacity, 1)))
        return static_cast<char*>(std::malloc(n));
    if (n > sendBufferSize) {
        sendBuffer.reset(new (std::nothrow) char[size_t(frameCapacity)]);
        sendBufferSize = sendBuffer ? size_t(frameCapacity) : 0;
        if (!sendBuffer) return static_cast<char*>(std::malloc(n));
    }
    sendBufferBusy = true;
    return sendBuffer.get();
}

void KZProtocolResolverPrivate::emitFrame(char* buffer, int length)
{
    // Once the host has deleted the resolver, nothing more goes out.
    if (packedFrame) {
        // Lent for the call: only frames with bytes to send.
        if (buffer && length > 0 && !retired()) packedFrame(receiveData, buffer, length);
        if (buffer && buffer == sendBuffer.get())
            sendBufferBusy = false;
        else
            std::free(buffer);
        return;
    }
    // Every buffer goes to the host, even one the engine could not fill
    // (length 0): the host owns it and sees that nothing is to be sent.
    if (packResult && buffer && !retired()) {
        packResult(receiveData, buffer, length);
        return;
    }
    std::free(buffer);
}

namespace {

// memcpy for the few bytes of most payloads, without a call.
inline void copyShort(uchar* d, const char* s, size_t n)
{
    if (n > 16) {
        std::memcpy(d, s, n);
    } else if (n >= 8) { // two words that may overlap
        std::memcpy(d, s, 8);
        std::memcpy(d + n - 8, s + n - 8, 8);
    } else if (n >= 4) {
        std::memcpy(d, s, 4);
        std::memcpy(d + n - 4, s + n - 4, 4);
    } else {
        for (size_t i = 0; i < n; ++i) d[i] = uchar(s[i]);
    }
}

// A small body of one run written at `dst` and coded there: header,
// payload, zeros.
void writeSmall(uchar* dst, const uchar* head, const char* plain, size_t k, qint64 zeros)
{
    std::memcpy(dst, head, 4);
    copyShort(dst + 4, plain, k);
    if (zeros == 1)
        dst[4 + k] = 0;
    else
        std::memset(dst + 4 + k, 0, size_t(zeros));
    kz_coding_encrypt_fast(dst + 1, dst + 1, int(4 + k + size_t(zeros) - 1));
}

// A message body as it is sent, without building it: the four header bytes
// (flag, type, method code), the payload and `zeros` terminating zero bytes.
struct BodyParts
{
    uchar head[4];
    const Payload& payload;
    qint64 zeros;

    // Runs this short are copied and then coded in place; longer ones are
    // coded on their way from the payload into the frame.
    static constexpr qint64 kCopyThenCode = 256;

    BodyParts(const uchar* h, const Payload& p, qint64 z) : payload(p), zeros(z)
    {
        std::memcpy(head, h, 4);
    }
    BodyParts(const BodyParts&) = delete; // the first segment points into head
    BodyParts& operator=(const BodyParts&) = delete;

    qint64 length() const { return 4 + payload.size() + zeros; }

    // Calls fn(src, n, at) for the runs of body bytes [offset, offset + n)
    // in order: `at` is the body offset of the run, `src` its bytes (null
    // for the terminating zeros). Pieces are written front to back, so the
    // search starts at the segment the last call ended in.
    template <class F>
    void runs(qint64 offset, qint64 n, F fn) const
    {
        if (segments.isEmpty()) split();
        int i = cursor < segments.size() && segments[cursor].at <= offset ? cursor : 0;
        while (i < segments.size() && segments[i].at + segments[i].length <= offset) ++i;
        cursor = i;
        const qint64 end = offset + n;
        for (; i < segments.size() && offset < end; ++i) {
            const Segment& s = segments[i];
            const qint64 from = offset - s.at;
            const qint64 k = qMin(s.length - from, end - offset);
            fn(s.bytes ? s.bytes + from : nullptr, k, offset);
            offset += k;
        }
    }

    // Writes the body bytes [offset, offset + n) to `dst`, coded: every byte
    // but the first of the body is coded as one run that starts at byte 1.
    void write(uchar* dst, qint64 offset, qint64 n) const
    {
        if (n <= kCopyThenCode) {
            runs(offset, n, [&](const char* src, qint64 k, qint64 at) {
                uchar* d = dst + (at - offset);
                if (src)
                    std::memcpy(d, src, size_t(k));
                else
                    std::memset(d, 0, size_t(k));
            });
            if (offset == 0)
                kz_coding_code_at(dst + 1, dst + 1, int(n - 1), 0);
            else
                kz_coding_code_at(dst, dst, int(n), offset - 1);
            return;
        }
        runs(offset, n, [&](const char* src, qint64 k, qint64 at) {
            uchar* d = dst + (at - offset);
            if (!src) {
                std::memset(d, 0, size_t(k));
                src = reinterpret_cast<const char*>(d);
            }
            if (at == 0) { // the flag byte stays as it is
                d[0] = uchar(src[0]);
                kz_coding_code_at(d + 1, src + 1, int(k - 1), 0);
            } else {
                kz_coding_code_at(d, src, int(k), at - 1);
            }
        });
    }

private:
    // The body as runs: the header, the payload's runs, the zeros (bytes
    // null), each at its body offset.
    struct Segment
    {
        const char* bytes;
        qint64 at;
        qint64 length;
    };
    mutable QVarLengthArray<Segment, 8> segments; // made by the first runs()
    mutable int cursor = 0;

    void split() const
    {
        segments.append({reinterpret_cast<const char*>(head), 0, 4});
        qint64 at = 4;
        payload.forEachRun(0, size_t(payload.size()), [&](const char* d, size_t k) {
            segments.append({d, at, qint64(k)});
            at += qint64(k);
        });
        if (zeros > 0) segments.append({nullptr, at, zeros});
    }
};

} // namespace

void KZProtocolResolverPrivate::packSend(QByteArray attr, uchar flag, uchar type, ushort method,
                                         QByteArray data, uint datalen)
{
    const uchar head[4] = {flag, type, uchar(method & 0xFF), uchar(method >> 8)};
    // Messages carry no attr text: that goes the general way.
    if (!attr.isEmpty()) {
        const CallScope scope(this); // the pack-result callback may delete the resolver
        packSendGeneral(attr, head, data, datalen);
        return;
    }
    Payload payload;
    payload << rawbytes{data};
    // An empty payload is `datalen` zero bytes.
    packBody(head, payload, data.isEmpty() ? qint64(qMin<uint>(datalen, 0x10000)) : 1);
}

void KZProtocolResolverPrivate::packBody(const uchar* head, const Payload& payload, qint64 zeros)
{
    // Most messages: a short body of one run in one frame, written, coded
    // and framed straight into the buffer the host gets, sized to the frame.
    const char* plain = payload.contiguous();
    const qint64 bodyLength = 4 + payload.size() + zeros;
    if (!plain || bodyLength > BodyParts::kCopyThenCode ||
        KZ_FRAME_OVERHEAD + bodyLength > frameCapacity) {
        packLong(head, payload, zeros);
        return;
    }
    const CallScope scope(this); // the pack-result callback may delete the resolver
    packOneFrame(int(bodyLength),
                 [&](uchar* at) { writeSmall(at, head, plain, size_t(payload.size()), zeros); });
}

template <class Write>
void KZProtocolResolverPrivate::packOneFrame(int length, Write write)
{
    const int seq = sequence++;
    auto* out = reinterpret_cast<uchar*>(frameBuffer(size_t(KZ_FRAME_OVERHEAD + length)));
    int written = 0;
    if (out) {
        write(out + KZ_FRAME_DATA_AT(0));
        written = kz_protocol_pack_whole(engine, out, seq, length);
    }
    emitFrame(reinterpret_cast<char*>(out), written);
    drainPending();
}

void KZProtocolResolverPrivate::packLong(const uchar* head, const Payload& payload, qint64 zeros)
{
    const CallScope scope(this); // the pack-result callback may delete the resolver
    const int capacity = frameCapacity;
    const qint64 bodyLength = 4 + payload.size() + zeros;
    if (bodyLength > INT_MAX) {
        // Too long to count in an int: it cannot be framed. The host still
        // gets a buffer to free, and the message its number.
        ++sequence;
        emitFrame(static_cast<char*>(std::malloc(1)), 0);
        return;
    }
    const int length = int(bodyLength);
    if (KZ_FRAME_OVERHEAD + qint64(length) <= capacity) {
        packOneFrame(length,
                     [&](uchar* at) { BodyParts(head, payload, zeros).write(at, 0, length); });
        return;
    }
    const int seq = sequence++;
    const BodyParts body(head, payload, zeros);

    // Split: the first piece carries capacity - 34 bytes and so does every
    // later one; each is packed as soon as it is written. Pieces take fresh
    // sequence numbers unless the engine keeps the message's own.
    const qint64 step = qint64(capacity) - KZ_PIECE_OVERHEAD;
    if (step < 1 || !engine) {
        // Nothing can be sent: the host still gets a buffer to free.
        emitFrame(static_cast<char*>(std::malloc(1)), 0);
        return;
    }
    const bool freshSeq = kz_protocol_option(engine, KZ_OPT_PIECES) == KZ_PIECES_FRESH_SEQ;
    for (qint64 offset = 0; offset < length && !retired();) {
        const int n = int(qMin<qint64>(step, length - offset));
        auto* out = reinterpret_cast<uchar*>(frameBuffer(size_t(KZ_PIECE_OVERHEAD + n)));
        if (!out) {
            offset += n;
            continue;
        }
        uchar* at = out + KZ_PIECE_DATA_AT(0);
        body.write(at, offset, n);
        const int pieceSeq = offset == 0 || !freshSeq ? seq : sequence++;
        const int written =
            kz_protocol_pack_piece(engine, out, KZ_PIECE_OVERHEAD + n, pieceSeq, uint32_t(seq),
                                   uint32_t(length), uint32_t(offset), at, n);
        emitFrame(reinterpret_cast<char*>(out), written);
        offset += n;
    }
    drainPending();
}

void KZProtocolResolverPrivate::packSendGeneral(const QByteArray& attr, const uchar* head,
                                                const QByteArray& data, uint datalen)
{
    QByteArray body;
    body.reserve(4 + data.size() + 1);
    body.append(reinterpret_cast<const char*>(head), 4);
    if (data.isEmpty()) {
        body.append(QByteArray(int(qMin<uint>(datalen, 0x10000)), '\0'));
    } else {
        body.append(data);
        body.append('\0');
    }
    const int length = body.size();

    // Everything but the flag byte is coded.
    kz_coding_encrypt_fast(body.data() + 1, body.constData() + 1, length - 1);

    const QByteArray attrText = attr + '\0';
    char* out = static_cast<char*>(std::calloc(size_t(frameCapacity), 1));
    const int seq = sequence++;
    const int written = out ? kz_protocol_pack(engine, out, frameCapacity, seq,
                                               attrText.constData(), body.constData(), length)
                            : 0;
    emitFrame(out, written);
    drainPending();
}

void KZProtocolResolverPrivate::drainPendingNow()
{
    // A body that did not fit left its other pieces in the engine. They are
    // drained whatever the body's size, so no piece is ever left behind.
    // Once the host deleted the resolver, the pieces left are freed with
    // the engine.
    while (pending->count > 0 && !retired()) {
        kz_list_node* node = kz_list_take_node(pending, kz_list_node_at(pending, 0));
        if (!node) break;
        const int textLength = int(std::strlen(node->bytes));
        const int dataLength = node->total - textLength - 1;
        char* buffer = nullptr;
        int n = 0;
        if (!(node->flags & KZ_NODE_PACKED)) {
            buffer = frameBuffer(size_t(qMax(frameCapacity, 1)));
            const int pieceSeq = (node->flags & KZ_NODE_OWN_SEQ) ? node->seq : sequence++;
            if (buffer)
                n = kz_protocol_pack(engine, buffer, frameCapacity, pieceSeq, node->bytes,
                                     kz_strnxt(node->bytes), dataLength);
            else
                --sequence; // nothing packed, no number used
        } else {
            buffer = frameBuffer(size_t(qMax(dataLength, 1)));
            if (buffer && dataLength <= frameCapacity) {
                std::memcpy(buffer, kz_strnxt(node->bytes), size_t(qMax(dataLength, 0)));
                n = dataLength;
            }
        }
        emitFrame(buffer, n);
        kz_list_node_destroy(node);
    }
}
