// Salted password hashes for the server's accounts: PBKDF2 with SHA-256.
#ifndef KZLAN_PASSWORDS_H
#define KZLAN_PASSWORDS_H

#include <QByteArray>
#include <QString>

/// A stored password: what the users table keeps instead of the text.
struct PasswordHash
{
    QByteArray salt; ///< random, 16 bytes, one per user
    QByteArray hash; ///< PBKDF2-SHA256 of the UTF-8 password, 32 bytes
    int iterations = 0;

    bool isNull() const { return hash.isEmpty(); }
};

namespace Passwords {

/// Iterations for new hashes. Each hash stores its own count, so raising
/// this leaves existing accounts working.
constexpr int kIterations = 20000;

/// A fresh salt and the hash of `password` under it.
PasswordHash hash(const QString& password, int iterations = kIterations);

/// Whether `password` matches `stored`, comparing in constant time. A null
/// `stored` (no such account) costs as much as a real check and fails, so
/// that timing does not tell a wrong name from a wrong password.
bool verify(const QString& password, const PasswordHash& stored);

/// A random password of `length` characters from an unambiguous alphabet.
QString generate(int length = 16);

/// The password as it arrives in a login: the text that the cipher's
/// padding (bytes 1 to 15) has been appended to, without that padding.
QString withoutPadding(QString password);

} // namespace Passwords

#endif
