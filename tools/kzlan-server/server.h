// The LAN server: a QTcpServer with one KZConnection (one resolver) per
// client, answering every request from the storage.
//
// Rights per request, limits and pushes are described for users in
// docs/server.md (the rights table itself is in rights.cpp).
//
// What a client sees (login reply, pushes and which of them a client acknowledges, transfers,
// log queries) is described for users in docs/server.md as well; keep the two in step.
#ifndef KZLAN_SERVER_H
#define KZLAN_SERVER_H

#include "kzencoded.h"
#include "kzrecords.h"
#include "loginqueue.h"
#include "serverlimits.h"
#include "storagethread.h"

#include <QElapsedTimer>
#include <QHash>
#include <QHostAddress>
#include <QLoggingCategory>
#include <QObject>
#include <QSet>
#include <QString>
#include <QThreadPool>

#include <functional>
#include <optional>

class Listener;
class Storage;

Q_DECLARE_LOGGING_CATEGORY(lcServer)
Q_DECLARE_LOGGING_CATEGORY(lcAuth)

class Server : public QObject
{
    Q_OBJECT

public:
    /// While a client leaves more than this many bytes of replies unread,
    /// its requests are not read: a flood of requests cannot grow the
    /// server's memory. Reading resumes below half of it.
    static constexpr qint64 kMaxUnreadBytes = 8 * 1024 * 1024;
    /// A client whose unread replies stay over kMaxUnreadBytes without it
    /// reading any for this long is disconnected.
    static constexpr int kWriteStallMs = 10000;
    /// Bytes of requests read and decoded from one client per pass of the
    /// event loop, and held unread for it at most.
    static constexpr int kReadChunkBytes = 8 * 1024;
    static constexpr int kReadBufferBytes = 64 * 1024;
    /// Connections beyond this number are closed at once; fewer when the
    /// descriptor limit allows fewer (clientLimit()).
    static constexpr int kMaxClients = 1000;
    /// Connections from one address that have not logged in: when one more
    /// comes, the oldest of them that has sent no login is closed.
    static constexpr int kMaxUnauthenticatedPerAddress = 64;
    /// A connection that has not logged in after this long is closed.
    static constexpr int kLoginTimeoutMs = 10000;
    /// After a failure to accept (no descriptor left), accepting pauses
    /// this long instead of trying again at once.
    static constexpr int kAcceptPauseMs = 500;
    /// How often the process's open descriptors are compared with its limit.
    static constexpr int kDescriptorCheckMs = 100;
    /// Descriptors kept free when accepting pauses near the limit.
    static constexpr int kDescriptorReserve = 8;

    /// The client limit for a process that may open `descriptors` files:
    /// each client may hold three (its socket, a file being received, and
    /// the file read back for its digest), and 64 stay for the database,
    /// the listener and the rest.
    static int clientLimit(qint64 descriptors);
    /// The largest message body taken from a connection that has not logged
    /// in (a login is a few hundred bytes), and after login.
    static constexpr int kPreLoginBodyBytes = 4096;
    static constexpr int kMaxBodyBytes = 16 * 1024 * 1024;

    /// A server over the database at `database` (as Storage::open takes
    /// it: opened, checked and migrated before), keeping received files
    /// under `storageDir`. It opens the database twice, on two threads of
    /// its own: one for the changes, one for the reads.
    Server(const QString& database, const QString& storageDir, QObject* parent = nullptr);
    ~Server() override;

    bool listen(const QHostAddress& address, quint16 port, QString* error);
    QHostAddress address() const;
    quint16 port() const;
    /// Stops listening and closes every connection (a transfer in progress
    /// loses its part file).
    void shutdown();
    int clientCount() const { return clients_.size(); }
    /// The accepting side: TLS and the handshake time-out are set there.
    Listener& listener() { return *listener_; }
    /// The client limit in force: kMaxClients, or what the descriptor limit allows.
    int maxClients() const { return maxClients_; }

    /// The limits a plant may tune; set before listen().
    void setLimits(const ServerLimits& limits);
    const ServerLimits& limits() const { return limits_; }
    /// Password checks started (an abandoned login starts none).
    qint64 loginChecks() const { return logins_.started(); }
    /// Lists pushed since the server started (a change made several
    /// times before a client was served is pushed to it once).
    qint64 pushesSent() const { return pushesSent_; }

    class Client;

private:
    friend class Client;
    void accept();
    /// Makes room for a connection from `address` that has not logged in,
    /// closing the oldest idle one of the address at the limit; false when
    /// every one of them is logging in.
    bool roomBeforeLogin(const QString& address);
    void removeStaleParts();
    void drop(Client* c);
    /// Disconnects `c` if it stays paused for its unread replies and takes
    /// none of them for kWriteStallMs.
    void watchStall(Client* c);

    // One attach function per family, in a source file of its own.
    void attachSession(Client* c);
    /// `permission`: the account's value when the password matched.
    void finishLogin(Client* c, const QString& account, std::optional<qint32> permission);
    void attachAccounts(Client* c);
    void attachMachines(Client* c);
    void attachPlanning(Client* c);
    void attachFiles(Client* c);
    void attachLogs(Client* c);

    /// False (and a log line) if `c` is not logged in or lacks the right
    /// that the request `what` needs (rights.cpp).
    bool allowed(Client* c, const char* what);
    /// Logs that `what` of `c` was refused because the database could not
    /// be read whole or written (whole() in server_p.h tells).
    void refuseForStorage(Client* c, const char* what);
    /// `ok`, and a log line when not: for the checks of a request's names
    /// and texts (texts.h).
    bool acceptable(Client* c, const char* what, bool ok);
    /// For a request on the account `name`: the caller's own, or the caller
    /// is an administrator.
    bool ownOrAdmin(Client* c, const QString& name, const char* what);
    /// Ends every session of `names` but `except` (deleted users, a changed
    /// password).
    void endSessions(const QStringList& names, Client* except);
    /// Gives every session of `name` its new permission value.
    void refreshRights(const QString& name, qint32 permission);
    /// Records an event; failures are logged, never fatal to the request.
    void record(Client* c, const QString& mac, const QString& kind, const QString& text);

