#include "support.h"

#include <QtGlobal>

namespace kztest {

namespace {
int collect(kz_event* e)
{
    if (e->type == KZ_EVENT_DATA) {
        auto* out = static_cast<QList<QByteArray>*>(static_cast<kz_object*>(e->object)->user);
        QByteArray body(static_cast<const char*>(e->data), e->length);
        if (body.size() > 1)
            kz_coding_decrypt_fast(body.data() + 1, body.data() + 1, body.size() - 1);
        out->append(body);
    }
    return 0;
}
} // namespace

QList<QByteArray> bodiesOf(const QByteArray& stream)
{
    QList<QByteArray> bodies;
    void* engine = kz_type_new(kz__protoiot, 0);
    auto* obj = static_cast<kz_object*>(engine);
    obj->user = &bodies;
    obj->handler = &collect;
    kz_protoiot_engine.input(engine, stream.constData(), stream.size());
    kz_type_delete(engine);
    return bodies;
}

QByteArray payloadOf(const QByteArray& stream, int index)
{
    const QList<QByteArray> bodies = bodiesOf(stream);
    if (index >= bodies.size() || bodies[index].size() < 5) return QByteArray("<no body>");
    return bodies[index].mid(4, bodies[index].size() - 5);
}

static DebugCapture* g_capture = nullptr;
static QtMessageHandler g_previous = nullptr;

static void handler(QtMsgType type, const QMessageLogContext& ctx, const QString& msg)
{
    if (type == QtDebugMsg && g_capture) {
        g_capture->lines.append(msg);
        g_capture->categories.append(QString::fromLatin1(ctx.category ? ctx.category : "<none>"));
        return;
    }
    if (g_previous) g_previous(type, ctx, msg);
}

DebugCapture::DebugCapture()
{
    QLoggingCategory::setFilterRules(QStringLiteral("default.debug=true"));
    g_capture = this;
    g_previous = qInstallMessageHandler(handler);
}

DebugCapture::~DebugCapture()
{
    qInstallMessageHandler(g_previous);
    g_capture = nullptr;
}

QString hex(const QByteArray& b) { return QString::fromLatin1(b.toHex(' ')); }

QByteArray unhex(const char* text)
{
    QByteArray clean;
    for (const char* p = text; *p; ++p)
        if (*p != ' ' && *p != ',') clean.append(*p);
    return QByteArray::fromHex(clean);
}

} // namespace kztest
