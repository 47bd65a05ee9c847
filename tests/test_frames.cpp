// The frames of a fixed message sequence, byte for byte, against the frames
// recorded in tests/data/frames.hex: whatever the send path does inside, the
// bytes a peer sees, their cut into frames and their sequence numbers stay
// as they were. Run with KZ_RECORD_FRAMES=1 to write the file anew (only
// when the wire is meant to change).
#include "kzprotocolresolver_p.h"
#include "samples.h"

#include <gtest/gtest.h>

#include <QFile>
#include <QStringList>

#include <cstdlib>
#include <functional>

namespace {

struct Capture
{
    QStringList lines;
    QString label;
    static void take(void* ctx, char* bytes, int n)
    {
        auto* c = static_cast<Capture*>(ctx);
        c->lines << c->label + QLatin1Char(' ') + QString::number(n) + QLatin1Char(' ') +
                        QString::fromLatin1(QByteArray(bytes, n).toHex());
        std::free(bytes);
    }
};

QByteArray pseudoRandom(int n, quint32 seed)
{
    QByteArray b(n, Qt::Uninitialized);
    for (int i = 0; i < n; ++i) {
        seed = seed * 1664525u + 1013904223u;
        b[i] = char(seed >> 24);
    }
    return b;
}

// One row: a label and what the resolver is asked to send.
struct Step
{
    const char* label;
    std::function<void(KZProtocolResolver&)> send;
};

QStringList framesOf(int capacity)
{
    const QStringList names = kzsamples::tenNames();
    const Step steps[] = {
        {"logout", [](KZProtocolResolver& r) { r.lanLogout(7); }},
        {"logout-negative", [](KZProtocolResolver& r) { r.lanLogout(-1); }},
        {"delete-users", [&](KZProtocolResolver& r) { r.lanDeleteUser(names); }},
        {"add-user-result",
         [](KZProtocolResolver& r) { r.lanAddUserResult(kzsamples::sampleUser()); }},
        {"screen-1k",
         [](KZProtocolResolver& r) {
             r.lanRemoteUpdateScreenResponse(QStringLiteral("KZ-0001"), pseudoRandom(1024, 1));
         }},
        {"screen-5000",
         [](KZProtocolResolver& r) {
             r.lanRemoteUpdateScreenResponse(QStringLiteral("KZ-0001"), pseudoRandom(5000, 2));
         }},
        {"empty-payload-3",
         [](KZProtocolResolver& r) {
             KZProtocolResolverPrivate::get(&r)->packSend(QByteArray(), 1, 17, 0x0102, QByteArray(),
                                                          3);
         }},
        {"attr",
         [](KZProtocolResolver& r) {
             KZProtocolResolverPrivate::get(&r)->packSend("abc", 0, 17, 0x0201,
                                                          pseudoRandom(300, 3), 1);
         }},
        {"logout-last", [](KZProtocolResolver& r) { r.lanLogout(123456); }},
    };
    KZProtocolResolver resolver(capacity);
    Capture capture;
    resolver.setReceiveData(&capture);
    resolver.setParsePackResult(&Capture::take);
    for (const Step& s : steps) {
        capture.label = QString::fromLatin1("%1/%2").arg(capacity).arg(QLatin1String(s.label));
        s.send(resolver);
    }
    return capture.lines;
}

QStringList allFrames()
{
    QStringList all;
    // The default capacity, one that splits most messages, and one too
    // small to carry any body (every call hands out an empty buffer).
    for (int capacity : {2048, 100, 40, 20}) all << framesOf(capacity);
    return all;
}

TEST(Frames, AFixedSequenceGivesTheRecordedBytes)
{
    const QString path = QStringLiteral(KZ_TEST_DATA "/frames.hex");
    const QStringList frames = allFrames();
    if (qEnvironmentVariableIsSet("KZ_RECORD_FRAMES")) {
        QFile out(path);
        ASSERT_TRUE(out.open(QIODevice::WriteOnly | QIODevice::Truncate));
        out.write(frames.join(QLatin1Char('\n')).toLatin1() + '\n');
        GTEST_SKIP() << "recorded " << frames.size() << " frames";
    }
    QFile in(path);
    ASSERT_TRUE(in.open(QIODevice::ReadOnly)) << path.toStdString();
    const QStringList recorded =
        QString::fromLatin1(in.readAll()).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    ASSERT_EQ(frames.size(), recorded.size());
    for (int i = 0; i < frames.size(); ++i)
        ASSERT_EQ(frames[i].toStdString(), recorded[i].toStdString()) << "frame " << i;
}

} // namespace
