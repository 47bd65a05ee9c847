/// \file kzresponder.h
/// The way a KZServer host answers one request later: KZResponder, and KZLoginResponder for a
/// login.
#ifndef KZRESOLVER_KZRESPONDER_H
#define KZRESOLVER_KZRESPONDER_H

#include "kzresolver_global.h"

#include <functional>
#include <memory>

class KZProtocolResolver;
class KZResponderState;

/// The answer still owed to one request of a KZServerSession. It is a small handle: copy it
/// into a lambda, hand it to a thread or a database query, and call send() once, from any
/// thread, when the answer is known.
///
/// **Order.** The protocol carries no request number: a client matches each reply to its
/// oldest waiting request of the same message code. A session therefore sends its answers in
/// the order its requests came, whatever order the host finishes them in: an answer whose
/// request came after one still unanswered waits for it.
///
/// **Threads.** send() may be called on any thread; the answer is encoded and written on the
/// session's thread, from its event loop, never inside send().
///
/// **A session that is gone.** When the client has gone before the answer, send() does
/// nothing: the handle stays harmless for as long as the host keeps it.
///
/// **Dropped without an answer.** When the last copy of a responder is destroyed before
/// send(), the request is left unanswered: the answers after it no longer wait for it, the
/// session emits KZServerSession::requestUnanswered() and a warning is written on the logging
/// category `kz.server`. Its client sees no reply and finishes the request with its own
/// time-out. Answer every request, with a refusal where the host has nothing better.
class KZRESOLVER_EXPORT KZResponder
{
public:
    /// Writes the answer with the session's resolver: one reply encoder, such as
    /// `[](KZProtocolResolver& r) { r.lanDeleteUserResponse(true, names); }`.
    using Answer = std::function<void(KZProtocolResolver& resolver)>;

    /// An empty responder: send() does nothing.
    KZResponder();
    /// Shares the same request's answer.
    KZResponder(const KZResponder& other);
    /// Takes over the request's answer from `other`, which becomes empty.
    KZResponder(KZResponder&& other) noexcept;
    /// Shares the same request's answer.
    KZResponder& operator=(const KZResponder& other);
    /// Takes over the request's answer from `other`.
    KZResponder& operator=(KZResponder&& other) noexcept;
    /// Reports the request unanswered when this was its last copy and send() was not called.
    ~KZResponder();

    /// Answers the request with `answer`, run on the session's thread once the answers of its
    /// earlier requests have gone. Only the first call of all the copies counts.
    void send(Answer answer) const;
    /// Whether this responder belongs to a request (it was not made empty).
    bool isValid() const;
    /// Whether send() was called on this responder or a copy of it.
    bool isAnswered() const;

private:
    friend class KZServerSession;
    friend class KZLoginResponder;
    explicit KZResponder(std::shared_ptr<KZResponderState> state);
    std::shared_ptr<KZResponderState> d;
};

/// The answer owed to a login: the host's authenticator (KZServer::setAuthenticator()) calls
/// accept() or refuse() once, from any thread, when it has checked the name and the password.
/// It keeps its place among the session's answers as KZResponder does, and is harmless when
/// the client has gone. A login dropped without an answer is refused.
class KZRESOLVER_EXPORT KZLoginResponder
{
public:
    /// An empty responder: accept() and refuse() do nothing.
    KZLoginResponder();

    /// Accepts the login: the session is logged in as the name it gave, its requests are
    /// delivered from now on, and the client gets the login reply (true, `code`,
    /// `administrator`). KZClient reports `administrator` as KZClient::isAdministrator().
    void accept(bool administrator = false, int code = 0) const;
    /// Refuses the login: the client gets the login reply (false, `code`, false); the session
    /// stays open until its login time-out, and may try again. The reference server's code for
    /// a wrong name or password is 2.
    void refuse(int code = 2) const;
    /// Whether this responder belongs to a login.
    bool isValid() const;

private:
    friend class KZServerSessionPrivate;
    explicit KZLoginResponder(std::shared_ptr<KZResponderState> state);
    KZResponder r_;
};

#endif // KZRESOLVER_KZRESPONDER_H
