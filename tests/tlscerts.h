// Certificates for the TLS tests, made by the openssl command in a folder of
// the test's own: a self-signed one (which may sign others) and ones signed
// by it. Keys are EC P-256, quick to make and to use.
#ifndef KZ_TESTS_TLSCERTS_H
#define KZ_TESTS_TLSCERTS_H

#include <QString>

namespace tlscerts {

/// A certificate and its private key, as PEM files.
struct Identity
{
    QString cert;
    QString key;
};

/// A self-signed certificate with the common name `name` and the
/// subjectAltName entries `altNames` ("DNS:localhost,IP:127.0.0.1"), in
/// `dir`; empty paths (and a test failure) if openssl failed.
Identity selfSigned(const QString& dir, const QString& name, const QString& altNames);

/// A certificate for `name` and `altNames` signed by `ca`.
Identity signedBy(const Identity& ca, const QString& dir, const QString& name,
                  const QString& altNames);

/// A copy of `id`'s key in `path`, protected by a passphrase.
bool passphraseProtected(const Identity& id, const QString& path);

} // namespace tlscerts

#endif
