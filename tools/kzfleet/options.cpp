#include "options.h"

#include <QtGlobal>

#include <functional>

namespace {

/// One option that takes a value: its name, its help and how it is read.
struct ValueOption
{
    const char* name;
    const char* arg;
    const char* help;
    std::function<bool(const QString&, Options*)> read;
};

bool readInt(const QString& v, int lo, int hi, int* out)
{
    bool ok = false;
    const qint64 n = v.toLongLong(&ok);
    if (!ok || n < lo || n > hi) return false;
    *out = int(n);
    return true;
}

bool readDouble(const QString& v, double lo, double hi, double* out)
{
    bool ok = false;
    const double d = v.toDouble(&ok);
    if (!ok || !(d >= lo && d <= hi)) return false;
    *out = d;
    return true;
}

/// A TLS option's text (not empty); giving one turns TLS on.
bool readTlsText(const QString& v, QString* out, Options* o)
{
    o->tls = true;
    *out = v;
    return !v.isEmpty();
}

const QList<ValueOption>& valueOptions()
{
    static const QList<ValueOption> table = {
        {"host", "H", "server address (default 127.0.0.1)",
         [](const QString& v, Options* o) { return !(o->host = v).isEmpty(); }},
        {"port", "P", "server port (default 7600)",
         [](const QString& v, Options* o) {
             int p = 0;
             const bool ok = readInt(v, 1, 65535, &p);
             o->port = quint16(p);
             return ok;
         }},
        {"machines", "N", "simulated machines, each its own connection (1 to 20000, default 10)",
         [](const QString& v, Options* o) { return readInt(v, 1, 20000, &o->machines); }},
        {"rate", "R", "work-log reports per second of each machine (0.01 to 500, default 1)",
         [](const QString& v, Options* o) { return readDouble(v, 0.01, 500, &o->rate); }},
        {"duration", "S", "seconds of reporting; 0 runs until interrupted (default 10)",
         [](const QString& v, Options* o) {
             return readDouble(v, 0, 7 * 24 * 3600, &o->duration);
         }},
        {"seed", "S", "seed of the simulated values: a seed replays the same reports (default 1)",
         [](const QString& v, Options* o) {
             bool ok = false;
             o->seed = v.toULongLong(&ok);
             return ok;
         }},
        {"user", "U",
         "account the machines log in with (default admin); it needs the\n"
         "      Machines and Reports rights",
         [](const QString& v, Options* o) { return !(o->user = v).isEmpty(); }},
        {"password", "P", "its password (default: $KZFLEET_PASSWORD)",
         [](const QString& v, Options* o) {
             o->password = v;
             return true;
         }},
        {"prefix", "TEXT", "machine names are TEXT-0001, TEXT-0002, ... (default SIM)",
         [](const QString& v, Options* o) {
             o->prefix = v;
             return !v.isEmpty() && v.size() <= 32 && !v.contains(QLatin1Char('/'));
         }},
        {"start", "YYYY-MM-DD", "simulated date of the first report (default: today, UTC)",
         [](const QString& v, Options* o) {
             o->start = QDate::fromString(v, Qt::ISODate);
             return o->start.isValid();
         }},
        {"ramp", "N", "machines connecting or logging in at once (1 to 1000, default 32)",
         [](const QString& v, Options* o) { return readInt(v, 1, 1000, &o->ramp); }},
        {"store", "DIR", "keep received files in DIR/<machine>/ (default: verify, keep nothing)",
         [](const QString& v, Options* o) { return !(o->store = v).isEmpty(); }},
        {"worklog-entries", "N", "entries in every work log (1 to 65535; default 1 to 3, drawn)",
         [](const QString& v, Options* o) { return readInt(v, 1, 65535, &o->workLogEntries); }},
        {"garbage", "N", "replace one message in N by random bytes (2 to 1000000)",
         [](const QString& v, Options* o) { return readInt(v, 2, 1000000, &o->garbage); }},
        {"digest-reports", "N", "reports of each machine in the summary's digest (default 10)",
         [](const QString& v, Options* o) { return readInt(v, 0, 1000000, &o->digestReports); }},
        {"login-timeout", "S",
         "seconds a machine's connection and login may take; the run ends when no\n"
         "      machine has logged in by then (0.1 to 600, default 15)",
         [](const QString& v, Options* o) { return readDouble(v, 0.1, 600, &o->loginTimeout); }},
        {"ca", "FILE",
         "trust the certificates in this PEM file (the server's own, or its CA)\n"
         "      instead of the system's; implies --tls",
         [](const QString& v, Options* o) { return readTlsText(v, &o->ca, o); }},
        {"tls-name", "NAME",
         "the name the server's certificate must carry, when --host is an address\n"
         "      or another name; implies --tls",
         [](const QString& v, Options* o) { return readTlsText(v, &o->tlsName, o); }},
        {"drain", "S", "seconds to wait for the last acknowledgements at the end (default 5)",
         [](const QString& v, Options* o) { return readDouble(v, 0, 600, &o->drain); }},
    };
    return table;
}

struct FlagOption
{
    const char* name;
    const char* help;
    bool Options::*field;
};

const FlagOption kFlags[] = {
    {"json", "print a JSON summary at the end instead of text", &Options::json},
    {"tls",
     "connect with TLS; the server's certificate must be trusted and made out\n"
     "      for the host (or --tls-name)",
     &Options::tls},
    {"no-register", "do not send the machines' entries before reporting", &Options::noRegister},
    {"impossible", "report impossible values: negative counts, dates in the year 9999",
     &Options::impossible},
};

} // namespace

