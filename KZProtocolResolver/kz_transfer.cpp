// File transfer tasks: written here are the exchange-file table (the receiver
// keeps three of its four texts) and a content chunk (its data has no prefix:
// the length field before it says how much to take); the other messages come
// from protocol/transfer.table. The library carries these only; sequencing,
// chunking and the 16-byte blocks (digests, say) are the host's on both ends.
#include "kzprotocolresolver_p.h"

using namespace kz;

// MacTsfExchangeFile: request u16 n { strz key, strz t1, t2, t3, t4 }
// A list of other than four texts writes its key alone (noted as lost). The
// receiver drops t1 of each entry and hands on key -> (t2, t3, t4): this
// asymmetry is the message's own and is kept.
void KZProtocolResolver::lanMacTsfExchangeFile(const QMap<QString, QStringList>& files)
{
    Payload p;
    p << count16(files.size());
    if (files.size() > 0x7FFF) p.noteLoss("exchange entries beyond 16 bits", files.size());
    for (auto it = files.cbegin(); it != files.cend(); ++it) {
        p << strz{it.key()};
        if (it->size() == 4)
            for (const QString& t : *it) p << strz{t};
        else
            p.noteLoss("exchange entry without four texts", it->size());
    }
    d->send(Method::MacTsfExchangeFile, Request, p);
}

template <class R>
void KZProtocolResolverPrivate::decodeMacTsfExchangeFileRequest(R& r)
{
    QMap<QString, QStringList> files;
    r.label("fileCount");
    r.forEach(r.count16(), [&] {
        r.label("key");
        const QString key = r.strz();
        r.label("t1");
        r.strz(); // the first text does not reach the host
        r.label("t2");
        const QString t2 = r.strz();
        r.label("t3");
        const QString t3 = r.strz();
        r.label("t4");
        const QString t4 = r.strz();
        if (!r.isShort()) files.insert(key, {t2, t3, t4}); // an entry cut off is none
    });
    fire(cb.onLanMacTsfExchangeFileCB, files);
}

// MacTsfFileContent request: i32 p, i32 q, i32 r, i32 len, blk16 block, len
// bytes of data. The data has no prefix of its own: len says how much the
// receiver takes.
void KZProtocolResolver::lanMacTsfFileContent(int p, int q, int r, int len, const QByteArray& block,
                                              const QByteArray& data)
{
    Payload out;
    out << i32{p} << i32{q} << i32{r} << i32{len};
    Field<blk16>::write(out, block);
    out << rawbytes{data};
    if (len != data.size()) out.noteLoss("content length unlike its data", len);
    d->send(Method::MacTsfFileContent, Request, out);
}

template <class R>
void KZProtocolResolverPrivate::decodeMacTsfFileContentRequest(R& r)
{
    r.label("p");
    const int p = r.i32();
    r.label("q");
    const int q = r.i32();
    r.label("r");
    const int third = r.i32();
    r.label("len");
    const int len = r.i32();
    r.label("block");
    const QByteArray block = Field<blk16>::read(r);
    r.label("data");
    const QByteArray data = r.bytes(len); // cut at the end of the data
    fire(cb.onLanMacTsfFileContentCB, p, q, third, len, block, data);
}

int KZProtocolResolverPrivate::fileContentDataAt(Reader& r)
{
    for (int i = 0; i < 4; ++i) r.i32(); // p, q, r, len
    Field<blk16>::read(r);
    return r.offset();
}

#include "kz_transfer.inc"
