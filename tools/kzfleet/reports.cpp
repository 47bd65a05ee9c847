#include "reports.h"

#include "kzprotocolresolver.h"

#include <algorithm>
#include <limits>

namespace {

const char* const kJobs[] = {"logo-front.dst", "sleeve-band.dst", "cap-3d.dst", "patch-round.dst",
                             "collar-tag.dst"};
const char* const kOperators[] = {"anna", "ben", "chen", "dara", "emil", "fatma"};
const char* const kProcesses[] = {"embroider", "trim", "change-color"};
const char* const kAlarms[] = {"E101 thread break", "E205 bobbin empty", "E310 needle stop",
                               "E412 frame limit"};
const char* const kStates[] = {"stopped", "running", "idle", "alarm"};

template <typename T, int N>
const T& pick(Random& rng, const T (&from)[N])
{
    return from[rng.between(0, N - 1)];
}

/// `v` held to the range of a 32-bit count.
int saturated(qint64 v)
{
    return int(std::clamp<qint64>(v, std::numeric_limits<qint32>::min(),
                                  std::numeric_limits<qint32>::max()));
}

/// The seed of machine `index`: distinct machines draw unrelated sequences.
std::uint64_t machineSeed(std::uint64_t seed, int index)
{
    Random mix(seed ^ (std::uint64_t(index + 1) * 0xD1B54A32D192ED03ULL));
    return mix.next();
}

} // namespace

MachineReports::MachineReports(std::uint64_t seed, int index, const QString& mac,
                               const ReportStyle& style)
    : rng_(machineSeed(seed, index)), mac_(mac), style_(style)
{
    axisSpeed_ = rng_.between(6, 12) * 100;
    threadMetres_ = rng_.between(200, 1000);
}

QString MachineReports::date() const
{
    if (style_.impossible) return QStringLiteral("9999-12-31");
    return style_.start.addSecs(qint64(n_) * style_.stepSeconds)
        .toString(QStringLiteral("yyyy-MM-dd"));
}

QString MachineReports::time() const
{
    return style_.start.addSecs(qint64(n_) * style_.stepSeconds)
        .toString(QStringLiteral("HH:mm:ss"));
}

void MachineReports::sendNext(KZProtocolResolver& live, KZProtocolResolver* copy)
{
    // Each message goes out through every resolver given.
    const auto send = [&](const auto& encode) {
        encode(live);
        if (copy) encode(*copy);
    };
    ++n_;
    unanswered_ = 0;
    const int step = style_.stepSeconds;

    // The state: mostly running; an alarm now and then, cleared later.
    if (state_ == 3 ? rng_.chance(0.3) : rng_.chance(0.02)) {
        state_ = state_ == 3 ? 1 : (rng_.chance(0.5) ? 3 : 2);
        if (state_ == 3) {
            const QString alarm = QLatin1String(pick(rng_, kAlarms));
            ++alarms_[alarm];
            ++abnormal_[alarm.mid(1, 3).toInt()];
        }
    } else if (state_ != 1 && state_ != 3 && rng_.chance(0.2)) {
        state_ = 1;
    }
    (state_ == 1 ? runS_ : state_ == 3 ? alarmS_ : idleS_) += step;
    send([&](KZProtocolResolver& r) {
        r.lanMacStateResponse(mac_, date(), state_, QLatin1String(kStates[state_]));
    });
    ++unanswered_;

    // The work log: the pieces of this step, one entry per job worked on.
    QList<work_log> logs;
    const int entries = style_.workLogEntries > 0 ? style_.workLogEntries : rng_.between(1, 3);
    QMap<QString, oee_process_data> processes;
    for (int i = 0; i < entries; ++i) {
        work_log e;
        e.text8 = date() + QLatin1Char(' ') + time();
        e.text1 = QLatin1String(pick(rng_, kJobs));
        e.text2 = QLatin1String(pick(rng_, kOperators));
        e.text5 = QLatin1String(pick(rng_, kProcesses));
        e.value4 = state_ == 1 ? rng_.between(0, 3) : 0;
        e.value3 = std::max(1, step / entries);
        if (style_.impossible) {
            e.value4 = -rng_.between(1, 1000000);
            e.value3 = -1;
        }
        const bool defect = rng_.chance(0.03);
        // Sums of impossible counts stay in range: they saturate.
        (defect ? bad_ : good_) = saturated(qint64(defect ? bad_ : good_) + e.value4);
        oee_process_data& p = processes[e.text5];
        p.count = saturated(qint64(p.count) + e.value4);
        p.figure1 += e.value3 / 3600.0;
        logs.append(e);
    }
    for (oee_process_data& p : processes) p.figure2 = p.figure1 > 0 ? p.count / p.figure1 : 0;
    const QMap<QString, int> counts{
        {QStringLiteral("bad"), saturated(style_.impossible ? -qint64(bad_) - 1 : bad_)},
        {QStringLiteral("good"), good_}};
    send([&](KZProtocolResolver& r) {
        r.lanMacWorkLog(mac_, date(), time(), logs, counts, processes);
    });

    // Changes of bobbin thread and axis speed.
    threadMetres_ -= rng_.between(0, 3);
    if (threadMetres_ <= 0 || rng_.chance(0.03)) {
        if (threadMetres_ <= 0) {
            ++bobbin_;
            threadMetres_ = rng_.between(800, 1000);
        }
        send([&](KZProtocolResolver& r) {
            r.lanMacUpdateBobbinThreadResponse(mac_, threadMetres_, bobbin_);
        });
        ++unanswered_;
    }
    if (rng_.chance(0.03)) {
        axisSpeed_ = rng_.between(6, 12) * 100;
        send([&](KZProtocolResolver& r) {
            r.lanMacUpdateAxisSpeedResponse(mac_, style_.impossible ? -axisSpeed_ : axisSpeed_);
        });
        ++unanswered_;
    }

    // Every tenth report: run times, alarm and abnormal counts, the day's total.
    if (n_ % 10 != 0) return;
    const QMap<QString, int> times{{QStringLiteral("alarm"), alarmS_},
                                   {QStringLiteral("idle"), idleS_},
                                   {QStringLiteral("run"), runS_}};
    send([&](KZProtocolResolver& r) { r.lanMacRunTimeResponse(mac_, date(), times); });
    send([&](KZProtocolResolver& r) { r.lanMacAlarmLogResponse(mac_, date(), alarms_); });
    send([&](KZProtocolResolver& r) {
        r.lanMacAbnormalResponse(mac_, date(), abnormal_, time(), int(alarms_.size()));
    });
    send([&](KZProtocolResolver& r) {
        r.lanMacDateTotal(QMap<QString, int>{{mac_, saturated(qint64(good_) + bad_)}});
    });
    unanswered_ += 4;
}
