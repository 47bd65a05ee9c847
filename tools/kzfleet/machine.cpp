#include "machine.h"

#include "filereceiver.h"
#include "fleet.h"
#include "panel.h"

#include "kzprotocolresolver.h"

#include <QCryptographicHash>
#include <QSslSocket>
#include <QTcpSocket>

#include <algorithm>
#include <cstdlib>
#include <limits>

namespace {

Machine* self(void* ctx) { return static_cast<Machine*>(ctx); }

/// The frames of a copy resolver go into a digest.
void hashFrame(void* ctx, char* bytes, int n)
{
    static_cast<QCryptographicHash*>(ctx)->addData(QByteArray::fromRawData(bytes, n));
    std::free(bytes);
}

} // namespace

Machine::Machine(Fleet& fleet, int index)
    : fleet_(fleet), index_(index), mac_(QStringLiteral("%1-%2")
                                             .arg(fleet.options().prefix)
                                             .arg(index + 1, 4, 10, QLatin1Char('0'))),
      reports_(fleet.options().seed, index, mac_, fleet.reportStyle()),
      jitter_(fleet.options().seed * 31 + std::uint64_t(index))
{
    if (fleet.options().digestReports > 0)
        digestHash_ = std::make_unique<QCryptographicHash>(QCryptographicHash::Sha256);
}

Machine::~Machine() = default;

void Machine::connectNow(qint64 nowMs)
{
    phase_ = Phase::Connecting;
    phaseSinceMs_ = nowMs;
    const Options& opt = fleet_.options();
    if (!socket_) {
        QTcpSocket* s = nullptr;
        if (fleet_.tls().isNull()) {
            s = new QTcpSocket;
            QObject::connect(s, &QTcpSocket::connected, s, [this] { connected(); });
        } else {
            auto* tls = new QSslSocket;
            tls->setSslConfiguration(fleet_.tls());
            QObject::connect(tls, &QSslSocket::encrypted, tls, [this] { connected(); });
            s = tls;
        }
        socket_.reset(s);
        QObject::connect(s, &QTcpSocket::readyRead, s, [this] {
            if (r_) r_->parseReceive(socket_->readAll());
        });
        QObject::connect(s, &QTcpSocket::disconnected, s, [this] { lost(); });
        QObject::connect(s, &QAbstractSocket::errorOccurred, s,
                         [this](QAbstractSocket::SocketError) { lost(); });
    }
    if (fleet_.tls().isNull()) return socket_->connectToHost(opt.host, opt.port);
    static_cast<QSslSocket*>(socket_.get())
        ->connectToHostEncrypted(opt.host, opt.port,
                                 opt.tlsName.isEmpty() ? opt.host : opt.tlsName);
}

void Machine::connected()
{
    socket_->setSocketOption(QAbstractSocket::LowDelayOption, 1);
    phase_ = Phase::LoggingIn;
    r_ = std::make_unique<KZProtocolResolver>();
    KZProtocolResolver& r = *r_;
    r.setReceiveData(this);
    r.setParsePackResult(&Machine::onFrame);
    r.setLanLoginResultCB(&Machine::onLoginResult);
    r.setLanMacWorkLogResultCB(&Machine::onWorkLogAck);
    r.setLanMacInfoCB(&Machine::onMacList);
    r.setLanRemoteSetModeCB(&Machine::onRemoteSetMode);
    r.setLanRemoteScreenTouchCB(&Machine::onScreenTouch);
    r.setLanMacTsfFileAddTaskCB(&Machine::onAddTask);
    r.setLanMacTsfFileTaskBeginCB(&Machine::onTaskBegin);
    r.setLanMacTsfFileContentCB(&Machine::onContent);
    r.setLanMacTsfFileCloseCB(&Machine::onClose);
    r.setLanMacTsfFileCancelCB(&Machine::onCancel);
    r.lanLogin(fleet_.options().user, fleet_.options().password);
}

