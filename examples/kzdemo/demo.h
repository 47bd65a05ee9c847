// The demo's frame: two peers on one TCP connection and the client's script.
#ifndef KZDEMO_DEMO_H
#define KZDEMO_DEMO_H

#include "kzconnection.h"

#include <QList>
#include <QString>
#include <QTcpSocket>

#include <functional>

class Demo;

/// One end of the connection: a KZConnection on its socket. Families either
/// connect to its signals or set resolver callbacks, whose context pointer is
/// the connection, that is this peer.
struct Peer : KZConnection
{
    Peer(const char* name, Demo* demo) : name(name), demo(demo) {}

    const char* name;
    Demo* demo;
    /// The connection's resolver: its encoders send on the socket.
    KZProtocolResolver& resolver = *KZConnection::resolver();
    QTcpSocket* socket = nullptr;

    /// Prints one handled message: "[server] <- AddUser name=..." .
    void handled(const QString& what) const;
    /// Prints one sent message.
    void sent(const QString& what) const;
};

/// The peer behind a callback's context pointer.
inline Peer& peer(void* ctx) { return *static_cast<Peer*>(static_cast<KZConnection*>(ctx)); }

class Demo
{
public:
    Demo();

    Peer server{"server", this};
    Peer client{"client", this};

    /// Steps the client runs one after the other once it is logged in; a
    /// step sends a request, and the reply's callback calls next().
    QList<std::function<void()>> steps;
    void next();

    /// Set when something went wrong; the exit code is then 1.
    bool failed = false;
    void fail(const QString& why);
};

// Each family registers its callbacks on both peers and appends its steps.
void addSessionSteps(Demo& demo);
void addAccountsSteps(Demo& demo);
void addMachinesSteps(Demo& demo);
void addFilesSteps(Demo& demo);

/// Attaches a socket to a peer's connection.
void wire(Peer& p, QTcpSocket* socket);
void addLogsSteps(Demo& demo);
void addPlanningSteps(Demo& demo);

#endif
