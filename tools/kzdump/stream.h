// One byte stream of kzresolver frames, dumped as it is fed: every message
// with the fields its decoder reads, every frame the engine drops, every run
// of bytes that belongs to no good frame (where it occurs), and at the end
// the bytes still waiting for the rest of a frame (a cut-off tail).
#ifndef KZDUMP_STREAM_H
#define KZDUMP_STREAM_H

#include "kzprotocolresolver.h"
#include "output.h"

#include <QByteArray>
#include <QJsonObject>
#include <QString>

#include <map>

struct kz_event;
struct kz_rx_stats;

namespace kzdump {

class Stream
{
public:
    /// `connection` (0: none) and `direction` (empty: none) label what this
    /// stream reports; under the tap and for a capture every object has both.
    Stream(Output& out, int connection, QString direction);
    ~Stream();
    Stream(const Stream&) = delete;
    Stream& operator=(const Stream&) = delete;

    void feed(const QByteArray& bytes);
    /// The stream has ended: reports skipped bytes not yet shown and a
    /// cut-off tail. Feeding after this is not allowed.
    void finish();

private:
    static int onEvent(kz_event* e);
    void notice(const char* why, int dropped);
    void body(QByteArray body, int frames, quint32 seq);
    void fail(QJsonObject& o, const QString& text, const QString& why, const QByteArray& body);
    QJsonObject tagged(QJsonObject o) const;
    QString prefix() const;
    /// Follows the engine's skipped and frames counts through the stream.
    void account();
    void flushSkipped();
    int frameLengthAt(qint64 offset) const;
    void notePiece(qint64 offset);
    QByteArray bytesAt(qint64 offset, qint64 n) const;

    Output& out_;
    int connection_;
    QString direction_;
    void* engine_ = nullptr;
    const kz_rx_stats* counts_ = nullptr;
    KZProtocolResolver resolver_; // no callbacks: decoders run for their trace only
    QByteArray history_;
    qint64 historyBase_ = 0; // stream offset of history_[0]
    qint64 position_ = 0;    // bytes fed so far
    // Where the engine's scan stands: every byte before it was either part
    // of an accepted frame or skipped.
    qint64 scanned_ = 0;
    quint64 framesSeen_ = 0;
    quint64 skippedSeen_ = 0;
    qint64 skipStart_ = -1; // the run of skipped bytes not yet reported
    qint64 skipLength_ = 0;
    bool finished_ = false;
    // Split bodies started and not yet whole, by message id: reported as cut
    // when the stream ends. The engine assembles at most 4 at once; a few
    // more are followed so that none it still holds is missed.
    struct PartialBody
    {
        qint64 got = 0;
        qint64 total = 0;
    };
    static constexpr size_t kBodiesFollowed = 16;
    std::map<quint32, PartialBody> bodies_;
};

} // namespace kzdump

#endif // KZDUMP_STREAM_H
