#include "session.h"

#include <QSslConfiguration>

#include <cstdio>

QString g_lastError;

QString lastError() { return g_lastError; }

void printError(const QString& message)
{
    g_lastError = message;
    std::fprintf(stderr, "kzlan-client: %s\n", message.toUtf8().constData());
    std::fflush(stderr);
}

Session::Session(const Options& options) : options_(options)
{
    client_.setTimeout(options_.timeoutSeconds * 1000);
    // Small requests and chunk acknowledgements go out at once.
    connect(&socket_, &QTcpSocket::connected, this, [this] {
        reached_ = true;
        socket_.setSocketOption(QAbstractSocket::LowDelayOption, 1);
    });
    // Connected after the connection's own slot: every message of the block has been
    // decoded when this runs.
    connect(&socket_, &QTcpSocket::readyRead, this, &Session::received);
    connect(&client_, &KZClient::errorOccurred, this, &Session::failed);
    connect(&client_, &KZClient::stateChanged, this, [this](KZClient::State state) {
        if (state == KZClient::State::Ready) finish();
    });
    connect(&client_, &KZClient::usersReceived, this, [this](const QList<user_info>& list) {
        users = list;
        haveUsers = true;
        received();
    });
    connect(&client_, &KZClient::machinesReceived, this, [this](const QList<mac_info>& list) {
        macs = list;
        haveMacs = true;
        received();
    });
    idle_.setSingleShot(true);
    idle_.setInterval(options_.timeoutSeconds * 1000);
    connect(&idle_, &QTimer::timeout, this, [this] {
        fail(ExitTimeout,
             QStringLiteral("no answer from the server within %1 s").arg(options_.timeoutSeconds));
    });
}

Session::~Session() { client_.setDevice(nullptr); }

void Session::failed(KZReply::Error error)
{
    using E = KZReply::Error;
    const bool loggedIn = client_.state() == KZClient::State::Ready;
    if (error == E::LoginRefusedError)
        fail(ExitLoginRefused, QStringLiteral("login refused for user '%1' (code %2)")
                                   .arg(options_.user)
                                   .arg(client_.loginCode()));
    else if (error == E::TimeoutError)
        fail(ExitTimeout,
             QStringLiteral("no answer from the server within %1 s").arg(options_.timeoutSeconds));
    else if (!reached_)
        fail(ExitUnreachable, QStringLiteral("cannot reach %1:%2: %3")
                                  .arg(options_.host)
                                  .arg(options_.port)
                                  .arg(socket_.errorString()));
    else if (options_.tls && !encrypted_)
        fail(ExitTls, tlsFailure());
    else if (loggedIn)
        fail(ExitUnreachable, QStringLiteral("connection to the server lost"));
    else
        fail(ExitUnreachable,
             QStringLiteral("the server closed the connection%1")
                 .arg(options_.tls ? QString()
                                   : QStringLiteral(" (a server that takes TLS only closes "
                                                    "plain clients: --tls)")));
}

int Session::open()
{
    client_.login(options_.user, options_.password);
    client_.setDevice(&socket_); // connecting: the login waits for it (and for TLS)
    if (!options_.tls) return run([this] { socket_.connectToHost(options_.host, options_.port); });
    const int ready = prepareTls();
    if (ready != ExitOk) return ready;
    return run([this] {
        socket_.connectToHostEncrypted(options_.host, options_.port,
                                       options_.tlsName.isEmpty() ? options_.host
                                                                  : options_.tlsName);
    });
}

int Session::prepareTls()
{
    if (!QSslSocket::supportsSsl()) {
        printError(QStringLiteral("TLS is not available: Qt found no TLS library (OpenSSL)"));
        return ExitTls;
    }
    QSslConfiguration c = socket_.sslConfiguration();
    c.setProtocol(QSsl::TlsV1_2OrLater);
    c.setPeerVerifyMode(QSslSocket::VerifyPeer); // the chain, and the name against the host
    if (!options_.ca.isEmpty()) c.setCaCertificates(options_.ca);
    socket_.setSslConfiguration(c);
    connect(&socket_, &QSslSocket::encrypted, this, [this] { encrypted_ = true; });
    connect(&socket_, qOverload<const QList<QSslError>&>(&QSslSocket::sslErrors), this,
            [this](const QList<QSslError>& errors) { tlsErrors_ = errors; });
    return ExitOk;
}

QString Session::tlsFailure() const
{
    const QString where = QStringLiteral("%1:%2").arg(options_.host).arg(options_.port);
    if (tlsErrors_.isEmpty())
        return QStringLiteral("TLS with %1 failed: %2").arg(where, socket_.errorString());
    QStringList why;
    for (const QSslError& e : tlsErrors_) why.append(e.errorString());
    return QStringLiteral("the certificate of %1 is refused: %2%3")
        .arg(where, why.join(QStringLiteral("; ")),
             options_.ca.isEmpty() ? QStringLiteral(" (give the server's certificate or its CA "
                                                    "with --ca)")
                                   : QString());
}

void Session::close()
{
    if (client_.state() == KZClient::State::Unconnected) return;
    client_.disconnectFromHost(); // the logout, then what is buffered goes out first
    if (socket_.state() != QAbstractSocket::UnconnectedState) socket_.waitForDisconnected(2000);
}

int Session::await(KZReply* reply)
{
    connect(reply, &KZReply::finished, this, &Session::received);
    const int rc = run({}, [reply] { return reply->isFinished(); });
    if (rc == ExitOk && reply->error() != KZReply::Error::NoError) {
        printError(reply->errorString());
        return reply->error() == KZReply::Error::TimeoutError ? ExitTimeout : ExitUnreachable;
    }
    return rc;
}

int Session::run(const std::function<void()>& send, const std::function<bool()>& done)
{
    if (client_.state() == KZClient::State::Unconnected && reached_) {
        printError(QStringLiteral("connection to the server lost"));
        return ExitUnreachable;
    }
    finished_ = false;
    result_ = ExitOk;
    done_ = done;
    idle_.start();
    if (send) send();
    if (!finished_ && done_ && done_()) finish();
    if (!finished_) {
        QEventLoop loop;
        loop_ = &loop;
        loop.exec();
        loop_ = nullptr;
    }
    idle_.stop();
    done_ = nullptr;
    return result_;
}

void Session::finish(int code)
{
    if (finished_) return;
    finished_ = true;
    result_ = code;
    if (loop_) loop_->quit();
}

void Session::fail(int code, const QString& message)
{
    if (finished_) return; // no run() is waiting for it
    printError(message);
    finish(code);
}

void Session::received()
{
    idle_.start();
    if (!finished_ && done_ && done_()) finish();
}
