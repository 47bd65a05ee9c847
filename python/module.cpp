// The Python module kzresolver._native: a Resolver that encodes messages
// given as keyword arguments into frames and decodes received bytes into
// messages, both with the C++ library's own codecs.
#include "encode.h"
#include "kzprotocolresolver_p.h"
#include "trace.h"

#include <kzapin/kzapin.h>

#include <pybind11/stl.h>

#include <map>
#include <string>
#include <vector>

namespace pyb = pybind11;
using namespace kz::py;

namespace {

using Encode = void (*)(KZProtocolResolver&, const pyb::dict&);

// Every direction's encoder by "Message request" / "Message reply".
const std::map<std::string, Encode>& encoders()
{
    static const std::map<std::string, Encode> table = {
#define KZ_PY_ENCODER(msg, kind, enc, ...)                                                         \
    {#msg " " kind, [](KZProtocolResolver& r, const pyb::dict& kw) {                               \
         call(r, &KZProtocolResolver::enc, {__VA_ARGS__}, kw, #msg " " kind);                      \
     }},
#define KZ_PY_ENCODER0(msg, kind, enc)                                                             \
    {#msg " " kind, [](KZProtocolResolver& r, const pyb::dict& kw) {                               \
         call(r, &KZProtocolResolver::enc, {}, kw, #msg " " kind);                                 \
     }},
#include "python_encoders.inc"
#undef KZ_PY_ENCODER
#undef KZ_PY_ENCODER0
    };
    return table;
}

bool isKind(const kz::TraceItem& t, const char* kind) { return !qstrcmp(t.kind, kind); }

pyb::object value(const kz::TraceItem& t, const pyb::object& record);
pyb::dict named(const QVector<kz::TraceItem>& items, const pyb::object& record);

pyb::object scalar(const QVariant& v)
{
    switch (v.userType()) {
    case QMetaType::Bool:
        return pyb::bool_(v.toBool());
    case QMetaType::QString: {
        const QByteArray u = v.toString().toUtf8();
        return pyb::str(u.constData(), size_t(u.size()));
    }
    case QMetaType::QByteArray: {
        const QByteArray b = v.toByteArray();
        return pyb::bytes(b.constData(), size_t(b.size()));
    }
    case QMetaType::Double:
    case QMetaType::Float:
        return pyb::float_(v.toDouble());
    default:
        break;
    }
    bool isNumber = false;
    const qlonglong n = v.toLongLong(&isNumber);
    if (isNumber) return pyb::int_(n);
    return pyb::none();
}

// Named fields as a dict; a name read more than once (the nodes of a tree
// a hand-laid message walks) gives the list of its values in wire order.
pyb::dict named(const QVector<kz::TraceItem>& items, const pyb::object& record)
{
    pyb::dict out;
    std::map<std::string, int> seen;
    for (int i = 0; i < items.size(); ++i) {
        const kz::TraceItem& c = items[i];
        const std::string key = c.name ? c.name : std::string(c.kind) + "#" + std::to_string(i);
        ++seen[key];
    }
    for (int i = 0; i < items.size(); ++i) {
        const kz::TraceItem& c = items[i];
        const std::string key = c.name ? c.name : std::string(c.kind) + "#" + std::to_string(i);
        pyb::object v = value(c, record);
        if (seen[key] == 1) {
            out[key.c_str()] = v;
        } else {
            if (!out.contains(key.c_str())) out[key.c_str()] = pyb::list();
            pyb::list(out[key.c_str()]).append(v);
        }
    }
    return out;
}

// The fields of a record or an entry: a record object when they are named,
// a lone unnamed field stands for itself, unnamed fields make a list.
pyb::object fieldsOf(const QVector<kz::TraceItem>& children, const pyb::object& record)
{
    if (children.size() == 1 && !children[0].name) return value(children[0], record);
    for (const kz::TraceItem& c : children)
        if (c.name) return record(**named(children, record));
    pyb::list row;
    for (const kz::TraceItem& c : children) row.append(value(c, record));
    return std::move(row);
}

pyb::object value(const kz::TraceItem& t, const pyb::object& record)
{
    if (isKind(t, "list") || isKind(t, "strlist")) {
        pyb::list out;
        for (const kz::TraceItem& c : t.children)
            out.append(isKind(c, "entry") ? fieldsOf(c.children, record) : value(c, record));
        return std::move(out);
    }
    if (isKind(t, "map") || isKind(t, "groupmap") || isKind(t, "strintmap")) {
        pyb::dict out;
        for (const kz::TraceItem& e : t.children) {
            if (e.children.isEmpty()) continue;
            out[scalar(e.children[0].value)] = fieldsOf(e.children.mid(1), record);
        }
        return std::move(out);
    }
    if (isKind(t, "record") || isKind(t, "entry")) return fieldsOf(t.children, record);
    return scalar(t.value);
}

class Resolver
{
public:
    Resolver()
    {
        resolver_.setReceiveData(this);
        resolver_.setParsePackResult([](void* ctx, char* bytes, int length) {
            static_cast<Resolver*>(ctx)->frames_.emplace_back(bytes, size_t(length));
        });
        engine_ = kz_type_new(kz__protoiot, 0);
        auto* obj = static_cast<kz_object*>(engine_);
        obj->user = this;
        obj->handler = &Resolver::onEvent;
        record_ = pyb::module_::import("types").attr("SimpleNamespace");
    }
    ~Resolver() { kz_type_delete(engine_); }
    Resolver(const Resolver&) = delete;
    Resolver& operator=(const Resolver&) = delete;

