// Shared files: the two lists of shared files under a text, for management
// clients and for app clients, and a request to download some of them.
#include "kzprotocolresolver_p.h"

using namespace kz;

namespace {

// LoadSharedFiles request: strz path, sbyte kind (kind first in the API)
struct LoadShared : Layout<strz, sbyte>::Api<1, 0>
{
    static constexpr const char* names[] = {"path", "kind"};
};

// LoadSharedFiles reply: strz path, strlist first, strlist second
struct SharedLists : Layout<strz, strlist, strlist>
{
    static constexpr const char* names[] = {"path", "first", "second"};
};

// AppLoadSharedFiles reply: the same fields, the path last in the API
struct AppSharedLists : Layout<strz, strlist, strlist>::Api<1, 2, 0>
{
    static constexpr const char* names[] = {"path", "first", "second"};
};

// DownloadSharedFiles request: sbyte kind, strz path, strlist first, strlist second
struct Download : Layout<sbyte, strz, strlist, strlist>
{
    static constexpr const char* names[] = {"kind", "path", "first", "second"};
};

// The two lists as the peers read them: one running budget serves both. It
// starts at the bytes after the first count and falls by each entry's bytes;
// an entry is read only while more than one byte of it is left, and so is the
// second count, which does not use budget itself. Both lists stop at the end
// of the data as well.
struct TwoLists
{
    QStringList first, second;
};

QStringList budgetList(Reader& r, int& budget)
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

TwoLists readTwoLists(Reader& r)
{
    TwoLists out;
    int budget = r.remaining() - 2;
    out.first = budgetList(r, budget);
    if (budget > 1) out.second = budgetList(r, budget);
    return out;
}

} // namespace

// LoadSharedFiles: request LoadShared | reply SharedLists (lists by the shared budget)
void KZProtocolResolver::lanLoadSharedFiles(int kind, const QString& path)
{
    d->send<LoadShared>(Method::LoadSharedFiles, Request, kind, path);
}

void KZProtocolResolver::lanLoadSharedFilesResponse(const QString& path, const QStringList& first,
                                                    const QStringList& second)
{
    d->send<SharedLists>(Method::LoadSharedFiles, Reply, path, first, second);
}

void KZProtocolResolverPrivate::decodeLoadSharedFiles(uchar flag, Reader& r)
{
    if (flag == Request) return take<LoadShared>(r, cb.onLanLoadSharedFilesCB);
    if (flag != Reply) return;
    r.label("path");
    const QString path = r.strz();
    const TwoLists lists = readTwoLists(r);
    fire(cb.onLanLoadSharedFilesResultCB, path, lists.first, lists.second);
}

// DownloadSharedFiles: request Download (lists by the shared budget), no reply
void KZProtocolResolver::lanDownloadSharedFiles(int kind, const QString& path,
                                                const QStringList& first, const QStringList& second)
{
    d->send<Download>(Method::DownloadSharedFiles, Request, kind, path, first, second);
}

void KZProtocolResolverPrivate::decodeDownloadSharedFiles(uchar flag, Reader& r)
{
    if (flag != Request) return;
    r.label("kind");
    const int kind = Field<sbyte>::read(r);
    r.label("path");
    const QString path = r.strz();
    const TwoLists lists = readTwoLists(r);
    fire(cb.onLanDownloadSharedFilesCB, kind, path, lists.first, lists.second);
}

// AppLoadSharedFiles: request Text (the path) | reply AppSharedLists: the
// path travels ahead of the lists although it is the last argument.
void KZProtocolResolver::lanAppLoadSharedFiles(const QString& path)
{
    d->send<Text>(Method::AppLoadSharedFiles, Request, path);
}

void KZProtocolResolver::lanAppLoadSharedFilesResult(const QStringList& first,
                                                     const QStringList& second, const QString& path)
{
    d->send<AppSharedLists>(Method::AppLoadSharedFiles, Reply, first, second, path);
}

void KZProtocolResolverPrivate::decodeAppLoadSharedFiles(uchar flag, Reader& r)
{
    if (flag == Request) return take<Text>(r, cb.onLanAppLoadSharedFilesCB);
    if (flag != Reply) return;
    r.label("path");
    const QString path = r.strz();
    const TwoLists lists = readTwoLists(r);
    fire(cb.onLanAppLoadSharedFilesResultCB, lists.first, lists.second, path);
}
