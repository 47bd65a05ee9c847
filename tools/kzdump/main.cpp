// kzdump: shows what is on the wire. Finds the frames in a byte stream (a raw
// capture, hex text, a pcap file, or live traffic relayed between a client
// and a server), restores each message body and prints the message with
// every field its decoder reads, by name:
//
//   #1 seq 0 request Logout (0x0002), 1 frame, 9 bytes
//       value = 7  (i32 @0)
//
// The fields come from the library's own decoders, run with no callbacks set
// and a recording reader, so the dump cannot disagree with them. What cannot
// be decoded (a damaged frame, an unknown code, a cut body, bytes that are
// no frame, a stream that ends inside a frame) is shown as hex with the
// reason, where it occurs, and counted in the summary.
#include "output.h"
#include "pcap.h"
#include "stream.h"
#include "tap.h"

#include <QCoreApplication>
#include <QFile>

#include <cstdio>
#include <cstring>
#include <map>
#include <memory>

namespace {

using kzdump::Output;
using kzdump::Stream;

const char* const kUsage =
    "usage: kzdump [--json] [--quiet] [--hex] [FILE|-]\n"
    "       kzdump [--json] [--quiet] [--once] [--listen ADDRESS] [--pcap FILE]\n"
    "              --tap LISTEN_PORT HOST:PORT\n"
    "  Prints every message in a byte stream of kzresolver frames: direction,\n"
    "  sequence number, flag, method name and code, and each field by name.\n"
    "  Frames and bodies that cannot be decoded, bytes that belong to no frame\n"
    "  and a stream that ends inside a frame are shown as hex with the reason.\n"
    "  FILE      raw bytes or a pcap capture (TCP, each direction reassembled);\n"
    "            - or no FILE reads standard input\n"
    "  --hex     the input is hex text (blanks and newlines ignored)\n"
    "  --json    one JSON object per line on standard output, nothing else:\n"
    "            messages, dropped frames, skipped bytes, connections, summary\n"
    "  --quiet   one line per message, no fields\n"
    "  --tap     listen on LISTEN_PORT (0: any free port, printed on stderr),\n"
    "            relay each client to HOST:PORT unchanged and print both\n"
    "            directions live\n"
    "  --listen  with --tap: the address to listen on (default 127.0.0.1; the\n"
    "            relayed traffic carries passwords, so listen wider only on purpose)\n"
    "  --pcap    with --tap: also write the relayed traffic to FILE as pcap\n"
    "  --once    with --tap: exit when the first connection ends\n"
    "  --help    this text\n"
    "  --version the version\n";

int fail(const QString& why)
{
    std::fprintf(stderr, "kzdump: %s\n", qPrintable(why));
    return 1;
}

int usageError(const QString& why)
{
    std::fprintf(stderr, "kzdump: %s\n%s", qPrintable(why), kUsage);
    return 1;
}

bool parsePort(const QString& text, quint16* port, bool zeroAllowed)
{
    bool ok = false;
    const uint n = text.toUInt(&ok);
    if (!ok || n > 65535 || (n == 0 && !zeroAllowed)) return false;
    *port = quint16(n);
    return true;
}

/// A pcap file: each connection's directions dumped as two streams, in
/// packet order.
int dumpPcap(Output& out, const QString& name, const QByteArray& input)
{
    std::map<std::pair<int, bool>, std::unique_ptr<Stream>> streams;
    const auto direction = [](bool fromClient) {
        return fromClient ? QStringLiteral("client→server") : QStringLiteral("server→client");
    };
    kzdump::PcapVisitor visit;
    visit.opened = [&](int id, const kzdump::Endpoint& client, const kzdump::Endpoint& server) {
        out.report({{"connection", id},
                    {"event", "open"},
                    {"client", client.text()},
                    {"server", server.text()}},
                   QStringLiteral("-- connection %1 from %2 to %3")
                       .arg(id)
                       .arg(client.text(), server.text()));
        for (bool fromClient : {true, false})
            streams[{id, fromClient}] = std::make_unique<Stream>(out, id, direction(fromClient));
    };
    visit.data = [&](int id, bool fromClient, const QByteArray& bytes) {
        streams[{id, fromClient}]->feed(bytes);
    };
    visit.gap = [&](int id, bool fromClient, qint64 missing) {
        out.report({{"connection", id},
                    {"direction", direction(fromClient)},
                    {"missing", double(missing)}},
                   QStringLiteral("-- %1 %2 bytes missing from the capture")
                       .arg(direction(fromClient))
                       .arg(missing));
    };
    QString error;
    const bool ok = kzdump::readPcap(input, visit, &error);
    for (auto& s : streams) s.second->finish();
    out.summary();
    return ok ? 0 : fail(name + QStringLiteral(": ") + error);
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationVersion(QStringLiteral(KZDUMP_VERSION));
    Output out;
    bool hex = false;
    const char* path = nullptr;
    const char* tapPort = nullptr;
    const char* tapTarget = nullptr;
    const char* listen = nullptr;
    kzdump::TapOptions tap;
    for (int i = 1; i < argc; ++i) {
        const char* a = argv[i];
        const auto needs = [&](int n) { return i + n < argc; };
        if (!std::strcmp(a, "--help") || !std::strcmp(a, "-h")) {
            std::fputs(kUsage, stdout);
            return 0;
        } else if (!std::strcmp(a, "--version")) {
            std::printf("kzdump %s\n", KZDUMP_VERSION);
            return 0;
        } else if (!std::strcmp(a, "--hex")) {
            hex = true;
        } else if (!std::strcmp(a, "--json")) {
            out.json = true;
        } else if (!std::strcmp(a, "--quiet")) {
            out.quiet = true;
        } else if (!std::strcmp(a, "--once")) {
            tap.once = true;
        } else if (!std::strcmp(a, "--tap")) {
            if (!needs(2))
                return usageError(QStringLiteral("--tap needs LISTEN_PORT and HOST:PORT"));
            tapPort = argv[++i];
            tapTarget = argv[++i];
        } else if (!std::strcmp(a, "--listen")) {
            if (!needs(1)) return usageError(QStringLiteral("--listen needs an ADDRESS"));
            listen = argv[++i];
        } else if (!std::strcmp(a, "--pcap")) {
            if (!needs(1)) return usageError(QStringLiteral("--pcap needs a FILE"));
            tap.pcap = QString::fromLocal8Bit(argv[++i]);
        } else if (a[0] == '-' && a[1]) {
            return usageError(QStringLiteral("unknown option '%1'").arg(QString::fromLocal8Bit(a)));
        } else if (path) {
            return usageError(QStringLiteral("one input only: '%1' and '%2'")
                                  .arg(QString::fromLocal8Bit(path), QString::fromLocal8Bit(a)));
        } else {
            path = a;
        }
    }

    if (tapPort) {
        if (path || hex) return usageError(QStringLiteral("--tap reads no FILE and no --hex"));
        if (!parsePort(QString::fromLocal8Bit(tapPort), &tap.port, true))
            return fail(QStringLiteral("--tap: '%1' is not a port to listen on (0 to 65535)")
                            .arg(QString::fromLocal8Bit(tapPort)));
        const QString to = QString::fromLocal8Bit(tapTarget);
        const int colon = to.lastIndexOf(QLatin1Char(':'));
        if (colon <= 0 || !parsePort(to.mid(colon + 1), &tap.targetPort, false))
            return fail(QStringLiteral("--tap: '%1' is not HOST:PORT (port 1 to 65535)").arg(to));
        tap.host = to.left(colon);
        if (listen && !tap.listen.setAddress(QString::fromLocal8Bit(listen)))
            return fail(QStringLiteral("--listen: '%1' is not an IP address")
                            .arg(QString::fromLocal8Bit(listen)));
        return kzdump::tap(out, tap);
    }
    if (listen || !tap.pcap.isEmpty() || tap.once)
        return usageError(QStringLiteral("--listen, --pcap and --once go with --tap"));

    QFile file;
    const bool fromStdin = !path || !std::strcmp(path, "-");
    const QString name =
        fromStdin ? QStringLiteral("standard input") : QString::fromLocal8Bit(path);
    const bool opened = fromStdin ? file.open(stdin, QIODevice::ReadOnly)
                                  : (file.setFileName(name), file.open(QIODevice::ReadOnly));
    if (!opened) return fail(QStringLiteral("cannot read %1: %2").arg(name, file.errorString()));
    QByteArray input = file.readAll();
    if (hex) {
        input = input.simplified().replace(' ', QByteArray());
        const QByteArray bytes = QByteArray::fromHex(input);
        if (bytes.size() * 2 != input.size())
            return fail(QStringLiteral("%1: not hex text (--hex)").arg(name));
        input = bytes;
    }
    if (kzdump::isPcap(input)) return dumpPcap(out, name, input);
    {
        Stream stream(out, 0, QString());
        stream.feed(input);
        stream.finish();
    }
    out.summary();
    return 0;
}
