// The demo's frame: two peers on one TCP connection and the client's script.
#ifndef KZDEMO_DEMO_H
#define KZDEMO_DEMO_H

#include "kzprotocolresolver.h"

#include <QList>
#include <QString>
#include <QTcpSocket>

#include <functional>

class Demo;

/// One end of the connection: its resolver and its socket.
struct Peer
{
    const char* name;
    Demo* demo;
    KZProtocolResolver resolver;
    QTcpSocket* socket = nullptr;

    /// Prints one handled message: "[server] <- AddUser name=..." .
    void handled(const QString& what) const;
    /// Prints one sent message.
    void sent(const QString& what) const;
};

/// The peer behind a callback's context pointer.
inline Peer& peer(void* ctx) { return *static_cast<Peer*>(ctx); }

class Demo
{
public:
    Demo();

    Peer server{"server", this, KZProtocolResolver()};
    Peer client{"client", this, KZProtocolResolver()};

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

/// Connects a peer's resolver to a socket: received bytes go to the
/// resolver, its frames to the socket.
void wire(Peer& p, QTcpSocket* socket);
void addLogsSteps(Demo& demo);
void addPlanningSteps(Demo& demo);

#endif
