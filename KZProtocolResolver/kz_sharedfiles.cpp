// Shared files: the encoders come from protocol/sharedfiles.table; written
// here are the decoders of the messages with two lists, which share one byte
// budget as the peers read them.
#include "kzprotocolresolver_p.h"

using namespace kz;

namespace {

// The two lists as the peers read them: one running budget serves both. It
// starts at the bytes after the first count and falls by each entry's bytes;
// an entry is read only while more than one byte of it is left, and so is the
// second count, which does not use budget itself. Both lists stop at the end
// of the data as well.
struct TwoLists
{
    QStringList first, second;
};

template <class R>
QStringList budgetList(R& r, int& budget)
{
    QStringList out;
    r.label("count");
    for (int n = r.count16(); n > 0 && budget > 1 && !r.atEnd(); --n) {
        const int at = r.offset();
        r.label("file");
        out.append(r.strz());
        budget -= r.offset() - at;
    }
    return out;
}

template <class R>
TwoLists readTwoLists(R& r)
{
    TwoLists out;
    int budget = r.remaining() - 2;
    out.first = budgetList(r, budget);
    if (budget > 1) out.second = budgetList(r, budget);
    return out;
}

} // namespace

template <class R>
void KZProtocolResolverPrivate::decodeLoadSharedFilesReply(R& r)
{
    r.label("path");
    const QString path = r.strz();
    const TwoLists lists = readTwoLists(r);
    fire(cb.onLanLoadSharedFilesResultCB, path, lists.first, lists.second);
}

template <class R>
void KZProtocolResolverPrivate::decodeDownloadSharedFilesRequest(R& r)
{
    r.label("kind");
    const int kind = Field<sbyte>::read(r);
    r.label("path");
    const QString path = r.strz();
    const TwoLists lists = readTwoLists(r);
    fire(cb.onLanDownloadSharedFilesCB, kind, path, lists.first, lists.second);
}

// The app reply: the path travels ahead of the lists although it is the
// last argument.
template <class R>
void KZProtocolResolverPrivate::decodeAppLoadSharedFilesReply(R& r)
{
    r.label("path");
    const QString path = r.strz();
    const TwoLists lists = readTwoLists(r);
    fire(cb.onLanAppLoadSharedFilesResultCB, lists.first, lists.second, path);
}

#include "kz_sharedfiles.inc"