QString usageText()
{
    QString text = QStringLiteral(
        "usage: kzfleet [--host H] [--port P] [--machines N] [--rate R] [--duration S]\n"
        "               [--seed S] [--json] [options]\n"
        "  Simulates a fleet of machines against a LAN server: each machine is its own\n"
        "  connection, logs in, registers, reports its state and work log at the rate\n"
        "  given, answers the remote panel with a screen image and takes file transfers.\n\n");
    for (const ValueOption& o : valueOptions())
        text += QStringLiteral("  --%1 %2\n      %3\n")
                    .arg(QLatin1String(o.name), QLatin1String(o.arg), QLatin1String(o.help));
    for (const FlagOption& f : kFlags)
        text +=
            QStringLiteral("  --%1\n      %2\n").arg(QLatin1String(f.name), QLatin1String(f.help));
    text += QStringLiteral("  --help\n      this text\n  --version\n      the program's version\n\n"
                           "exit codes: 0 every report acknowledged, 1 usage error, 2 reports\n"
                           "            lost or errors seen, 3 no machine could log in\n");
    return text;
}

Parsed parseOptions(const QStringList& args, Options* opt, QString* error)
{
    for (int i = 0; i < args.size(); ++i) {
        QString word = args[i];
        if (word == QLatin1String("--help")) return Parsed::Help;
        if (word == QLatin1String("--version")) return Parsed::Version;
        QString value;
        bool hasValue = false;
        const int eq = word.indexOf(QLatin1Char('='));
        if (word.startsWith(QLatin1String("--")) && eq > 0) {
            value = word.mid(eq + 1);
            word = word.left(eq);
            hasValue = true;
        }
        bool known = false;
        for (const FlagOption& f : kFlags)
            if (word == QLatin1String("--") + QLatin1String(f.name) && !hasValue) {
                opt->*f.field = true;
                known = true;
            }
        for (const ValueOption& o : valueOptions()) {
            if (known || word != QLatin1String("--") + QLatin1String(o.name)) continue;
            known = true;
            if (!hasValue) {
                if (i + 1 >= args.size()) {
                    *error = QStringLiteral("%1 needs a value").arg(word);
                    return Parsed::Error;
                }
                value = args[++i];
            }
            if (!o.read(value, opt)) {
                *error = QStringLiteral("bad value for %1: %2").arg(word, value);
                return Parsed::Error;
            }
        }
        if (!known) {
            *error = QStringLiteral("unknown option %1").arg(word);
            return Parsed::Error;
        }
    }
    return Parsed::Run;
}
