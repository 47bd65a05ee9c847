// Message layouts stated once. A layout lists the wire forms of a payload in
// wire order; from it come the encoder's payload, the decoder's values and
// the field names that a dump prints:
//
//     // DeleteUser reply: strlist names, flag8 ok (ok first in the API)
//     struct NamesOk : Layout<strlist, flag8>::Api<1, 0>
//     {
//         static constexpr const char* names[] = {"names", "ok"};
//     };
//
//     d->send<NamesOk>(Method::DeleteUser, Reply, ok, names);     // encoder
//     route<Names, NamesOk>(flag, r, cb.onXCB, cb.onXResultCB);   // decoder
//
// `Api<...>` gives, for each argument of the C++ call (and of the callback),
// the position of its field on the wire; without it the two orders agree.
// A read builds the values with brace-initialisation, which C++ evaluates
// left to right, so the fields are read in wire order whatever the API order.
//
// Field<Form> gives the value type, writer and reader of one wire form. The
// primitives are declared here; `listof<F>` and `mapof<K, V>` compose them;
// a record that travels in several messages adds a Field of its own.
#ifndef KZRESOLVER_LAYOUT_H
#define KZRESOLVER_LAYOUT_H

#include "payload.h"

#include <QVariant>

#include <array>
#include <cstddef>
#include <iterator>
#include <tuple>
#include <utility>

namespace kz {

template <class Form>
struct Field;

using GroupMap = QMap<QString, QStringList>;
using StrIntMap = QMap<QString, int>;

// clang-format off
#define KZ_PRIMITIVE(Form, ValueType)                                                              \
    template <>                                                                                    \
    struct Field<Form>                                                                             \
    {                                                                                              \
        using Value = ValueType;                                                                   \
        static void write(Payload& p, const Value& v) { p << Form{v}; }                            \
        static Value read(Reader& r) { return r.Form(); }                                          \
    };
KZ_PRIMITIVE(u8, quint8)
KZ_PRIMITIVE(u16, quint16)
KZ_PRIMITIVE(u32, quint32)
KZ_PRIMITIVE(i32, qint32)
KZ_PRIMITIVE(flag8, bool)
KZ_PRIMITIVE(str16, QString)
KZ_PRIMITIVE(strz, QString)
KZ_PRIMITIVE(strlist, QStringList)
KZ_PRIMITIVE(dtext, double)
KZ_PRIMITIVE(itext, int)
KZ_PRIMITIVE(groupmap, GroupMap)
KZ_PRIMITIVE(strintmap, StrIntMap)
KZ_PRIMITIVE(blob32, QByteArray)
#undef KZ_PRIMITIVE
// clang-format on

/// A boolean written as flag8 and read back by flipping the low bit.
struct flag8x
{
};
template <>
struct Field<flag8x>
{
    using Value = bool;
    static void write(Payload& p, bool v) { p << flag8{v}; }
    static bool read(Reader& r) { return r.flag8x(); }
};

/// A record form given by its writer and reader, for records that travel in
/// several messages: `using userForm = record<user_info, writeUser, readUser>;`
template <class T, void (*W)(Payload&, const T&), T (*R)(Reader&)>
struct record
{
};
template <class T, void (*W)(Payload&, const T&), T (*R)(Reader&)>
struct Field<record<T, W, R>>
{
    using Value = T;
    static void write(Payload& p, const T& v) { W(p, v); }
    static T read(Reader& r)
    {
        r.label(nullptr); // a trace shows the record's own fields
        return R(r);
    }
};

/// A list: u16 count, then each entry as F (the reader stops at the end of
/// the data).
template <class F>
struct listof
{
};
template <class F>
struct Field<listof<F>>
{
    using Value = QList<typename Field<F>::Value>;
    static void write(Payload& p, const Value& v)
    {
        p << count16(v.size());
        for (const auto& x : v) Field<F>::write(p, x);
    }
    static Value read(Reader& r)
    {
        return r.list<typename Field<F>::Value>([&] { return Field<F>::read(r); });
    }
};

/// A map: u16 count, then per entry in ascending key order the key as K and
/// the value as V.
template <class K, class V>
struct mapof
{
};
template <class K, class V>
struct Field<mapof<K, V>>
{
    using Value = QMap<typename Field<K>::Value, typename Field<V>::Value>;
    static void write(Payload& p, const Value& v)
    {
        p << count16(v.size());
        for (auto it = v.cbegin(); it != v.cend(); ++it) {
            Field<K>::write(p, it.key());
            Field<V>::write(p, it.value());
        }
    }
    static Value read(Reader& r)
    {
        Value out;
        const Reader::Quiet q(&r, "map");
        r.forEach(r.count16(), [&] {
            auto key = Field<K>::read(r);
            out.insert(key, Field<V>::read(r));
        });
        q.done([&] { return QString(QStringLiteral("[%1]").arg(out.size())); });
        return out;
    }
};

namespace layout_detail {

template <std::size_t... I>
struct Order
{
};

/// The API position of wire field `wire`: the k with order[k] == wire.
template <std::size_t N>
constexpr std::size_t apiIndexOf(const std::array<std::size_t, N>& order, std::size_t wire)
{
    for (std::size_t k = 0; k < N; ++k)
        if (order[k] == wire) return k;
    return N;
}

template <std::size_t N>
constexpr bool isPermutation(const std::array<std::size_t, N>& order)
{
    for (std::size_t w = 0; w < N; ++w)
        if (apiIndexOf(order, w) == N) return false;
    return true;
}

template <class Seq>
struct OrderOf;
template <std::size_t... I>
struct OrderOf<std::index_sequence<I...>>
{
    using type = Order<I...>;
};

template <class O, class... F>
struct Impl;

template <std::size_t... A, class... F>
struct Impl<Order<A...>, F...>
{
    static_assert(sizeof...(A) == sizeof...(F), "one API position per field");
    static constexpr std::size_t size = sizeof...(F);
    static constexpr std::array<std::size_t, size> order{{A...}};
    static_assert(isPermutation(order), "API positions must name every field once");