void Machine::lost(bool refused)
{
    if (phase_ == Phase::Waiting) return; // the error and the disconnection both come
    Stats& st = fleet_.stats();
    if (phase_ == Phase::Ready) {
        st.reportsLost += sentAt_.size();
        if (!fleet_.stopping()) ++st.disconnects;
    } else {
        fleet_.loginDone();
        if (!fleet_.stopping()) ++(refused ? st.loginsRefused : st.connectFailures);
    }
    sentAt_.clear();
    transfer_.reset();
    remoteMode_ = false;
    phase_ = Phase::Waiting;
    // Exponential back-off, 0.25 s doubling to 30 s, each wait between half
    // and one and a half times its step so that a fleet does not come back
    // all at once.
    const qint64 step = std::min<qint64>(30000, qint64(250) << std::min(attempts_, 7));
    ++attempts_;
    retryAtMs_ = fleet_.nowMs() + step / 2 + qint64(jitter_.unit() * double(step));
    socket_->abort();
    r_.reset(); // the library allows this inside one of its callbacks
}

void Machine::close()
{
    fleet_.stats().reportsLost += sentAt_.size();
    sentAt_.clear();
    if (socket_ && phase_ != Phase::Waiting) {
        if (phase_ == Phase::Connecting || phase_ == Phase::LoggingIn) fleet_.loginDone();
        phase_ = Phase::Waiting;
        retryAtMs_ = std::numeric_limits<qint64>::max();
        if (r_) r_->lanLogout(0);
        socket_->disconnectFromHost();
    }
}

void Machine::tick(qint64 nowUs)
{
    if ((phase_ == Phase::Connecting || phase_ == Phase::LoggingIn) &&
        nowUs / 1000 - phaseSinceMs_ > qint64(fleet_.options().loginTimeout * 1000)) {
        lost();
        return;
    }
    if (nextReportUs_ == 0) nextReportUs_ = nowUs + fleet_.phaseUs(index_);
    if (nowUs < nextReportUs_) return;
    // A late tick sends one report, not a burst: the schedule moves on.
    nextReportUs_ = std::max(nextReportUs_ + fleet_.intervalUs(), nowUs - fleet_.intervalUs());
    if (phase_ == Phase::Ready && !fleet_.stopping()) sendReport();
}

void Machine::sendReport()
{
    Stats& st = fleet_.stats();
    if (sentAt_.size() >= size_t(kMaxUnanswered)) {
        ++st.reportsHeld;
        return;
    }
    const int garbage = fleet_.options().garbage;
    if (garbage > 0 && jitter_.between(1, garbage) == 1) {
        // Bytes that are no frame, as long as a report.
        QByteArray junk(jitter_.between(16, 512), Qt::Uninitialized);
        for (char& ch : junk) ch = char(jitter_.next());
        socket_->write(junk);
        ++st.garbageSent;
        return;
    }
    std::unique_ptr<KZProtocolResolver> copy;
    if (digestHash_) {
        copy = std::make_unique<KZProtocolResolver>();
        copy->setReceiveData(digestHash_.get());
        copy->setParsePackResult(&hashFrame);
    }
    sentAt_.push_back(fleet_.nowUs());
    reports_.sendNext(*r_, copy.get());
    ++st.reportsSent;
    st.otherSent += std::uint64_t(reports_.unansweredLast());
    if (digestHash_ && reports_.count() >= std::uint64_t(fleet_.options().digestReports)) {
        digest_ = digestHash_->result();
        digestHash_.reset();
    }
}

// -- the resolver's callbacks -------------------------------------------------------

void Machine::onFrame(void* ctx, char* bytes, int n)
{
    Machine* m = self(ctx);
    if (m->socket_) m->socket_->write(bytes, n);
    std::free(bytes);
}

void Machine::onLoginResult(void* ctx, bool ok, int, bool, bool)
{
    Machine* m = self(ctx);
    if (m->phase_ != Phase::LoggingIn) return;
    if (!ok) return m->lost(true);
    Stats& st = m->fleet_.stats();
    m->fleet_.loginDone();
    ++st.logins;
    if (m->everLoggedIn_) ++st.reconnects;
    m->everLoggedIn_ = true;
    m->attempts_ = 0;
    m->phase_ = Phase::Ready;
    if (m->fleet_.options().noRegister) return;
    mac_info entry;
    entry.mac = m->mac_;
    entry.text2 = QStringLiteral("simulated machine %1").arg(m->index_ + 1);
    entry.code = 1;
    entry.text4 = QStringLiteral("KZ-SIM");
    entry.lv1Group = QStringLiteral("Fleet");
    entry.lv2Group = m->fleet_.options().prefix;
    m->r_->lanMacInfo({entry});
}

