#include "texts.h"

namespace Texts {

namespace {

// Characters that change how the text around them is shown: the embedding,
// override and isolate controls and the directional marks.
bool isBidiFormatting(char16_t u)
{
    return (u >= 0x202A && u <= 0x202E) || (u >= 0x2066 && u <= 0x2069) || u == 0x200E ||
           u == 0x200F || u == 0x061C;
}

bool isControl(char16_t u) { return u < 0x20 || (u >= 0x7F && u <= 0x9F); }

bool clean(const QString& s, bool lineBreaks)
{
    for (QChar ch : s) {
        const char16_t u = ch.unicode();
        if (lineBreaks && (u == '\t' || u == '\n')) continue;
        if (isControl(u) || isBidiFormatting(u) || u == 0x2028 || u == 0x2029) return false;
    }
    return true;
}

} // namespace

bool isName(const QString& s) { return !s.isEmpty() && s.size() <= kMaxName && clean(s, false); }

bool isOptionalName(const QString& s) { return s.isEmpty() || isName(s); }

bool areNames(const QStringList& names)
{
    if (names.size() > kMaxItems) return false;
    for (const QString& n : names)
        if (!isName(n)) return false;
    return true;
}

bool isText(const QString& s) { return s.size() <= kMaxText && clean(s, true); }

bool isFileName(const QString& s)
{
    if (s.isEmpty() || s == QLatin1String(".") || s == QLatin1String("..") ||
        s.endsWith(QLatin1String(".part")) || s.toUtf8().size() > kMaxFileNameBytes ||
        !clean(s, false))
        return false;
    return !s.contains(QLatin1Char('/')) && !s.contains(QLatin1Char('\\'));
}

QString forLog(const QString& s)
{
    constexpr int kShown = 200;
    QString out;
    for (QChar ch : s.left(kShown)) {
        const char16_t u = ch.unicode();
        if (u == '\n')
            out += QLatin1String("\\n");
        else if (u == '\r')
            out += QLatin1String("\\r");
        else if (u == '\\')
            out += QLatin1String("\\\\");
        else if (isControl(u))
            out += QStringLiteral("\\x%1").arg(uint(u), 2, 16, QLatin1Char('0'));
        else if (isBidiFormatting(u) || u == 0x2028 || u == 0x2029)
            out += QStringLiteral("\\u%1").arg(uint(u), 4, 16, QLatin1Char('0'));
        else
            out += ch;
    }
    if (s.size() > kShown) out += QStringLiteral("...(%1 characters)").arg(s.size());
    return out;
}

QString forLog(const QStringList& names)
{
    QStringList shown;
    for (const QString& n : names.mid(0, 20)) shown.append(forLog(n));
    if (names.size() > 20) shown.append(QStringLiteral("...(%1 names)").arg(names.size()));
    return shown.join(QLatin1Char(','));
}

} // namespace Texts
