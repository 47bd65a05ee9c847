// What the fleet counts: the summary at the end and the live line.
#ifndef KZFLEET_STATS_H
#define KZFLEET_STATS_H

#include "latency.h"

#include <QJsonObject>

#include <cstdint>

struct Stats
{
    std::uint64_t reportsSent = 0;  ///< work logs sent
    std::uint64_t reportsAcked = 0; ///< work logs acknowledged
    std::uint64_t reportsLost = 0;  ///< sent, and the connection went before their answer
    std::uint64_t reportsHeld = 0;  ///< not sent: too many unanswered already
    std::uint64_t otherSent = 0;    ///< state, run time, alarm, ... (not answered)
    std::uint64_t logins = 0;
    std::uint64_t reconnects = 0; ///< logins after the first of a machine
    std::uint64_t loginsRefused = 0;
    std::uint64_t connectFailures = 0; ///< refused, reset, timed out before login
    std::uint64_t disconnects = 0;     ///< connections lost after login
    std::uint64_t unexpectedAcks = 0;  ///< an answer with no report waiting for it
    std::uint64_t panelRequests = 0;
    std::uint64_t transfersDone = 0;
    std::uint64_t transfersFailed = 0; ///< refused, cancelled or digest mismatch
    std::uint64_t garbageSent = 0;
    Latency latency;     ///< the acknowledgements after the ramp
    Latency rampLatency; ///< those while machines were still logging in
    Latency window;      ///< those of the live line's last second

    /// Faults seen: what the exit code and the summary's "errors" count.
    std::uint64_t errors() const
    {
        return loginsRefused + connectFailures + disconnects + unexpectedAcks + transfersFailed;
    }
};

#endif
