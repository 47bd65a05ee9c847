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

const char kUsage[] =
    "usage: kzdemo [--capture FILE] [--listen PORT] [--connect PORT]\n"
    "  A LAN server and a management client in one process, over 127.0.0.1; both print\n"
    "  every message they handle.\n\n"
    "  --capture FILE  also write every frame either side sends to FILE (for kzdump)\n"
    "  --listen PORT   the server's port (default: any free one)\n"
    "  --connect PORT  where the client connects (default: the server), e.g. a kzdump relay\n"
    "  --help          this text\n"
    "  --version       the demo's version\n";

struct Options
{
    QString capture;
    quint16 listen = 0;
    quint16 connect = 0;
};

/// Reads the command line into `opt`; -1 to go on, or the exit code (help, version, a
/// usage error named on stderr with the usage).
int parse(const QStringList& args, Options* opt)
{
    const auto usageError = [](const QString& why) {
        std::fprintf(stderr, "kzdemo: %s\n%s", qPrintable(why), kUsage);
        return 1;
    };
    for (int i = 1; i < args.size(); ++i) {
        const QString& o = args[i];
        if (o == QLatin1String("--help")) {
            std::printf("%s", kUsage);
            return 0;
        }
        if (o == QLatin1String("--version")) {
            std::printf("kzdemo %s\n", KZ_VERSION);
            return 0;
        }
        const bool port = o == QLatin1String("--listen") || o == QLatin1String("--connect");
        if (!port && o != QLatin1String("--capture"))
            return usageError(QStringLiteral("unknown option %1").arg(o));
        if (i + 1 >= args.size()) return usageError(QStringLiteral("%1 needs a value").arg(o));
        const QString v = args[++i];
        if (!port) {
            opt->capture = v;
            continue;
        }
        bool ok = false;
        const uint n = v.toUInt(&ok);
        if (!ok || n > 65535) return usageError(QStringLiteral("bad value for %1: %2").arg(o, v));
        (o == QLatin1String("--listen") ? opt->listen : opt->connect) = quint16(n);
    }
    return -1;
}

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
    Options opt;
    const int rc = parse(QCoreApplication::arguments(), &opt);
    if (rc >= 0) return rc;
    QFile captureFile;
    if (!opt.capture.isEmpty()) {
        captureFile.setFileName(opt.capture);
        if (!captureFile.open(QIODevice::WriteOnly | QIODevice::Truncate)) {
            std::fprintf(stderr, "kzdemo: cannot write %s\n", qPrintable(opt.capture));
            return 1;
        }
        capture = &captureFile;
    }
    Demo demo;
    addSessionSteps(demo); // login first, logout last
    addAccountsSteps(demo);
    addMachinesSteps(demo);
    addFilesSteps(demo);
    addLogsSteps(demo);
    addPlanningSteps(demo);

    QTcpServer listener;
    if (!listener.listen(QHostAddress::LocalHost, opt.listen)) {
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
    clientSocket.connectToHost(QHostAddress::LocalHost,
                               opt.connect ? opt.connect : listener.serverPort());

    QTimer::singleShot(20000, [&] { demo.fail(QStringLiteral("timed out")); });
    const int result = app.exec();
    std::printf(result == 0 ? "demo finished\n" : "demo failed\n");
    return result;
}
