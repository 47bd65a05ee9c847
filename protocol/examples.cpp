// kzexamples: runs every encoder once, with the example values the protocol
// table gives (examples.inc, generated), and writes for each the payload it
// produced and the fields its decoder reads back, as JSON: the examples of the
// protocol reference page are the library's own bytes.
//
//   kzexamples OUT.json
#include "kzprotocolresolver_p.h"

#include <kzapin/kzapin.h>

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <cstdio>
#include <cstdlib>

namespace {

void collect(void* ctx, char* bytes, int n)
{
    static_cast<QByteArray*>(ctx)->append(bytes, n);
    std::free(bytes);
}

// The message bodies in a stream of frames, restored.
struct Bodies
{
    QList<QByteArray> found;

    static int onEvent(kz_event* e)
    {
        auto* self = static_cast<Bodies*>(static_cast<kz_object*>(e->object)->user);
        if (e->type == KZ_EVENT_DATA) {
            QByteArray body(static_cast<const char*>(e->data), e->length);
            kz_coding_decrypt_fast(body.data() + 1, body.constData() + 1, body.size() - 1);
            self->found.append(body);
        }
        return 0;
    }

    explicit Bodies(const QByteArray& stream)
    {
        void* engine = kz_type_new(kz__protoiot, 0);
        auto* obj = static_cast<kz_object*>(engine);
        obj->user = this;
        obj->handler = &Bodies::onEvent;
        kz_protoiot_engine.input(engine, stream.constData(), stream.size());
        kz_type_delete(engine);
    }
};

QJsonObject example(const char* message, const char* kind, const char* encoder,
                    void (*send)(KZProtocolResolver&))
{
    QByteArray stream;
    KZProtocolResolver tx(0x100000); // every example in one frame
    tx.setReceiveData(&stream);
    tx.setParsePackResult(&collect);
    send(tx);
    const QList<QByteArray> bodies = Bodies(stream).found;
    QJsonObject o{{"message", message}, {"kind", kind}, {"encoder", encoder}};
    if (bodies.size() != 1) {
        o.insert("error", QStringLiteral("%1 bodies").arg(bodies.size()));
        return o;
    }
    const QByteArray body = bodies[0];
    const auto* b = reinterpret_cast<const uchar*>(body.constData());
    o.insert("flag", b[0]);
    o.insert("code", b[2] | b[3] << 8);
    o.insert("payload", QString::fromLatin1(body.mid(4, body.size() - 5).toHex(' ')));
    kz::Trace trace;
    KZProtocolResolver rx;
    KZProtocolResolverPrivate::get(&rx)->dispatch(b, body.size() - 4, &trace);
    QJsonArray fields;
    for (const kz::TraceItem& t : trace.fields())
        fields.append(QJsonObject{{"name", t.name ? QString::fromLatin1(t.name) : QString()},
                                  {"kind", QString::fromLatin1(t.kind)},
                                  {"offset", t.offset},
                                  {"text", t.text}});
    o.insert("fields", fields);
    return o;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::fprintf(stderr, "usage: kzexamples OUT.json\n");
        return 2;
    }
    QJsonArray all;
#define KZ_EXAMPLE(message, kind, encoder, call)                                                   \
    all.append(example(#message, kind, #encoder, [](KZProtocolResolver& r) { r.call; }));
#include "examples.inc"
#undef KZ_EXAMPLE
    QFile out(QString::fromLocal8Bit(argv[1]));
    if (!out.open(QIODevice::WriteOnly) || out.write(QJsonDocument(all).toJson()) < 0) {
        std::fprintf(stderr, "kzexamples: cannot write %s\n", argv[1]);
        return 1;
    }
    return 0;
}
