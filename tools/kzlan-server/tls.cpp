#include "tls.h"

#include "listener.h"
#include "pemfiles.h"
#include "server.h" // the log categories

#include <QCommandLineParser>
#include <QDateTime>
#include <QEventLoop>
#include <QSslKey>
#include <QSslSocket>
#include <QTcpServer>
#include <QTimer>

#include <functional>
#include <utility>

namespace {

/// A listener on loopback that runs the server side of one handshake with
/// the configuration under test and keeps its first error.
class OneHandshake : public QTcpServer
{
public:
    OneHandshake(const QSslConfiguration& config, std::function<void()> finished)
        : config_(config), finished_(std::move(finished))
    {}
    bool encrypted = false;
    QString error;

protected:
    void incomingConnection(qintptr fd) override
    {
        auto* s = new QSslSocket(this);
        s->setSslConfiguration(config_);
        connect(s, &QSslSocket::encrypted, this, [this] {
            encrypted = true;
            finished_();
        });
        connect(s, &QAbstractSocket::errorOccurred, this, [this, s] {
            if (error.isEmpty()) error = s->errorString();
            finished_();
        });
        if (s->setSocketDescriptor(fd)) s->startServerEncryption();
    }

private:
    QSslConfiguration config_;
    std::function<void()> finished_;
};

/// Empty if a client completes a handshake with `config` over loopback; the
/// server side's error otherwise. Qt checks that the key certifies the
/// certificate only when it makes a TLS context, which is when a handshake
/// starts: this runs one at start-up instead of failing every client later.
QString handshakeWithItself(const QSslConfiguration& config)
{
    QEventLoop loop;
    OneHandshake server(config, [&loop] { loop.quit(); });
    if (!server.listen(QHostAddress::LocalHost) && !server.listen(QHostAddress::LocalHostIPv6))
        return QString(); // no loopback to try it on: the first client will tell
    QSslSocket client;
    client.setPeerVerifyMode(QSslSocket::VerifyNone); // the pair is checked here, not the name
    client.connectToHostEncrypted(server.serverAddress().toString(), server.serverPort());
    QTimer::singleShot(5000, &loop, &QEventLoop::quit);
    loop.exec();
    if (!server.error.isEmpty()) return server.error;
    return server.encrypted ? QString() : QStringLiteral("no handshake within 5 s");
}

} // namespace

bool loadServerTls(const QString& certFile, const QString& keyFile, QSslConfiguration* config,
                   QString* error, QString* warning)
{
    warning->clear();
    if (!QSslSocket::supportsSsl()) {
        *error = QStringLiteral("TLS is not available: Qt found no TLS library (OpenSSL)");
        return false;
    }
    const QList<QSslCertificate> chain = readPemCertificates(certFile, error);
    if (chain.isEmpty()) return false;
    const QByteArray keyBytes = readPemFile(keyFile, error);
    if (keyBytes.isNull()) return false;
    if (keyBytes.contains("ENCRYPTED")) {
        *error = QStringLiteral("the private key in %1 is protected by a passphrase; give the "
                                "server an unprotected copy (openssl pkey -in %1 -out FILE) "
                                "that only its account can read")
                     .arg(keyFile);
        return false;
    }
    QSslKey key(keyBytes, QSsl::Rsa, QSsl::Pem, QSsl::PrivateKey);
    if (key.isNull()) key = QSslKey(keyBytes, QSsl::Ec, QSsl::Pem, QSsl::PrivateKey);
    if (key.isNull()) {
        *error = QStringLiteral("%1 holds no PEM private key (RSA or EC)").arg(keyFile);
        return false;
    }

    QSslConfiguration c = QSslConfiguration::defaultConfiguration();
    c.setLocalCertificateChain(chain);
    c.setPrivateKey(key);
    c.setProtocol(QSsl::TlsV1_2OrLater);
    c.setPeerVerifyMode(QSslSocket::VerifyNone); // clients are known by their login
    const QString broken = handshakeWithItself(c);
    if (!broken.isEmpty()) {
        *error = QStringLiteral("the key in %1 does not work with the certificate in %2: %3")
                     .arg(keyFile, certFile, broken);
        return false;
    }

    const QSslCertificate& own = chain.first();
    const QDateTime now = QDateTime::currentDateTimeUtc();
    if (own.expiryDate() < now)
        *warning = QStringLiteral("the certificate in %1 expired on %2; clients will refuse it")
                       .arg(certFile, own.expiryDate().toString(Qt::ISODate));
    else if (own.effectiveDate() > now)
        *warning = QStringLiteral("the certificate in %1 is valid only from %2; clients will "
                                  "refuse it until then")
                       .arg(certFile, own.effectiveDate().toString(Qt::ISODate));
    *config = c;
    return true;
}