    using Forms = std::tuple<F...>;
    using Values = std::tuple<typename Field<F>::Value...>;
    template <std::size_t W>
    using FormAt = std::tuple_element_t<W, std::tuple<F...>>;

    /// The payload of API arguments `api`, written in wire order.
    template <class... T>
    static Payload encode(const T&... api)
    {
        static_assert(sizeof...(T) == size, "one argument per field");
        Payload p;
        writeAll(p, std::forward_as_tuple(api...), std::make_index_sequence<size>{});
        return p;
    }

    /// Reads the fields in wire order (labelling each with its name for a
    /// trace) and calls fn with the values in API order.
    template <class Fn>
    static void decode(Reader& r, const char* const* names, Fn&& fn)
    {
        readAll(r, names, fn, std::make_index_sequence<size>{});
    }

private:
    template <class Args, std::size_t... W>
    static void writeAll(Payload& p, const Args& api, std::index_sequence<W...>)
    {
        (Field<FormAt<W>>::write(p, std::get<apiIndexOf(order, W)>(api)), ...);
    }

    template <class Fn, std::size_t... W>
    static void readAll(Reader& r, const char* const* names, Fn& fn, std::index_sequence<W...>)
    {
        Values v{(r.label(names[W]), Field<FormAt<W>>::read(r))...};
        fn(std::get<A>(v)...);
    }
};

} // namespace layout_detail

/// The layout of one payload: its wire forms in wire order. Derive from it
/// and give the field names, in wire order, as `names`.
template <class... F>
struct Layout
    : layout_detail::Impl<typename layout_detail::OrderOf<std::index_sequence_for<F...>>::type,
                          F...>
{
    /// The same fields with the API order given: position I_k on the wire
    /// holds argument k.
    template <std::size_t... I>
    using Api = layout_detail::Impl<layout_detail::Order<I...>, F...>;
};

/// The empty payload.
struct Empty : Layout<>
{
};

/// The reply that echoes request layout Req and adds a success flag: Req's
/// fields, then flag8 ok on the wire; ok comes first in the API.
template <class Req, class = typename Req::Forms, class = std::make_index_sequence<Req::size>>
struct WithOk;
template <class Req, class... F, std::size_t... I>
struct WithOk<Req, std::tuple<F...>, std::index_sequence<I...>>
    : layout_detail::Impl<layout_detail::Order<sizeof...(F), I...>, F..., flag8>
{
    static constexpr std::array<const char*, sizeof...(F) + 1> names{{Req::names[I]..., "ok"}};
};

/// The field names of layout L, checked against its field count.
template <class L>
const char* const* namesOf()
{
    if constexpr (L::size == 0) {
        return nullptr;
    } else {
        static_assert(std::size(L::names) == L::size, "one name per field");
        return std::data(L::names);
    }
}

// ---------------------------------------------------------------------------
// Layouts that messages of several families share
// ---------------------------------------------------------------------------

/// strlist names: the Delete... requests of users, operators and machines.
struct Names : Layout<strlist>
{
    static constexpr const char* names[] = {"names"};
};

/// strz a
struct Text : Layout<strz>
{
    static constexpr const char* names[] = {"a"};
};

/// strz a, strz b
struct Texts2 : Layout<strz, strz>
{
    static constexpr const char* names[] = {"a", "b"};
};

/// strz a, strz b, strz c
struct Texts3 : Layout<strz, strz, strz>
{
    static constexpr const char* names[] = {"a", "b", "c"};
};

/// strz a, strz b, i32 n
struct Texts2Int : Layout<strz, strz, i32>
{
    static constexpr const char* names[] = {"a", "b", "n"};
};

/// strz a, strz b, strintmap map
struct Texts2Map : Layout<strz, strz, strintmap>
{
    static constexpr const char* names[] = {"a", "b", "map"};
};

// ---------------------------------------------------------------------------
// Machine files and shared files
// ---------------------------------------------------------------------------

/// An int sent as its low byte and read back as a signed 8-bit value (200
/// arrives as -56). A value outside -128..127 is noted as lost.
struct sbyte
{
};
template <>
struct Field<sbyte>
{
    using Value = int;
    static void write(Payload& p, int v)
    {
        if (v != qint8(v)) p.noteLoss("integer sent as one byte", v);
        p << u8{quint8(v)};
    }
    static int read(Reader& r) { return qint8(r.u8()); }
};

} // namespace kz

