// kzlan-client: a command-line client of the LAN server, one sub-command per
// common task. It logs in, does its task, prints the result (aligned text, or
// JSON with --json) and logs out; the exit code says how it went.
#include "commands.h"
#include "output.h"
#include "pemfiles.h"

#include <QCoreApplication>

#include <cstdio>
#include <cstdlib>

namespace {

const Command kCommands[] = {
    {"login", "", "log in and out: checks the server and the credentials", &cmdLogin},
    {"users list", "", "the users and their groups", &cmdUsersList},
    {"users add", "NAME --password PW [--group LV1/LV2] [--full-name TEXT] [--flag]",
     "adds a user (group default: Default/Default)", &cmdUsersAdd},
    {"users delete", "NAME...", "deletes users", &cmdUsersDelete},
    {"users move", "NAME... --to LV1/LV2", "moves users to another group", &cmdUsersMove},
    {"machines list", "", "the machines and their groups", &cmdMachinesList},
    {"plans", "DATE", "the production plans of a date", &cmdPlans},
    {"prices list", "", "the price of every file", &cmdPricesList},
    {"prices set", "FILE PRICE", "sets the price of a file", &cmdPricesSet},
    {"send", "FILE [--machine MAC] [--dir DIR] [--limit KIB_PER_S]",
     "sends a file to the server for a machine (default: shared) as a transfer task,\n"
     "      with its progress on stderr",
     &cmdSend},
    {"logs", "MACHINE FROM TO [--kind N]",
     "the logs of a machine (* for all) from one date to another", &cmdLogs},
};

const Command* g_running = nullptr;

void usage(FILE* to)
{
    std::fprintf(to,
                 "usage: kzlan-client [--host H] [--port N] [--user U] [--password P] [--json]\n"
                 "                    [--timeout SECONDS] [--tls [--ca FILE] [--tls-name NAME]]\n"
                 "                    <sub-command> [args]\n"
                 "  A client of kzlan-server: logs in, does one task, logs out.\n\n"
                 "  --host H        server address (default 127.0.0.1)\n"
                 "  --port N        server port (default 7600)\n"
                 "  --user U        account (default admin)\n"
                 "  --password P    password (default: $KZLAN_PASSWORD)\n"
                 "  --json          print one JSON document instead of text columns\n"
                 "  --timeout S     give up when the server says nothing for S seconds\n"
                 "                  (default 10)\n"
                 "  --tls           connect with TLS; the server's certificate must be trusted\n"
                 "                  and made out for the host (or --tls-name)\n"
                 "  --ca FILE       trust the certificates in this PEM file (the server's own,\n"
                 "                  or the CA that signed it) instead of the system's; implies\n"
                 "                  --tls\n"
                 "  --tls-name NAME the name the server's certificate must carry, when --host\n"
                 "                  is an address or another name; implies --tls\n"
                 "  --help          this text\n"
                 "  --version       the client's version\n\n"
                 "  Without TLS the password crosses the network in a cipher whose key the\n"
                 "  protocol fixes: anyone who captures the login can recover it.\n\n"
                 "sub-commands:\n");
    for (const Command& c : kCommands)
        std::fprintf(to, "  %s %s\n      %s\n", c.name, c.args, c.about);
    std::fprintf(to, "\nexit codes: 0 ok, 1 usage error, 2 server unreachable or connection lost,\n"
                     "            3 login refused, 4 time-out, 5 request refused by the server,\n"
                     "            6 TLS failed (certificate not trusted or not for this host)\n");
}

/// The usage line of one sub-command.
QString usageOf(const Command& c)
{
    return QStringLiteral("usage: kzlan-client [options] %1 %2")
        .arg(QLatin1String(c.name), QLatin1String(c.args))
        .trimmed();
}

} // namespace

int usageError(const QString& why)
{
    const QString usage =
        g_running
            ? usageOf(*g_running)
            : QStringLiteral("usage: kzlan-client [options] <sub-command> [args]; see --help");
    printError(why.isEmpty() ? usage : QStringLiteral("%1 (%2)").arg(why, usage));
    return ExitUsage;
}

int report(const Session& s, bool ok, const QString& done, const QString& refused, QJsonObject json)
{
    json.insert(QStringLiteral("ok"), ok);
    if (s.options().json)
        printJson(json);
    else if (ok)
        printLine(done);
    if (!ok) printError(refused);
    return ok ? ExitOk : ExitRefused;
}

QString Args::option(const QString& name, const QString& fallback)
{
    const QString dashed = QStringLiteral("--") + name;
    for (int i = 0; i < words_.size(); ++i) {
        if (words_[i].startsWith(dashed + QLatin1Char('='))) {
            const QString v = words_[i].mid(dashed.size() + 1);
            words_.removeAt(i);
            return v;
        }
        if (words_[i] != dashed) continue;
        if (i + 1 >= words_.size()) {
            bad_ = true;
            words_.removeAt(i);
            return fallback;
        }
        const QString v = words_[i + 1];
        words_.erase(words_.begin() + i, words_.begin() + i + 2);
        return v;
    }
    return fallback;
}

