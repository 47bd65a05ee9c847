// kzdump: shows what is on the wire. Reads a byte stream of frames (a raw
// capture, or hex text), finds the frames, restores each message body and
// prints the message with every field its decoder reads:
//
//   #1 request Logout (0x0002), 1 frame, 9 bytes
//       i32 7 @0
//
// The fields come from the library's own decoders, run with no callbacks
// set and a recording reader, so the dump cannot disagree with them.
#include "kzprotocolresolver_p.h"

#include <kzapin/kzapin.h>

#include <QFile>

#include <cstdio>
#include <cstring>

namespace {

struct Dump
{
    KZProtocolResolver resolver; // no callbacks: decoders run for their trace only
    int messages = 0;
    int notices = 0;
    bool quiet = false;
};

void printBody(Dump& dump, QByteArray body, int frames)
{
    kz_coding_decrypt_fast(body.data() + 1, body.constData() + 1, body.size() - 1);
    const auto* b = reinterpret_cast<const uchar*>(body.constData());
    ++dump.messages;
    if (body.size() < 4) {
        std::printf("#%d short body of %d bytes\n", dump.messages, int(body.size()));
        return;
    }
    const quint16 code = quint16(b[2] | (b[3] << 8));
    const char* name = kz::methodName(code);
    const char* dir = b[0] == 0 ? "request" : b[0] == 1 ? "reply" : "flag?";
    std::printf("#%d %s %s (0x%04X), %d frame%s, %d bytes%s\n", dump.messages, dir,
                name ? name : "<unknown code>", code, frames, frames == 1 ? "" : "s",
                int(body.size()),
                b[1] == kz::kMessageType ? "" : " [type byte is not 17: dropped]");
    if (dump.quiet || !name || b[1] != kz::kMessageType) return;
    QVector<kz::TraceItem> trace;
    KZProtocolResolverPrivate::get(&dump.resolver)->dispatch(b, body.size() - 4, &trace);
    for (const kz::TraceItem& t : trace)
        std::printf("    %s %s @%d\n", t.kind, qPrintable(t.value), t.offset);
}

int onEvent(kz_event* e)
{
    auto* dump = static_cast<Dump*>(static_cast<kz_object*>(e->object)->user);
    if (e->type == KZ_EVENT_DATA && e->length > 0)
        printBody(*dump, QByteArray(static_cast<const char*>(e->data), e->length), e->length2);
    else if (e->type == KZ_EVENT_NOTICE) {
        ++dump->notices;
        std::printf("-- dropped %d bytes: %s\n", e->length, e->name ? e->name : "");
    }
    return 0;
}

int usage()
{
    std::fprintf(stderr, "usage: kzdump [--hex] [--quiet] FILE|-\n"
                         "  Prints the messages in a captured byte stream of kzresolver frames.\n"
                         "  --hex    the input is hex text (blanks and newlines ignored)\n"
                         "  --quiet  one line per message, no fields\n");
    return 2;
}

} // namespace

int main(int argc, char** argv)
{
    bool hex = false;
    Dump dump;
    const char* path = nullptr;
    for (int i = 1; i < argc; ++i) {
        if (!std::strcmp(argv[i], "--hex"))
            hex = true;
        else if (!std::strcmp(argv[i], "--quiet"))
            dump.quiet = true;
        else if (!path)
            path = argv[i];
        else
            return usage();
    }
    if (!path) return usage();

    QFile file;
    const bool opened =
        std::strcmp(path, "-") == 0
            ? file.open(stdin, QIODevice::ReadOnly)
            : (file.setFileName(QString::fromLocal8Bit(path)), file.open(QIODevice::ReadOnly));
    if (!opened) {
        std::fprintf(stderr, "kzdump: cannot read %s\n", path);
        return 1;
    }
    QByteArray input = file.readAll();
    if (hex) input = QByteArray::fromHex(input.simplified().replace(' ', QByteArray()));

    void* engine = kz_type_new(kz__protoiot, 0);
    auto* obj = static_cast<kz_object*>(engine);
    obj->user = &dump;
    obj->handler = &onEvent;
    kz_protoiot_engine.input(engine, input.constData(), input.size());
    kz_type_delete(engine);
    std::printf("%d message%s, %d drop notice%s\n", dump.messages, dump.messages == 1 ? "" : "s",
                dump.notices, dump.notices == 1 ? "" : "s");
    return 0;
}
