// Reading the PEM files that kzlan-server and kzlan-client are given for TLS,
// with error messages that name the file and say what is wrong with it.
#ifndef KZLAN_PEMFILES_H
#define KZLAN_PEMFILES_H

#include <QList>
#include <QSslCertificate>
#include <QString>

/// The certificates in the PEM file at `path`, in file order; empty with
/// `*error` set if the file cannot be read or holds none.
QList<QSslCertificate> readPemCertificates(const QString& path, QString* error);

/// The bytes of the file at `path`; null with `*error` set if it cannot be read.
QByteArray readPemFile(const QString& path, QString* error);

#endif
