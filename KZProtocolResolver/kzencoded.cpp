// Messages kept by a resolver that does not send them, and sent later through
// others: the payload is written once, coding and framing stay per resolver.
#include "kzencoded.h"

#include "kzprotocolresolver.h"
#include "kzprotocolresolver_p.h"

struct KZEncodedMessages::Messages
{
    QList<KZProtocolResolverPrivate::Kept> kept;
};

KZEncodedMessages::KZEncodedMessages() : d_(std::make_shared<Messages>()) {}

KZEncodedMessages::KZEncodedMessages(const std::function<void(KZProtocolResolver&)>& encode)
{
    auto messages = std::make_shared<Messages>();
    KZProtocolResolver keeper;
    KZProtocolResolverPrivate::get(&keeper)->keep = &messages->kept;
    encode(keeper);
    KZProtocolResolverPrivate::get(&keeper)->keep = nullptr;
    d_ = std::move(messages);
}

void KZEncodedMessages::sendTo(KZProtocolResolver& resolver) const
{
    KZProtocolResolverPrivate* d = KZProtocolResolverPrivate::get(&resolver);
    for (const KZProtocolResolverPrivate::Kept& m : d_->kept)
        d->sendPayload(m.method, m.flag, m.payload);
}

int KZEncodedMessages::count() const { return int(d_->kept.size()); }

qint64 KZEncodedMessages::payloadBytes() const
{
    qint64 n = 0;
    for (const KZProtocolResolverPrivate::Kept& m : d_->kept) n += m.payload.size();
    return n;
}