void Machine::onWorkLogAck(void* ctx)
{
    Machine* m = self(ctx);
    Stats& st = m->fleet_.stats();
    if (m->sentAt_.empty()) {
        ++st.unexpectedAcks;
        return;
    }
    const qint64 us = m->fleet_.nowUs() - m->sentAt_.front();
    m->sentAt_.pop_front();
    ++st.reportsAcked;
    st.latency.add(us);
    st.window.add(us);
}

void Machine::onMacList(void* ctx, const QList<mac_info>&)
{
    self(ctx)->r_->lanMacInfoResponse(); // a pushed list is acknowledged
}

// -- the panel ----------------------------------------------------------------------

void Machine::sendScreen(int x, int y)
{
    r_->lanRemoteUpdatePageResponse(mac_, page_);
    r_->lanRemoteUpdateScreenResponse(mac_, Panel::screen(index_, page_, x, y));
}

void Machine::onRemoteSetMode(void* ctx, const QString& mac, int mode)
{
    Machine* m = self(ctx);
    ++m->fleet_.stats().panelRequests;
    const bool mine = mac == m->mac_;
    m->r_->lanRemoteSetModeResponse(mine, mac, mode, Panel::kWidth, Panel::kHeight);
    // Mode 0 leaves remote control; any other enters it and shows the screen.
    m->remoteMode_ = mine && mode != 0;
    if (!m->remoteMode_) return;
    m->page_ = 0;
    m->sendScreen(-1, -1);
}

void Machine::onScreenTouch(void* ctx, const QString& mac, unsigned char, unsigned short x,
                            unsigned short y)
{
    Machine* m = self(ctx);
    ++m->fleet_.stats().panelRequests;
    if (!m->remoteMode_ || mac != m->mac_) return;
    m->page_ = Panel::pageAfterTouch(m->page_, x);
    m->sendScreen(x, y);
}

// -- file transfers -----------------------------------------------------------------

void Machine::transferEnded(bool ok)
{
    ++(ok ? fleet_.stats().transfersDone : fleet_.stats().transfersFailed);
    transfer_.reset();
}

void Machine::onAddTask(void* ctx, bool upload, const QString& mac, const QString& task,
                        const QString& dir, bool, const QStringList& files)
{
    Machine* m = self(ctx);
    if (m->transfer_) {
        m->r_->lanMacTsfFileAddTaskUi(false, mac, files.value(0), 0, dir,
                                      QStringLiteral("a transfer is already running"), task);
        return;
    }
    m->transfer_ =
        std::make_unique<FileReceiver>(m->mac_, m->fleet_.options().store, ++m->lastTask_);
    if (!m->transfer_->addTask(*m->r_, upload, mac, task, dir, files)) m->transferEnded(false);
}

void Machine::onTaskBegin(void* ctx, int size, const QByteArray& digest)
{
    Machine* m = self(ctx);
    if (!m->transfer_) return m->r_->lanMacTsfFileBeginResponse(0, 1, 0);
    if (m->transfer_->begin(*m->r_, size, digest) == FileReceiver::End::Failed)
        m->transferEnded(false);
}

void Machine::onContent(void* ctx, int task, int chunk, int offset, int len,
                        const QByteArray& digest, const QByteArray& data)
{
    Machine* m = self(ctx);
    if (!m->transfer_) return m->r_->lanMacTsfFileContentResponse(chunk, -1);
    m->transfer_->content(*m->r_, task, chunk, offset, len, digest, data);
}

void Machine::onClose(void* ctx, int task, int, const QByteArray& digest)
{
    Machine* m = self(ctx);
    if (!m->transfer_) return m->r_->lanMacTsfFileEnd(task, QString(), false);
    m->transferEnded(m->transfer_->close(*m->r_, task, digest) == FileReceiver::End::Done);
}

void Machine::onCancel(void* ctx, const QString&, int task)
{
    Machine* m = self(ctx);
    if (!m->transfer_) return;
    m->transfer_->cancel(*m->r_, task);
    m->transferEnded(false);
}
