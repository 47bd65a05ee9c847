// Machine file operations: the listing reply is written here (its count
// stands apart from its entries, which a budget of two bytes each reads); the
// other messages come from protocol/macfiles.table. Their status replies
// decode by flipping the low bit of the byte (flag8x), unlike the zero test of
// most replies.
#include "kzprotocolresolver_p.h"

using namespace kz;

// MacFiles reply: strz path, u16 n, i16 value, n x strz file. The count
// stands ahead of the value, apart from its entries: kept as the peers read
// it.
void KZProtocolResolver::lanMacFilesResponse(const QString& path, int value,
                                             const QStringList& files)
{
    Payload p;
    p << strz{path} << count16(files.size()) << u16{quint16(value)};
    for (const QString& f : files) p << strz{f};
    if (files.size() > 0x7FFF) p.noteLoss("file count beyond 16 bits", files.size());
    if (value != qint16(value)) p.noteLoss("value sent as 16 bits", value);
    d->send(Method::MacFiles, Reply, p);
}

template <class R>
void KZProtocolResolverPrivate::decodeMacFilesReply(R& r)
{
    r.label("path");
    const QString path = r.strz();
    // The entry budget starts with the count and the value still in it and
    // needs two bytes per further entry; the end of the data stops it too.
    int budget = r.remaining();
    r.label("count");
    const int n = r.count16();
    r.label("value");
    const int value = r.i16();
    QStringList files;
    for (int i = 0; i < n && budget >= 2 && !r.atEnd(); ++i) {
        const int at = r.offset();
        r.label("file");
        files.append(r.strz());
        budget -= r.offset() - at;
    }
    fire(cb.onLanMacFilesResultCB, path, value, files);
}

#include "kz_macfiles.inc"
