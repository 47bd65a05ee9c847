#include "output.h"

#include <QJsonArray>
#include <QJsonDocument>

#include <algorithm>
#include <cstdio>

namespace kzdump {

namespace {

constexpr int kHexShown = 256; // bytes of an undecodable frame or body shown

bool isKind(const kz::TraceItem& t, const char* kind) { return !qstrcmp(t.kind, kind); }

bool isList(const kz::TraceItem& t) { return isKind(t, "list") || isKind(t, "strlist"); }

bool isMap(const kz::TraceItem& t)
{
    return isKind(t, "map") || isKind(t, "groupmap") || isKind(t, "strintmap");
}

QJsonValue scalar(const QVariant& v)
{
    switch (v.userType()) {
    case QMetaType::Bool:
        return v.toBool();
    case QMetaType::QString:
        return v.toString();
    case QMetaType::QByteArray:
        return QString::fromLatin1(v.toByteArray().toHex());
    case QMetaType::Double:
    case QMetaType::Float:
        return v.toDouble();
    default:
        break;
    }
    bool isNumber = false;
    const qlonglong n = v.toLongLong(&isNumber);
    if (isNumber) return double(n);
    return v.isValid() ? QJsonValue(v.toString()) : QJsonValue();
}

/// The fields of a record or map entry: an object keyed by name; a lone
/// unnamed field stands for itself, unnamed fields (a row of values) make an
/// array; unnamed fields among named ones are keyed by wire form and position.
QJsonValue fieldsOf(const QVector<kz::TraceItem>& children)
{
    if (children.size() == 1 && !children[0].name) return jsonValue(children[0]);
    if (std::none_of(children.begin(), children.end(),
                     [](const kz::TraceItem& c) { return c.name; })) {
        QJsonArray a;
        for (const kz::TraceItem& c : children) a.append(jsonValue(c));
        return a;
    }
    QJsonObject o;
    for (int i = 0; i < children.size(); ++i) {
        const kz::TraceItem& c = children[i];
        const QString key = c.name ? QString::fromLatin1(c.name)
                                   : QStringLiteral("%1#%2").arg(QLatin1String(c.kind)).arg(i);
        o.insert(key, jsonValue(c));
    }
    return o;
}

} // namespace

QString hexOf(const QByteArray& b)
{
    QString h = QString::fromLatin1(b.left(kHexShown).toHex(' '));
    if (b.size() > kHexShown) h += QStringLiteral(" ... (%1 more)").arg(b.size() - kHexShown);
    return h;
}

QJsonValue jsonValue(const kz::TraceItem& t)
{
    if (isList(t)) {
        QJsonArray a;
        for (const kz::TraceItem& c : t.children)
            a.append(isKind(c, "entry") ? fieldsOf(c.children) : jsonValue(c));
        return a;
    }
    if (isMap(t)) {
        QJsonObject o;
        for (const kz::TraceItem& e : t.children) {
            if (e.children.isEmpty()) continue;
            const QString key = e.children[0].value.toString();
            o.insert(key, fieldsOf(e.children.mid(1)));
        }
        return o;
    }
    if (isKind(t, "record") || isKind(t, "entry")) return fieldsOf(t.children);
    return scalar(t.value);
}

void Output::report(const QJsonObject& object, const QString& text) const
{
    if (json)
        std::printf("%s\n", QJsonDocument(object).toJson(QJsonDocument::Compact).constData());
    else
        std::printf("%s\n", qPrintable(text));
}

void Output::summary() const
{
    const QJsonObject counts{{"messages", messages},
                             {"notices", notices},
                             {"skipped", double(skipped)},
                             {"cut", double(cut)}};
    const auto plural = [](qint64 n, const char* one, const char* many) {
        return QStringLiteral("%1 %2").arg(n).arg(QLatin1String(n == 1 ? one : many));
    };
    QString text = plural(messages, "message", "messages") + QStringLiteral(", ") +
                   plural(notices, "drop notice", "drop notices") + QStringLiteral(", ") +
                   plural(skipped, "byte skipped", "bytes skipped");
    if (cut) text += QStringLiteral(", ") + plural(cut, "byte cut off", "bytes cut off");
    report(QJsonObject{{"summary", counts}}, text);
}

} // namespace kzdump
