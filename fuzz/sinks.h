// Callback sinks for every message callback of the resolver, for the fuzz
// targets and the hostile-input tests.
//
// attachAll(resolver, observer) registers one sink per callback slot
// (callbacks.def, generated from the protocol table), so a message added to
// the table is covered here without any edit. Each sink reads every value it
// is handed (every character of every text, every entry of every list and
// map, every field of every record, by the generated kz::forEachField), so
// that AddressSanitizer checks the decoder's results, and reports the call to
// the observer passed as context.
#ifndef KZ_FUZZ_SINKS_H
#define KZ_FUZZ_SINKS_H

#include "kzprotocolresolver.h"
#include "recordfields.h"

#include <QByteArray>
#include <QDate>
#include <QHash>
#include <QList>
#include <QMap>
#include <QString>
#include <QVariant>
#include <QVector>

#include <cstddef>
#include <cstring>
#include <memory>
#include <tuple>
#include <type_traits>
#include <utility>

namespace kzfuzz {

/// One id per callback slot, in callbacks.def order.
enum class Cb {
#define KZ_CALLBACK(Type) Type,
#include "callbacks.def"
#undef KZ_CALLBACK
};

inline const char* callbackName(Cb id)
{
    static const char* const names[] = {
#define KZ_CALLBACK(Type) #Type,
#include "callbacks.def"
#undef KZ_CALLBACK
    };
    return names[int(id)];
}

// ---------------------------------------------------------------------------
// Reading every value
// ---------------------------------------------------------------------------

/// Folds every byte of `v` that a host could look at into a number. All
/// overloads are declared first so that nested containers find each other.
template <class T>
quint64 touch(const T& v);
inline quint64 touch(const QString& s);
inline quint64 touch(const QByteArray& b);
inline quint64 touch(const QDate& d);
inline quint64 touch(const QVariant& v);
#if QT_VERSION < QT_VERSION_CHECK(6, 0, 0)
inline quint64 touch(const QStringList& list);
#endif
template <class T>
quint64 touch(const QList<T>& list);
template <class T>
quint64 touch(const QVector<T>& list);
template <class K, class V>
quint64 touch(const QMap<K, V>& map);
template <class K, class V>
quint64 touch(const QHash<K, V>& map);
template <class A, class B>
quint64 touch(const QPair<A, B>& p);

inline quint64 touch(const QString& s) { return quint64(s.size()) * 31u + qHash(s); }
inline quint64 touch(const QByteArray& b) { return quint64(b.size()) * 31u + qHash(b); }
inline quint64 touch(const QDate& d) { return quint64(d.toJulianDay()); }
inline quint64 touch(const QVariant& v) { return quint64(v.userType()) + touch(v.toString()); }
#if QT_VERSION < QT_VERSION_CHECK(6, 0, 0)
// In Qt 6 QStringList is QList<QString>: this overload would call itself.
inline quint64 touch(const QStringList& list)
{
    return touch(static_cast<const QList<QString>&>(list));
}
#endif

template <class T>
quint64 touch(const QList<T>& list)
{
    quint64 h = quint64(list.size());
    for (const T& x : list) h = h * 31u + touch(x);
    return h;
}

#if QT_VERSION < QT_VERSION_CHECK(6, 0, 0)
// In Qt 6 QVector is QList, covered above.
template <class T>
quint64 touch(const QVector<T>& list)
{
    quint64 h = quint64(list.size());
    for (const T& x : list) h = h * 31u + touch(x);
    return h;
}
#endif

template <class K, class V>
quint64 touch(const QMap<K, V>& map)
{
    quint64 h = quint64(map.size());
    for (auto it = map.cbegin(); it != map.cend(); ++it) h = h * 31u + touch(it.key()) + touch(*it);
    return h;
}

template <class K, class V>
quint64 touch(const QHash<K, V>& map)
{
    quint64 h = quint64(map.size());
    for (auto it = map.cbegin(); it != map.cend(); ++it) h += touch(it.key()) * 7u + touch(*it);
    return h;
}

template <class A, class B>
quint64 touch(const QPair<A, B>& p)
{
    return touch(p.first) * 31u + touch(p.second);
}

template <class T>
quint64 touch(const T& v)
{
    if constexpr (std::is_floating_point_v<T>) {
        quint64 bits = 0;
        std::memcpy(&bits, &v, sizeof(T) < sizeof(bits) ? sizeof(T) : sizeof(bits));
        return bits;
    } else if constexpr (std::is_integral_v<T> || std::is_enum_v<T>) {
        return quint64(v);
    } else {
        static_assert(kz::isRecord<T>, "a value of a type the sinks do not know");
        quint64 h = 0;
        kz::forEachField(v, [&h](const auto& field) { h = h * 31u + touch(field); });
        return h;
    }
}

/// Readable text of a decoded value, for test failure messages.
template <class T>
QString show(const T& v);
template <class T>
QString show(const QList<T>& list);
template <class K, class V>
QString show(const QMap<K, V>& map);

inline QString show(const QString& s) { return QLatin1Char('"') + s + QLatin1Char('"'); }
#if QT_VERSION < QT_VERSION_CHECK(6, 0, 0)
inline QString show(const QStringList& l) { return show(static_cast<const QList<QString>&>(l)); }
#endif
inline QString show(const QByteArray& b) { return QString::fromLatin1(b.toHex(' ')); }
inline QString show(const QDate& d) { return d.toString(Qt::ISODate); }
inline QString show(const QVariant& v)
{
    if (v.userType() == QMetaType::QVariantList) return show(v.toList());
    return QStringLiteral("%1(%2)").arg(QLatin1String(v.typeName()), v.toString());
}

template <class T>
QString show(const QList<T>& list)
{
    QStringList parts;
    for (const T& x : list) parts << show(x);
    return QLatin1Char('[') + parts.join(QStringLiteral(", ")) + QLatin1Char(']');
}

template <class K, class V>
QString show(const QMap<K, V>& map)
{
    QStringList parts;
    for (auto it = map.cbegin(); it != map.cend(); ++it)
        parts << show(it.key()) + QStringLiteral(": ") + show(it.value());
    return QLatin1Char('{') + parts.join(QStringLiteral(", ")) + QLatin1Char('}');
}

template <class T>
QString show(const T& v)
{
    if constexpr (std::is_floating_point_v<T>) {
        return QString::number(v, 'g', 17);
    } else if constexpr (std::is_integral_v<T> || std::is_enum_v<T>) {
        return QString::number(qint64(v));
    } else {
        static_assert(kz::isRecord<T>, "a value of a type the sinks do not know");
        QStringList parts;
        kz::forEachField(v, [&parts](const auto& field) { parts << show(field); });
        return QLatin1Char('{') + parts.join(QStringLiteral(", ")) + QLatin1Char('}');
    }
}

// ---------------------------------------------------------------------------
// Observing calls
// ---------------------------------------------------------------------------

/// The values of one callback call, comparable with those of another.
struct Values
{
    virtual ~Values() = default;
    virtual bool equals(const Values& other) const = 0;
    virtual QString describe() const = 0;
};

template <class... A>
struct ValueTuple : Values
{
    explicit ValueTuple(const A&... a) : values(a...) {}
    bool equals(const Values& other) const override
    {
        const auto* o = dynamic_cast<const ValueTuple*>(&other);
        return o && o->values == values;
    }
    QString describe() const override
    {
        QStringList parts;
        std::apply([&parts](const A&... a) { ((parts << show(a)), ...); }, values);
        return parts.join(QStringLiteral(", "));
    }
    std::tuple<A...> values;
};

/// One callback call as recorded by an Observer.
struct Call
{
    Cb id;
    std::shared_ptr<const Values> values;

