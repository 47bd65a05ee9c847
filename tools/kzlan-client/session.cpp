#include "session.h"

#include <cstdio>

void printError(const QString& message)
{
    std::fprintf(stderr, "kzlan-client: %s\n", message.toUtf8().constData());
    std::fflush(stderr);
}

Session::Session(const Options& options) : options_(options)
{
    conn_.setDevice(&socket_);
    // Small requests and chunk acknowledgements go out at once.
    connect(&socket_, &QTcpSocket::connected, this, [this] {
        reached_ = true;
        socket_.setSocketOption(QAbstractSocket::LowDelayOption, 1);
    });
    // Connected after the KZConnection's own slot: every message of the block
    // has been decoded (and its signal handled) when this runs.
    connect(&socket_, &QTcpSocket::readyRead, this, &Session::received);
    const auto lost = [this] {
        if (!reached_)
            fail(ExitUnreachable, QStringLiteral("cannot reach %1:%2: %3")
                                      .arg(options_.host)
                                      .arg(options_.port)
                                      .arg(socket_.errorString()));
        else
            fail(ExitUnreachable, loggedIn_ ? QStringLiteral("connection to the server lost")
                                            : QStringLiteral("the server closed the connection"));
    };
    connect(&conn_, &KZConnection::disconnected, this, lost);
    connect(&socket_, &QTcpSocket::errorOccurred, this, [this, lost] {
        if (socket_.state() != QAbstractSocket::ConnectedState) lost();
    });
    connect(&conn_, &KZConnection::userInfo, this, [this](const QList<user_info>& list) {
        users = list;
        haveUsers = true;
    });
    connect(&conn_, &KZConnection::macInfo, this, [this](const QList<mac_info>& list) {
        macs = list;
        haveMacs = true;
        conn_.resolver()->lanMacInfoResponse(); // the list's acknowledgement
    });
    idle_.setSingleShot(true);
    idle_.setInterval(options_.timeoutSeconds * 1000);
    connect(&idle_, &QTimer::timeout, this, [this] {
        fail(ExitTimeout,
             QStringLiteral("no answer from the server within %1 s").arg(options_.timeoutSeconds));
    });
}

Session::~Session() { conn_.setDevice(nullptr); }

int Session::open()
{
    connect(&conn_, &KZConnection::loginResult, this, [this](bool ok, int code, bool, bool) {
        if (loggedIn_) return;
        if (!ok)
            return fail(ExitLoginRefused, QStringLiteral("login refused for user '%1' (code %2)")
                                              .arg(options_.user)
                                              .arg(code));
        loggedIn_ = true;
        finish();
    });
    connect(&socket_, &QTcpSocket::connected, this,
            [this] { lan().lanLogin(options_.user, options_.password); });
    return run([this] { socket_.connectToHost(options_.host, options_.port); });
}

void Session::close()
{
    if (socket_.state() != QAbstractSocket::ConnectedState) return;
    if (loggedIn_) lan().lanLogout(0);
    socket_.disconnectFromHost(); // sends what is buffered first
    if (socket_.state() != QAbstractSocket::UnconnectedState) socket_.waitForDisconnected(2000);
}

int Session::run(const std::function<void()>& send, const std::function<bool()>& done)
{
    if (loggedIn_ && socket_.state() != QAbstractSocket::ConnectedState) {
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
