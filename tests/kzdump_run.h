// Runs kzdump (or another tool) as a process, for the kzdump tests.
#ifndef KZ_TESTS_KZDUMP_RUN_H
#define KZ_TESTS_KZDUMP_RUN_H

#include <QByteArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QStringList>

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

} // namespace kzdumptest

#endif // KZ_TESTS_KZDUMP_RUN_H
