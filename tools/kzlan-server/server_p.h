// Inside the server: the state of one connection.
#ifndef KZLAN_SERVER_P_H
#define KZLAN_SERVER_P_H

#include "handoff.h"
#include "kzconnection.h"
#include "server.h"
#include "storage.h"

#include <QElapsedTimer>
#include <QFile>
#include <QPointer>
#include <QTcpSocket>
#include <QTimer>

#include <QMap>

#include <functional>
#include <memory>
#include <optional>

#include <utility>

/// One client: its socket, its connection (resolver) and its session.
class Server::Client : public QObject
{
public:
    Client(Server* server, QTcpSocket* socket);

    Server* server;
    QTcpSocket* socket;
    KZConnection* conn;
    KZProtocolResolver* r;
    QString peer; ///< address:port, for the logs
    QString address;
    qint64 connectedMs = 0;

    bool loggedIn = false;
    bool admin = false;    ///< Rights::AdminBit of `permission`
    qint32 permission = 0; ///< as stored; updated when an administrator changes it
    QString user;
    bool loginPending = false;  ///< a password is being checked, or a refusal delayed
    bool cutOff = false;        ///< too much unread: being disconnected
    bool outputBlocked = false; ///< too much unread: reading paused until it drains
    int inFlight = 0;           ///< requests being worked on off the event loop
    int writing = 0;            ///< of them, changes to the database
    /// Answers of later() in the order of their requests: the next one to
    /// send, and those whose work ended before an earlier one's.
    qint64 requested = 0;
    qint64 answered = 0;
    QMap<qint64, std::function<void()>> waitingAnswers;
    int pushes = 0;           ///< Server::PushList bits waiting to be sent
    int pushesNext = 0;       ///< marked while the lists were being read
    QTimer idle;              ///< after login: no request for limits().idleTimeoutS
    bool stallCheck = false;  ///< a check of kWriteStallMs is armed
    qint64 lastWrittenMs = 0; ///< when the client last took replies

    /// Replies produced and not yet taken by the client.
    qint64 unread() const { return socket->bytesToWrite() + conn->pendingBytes(); }

    /// The file being received, if any.
    struct Incoming
    {
        QString mac;  ///< the machine named by the task; empty: shared
        QString name; ///< the file's name, checked to be a plain name
        QString key;  ///< "<machine>/<name>" in transfersInProgress_
        int task = 0;
        qint64 size = -1; ///< announced by the begin message
        QByteArray digest;
        QFile part;
        bool closing = false; ///< its digest is being worked out
        qint64 received = 0;
        int chunks = 0;
        int lastTenth = 0;
        QElapsedTimer clock;
    } in;
};

/// What `read()` gives when `s` read it whole; nothing when a read failed on
/// the way (a damaged page): a short list is never answered as if whole.
template <typename Read>
auto whole(Storage& s, Read read) -> std::optional<decltype(read())>
{
    s.takeReadFailure();
    auto value = read();
    if (s.takeReadFailure()) return std::nullopt;
    return value;
}

template <typename Result, typename Answer, typename Gone>
std::function<void(Result)> Server::answerer(Client* c, Answer answer, Gone gone)
{
    ++c->inFlight;
    updateReading(c);
    const qint64 ticket = c->requested++;
    const QPointer<Client> guard(c); // read on the loop's thread only
    return [this, guard, ticket, answer, gone](Result value) {
        auto result = std::make_shared<Result>(std::move(value));
        handoff::post(this, [this, guard, ticket, answer, gone, result]() mutable {
            if (!guard) return gone(std::move(*result));
            answerInOrder(guard, ticket,
                          [answer, result]() mutable { answer(std::move(*result)); });
        });
    };
}

template <typename Work, typename Answer, typename Gone>
void Server::later(Client* c, Work work, Answer answer, Gone gone)
{
    auto back = answerer<decltype(work())>(c, std::move(answer), std::move(gone));
    handoff::start(work_, [work, back]() mutable { back(work()); });
}

template <typename Work, typename Answer>
void Server::later(Client* c, Work work, Answer answer)
{
    later(c, std::move(work), std::move(answer), [](auto&&) {});
}

template <typename Work, typename Answer>
void Server::onStorage(StorageThread& thread, Client* c, Work work, Answer answer)
{
    using Result = decltype(work(std::declval<Storage&>()));
    auto back = answerer<Result>(c, std::move(answer), [](auto&&) {});
    thread.run([work, back](Storage& s) mutable { back(work(s)); });
}

/// `answer` of a change: counts it out of the client's changes in flight.
template <typename Answer>
auto wrote(Server::Client* c, Answer answer)
{
    ++c->writing;
    return [c, answer](auto&& result) mutable {
        --c->writing;
        answer(std::forward<decltype(result)>(result));
    };
}

template <typename Work, typename Answer>
void Server::stored(Client* c, Work work, Answer answer)
{
    onStorage(writer_, c, std::move(work), wrote(c, std::move(answer)));
}

template <typename Work, typename Answer>
void Server::queried(Client* c, Work work, Answer answer)
{
    onStorage(c->writing ? writer_ : reader_, c, std::move(work), std::move(answer));
}

template <typename Read, typename Answer>
void Server::lookUp(Client* c, const char* what, bool may, Read read, Answer answer)
{
    using Value = decltype(read(std::declval<Storage&>()));
    queried(
        c,
        [may, read](Storage& s) {
            return may ? whole(s, [&] { return read(s); }) : std::optional<Value>();
        },
        [this, c, what, may, answer](const std::optional<Value>& value) {
            if (may && !value) refuseForStorage(c, what);
            answer(value.value_or(Value()));
        });
}

template <typename Work, typename Store, typename Answer>
void Server::stored(Client* c, Work work, Store store, Answer answer)
{
    using Result = decltype(store(std::declval<Storage&>(), work()));
    auto back = answerer<Result>(c, wrote(c, std::move(answer)), [](auto&&) {});
    handoff::start(work_, [this, work, store, back]() mutable {
        writer_.run([store, back, prepared = work()](Storage& s) mutable {
            back(store(s, std::move(prepared)));
        });
    });
}

#endif