QString TlsOptions::help()
{
    return QStringLiteral(
        "TLS: with --tls-cert and --tls-key, clients may connect with TLS (kzlan-client --tls) on "
        "the same port as plain ones; the server tells them apart by the first byte a client "
        "sends (a TLS handshake starts with 0x16, a frame with 'K'). --tls-only closes plain "
        "connections. The login's password cipher hides the password from a casual look only: "
        "its key and vector are fixed by the protocol, so anyone who captures a plain login "
        "recovers the password. Use TLS wherever the network is not trusted.");
}

TlsOptions::TlsOptions(QCommandLineParser& cli)
    : cli_(cli),
      cert_(QStringLiteral("tls-cert"),
            QStringLiteral("PEM certificate of the server, its chain after it in the same file; "
                           "serves TLS with --tls-key."),
            QStringLiteral("FILE")),
      key_(QStringLiteral("tls-key"),
           QStringLiteral("PEM private key of that certificate (RSA or EC, without passphrase)."),
           QStringLiteral("FILE")),
      only_(QStringLiteral("tls-only"),
            QStringLiteral("Close plain connections: TLS clients only.")),
      timeout_(QStringLiteral("handshake-timeout"),
               QStringLiteral("Seconds a new connection has to send its first bytes and finish "
                              "its TLS handshake (default %1).")
                   .arg(Listener::kDefaultHandshakeTimeoutMs / 1000),
               QStringLiteral("S"), QString::number(Listener::kDefaultHandshakeTimeoutMs / 1000))
{
    cli.addOptions({cert_, key_, only_, timeout_});
}

bool TlsOptions::load(QString* error, QString* warning)
{
    warning->clear();
    bool ok = false;
    const int seconds = cli_.value(timeout_).toInt(&ok);
    if (!ok || seconds < 1 || seconds > 600) {
        *error = QStringLiteral("--handshake-timeout takes a number of seconds from 1 to 600");
        return false;
    }
    timeoutMs_ = seconds * 1000;
    if (cli_.isSet(cert_) != cli_.isSet(key_) || (cli_.isSet(only_) && !cli_.isSet(cert_))) {
        *error = QStringLiteral("TLS needs both --tls-cert and --tls-key (and --tls-only needs "
                                "them)");
        return false;
    }
    return !cli_.isSet(cert_) ||
           loadServerTls(cli_.value(cert_), cli_.value(key_), &config_, error, warning);
}

QStringList TlsOptions::names()
{
    return {QStringLiteral("tls-cert"), QStringLiteral("tls-key"), QStringLiteral("tls-only"),
            QStringLiteral("handshake-timeout")};
}

void TlsOptions::apply(Listener& listener) const
{
    listener.setHandshakeTimeout(timeoutMs_);
    if (!cli_.isSet(cert_)) return;
    listener.setTls(config_, cli_.isSet(only_));
    const QSslCertificate own = config_.localCertificate();
    qCInfo(lcServer).noquote()
        << QStringLiteral("TLS with the certificate of %1 (valid until %2); plain connections "
                          "are %3")
               .arg(own.subjectInfo(QSslCertificate::CommonName).join(QLatin1Char(',')),
                    own.expiryDate().toString(Qt::ISODate),
                    cli_.isSet(only_) ? QStringLiteral("closed") : QStringLiteral("served too"));
}
