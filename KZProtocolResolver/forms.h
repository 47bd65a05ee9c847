// The wire forms in C++: Field<Form> gives the value type, the writer and the
// reader of one wire form, so that code generated from the protocol table (and
// hand-written code beside it) writes and reads every field the same way:
//
//     Field<strlist>::write(payload, names);
//     const QStringList names = Field<strlist>::read(reader);
//
// The table's forms (protocol/forms.table) are declared here: the primitives
// of Payload and Reader, the composites (`listof<F>`, `signedlistof<F>`,
// `mapof<K, V>`, `vrow<F...>`, `rowof<F...>`) and the forms with a rule of
// their own (`sbyte`, `low16`, `blk16`, `dblint`, `dbltrunc`, `datetext`,
// `numbermap`, `power`). Reads are templates over the reader (Reader, or
// TracingReader for a dump). The records' wire forms are generated.
#ifndef KZRESOLVER_FORMS_H
#define KZRESOLVER_FORMS_H

#include "kzrecords.h"
#include "payload.h"

#include <QDate>
#include <QVariant>

#include <cmath>
#include <limits>
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
        template <class R> static Value read(R& r) { return r.Form(); }                            \
    };
KZ_PRIMITIVE(u8, quint8)
KZ_PRIMITIVE(u16, quint16)
KZ_PRIMITIVE(i16, qint16)
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
    template <class R>
    static bool read(R& r)
    {
        return r.flag8x();
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
    template <class R>
    static Value read(R& r)
    {
        return r.template list<typename Field<F>::Value>([&] { return Field<F>::read(r); });
    }
};

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
    template <class R>
    static Value read(R& r)
    {
        return Field<listof<F>>::read(r);
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
    template <class R>
    static Value read(R& r)
    {
        return r.composite(
            "map",
            [&] {
                Value out;
                r.forEach(r.entryCount(), [&] {
                    r.entry([&] {
                        auto key = Field<K>::read(r);
                        out.insert(key, Field<V>::read(r));
                    });
                });
                return out;
            },
            [](const Value& out) { return QStringLiteral("[%1]").arg(out.size()); });
    }
};

// ---------------------------------------------------------------------------
// Rows of QVariant values
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
    template <class R>
    static QVariantList read(R& r)
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
    template <class R>
    static QVariant read(R& r)
    {
        return QVariant::fromValue(Field<F>::read(r));
    }
};

/// An element of a QList<QVariant> that holds a row of the forms F.
template <class... F>
using rowof = boxed<vrow<F...>>;

// ---------------------------------------------------------------------------
// Forms with a rule of their own
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
    template <class R>
    static int read(R& r)
    {
        return qint8(r.u8());
    }
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
    template <class R>
    static int read(R& r)
    {
        return r.u16();
    }
};

/// Exactly 16 raw bytes taken from the start of a byte array: a shorter
/// array is padded with zero bytes, a longer one cut (both noted as lost).
/// The reader returns the 16 bytes, fewer at the end of the data.
struct blk16
{
};
template <>
struct Field<blk16>
{
    using Value = QByteArray;
    static constexpr int size = 16;
    static void write(Payload& p, const QByteArray& v)
    {
        if (v.size() != size) p.noteLoss("block not of 16 bytes", v.size());
        const int n = qMin(v.size(), size);
        p << raw{v.constData(), n};
        for (int i = n; i < size; ++i) p << u8{0};
    }
    template <class R>
    static QByteArray read(R& r)
    {
        return r.bytes(size);
    }
};

/// A double sent as a whole number: rounded to the nearest integer (halves
/// to even), as i32. Values beyond the 32-bit range go out at its ends, NaN
/// as 0; both are noted as lost.
struct dblint
{
};
template <>
struct Field<dblint>
{
    using Value = double;
    static void write(Payload& p, double v)
    {
        const double whole = std::nearbyint(v); // the default rounding: halves to even
        constexpr double lo = std::numeric_limits<qint32>::min();
        constexpr double hi = std::numeric_limits<qint32>::max();
        qint32 out = 0;
        if (whole >= lo && whole <= hi) {
            out = qint32(whole);
        } else {
            out = std::isnan(whole) ? 0 : whole < lo ? qint32(lo) : qint32(hi);
            p.noteLoss("whole-number figure beyond 32 bits", qint64(out));
        }
        p << i32{out};
    }
    template <class R>
    static double read(R& r)
    {
        return r.i32();
    }
};

/// A double sent as a whole number truncated toward zero, as i32; outside
/// the 32-bit range (or not a number) it is -2147483648, noted as lost.
struct dbltrunc
{
};
template <>
struct Field<dbltrunc>
{
    using Value = double;
    static void write(Payload& p, double v)
    {
        qint32 out = std::numeric_limits<qint32>::min();
        if (v > -2147483649.0 && v < 2147483648.0)
            out = qint32(v);
        else
            p.noteLoss("figure outside the 32-bit range",
                       std::fabs(v) < 9e18 ? qint64(v) : 0); // NaN compares false: 0
        p << i32{out};
    }
    template <class R>
    static double read(R& r)
    {
        return r.i32();
    }
};

/// A QDate as strz "yyyy-MM-dd" (an invalid date as empty text); text that
/// is no such date reads as an invalid date.
struct datetext
{
};
template <>
struct Field<datetext>
{
    using Value = QDate;
    static void write(Payload& p, const QDate& v)
    {
        p << strz{v.toString(QStringLiteral("yyyy-MM-dd"))};
    }
    template <class R>
    static QDate read(R& r)
    {
        return QDate::fromString(r.strz(), QStringLiteral("yyyy-MM-dd"));
    }
};

/// A QVariantMap of numbers: u16 n { strz key, dtext value }.
struct numbermap
{
};
template <>
struct Field<numbermap>
{
    using Value = QVariantMap;
    static void write(Payload& p, const QVariantMap& m)
    {
        p << count16(m.size());
        for (auto it = m.cbegin(); it != m.cend(); ++it)
            p << strz{it.key()} << dtext{it->toDouble()};
    }
    template <class R>
    static QVariantMap read(R& r)
    {
        return r.composite(
            "map",
            [&] {
                QVariantMap out;
                r.forEach(r.entryCount(), [&] {
                    r.entry([&] {
                        r.label("key");
                        const QString key = r.strz();
                        out.insert(key, r.dtext());
                    });
                });
                return out;
            },
            [](const QVariantMap& out) { return QStringLiteral("[%1]").arg(out.size()); });
    }
};

/// A permission word as u32, each field at its own bit position.
struct power
{
};
template <>
struct Field<power>
{
    using Value = fctp_user2_power;
    static void write(Payload& p, const fctp_user2_power& v) { p << u32{v.word()}; }
    template <class R>
    static fctp_user2_power read(R& r)
    {
        return fctp_user2_power(r.u32());
    }
};

} // namespace kz

#endif // KZRESOLVER_FORMS_H
