#include "passwords.h"

#include <QCryptographicHash>
#include <QPasswordDigestor>
#include <QRandomGenerator>

namespace Passwords {

namespace {

QByteArray derive(const QString& password, const QByteArray& salt, int iterations)
{
    return QPasswordDigestor::deriveKeyPbkdf2(QCryptographicHash::Sha256, password.toUtf8(), salt,
                                              iterations, 32);
}

QByteArray randomBytes(int n)
{
    QByteArray b(n, '\0');
    for (char& c : b) c = char(QRandomGenerator::system()->bounded(256));
    return b;
}

bool equalInConstantTime(const QByteArray& a, const QByteArray& b)
{
    if (a.size() != b.size()) return false;
    unsigned char diff = 0;
    for (int i = 0; i < a.size(); ++i) diff |= uchar(a[i]) ^ uchar(b[i]);
    return diff == 0;
}

} // namespace

PasswordHash hash(const QString& password, int iterations)
{
    PasswordHash h;
    h.salt = randomBytes(16);
    h.iterations = iterations;
    h.hash = derive(password, h.salt, iterations);
    return h;
}

bool verify(const QString& password, const PasswordHash& stored)
{
    if (stored.isNull() || stored.iterations <= 0) {
        // Same work as for an existing account, then no.
        static const QByteArray dummySalt = randomBytes(16);
        derive(password, dummySalt, kIterations);
        return false;
    }
    return equalInConstantTime(derive(password, stored.salt, stored.iterations), stored.hash);
}

QString generate(int length)
{
    static const char alphabet[] = "abcdefghjkmnpqrstuvwxyzABCDEFGHJKLMNPQRSTUVWXYZ23456789";
    QString s;
    for (int i = 0; i < length; ++i)
        s += QLatin1Char(alphabet[QRandomGenerator::system()->bounded(int(sizeof alphabet - 1))]);
    return s;
}

QString withoutPadding(QString password)
{
    while (!password.isEmpty() && password.back().unicode() >= 1 && password.back().unicode() <= 15)
        password.chop(1);
    return password;
}

} // namespace Passwords
