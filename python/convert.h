// Python values to the C++ types of the encoders' parameters. Every
// conversion names the field it was converting in its error: a wrong type
// raises TypeError, a value the type cannot hold ValueError.
#ifndef KZRESOLVER_PYTHON_CONVERT_H
#define KZRESOLVER_PYTHON_CONVERT_H

// Python's headers before Qt's: Qt defines `slots`, a member name of Python's.
#include <pybind11/pybind11.h>

#include "kzprotocolresolver.h"

#include <QDate>
#include <QList>
#include <QMap>
#include <QVariant>

#include <limits>
#include <string>
#include <type_traits>

namespace kz::py {

namespace pyb = pybind11;

[[noreturn]] inline void typeError(const std::string& field, const char* expected, pyb::handle got)
{
    throw pyb::type_error("field '" + field + "': expected " + expected + ", got " +
                          std::string(pyb::str(pyb::type::handle_of(got).attr("__name__"))));
}

[[noreturn]] inline void valueError(const std::string& field, const std::string& why)
{
    throw pyb::value_error("field '" + field + "': " + why);
}

/// The named fields of a record (generated from the table).
template <class R>
struct RecordFields;
#include "python_records.inc"

template <class T, class = void>
struct Conv;

template <class T>
T fromPy(pyb::handle h, const std::string& field)
{
    return Conv<T>::from(h, field);
}

template <class T>
struct Conv<T, std::enable_if_t<std::is_integral_v<T> && !std::is_same_v<T, bool>>>
{
    static T from(pyb::handle h, const std::string& field)
    {
        if (!PyLong_Check(h.ptr()) || PyBool_Check(h.ptr())) typeError(field, "int", h);
        int overflow = 0;
        const long long v = PyLong_AsLongLongAndOverflow(h.ptr(), &overflow);
        if (overflow || v < (long long)std::numeric_limits<T>::min() ||
            (v > 0 && (unsigned long long)v > (unsigned long long)std::numeric_limits<T>::max()))
            valueError(field, std::string(pyb::str(h)) + " is out of range");
        return T(v);
    }
};

template <>
struct Conv<bool>
{
    static bool from(pyb::handle h, const std::string& field)
    {
        if (!PyBool_Check(h.ptr())) typeError(field, "bool", h);
        return h.ptr() == Py_True;
    }
};

template <>
struct Conv<double>
{
    static double from(pyb::handle h, const std::string& field)
    {
        if (PyBool_Check(h.ptr()) || !(PyFloat_Check(h.ptr()) || PyLong_Check(h.ptr())))
            typeError(field, "float", h);
        return h.cast<double>();
    }
};

template <>
struct Conv<QString>
{
    static QString from(pyb::handle h, const std::string& field)
    {
        if (!PyUnicode_Check(h.ptr())) typeError(field, "str", h);
        Py_ssize_t n = 0;
        const char* s = PyUnicode_AsUTF8AndSize(h.ptr(), &n);
        if (!s) {
            PyErr_Clear();
            valueError(field, "text that is not valid UTF-8");
        }
        return QString::fromUtf8(s, int(n));
    }
};

template <>
struct Conv<QByteArray>
{
    static QByteArray from(pyb::handle h, const std::string& field)
    {
        if (!PyBytes_Check(h.ptr()) && !PyByteArray_Check(h.ptr())) typeError(field, "bytes", h);
        const std::string b = pyb::bytes(pyb::reinterpret_borrow<pyb::object>(h));
        return QByteArray(b.data(), int(b.size()));
    }
};

template <>
struct Conv<QDate>
{
    static QDate from(pyb::handle h, const std::string& field)
    {
        const pyb::object date = pyb::module_::import("datetime").attr("date");
        if (!pyb::isinstance(h, date)) typeError(field, "datetime.date", h);
        return QDate(h.attr("year").cast<int>(), h.attr("month").cast<int>(),
                     h.attr("day").cast<int>());
    }
};

template <>
struct Conv<fctp_user2_power>
{
    static fctp_user2_power from(pyb::handle h, const std::string& field)
    {
        return fctp_user2_power(fromPy<quint32>(h, field));
    }
};

/// A cell of a row: None, bool, int, float, str, bytes, a list or a dict of them.
template <>
struct Conv<QVariant>
{
    static QVariant from(pyb::handle h, const std::string& field)
    {
        PyObject* o = h.ptr();
        if (o == Py_None) return QVariant();
        if (PyBool_Check(o)) return fromPy<bool>(h, field);
        if (PyLong_Check(o)) return fromPy<qint64>(h, field);
        if (PyFloat_Check(o)) return fromPy<double>(h, field);
        if (PyUnicode_Check(o)) return fromPy<QString>(h, field);
        if (PyBytes_Check(o) || PyByteArray_Check(o)) return fromPy<QByteArray>(h, field);
        if (PyList_Check(o) || PyTuple_Check(o)) return fromPy<QList<QVariant>>(h, field);
        if (PyDict_Check(o)) return fromPy<QMap<QString, QVariant>>(h, field);
        typeError(field, "a value of a row (None, bool, int, float, str, bytes, list, dict)", h);
    }
};

template <class T>
struct Conv<QList<T>>
{
    static QList<T> from(pyb::handle h, const std::string& field)
    {
        if (!PyList_Check(h.ptr()) && !PyTuple_Check(h.ptr())) typeError(field, "list", h);
        QList<T> out;
        int i = 0;
        for (pyb::handle e : h) {
            out.append(fromPy<T>(e, field + "[" + std::to_string(i) + "]"));
            ++i;
        }
        return out;
    }
};

#if QT_VERSION < QT_VERSION_CHECK(6, 0, 0)
template <>
struct Conv<QStringList>
{
    static QStringList from(pyb::handle h, const std::string& field)
    {
        return QStringList(fromPy<QList<QString>>(h, field));
    }
};
#endif

template <class K, class V>
struct Conv<QMap<K, V>>
{
    static QMap<K, V> from(pyb::handle h, const std::string& field)
    {
        if (!PyDict_Check(h.ptr())) typeError(field, "dict", h);
        QMap<K, V> out;
        for (auto kv : pyb::reinterpret_borrow<pyb::dict>(h)) {
            const std::string at = field + "[" + std::string(pyb::repr(kv.first)) + "]";
            out.insert(fromPy<K>(kv.first, at + " key"), fromPy<V>(kv.second, at));
        }
        return out;
    }
};

/// A record from a dict or an object with the record's field names as
/// keys or attributes; fields not given keep their default (empty, zero).
template <class R>
struct Conv<R, std::void_t<decltype(sizeof(RecordFields<R>))>>
{
    static R from(pyb::handle h, const std::string& field)
    {
        pyb::dict d;
        if (PyDict_Check(h.ptr()))
            d = pyb::reinterpret_borrow<pyb::dict>(h);
        else if (pyb::hasattr(h, "__dict__"))
            d = pyb::dict(h.attr("__dict__"));
        else
            typeError(field, "a record (a dict or an object with its fields)", h);
        R v{};
        int used = 0;
        RecordFields<R>::each(v, [&](const char* name, auto& member) {
            if (!d.contains(name)) return;
            ++used;
            member = fromPy<std::decay_t<decltype(member)>>(d[name], field + "." + name);
        });
        if (used != int(pyb::len(d))) {
            for (auto kv : d) {
                const std::string key = pyb::str(kv.first);
                bool known = false;
                RecordFields<R>::each(v, [&](const char* name, auto&) { known |= key == name; });
                if (!known) throw pyb::type_error("field '" + field + "': no field '" + key + "'");
            }
        }
        return v;
    }
};

} // namespace kz::py

#endif // KZRESOLVER_PYTHON_CONVERT_H
