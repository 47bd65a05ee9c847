// File transfer tasks: announcing and starting tasks, opening a transfer,
// content chunks and their acknowledgements, closing and ending it, progress
// reports, pause, resume and cancel, and the exchange-file table. The
// library carries these only; sequencing, chunking and the 16-byte blocks
// (digests, say) are the host's on both ends.
//
// Each message travels under one fixed flag and its decoder ignores the
// other: the begin reply has a code of its own, AddTaskUi is the reply-flag
// form of AddTask with other fields, and Percent goes under the reply flag
// while Speed goes under the request flag.
#include "kzprotocolresolver_p.h"

using namespace kz;

namespace {

/// Exactly 16 raw bytes taken from the start of a byte array: a shorter
/// array is padded with zero bytes, a longer one cut (both noted as lost).
/// The reader returns the 16 bytes, fewer at the end of the data.
struct blk16
{
};

} // namespace

namespace kz {
template <>
struct Field<blk16>
{
    using Value = QByteArray;
    static constexpr int size = 16;
    static void write(Payload& p, const QByteArray& v)
    {
        if (v.size() != size) p.noteLoss("block not of 16 bytes", v.size());
        const int n = qMin(v.size(), size);
        p << raw{v.constData(), n};
        for (int i = n; i < size; ++i) p << u8{0};
    }
    static QByteArray read(Reader& r) { return r.bytes(size); }
};
} // namespace kz

namespace {

// AddTask request: strz a, strz b, strz c, flag8 b1, flag8 b2, strlist list
// (b1 first in the API)
struct AddTask : Layout<strz, strz, strz, flag8, flag8, strlist>::Api<3, 0, 1, 2, 4, 5>
{
    static constexpr const char* names[] = {"a", "b", "c", "b1", "b2", "list"};
};

// AddTaskUi, the reply-flag form of AddTask: strz a, strz b, i32 n, strz c,
// strz d, strz e, flag8 ok (ok first in the API)
struct AddTaskUi : Layout<strz, strz, i32, strz, strz, strz, flag8>::Api<6, 0, 1, 2, 3, 4, 5>
{
    static constexpr const char* names[] = {"a", "b", "n", "c", "d", "e", "ok"};
};

// TaskBegin request: i32 n, blk16 block
struct TaskBegin : Layout<i32, blk16>
{
    static constexpr const char* names[] = {"n", "block"};
};

// Begin reply, Percent, Speed: i32 n1, n2, n3
struct Ints3 : Layout<i32, i32, i32>
{
    static constexpr const char* names[] = {"n1", "n2", "n3"};
};

// Content reply: i32 n1, n2
struct Ints2 : Layout<i32, i32>
{
    static constexpr const char* names[] = {"n1", "n2"};
};

// Close request: i32 n1, i32 n2, blk16 block
struct Close : Layout<i32, i32, blk16>
{
    static constexpr const char* names[] = {"n1", "n2", "block"};
};

// End request: i32 n, strz text, flag8 ok
struct End : Layout<i32, strz, flag8>
{
    static constexpr const char* names[] = {"n", "text", "ok"};
};

// Pause, Resume, Cancel requests: strz task, i32 n
struct TaskRef : Layout<strz, i32>
{
    static constexpr const char* names[] = {"task", "n"};
};

} // namespace

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

