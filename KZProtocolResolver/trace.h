// Seeing what is on the wire: a reader that records every field a decoder
// reads, by running the real decoder over it. TracingReader decorates a
// Reader: it has the same reading calls, does each read with the Reader and
// notes what was read (kind, offset, name, value) as a tree. Decoders are
// templates over their reader, so the plain Reader they run with in service
// carries no trace code at all.
#ifndef KZRESOLVER_TRACE_H
#define KZRESOLVER_TRACE_H

#include "payload.h"

#include <QVariant>
#include <QVector>

namespace kz {

/// One field as a dump tool sees it.
struct TraceItem
{
    const char* kind = "";      ///< the wire form read: "strz", "i32", "list", "record", ...
    int offset = 0;             ///< where it starts in the payload
    const char* name = nullptr; ///< the field's name, where the decoder gives one
    QVariant value;             ///< a scalar's value (text, number, flag, bytes); null otherwise
    QString text;               ///< the value as a dump prints it
    /// The entries of a list or map (each an "entry" item holding what the
    /// entry read), the fields of a record, the texts of a string list.
    QVector<TraceItem> children;
};

/// What one decoder read: the fields in wire order, and where the data
/// turned out to be cut, if it did.
struct Trace
{
    QVector<TraceItem> items;
    int cutAt = -1; ///< offset of the first field the data ended inside, or -1

    /// Entries of one list or map kept in the tree by default.
    static constexpr int kKeptEntries = 1024;
    /// Entries of one list or map kept in the tree; the rest are read, not kept.
    int keptPerList = kKeptEntries;
    /// Entries that may still be kept in the whole tree, each kept one taking
    /// one; -1 for no bound but keptPerList.
    qint64 entryBudget = -1;
    /// Entries read but not kept (past keptPerList or the budget).
    qint64 dropped = 0;

    /// The items as a dump prints them: a record read as a field of its
    /// own stands for its fields.
    QVector<TraceItem> fields() const;
};

/// A Reader that records what is read into a Trace.
class TracingReader
{
public:
    TracingReader(Reader& reader, Trace& trace);

    int remaining() const { return r_.remaining(); }
    int offset() const { return r_.offset(); }
    bool atEnd() const { return r_.atEnd(); }
    bool isShort() const { return r_.isShort(); }
    int bytesAhead() const { return r_.bytesAhead(); }
    void markShort();

    quint8 u8();
    quint16 u16();
    qint16 i16();
    quint32 u32();
    qint32 i32();
    QString strz();
    QByteArray bytes(int n);

    bool flag8();
    bool flag8x();
    QString str16();
    double dtext();
    int itext();
    QStringList strlist();
    QMap<QString, QStringList> groupmap();
    QMap<QString, int> strintmap();
    QByteArray blob32();
    int count16() { return rule::count16(*this); }
    /// The count of the list or map being read: kept as that node's value,
    /// not as an entry of it.
    int entryCount();

    template <class F>
    void forEach(int count, F entry)
    {
        for (int i = 0; i < count && !atEnd(); ++i) entry();
    }
    /// A list node; its entries are shown in its text, the first ones.
    template <class T, class F>
    QList<T> list(F one)
    {
        open("list");
        QList<T> out = rule::list<T>(*this, one);
        closeList(out.size());
        return out;
    }

    /// Names the next field read.
    void label(const char* name)
    {
        if (!hidden_) name_ = name;
    }
    template <class F>
    void record(F fields)
    {
        open("record");
        fields();
        close(QVariant(), recordText(node().children));
    }
    template <class F>
    void entry(F read)
    {
        if (!keepEntry()) {
            const Hide hide(this);
            read();
            return;
        }
        open("entry");
        read();
        close(QVariant(), recordText(node().children));
    }
    template <class F, class T>
    auto composite(const char* kind, F read, T text) -> decltype(read())
    {
        open(kind);
        auto v = read();
        close(QVariant(), text(v));
        return v;
    }

    /// Entries of one list or map shown in its text.
    static constexpr int kShownEntries = 8;

private:
    // While one lives, reads are done but not recorded (the parts of a
    // field recorded as one value, entries past the kept ones).
    struct Hide
    {
        explicit Hide(TracingReader* t) : t_(t) { ++t_->hidden_; }
        ~Hide() { --t_->hidden_; }
        TracingReader* t_;
    };
    struct Open
    {
        TraceItem item;
        int entries = 0; // entries started under this node
        int count = -1;  // the count read for them, as on the wire
    };

    template <class F>
    auto scalar(const char* kind, F read) -> decltype(read());
    void leaf(const char* kind, int at, const QVariant& value, const QString& text);
    void open(const char* kind);
    void close(const QVariant& value, const QString& text);
    void closeList(int size);
    bool keepEntry();
    TraceItem& node() { return stack_.last().item; }
    // Notes where the data was found cut, the first time it is.
    void noteCut(bool wasShort, int at);
    static QString recordText(const QVector<TraceItem>& children);

    Reader& r_;
    Trace& trace_;
    const char* name_ = nullptr;
    int hidden_ = 0;
    QVector<Open> stack_;
};

} // namespace kz

#endif // KZRESOLVER_TRACE_H
