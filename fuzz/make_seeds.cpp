// Writes the seed corpora of the fuzz targets and their dictionary, made from
// the method table and from the resolver's own encoders, into DIR:
//   DIR/<target>/<seed>   one directory per target
//   DIR/kz.dict           sync marker, frame starts, piece tag, method codes
// Run at build time, so the seeds follow the method table as it grows.
//
// Usage: kzfuzz_seeds DIR
#include "fuzz_util.h"
#include "kzprotocolresolver.h"
#include "qaesencryption.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QRandomGenerator>

namespace {

struct Name
{
    const char* name;
    quint16 code;
};

const Name kNames[] = {
#define KZ_METHOD(name, code, family) {#name, code},
#include "methods.def"
#undef KZ_METHOD
};

QDir g_root;
int g_written = 0;

void put(const char* target, const QString& name, const QByteArray& bytes)
{
    g_root.mkpath(QString::fromLatin1(target));
    QFile f(g_root.filePath(QString::fromLatin1(target) + QLatin1Char('/') + name));
    if (!f.open(QIODevice::WriteOnly | QIODevice::Truncate) || f.write(bytes) != bytes.size()) {
        std::fprintf(stderr, "kzfuzz_seeds: cannot write %s\n", qPrintable(f.fileName()));
        std::exit(1);
    }
    ++g_written;
}

QByteArray le16(int v) { return QByteArray(1, char(v & 0xFF)) + char((v >> 8) & 0xFF); }

// A payload that the common field forms can all read something from: a
// strlist count and two texts, an i32, a number as text, a map count and one
// entry, a blob32 of three bytes, and a few flag bytes.
QByteArray genericPayload()
{
    QByteArray p;
    p += le16(2) + QByteArray("a\0bc\0", 5);
    p += QByteArray("\x05\x00\x00\x00", 4);
    p += QByteArray("12.5\0", 5);
    p += le16(1) + QByteArray("key\0", 4) + QByteArray("\x07\x00\x00\x00", 4);
    p += QByteArray("\x03\x00\x00\x00xyz", 7);
    p += QByteArray("\x00\x01\x00", 3);
    return p;
}

/// Frames that a resolver hands out while `send` runs.
template <class F>
QByteArray sent(F send, int capacity = 0)
{
    struct Sink
    {
        static void onFrame(void* ctx, char* bytes, int n)
        {
            static_cast<QByteArray*>(ctx)->append(bytes, n);
            std::free(bytes);
        }
    };
    QByteArray stream;
    KZProtocolResolver r(capacity);
    r.setReceiveData(&stream);
    r.setParsePackResult(&Sink::onFrame);
    send(r);
    return stream;
}

QByteArray sessionTraffic()
{
    return sent([](KZProtocolResolver& r) {
        r.lanLogin(QStringLiteral("operator"), QStringLiteral("secret"));
        r.lanLoginResult(true, 5, false);
        r.lanLogout(7);
    });
}

QByteArray splitTraffic()
{
    return sent([](KZProtocolResolver& r) {
        r.lanLogin(QString(3000, QLatin1Char('a')), QStringLiteral("pw"));
        r.lanLogout(1);
    });
}

void decodeSeeds()
{
    const QByteArray payload = genericPayload();
    for (int i = 0; i < kzfuzz::kCodeCount; ++i) {
        for (int flag = 0; flag < 2; ++flag) {
            QByteArray in;
            in += char(flag);
            in += char(i);
            in += le16(kNames[i].code);
            put("decode_fuzz", QStringLiteral("%1-%2").arg(QLatin1String(kNames[i].name)).arg(flag),
                in + payload);
        }
    }
    put("decode_fuzz", QStringLiteral("unknown-code"), QByteArray("\x00\xff\x03\x00", 4) + payload);
}

/// Frames of generic bodies for a run of method codes, both flags.
QByteArray genericTraffic(int from, int to)
{
    QByteArray stream;
    for (int i = from; i < to && i < kzfuzz::kCodeCount; ++i)
        for (int flag = 0; flag < 2; ++flag)
            stream +=
                kzfuzz::frame(kzfuzz::body(quint8(flag), kNames[i].code, genericPayload()), i);
    return stream;
}

QByteArray withCuts(const QList<int>& cuts, const QByteArray& stream)
{
    QByteArray in(1, char(cuts.size()));
    for (int c : cuts) in += le16(c);
    return in + stream;
}

void streamSeeds()
{
    const QByteArray session = sessionTraffic();
    put("stream_fuzz", QStringLiteral("session"), withCuts({}, session));
    put("stream_fuzz", QStringLiteral("session-cut"), withCuts({5, 40, 77}, session));
    put("stream_fuzz", QStringLiteral("split"), withCuts({}, splitTraffic()));
    put("stream_fuzz", QStringLiteral("split-cut"), withCuts({1000, 2100}, splitTraffic()));
    for (int from = 0; from < kzfuzz::kCodeCount; from += 16)
        put("stream_fuzz", QStringLiteral("codes-%1").arg(from),
            withCuts({}, genericTraffic(from, from + 16)));

    QRandomGenerator rng(5);
    QByteArray noisy;
    for (const QByteArray& f : {session, genericTraffic(0, 2)}) {
        for (int i = 0; i < 13; ++i) noisy += char(rng.bounded(256));
        noisy += "KZ\x01";
        noisy += f;
    }
    put("stream_fuzz", QStringLiteral("garbage-between"), withCuts({}, noisy));
}

void frameSeeds()
{
    // Receive mode: u8 0, limit choice, reset-at, cut count, cuts, bytes.
    const auto receive = [](int limit, int resetAt, const QByteArray& bytes) {
        return QByteArray(1, '\0') + char(limit) + char(resetAt) + withCuts({}, bytes);
    };
    put("frame_fuzz", QStringLiteral("rx-session"), receive(4, 0, sessionTraffic()));
    put("frame_fuzz", QStringLiteral("rx-split"), receive(4, 0, splitTraffic()));
    put("frame_fuzz", QStringLiteral("rx-split-limit"), receive(2, 0, splitTraffic()));
    put("frame_fuzz", QStringLiteral("rx-reset"), receive(4, 2, sessionTraffic()));
    put("frame_fuzz", QStringLiteral("rx-codes"), receive(4, 0, genericTraffic(0, 8)));

    // Pack mode: u8 1, piece mode, u16 capacity, u8 attr length, attr, body.
    QByteArray body;
    for (int i = 0; i < 300; ++i) body += char(i * 7);
    const auto pack = [&body](int mode, int capacity, const QByteArray& attr) {
        return QByteArray(1, '\1') + char(mode) + le16(capacity) + char(attr.size()) + attr + body;
    };
    put("frame_fuzz", QStringLiteral("pack-whole"), pack(0, 0, "ab"));
    put("frame_fuzz", QStringLiteral("pack-fresh"), pack(0, 100, "ab"));
    put("frame_fuzz", QStringLiteral("pack-own"), pack(1, 64, ""));
    put("frame_fuzz", QStringLiteral("pack-packed"), pack(2, 80, "x"));
    put("frame_fuzz", QStringLiteral("pack-tag"), pack(0, 400, "\x01P1:300:0"));
}

void cipherSeeds()
{
    // u8 level, u8 mode, u8 key length, u8 vector length, key, vector, data.
    const auto input = [](int level, int mode, const QByteArray& key, const QByteArray& iv,
                          const QByteArray& data) {
        return QByteArray(1, char(level)) + char(mode) + char(key.size()) + char(iv.size()) + key +
               iv + data;
    };
    QByteArray key32;
    for (int i = 0; i < 32; ++i) key32 += char(i);
    // The single-block examples of FIPS-197, appendix C, as ciphertexts.
    put("cipher_fuzz", QStringLiteral("ecb-128"),
        input(0, 0, key32.left(16), {}, QByteArray::fromHex("69c4e0d86a7b0430d8cdb78070b4c55a")));
    put("cipher_fuzz", QStringLiteral("ecb-192"),
        input(1, 0, key32.left(24), {}, QByteArray::fromHex("dda97ca4864cdfe06eaf70a0ec0d7191")));
    put("cipher_fuzz", QStringLiteral("ecb-256"),
        input(2, 0, key32, {}, QByteArray::fromHex("8ea2b7ca516745bfeafc49904b496089")));

    // The login password's cipher.
    const QByteArray key =
        QString::fromLatin1(QCryptographicHash::hash("KMBRKMBR", QCryptographicHash::Md5).toHex())
            .mid(8, 16)
            .toLatin1();
    const QByteArray iv("-KMBR-VTQDN-NET-");
    const QByteArray secret =
        QAESEncryption(QAESEncryption::AES_128, QAESEncryption::CBC).encode("secret", key, iv);
    put("cipher_fuzz", QStringLiteral("cbc-login"), input(0, 1, key, iv, secret));
    put("cipher_fuzz", QStringLiteral("cfb-partial"), input(0, 2, key, iv, "twenty bytes of text"));
    put("cipher_fuzz", QStringLiteral("cbc-short-iv"), input(0, 1, key, iv.left(15), secret));
}

void codingSeeds()
{
    // u8 alignment, u8 position scale, u16 position, then the bytes: runs
    // around the block sizes of the vector kernels.
    const auto input = [](int align, int scale, int position, int n) {
        QByteArray b(4 + n, '\0');
        b[0] = char(align), b[1] = char(scale), b[2] = char(position), b[3] = char(position >> 8);
        for (int i = 0; i < n; ++i) b[4 + i] = char(i * 131 + 7);
        return b;
    };
    put("coding_fuzz", QStringLiteral("empty"), input(0, 0, 0, 0));
    put("coding_fuzz", QStringLiteral("short"), input(3, 0, 5, 15));
    put("coding_fuzz", QStringLiteral("blocks"), input(1, 0, 1, 257));
    put("coding_fuzz", QStringLiteral("frame"), input(30, 0, 2013, 2014));
    put("coding_fuzz", QStringLiteral("far"), input(7, 33, 777, 4097));
}

void dictionary()
{
    QByteArray d = "# kzresolver fuzz dictionary: frame marks and method codes\n"
                   "sync=\"KZ\"\n"
                   "whole=\"KZ\\x01\\x00\"\n"
                   "piece=\"KZ\\x01\\x01\"\n"
                   "type=\"\\x11\"\n"
                   "tag=\"\\x01P\"\n"
                   "name=\"data,\"\n";
    for (const Name& n : kNames)
        d += QStringLiteral("%1=\"\\x%2\\x%3\"\n")
                 .arg(QLatin1String(n.name))
                 .arg(n.code & 0xFF, 2, 16, QLatin1Char('0'))
                 .arg(n.code >> 8, 2, 16, QLatin1Char('0'))
                 .toLatin1();
    QFile f(g_root.filePath(QStringLiteral("kz.dict")));
    if (!f.open(QIODevice::WriteOnly | QIODevice::Truncate) || f.write(d) != d.size()) {
        std::fprintf(stderr, "kzfuzz_seeds: cannot write the dictionary\n");
        std::exit(1);
    }
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::fprintf(stderr, "usage: kzfuzz_seeds DIR\n");
        return 2;
    }
    const QString dir = QString::fromLocal8Bit(argv[1]);
    if (!QDir().mkpath(dir)) {
        std::fprintf(stderr, "kzfuzz_seeds: cannot create %s\n", argv[1]);
        return 1;
    }
    g_root = QDir(dir);
    decodeSeeds();
    streamSeeds();
    frameSeeds();
    cipherSeeds();
    codingSeeds();
    dictionary();
    std::printf("kzfuzz_seeds: %d seeds and kz.dict in %s\n", g_written, argv[1]);
    return 0;
}
