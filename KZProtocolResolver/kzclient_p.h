// KZClient's private class: the connection, the state, the requests not yet sent and, per
// message code, the requests waiting for their reply in the order sent.
#ifndef KZRESOLVER_KZCLIENT_P_H
#define KZRESOLVER_KZCLIENT_P_H

#include "kzclient.h"
#include "kzconnection.h"

#include <QHash>
#include <QPointer>
#include <QTimer>

#include <deque>
#include <functional>

class KZReplyPrivate
{
public:
    int code = 0;
    int timeout = 0;
    bool settled = false;  ///< its end is decided (finished() may still be on its way)
    bool finished = false; ///< finished() was emitted
    KZReply::Error error = KZReply::Error::NoError;
    QString errorString;
    QTimer timer;
};

class KZClientPrivate
{
public:
    using Send = std::function<void(KZProtocolResolver&)>;
    using State = KZClient::State;
    using Error = KZReply::Error;

    explicit KZClientPrivate(KZClient* q);

    KZClient* const q;
    KZConnection conn;
    QPointer<QIODevice> device;
    std::unique_ptr<QIODevice> ownSocket; ///< the socket connectToHost() made

    State state = State::Unconnected;
    Error error = Error::NoError;
    QString errorString;
    QString host;
    quint16 port = 0;
    QString user;
    QString password;
    bool haveLogin = false;
    int loginCode = 0;
    bool admin = false;
    int timeoutMs = 30000;
    bool autoReconnect = false;
    bool loggedIn = false; ///< this connection's login was accepted
    int backoffMs = 0;     ///< the next reconnection's delay; 0 before the first
    QTimer stepTimer;      ///< the connection's and the login's time-out
    QTimer reconnectTimer;

    struct Unsent
    {
        QPointer<KZReply> reply;
        Send send;
    };
    std::deque<Unsent> unsent;
    /// Per message code, the requests sent and not answered, oldest first. A null entry holds
    /// the place of a request that timed out or whose reply was deleted.
    QHash<int, std::deque<QPointer<KZReply>>> waiting;

    void request(KZReply* reply, Send send);
    void sendNow(KZReply* reply, const Send& send);
    void flushUnsent();
    /// The reply to the oldest waiting request of `code`, taken from its queue; null when none
    /// waits (unexpectedReply()) or its place was held for a late answer.
    KZReply* take(int code);
    template <class Values>
    void answer(int code, const Values& values);

    /// Decides the end of `reply`; finished() follows from the event loop.
    static void settle(KZReply* reply, Error error, const QString& why = QString());
    static QString describe(Error error);
    void timedOut(KZReply* reply);
    void endAll(Error error);

    void setState(State s);
    /// Records the error and closes; errorOccurred() and the state follow.
    void fail(Error e, const QString& why);
    void attach(QIODevice* dev);
    void connected();
    void lost();
    void deviceFailed();
    void startLogin();
    void loginAnswered(bool ok, int code, bool admin);
    void closeDevice();
    void scheduleReconnect();

    // kzclient_socket.cpp: the library's only use of Qt Network.
    void openSocket();
    /// The error a device reports, by kind where it is a socket.
    static Error deviceError(QIODevice* dev);
    /// Whether `dev` is a socket that is still connecting.
    static bool isConnecting(QIODevice* dev);
    /// Lets `dev`'s `connected()` reach connected(), where it is a socket.
    void watchConnect(QIODevice* dev);
    /// Closes `dev`, letting a socket send what it holds first; true when the socket is still
    /// closing and will report its end (`disconnected()`).
    static bool close(QIODevice* dev);
};

template <class Values>
void KZClientPrivate::answer(int code, const Values& values)
{
    KZReply* reply = take(code);
    if (!reply) return;
    reply->setValues(&values);
    settle(reply, Error::NoError);
}

#endif // KZRESOLVER_KZCLIENT_P_H
