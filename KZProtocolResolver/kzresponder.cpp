// KZResponder and KZLoginResponder: handles on a session's answer, usable from any thread.
// Each holds a ticket, the request's place among its session's answers; the session sends the
// answers in ticket order (kzserversession.cpp).
#include "kzprotocolresolver.h"
#include "kzserver_p.h"

void KZSessionLine::post(qint64 ticket, KZDelivery delivery)
{
    std::lock_guard<std::mutex> lock(mutex);
    if (!session) return;
    const bool wake = inbox.empty();
    inbox.emplace_back(ticket, std::move(delivery));
    if (wake) QMetaObject::invokeMethod(session->q, "takeAnswers", Qt::QueuedConnection);
}

KZResponderState::~KZResponderState()
{
    if (used) return;
    if (login)
        line->post(ticket, [](KZServerSessionPrivate* s) { s->loginAnswered(false, 2, false); });
    else
        line->post(ticket, KZDelivery());
}

void KZResponderState::deliver(KZDelivery delivery)
{
    if (used.exchange(true)) return;
    line->post(ticket, std::move(delivery));
}

KZResponder::KZResponder() = default;
KZResponder::KZResponder(std::shared_ptr<KZResponderState> state) : d(std::move(state)) {}
KZResponder::KZResponder(const KZResponder& other) = default;
KZResponder::KZResponder(KZResponder&& other) noexcept = default;
KZResponder& KZResponder::operator=(const KZResponder& other) = default;
KZResponder& KZResponder::operator=(KZResponder&& other) noexcept = default;
KZResponder::~KZResponder() = default;

void KZResponder::send(Answer answer) const
{
    if (!d || !answer) return;
    d->deliver(
        [answer = std::move(answer)](KZServerSessionPrivate* s) { answer(*s->conn->resolver()); });
}

bool KZResponder::isValid() const { return bool(d); }
bool KZResponder::isAnswered() const { return d && d->used; }

KZLoginResponder::KZLoginResponder() = default;
KZLoginResponder::KZLoginResponder(std::shared_ptr<KZResponderState> state) : r_(std::move(state))
{}

void KZLoginResponder::accept(bool administrator, int code) const
{
    if (!r_.d) return;
    r_.d->deliver([administrator, code](KZServerSessionPrivate* s) {
        s->loginAnswered(true, code, administrator);
    });
}

void KZLoginResponder::refuse(int code) const
{
    if (!r_.d) return;
    r_.d->deliver([code](KZServerSessionPrivate* s) { s->loginAnswered(false, code, false); });
}

bool KZLoginResponder::isValid() const { return r_.isValid(); }
