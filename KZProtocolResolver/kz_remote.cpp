// Remote panel: remote mode, screen touches, and the panel's page,
// attribute, image and screen data passed through as opaque blocks.
#include "kzprotocolresolver_p.h"

using namespace kz;

namespace {

// The three update replies (attributes, image, screen) share one payload:
// strz mac, blob32 data. Only the method code tells them apart.
Payload blockPayload(const QString& mac, const QByteArray& data)
{
    Payload p(mac.size() + 6 + data.size());
    p << strz{mac} << blob32{data};
    return p;
}

template <class Slot>
void decodeBlock(const KZProtocolResolverPrivate& d, uchar flag, Slot slot, Reader& r)
{
    if (flag != Reply) return;
    const QString mac = r.strz();
    const QByteArray data = r.blob32(); // a count beyond the data is cut at its end
    d.fire(slot, mac, data);
}

} // namespace

// RemoteSetMode: request strz mac, i32 mode
//                reply flag8 ok, strz mac, i32 valueA, i32 valueB, i32 valueC
// The reply puts its success byte first, unlike most replies.
void KZProtocolResolver::lanRemoteSetMode(const QString& mac, int mode)
{
    d->send(Method::RemoteSetMode, Request, Payload() << strz{mac} << i32{mode});
}

void KZProtocolResolver::lanRemoteSetModeResponse(bool ok, const QString& mac, int valueA,
                                                  int valueB, int valueC)
{
    d->send(Method::RemoteSetMode, Reply,
            Payload() << flag8{ok} << strz{mac} << i32{valueA} << i32{valueB} << i32{valueC});
}

void KZProtocolResolverPrivate::decodeRemoteSetMode(uchar flag, Reader& r)
{
    if (flag == Request) {
        const QString mac = r.strz();
        const int mode = r.i32();
        fire(cb.onLanRemoteSetModeCB, mac, mode);
    } else if (flag == Reply) {
        const bool ok = r.flag8();
        const QString mac = r.strz();
        const int a = r.i32();
        const int b = r.i32();
        const int c = r.i32();
        fire(cb.onLanRemoteSetModeResultCB, ok, mac, a, b, c);
    }
}

// RemoteScreenTouch: request strz mac, u8 kind, u16 x, u16 y
void KZProtocolResolver::lanRemoteScreenTouch(const QString& mac, unsigned char kind,
                                              unsigned short x, unsigned short y)
{
    d->send(Method::RemoteScreenTouch, Request,
            Payload() << strz{mac} << u8{kind} << u16{x} << u16{y});
}

void KZProtocolResolverPrivate::decodeRemoteScreenTouch(uchar flag, Reader& r)
{
    if (flag != Request) return;
    const QString mac = r.strz();
    const unsigned char kind = r.u8();
    const unsigned short x = r.u16();
    const unsigned short y = r.u16();
    fire(cb.onLanRemoteScreenTouchCB, mac, kind, x, y);
}

// RemoteUpdatePage: reply strz mac, u32 page
void KZProtocolResolver::lanRemoteUpdatePageResponse(const QString& mac, unsigned int page)
{
    d->send(Method::RemoteUpdatePage, Reply, Payload() << strz{mac} << u32{page});
}

void KZProtocolResolverPrivate::decodeRemoteUpdatePage(uchar flag, Reader& r)
{
    if (flag != Reply) return;
    const QString mac = r.strz();
    const unsigned int page = r.u32();
    fire(cb.onLanRemoteUpdatePageResultCB, mac, page);
}

// RemoteUpdateAttr, RemoteUpdateImage, RemoteUpdateScreen: reply strz mac, blob32 data
void KZProtocolResolver::lanRemoteUpdateAttrResponse(const QString& mac, const QByteArray& data)
{
    d->send(Method::RemoteUpdateAttr, Reply, blockPayload(mac, data));
}

void KZProtocolResolver::lanRemoteUpdateImageResponse(const QString& mac, const QByteArray& data)
{
    d->send(Method::RemoteUpdateImage, Reply, blockPayload(mac, data));
}

void KZProtocolResolver::lanRemoteUpdateScreenResponse(const QString& mac, const QByteArray& data)
{
    d->send(Method::RemoteUpdateScreen, Reply, blockPayload(mac, data));
}

void KZProtocolResolverPrivate::decodeRemoteUpdateAttr(uchar flag, Reader& r)
{
    decodeBlock(*this, flag, cb.onLanRemoteUpdateAttrResultCB, r);
}

void KZProtocolResolverPrivate::decodeRemoteUpdateImage(uchar flag, Reader& r)
{
    decodeBlock(*this, flag, cb.onLanRemoteUpdateImageResultCB, r);
}

void KZProtocolResolverPrivate::decodeRemoteUpdateScreen(uchar flag, Reader& r)
{
    decodeBlock(*this, flag, cb.onLanRemoteUpdateScreenResultCB, r);
}
