// OEE data: the pushed machine run times are written here (rows of another
// length than three are skipped, the count not); the other messages come from
// protocol/oee.table.
#include "kzprotocolresolver_p.h"

using namespace kz;

namespace {

// A run-time row: strz, strz, i32
using RunTimeRow = rowof<strz, strz, i32>;

} // namespace

// UpdateOEEMacRunTime: reply u16 n { run-time row }. The count is the list's
// size, but only rows of exactly three values are written, and the loop
// stops at the count read as signed 16 bits. Kept as peers send it; rows
// left out are noted.
void KZProtocolResolver::lanUpdateOEEMacRunTimeResult(const QList<QVariant>& rows)
{
    Payload p(2 + 16 * rows.size());
    const c16 count = count16(rows.size());
    const int loop = qMax(0, int(qint16(count.v)));
    p << count;
    if (loop != rows.size())
        p.noteLoss("run-time rows not sent (signed 16-bit count)", rows.size());
    for (int i = 0; i < loop; ++i) {
        if (rows.at(i).toList().size() == 3)
            Field<RunTimeRow>::write(p, rows.at(i));
        else
            p.noteLoss("run-time row skipped: not three values", i);
    }
    d->send(Method::UpdateOEEMacRunTime, Reply, p);
}

// A row cut by the end of the data is no row: after the rows the sender
// skipped, the count runs past the data and the last "row" would be just the
// body's closing zero.
template <class R>
void KZProtocolResolverPrivate::decodeUpdateOEEMacRunTimeReply(R& r)
{
    QList<QVariant> rows;
    r.label("rowCount");
    r.forEach(r.count16(), [&] {
        r.label("row");
        const QVariant row = Field<RunTimeRow>::read(r);
        if (!r.isShort()) rows.append(row);
    });
    fire(cb.onLanUpdateOEEMacRunTimeResultCB, rows);
}

#include "kz_oee.inc"