    pyb::list encode(const std::string& message, const pyb::kwargs& fields)
    {
        const std::string name =
            message.find('.') == std::string::npos ? message : message.substr(0, message.find('.'));
        std::string kind = message.size() > name.size() ? message.substr(name.size() + 1) : "";
        const auto& table = encoders();
        if (kind.empty())
            kind = table.count(name + " request") || !table.count(name + " reply") ? "request"
                                                                                   : "reply";
        const auto it = table.find(name + " " + kind);
        if (it == table.end())
            throw pyb::value_error("no message '" + message +
                                   "' (a message's name, optionally followed by .request or "
                                   ".reply)");
        frames_.clear();
        it->second(resolver_, fields);
        pyb::list out;
        for (const std::string& f : frames_) out.append(pyb::bytes(f));
        frames_.clear();
        return out;
    }

    pyb::list feed(const pyb::bytes& data)
    {
        const std::string_view in(data);
        received_ = pyb::list();
        kz_protoiot_engine.input(engine_, in.data(), int(in.size()));
        pyb::list out = std::move(received_);
        received_ = pyb::list();
        return out;
    }

    void setMaxBody(int bytes)
    {
        if (bytes <= 0) throw pyb::value_error("the largest body is a positive size");
        kz_protocol_set_max_body(engine_, bytes);
    }

    void setMaxEntries(int entries)
    {
        if (entries < 0) throw pyb::value_error("the most entries kept is a size, 0 or more");
        maxEntries_ = entries;
    }

private:
    static int onEvent(kz_event* e)
    {
        auto* self = static_cast<Resolver*>(static_cast<kz_object*>(e->object)->user);
        if (e->type == KZ_EVENT_DATA)
            self->body(QByteArray(static_cast<const char*>(e->data), e->length));
        return 0;
    }

    void body(QByteArray body)
    {
        if (body.size() < 4) return;
        kz_coding_decrypt_fast(body.data() + 1, body.constData() + 1, body.size() - 1);
        const auto* b = reinterpret_cast<const uchar*>(body.constData());
        const quint16 code = quint16(b[2] | (b[3] << 8));
        const char* name = kz::methodName(code);
        if (!name || b[1] != kz::kMessageType || (b[0] != kz::Request && b[0] != kz::Reply))
            return; // not a message this library knows
        kz::Trace trace;
        trace.keptPerList = maxEntries_;
        trace.entryBudget = maxEntries_;
        KZProtocolResolverPrivate::get(&resolver_)->dispatch(b, body.size() - 4, &trace);
        const pyb::dict fields = named(trace.items, record_);
        pyb::dict m;
        m["name"] = name;
        m["flag"] = int(b[0]);
        m["code"] = int(code);
        m["fields"] = fields;
        m["cut"] = trace.cutAt >= 0;
        m["dropped"] = trace.dropped;
        received_.append(m);
    }

    KZProtocolResolver resolver_; // its callbacks stay unset: decoders run for their trace
    void* engine_ = nullptr;
    std::vector<std::string> frames_;
    pyb::list received_;
    pyb::object record_;
    // Entries of lists and maps kept per message, all lists together: every
    // entry costs memory in the trace and as a Python object, whatever the
    // (bounded) body size; the rest are read, not kept, and counted.
    int maxEntries_ = 65536;
};

} // namespace

PYBIND11_MODULE(_native, m)
{
    m.doc() = "The kzresolver codec: messages to frames and received bytes to messages.";
    pyb::class_<Resolver>(m, "Resolver")
        .def(pyb::init<>())
        .def("encode", &Resolver::encode, pyb::arg("message"),
             "Encodes one message and returns its frames as bytes objects.")
        .def("feed", &Resolver::feed, pyb::arg("data"),
             "Feeds received bytes; returns the messages completed by them.")
        .def("set_max_body", &Resolver::setMaxBody, pyb::arg("bytes"),
             "Sets the largest message body accepted (16 MiB by default).")
        .def("set_max_entries", &Resolver::setMaxEntries, pyb::arg("entries"),
             "Sets the most list and map entries kept of one message (65536 by default).");
}
