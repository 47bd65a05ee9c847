#include "trace.h"

namespace kz {

namespace {

void flattenInto(QVector<TraceItem>& out, const QVector<TraceItem>& items)
{
    for (const TraceItem& t : items) {
        if (!qstrcmp(t.kind, "record"))
            flattenInto(out, t.children);
        else
            out.append(t);
    }
}

QString quoted(const QString& s) { return QLatin1Char('"') + s + QLatin1Char('"'); }

QString sized(int n) { return QStringLiteral("[%1]").arg(n); }

} // namespace

QVector<TraceItem> Trace::fields() const
{
    QVector<TraceItem> out;
    flattenInto(out, items);
    return out;
}

TracingReader::TracingReader(Reader& reader, Trace& trace) : r_(reader), trace_(trace) {}

void TracingReader::noteCut(bool wasShort, int at)
{
    if (!wasShort && r_.isShort() && trace_.cutAt < 0) trace_.cutAt = at;
}

void TracingReader::markShort()
{
    const bool wasShort = r_.isShort();
    r_.markShort();
    noteCut(wasShort, offset());
}

void TracingReader::leaf(const char* kind, int at, const QVariant& value, const QString& text)
{
    if (hidden_) return;
    const char* name = name_;
    name_ = nullptr;
    TraceItem item;
    item.kind = kind;
    item.offset = at;
    item.name = name;
    item.value = value;
    item.text = text;
    (stack_.isEmpty() ? trace_.items : node().children).append(item);
}

void TracingReader::open(const char* kind)
{
    Open o;
    o.item.kind = kind;
    o.item.offset = offset();
    o.item.name = hidden_ ? nullptr : name_;
    if (!hidden_) name_ = nullptr;
    stack_.append(o);
}

void TracingReader::close(const QVariant& value, const QString& text)
{
    const Open o = stack_.takeLast();
    if (hidden_) return;
    TraceItem item = o.item;
    item.value = value.isValid() || o.count < 0 ? value : QVariant(o.count);
    item.text = text;
    (stack_.isEmpty() ? trace_.items : node().children).append(item);
}

void TracingReader::closeList(int size)
{
    QStringList shown;
    for (const TraceItem& e : node().children) {
        if (shown.size() == kShownEntries) break;
        shown.append(e.text);
    }
    if (size > shown.size()) shown.append(QStringLiteral("..."));
    close(QVariant(),
          sized(size) +
              (shown.isEmpty() ? QString() : QLatin1Char(' ') + shown.join(QStringLiteral(", "))));
}

bool TracingReader::keepEntry()
{
    if (hidden_ || stack_.isEmpty()) return false; // inside an entry not kept, or no list
    if (stack_.last().entries++ >= trace_.keptPerList || trace_.entryBudget == 0) {
        ++trace_.dropped;
        return false;
    }
    if (trace_.entryBudget > 0) --trace_.entryBudget;
    return true;
}

QString TracingReader::recordText(const QVector<TraceItem>& children)
{
    if (children.size() == 1 && !children[0].name) return children[0].text;
    QStringList parts;
    for (const TraceItem& t : children)
        parts.append(t.name ? QLatin1String(t.name) + QLatin1Char(' ') + t.text : t.text);
    return QLatin1Char('{') + parts.join(QStringLiteral(", ")) + QLatin1Char('}');
}

// A field recorded as one value: its parts are read, not recorded.
template <class F>
auto TracingReader::scalar(const char* kind, F read) -> decltype(read())
{
    const int at = offset();
    const char* name = hidden_ ? nullptr : name_;
    decltype(read()) v;
    {
        const Hide hide(this);
        v = read();
    }
    name_ = name;
    QString text;
    if constexpr (std::is_same_v<decltype(v), bool>)
        text = v ? QStringLiteral("true") : QStringLiteral("false");
    else if constexpr (std::is_same_v<decltype(v), QString>)
        text = quoted(v);
    else if constexpr (std::is_same_v<decltype(v), double>)
        text = QString::number(v, 'g', 6);
    else if constexpr (std::is_same_v<decltype(v), QByteArray>)
        text = QStringLiteral("[%1 bytes]").arg(v.size());
    else
        text = QString::number(v);
    leaf(kind, at, QVariant::fromValue(v), text);
    return v;
}

#define KZ_TRACED_INTEGER(type, kind)                                                              \
    type TracingReader::kind()                                                                     \
    {                                                                                              \
        const int at = offset();                                                                   \
        const bool wasShort = isShort();                                                           \
        const type v = r_.kind();                                                                  \
        noteCut(wasShort, at);                                                                     \
        leaf(#kind, at, qint64(v), QString::number(v));                                            \
        return v;                                                                                  \
    }
KZ_TRACED_INTEGER(quint8, u8)
KZ_TRACED_INTEGER(quint16, u16)
KZ_TRACED_INTEGER(qint16, i16)
KZ_TRACED_INTEGER(quint32, u32)
KZ_TRACED_INTEGER(qint32, i32)
#undef KZ_TRACED_INTEGER

QString TracingReader::strz()
{
    const int at = offset();
    const bool wasShort = isShort();
    const QString s = r_.strz();
    noteCut(wasShort, at);
    leaf("strz", at, s, quoted(s));
    return s;
}

QByteArray TracingReader::bytes(int n)
{
    const int at = offset();
    const bool wasShort = isShort();
    const QByteArray b = r_.bytes(n);
    noteCut(wasShort, at);
    if (n > 0) leaf("bytes", at, b, QStringLiteral("[%1 bytes]").arg(b.size()));
    return b;
}

int TracingReader::entryCount()
{
    const int at = offset();
    const bool wasShort = isShort();
    const qint16 n = r_.i16();
    noteCut(wasShort, at);
    if (!stack_.isEmpty()) stack_.last().count = n;
    return n > 0 ? n : 0;
}

bool TracingReader::flag8()
{
    return scalar("flag8", [&] { return rule::flag8(*this); });
}

bool TracingReader::flag8x()
{
    return scalar("flag8", [&] { return rule::flag8x(*this); });
}

QString TracingReader::str16()
{
    return scalar("str16", [&] { return rule::str16(*this); });
}

double TracingReader::dtext()
{
    return scalar("dtext", [&] { return rule::dtext(*this); });
}

int TracingReader::itext()
{
    return scalar("itext", [&] { return rule::itext(*this); });
}

QByteArray TracingReader::blob32()
{
    return scalar("blob32", [&] { return rule::blob32(*this); });
}

QStringList TracingReader::strlist()
{
    return composite(
        "strlist", [&] { return rule::strlist(*this); },
        [](const QStringList& out) {
            return QStringLiteral("[%1]{\"%2\"}")
                .arg(out.size())
                .arg(out.join(QStringLiteral("\",\"")));
        });
}

QMap<QString, QStringList> TracingReader::groupmap()
{
    return composite(
        "groupmap", [&] { return rule::groupmap(*this); },
        [](const QMap<QString, QStringList>& out) { return sized(out.size()); });
}

QMap<QString, int> TracingReader::strintmap()
{
    return composite(
        "strintmap", [&] { return rule::strintmap(*this); },
        [](const QMap<QString, int>& out) { return sized(out.size()); });
}

} // namespace kz
