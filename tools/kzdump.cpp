// kzdump: shows what is on the wire. Finds the frames in a byte stream (a raw
// capture, hex text, or live traffic relayed between a client and a server),
// restores each message body and prints the message with every field its
// decoder reads, by name:
//
//   #1 seq 0 request Logout (0x0002), 1 frame, 9 bytes
//       value = 7  (i32 @0)
//
// The fields come from the library's own decoders, run with no callbacks set
// and a recording reader, so the dump cannot disagree with them. What cannot
// be decoded (a damaged frame, an unknown code, a cut body) is shown as hex
// with the reason.
#include "kzprotocolresolver_p.h"

#include <kzapin/kzapin.h>

#include <QCoreApplication>
#include <QFile>
#include <QHostAddress>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTcpServer>
#include <QTcpSocket>

#include <cstdio>
#include <cstring>
#include <memory>

namespace {

struct Options
{
    bool json = false;
    bool quiet = false;
    int messages = 0; // numbering runs across both directions of a tap
    int notices = 0;
};

constexpr int kHexShown = 256; // bytes of an undecodable frame or body shown

QString hexOf(const QByteArray& b)
{
    QString h = QString::fromLatin1(b.left(kHexShown).toHex(' '));
    if (b.size() > kHexShown) h += QStringLiteral(" ... (%1 more)").arg(b.size() - kHexShown);
    return h;
}

void emitJson(const QJsonObject& o)
{
    std::printf("%s\n", QJsonDocument(o).toJson(QJsonDocument::Compact).constData());
}

/// A field value as JSON: numbers and flags typed, text without its quotes,
/// composites as the text the trace shows.
QJsonValue jsonValue(const kz::TraceItem& t)
{
    const QString& v = t.text;
    const QLatin1String kind(t.kind);
    if (kind == QLatin1String("flag8")) return v == QLatin1String("true");
    if (kind == QLatin1String("dtext")) return v.toDouble();
    if (kind == QLatin1String("strz") || kind == QLatin1String("str16"))
        return v.size() >= 2 ? v.mid(1, v.size() - 2) : v;
    bool isNumber = false;
    const qlonglong n = v.toLongLong(&isNumber);
    if (isNumber) return double(n);
    return v;
}

/// One byte stream: its own frame engine, and the stream's recent bytes so
/// that a dropped frame can be shown.
class Stream
{
public:
    Stream(Options& opt, QString direction) : opt_(opt), direction_(std::move(direction))
    {
        engine_ = kz_type_new(kz__protoiot, 0);
        auto* obj = static_cast<kz_object*>(engine_);
        obj->user = this;
        obj->handler = &Stream::onEvent;
    }
    ~Stream() { kz_type_delete(engine_); }
    Stream(const Stream&) = delete;
    Stream& operator=(const Stream&) = delete;

    /// Byte by byte, so that at each event the stream position is the end
    /// of the frame concerned.
    void feed(const QByteArray& bytes)
    {
        history_.append(bytes);
        for (int i = 0; i < bytes.size(); ++i) {
            kz_protoiot_engine.input(engine_, bytes.constData() + i, 1);
            ++position_;
        }
        const int excess = history_.size() - kKeep;
        if (excess > 0) {
            history_.remove(0, excess);
            historyBase_ += excess;
        }
        std::fflush(stdout);
    }

private:
    // The largest frame the engine accepts.
    static constexpr int kKeep = KZ_PIECE_OVERHEAD + 65535 + KZ_DEFAULT_MAX_BODY;

    static int onEvent(kz_event* e)
    {
        auto* s = static_cast<Stream*>(static_cast<kz_object*>(e->object)->user);
        if (e->type == KZ_EVENT_DATA)
            s->body(QByteArray(static_cast<const char*>(e->data), e->length), e->length2, e->seq);
        else if (e->type == KZ_EVENT_NOTICE)
            s->notice(e->name ? e->name : "", e->length);
        return 0;
    }

    void notice(const char* why, int dropped)
    {
        ++opt_.notices;
        // A damaged frame or a rejected header ends at the byte just fed;
        // the other notices concern assembled pieces, not one run of bytes.
        QByteArray bytes;
        if (!std::strcmp(why, "frame checksum mismatch") ||
            !std::strcmp(why, "frame header out of limits")) {
            const qint64 start = position_ + 1 - dropped - historyBase_;
            if (start >= 0) bytes = history_.mid(int(start), dropped);
        }
        if (opt_.json) {
            QJsonObject o{{"notice", QString::fromUtf8(why)}, {"dropped", dropped}};
            if (!direction_.isEmpty()) o.insert("direction", direction_);
            if (!bytes.isEmpty()) o.insert("hex", hexOf(bytes));
            emitJson(o);
            return;
        }
        std::printf("-- %s%sdropped %d bytes: %s\n", qPrintable(direction_),
                    direction_.isEmpty() ? "" : " ", dropped, why);
        if (!bytes.isEmpty()) std::printf("    hex: %s\n", qPrintable(hexOf(bytes)));
    }

