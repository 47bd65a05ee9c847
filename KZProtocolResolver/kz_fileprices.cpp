// File prices: price information is written here (rows of texts under counts
// that the sender compares as signed 16-bit numbers); the other messages come
// from protocol/fileprices.table.
#include "kzprotocolresolver_p.h"

using namespace kz;

// QueryFilePriceInfo: request strz text, u16 n { u16 m { strz item } }
// Each row goes out as its QVariant::toStringList(). Both loops compare
// their index with the count as signed 16-bit numbers, so a count above
// 32767 sends no entries after it; kept as the peers count.
void KZProtocolResolver::lanQueryFilePriceInfo(const QString& text, const QList<QVariant>& rows)
{
    Payload p;
    p << strz{text} << count16(rows.size());
    const qint16 n = qint16(rows.size());
    if (n != rows.size()) p.noteLoss("price-info rows not sent", rows.size() - qMax<int>(n, 0));
    for (qint16 i = 0; i < n; ++i) {
        const QStringList items = rows.at(i).toStringList();
        const qint16 m = qint16(items.size());
        p << count16(items.size());
        if (m != items.size())
            p.noteLoss("price-info row items not sent", items.size() - qMax<int>(m, 0));
        for (qint16 k = 0; k < m; ++k) p << strz{items.at(k)};
    }
    d->send(Method::QueryFilePriceInfo, Request, p);
}

template <class R>
void KZProtocolResolverPrivate::decodeQueryFilePriceInfoRequest(R& r)
{
    r.label("text");
    const QString text = r.strz();
    r.label("rows");
    const QList<QVariant> rows = r.template list<QVariant>([&] { return QVariant(r.strlist()); });
    fire(cb.onLanQueryFilePriceInfoCB, text, rows);
}

#include "kz_fileprices.inc"
