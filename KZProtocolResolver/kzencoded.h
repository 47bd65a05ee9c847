/// \file kzencoded.h
/// Messages encoded once and sent by many resolvers.
#ifndef KZRESOLVER_KZENCODED_H
#define KZRESOLVER_KZENCODED_H

#include "kzresolver_global.h"

#include <QtGlobal>

#include <functional>
#include <memory>

class KZProtocolResolver;

/// Messages whose payloads are written once and then sent through any
/// number of resolvers: what a server uses to push the same list to many
/// clients.
///
/// A frame cannot be shared between connections: each resolver numbers its
/// frames itself, and the checksums cover the numbers. What is shared is the
/// costly part, the payload (a list of thousands of records written field
/// by field); each resolver then codes and frames it as its own encoders
/// would, with its own numbers.
///
/// \code
/// const KZEncodedMessages users([&](KZProtocolResolver& r) { r.lanUserInfo(list); });
/// for (KZProtocolResolver* client : clients) users.sendTo(*client);
/// \endcode
///
/// An object is immutable once made: copies share the payloads, and copies
/// may be sent from different threads at once (each resolver from its own).
class KZRESOLVER_EXPORT KZEncodedMessages
{
public:
    /// No messages.
    KZEncodedMessages();
    /// Calls `encode` with a resolver of its own whose messages are kept here,
    /// in the order it sends them, instead of being sent. Only the `lan...`
    /// encoders may be called on it.
    explicit KZEncodedMessages(const std::function<void(KZProtocolResolver&)>& encode);

    /// Sends the messages through `resolver`, in their order: its pack-result
    /// callback gets the same frames as if its own encoders had been called.
    void sendTo(KZProtocolResolver& resolver) const;

    /// How many messages there are.
    int count() const;
    /// Their payloads' bytes, before framing.
    qint64 payloadBytes() const;

    /// The kept messages (opaque).
    struct Messages;

private:
    std::shared_ptr<const Messages> d_;
};

#endif
