// Machine file operations: listing the files of a machine, renaming,
// executing and deleting them. Their status replies decode by flipping the
// low bit of the byte (flag8x), unlike the zero test of most replies.
#include "kzprotocolresolver_p.h"

using namespace kz;

namespace {

// MacFiles request: strz mac, strz path, sbyte mode
struct MacFiles : Layout<strz, strz, sbyte>
{
    static constexpr const char* names[] = {"mac", "path", "mode"};
};

// MacRenameFile request: strz mac, strz from, strz to
struct RenameFile : Layout<strz, strz, strz>
{
    static constexpr const char* names[] = {"mac", "from", "to"};
};

// MacExecuteFile request: strz mac, strz file
struct ExecuteFile : Layout<strz, strz>
{
    static constexpr const char* names[] = {"mac", "file"};
};

// MacDeleteFile request: strz mac, strlist files (read while bytes remain)
struct DeleteFile : Layout<strz, strlist>
{
    static constexpr const char* names[] = {"mac", "files"};
};

// The replies of rename, execute and delete: one status byte
struct Status : Layout<flag8x>
{
    static constexpr const char* names[] = {"ok"};
};

} // namespace

// MacFiles: request MacFiles
//           reply   strz path, u16 n, i16 value, n x strz file
// The count stands ahead of the value, apart from its entries: kept as the
// peers read it.
void KZProtocolResolver::lanMacFiles(const QString& mac, const QString& path, int mode)
{
    d->send<MacFiles>(Method::MacFiles, Request, mac, path, mode);
}

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

void KZProtocolResolverPrivate::decodeMacFiles(uchar flag, Reader& r)
{
    if (flag == Request) return take<MacFiles>(r, cb.onLanMacFilesCB);
    if (flag != Reply) return;
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

// MacRenameFile: request RenameFile | reply Status
void KZProtocolResolver::lanMacRenameFile(const QString& mac, const QString& from,
                                          const QString& to)
{
    d->send<RenameFile>(Method::MacRenameFile, Request, mac, from, to);
}

void KZProtocolResolver::lanMacRenameFileResponse(bool ok)
{
    d->send<Status>(Method::MacRenameFile, Reply, ok);
}

void KZProtocolResolverPrivate::decodeMacRenameFile(uchar flag, Reader& r)
{
    route<RenameFile, Status>(flag, r, cb.onLanMacRenameFileCB, cb.onLanMacRenameFileResultCB);
}

// MacExecuteFile: request ExecuteFile | reply Status
void KZProtocolResolver::lanMacExecuteFile(const QString& mac, const QString& file)
{
    d->send<ExecuteFile>(Method::MacExecuteFile, Request, mac, file);
}

void KZProtocolResolver::lanMacExecuteFileResponse(bool ok)
{
    d->send<Status>(Method::MacExecuteFile, Reply, ok);
}

void KZProtocolResolverPrivate::decodeMacExecuteFile(uchar flag, Reader& r)
{
    route<ExecuteFile, Status>(flag, r, cb.onLanMacExecuteFileCB, cb.onLanMacExecuteFileResultCB);
}

// MacDeleteFile: request DeleteFile | reply Status
void KZProtocolResolver::lanMacDeleteFile(const QString& mac, const QStringList& files)
{
    d->send<DeleteFile>(Method::MacDeleteFile, Request, mac, files);
}

void KZProtocolResolver::lanMacDeleteFileResponse(bool ok)
{
    d->send<Status>(Method::MacDeleteFile, Reply, ok);
}

void KZProtocolResolverPrivate::decodeMacDeleteFile(uchar flag, Reader& r)
{
    route<DeleteFile, Status>(flag, r, cb.onLanMacDeleteFileCB, cb.onLanMacDeleteFileResultCB);
}
