// Login and logout between two resolvers, the exact reply bytes, the
// password cipher checked against OpenSSL, and short login payloads.
#include "kzprotocolresolver_p.h"
#include "support.h"

#include <QCryptographicHash>

#include <gtest/gtest.h>
#include <openssl/evp.h>

using namespace kztest;

namespace {

struct Seen
{
    int logins = 0, results = 0, logouts = 0;
    QString account, password;
    bool first = false, bit0 = false, second = false;
    int code = -1, value = -1;
};

void onLogin(void* c, const QString& a, const QString& p)
{
    auto* s = static_cast<Seen*>(c);
    ++s->logins;
    s->account = a;
    s->password = p;
}
void onResult(void* c, bool first, int code, bool bit0, bool second)
{
    auto* s = static_cast<Seen*>(c);
    ++s->results;
    s->first = first;
    s->code = code;
    s->bit0 = bit0;
    s->second = second;
}
void onLogout(void* c, int v)
{
    ++static_cast<Seen*>(c)->logouts;
    static_cast<Seen*>(c)->value = v;
}

void listen(Wire& w)
{
    w.receiver.setLanLoginCB(&onLogin);
    w.receiver.setLanLoginResultCB(&onResult);
    w.receiver.setLanLogoutCB(&onLogout);
}

QByteArray opensslCbc(const QByteArray& plain)
{
    const QByteArray key =
        QCryptographicHash::hash("KMBRKMBR", QCryptographicHash::Md5).toHex().mid(8, 16);
    const QByteArray iv("-KMBR-VTQDN-NET-");
    QByteArray padded = plain;
    const int r = plain.size() % 16;
    if (r) padded.append(QByteArray(16 - r, char(16 - r)));
    QByteArray out(padded.size() + 16, '\0');
    EVP_CIPHER_CTX* ctx = EVP_CIPHER_CTX_new();
    EVP_EncryptInit_ex(ctx, EVP_aes_128_cbc(), nullptr,
                       reinterpret_cast<const uchar*>(key.constData()),
                       reinterpret_cast<const uchar*>(iv.constData()));
    EVP_CIPHER_CTX_set_padding(ctx, 0);
    int n = 0, m = 0;
    EVP_EncryptUpdate(ctx, reinterpret_cast<uchar*>(out.data()), &n,
                      reinterpret_cast<const uchar*>(padded.constData()), padded.size());
    EVP_EncryptFinal_ex(ctx, reinterpret_cast<uchar*>(out.data()) + n, &m);
    EVP_CIPHER_CTX_free(ctx);
    return out.left(n + m);
}

} // namespace

TEST(Login, RoundTripDeciphersThePassword)
{
    Seen seen;
    Wire w(&seen);
    listen(w);
    w.sender.lanLogin(QStringLiteral("b\u00f6b"), QStringLiteral("0123456789abcdef")); // 16 bytes
    w.deliver();
    EXPECT_EQ(seen.logins, 1);
    EXPECT_EQ(seen.account, QStringLiteral("b\u00f6b"));
    EXPECT_EQ(seen.password, QStringLiteral("0123456789abcdef"));

    // A shorter password arrives with the cipher's padding bytes at its end.
    w.sender.lanLogin(QStringLiteral("a"), QStringLiteral("secret"));
    w.deliver();
    EXPECT_EQ(seen.password, QStringLiteral("secret") + QString(10, QChar(10)));
}

TEST(Login, PayloadMatchesAnIndependentCipher)
{
    for (const char* pw : {"", "pw", "0123456789abcdef", "0123456789abcdefg"}) {
        FrameSink sink;
        KZProtocolResolver r;
        sink.attach(r);
        r.lanLogin(QStringLiteral("op"), QString::fromUtf8(pw));
        const QByteArray cipher = opensslCbc(QByteArray(pw));
        const QByteArray expected = unhex("03 00 6f 70 00") + QByteArray(1, char(cipher.size())) +
                                    QByteArray(1, '\0') + cipher;
        EXPECT_EQ(hex(payloadOf(sink.stream())), hex(expected)) << pw;
    }
}

TEST(Login, ResultBytesAndDecoding)
{
    const struct
    {
        bool first;
        int code;
        bool second;
        const char* bytes;
        bool bit0;
    } cases[] = {
        {true, 5, false, "04 00 00 00 00 00 01", true},
        {false, 0, true, "00 00 00 00 01 01 00", false},
        {true, -1, true, "fe ff ff ff 00 00 00", true},
    };
    for (const auto& c : cases) {
        Seen seen;
        Wire w(&seen);
        listen(w);
        w.sender.lanLoginResult(c.first, c.code, c.second);
        EXPECT_EQ(hex(payloadOf(w.sink.stream())), QString::fromLatin1(c.bytes));
        EXPECT_EQ(bodiesOf(w.sink.stream()).value(0).at(0), '\1'); // reply flag
        w.deliver();
        EXPECT_EQ(seen.results, 1);
        EXPECT_EQ(seen.first, c.first);
        EXPECT_EQ(seen.code, c.code & ~1);
        EXPECT_EQ(seen.bit0, c.bit0);
        EXPECT_EQ(seen.second, c.second);
        EXPECT_EQ(seen.logins, 0);
    }
}

TEST(Login, LogoutRequestOnlyAndUnsetCallbacksAreSkipped)
{
    Seen seen;
    Wire w(&seen);
    w.sender.lanLogin(QStringLiteral("a"), QStringLiteral("b"));
    w.sender.lanLoginResult(true, 1, true);
    w.sender.lanLogout(1);
    w.deliver(); // nothing to call, nothing to crash
    listen(w);
    w.sender.lanLogout(-7);
    w.deliver();
    EXPECT_EQ(seen.logouts, 1);
    EXPECT_EQ(seen.value, -7);
    EXPECT_EQ(seen.results + seen.logins, 0);
}

TEST(Login, TruncatedPayloadsStayInsideAndStillFire)
{
    FrameSink sink;
    KZProtocolResolver r;
    sink.attach(r);
    r.lanLogin(QStringLiteral("account"), QStringLiteral("password"));
    r.lanLoginResult(true, 3, false);
    for (const QByteArray& body : bodiesOf(sink.stream())) {
        for (int n = 4; n < body.size(); ++n) {
            Seen seen;
            KZProtocolResolver rx;
            rx.setReceiveData(&seen);
            rx.setLanLoginCB(&onLogin);
            rx.setLanLoginResultCB(&onResult);
            QByteArray cut(body.constData(), n); // exactly n bytes, no terminator
            KZProtocolResolverPrivate::get(&rx)->dispatch(
                reinterpret_cast<const uchar*>(cut.constData()), n - 4);
            EXPECT_EQ(seen.logins + seen.results, 1) << n;
        }
    }
}
