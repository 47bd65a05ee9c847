#include "rows.h"

#include <cstring>

void kzfuzz::PrintTo(const Call& c, std::ostream* os)
{
    *os << callbackName(c.id) << '(' << c.values->describe().toStdString() << ')';
}

namespace kztest {

namespace {

/// A receiver with every callback attached, recording each call.
struct Receiver
{
    kzfuzz::Observer observer;
    KZProtocolResolver resolver;

    Receiver()
    {
        observer.record = true;
        kzfuzz::attachAll(resolver, &observer);
    }
    /// Dispatches the first n bytes of `body` with `flag` in place of its own,
    /// from a buffer of exactly n bytes.
    QVector<Call> dispatch(const QByteArray& body, int n, uchar flag)
    {
        observer.log.clear();
        std::vector<uchar> b(body.constData(), body.constData() + n);
        b[0] = flag;
        KZProtocolResolverPrivate::get(&resolver)->dispatch(b.data(), n - 4);
        return observer.log;
    }
};

/// The callback of the same message for the other direction, by the naming
/// rule LanXCB <-> LanXResultCB; -1 when the message has none.
int counterpart(Cb id)
{
    QString name = QLatin1String(kzfuzz::callbackName(id));
    if (name.endsWith(QLatin1String("ResultCB")))
        name.replace(name.size() - 8, 8, QStringLiteral("CB"));
    else
        name.replace(name.size() - 2, 2, QStringLiteral("ResultCB"));
    for (int i = 0; i < kzfuzz::callbackCount(); ++i)
        if (name == QLatin1String(kzfuzz::callbackName(Cb(i)))) return i;
    return -1;
}

} // namespace

QByteArray sentBody(const std::function<void(KZProtocolResolver&)>& send)
{
    FrameSink sink;
    KZProtocolResolver r;
    sink.attach(r);
    send(r);
    return bodiesOf(sink.stream()).value(0);
}

QVector<Call> dispatchBody(const QByteArray& body)
{
    Receiver rx;
    return rx.dispatch(body, body.size(), uchar(body.at(0)));
}

void checkRows(const std::vector<Row>& rows)
{
    for (const Row& row : rows) {
        SCOPED_TRACE(row.label);
        FrameSink sink;
        KZProtocolResolver sender;
        sink.attach(sender);
        row.send(sender);
        const QList<QByteArray> bodies = bodiesOf(sink.stream());
        ASSERT_EQ(bodies.size(), 1);
        const QByteArray body = bodies[0];
        ASSERT_GE(body.size(), 5);
        if (row.payload)
            EXPECT_EQ(hex(body.mid(4, body.size() - 5)), QString::fromLatin1(row.payload));

        Receiver rx;
        rx.resolver.parseReceive(sink.stream());
        EXPECT_EQ(rx.observer.log, calls({row.arrival}));
        KZProtocolResolver bare;
        bare.parseReceive(sink.stream());

        const uchar flag = uchar(body.at(0));
        if (row.other != -2) {
            const QVector<Call> seen = rx.dispatch(body, body.size(), flag ^ 1);
            const int other = row.noneUnderOther ? -1
                              : row.other >= 0   ? row.other
                                                 : counterpart(row.arrival.id);
            if (other < 0) {
                EXPECT_TRUE(seen.isEmpty()) << "a callback fired under the other flag";
            } else {
                ASSERT_EQ(seen.size(), 1) << "under the other flag";
                EXPECT_EQ(seen[0].id, Cb(other)) << "under the other flag";
            }
        }
        EXPECT_TRUE(rx.dispatch(body, body.size(), 2).isEmpty()) << "fired under flag 2";
        // Every cut of a small body; of a large one, a sample that still
        // includes every cut near both ends.
        const int step = body.size() > 4096 ? body.size() / 256 : 1;
        for (int n = 4; n < body.size(); n += (n < 64 || body.size() - n < 64) ? 1 : step) {
            const QVector<Call> seen = rx.dispatch(body, n, flag);
            ASSERT_EQ(seen.size(), 1) << "cut at " << n;
            EXPECT_EQ(seen[0].id, row.arrival.id) << "cut at " << n;
        }
    }
}

} // namespace kztest
