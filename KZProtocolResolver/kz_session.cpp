// Session messages: login and logout. The login's codec is written here, for
// its cipher: the password travels AES-128-CBC enciphered under a key built
// from a stored seed each time it is needed (never stored itself), with a
// fixed vector. The rest comes from protocol/session.table.
#include "kzprotocolresolver_p.h"
#include "qaesencryption.h"

#include <QCryptographicHash>

using namespace kz;

namespace {

QByteArray credentialKey()
{
    const QByteArray digest =
        QCryptographicHash::hash(QStringLiteral("KMBRKMBR").toLatin1(), QCryptographicHash::Md5)
            .toHex();
    return QString::fromLatin1(digest).mid(8, 16).toLocal8Bit();
}

QByteArray credentialVector() { return QStringLiteral("-KMBR-VTQDN-NET-").toLocal8Bit(); }

QByteArray encipher(const QByteArray& plain)
{
    QAESEncryption aes(QAESEncryption::AES_128, QAESEncryption::CBC);
    return aes.encode(plain, credentialKey(), credentialVector());
}

QByteArray decipher(const QByteArray& cipher)
{
    QAESEncryption aes(QAESEncryption::AES_128, QAESEncryption::CBC);
    return aes.decode(cipher, credentialKey(), credentialVector());
}

} // namespace

// Login: request str16 account | u16 n | n bytes ciphertext
//        reply   i32 code&~1 | flag8 first | flag8 code bit 0 | flag8 second
void KZProtocolResolver::lanLogin(const QString& account, const QString& password)
{
    const QByteArray cipher = encipher(password.toUtf8());
    d->send(Method::Login, Request,
            Payload() << str16{account} << count16(cipher.size())
                      << raw{cipher.constData(), int(cipher.size())});
}

void KZProtocolResolver::lanLoginResult(bool first, int code, bool second)
{
    d->send(Method::Login, Reply,
            Payload() << i32{code & ~1} << flag8{first} << flag8{(code & 1) != 0} << flag8{second});
}

template <class R>
void KZProtocolResolverPrivate::decodeLoginRequest(R& r)
{
    r.label("account");
    const QString account = r.str16();
    r.label("passwordSize");
    const int size = r.i16();
    r.label("password");
    const QByteArray plain = decipher(r.bytes(size));
    const int z = plain.indexOf('\0');
    // Cut at the first zero byte; cipher padding (1..15) stays at the end.
    fire(cb.onLanLoginCB, account, QString::fromUtf8(plain.constData(), z < 0 ? plain.size() : z));
}

template <class R>
void KZProtocolResolverPrivate::decodeLoginReply(R& r)
{
    r.label("code");
    const int code = r.i32();
    r.label("first");
    const bool first = r.flag8();
    r.label("codeBit0");
    const bool bit0 = r.flag8();
    r.label("second");
    const bool second = r.flag8();
    fire(cb.onLanLoginResultCB, first, code, bit0, second);
}

#include "kz_session.inc"
