// kzfleet: a fleet of simulated machines against a LAN server, on one thread
// and one event loop. It prints a live line on a terminal and a summary at
// the end (JSON with --json); the exit code says whether every report was
// acknowledged.
#include "fleet.h"
#include "options.h"
#include "pemfiles.h"

#include <QCoreApplication>
#include <QJsonDocument>
#include <QSslSocket>
#include <QTimer>

#include <csignal>
#include <cstdio>
#include <sys/resource.h>
#include <unistd.h>

namespace {

volatile std::sig_atomic_t g_interrupted = 0;

void onSignal(int) { g_interrupted = 1; }

/// Every machine is a descriptor: the soft limit goes up to the hard one.
void raiseDescriptorLimit()
{
    rlimit files{};
    if (getrlimit(RLIMIT_NOFILE, &files) != 0 || files.rlim_cur >= files.rlim_max) return;
    files.rlim_cur = files.rlim_max;
    setrlimit(RLIMIT_NOFILE, &files);
}

void printText(const QJsonObject& s)
{
    const QJsonObject lat = s.value(QStringLiteral("latency_ms")).toObject();
    std::printf(
        "machines %d, %.1f s: reports sent %.0f, acknowledged %.0f, lost %.0f, "
        "held back %.0f; other reports %.0f\n"
        "acknowledgement latency p50 %.2f ms, p99 %.2f ms, max %.2f ms\n"
        "logins %.0f (reconnects %.0f), errors %.0f, panel requests %.0f, "
        "transfers %.0f\n",
        s.value(QStringLiteral("machines")).toInt(), s.value(QStringLiteral("seconds")).toDouble(),
        s.value(QStringLiteral("reports_sent")).toDouble(),
        s.value(QStringLiteral("reports_acknowledged")).toDouble(),
        s.value(QStringLiteral("reports_lost")).toDouble(),
        s.value(QStringLiteral("reports_held")).toDouble(),
        s.value(QStringLiteral("other_reports_sent")).toDouble(),
        lat.value(QStringLiteral("p50")).toDouble(), lat.value(QStringLiteral("p99")).toDouble(),
        lat.value(QStringLiteral("max")).toDouble(), s.value(QStringLiteral("logins")).toDouble(),
        s.value(QStringLiteral("reconnects")).toDouble(),
        s.value(QStringLiteral("errors")).toDouble(),
        s.value(QStringLiteral("panel_requests")).toDouble(),
        s.value(QStringLiteral("transfers_done")).toDouble());
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    Options opt;
    if (qEnvironmentVariableIsSet("KZFLEET_PASSWORD"))
        opt.password = QString::fromLocal8Bit(qgetenv("KZFLEET_PASSWORD"));
    QString error;
    switch (parseOptions(QCoreApplication::arguments().mid(1), &opt, &error)) {
    case Parsed::Help:
        std::fputs(qPrintable(usageText()), stdout);
        return 0;
    case Parsed::Version:
        std::printf("kzfleet %s\n", KZ_VERSION);
        return 0;
    case Parsed::Error:
        std::fprintf(stderr, "kzfleet: %s (see --help)\n", qPrintable(error));
        return 1;
    case Parsed::Run:
        break;
    }
    raiseDescriptorLimit();
    std::signal(SIGINT, onSignal);
    std::signal(SIGTERM, onSignal);
    std::signal(SIGPIPE, SIG_IGN);

    Fleet fleet(opt);
    if (opt.tls) {
        if (!QSslSocket::supportsSsl()) {
            std::fprintf(stderr, "kzfleet: TLS is not available: Qt found no TLS library\n");
            return 1;
        }
        QSslConfiguration tls = QSslConfiguration::defaultConfiguration();
        tls.setProtocol(QSsl::TlsV1_2OrLater);
        tls.setPeerVerifyMode(QSslSocket::VerifyPeer); // the chain, and the name
        if (!opt.ca.isEmpty()) {
            const QList<QSslCertificate> ca = readPemCertificates(opt.ca, &error);
            if (ca.isEmpty()) {
                std::fprintf(stderr, "kzfleet: --ca: %s\n", qPrintable(error));
                return 1;
            }
            tls.setCaCertificates(ca);
        }
        fleet.setTls(tls);
    }
    QObject::connect(&fleet, &Fleet::finished, &app, &QCoreApplication::quit);
    // The start of the measured duration, for a person or a script watching.
    QObject::connect(&fleet, &Fleet::rampDone, &app, [](int machines, double seconds) {
        std::fprintf(stderr, "kzfleet: %d machines logged in after %.1f s\n", machines, seconds);
    });
    QTimer interrupt;
    QObject::connect(&interrupt, &QTimer::timeout, &fleet, [&fleet] {
        if (g_interrupted) fleet.stop();
    });
    interrupt.start(100);
    // The live line, on a terminal only.
    const bool live = !opt.json && isatty(STDOUT_FILENO);
    QTimer line;
    QObject::connect(&line, &QTimer::timeout, &fleet, [&fleet] {
        std::printf("\r\033[K%s", qPrintable(fleet.liveLine()));
        std::fflush(stdout);
    });
    if (live) line.start(1000);
    fleet.start();
    app.exec();
    if (live) std::printf("\r\033[K");

    const QJsonObject s = fleet.summary();
    if (opt.json)
        std::printf("%s", QJsonDocument(s).toJson(QJsonDocument::Indented).constData());
    else
        printText(s);
    if (s.value(QStringLiteral("logins")).toDouble() == 0) return 3;
    const bool clean = s.value(QStringLiteral("reports_lost")).toDouble() == 0 &&
                       s.value(QStringLiteral("errors")).toDouble() == 0;
    return clean ? 0 : 2;
}
