// kzlan-client's connection to the server: a KZClient on a TCP socket (TLS with --tls), and
// synchronous ways to wait for a request's reply or for the messages that answer it.
#ifndef KZLAN_CLIENT_SESSION_H
#define KZLAN_CLIENT_SESSION_H

#include "kzclient.h"
#include "kzconnection.h"

#include <QEventLoop>
#include <QJsonValue>
#include <QList>
#include <QSslCertificate>
#include <QSslError>
#include <QSslSocket>
#include <QString>
#include <QStringList>
#include <QTimer>

#include <functional>

/// Exit codes of kzlan-client; scripts rely on them.
enum Exit {
    ExitOk = 0,
    ExitUsage = 1,       ///< bad command line
    ExitUnreachable = 2, ///< no connection to the server, or it was lost
    ExitLoginRefused = 3,
    ExitTimeout = 4, ///< the server did not answer in time
    ExitRefused = 5, ///< the server answered no
    ExitTls = 6,     ///< TLS failed: the server's certificate is not trusted or not
                     ///< made out for the host, or the handshake broke off
};

/// The global options, taken from the command line before the sub-command.
struct Options
{
    QString host = QStringLiteral("127.0.0.1");
    quint16 port = 7600;
    QString user = QStringLiteral("admin");
    QString password;
    bool json = false;
    int timeoutSeconds = 10;
    bool tls = false;
    /// Trusted instead of the system's certificate authorities (--ca).
    QList<QSslCertificate> ca;
    /// The name the server's certificate must carry; empty: the host.
    QString tlsName;
};

/// One session with the server. A sub-command opens it (connect and log in),
/// then sends its requests with run(), whose slots call finish() or fail()
/// once the answer is there, and closes it (log out).
///
/// The lists that the server pushes after the login (users, machines) are
/// kept as they arrive, whenever that is.
class Session : public QObject
{
public:
    explicit Session(const Options& options);
    ~Session() override;

    const Options& options() const { return options_; }
    /// The client: its request methods return replies to await().
    KZClient& client() { return client_; }
    /// Its connection, for the messages without a request method (streamed answers).
    KZConnection& connection() { return *client_.connection(); }
    /// The encoders: `s.lan().lanQueryLog2(…)`.
    KZProtocolResolver& lan() { return *connection().resolver(); }

    /// Connects and logs in. Returns ExitOk or the exit code of the failure
    /// (its message already printed).
    int open();
    /// Logs out and closes the connection, letting the last bytes go out.
    void close();

    /// Calls `send` (may be empty), then runs until a slot calls finish() or
    /// fail(), until `done` holds (checked after every block received), until
    /// the connection is lost (ExitUnreachable) or until nothing has arrived
    /// for the time-out (ExitTimeout). Returns the exit code.
    int run(const std::function<void()>& send, const std::function<bool()>& done = {});
    /// Waits until `reply` finishes; ExitOk, or the exit code of its failure (its message
    /// printed).
    int await(KZReply* reply);
    /// Ends the current run() with `code`.
    void finish(int code = ExitOk);
    /// Prints `message` as the error line and ends the current run() with `code`.
    void fail(int code, const QString& message);

    /// What the server pushed: the user list, the machine list.
    QList<user_info> users;
    bool haveUsers = false;
    QList<mac_info> macs;
    bool haveMacs = false;

private:
    void received();
    /// The exit code and message of the client's failure.
    void failed(KZReply::Error error);
    /// The TLS settings on the socket; ExitOk or the exit code of a failure.
    int prepareTls();
    /// The message of a TLS failure, from what the socket reported.
    QString tlsFailure() const;

    Options options_;
    QSslSocket socket_; ///< in the clear unless started encrypted
    KZClient client_;
    QEventLoop* loop_ = nullptr;
    QTimer idle_;
    std::function<bool()> done_;
    int result_ = ExitOk;
    bool finished_ = false;
    bool reached_ = false;       ///< the socket was connected once
    bool encrypted_ = false;     ///< the TLS handshake succeeded
    QList<QSslError> tlsErrors_; ///< why the server's certificate was refused
};

/// Prints one error line on stderr: "kzlan-client: <message>".
void printError(const QString& message);
/// The message of the last printError().
QString lastError();

#endif
