// kzdemo: a LAN server and a management client in one process, each with its
// own KZConnection (a resolver on a socket), talking over a real TCP
// connection on 127.0.0.1.
// Both sides print every message they handle.
#include "demo.h"

#include <QCoreApplication>
#include <QFile>
#include <QHostAddress>
#include <QTcpServer>
#include <QTimer>

#include <cstdio>

namespace {

// With --capture FILE, every frame either side sends is also written there,
// in the order sent, for tools/kzdump to show.
QFile* capture = nullptr;

} // namespace

void wire(Peer& p, QTcpSocket* socket)
{
    p.socket = socket;
    // The tail of a large message and small replies (chunk acknowledgements)
    // go out at once instead of waiting for the peer's delayed ACK. The
    // option takes on a connected socket only.
    const auto lowDelay = [socket] { socket->setSocketOption(QAbstractSocket::LowDelayOption, 1); };
    if (socket->state() == QAbstractSocket::ConnectedState) lowDelay();
    QObject::connect(socket, &QTcpSocket::connected, lowDelay);
    p.setDevice(socket); // received bytes go to the resolver, its frames to the socket
    if (capture)
        QObject::connect(&p, &KZConnection::frameSent,
                         [](const QByteArray& frame) { capture->write(frame); });
}

void Peer::handled(const QString& what) const
{
    std::printf("[%s] <- %s\n", name, qPrintable(what));
    std::fflush(stdout);
}

void Peer::sent(const QString& what) const
{
    std::printf("[%s] -> %s\n", name, qPrintable(what));
    std::fflush(stdout);
}

Demo::Demo() = default;

void Demo::next()
{
    if (steps.isEmpty()) return;
    const auto step = steps.takeFirst();
    step();
}

void Demo::fail(const QString& why)
{
    std::printf("FAILED: %s\n", qPrintable(why));
    failed = true;
    QCoreApplication::exit(1);
}

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    QFile captureFile;
    const QStringList args = QCoreApplication::arguments();
    const int at = args.indexOf(QStringLiteral("--capture"));
    if (at > 0 && at + 1 < args.size()) {
        captureFile.setFileName(args[at + 1]);
        if (!captureFile.open(QIODevice::WriteOnly | QIODevice::Truncate)) {
            std::printf("cannot write %s\n", qPrintable(args[at + 1]));
            return 1;
        }
        capture = &captureFile;
    }
    // --listen PORT: the server's port (default: any free one); --connect
    // PORT: where the client connects (default: the server), e.g. through
    // `kzdump --tap`.
    const auto portOption = [&args](const char* name) {
        const int i = args.indexOf(QLatin1String(name));
        return i > 0 && i + 1 < args.size() ? quint16(args[i + 1].toUInt()) : quint16(0);
    };
    Demo demo;
    addSessionSteps(demo); // login first, logout last
    addAccountsSteps(demo);
    addMachinesSteps(demo);
    addFilesSteps(demo);
    addLogsSteps(demo);
    addPlanningSteps(demo);

    QTcpServer listener;
    if (!listener.listen(QHostAddress::LocalHost, portOption("--listen"))) {
        std::printf("cannot listen on 127.0.0.1: %s\n", qPrintable(listener.errorString()));
        return 1;
    }
    std::printf("server listening on 127.0.0.1:%u\n", unsigned(listener.serverPort()));
    QObject::connect(&listener, &QTcpServer::newConnection, [&] {
        QTcpSocket* s = listener.nextPendingConnection();
        wire(demo.server, s);
        QObject::connect(&demo.server, &KZConnection::disconnected, [&] {
            std::printf("[server] client disconnected\n");
            QCoreApplication::exit(demo.failed || !demo.steps.isEmpty() ? 1 : 0);
        });
    });

    QTcpSocket clientSocket;
    wire(demo.client, &clientSocket);
    QObject::connect(&clientSocket, &QTcpSocket::connected, [&] {
        std::printf("[client] connected\n");
        demo.next();
    });
    const quint16 via = portOption("--connect");
    clientSocket.connectToHost(QHostAddress::LocalHost, via ? via : listener.serverPort());

    QTimer::singleShot(20000, [&] { demo.fail(QStringLiteral("timed out")); });
    const int rc = app.exec();
    std::printf(rc == 0 ? "demo finished\n" : "demo failed\n");
    return rc;
}
