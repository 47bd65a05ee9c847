// Machine registry: the machine list in its group tree, new machines,
// edits, deletions and machine logins.
#include "grouping.h"
#include "kzprotocolresolver_p.h"

#include <QHash>
#include <QPair>
#include <QSet>

using namespace kz;

// MacInfo: request u16 n1 { strz lv1, u16 n2 { strz lv2, u16 n3 {
//              strz mac, strz text2, u8 code, strz text4, i32 value7 } } }
//          reply (empty)
void KZProtocolResolver::lanMacInfo(const QList<mac_info>& macs)
{
    Payload p(2 + 32 * macs.size());
    writeGroupTree(p, macs, &mac_info::lv1Group, &mac_info::lv2Group, &mac_info::mac,
                   [](Payload& out, const mac_info& m) {
                       out << strz{m.mac} << strz{m.text2} << u8{m.code} << strz{m.text4}
                           << i32{m.value7};
                   });
    d->send(Method::MacInfo, Request, p);
}

void KZProtocolResolver::lanMacInfoResponse() { d->send<Empty>(Method::MacInfo, Reply); }

void KZProtocolResolverPrivate::decodeMacInfo(uchar flag, Reader& r)
{
    if (flag == Reply) return take<Empty>(r, cb.onLanMacInfoResultCB);
    if (flag != Request) return;
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
                mac_info m;
                r.label("mac");
                m.mac = r.strz();
                r.label("text2");
                m.text2 = r.strz();
                r.label("code");
                m.code = r.u8();
                r.label("text4");
                m.text4 = r.strz();
                r.label("value7");
                m.value7 = r.i32();
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

// AddNewMac: reply strz mac, strz text2, itext code, strz lv1Group, strz lv2Group, strz text4
// Unlike the listing, code travels as decimal text and the groups come before text4.
void KZProtocolResolver::lanAddNewMacResponse(const mac_info& mac)
{
    d->send(Method::AddNewMac, Reply,
            Payload() << strz{mac.mac} << strz{mac.text2} << itext{mac.code} << strz{mac.lv1Group}
                      << strz{mac.lv2Group} << strz{mac.text4});
}

void KZProtocolResolverPrivate::decodeAddNewMac(uchar flag, Reader& r)
{
    if (flag != Reply) return;
    mac_info m;
    r.label("mac");
    m.mac = r.strz();
    r.label("text2");
    m.text2 = r.strz();
    r.label("code");
    m.code = quint8(r.itext()); // invalid text gives 0; above 255 keeps the low 8 bits
    r.label("lv1Group");
    m.lv1Group = r.strz();
    r.label("lv2Group");
    m.lv2Group = r.strz();
    r.label("text4");
    m.text4 = r.strz();
    fire(cb.onLanAddNewMacResultCB, m);
}

// EditMac: request Texts2
void KZProtocolResolver::lanEditMac(const QString& a, const QString& b)
{
    d->send<Texts2>(Method::EditMac, Request, a, b);
}

void KZProtocolResolverPrivate::decodeEditMac(uchar flag, Reader& r)
{
    if (flag == Request) take<Texts2>(r, cb.onLanEditMacCB);
}

// DeleteMac: request Names | reply WithOk<Names>
void KZProtocolResolver::lanDeleteMac(const QStringList& macs)
{
    d->send<Names>(Method::DeleteMac, Request, macs);
}

void KZProtocolResolver::lanDeleteMacResponse(bool ok, const QStringList& macs)
{
    d->send<WithOk<Names>>(Method::DeleteMac, Reply, ok, macs);
}

void KZProtocolResolverPrivate::decodeDeleteMac(uchar flag, Reader& r)
{
    route<Names, WithOk<Names>>(flag, r, cb.onLanDeleteMacCB, cb.onLanDeleteMacResultCB);
}

// MacLogin: reply Text (the machine)
void KZProtocolResolver::lanMacLoginResponse(const QString& mac)
{
    d->send<Text>(Method::MacLogin, Reply, mac);
}

void KZProtocolResolverPrivate::decodeMacLogin(uchar flag, Reader& r)
{
    if (flag == Reply) take<Text>(r, cb.onLanMacLoginResultCB);
}
