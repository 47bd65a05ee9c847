// The texts a client may have stored, and client texts written to the log.
// Names identify (users, groups, machines, operators, files): short, and
// without control or bidirectional-formatting characters, which would let a
// name look like another or forge a line in a log. Free texts (full names,
// descriptions, notes) are longer and may hold tabs and line breaks.
#ifndef KZLAN_TEXTS_H
#define KZLAN_TEXTS_H

#include <QString>
#include <QStringList>

namespace Texts {

constexpr int kMaxName = 64;           ///< characters of a name
constexpr int kMaxText = 1024;         ///< characters of a free text
constexpr int kMaxFileNameBytes = 200; ///< UTF-8 bytes: with ".part" within a folder entry
constexpr int kMaxPassword = 256;      ///< characters
constexpr int kMaxItems = 10000;       ///< names in one list

/// 1 to kMaxName characters, none of them a control or bidirectional
/// formatting character.
bool isName(const QString& s);
/// Empty, or a name.
bool isOptionalName(const QString& s);
/// At most kMaxItems names.
bool areNames(const QStringList& names);
/// At most kMaxText characters, no control characters but tab and line
/// feed, no bidirectional formatting characters.
bool isText(const QString& s);
/// A file or machine name that stays inside its folder: a name of at most
/// kMaxFileNameBytes in UTF-8, no separators, not "." or "..", and not the
/// suffix of a partial file.
bool isFileName(const QString& s);

/// `s` as a log line may show it: control and bidirectional formatting
/// characters written as escapes (\n, \x1b, \u202e), and at most 200
/// characters of it.
QString forLog(const QString& s);
/// The names, each forLog(), joined with commas (at most the first 20).
QString forLog(const QStringList& names);

} // namespace Texts

#endif