void KZProtocolResolverPrivate::decodeMacTsfExchangeFile(uchar flag, Reader& r)
{
    if (flag != Request) return;
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

// MacTsfFileAddTask: request AddTask | reply-flag form AddTaskUi
void KZProtocolResolver::lanMacTsfFileAddTask(bool b1, const QString& a, const QString& b,
                                              const QString& c, bool b2, const QStringList& list)
{
    d->send<AddTask>(Method::MacTsfFileAddTask, Request, b1, a, b, c, b2, list);
}

void KZProtocolResolver::lanMacTsfFileAddTaskUi(bool ok, const QString& a, const QString& b, int n,
                                                const QString& c, const QString& d_,
                                                const QString& e)
{
    // d_ is the text the header calls d (d here is the private object)
    d->send<AddTaskUi>(Method::MacTsfFileAddTask, Reply, ok, a, b, n, c, d_, e);
}

void KZProtocolResolverPrivate::decodeMacTsfFileAddTask(uchar flag, Reader& r)
{
    route<AddTask, AddTaskUi>(flag, r, cb.onLanMacTsfFileAddTaskCB, cb.onLanMacTsfFileAddTaskUiCB);
}

// MacTsfFileTaskStart: request (empty)
void KZProtocolResolver::lanMacTsfFileTaskStart()
{
    d->send<Empty>(Method::MacTsfFileTaskStart, Request);
}

void KZProtocolResolverPrivate::decodeMacTsfFileTaskStart(uchar flag, Reader& r)
{
    if (flag == Request) take<Empty>(r, cb.onLanMacTsfFileTaskStartCB);
}

// MacTsfFileTaskBegin: request TaskBegin; answered under code MacTsfFileBegin
void KZProtocolResolver::lanMacTsfFileTaskBegin(int n, const QByteArray& block)
{
    d->send<TaskBegin>(Method::MacTsfFileTaskBegin, Request, n, block);
}

void KZProtocolResolverPrivate::decodeMacTsfFileTaskBegin(uchar flag, Reader& r)
{
    if (flag == Request) take<TaskBegin>(r, cb.onLanMacTsfFileTaskBeginCB);
}

// MacTsfFileBegin: reply Ints3 (the answer to TaskBegin)
void KZProtocolResolver::lanMacTsfFileBeginResponse(int n1, int n2, int n3)
{
    d->send<Ints3>(Method::MacTsfFileBegin, Reply, n1, n2, n3);
}

void KZProtocolResolverPrivate::decodeMacTsfFileBegin(uchar flag, Reader& r)
{
    if (flag == Reply) take<Ints3>(r, cb.onLanMacTsfFileBeginResultCB);
}

// MacTsfFileContent: request i32 p, i32 q, i32 r, i32 len, blk16 block, len bytes of data
//                    reply   Ints2
// The data has no prefix of its own: len says how much the receiver takes.
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

void KZProtocolResolver::lanMacTsfFileContentResponse(int n1, int n2)
{
    d->send<Ints2>(Method::MacTsfFileContent, Reply, n1, n2);
}

void KZProtocolResolverPrivate::decodeMacTsfFileContent(uchar flag, Reader& r)
{
    if (flag == Reply) return take<Ints2>(r, cb.onLanMacTsfFileContentResultCB);
    if (flag != Request) return;
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

// MacTsfFileClose: request Close
void KZProtocolResolver::lanMacTsfFileClose(int n1, int n2, const QByteArray& block)
{
    d->send<Close>(Method::MacTsfFileClose, Request, n1, n2, block);
}

void KZProtocolResolverPrivate::decodeMacTsfFileClose(uchar flag, Reader& r)
{
    if (flag == Request) take<Close>(r, cb.onLanMacTsfFileCloseCB);
}

// MacTsfFileEnd: request End
void KZProtocolResolver::lanMacTsfFileEnd(int n, const QString& text, bool ok)
{
    d->send<End>(Method::MacTsfFileEnd, Request, n, text, ok);
}

void KZProtocolResolverPrivate::decodeMacTsfFileEnd(uchar flag, Reader& r)
{
    if (flag == Request) take<End>(r, cb.onLanMacTsfFileEndCB);
}

// MacTsfFilePercent: Ints3 under the reply flag
void KZProtocolResolver::lanMacTsfFilePercent(int n1, int n2, int n3)
{
    d->send<Ints3>(Method::MacTsfFilePercent, Reply, n1, n2, n3);
}

void KZProtocolResolverPrivate::decodeMacTsfFilePercent(uchar flag, Reader& r)
{
    if (flag == Reply) take<Ints3>(r, cb.onLanMacTsfFilePercentCB);
}

// MacTsfFileSpeed: Ints3 under the request flag
void KZProtocolResolver::lanMacTsfFileSpeed(int n1, int n2, int n3)
{
    d->send<Ints3>(Method::MacTsfFileSpeed, Request, n1, n2, n3);
}

void KZProtocolResolverPrivate::decodeMacTsfFileSpeed(uchar flag, Reader& r)
{
    if (flag == Request) take<Ints3>(r, cb.onLanMacTsfFileSpeedCB);
}

// MacTsfFilePause, MacTsfFileResume, MacTsfFileCancel: request TaskRef
void KZProtocolResolver::lanMacTsfFilePause(const QString& task, int n)
{
    d->send<TaskRef>(Method::MacTsfFilePause, Request, task, n);
}

void KZProtocolResolver::lanMacTsfFileResume(const QString& task, int n)
{
    d->send<TaskRef>(Method::MacTsfFileResume, Request, task, n);
}

void KZProtocolResolver::lanMacTsfFileCancel(const QString& task, int n)
{
    d->send<TaskRef>(Method::MacTsfFileCancel, Request, task, n);
}

void KZProtocolResolverPrivate::decodeMacTsfFilePause(uchar flag, Reader& r)
{
    if (flag == Request) take<TaskRef>(r, cb.onLanMacTsfFilePauseCB);
}

void KZProtocolResolverPrivate::decodeMacTsfFileResume(uchar flag, Reader& r)
{
    if (flag == Request) take<TaskRef>(r, cb.onLanMacTsfFileResumeCB);
}

void KZProtocolResolverPrivate::decodeMacTsfFileCancel(uchar flag, Reader& r)
{
    if (flag == Request) take<TaskRef>(r, cb.onLanMacTsfFileCancelCB);
}
