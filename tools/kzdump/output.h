// Where kzdump's findings go. Human text goes to standard output, or, with
// --json, one JSON object per line goes there and nothing else: the lines a
// person reads beside them (the tap's banner, errors) go to standard error.
#ifndef KZDUMP_OUTPUT_H
#define KZDUMP_OUTPUT_H

#include "trace.h"

#include <QJsonObject>
#include <QString>

namespace kzdump {

/// The run's settings and its counts, shared by every stream it dumps.
struct Output
{
    bool json = false;
    bool quiet = false;
    int messages = 0; // numbering runs across all streams of a run
    int notices = 0;
    qint64 skipped = 0; // bytes that were not part of a good frame
    qint64 cut = 0;     // bytes at the end of a stream that wait for the rest of a frame

    /// One finding: `text` (without a final newline) in text mode, `object`
    /// as one JSON line with --json.
    void report(const QJsonObject& object, const QString& text) const;
    /// The counts: a last line of text, or a JSON object {"summary": {...}}.
    void summary() const;
};

/// The first bytes as hex, and how many more there are.
QString hexOf(const QByteArray& bytes);

/// A traced field's value as JSON: numbers and flags typed, text as a
/// string, bytes as hex, lists as arrays, maps as objects keyed by their
/// keys, records as objects keyed by field name.
QJsonValue jsonValue(const kz::TraceItem& item);

} // namespace kzdump

#endif // KZDUMP_OUTPUT_H