    void body(QByteArray body, int frames, quint32 seq)
    {
        kz_coding_decrypt_fast(body.data() + 1, body.constData() + 1, body.size() - 1);
        const auto* b = reinterpret_cast<const uchar*>(body.constData());
        const int n = ++opt_.messages;
        QJsonObject o{{"n", n}, {"seq", double(seq)}, {"frames", frames}, {"bytes", body.size()}};
        if (!direction_.isEmpty()) o.insert("direction", direction_);
        QString head = QStringLiteral("#%1 ").arg(n);
        if (!direction_.isEmpty()) head += direction_ + QLatin1Char(' ');
        head += QStringLiteral("seq %1 ").arg(seq);
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
            return fail(o, head,
                        QStringLiteral("type byte %1, not %2").arg(b[1]).arg(kz::kMessageType),
                        body);
        if (!name) return fail(o, head, QStringLiteral("unknown method code"), body);
        if (flag != kz::Request && flag != kz::Reply)
            return fail(o, head, QStringLiteral("flag is neither request (0) nor reply (1)"), body);

        kz::Trace trace;
        KZProtocolResolverPrivate::get(&resolver_)->dispatch(b, body.size() - 4, &trace);
        const int cutAt = trace.cutAt;
        QJsonArray fields;
        QString text = head;
        for (const kz::TraceItem& t : trace.fields()) {
            const QString fieldName = t.name ? QString::fromLatin1(t.name) : QStringLiteral("?");
            fields.append(QJsonObject{{"name", fieldName},
                                      {"kind", QString::fromLatin1(t.kind)},
                                      {"offset", t.offset},
                                      {"value", jsonValue(t)}});
            if (!opt_.quiet)
                text += QStringLiteral("\n    %1 = %2  (%3 @%4)")
                            .arg(fieldName, t.text, QString::fromLatin1(t.kind))
                            .arg(t.offset);
        }
        o.insert("fields", fields);
        if (cutAt >= 0) {
            return fail(
                o, text,
                QStringLiteral("body cut: the data ends inside the field at @%1").arg(cutAt), body);
        }
        if (opt_.json)
            emitJson(o);
        else
            std::printf("%s\n", qPrintable(text));
    }

    /// A message that could not be decoded (or only in part): the reason and
    /// the restored body as hex.
    void fail(QJsonObject& o, const QString& text, const QString& why, const QByteArray& body)
    {
        if (opt_.json) {
            o.insert("error", why);
            o.insert("hex", hexOf(body));
            emitJson(o);
        } else {
            std::printf("%s\n    !! %s\n    hex: %s\n", qPrintable(text), qPrintable(why),
                        qPrintable(hexOf(body)));
        }
    }

    Options& opt_;
    QString direction_;
    void* engine_ = nullptr;
    KZProtocolResolver resolver_; // no callbacks: decoders run for their trace only
    QByteArray history_;
    qint64 historyBase_ = 0; // stream offset of history_[0]
    qint64 position_ = 0;    // stream offset of the next byte
};

// ---------------------------------------------------------------------------
// The tap: a transparent relay that dumps both directions
// ---------------------------------------------------------------------------

/// One relayed connection: bytes pass unchanged both ways and each
/// direction is dumped as it passes.
class Relay : public QObject
{
public:
    Relay(Options& opt, QTcpSocket* client, const QString& host, quint16 port, bool last)
        : client_(client), toServer_(opt, QStringLiteral("client→server")),
          toClient_(opt, QStringLiteral("server→client")), last_(last)
    {
        client_->setParent(this);
        server_ = new QTcpSocket(this);
        connect(server_, &QTcpSocket::connected, this,
                [this] { pass(client_, server_, toServer_); });
        connect(client_, &QTcpSocket::readyRead, this, [this] {
            if (server_->state() == QAbstractSocket::ConnectedState)
                pass(client_, server_, toServer_);
        });
        connect(server_, &QTcpSocket::readyRead, this,
                [this] { pass(server_, client_, toClient_); });
        connect(client_, &QTcpSocket::disconnected, this, [this] { end(server_); });
        connect(server_, &QTcpSocket::disconnected, this, [this] { end(client_); });
        connect(server_, &QTcpSocket::errorOccurred, this, [this] {
            if (server_->state() != QAbstractSocket::ConnectedState) {
                std::fprintf(stderr, "kzdump: cannot reach the server: %s\n",
                             qPrintable(server_->errorString()));
                end(client_);
            }
        });
        server_->connectToHost(host, port);
    }

private:
    static void pass(QTcpSocket* from, QTcpSocket* to, Stream& dump)
    {
        const QByteArray bytes = from->readAll();
        if (bytes.isEmpty()) return;
        to->write(bytes);
        dump.feed(bytes);
    }

    /// One side has gone: the other is closed once its writes are out.
    void end(QTcpSocket* other)
    {
        if (ended_) return;
        ended_ = true;
        pass(client_, server_, toServer_);
        pass(server_, client_, toClient_);
        std::printf("-- connection closed\n");
        std::fflush(stdout);
        other->disconnectFromHost();
        if (last_) QCoreApplication::quit();
        deleteLater();
    }