// ---------------------------------------------------------------------------
// Log queries and file prices
// ---------------------------------------------------------------------------

namespace kz {

/// strz a, strz b, strz c, strlist list: the QueryLog2 and QueryFilePrice requests.
struct Texts3List : Layout<strz, strz, strz, strlist>
{
    static constexpr const char* names[] = {"a", "b", "c", "list"};
};

// ---------------------------------------------------------------------------
// Rows of QVariant values, and lists sent under a signed 16-bit count
// ---------------------------------------------------------------------------

/// A row cell as the value type of its wire form: text by toString(),
/// integers by toInt(), numbers by toDouble(), a row by toList().
template <class T>
T fromVariant(const QVariant& v)
{
    return qvariant_cast<T>(v);
}

/// A map cell: the map itself, or a QVariantMap whose values convert (a
/// cell of any other type is an empty map).
template <class V>
QMap<QString, V> mapFromVariant(const QVariant& v)
{
    if (v.userType() == qMetaTypeId<QMap<QString, V>>()) return v.value<QMap<QString, V>>();
    QMap<QString, V> out;
    if (v.userType() != QMetaType::QVariantMap) return out;
    const QVariantMap m = v.toMap();
    for (auto it = m.cbegin(); it != m.cend(); ++it) out.insert(it.key(), qvariant_cast<V>(*it));
    return out;
}
template <>
inline QMap<QString, int> fromVariant(const QVariant& v)
{
    return mapFromVariant<int>(v);
}
template <>
inline QMap<QString, double> fromVariant(const QVariant& v)
{
    return mapFromVariant<double>(v);
}
/// A QVariantMap cell may also be given as a QMap<QString, double> or
/// QMap<QString, int>.
template <>
inline QVariantMap fromVariant(const QVariant& v)
{
    QVariantMap out;
    if (v.userType() == qMetaTypeId<QMap<QString, double>>()) {
        const auto m = v.value<QMap<QString, double>>();
        for (auto it = m.cbegin(); it != m.cend(); ++it) out.insert(it.key(), *it);
    } else if (v.userType() == qMetaTypeId<QMap<QString, int>>()) {
        const auto m = v.value<QMap<QString, int>>();
        for (auto it = m.cbegin(); it != m.cend(); ++it) out.insert(it.key(), *it);
    } else {
        out = v.toMap();
    }
    return out;
}

/// A row given as a QVariantList: cell k travels in form F_k, converted as
/// fromVariant says (a missing cell as empty text or 0; cells past the last
/// form are not sent). It comes back as a QVariantList of the forms' value
/// types.
template <class... F>
struct vrow
{
};
template <class... F>
struct Field<vrow<F...>>
{
    using Value = QVariantList;
    static void write(Payload& p, const QVariantList& row)
    {
        writeCells(p, row, std::index_sequence_for<F...>{});
    }
    static QVariantList read(Reader& r)
    {
        return QVariantList{QVariant::fromValue(Field<F>::read(r))...}; // left to right
    }

private:
    template <std::size_t... K>
    static void writeCells(Payload& p, const QVariantList& row, std::index_sequence<K...>)
    {
        (Field<F>::write(p, fromVariant<typename Field<F>::Value>(row.value(int(K)))), ...);
    }
};

/// A value of form F carried in a QVariant (a row inside a QList<QVariant>).
template <class F>
struct boxed
{
};
template <class F>
struct Field<boxed<F>>
{
    using Value = QVariant;
    static void write(Payload& p, const QVariant& v)
    {
        Field<F>::write(p, fromVariant<typename Field<F>::Value>(v));
    }
    static QVariant read(Reader& r) { return QVariant::fromValue(Field<F>::read(r)); }
};

/// An element of a QList<QVariant> that holds a row of the forms F.
template <class... F>
using rowof = boxed<vrow<F...>>;

/// A list whose sender stops at its count read as signed 16 bits: the
/// count is the size truncated to 16 bits and only that many entries
/// follow, none when the count is 32768 or more. Kept as peers send it;
/// the entries left out are noted on the payload. Read like listof<F>.
template <class F>
struct signedlistof
{
};
template <class F>
struct Field<signedlistof<F>>
{
    using Value = QList<typename Field<F>::Value>;
    static void write(Payload& p, const Value& v)
    {
        const c16 count = count16(v.size());
        const int sent = qMax(0, int(qint16(count.v)));
        p << count;
        if (sent != v.size()) p.noteLoss("list entries not sent (signed 16-bit count)", v.size());
        for (int i = 0; i < sent; ++i) Field<F>::write(p, v.at(i));
    }
    static Value read(Reader& r) { return Field<listof<F>>::read(r); }
};

/// An int of which only the low 16 bits travel (u16); read back as 0..65535.
struct low16
{
};
template <>
struct Field<low16>
{
    using Value = int;
    static void write(Payload& p, int v)
    {
        if (v != int(quint16(v))) p.noteLoss("integer cut to 16 bits", v);
        p << u16{quint16(v)};
    }
    static int read(Reader& r) { return r.u16(); }
};

} // namespace kz

#endif // KZRESOLVER_LAYOUT_H