bool Args::flag(const QString& name) { return words_.removeAll(QStringLiteral("--") + name) > 0; }

bool Args::positionals(QStringList* out) const
{
    for (const QString& w : words_)
        if (w.startsWith(QLatin1String("--"))) return false;
    *out = words_;
    return !bad_;
}

namespace {

/// The sub-commands whose name starts with `words` ("users"): the choices of an incomplete one.
QList<const Command*> startingWith(const QStringList& words)
{
    QList<const Command*> out;
    for (const Command& c : kCommands) {
        const QStringList name = QString::fromLatin1(c.name).split(QLatin1Char(' '));
        if (name.size() > words.size() && name.mid(0, words.size()) == words) out.append(&c);
    }
    return out;
}

int runCommand(QStringList words, Options opt);

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationVersion(QStringLiteral(KZ_VERSION));
    const QStringList words = QCoreApplication::arguments().mid(1);
    Options opt;
    opt.json = words.contains(QStringLiteral("--json"));
    const int rc = runCommand(words, opt);
    // With --json every outcome is one JSON document, a failure's too.
    if (opt.json && rc != ExitOk && !printedJson())
        printJson(QJsonObject{{QStringLiteral("ok"), false},
                              {QStringLiteral("exit"), rc},
                              {QStringLiteral("error"), lastError()}});
    return rc;
}

namespace {

int runCommand(QStringList words, Options opt)
{
    if (qEnvironmentVariableIsSet("KZLAN_PASSWORD"))
        opt.password = QString::fromLocal8Bit(qgetenv("KZLAN_PASSWORD"));

    // Global options come before the sub-command.
    while (!words.isEmpty() && words.first().startsWith(QLatin1String("--"))) {
        const QString o = words.takeFirst();
        if (o == QLatin1String("--help")) {
            usage(stdout);
            return ExitOk;
        }
        if (o == QLatin1String("--version")) {
            std::printf("kzlan-client %s\n", KZ_VERSION);
            return ExitOk;
        }
        if (o == QLatin1String("--json")) continue; // taken by main()
        if (o == QLatin1String("--tls")) {
            opt.tls = true;
            continue;
        }
        if (words.isEmpty()) return usageError(QStringLiteral("%1 needs a value").arg(o));
        const QString v = words.takeFirst();
        bool ok = true;
        if (o == QLatin1String("--host"))
            opt.host = v;
        else if (o == QLatin1String("--port")) {
            const uint port = v.toUInt(&ok);
            ok = ok && port > 0 && port < 65536;
            opt.port = quint16(port);
        } else if (o == QLatin1String("--user"))
            opt.user = v;
        else if (o == QLatin1String("--password"))
            opt.password = v;
        else if (o == QLatin1String("--timeout")) {
            opt.timeoutSeconds = v.toInt(&ok);
            ok = ok && opt.timeoutSeconds > 0 && opt.timeoutSeconds <= 24 * 3600;
        } else if (o == QLatin1String("--ca")) {
            QString error;
            opt.ca = readPemCertificates(v, &error);
            if (opt.ca.isEmpty()) return usageError(error);
            opt.tls = true;
        } else if (o == QLatin1String("--tls-name")) {
            opt.tlsName = v;
            ok = !v.isEmpty();
            opt.tls = true;
        } else
            return usageError(QStringLiteral("unknown option %1").arg(o));
        if (!ok) return usageError(QStringLiteral("bad value for %1: %2").arg(o, v));
    }
    if (words.isEmpty()) return usageError(QStringLiteral("no sub-command given"));

    // The longest sub-command name that the words start with: "users add".
    for (const Command& c : kCommands) {
        const QStringList name = QString::fromLatin1(c.name).split(QLatin1Char(' '));
        if (words.mid(0, name.size()) != name) continue;
        g_running = &c;
        Args args(words.mid(name.size()));
        if (args.flag(QStringLiteral("help"))) {
            std::printf("usage: kzlan-client [options] %s %s\n  %s\n", c.name, c.args, c.about);
            return ExitOk;
        }
        Session session(opt);
        return c.run(session, args);
    }
    const QList<const Command*> choices = startingWith(words);
    if (choices.isEmpty())
        return usageError(
            QStringLiteral("unknown sub-command: %1").arg(words.join(QLatin1Char(' '))));
    printError(QStringLiteral("%1 needs one of:").arg(words.join(QLatin1Char(' '))));
    for (const Command* c : choices) std::fprintf(stderr, "%s\n", qPrintable(usageOf(*c)));
    return ExitUsage;
}

} // namespace
