// kzlan-client's output: rows of named values as aligned text columns, or
// with --json one JSON document on stdout.
#ifndef KZLAN_CLIENT_OUTPUT_H
#define KZLAN_CLIENT_OUTPUT_H

#include <QJsonArray>
#include <QJsonObject>
#include <QJsonValue>
#include <QMap>
#include <QString>
#include <QStringList>

/// A value as one table cell: text as it is, numbers without a needless
/// fraction, lists joined by commas, objects as "key: values; …".
QString cellText(const QJsonValue& v);

/// Prints `rows` (JSON objects) as a table of `columns`, a header line first;
/// every column is as wide as its widest cell.
void printRows(const QStringList& columns, const QJsonArray& rows);

/// Prints `doc` as one JSON document on stdout.
void printJson(const QJsonValue& doc);

/// Whether a JSON document was printed (printJson()).
bool printedJson();

/// Prints one line of text on stdout.
void printLine(const QString& line);

/// A map of group names to lists as a JSON object.
QJsonObject jsonOf(const QMap<QString, QStringList>& map);

#endif
