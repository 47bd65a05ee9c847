#include "pemfiles.h"

#include <QFile>

QByteArray readPemFile(const QString& path, QString* error)
{
    QFile f(path);
    if (!f.open(QIODevice::ReadOnly)) {
        *error = QStringLiteral("cannot read %1: %2").arg(path, f.errorString());
        return QByteArray();
    }
    const QByteArray bytes = f.readAll();
    if (bytes.isNull()) return QByteArray(""); // an empty file is read, not failed
    return bytes;
}

QList<QSslCertificate> readPemCertificates(const QString& path, QString* error)
{
    const QByteArray bytes = readPemFile(path, error);
    if (bytes.isNull()) return {};
    const QList<QSslCertificate> certs = QSslCertificate::fromData(bytes, QSsl::Pem);
    if (certs.isEmpty())
        *error =
            QStringLiteral("%1 holds no PEM certificate (-----BEGIN CERTIFICATE-----)").arg(path);
    return certs;
}
