// KZReply: the state of one request's answer; the client decides its end (kzclient.cpp).
#include "kzclient_p.h"

KZReply::KZReply(int code, KZClient* client)
    : QObject(client), d(std::make_unique<KZReplyPrivate>())
{
    d->code = code;
    d->timeout = client->timeout();
    d->timer.setSingleShot(true);
    connect(&d->timer, &QTimer::timeout, this, [this, client] { client->d->timedOut(this); });
}

KZReply::~KZReply() = default;

int KZReply::methodCode() const { return d->code; }
bool KZReply::isFinished() const { return d->finished; }
KZReply::Error KZReply::error() const { return d->finished ? d->error : Error::NoError; }
QString KZReply::errorString() const { return d->finished ? d->errorString : QString(); }

void KZReply::setTimeout(int ms)
{
    d->timeout = qMax(0, ms);
    if (!d->timer.isActive()) return;
    d->timer.stop();
    if (d->timeout > 0) d->timer.start(d->timeout);
}

int KZReply::timeout() const { return d->timeout; }
