// Round-trip harness: catchers that record which callback fired with which
// arguments, and roundTrip(), which sends one message through two resolvers
// and checks what arrives, under the other flag too, and cut short.
#ifndef KZ_TESTS_CALLBACK_LOG_H
#define KZ_TESTS_CALLBACK_LOG_H

#include "kzprotocolresolver_p.h"
#include "support.h"

#include <gtest/gtest.h>

#include <any>
#include <cstddef>
#include <ostream>
#include <tuple>
#include <type_traits>
#include <typeindex>
#include <vector>

inline void PrintTo(const QString& s, std::ostream* os) { *os << '"' << s.toStdString() << '"'; }

namespace kztest {

/// Every callback call a receiver made: which catcher, and its arguments as a tuple.
struct CallLog
{
    struct Call
    {
        std::type_index who;
        std::any args;
    };
    std::vector<Call> calls;
};

template <class T>
struct SetterOf;
template <class CB>
struct SetterOf<void (KZProtocolResolver::*)(CB)>
{
    using Callback = CB;
};

/// The catcher of the callback that `Set` registers. The receiver's context
/// pointer must be a CallLog.
template <auto Set, class CB = typename SetterOf<decltype(Set)>::Callback>
struct On;
template <auto Set, class... A>
struct On<Set, void (*)(void*, A...)>
{
    using Args = std::tuple<std::decay_t<A>...>;
    static void fn(void* ctx, A... a)
    {
        static_cast<CallLog*>(ctx)->calls.push_back({typeid(On), Args(a...)});
    }
    static void attach(KZProtocolResolver& r) { (r.*Set)(&fn); }
};

/// A family's setters: attach() registers a catcher for each.
template <auto... Sets>
struct Catchers
{
    static void attach(KZProtocolResolver& r) { (On<Sets>::attach(r), ...); }
};

/// Checks that the log holds exactly one call, of `Set`'s callback, with `expected`.
template <auto Set, class... V>
void expectOnly(const CallLog& log, const V&... expected)
{
    using Args = typename On<Set>::Args;
    ASSERT_EQ(log.calls.size(), 1u);
    ASSERT_TRUE(log.calls[0].who == std::type_index(typeid(On<Set>))) << log.calls[0].who.name();
    const Args* got = std::any_cast<Args>(&log.calls[0].args);
    ASSERT_NE(got, nullptr);
    EXPECT_EQ(*got, Args(expected...));
}

/// Hands the first `n` bytes of `body` to the dispatcher with `flag` in
/// place of its own, from a buffer of exactly n bytes (so that AddressSanitizer
/// sees any read beyond them).
inline void dispatchCut(KZProtocolResolver& r, const QByteArray& body, int n, uchar flag)
{
    std::vector<uchar> b(body.constData(), body.constData() + n);
    b[0] = flag;
    KZProtocolResolverPrivate::get(&r)->dispatch(b.data(), n - 4);
}

/// Dispatches one hand-built body (flag, 17, code, payload; no terminator
/// unless given) to a receiver with every catcher of `Family` and returns its log.
template <class Family>
CallLog dispatchBytes(const QByteArray& body)
{
    CallLog log;
    KZProtocolResolver rx;
    rx.setReceiveData(&log);
    Family::attach(rx);
    dispatchCut(rx, body, body.size(), uchar(body.at(0)));
    return log;
}

/// Sends one message with `send` and checks that a receiver with every
/// catcher of `Family` calls only `Set`'s callback, once, with `expected`.
/// Then, from the same body: under the other flag only `Other`'s callback
/// fires (nothing for nullptr); under flag 2 nothing fires; every cut of the
/// body still fires `Set`'s callback once; a receiver without callbacks
/// takes it silently.
template <class Family, auto Set, auto Other, class Send, class... V>
void roundTrip(const char* label, Send send, const V&... expected)
{
    SCOPED_TRACE(label);
    CallLog log;
    Wire w(&log);
    Family::attach(w.receiver);
    send(w.sender);
    const QList<QByteArray> bodies = bodiesOf(w.sink.stream());
    ASSERT_EQ(bodies.size(), 1);
    const QByteArray body = bodies[0];
    KZProtocolResolver bare;
    bare.parseReceive(w.sink.stream());
    w.deliver();
    expectOnly<Set>(log, expected...);

    const uchar flag = uchar(body.at(0));
    log.calls.clear();
    dispatchCut(w.receiver, body, body.size(), flag ^ 1);
    if constexpr (std::is_same_v<decltype(Other), std::nullptr_t>) {
        EXPECT_TRUE(log.calls.empty()) << "fired under the other flag";
    } else {
        ASSERT_EQ(log.calls.size(), 1u);
        EXPECT_TRUE(log.calls[0].who == std::type_index(typeid(On<Other>)));
    }
    log.calls.clear();
    dispatchCut(w.receiver, body, body.size(), 2);
    EXPECT_TRUE(log.calls.empty()) << "fired under flag 2";

    for (int n = 4; n < body.size(); ++n) {
        log.calls.clear();
        dispatchCut(w.receiver, body, n, flag);
        ASSERT_EQ(log.calls.size(), 1u) << "cut at " << n;
        EXPECT_TRUE(log.calls[0].who == std::type_index(typeid(On<Set>))) << "cut at " << n;
    }
}

/// The body (flag, type, code, payload, zero) of the one message that `send` produces.
template <class Send>
QByteArray sentBody(Send send)
{
    FrameSink sink;
    KZProtocolResolver r;
    sink.attach(r);
    send(r);
    return bodiesOf(sink.stream()).value(0);
}

/// The payload of the one message that `send` produces, as hex text.
template <class Send>
QString payloadHex(Send send)
{
    const QByteArray b = sentBody(send);
    return hex(b.mid(4, b.size() - 5));
}

} // namespace kztest

#endif
