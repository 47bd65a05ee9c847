// File prices: the price table keyed by file name, loaded, extended one
// entry or many at a time, updated, deleted from and queried.
#include "kzprotocolresolver_p.h"

#include <QVariant>

using namespace kz;

namespace {

/// A price map: u16 n, per file in ascending order strz file, dtext price.
using PriceMap = mapof<strz, dtext>;

// LoadFilePrice reply: strlist files, price map
struct FilesPrices : Layout<strlist, PriceMap>
{
    static constexpr const char* names[] = {"files", "prices"};
};

// AddFilePrices request: price map; the reply adds flag8 ok
struct Prices : Layout<PriceMap>
{
    static constexpr const char* names[] = {"prices"};
};

} // namespace

// LoadFilePrice: request (empty) | reply FilesPrices
void KZProtocolResolver::lanLoadFilePrice() { d->send<Empty>(Method::LoadFilePrice, Request); }

void KZProtocolResolver::lanLoadFilePriceResult(const QStringList& files,
                                                const QMap<QString, double>& prices)
{
    d->send<FilesPrices>(Method::LoadFilePrice, Reply, files, prices);
}

void KZProtocolResolverPrivate::decodeLoadFilePrice(uchar flag, Reader& r)
{
    route<Empty, FilesPrices>(flag, r, cb.onLanLoadFilePriceCB, cb.onLanLoadFilePriceResultCB);
}

// AddFilePrice: request Texts2 (file, price as text) | reply WithOk<Texts2>
void KZProtocolResolver::lanAddFilePrice(const QString& file, const QString& price)
{
    d->send<Texts2>(Method::AddFilePrice, Request, file, price);
}

void KZProtocolResolver::lanAddFilePriceResult(bool ok, const QString& file, const QString& price)
{
    d->send<WithOk<Texts2>>(Method::AddFilePrice, Reply, ok, file, price);
}

void KZProtocolResolverPrivate::decodeAddFilePrice(uchar flag, Reader& r)
{
    route<Texts2, WithOk<Texts2>>(flag, r, cb.onLanAddFilePriceCB, cb.onLanAddFilePriceResultCB);
}

// UpdateFilePrice: request Texts3 | reply WithOk<Texts3>
void KZProtocolResolver::lanUpdateFilePrice(const QString& a, const QString& b, const QString& c)
{
    d->send<Texts3>(Method::UpdateFilePrice, Request, a, b, c);
}

void KZProtocolResolver::lanUpdateFilePriceResult(bool ok, const QString& a, const QString& b,
                                                  const QString& c)
{
    d->send<WithOk<Texts3>>(Method::UpdateFilePrice, Reply, ok, a, b, c);
}

void KZProtocolResolverPrivate::decodeUpdateFilePrice(uchar flag, Reader& r)
{
    route<Texts3, WithOk<Texts3>>(flag, r, cb.onLanUpdateFilePriceCB,
                                  cb.onLanUpdateFilePriceResultCB);
}

// DeleteFilePrice: request Names | reply WithOk<Names>
void KZProtocolResolver::lanDeleteFilePrice(const QStringList& files)
{
    d->send<Names>(Method::DeleteFilePrice, Request, files);
}

void KZProtocolResolver::lanDeleteFilePriceResult(bool ok, const QStringList& files)
{
    d->send<WithOk<Names>>(Method::DeleteFilePrice, Reply, ok, files);
}

void KZProtocolResolverPrivate::decodeDeleteFilePrice(uchar flag, Reader& r)
{
    route<Names, WithOk<Names>>(flag, r, cb.onLanDeleteFilePriceCB,
                                cb.onLanDeleteFilePriceResultCB);
}

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

void KZProtocolResolverPrivate::decodeQueryFilePriceInfo(uchar flag, Reader& r)
{
    if (flag != Request) return;
    r.label("text");
    const QString text = r.strz();
    r.label("rows");
    const QList<QVariant> rows = r.list<QVariant>([&] { return QVariant(r.strlist()); });
    fire(cb.onLanQueryFilePriceInfoCB, text, rows);
}

// QueryFilePrice: request Texts3List | reply Text
void KZProtocolResolver::lanQueryFilePrice(const QString& a, const QString& b, const QString& c,
                                           const QStringList& list)
{
    d->send<Texts3List>(Method::QueryFilePrice, Request, a, b, c, list);
}

void KZProtocolResolver::lanQueryFilePriceResult(const QString& text)
{
    d->send<Text>(Method::QueryFilePrice, Reply, text);
}

void KZProtocolResolverPrivate::decodeQueryFilePrice(uchar flag, Reader& r)
{
    route<Texts3List, Text>(flag, r, cb.onLanQueryFilePriceCB, cb.onLanQueryFilePriceResultCB);
}

// AddFilePrices: request Prices | reply WithOk<Prices>
void KZProtocolResolver::lanAddFilePrices(const QMap<QString, double>& prices)
{
    d->send<Prices>(Method::AddFilePrices, Request, prices);
}

void KZProtocolResolver::lanAddFilePricesResult(bool ok, const QMap<QString, double>& prices)
{
    d->send<WithOk<Prices>>(Method::AddFilePrices, Reply, ok, prices);
}

void KZProtocolResolverPrivate::decodeAddFilePrices(uchar flag, Reader& r)
{
    route<Prices, WithOk<Prices>>(flag, r, cb.onLanAddFilePricesCB, cb.onLanAddFilePricesResultCB);
}
