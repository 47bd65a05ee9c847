// Machine registry: the machine list in its group tree is written here; the
// other messages come from protocol/macregistry.table.
#include "grouping.h"
#include "kzprotocolresolver_p.h"

#include <QHash>
#include <QPair>
#include <QSet>

using namespace kz;

// MacInfo: request u16 n1 { strz lv1, u16 n2 { strz lv2, u16 n3 {
//              strz mac, strz text2, u8 code, strz text4, i32 value7 } } }
void KZProtocolResolver::lanMacInfo(const QList<mac_info>& macs)
{
    Payload p(2 + 32 * macs.size());
    writeGroupTree(p, macs, &mac_info::lv1Group, &mac_info::lv2Group, &mac_info::mac,
                   &Field<form_mac_info_listing>::write);
    d->send(Method::MacInfo, Request, p);
}

template <class R>
void KZProtocolResolverPrivate::decodeMacInfoRequest(R& r)
{
    QList<mac_info> macs;
    QHash<QPair<QString, QString>, QSet<QString>> taken; // macs seen per group pair
    // The first-level count must be positive; the inner counts are only
    // tested against zero, so a negative one reads on until the data ends.
    r.label("lv1Count");
    r.forEach(r.count16(), [&] {
        r.label("lv1");
        const QString lv1 = r.strz();
        r.label("lv2Count");
        for (int groups = r.i16(); groups != 0 && !r.atEnd(); --groups) {
            r.label("lv2");
            const QString lv2 = r.strz();
            QSet<QString>& seen = taken[qMakePair(lv1, lv2)];
            r.label("macCount");
            for (int n = r.i16(); n != 0 && !r.atEnd(); --n) {
                mac_info m = Field<form_mac_info_listing>::read(r);
                // An entry cut by the end of the data is no machine (after an
                // oversized or negative count the last one is just the body's
                // terminating zero).
                if (r.isShort()) break;
                if (seen.contains(m.mac)) continue; // the first record of a pair wins
                seen.insert(m.mac);
                m.lv1Group = lv1;
                m.lv2Group = lv2;
                macs.append(m);
            }
        }
    });
    fire(cb.onLanMacInfoCB, macs);
}

#include "kz_macregistry.inc"
