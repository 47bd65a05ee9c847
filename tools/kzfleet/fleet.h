// The fleet: its machines on one event loop, a tick that lets them connect
// (a few at a time) and report on schedule, the live line and the summary.
#ifndef KZFLEET_FLEET_H
#define KZFLEET_FLEET_H

#include "options.h"
#include "reports.h"
#include "stats.h"

#include <QElapsedTimer>
#include <QJsonObject>
#include <QObject>
#include <QSslConfiguration>
#include <QTimer>

#include <memory>
#include <vector>

class Machine;

class Fleet : public QObject
{
    Q_OBJECT

public:
    explicit Fleet(const Options& options, QObject* parent = nullptr);
    ~Fleet() override;

    /// Starts the machines; finished() follows the duration and the drain
    /// (or stop()).
    void start();
    /// Ends the run early: no more reports, the drain, finished().
    void stop();

    /// Machines connect with TLS under `config` (before start()).
    void setTls(const QSslConfiguration& config) { tls_ = config; }
    /// The TLS configuration; null without --tls.
    const QSslConfiguration& tls() const { return tls_; }

    const Options& options() const { return options_; }
    const ReportStyle& reportStyle() const { return style_; }
    Stats& stats() { return stats_; }
    bool stopping() const { return stopping_; }
    qint64 nowUs() const { return clock_.nsecsElapsed() / 1000; }
    qint64 nowMs() const { return clock_.elapsed(); }
    /// Microseconds between two reports of a machine.
    qint64 intervalUs() const { return intervalUs_; }
    /// Machine `index`'s offset in the interval: the fleet's reports spread
    /// evenly over it.
    qint64 phaseUs(int index) const;
    /// A machine's connection or login has ended either way: its slot in the
    /// ramp is free.
    void loginDone() { --connecting_; }

    int connected() const;
    /// The summary of the run (what --json prints).
    QJsonObject summary() const;
    /// One line of what happened in the last second.
    QString liveLine();

signals:
    void finished();
    /// Every machine has logged in (or the ramp's time is up): the duration
    /// starts. `loggedIn` machines made it.
    void rampDone(int loggedIn, double seconds);

private:
    void tick();
    void drain();

    Options options_;
    QSslConfiguration tls_; ///< null: plain TCP
    ReportStyle style_;
    Stats stats_;
    std::vector<std::unique_ptr<Machine>> machines_;
    QElapsedTimer clock_;
    QTimer ticker_;
    qint64 intervalUs_ = 1000000;
    qint64 endMs_ = -1;
    qint64 rampEndMs_ = -1; ///< when every machine had logged in
    qint64 drainEndMs_ = 0;
    int connecting_ = 0;
    bool stopping_ = false;
    bool done_ = false;
    // The live line's last values.
    qint64 lastLineMs_ = 0;
    std::uint64_t lastSent_ = 0;
    std::uint64_t lastAcked_ = 0;
};

#endif
