// Message tests as table rows. A row names one message direction: the call
// that sends it, the payload it must produce (hex derived by hand from the
// layout), and the callback that fires on the peer with its values:
//
//     checkRows({
//         KZ_ROW(lanDeleteUserResponse(true, names), "01 00 61 00 00",
//                LanDeleteUserResultCB, true, names),
//     });
//
// checkRows() checks, per row: the payload bytes; that a peer with every
// callback attached calls that callback once with those values; that under
// the other flag only the counterpart callback of the message fires (LanXCB
// <-> LanXResultCB, nothing when there is none); that flag 2 fires nothing;
// that every cut of the body still fires the callback once (bounds: run
// under AddressSanitizer); and that a peer without callbacks takes it.
#ifndef KZ_TESTS_ROWS_H
#define KZ_TESTS_ROWS_H

#include "kzprotocolresolver_p.h"
#include "sinks.h"
#include "support.h"

#include <gtest/gtest.h>

#include <functional>
#include <ostream>
#include <vector>

namespace kzfuzz {

/// The callback type of each callback id.
template <Cb id>
struct CbType;
#define KZ_CALLBACK(Type)                                                                          \
    template <>                                                                                    \
    struct CbType<Cb::Type>                                                                        \
    {                                                                                              \
        using type = KZProtocolResolver::Type;                                                     \
    };
#include "callbacks.def"
#undef KZ_CALLBACK

void PrintTo(const Call& c, std::ostream* os);

} // namespace kzfuzz

namespace kztest {

using kzfuzz::Call;
using kzfuzz::Cb;

template <Cb id, class F = typename kzfuzz::CbType<id>::type>
struct Arrival;
template <Cb id, class... A>
struct Arrival<id, void (*)(void*, A...)>
{
    template <class... V>
    static Call make(const V&... v)
    {
        static_assert(sizeof...(V) == sizeof...(A), "one value per callback argument");
        using Tuple = kzfuzz::ValueTuple<std::decay_t<A>...>;
        return {id, std::make_shared<const Tuple>(std::decay_t<A>(v)...)};
    }
};

/// The call of callback `id` with `values` (converted to its argument types).
template <Cb id, class... V>
Call arrives(const V&... values)
{
    return Arrival<id>::make(values...);
}

inline QVector<Call> calls(std::initializer_list<Call> c) { return QVector<Call>(c); }

/// One message direction; see the file comment.
struct Row
{
    const char* label;
    std::function<void(KZProtocolResolver&)> send;
    const char* payload; ///< hex; nullptr when checked elsewhere
    Call arrival;
    int other = -1; ///< callback expected under the other flag: -1 derived, -2 unchecked
    bool noneUnderOther = false;

    /// The callback expected under the other flag, where the name rule does not tell it.
    Row otherFlag(Cb id) const
    {
        Row r = *this;
        r.other = int(id);
        return r;
    }
    Row nothingUnderOtherFlag() const
    {
        Row r = *this;
        r.noneUnderOther = true;
        return r;
    }
    Row noOtherFlagCheck() const
    {
        Row r = *this;
        r.other = -2;
        return r;
    }
    Row payloadUnchecked() const
    {
        Row r = *this;
        r.payload = nullptr;
        return r;
    }
};

#define KZ_ROW(call, hex, cb, ...)                                                                 \
    ::kztest::Row                                                                                  \
    {                                                                                              \
#call, [=](KZProtocolResolver &                                                            \
                   r) { r.call; }, hex, ::kztest::arrives < ::kzfuzz::Cb::cb>(__VA_ARGS__)         \
    }

void checkRows(const std::vector<Row>& rows);

/// Dispatches one hand-built body (flag, 17, code, payload) from a buffer of
/// exactly its size to a receiver with every callback attached; the calls seen.
QVector<Call> dispatchBody(const QByteArray& body);

/// The body (flag, type, code, payload, zero) of the one message `send` produces.
QByteArray sentBody(const std::function<void(KZProtocolResolver&)>& send);

} // namespace kztest

#endif
