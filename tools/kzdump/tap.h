// The tap: a transparent relay between clients and a server that dumps both
// directions of every connection as they pass, and can write them as pcap.
#ifndef KZDUMP_TAP_H
#define KZDUMP_TAP_H

#include "output.h"

#include <QHostAddress>
#include <QString>

namespace kzdump {

struct TapOptions
{
    QHostAddress listen =
        QHostAddress::LocalHost; // the relay carries passwords: loopback unless asked
    quint16 port = 0;            // 0: any free port, printed on stderr
    QString host;                // where clients are relayed to
    quint16 targetPort = 0;
    bool once = false; // exit when the first connection ends
    QString pcap;      // write what is relayed to this file, if set
};

/// Runs the tap until it is stopped (or, with `once`, until the first
/// connection ends). Returns the exit code; errors are reported on stderr.
int tap(Output& out, const TapOptions& options);

} // namespace kzdump

#endif // KZDUMP_TAP_H
