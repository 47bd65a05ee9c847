// Dispatch: a decoded body routed by its method code to the decoder of its
// message, through a table made from the protocol's method codes.
#include "kzprotocolresolver_p.h"

using namespace kz;

// ---------------------------------------------------------------------------
// Dispatch
// ---------------------------------------------------------------------------

namespace {

using Decoder = void (KZProtocolResolverPrivate::*)(uchar, Reader&);
using TracedDecoder = void (KZProtocolResolverPrivate::*)(uchar, TracingReader&);

// A message's decoder, and the same decoder recording what it reads.
struct Route
{
    quint16 code;
    const char* name;
    Decoder decode;
    TracedDecoder traced;
};

constexpr Route kRoutes[] = {
#define KZ_METHOD(name, code, family)                                                              \
    {code, #name, &KZProtocolResolverPrivate::decode##name<Reader>,                                \
     &KZProtocolResolverPrivate::decode##name<TracingReader>},
#include "methods.def"
#undef KZ_METHOD
};

constexpr bool routesAscending()
{
    for (size_t i = 1; i < sizeof(kRoutes) / sizeof(kRoutes[0]); ++i)
        if (kRoutes[i - 1].code >= kRoutes[i].code) return false;
    return true;
}
static_assert(routesAscending(), "methods.def must list the codes in ascending order");

constexpr size_t kRouteCount = sizeof(kRoutes) / sizeof(kRoutes[0]);
constexpr quint16 kHighestCode = kRoutes[kRouteCount - 1].code;

// Route of each code up to the highest, by index + 1 (0: no message): one
// load per body instead of a search.
struct RouteIndex
{
    quint8 at[kHighestCode + 1] = {};
};
constexpr RouteIndex makeRouteIndex()
{
    RouteIndex index;
    for (size_t i = 0; i < kRouteCount; ++i) index.at[kRoutes[i].code] = quint8(i + 1);
    return index;
}
static_assert(kRouteCount < 255, "a route index is one byte");
constexpr RouteIndex kRouteIndex = makeRouteIndex();

const Route* findRoute(quint16 code)
{
    if (code > kHighestCode || kRouteIndex.at[code] == 0) return nullptr;
    return &kRoutes[kRouteIndex.at[code] - 1];
}

} // namespace

const char* kz::methodName(quint16 code)
{
    const Route* r = findRoute(code);
    return r ? r->name : nullptr;
}

// In line in both callers: a message goes through one call to its decoder.
inline int KZProtocolResolverPrivate::dispatchWith(const uchar* body, int dataLength, Trace* trace,
                                                   uchar* coded, QByteArray* tail)
{
    if (dataLength < 0) return 1; // a body shorter than its header
    const quint16 code = quint16(body[2] | (body[3] << 8));
    if (const Route* route = findRoute(code)) {
        counters.add(counters.messagesDispatched, 1);
        Reader r(body + 4, dataLength);
        // Body byte 4 is keystream position 3: the coding starts at byte 1.
        if (coded) r.setCoded(coded, 3);
        r.setTail(tail);
        if (trace) {
            TracingReader traced(r, *trace);
            (this->*route->traced)(body[0], traced);
        } else {
            (this->*route->decode)(body[0], r);
        }
    } else {
        drop(KZProtocolResolver::DropUnknownMethod, dataLength + 4, code);
    }
    return 1;
}

int KZProtocolResolverPrivate::dispatch(const uchar* body, int dataLength, Trace* trace)
{
    return dispatchWith(body, dataLength, trace, nullptr);
}

void KZProtocolResolverPrivate::dispatchCoded(uchar* body, int dataLength)
{
    dispatchWith(body, dataLength, nullptr, body + 4);
}

void KZProtocolResolverPrivate::dispatchTaken(const uchar* head, int split, QByteArray* tail)
{
    dispatchWith(head, split - 4, nullptr, nullptr, tail);
}
