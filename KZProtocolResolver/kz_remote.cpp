// Remote panel: remote mode, screen touches, and the panel's page,
// attribute, image and screen data passed through as opaque blocks.
#include "kzprotocolresolver_p.h"

using namespace kz;

namespace {

// RemoteSetMode request: strz mac, i32 mode
struct SetMode : Layout<strz, i32>
{
    static constexpr const char* names[] = {"mac", "mode"};
};

// RemoteSetMode reply: flag8 ok, strz mac, i32 valueA, valueB, valueC; the
// success byte stands first, unlike most replies.
struct SetModeResult : Layout<flag8, strz, i32, i32, i32>
{
    static constexpr const char* names[] = {"ok", "mac", "valueA", "valueB", "valueC"};
};

// RemoteScreenTouch request: strz mac, u8 kind, u16 x, u16 y
struct ScreenTouch : Layout<strz, u8, u16, u16>
{
    static constexpr const char* names[] = {"mac", "kind", "x", "y"};
};

// RemoteUpdatePage reply: strz mac, u32 page
struct UpdatePage : Layout<strz, u32>
{
    static constexpr const char* names[] = {"mac", "page"};
};

// The three update replies (attributes, image, screen): strz mac, blob32
// data (a count beyond the data is cut at its end). Only the method code
// tells them apart.
struct Block : Layout<strz, blob32>
{
    static constexpr const char* names[] = {"mac", "data"};
};

} // namespace

void KZProtocolResolver::lanRemoteSetMode(const QString& mac, int mode)
{
    d->send<SetMode>(Method::RemoteSetMode, Request, mac, mode);
}

void KZProtocolResolver::lanRemoteSetModeResponse(bool ok, const QString& mac, int valueA,
                                                  int valueB, int valueC)
{
    d->send<SetModeResult>(Method::RemoteSetMode, Reply, ok, mac, valueA, valueB, valueC);
}

void KZProtocolResolverPrivate::decodeRemoteSetMode(uchar flag, Reader& r)
{
    route<SetMode, SetModeResult>(flag, r, cb.onLanRemoteSetModeCB, cb.onLanRemoteSetModeResultCB);
}

void KZProtocolResolver::lanRemoteScreenTouch(const QString& mac, unsigned char kind,
                                              unsigned short x, unsigned short y)
{
    d->send<ScreenTouch>(Method::RemoteScreenTouch, Request, mac, kind, x, y);
}

void KZProtocolResolverPrivate::decodeRemoteScreenTouch(uchar flag, Reader& r)
{
    if (flag == Request) take<ScreenTouch>(r, cb.onLanRemoteScreenTouchCB);
}

void KZProtocolResolver::lanRemoteUpdatePageResponse(const QString& mac, unsigned int page)
{
    d->send<UpdatePage>(Method::RemoteUpdatePage, Reply, mac, page);
}

void KZProtocolResolverPrivate::decodeRemoteUpdatePage(uchar flag, Reader& r)
{
    if (flag == Reply) take<UpdatePage>(r, cb.onLanRemoteUpdatePageResultCB);
}

void KZProtocolResolver::lanRemoteUpdateAttrResponse(const QString& mac, const QByteArray& data)
{
    d->send<Block>(Method::RemoteUpdateAttr, Reply, mac, data);
}

void KZProtocolResolver::lanRemoteUpdateImageResponse(const QString& mac, const QByteArray& data)
{
    d->send<Block>(Method::RemoteUpdateImage, Reply, mac, data);
}

void KZProtocolResolver::lanRemoteUpdateScreenResponse(const QString& mac, const QByteArray& data)
{
    d->send<Block>(Method::RemoteUpdateScreen, Reply, mac, data);
}

void KZProtocolResolverPrivate::decodeRemoteUpdateAttr(uchar flag, Reader& r)
{
    if (flag == Reply) take<Block>(r, cb.onLanRemoteUpdateAttrResultCB);
}

void KZProtocolResolverPrivate::decodeRemoteUpdateImage(uchar flag, Reader& r)
{
    if (flag == Reply) take<Block>(r, cb.onLanRemoteUpdateImageResultCB);
}

void KZProtocolResolverPrivate::decodeRemoteUpdateScreen(uchar flag, Reader& r)
{
    if (flag == Reply) take<Block>(r, cb.onLanRemoteUpdateScreenResultCB);
}

int KZProtocolResolverPrivate::updateDataAt(Reader& r)
{
    r.strz(); // mac
    r.u32();  // count of the data
    return r.offset();
}
