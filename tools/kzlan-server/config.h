// kzlan-server's configuration file: every command-line option can be set
// there under its long name, and the command line overrides the file. The
// file is read once at start and again on SIGHUP.
#ifndef KZLAN_SERVER_CONFIG_H
#define KZLAN_SERVER_CONFIG_H

#include <QCommandLineOption>
#include <QMap>
#include <QString>
#include <QStringList>

class QCommandLineParser;

/// The options of a parser, read from a configuration file and the command
/// line together.
///
/// A file holds one `key = value` per line; `#` starts a comment line, blank
/// lines are skipped, spaces around key and value are dropped. A key is the
/// long name of an option (`port`, `db`, `tls-cert`, …), so every option the
/// parser knows is configurable, an option added later included. An option
/// without a value (a switch such as `tls-only`) is set by `true`, `yes` or
/// `on` and left unset by `false`, `no` or `off`. The file's options go before
/// the command line's, and a parser keeps the last value given: the command
/// line wins.
class ServerConfig
{
public:
    /// Adds `--config FILE` to `cli`.
    explicit ServerConfig(QCommandLineParser& cli);

    /// Parses `arguments` (the program's name first) over the file named by
    /// --config, if any. False with `*error` set for a file that cannot be
    /// read, a line that is not `key = value`, a key that names no option
    /// (with file and line), or a command-line error. Asked for --help or
    /// --version, the parser's flags say so and the caller shows them.
    bool parse(const QStringList& arguments, QString* error);

    /// Parses again, the file re-read, and says which options changed their
    /// values (long names, sorted). On failure `*error` is set and the
    /// options in force stay as they were.
    bool reload(QStringList* changed, QString* error);

    /// The arguments in force: the program's name, the file's options, the
    /// command line's.
    QStringList arguments() const { return inForce_; }

    /// The file given by --config; empty without one.
    QString file() const { return file_; }

    /// `key = value` lines turned into options (`--key=value`, or `--key`
    /// for a switch set by true/yes/on), in the file's order. False with
    /// `*error` naming the line for a line of another shape. `lineOf` maps
    /// each key to its line number.
    static bool toArguments(const QString& text, QStringList* arguments, QMap<QString, int>* lineOf,
                            QString* error);

private:
    bool parseWith(const QStringList& arguments, QString* error);
    QMap<QString, QString> snapshot() const;

    QCommandLineParser& cli_;
    const QCommandLineOption config_;
    QStringList commandLine_;
    QStringList inForce_; // the file's options and the command line, last parsed well
    QString file_;
};

#endif
