#include "config.h"

#include <QCommandLineParser>
#include <QFile>
#include <QSet>

namespace {

bool isOn(const QString& v)
{
    return v == QLatin1String("true") || v == QLatin1String("yes") || v == QLatin1String("on");
}

bool isOff(const QString& v)
{
    return v == QLatin1String("false") || v == QLatin1String("no") || v == QLatin1String("off");
}

} // namespace

ServerConfig::ServerConfig(QCommandLineParser& cli)
    : cli_(cli),
      config_(QStringLiteral("config"),
              QStringLiteral("Configuration file: one 'option = value' per line, the long option "
                             "names as keys; the command line overrides it. Read again on "
                             "SIGHUP."),
              QStringLiteral("FILE"))
{
    cli_.addOption(config_);
}

bool ServerConfig::toArguments(const QString& text, QStringList* arguments,
                               QMap<QString, int>* lineOf, QString* error)
{
    const QStringList lines = text.split(QLatin1Char('\n'));
    for (int i = 0; i < lines.size(); ++i) {
        const QString line = lines[i].trimmed();
        if (line.isEmpty() || line.startsWith(QLatin1Char('#'))) continue;
        const int eq = line.indexOf(QLatin1Char('='));
        const QString key = line.left(eq).trimmed();
        if (eq < 0 || key.isEmpty() || key.startsWith(QLatin1Char('-'))) {
            *error =
                QStringLiteral("line %1: expected 'option = value', not '%2'").arg(i + 1).arg(line);
            return false;
        }
        const QString value = line.mid(eq + 1).trimmed();
        lineOf->insert(key, i + 1);
        if (isOff(value)) continue;
        *arguments << (isOn(value) ? QStringLiteral("--") + key
                                   : QStringLiteral("--%1=%2").arg(key, value));
    }
    return true;
}

bool ServerConfig::parse(const QStringList& arguments, QString* error)
{
    commandLine_ = arguments;
    // The command line alone first: it names the file, and says --help.
    if (!cli_.parse(arguments)) {
        *error = cli_.errorText();
        return false;
    }
    file_ = cli_.value(config_);
    inForce_ = arguments;
    return file_.isEmpty() || parseWith(arguments, error);
}

bool ServerConfig::parseWith(const QStringList& arguments, QString* error)
{
    QFile f(file_);
    // A configuration file is a few lines; a larger one is a mistake.
    constexpr qint64 kMaxBytes = 64 * 1024;
    if (!f.open(QIODevice::ReadOnly)) {
        *error = QStringLiteral("cannot read %1: %2").arg(file_, f.errorString());
        return false;
    }
    if (f.size() > kMaxBytes) {
        *error = QStringLiteral("%1 is larger than %2 bytes").arg(file_).arg(kMaxBytes);
        return false;
    }
    QStringList fromFile;
    QMap<QString, int> lineOf;
    QString why;
    if (!toArguments(QString::fromUtf8(f.readAll()), &fromFile, &lineOf, &why)) {
        *error = file_ + QStringLiteral(": ") + why;
        return false;
    }
    if (lineOf.contains(config_.names().constFirst())) {
        *error = QStringLiteral("%1:%2: 'config' is for the command line only")
                     .arg(file_)
                     .arg(lineOf.value(config_.names().constFirst()));
        return false;
    }
    const QStringList all = arguments.mid(0, 1) + fromFile + arguments.mid(1);
    if (cli_.parse(all)) {
        inForce_ = all;
        return true;
    }
    for (const QString& unknown : cli_.unknownOptionNames()) {
        if (lineOf.contains(unknown)) {
            *error = QStringLiteral("%1:%2: unknown option '%3'")
                         .arg(file_)
                         .arg(lineOf.value(unknown))
                         .arg(unknown);
            return false;
        }
    }
    *error = file_ + QStringLiteral(": ") + cli_.errorText();
    return false;
}

QMap<QString, QString> ServerConfig::snapshot() const
{
    // The value in force is the last one given; a switch is there or not.
    QMap<QString, QString> values;
    for (const QString& name : cli_.optionNames()) values[name] = cli_.value(name);
    return values;
}

bool ServerConfig::reload(QStringList* changed, QString* error)
{
    const QMap<QString, QString> before = snapshot();
    if (!parseWith(commandLine_, error)) {
        cli_.parse(inForce_); // the options in force, back in the parser
        return false;
    }
    const QMap<QString, QString> after = snapshot();
    QSet<QString> names;
    for (auto it = before.cbegin(); it != before.cend(); ++it) names.insert(it.key());
    for (auto it = after.cbegin(); it != after.cend(); ++it) names.insert(it.key());
    changed->clear();
    for (const QString& name : names)
        if (before.contains(name) != after.contains(name) ||
            before.value(name) != after.value(name))
            changed->append(name);
    changed->sort();
    return true;
}
