// Accepting: every new connection is sorted by the first byte its client
// sends before the server sees it. A TLS client opens with a handshake record
// (content type 0x16); a client of the protocol in the clear opens with a
// frame, whose sync marker starts with 'K' (0x4B). The byte is looked at with
// MSG_PEEK, so it stays in the kernel for whichever socket takes the
// connection: a QSslSocket that runs the server side of the handshake, or a
// plain QTcpSocket. Both kinds share one port; the server speaks only after
// the client's first message, so waiting for that byte costs nothing.
//
// A connection reaches the server (newConnection(), nextPendingConnection())
// only once it is sorted, and a TLS one only once its handshake succeeded.
// Until then it is held here: at most kMaxArrivals at a time, each for at most
// the handshake time-out.
#ifndef KZLAN_SERVER_LISTENER_H
#define KZLAN_SERVER_LISTENER_H

#include <QElapsedTimer>
#include <QHash>
#include <QSet>
#include <QSslConfiguration>
#include <QTcpServer>

class Listener : public QTcpServer
{
public:
    /// Connections being sorted or in their handshake, at most, in all and
    /// from one address; the ones beyond are closed at once.
    static constexpr int kMaxArrivals = 512;
    static constexpr int kMaxArrivalsPerAddress = 64;
    /// How long a new connection has for its first byte and its handshake.
    static constexpr int kDefaultHandshakeTimeoutMs = 10000;

    explicit Listener(QObject* parent = nullptr);
    ~Listener() override;

    /// Serves TLS with `config` (its certificate and key set). With
    /// `tlsOnly`, connections in the clear are closed at once.
    void setTls(const QSslConfiguration& config, bool tlsOnly);
    void setHandshakeTimeout(int ms) { handshakeTimeoutMs_ = ms; }
    bool tls() const { return tls_; }
    bool tlsOnly() const { return tlsOnly_; }

protected:
    void incomingConnection(qintptr fd) override;

private:
    class Arrival;
    friend class Arrival;
    void sorted(Arrival* a, unsigned char first);
    void handOver(QTcpSocket* socket);

    QSslConfiguration config_;
    bool tls_ = false;
    bool tlsOnly_ = false;
    int handshakeTimeoutMs_ = kDefaultHandshakeTimeoutMs;
    QSet<Arrival*> arrivals_;
    QHash<QString, int> arrivalsFrom_; ///< per address
    int turnedAway_ = 0;               ///< closed for want of room since the last log line
    QElapsedTimer lastFullLog_;        ///< that log line is written once a second at most
};

#endif
