// What a simulated machine reports: a production state that moves on one
// step per report, drawn from a generator seeded with the fleet's seed and
// the machine's number, so that a seed replays the same reports.
#ifndef KZFLEET_REPORTS_H
#define KZFLEET_REPORTS_H

#include "random.h"

#include <QDateTime>
#include <QList>
#include <QMap>
#include <QString>

#include <cstdint>

class KZProtocolResolver;

/// How a machine makes its reports.
struct ReportStyle
{
    QDateTime start;         ///< the simulated time of the first report (UTC)
    int stepSeconds = 1;     ///< simulated seconds between two reports
    int workLogEntries = 0;  ///< entries per work log; 0: 1 to 3, drawn
    bool impossible = false; ///< negative counts, dates in the year 9999
};

/// One machine's production, advanced one report at a time.
///
/// Meaning of the fields this simulator fills (the protocol leaves them to the
/// machine): work-log entry `text8` the entry's start time, `text1` the job
/// file, `text2` the operator, `text5` the process, `value4` the pieces made,
/// `value3` the seconds spent; a process's `figure1` its run hours, `count` its
/// pieces, `figure2` its speed in pieces per hour; the count map holds "good"
/// and "bad" pieces of the day.
class MachineReports
{
public:
    MachineReports(std::uint64_t seed, int index, const QString& mac, const ReportStyle& style);

    /// Moves the machine on by one report and sends everything due at this
    /// step with `r`: always the state and the work log, the run times, alarm
    /// and abnormal counts and the day's total every tenth report, a bobbin
    /// or axis-speed change now and then.
    /// With `copy`, every message goes to it as well (the summary's digest is
    /// made from a copy's frames).
    void sendNext(KZProtocolResolver& r, KZProtocolResolver* copy = nullptr);
    /// Reports made so far.
    std::uint64_t count() const { return n_; }
    /// The messages sent by the last sendNext() that the receiver does not
    /// answer (all but the work log).
    int unansweredLast() const { return unanswered_; }

private:
    QString date() const;
    QString time() const;

    Random rng_;
    QString mac_;
    ReportStyle style_;
    std::uint64_t n_ = 0;
    int unanswered_ = 0;
    // The machine's state.
    unsigned char state_ = 1; ///< 0 stopped, 1 running, 2 idle, 3 alarm
    int axisSpeed_ = 0;       ///< spindle revolutions per minute
    int bobbin_ = 1;          ///< bobbin number
    int threadMetres_ = 0;    ///< thread left on the bobbin
    int good_ = 0, bad_ = 0;  ///< pieces of the day
    int runS_ = 0, idleS_ = 0, alarmS_ = 0;
    QMap<QString, int> alarms_;
    QMap<int, int> abnormal_;
};

#endif