    bool operator==(const Call& o) const { return id == o.id && values->equals(*o.values); }
    bool operator!=(const Call& o) const { return !(*this == o); }
};

/// The context of every sink. Counts the calls; with `record` set it also
/// keeps each call with a copy of its values.
struct Observer
{
    bool record = false;
    int calls = 0;
    quint64 touched = 0; // folded values, so that no read is optimised away
    QVector<Call> log;
};

template <Cb id, class F>
struct Sink;

template <Cb id, class... A>
struct Sink<id, void (*)(void*, A...)>
{
    static void call(void* ctx, A... a)
    {
        auto* o = static_cast<Observer*>(ctx);
        quint64 h = 0;
        ((h = h * 31u + touch(a)), ...);
        if (!o) return;
        o->calls++;
        o->touched += h;
        if (o->record)
            o->log.append({id, std::make_shared<const ValueTuple<std::decay_t<A>...>>(a...)});
    }
};

/// Registers a sink for every callback slot of `r` and makes `observer` the
/// context of every callback.
inline void attachAll(KZProtocolResolver& r, Observer* observer)
{
    r.setReceiveData(observer);
#define KZ_CALLBACK(Type) r.set##Type(&Sink<Cb::Type, KZProtocolResolver::Type>::call);
#include "callbacks.def"
#undef KZ_CALLBACK
}

/// The number of callback slots.
constexpr int callbackCount()
{
    int n = 0;
#define KZ_CALLBACK(Type) ++n;
#include "callbacks.def"
#undef KZ_CALLBACK
    return n;
}

} // namespace kzfuzz

#endif // KZ_FUZZ_SINKS_H
