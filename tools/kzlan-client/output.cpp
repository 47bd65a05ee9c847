#include "output.h"

#include <QJsonDocument>

#include <cstdio>

QString cellText(const QJsonValue& v)
{
    switch (v.type()) {
    case QJsonValue::String:
        return v.toString();
    case QJsonValue::Bool:
        return v.toBool() ? QStringLiteral("yes") : QStringLiteral("no");
    case QJsonValue::Double:
        return QString::number(v.toDouble(), 'g', 12);
    case QJsonValue::Array: {
        QStringList parts;
        for (const QJsonValue& x : v.toArray()) parts << cellText(x);
        return parts.join(QLatin1Char(','));
    }
    case QJsonValue::Object: {
        QStringList parts;
        const QJsonObject o = v.toObject();
        for (auto it = o.begin(); it != o.end(); ++it)
            parts << it.key() + QStringLiteral(": ") + cellText(it.value());
        return parts.join(QStringLiteral("; "));
    }
    default:
        return QString();
    }
}

void printRows(const QStringList& columns, const QJsonArray& rows)
{
    QList<QStringList> cells{columns};
    for (const QJsonValue& row : rows) {
        QStringList line;
        for (const QString& c : columns) line << cellText(row.toObject().value(c));
        cells << line;
    }
    QList<int> width;
    for (int i = 0; i < columns.size(); ++i) {
        int w = 0;
        for (const QStringList& line : cells) w = qMax(w, int(line[i].size()));
        width << w;
    }
    for (const QStringList& line : cells) {
        QString text;
        for (int i = 0; i < line.size(); ++i)
            text += i + 1 < line.size() ? line[i].leftJustified(width[i] + 2) : line[i];
        printLine(text);
    }
}

namespace {
bool g_printedJson = false;
}

bool printedJson() { return g_printedJson; }

void printJson(const QJsonValue& doc)
{
    g_printedJson = true;
    const QByteArray text = doc.isArray() ? QJsonDocument(doc.toArray()).toJson()
                                          : QJsonDocument(doc.toObject()).toJson();
    std::fwrite(text.constData(), 1, size_t(text.size()), stdout);
    std::fflush(stdout);
}

void printLine(const QString& line)
{
    std::printf("%s\n", line.toUtf8().constData());
    std::fflush(stdout);
}

QJsonObject jsonOf(const QMap<QString, QStringList>& map)
{
    QJsonObject o;
    for (auto it = map.begin(); it != map.end(); ++it)
        o.insert(it.key(), QJsonArray::fromStringList(it.value()));
    return o;
}
