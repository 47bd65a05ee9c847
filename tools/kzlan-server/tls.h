// The server's TLS: its command-line options, and its identity (certificate
// and key) read from PEM files and proved to work together before the server
// listens.
#ifndef KZLAN_SERVER_TLS_H
#define KZLAN_SERVER_TLS_H

#include <QCommandLineOption>
#include <QSslConfiguration>
#include <QString>
#include <QStringList>

class Listener;
class QCommandLineParser;

/// Reads the certificate (the server's first, its chain after it) and the
/// private key (RSA or EC, unencrypted) and makes the configuration a
/// listener serves TLS with. False with `*error` set if a file cannot be read
/// or parsed, or if the key does not belong to the certificate; `*warning`
/// says that the certificate is out of its validity dates (clients will
/// refuse it), and is empty otherwise.
bool loadServerTls(const QString& certFile, const QString& keyFile, QSslConfiguration* config,
                   QString* error, QString* warning);

/// kzlan-server's options for TLS and the handshake time-out.
class TlsOptions
{
public:
    /// What --help says about TLS, after the program's description.
    static QString help();

    /// The long names of these options.
    static QStringList names();

    /// Adds --tls-cert, --tls-key, --tls-only and --handshake-timeout.
    explicit TlsOptions(QCommandLineParser& cli);
    /// After cli.process(): checks the values and reads the certificate and
    /// key. False with `*error` set; `*warning` as loadServerTls() gives it.
    bool load(QString* error, QString* warning);
    /// Serves TLS (if asked) with the handshake time-out, and logs how.
    void apply(Listener& listener) const;

private:
    QCommandLineParser& cli_;
    const QCommandLineOption cert_;
    const QCommandLineOption key_;
    const QCommandLineOption only_;
    const QCommandLineOption timeout_;
    QSslConfiguration config_;
    int timeoutMs_ = 0;
};

#endif