    /// The pipeline of a request whose answer takes time: `work` runs off
    /// the event loop and must touch neither the storage nor the client;
    /// `answer` gets its result back on the loop if the client is still
    /// there. Rights and input limits are checked before. Each such request
    /// counts toward the client's in-flight limit. Answers reach the client
    /// in the order of their requests. `gone` gets the result instead when
    /// the client has gone meanwhile. A request whose answer goes through
    /// here sends its refusals through here too, so that they keep their
    /// place.
    template <typename Work, typename Answer, typename Gone>
    void later(Client* c, Work work, Answer answer, Gone gone);
    template <typename Work, typename Answer>
    void later(Client* c, Work work, Answer answer);
    /// The same pipeline for a change to the database: `work(Storage&)`
    /// runs on the writer's thread, after the changes queued before it, and
    /// must not touch the client; a lock held elsewhere makes it wait there
    /// and fail, never the event loop.
    template <typename Work, typename Answer>
    void stored(Client* c, Work work, Answer answer);
    /// The same for a request that only reads: `work(Storage&)` runs on the
    /// reader's thread, which a change waiting for a lock does not hold up;
    /// on the writer's, after them, while changes of `c` are in flight, so
    /// that a client reads what it has just written.
    template <typename Work, typename Answer>
    void queried(Client* c, Work work, Answer answer);
    /// A request answered from a read: `read(Storage&)` through queried()
    /// when `may` (its rights and input checked); `answer` gets what was
    /// read, or an empty value when refused or when the database could not
    /// read it whole (logged as a refusal of `what`).
    template <typename Read, typename Answer>
    void lookUp(Client* c, const char* what, bool may, Read read, Answer answer);
    /// Both in one request: `work()` off the loop (a hash), then
    /// `store(Storage&, its result)` on the writer's thread.
    template <typename Work, typename Store, typename Answer>
    void stored(Client* c, Work work, Store store, Answer answer);
    /// Counts a request of `c` in flight and gives the function that, called
    /// on any thread with the request's result, hands it to `answer` (or
    /// `gone`) on the loop, in the order of the client's requests.
    template <typename Result, typename Answer, typename Gone>
    std::function<void(Result)> answerer(Client* c, Answer answer, Gone gone);
    /// `work(Storage&)` on `thread`, its result to `answer` as answerer() does.
    template <typename Work, typename Answer>
    void onStorage(StorageThread& thread, Client* c, Work work, Answer answer);
    /// On the loop: runs `answer` as the answer of request `ticket` of `c`
    /// once those of its earlier requests have run.
    void answerInOrder(Client* c, qint64 ticket, std::function<void()> answer);
    /// Pauses or resumes reading from `c`: paused while its replies are not
    /// draining or its requests in flight are at the limit.
    void updateReading(Client* c);
    /// (Re)arms the idle time-out of a logged-in client.
    void touch(Client* c);

    // Pushes to every logged-in client but `except`: marked, coalesced and
    // sent for a few milliseconds per pass of the event loop; a client whose output
    // is not draining is served when it drains.
    enum PushList { PushUsers = 1, PushMachines = 2, PushOperators = 4 };
    void push(int lists, Client* except);
    void pushUsers(Client* except) { push(PushUsers, except); }
    void pushMachines(Client* except) { push(PushMachines, except); }
    void pushOperators(Client* except) { push(PushOperators, except); }
    void armPushes();
    void sendPushes();
    /// Sends the marked lists from pushed_, for kPushMsPerPass.
    void servePushes();
    /// Has the writer read the stale lists into pushed_, then serves them.
    void readPushes();
    /// The lists as pushed: encoded once (on the writer's thread) for all the
    /// clients, each client's resolver framing them.
    struct PushedLists
    {
        KZEncodedMessages users;
        KZEncodedMessages machines;
        KZEncodedMessages operators;
    };
    /// Sends `messages` to every logged-in client.
    void sendToAll(const KZEncodedMessages& messages);
    /// Marks `lists` to be sent to `c` with the next pushes.
    void mark(Client* c, int lists);
    /// The three lists to a client that has just logged in, read and sent
    /// as pushes are.
    void sendLists(Client* c);
    void pauseAccepting(); ///< until the descriptor watch finds room again
    /// Milliseconds of pushing per pass of the event loop (one client at
    /// least), so that other clients are served between.
    static constexpr int kPushMsPerPass = 10;

    QString storageDir_;
    Listener* listener_ = nullptr;
    bool acceptPaused_ = false; ///< out of descriptors, or accepting failed
    QElapsedTimer pausedSince_;
    int maxClients_ = kMaxClients;
    QSet<Client*> clients_;
    ServerLimits limits_;
    LoginQueue logins_;
    int lastTask_ = 0;
    QSet<QString> transfersInProgress_; ///< "<machine>/<name>" being received
    int pushesPending_ = 0;             ///< lists whose cached copy is stale
    bool pushesArmed_ = false;
    bool pushesReading_ = false; ///< the writer is reading the lists
    qint64 pushesSent_ = 0;
    PushedLists pushed_;   ///< the lists as last read for the pushes
    QString storageError_; ///< why a connection of the storage threads did not open
    StorageThread reader_; ///< the reads that answer requests, off the loop
    StorageThread writer_; ///< the changes to the database, in order, off the loop
    QThreadPool work_;     ///< hashing, digests
};

#endif
