#include "listener.h"

#include "server.h" // the log categories

#include <QSocketNotifier>
#include <QSslSocket>
#include <QTimer>

#include <arpa/inet.h>
#include <cerrno>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

/// The first byte of every TLS connection: a handshake record.
constexpr unsigned char kTlsHandshakeRecord = 0x16;

} // namespace

/// One connection being sorted: its descriptor until a socket takes it, then
/// (TLS) the socket in its handshake. Deleting it closes whichever it holds.
class Listener::Arrival : public QObject
{
public:
    Arrival(Listener* owner, qintptr fd, const QHostAddress& address, quint16 port)
        : QObject(owner), listener(owner), fd(fd), address(address.toString()),
          peer(QStringLiteral("%1:%2").arg(this->address).arg(port)),
          notifier(fd, QSocketNotifier::Read)
    {
        owner->arrivals_.insert(this);
        ++owner->arrivalsFrom_[this->address];
        connect(&notifier, &QSocketNotifier::activated, this, [this] { peek(); });
        timer.setSingleShot(true);
        connect(&timer, &QTimer::timeout, this, [this] {
            qCInfo(lcServer).noquote()
                << peer << (tls ? "did not finish its TLS handshake in" : "sent nothing in")
                << listener->handshakeTimeoutMs_ / 1000.0 << "s; closed";
            done();
        });
        timer.start(owner->handshakeTimeoutMs_);
    }

    ~Arrival() override
    {
        listener->arrivals_.remove(this);
        if (--listener->arrivalsFrom_[address] <= 0) listener->arrivalsFrom_.remove(address);
        if (fd >= 0) ::close(int(fd));
    }

    /// Sorted, handed over or given up: goes, closing what it still holds.
    void done()
    {
        timer.stop();
        deleteLater();
    }

    /// The descriptor moves to `socket`; false (and the arrival going) if it
    /// cannot take it.
    bool adopt(QTcpSocket* socket)
    {
        if (!socket->setSocketDescriptor(fd)) {
            qCWarning(lcServer).noquote()
                << QStringLiteral("%1 could not be taken over: %2; closed")
                       .arg(peer, socket->errorString());
            delete socket;
            done();
            return false;
        }
        fd = -1;
        return true;
    }

    Listener* const listener;
    qintptr fd;
    const QString address;
    const QString peer; ///< address:port, for the logs
    QSocketNotifier notifier;
    QTimer timer;
    bool tls = false; ///< in the TLS handshake

private:
    void peek()
    {
        unsigned char first = 0;
        const ssize_t n = ::recv(int(fd), &first, 1, MSG_PEEK | MSG_DONTWAIT);
        if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR)) return;
        notifier.setEnabled(false); // before a socket watches the same descriptor
        if (n <= 0) {
            done(); // closed (or failed) before a byte came
            return;
        }
        listener->sorted(this, first);
    }
};

Listener::Listener(QObject* parent) : QTcpServer(parent) {}

Listener::~Listener()
{
    // Arrivals are children, which ~QObject would delete after the members
    // that they count themselves in.
    const QSet<Arrival*> all = arrivals_;
    qDeleteAll(all);
}

void Listener::setTls(const QSslConfiguration& config, bool tlsOnly)
{
    config_ = config;
    tls_ = true;
    tlsOnly_ = tlsOnly;
}

void Listener::incomingConnection(qintptr fd)
{
    sockaddr_storage ss = {};
    socklen_t length = sizeof ss;
    QHostAddress address;
    quint16 port = 0;
    if (::getpeername(int(fd), reinterpret_cast<sockaddr*>(&ss), &length) == 0) {
        address = QHostAddress(reinterpret_cast<const sockaddr*>(&ss));
        port = ntohs(ss.ss_family == AF_INET6 ? reinterpret_cast<sockaddr_in6*>(&ss)->sin6_port
                                              : reinterpret_cast<sockaddr_in*>(&ss)->sin_port);
    }
    if (arrivals_.size() >= kMaxArrivals ||
        arrivalsFrom_.value(address.toString()) >= kMaxArrivalsPerAddress) {
        ::close(int(fd));
        ++turnedAway_;
        if (!lastFullLog_.isValid() || lastFullLog_.elapsed() >= 1000) {
            qCWarning(lcServer).noquote()
                << QStringLiteral("too many connections opening at once (%1 in all; the last "
                                  "from %2): closed %3 since the last such line")
                       .arg(arrivals_.size())
                       .arg(address.toString())
                       .arg(turnedAway_);
            turnedAway_ = 0;
            lastFullLog_.start();
        }
        return;
    }
    new Arrival(this, fd, address, port);
}

void Listener::sorted(Arrival* a, unsigned char first)
{
    if (first != kTlsHandshakeRecord) {
        if (tlsOnly_) {
            qCInfo(lcServer).noquote()
                << a->peer << "opened in the clear; this server takes TLS only; closed";
            a->done();
            return;
        }
        auto* socket = new QTcpSocket(this);
        if (!a->adopt(socket)) return;
        handOver(socket);
        a->done();
        return;
    }
    if (!tls_) {
        qCInfo(lcServer).noquote() << a->peer
                                   << "opened a TLS handshake, but this server has no "
                                      "certificate (--tls-cert); closed";
        a->done();
        return;
    }
    auto* socket = new QSslSocket(a); // deleted with the arrival unless handed over
    socket->setSslConfiguration(config_);
    if (!a->adopt(socket)) return;
    a->tls = true;
    connect(socket, &QSslSocket::encrypted, a, [this, a, socket] {
        socket->disconnect(a);
        socket->setParent(this);
        handOver(socket);
        a->done();
    });
    connect(socket, &QAbstractSocket::errorOccurred, a, [a, socket] {
        // A client that refuses the certificate closes the connection.
        const bool left = socket->error() == QAbstractSocket::RemoteHostClosedError;
        qCInfo(lcServer).noquote() << QStringLiteral("%1 TLS handshake failed: %2; closed%3")
                                          .arg(a->peer, socket->errorString(),
                                               left ? QStringLiteral(" (does the client trust "
                                                                     "the certificate?)")
                                                    : QString());
        socket->disconnect(a);
        a->done();
    });
    socket->startServerEncryption();
}

void Listener::handOver(QTcpSocket* socket)
{
    addPendingConnection(socket);
    emit newConnection();
}
