// kzfleet's command line: the values, their defaults and their parsing.
#ifndef KZFLEET_OPTIONS_H
#define KZFLEET_OPTIONS_H

#include <QDate>
#include <QString>
#include <QStringList>

#include <cstdint>

struct Options
{
    QString host = QStringLiteral("127.0.0.1");
    quint16 port = 7600;
    int machines = 10;
    double rate = 1.0;    ///< work-log reports per second, per machine
    double duration = 10; ///< seconds of reporting; 0: until interrupted
    std::uint64_t seed = 1;
    bool json = false;
    QString user = QStringLiteral("admin");
    QString password;
    QString prefix = QStringLiteral("SIM");
    QDate start;   ///< simulated date of the first report (default: today, UTC)
    int ramp = 32; ///< machines connecting or logging in at once
    QString store; ///< folder for received files; empty: verify and drop
    bool noRegister = false;
    int workLogEntries = 0;
    bool impossible = false;
    int garbage = 0; ///< one message in this many is replaced by random bytes; 0: none
    int digestReports = 10;
    double drain = 5;         ///< seconds to wait for the last acknowledgements
    double loginTimeout = 15; ///< seconds a connection and its login may take
    bool tls = false;
    QString ca;      ///< PEM file of the certificates to trust instead of the system's
    QString tlsName; ///< the name the server's certificate must carry (default: the host)
};

/// What parsing the command line gave.
enum class Parsed { Run, Help, Version, Error };

/// Reads `args` (without the program name) into `opt`; on Error `*error`
/// names the option and the value.
Parsed parseOptions(const QStringList& args, Options* opt, QString* error);
/// The --help text.
QString usageText();

#endif
