#include "tap.h"

#include "pcap.h"
#include "stream.h"

#include <QCoreApplication>
#include <QTcpServer>
#include <QTcpSocket>

#include <cstdio>

namespace kzdump {

namespace {

const QString kToServer = QStringLiteral("client→server");
const QString kToClient = QStringLiteral("server→client");

/// An address as IPv4 where it is one (a client over IPv4 shows as such,
/// not as a mapped address); other addresses are recorded as loopback.
Endpoint endpointOf(const QHostAddress& address, quint16 port, QString* text)
{
    bool v4 = false;
    const quint32 a = address.toIPv4Address(&v4);
    *text =
        QStringLiteral("%1:%2").arg(v4 ? QHostAddress(a).toString() : address.toString()).arg(port);
    return Endpoint{v4 ? a : QHostAddress(QHostAddress::LocalHost).toIPv4Address(), port, {}};
}

/// One relayed connection: bytes pass unchanged both ways and each
/// direction is dumped (and recorded) as it passes.
class Relay : public QObject
{
public:
    Relay(Output& out, int id, QTcpSocket* client, const TapOptions& opt, PcapWriter* pcap)
        : out_(out), id_(id), client_(client), toServer_(out, id, kToServer),
          toClient_(out, id, kToClient), last_(opt.once), pcap_(pcap)
    {
        client_->setParent(this);
        server_ = new QTcpSocket(this);
        connect(server_, &QTcpSocket::connected, this, [this] {
            opened();
            pass(client_, server_, toServer_, true);
        });
        connect(client_, &QTcpSocket::readyRead, this, [this] {
            if (server_->state() == QAbstractSocket::ConnectedState)
                pass(client_, server_, toServer_, true);
        });
        connect(server_, &QTcpSocket::readyRead, this,
                [this] { pass(server_, client_, toClient_, false); });
        connect(client_, &QTcpSocket::disconnected, this, [this] { end(server_); });
        connect(server_, &QTcpSocket::disconnected, this, [this] { end(client_); });
        connect(server_, &QTcpSocket::errorOccurred, this, [this] {
            if (server_->state() != QAbstractSocket::ConnectedState) {
                std::fprintf(stderr, "kzdump: connection %d: cannot reach the server: %s\n", id_,
                             qPrintable(server_->errorString()));
                end(client_);
            }
        });
        server_->connectToHost(opt.host, opt.targetPort);
    }

private:
    void opened()
    {
        QString from, to;
        const Endpoint c = endpointOf(client_->peerAddress(), client_->peerPort(), &from);
        const Endpoint s = endpointOf(server_->peerAddress(), server_->peerPort(), &to);
        out_.report({{"connection", id_}, {"event", "open"}, {"client", from}, {"server", to}},
                    QStringLiteral("-- connection %1 from %2 to %3").arg(id_).arg(from, to));
        if (pcap_) pcapId_ = pcap_->opened(c, s);
        std::fflush(stdout);
    }

    void pass(QTcpSocket* from, QTcpSocket* to, Stream& dump, bool fromClient)
    {
        const QByteArray bytes = from->readAll();
        if (bytes.isEmpty()) return;
        to->write(bytes);
        if (pcap_ && pcapId_ >= 0) pcap_->data(pcapId_, fromClient, bytes);
        dump.feed(bytes);
    }

    /// One side has gone: the other is closed once its writes are out.
    void end(QTcpSocket* other)
    {
        if (ended_) return;
        ended_ = true;
        pass(client_, server_, toServer_, true);
        pass(server_, client_, toClient_, false);
        toServer_.finish();
        toClient_.finish();
        if (pcap_ && pcapId_ >= 0) pcap_->closed(pcapId_);
        out_.report({{"connection", id_}, {"event", "close"}},
                    QStringLiteral("-- connection %1 closed").arg(id_));
        std::fflush(stdout);
        other->disconnectFromHost();
        if (last_) QCoreApplication::quit();
        deleteLater();
    }

    Output& out_;
    int id_;
    QTcpSocket* client_;
    QTcpSocket* server_;
    Stream toServer_;
    Stream toClient_;
    bool last_;
    PcapWriter* pcap_;
    int pcapId_ = -1;
    bool ended_ = false;
};

} // namespace

int tap(Output& out, const TapOptions& opt)
{
    PcapWriter pcap;
    QString error;
    if (!opt.pcap.isEmpty() && !pcap.open(opt.pcap, &error)) {
        std::fprintf(stderr, "kzdump: --pcap %s: %s\n", qPrintable(opt.pcap), qPrintable(error));
        return 1;
    }
    QTcpServer listener;
    if (!listener.listen(opt.listen, opt.port)) {
        std::fprintf(stderr, "kzdump: cannot listen on %s port %u: %s\n",
                     qPrintable(opt.listen.toString()), unsigned(opt.port),
                     qPrintable(listener.errorString()));
        return 1;
    }
    std::fprintf(stderr, "kzdump: listening on port %u, address %s, relaying to %s:%u\n",
                 unsigned(listener.serverPort()), qPrintable(opt.listen.toString()),
                 qPrintable(opt.host), unsigned(opt.targetPort));
    int connections = 0;
    QObject::connect(&listener, &QTcpServer::newConnection, [&] {
        while (QTcpSocket* client = listener.nextPendingConnection()) {
            new Relay(out, ++connections, client, opt, opt.pcap.isEmpty() ? nullptr : &pcap);
            if (opt.once) listener.close();
        }
    });
    return QCoreApplication::exec();
}

} // namespace kzdump
