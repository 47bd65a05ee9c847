/// \file kzreply.h
/// The answer to one request of a KZClient: KZReply, and KZReplyOf with the reply's values.
#ifndef KZRESOLVER_KZREPLY_H
#define KZRESOLVER_KZREPLY_H

#include "kzresolver_global.h"

#include <QObject>
#include <QString>

#include <memory>

class KZClient;
class KZClientPrivate;
class KZReplyPrivate;

/// The answer to one request sent with a KZClient: it finishes once, when the server's reply
/// arrives (error() is NoError and KZReplyOf::values() holds what it carried), or when the
/// request fails (time-out, lost connection, the client closed or deleted).
///
/// A reply is a child of the client that made it: delete it once it has finished (call
/// deleteLater() in a slot of finished()) or it lives as long as the client. Deleting a reply
/// before it has finished is harmless: the server's answer is still taken when it comes, so
/// that later replies of the same message stay matched, and thrown away.
///
/// finished() is emitted from the event loop, never from inside a call of the client, so a
/// slot may delete the reply, make new requests or delete the client itself.
class KZRESOLVER_EXPORT KZReply : public QObject
{
    Q_OBJECT

public:
    /// Why a reply or the client failed.
    enum class Error {
        NoError,                ///< the reply arrived; the client works
        ConnectionRefusedError, ///< the server refused the connection (nothing listens there)
        HostNotFoundError,      ///< the server's name did not resolve
        ConnectionLostError,    ///< the connection broke off without a logout
        TimeoutError,           ///< no answer within the time-out
        LoginRefusedError,      ///< the server refused the name or the password
        ProtocolError,          ///< the server sent what the protocol does not allow here
        DeviceError,            ///< the device failed otherwise (TLS, a write): see errorString()
        CanceledError,          ///< the host closed or deleted the client before the answer
    };
    Q_ENUM(Error)

    ~KZReply() override;

    /// The message code of the request's reply: the request's own, or that of the message
    /// that answers it (the request methods of KZClient say which).
    int methodCode() const;
    /// Whether the reply has finished (finished() was emitted).
    bool isFinished() const;
    /// Why the reply failed; NoError once its values arrived, and while it has not finished.
    Error error() const;
    /// A sentence on error() for people; empty without an error.
    QString errorString() const;

    /// Sets this request's time-out in milliseconds, counted from when the request is sent
    /// (a request queued before the client is ready waits without a time-out). 0 waits forever.
    /// The client's time-out (KZClient::setTimeout()) applies unless this is called.
    void setTimeout(int ms);
    /// The time-out of this request in milliseconds.
    int timeout() const;

Q_SIGNALS:
    /// The reply has its values, or has failed (see error()). Emitted once.
    void finished();

protected:
    /// A reply to a request of message `code`, a child of `client`.
    KZReply(int code, KZClient* client);
    /// Stores the reply's values; called by the client before finished().
    virtual void setValues(const void* values) = 0;

private:
    friend class KZClientPrivate;
    std::unique_ptr<KZReplyPrivate> d;
};

/// A KZReply with the decoded values of its message's reply, of type `Values`: one of the
/// structs KZClient declares per request (KZClient::DeleteUserReply and so on).
template <class Values>
class KZReplyOf final : public KZReply
{
public:
    /// A reply to a request of message `code`, a child of `client` (the client makes them).
    KZReplyOf(int code, KZClient* client) : KZReply(code, client) {}
    /// The reply's values; default values until finished() without an error.
    const Values& values() const { return values_; }

protected:
    /// Stores the reply's values.
    void setValues(const void* values) override { values_ = *static_cast<const Values*>(values); }

private:
    Values values_{};
};

#endif // KZRESOLVER_KZREPLY_H
