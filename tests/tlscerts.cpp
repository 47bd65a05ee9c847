#include "tlscerts.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QProcess>

namespace tlscerts {

namespace {

bool openssl(const QStringList& args)
{
    QProcess p;
    p.start(QStringLiteral("openssl"), args);
    const bool ok =
        p.waitForFinished(30000) && p.exitStatus() == QProcess::NormalExit && p.exitCode() == 0;
    if (!ok)
        ADD_FAILURE() << "openssl " << args.join(QLatin1Char(' ')).toStdString() << ": "
                      << p.readAllStandardError().toStdString() << p.errorString().toStdString();
    return ok;
}

Identity named(const QString& dir, const QString& name)
{
    return {QDir(dir).filePath(name + QStringLiteral(".crt")),
            QDir(dir).filePath(name + QStringLiteral(".key"))};
}

const QStringList kNewKey = {
    QStringLiteral("-newkey"), QStringLiteral("ec"), QStringLiteral("-pkeyopt"),
    QStringLiteral("ec_paramgen_curve:prime256v1"), QStringLiteral("-nodes")};

} // namespace

Identity selfSigned(const QString& dir, const QString& name, const QString& altNames)
{
    const Identity id = named(dir, name);
    const bool ok = openssl(QStringList{QStringLiteral("req"), QStringLiteral("-x509")} + kNewKey +
                            QStringList{QStringLiteral("-days"), QStringLiteral("30"),
                                        QStringLiteral("-keyout"), id.key, QStringLiteral("-out"),
                                        id.cert, QStringLiteral("-subj"),
                                        QStringLiteral("/CN=") + name, QStringLiteral("-addext"),
                                        QStringLiteral("subjectAltName=") + altNames});
    return ok ? id : Identity{};
}

Identity signedBy(const Identity& ca, const QString& dir, const QString& name,
                  const QString& altNames)
{
    const Identity id = named(dir, name);
    const QString request = QDir(dir).filePath(name + QStringLiteral(".csr"));
    const QString extensions = QDir(dir).filePath(name + QStringLiteral(".ext"));
    QFile ext(extensions);
    if (!ext.open(QIODevice::WriteOnly)) return {};
    ext.write(QStringLiteral("subjectAltName=%1\n").arg(altNames).toUtf8());
    ext.close();
    const bool ok =
        openssl(QStringList{QStringLiteral("req"), QStringLiteral("-new")} + kNewKey +
                QStringList{QStringLiteral("-keyout"), id.key, QStringLiteral("-out"), request,
                            QStringLiteral("-subj"), QStringLiteral("/CN=") + name}) &&
        openssl({QStringLiteral("x509"), QStringLiteral("-req"), QStringLiteral("-in"), request,
                 QStringLiteral("-CA"), ca.cert, QStringLiteral("-CAkey"), ca.key,
                 QStringLiteral("-CAcreateserial"), QStringLiteral("-days"), QStringLiteral("30"),
                 QStringLiteral("-extfile"), extensions, QStringLiteral("-out"), id.cert});
    return ok ? id : Identity{};
}

bool passphraseProtected(const Identity& id, const QString& path)
{
    return openssl({QStringLiteral("pkey"), QStringLiteral("-in"), id.key,
                    QStringLiteral("-aes256"), QStringLiteral("-passout"),
                    QStringLiteral("pass:secret"), QStringLiteral("-out"), path});
}

} // namespace tlscerts
