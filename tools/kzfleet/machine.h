// One simulated machine: its connection and resolver, its login and
// registration, its reports and their acknowledgements, the back-off after a
// lost connection, and its answers to the panel and to file transfers.
// No timers and no threads of its own: the fleet's tick drives it.
#ifndef KZFLEET_MACHINE_H
#define KZFLEET_MACHINE_H

#include "random.h"
#include "reports.h"

#include "kzrecords.h"

#include <QByteArray>
#include <QString>

#include <cstdint>
#include <deque>
#include <memory>

class Fleet;
class FileReceiver;
class KZProtocolResolver;
class QCryptographicHash;
class QTcpSocket;

class Machine
{
public:
    enum class Phase {
        Waiting,    ///< not connected; connects when its back-off is over
        Connecting, ///< the connection is being made
        LoggingIn,  ///< connected, the login's answer not yet there
        Ready,      ///< logged in: reports go out
    };

    /// Unanswered reports at which a machine stops sending more.
    static constexpr int kMaxUnanswered = 256;

    Machine(Fleet& fleet, int index);
    ~Machine();
    Machine(const Machine&) = delete;
    Machine& operator=(const Machine&) = delete;

    const QString& mac() const { return mac_; }
    Phase phase() const { return phase_; }
    /// True when it waits to connect and its back-off is over.
    bool dueToConnect(qint64 nowMs) const
    {
        return phase_ == Phase::Waiting && retryAtMs_ <= nowMs;
    }
    /// Starts the connection (the fleet decides how many connect at once).
    void connectNow(qint64 nowMs);
    /// Sends what is due at `nowUs` (a report when its time has come) and
    /// gives up on a login that takes too long.
    void tick(qint64 nowUs);
    /// Reports sent and not yet answered.
    int unanswered() const { return int(sentAt_.size()); }
    /// Counts the unanswered reports as lost and closes the connection.
    void close();
    /// The SHA-256 of the frames of the first reports (as many as the
    /// fleet's digest covers), once they are made.
    QByteArray reportsDigest() const { return digest_; }

private:
    static void onFrame(void* ctx, char* bytes, int n);
    static void onLoginResult(void* ctx, bool ok, int code, bool codeBit0, bool admin);
    static void onWorkLogAck(void* ctx);
    static void onMacList(void* ctx, const QList<mac_info>& macs);
    static void onRemoteSetMode(void* ctx, const QString& mac, int mode);
    static void onScreenTouch(void* ctx, const QString& mac, unsigned char kind, unsigned short x,
                              unsigned short y);
    static void onAddTask(void* ctx, bool upload, const QString& mac, const QString& task,
                          const QString& dir, bool overwrite, const QStringList& files);
    static void onTaskBegin(void* ctx, int size, const QByteArray& digest);
    static void onContent(void* ctx, int task, int chunk, int offset, int len,
                          const QByteArray& digest, const QByteArray& data);
    static void onClose(void* ctx, int task, int, const QByteArray& digest);
    static void onCancel(void* ctx, const QString&, int task);

    void connected();
    /// The connection is gone (or refused the login): back off and retry.
    void lost(bool refused = false);
    void sendReport();
    void sendScreen(int x, int y);
    void transferEnded(bool ok);

    Fleet& fleet_;
    int index_;
    QString mac_;
    Phase phase_ = Phase::Waiting;
    std::unique_ptr<QTcpSocket> socket_;
    std::unique_ptr<KZProtocolResolver> r_;
    MachineReports reports_;
    Random jitter_;             ///< back-off and garbage: apart from the reports' values
    std::deque<qint64> sentAt_; ///< send times (µs) of the unanswered reports, oldest first
    qint64 nextReportUs_ = 0;
    qint64 phaseSinceMs_ = 0;
    qint64 retryAtMs_ = 0;
    int attempts_ = 0;
    bool everLoggedIn_ = false;
    bool remoteMode_ = false;
    unsigned page_ = 0;
    int lastTask_ = 0;
    std::unique_ptr<FileReceiver> transfer_;
    QByteArray digest_;
    std::unique_ptr<QCryptographicHash> digestHash_; ///< while the digest is being made
};

#endif
