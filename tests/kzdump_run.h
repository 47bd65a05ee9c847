// Runs kzdump (or another tool) as a process, for the kzdump tests.
#ifndef KZ_TESTS_KZDUMP_RUN_H
#define KZ_TESTS_KZDUMP_RUN_H

#include <QByteArray>
#include <QHostAddress>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QStringList>
#include <QTcpServer>

#include <gtest/gtest.h>

namespace kzdumptest {

struct Result
{
    int rc = -1;
    QString out;
    QString err;
};

inline Result runTool(const char* program, const QStringList& args, const QByteArray& input = {})
{
    QProcess p;
    p.start(QString::fromLocal8Bit(program), args);
    p.write(input);
    p.closeWriteChannel();
    EXPECT_TRUE(p.waitForFinished(60000)) << program;
    return {p.exitCode(), QString::fromUtf8(p.readAllStandardOutput()),
            QString::fromUtf8(p.readAllStandardError())};
}

/// Every line of `out` as a JSON object; a line that is not one fails the test.
inline QList<QJsonObject> jsonLines(const QString& out)
{
    QList<QJsonObject> objects;
    for (const QString& line : out.split(QLatin1Char('\n'), Qt::SkipEmptyParts)) {
        QJsonParseError error;
        const QJsonDocument doc = QJsonDocument::fromJson(line.toUtf8(), &error);
        EXPECT_TRUE(error.error == QJsonParseError::NoError && doc.isObject())
            << "not a JSON object: " << qPrintable(line);
        objects.append(doc.object());
    }
    return objects;
}

/// A loopback port nothing listens on right now, for a server the test starts.
inline quint16 freePort()
{
    QTcpServer probe;
    EXPECT_TRUE(probe.listen(QHostAddress::LocalHost, 0));
    return probe.serverPort();
}

/// Starts `kzdump ARGS --tap 0 127.0.0.1:TARGET` and returns the port it listens on, read from
/// its banner on standard error (0 if there was none); `banner` gets that line.
inline quint16 startTap(QProcess& tap, const QStringList& args, quint16 target, QByteArray* banner)
{
    tap.start(QString::fromLocal8Bit(KZDUMP),
              args + QStringList{QStringLiteral("--tap"), QStringLiteral("0"),
                                 QStringLiteral("127.0.0.1:%1").arg(target)});
    tap.setReadChannel(QProcess::StandardError);
    while (!banner->contains('\n') && tap.waitForReadyRead(10000)) *banner += tap.readAll();
    return quint16(banner->mid(banner->indexOf("port ") + 5).split(',').value(0).toUInt());
}

} // namespace kzdumptest

#endif // KZ_TESTS_KZDUMP_RUN_H