    QTcpSocket* client_;
    QTcpSocket* server_;
    Stream toServer_;
    Stream toClient_;
    bool last_;
    bool ended_ = false;
};

int tap(Options& opt, const char* listenPort, const char* target, bool once)
{
    bool portOk = false;
    const uint port = QByteArray(listenPort).toUInt(&portOk);
    const QString to = QString::fromLocal8Bit(target);
    const int colon = to.lastIndexOf(QLatin1Char(':'));
    bool targetOk = false;
    const uint targetPort = colon > 0 ? to.mid(colon + 1).toUInt(&targetOk) : 0;
    if (!portOk || port > 65535 || !targetOk || targetPort == 0 || targetPort > 65535) {
        std::fprintf(stderr, "kzdump: --tap LISTEN_PORT HOST:PORT\n");
        return 2;
    }
    const QString host = to.left(colon);
    QTcpServer listener;
    if (!listener.listen(QHostAddress::Any, quint16(port))) {
        std::fprintf(stderr, "kzdump: cannot listen on port %u: %s\n", port,
                     qPrintable(listener.errorString()));
        return 1;
    }
    std::fprintf(stderr, "kzdump: listening on port %u, relaying to %s\n",
                 unsigned(listener.serverPort()), qPrintable(to));
    int connections = 0;
    QObject::connect(&listener, &QTcpServer::newConnection, [&] {
        while (QTcpSocket* client = listener.nextPendingConnection()) {
            ++connections;
            bool v4 = false; // a client over IPv4 shows as such, not as a mapped address
            const quint32 a = client->peerAddress().toIPv4Address(&v4);
            const QString from = v4 ? QHostAddress(a).toString() : client->peerAddress().toString();
            std::printf("-- connection %d from %s:%u\n", connections, qPrintable(from),
                        unsigned(client->peerPort()));
            std::fflush(stdout);
            new Relay(opt, client, host, quint16(targetPort), once);
            if (once) listener.close();
        }
    });
    return QCoreApplication::exec();
}

int usage(FILE* to, int rc)
{
    std::fprintf(to,
                 "usage: kzdump [--json] [--quiet] [--hex] [FILE|-]\n"
                 "       kzdump [--json] [--quiet] [--once] --tap LISTEN_PORT HOST:PORT\n"
                 "  Prints every message in a byte stream of kzresolver frames: direction,\n"
                 "  sequence number, flag, method name and code, and each field by name.\n"
                 "  Frames and bodies that cannot be decoded are shown as hex with the reason.\n"
                 "  FILE     raw bytes (a capture); - or no FILE reads standard input\n"
                 "  --hex    the input is hex text (blanks and newlines ignored)\n"
                 "  --json   one JSON object per message (and per dropped frame)\n"
                 "  --quiet  one line per message, no fields\n"
                 "  --tap    listen on LISTEN_PORT (0: any free port, printed on stderr),\n"
                 "           relay each client to HOST:PORT unchanged and print both\n"
                 "           directions live\n"
                 "  --once   with --tap: exit when the first connection ends\n"
                 "  --help   this text\n");
    return rc;
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    Options opt;
    bool hex = false;
    bool once = false;
    const char* path = nullptr;
    const char* tapPort = nullptr;
    const char* tapTarget = nullptr;
    for (int i = 1; i < argc; ++i) {
        const char* a = argv[i];
        if (!std::strcmp(a, "--help") || !std::strcmp(a, "-h"))
            return usage(stdout, 0);
        else if (!std::strcmp(a, "--hex"))
            hex = true;
        else if (!std::strcmp(a, "--json"))
            opt.json = true;
        else if (!std::strcmp(a, "--quiet"))
            opt.quiet = true;
        else if (!std::strcmp(a, "--once"))
            once = true;
        else if (!std::strcmp(a, "--tap") && i + 2 < argc) {
            tapPort = argv[++i];
            tapTarget = argv[++i];
        } else if (!path && (a[0] != '-' || !a[1]))
            path = a;
        else
            return usage(stderr, 2);
    }
    if (tapPort) return path || hex ? usage(stderr, 2) : tap(opt, tapPort, tapTarget, once);

    QFile file;
    const bool fromStdin = !path || !std::strcmp(path, "-");
    const bool opened = fromStdin ? file.open(stdin, QIODevice::ReadOnly)
                                  : (file.setFileName(QString::fromLocal8Bit(path)),
                                     file.open(QIODevice::ReadOnly));
    if (!opened) {
        std::fprintf(stderr, "kzdump: cannot read %s\n", path ? path : "standard input");
        return 1;
    }
    QByteArray input = file.readAll();
    if (hex) {
        input = input.simplified().replace(' ', QByteArray());
        const QByteArray bytes = QByteArray::fromHex(input);
        if (bytes.size() * 2 != input.size()) {
            std::fprintf(stderr, "kzdump: the input is not hex text\n");
            return 1;
        }
        input = bytes;
    }
    {
        Stream stream(opt, QString());
        stream.feed(input);
    }
    if (!opt.json)
        std::printf("%d message%s, %d drop notice%s\n", opt.messages, opt.messages == 1 ? "" : "s",
                    opt.notices, opt.notices == 1 ? "" : "s");
    return 0;
}
