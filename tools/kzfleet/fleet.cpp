#include "fleet.h"

#include "machine.h"

#include <QCryptographicHash>
#include <QJsonObject>

#include <cmath>

namespace {

constexpr int kTickMs = 2;
constexpr qint64 kMaxRampMs = 300000;

} // namespace

Fleet::Fleet(const Options& options, QObject* parent) : QObject(parent), options_(options)
{
    const QDate day = options_.start.isValid() ? options_.start : QDate::currentDate();
    // The working day starts at 06:00; a report covers 1 / rate seconds.
    style_.start = QDateTime(day, QTime(6, 0), Qt::UTC);
    style_.stepSeconds = std::max(1, int(std::lround(1.0 / options_.rate)));
    style_.workLogEntries = options_.workLogEntries;
    style_.impossible = options_.impossible;
    intervalUs_ = std::max<qint64>(1, qint64(1e6 / options_.rate));
    machines_.reserve(size_t(options_.machines));
    for (int i = 0; i < options_.machines; ++i)
        machines_.push_back(std::make_unique<Machine>(*this, i));
    ticker_.setTimerType(Qt::PreciseTimer);
    ticker_.setInterval(kTickMs);
    connect(&ticker_, &QTimer::timeout, this, &Fleet::tick);
}

Fleet::~Fleet() = default;

void Fleet::start()
{
    clock_.start();
    ticker_.start();
}

void Fleet::stop()
{
    if (stopping_) return;
    stopping_ = true;
    drainEndMs_ = nowMs() + qint64(options_.drain * 1000);
}

qint64 Fleet::phaseUs(int index) const
{
    return intervalUs_ * index / std::max(1, options_.machines);
}

int Fleet::connected() const
{
    int n = 0;
    for (const auto& m : machines_) n += m->phase() == Machine::Phase::Ready;
    return n;
}

void Fleet::tick()
{
    const qint64 ms = nowMs();
    // The duration runs from the moment every machine has logged in (or the
    // ramp's time is up): a run measures the whole fleet at work.
    if (rampEndMs_ < 0 && (stats_.logins >= std::uint64_t(options_.machines) || ms >= kMaxRampMs)) {
        rampEndMs_ = ms;
        // Latency while the fleet logs in (and registers) apart from the steady state's.
        stats_.rampLatency = stats_.latency;
        stats_.latency.clear();
        emit rampDone(connected(), double(ms) / 1000.0);
        if (options_.duration > 0) endMs_ = ms + qint64(options_.duration * 1000);
    }
    if (!stopping_ && endMs_ >= 0 && ms >= endMs_) stop();
    // Nobody got in: the server is not there, or refuses the account.
    if (!stopping_ && stats_.logins == 0 && ms >= qint64(options_.loginTimeout * 1000)) stop();
    if (stopping_) return drain();
    const qint64 us = nowUs();
    for (const auto& m : machines_) {
        if (connecting_ < options_.ramp && m->dueToConnect(ms)) {
            ++connecting_;
            m->connectNow(ms);
        }
        m->tick(us);
    }
}

void Fleet::drain()
{
    if (done_) return;
    int unanswered = 0;
    for (const auto& m : machines_) unanswered += m->unanswered();
    if (unanswered > 0 && nowMs() < drainEndMs_) return;
    done_ = true;
    ticker_.stop();
    for (const auto& m : machines_) m->close();
    emit finished();
}

QString Fleet::liveLine()
{
    const qint64 ms = nowMs();
    const double seconds = std::max<qint64>(1, ms - lastLineMs_) / 1000.0;
    const QString line =
        QStringLiteral("%1 s  connected %2/%3  sent %4/s  acked %5/s  p50 %6 ms  p99 %7 ms  "
                       "lost %8  errors %9")
            .arg(ms / 1000)
            .arg(connected())
            .arg(options_.machines)
            .arg(double(stats_.reportsSent - lastSent_) / seconds, 0, 'f', 0)
            .arg(double(stats_.reportsAcked - lastAcked_) / seconds, 0, 'f', 0)
            .arg(stats_.window.percentileMs(0.5), 0, 'f', 2)
            .arg(stats_.window.percentileMs(0.99), 0, 'f', 2)
            .arg(stats_.reportsLost)
            .arg(stats_.errors());
    lastLineMs_ = ms;
    lastSent_ = stats_.reportsSent;
    lastAcked_ = stats_.reportsAcked;
    stats_.window.clear();
    return line;
}

QJsonObject Fleet::summary() const
{
    const Stats& s = stats_;
    // The digest of every machine's first reports, machine by machine.
    QCryptographicHash all(QCryptographicHash::Sha256);
    bool complete = true;
    for (const auto& m : machines_) {
        complete = complete && !m->reportsDigest().isEmpty();
        all.addData(m->reportsDigest());
    }
    const double seconds = std::max<qint64>(1, clock_.elapsed()) / 1000.0;
    const auto n = [](std::uint64_t v) { return double(v); };
    QJsonObject json{
        {QStringLiteral("machines"), options_.machines},
        {QStringLiteral("seconds"), seconds},
        {QStringLiteral("ramp_seconds"),
         double(rampEndMs_ < 0 ? clock_.elapsed() : rampEndMs_) / 1000.0},
        {QStringLiteral("reports_sent"), n(s.reportsSent)},
        {QStringLiteral("reports_acknowledged"), n(s.reportsAcked)},
        {QStringLiteral("reports_lost"), n(s.reportsLost)},
        {QStringLiteral("reports_held"), n(s.reportsHeld)},
        {QStringLiteral("other_reports_sent"), n(s.otherSent)},
        {QStringLiteral("acknowledged_per_second"), n(s.reportsAcked) / seconds},
        {QStringLiteral("latency_ms"),
         QJsonObject{{QStringLiteral("p50"), s.latency.percentileMs(0.5)},
                     {QStringLiteral("p90"), s.latency.percentileMs(0.9)},
                     {QStringLiteral("p99"), s.latency.percentileMs(0.99)},
                     {QStringLiteral("p999"), s.latency.percentileMs(0.999)},
                     {QStringLiteral("max"), s.latency.maxMs()}}},
        {QStringLiteral("ramp_latency_ms"),
         QJsonObject{{QStringLiteral("p50"), s.rampLatency.percentileMs(0.5)},
                     {QStringLiteral("p99"), s.rampLatency.percentileMs(0.99)},
                     {QStringLiteral("max"), s.rampLatency.maxMs()}}},
        {QStringLiteral("logins"), n(s.logins)},
        {QStringLiteral("reconnects"), n(s.reconnects)},
        {QStringLiteral("errors"), n(s.errors())},
        {QStringLiteral("error_kinds"),
         QJsonObject{{QStringLiteral("logins_refused"), n(s.loginsRefused)},
                     {QStringLiteral("connect_failures"), n(s.connectFailures)},
                     {QStringLiteral("disconnects"), n(s.disconnects)},
                     {QStringLiteral("unexpected_acknowledgements"), n(s.unexpectedAcks)},
                     {QStringLiteral("transfers_failed"), n(s.transfersFailed)}}},
        {QStringLiteral("panel_requests"), n(s.panelRequests)},
        {QStringLiteral("transfers_done"), n(s.transfersDone)},
        {QStringLiteral("garbage_sent"), n(s.garbageSent)},
    };
    if (options_.digestReports > 0)
        json.insert(QStringLiteral("reports_digest"),
                    complete ? QString::fromLatin1(all.result().toHex()) : QString());
    return json;
}
