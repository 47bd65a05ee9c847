#include "pcap.h"

#include <QHash>
#include <QHostAddress>
#include <QtEndian>

#include <chrono>
#include <map>

namespace kzdump {

namespace {

constexpr quint32 kMagicMicro = 0xA1B2C3D4;
constexpr quint32 kMagicNano = 0xA1B23C4D;
constexpr quint32 kLinkEthernet = 1;
constexpr quint32 kLinkRaw = 101;
constexpr quint32 kLinkIPv4 = 228;
constexpr quint32 kLinkLinuxSll = 113;
constexpr quint32 kLinkLinuxSll2 = 276;
constexpr quint32 kLinkNull = 0;
constexpr int kFileHeader = 24;
constexpr int kRecordHeader = 16;
constexpr int kSegment = 1460; // payload bytes per written segment
constexpr quint32 kMaxRecord = 256 * 1024;
// Bytes one direction may hold out of order, waiting for a gap to be filled.
constexpr qint64 kMaxPending = 64 * 1024 * 1024;

constexpr quint8 kFin = 0x01, kSyn = 0x02, kPsh = 0x08, kAck = 0x10;

// Fixed initial sequence numbers: a written capture is the same every time.
constexpr quint32 kClientIsn = 0x00010000, kServerIsn = 0x00020000;

quint16 checksum(const QByteArray& bytes, quint32 sum = 0)
{
    const auto* p = reinterpret_cast<const uchar*>(bytes.constData());
    const int n = bytes.size();
    for (int i = 0; i + 1 < n; i += 2) sum += quint32(p[i] << 8 | p[i + 1]);
    if (n & 1) sum += quint32(p[n - 1] << 8);
    while (sum >> 16) sum = (sum & 0xFFFF) + (sum >> 16);
    return quint16(~sum);
}

// Integers into a header already sized: network order for IP and TCP, little-endian for pcap.
void put16be(QByteArray& b, int at, quint16 v)
{
    b[at] = char(v >> 8);
    b[at + 1] = char(v);
}
void put32be(QByteArray& b, int at, quint32 v)
{
    put16be(b, at, quint16(v >> 16));
    put16be(b, at + 2, quint16(v));
}
void put16le(QByteArray& b, int at, quint16 v)
{
    b[at] = char(v);
    b[at + 1] = char(v >> 8);
}
void put32le(QByteArray& b, int at, quint32 v)
{
    put16le(b, at, quint16(v));
    put16le(b, at + 2, quint16(v >> 16));
}

/// A bounds-checked view of one packet: reads past the end give zero and
/// set `bad`.
struct View
{
    const uchar* p;
    int n;
    bool bad = false;
    quint32 be(int at, int width)
    {
        if (at < 0 || at + width > n) {
            bad = true;
            return 0;
        }
        quint32 v = 0;
        for (int i = 0; i < width; ++i) v = v << 8 | p[at + i];
        return v;
    }
};

struct Flow
{
    bool started = false;
    quint32 next = 0;                     // next sequence number expected
    std::map<qint64, QByteArray> pending; // by distance from `next` at arrival
    qint64 pendingBytes = 0;
};

struct FlowKey
{
    QByteArray bytes; // source address, source port, destination address, destination port
    bool operator==(const FlowKey& o) const { return bytes == o.bytes; }
};
uint qHash(const FlowKey& k, uint seed = 0) { return ::qHash(k.bytes, seed); }

struct Conn
{
    int id = 0;
    FlowKey clientToServer;
    Flow fromClient, fromServer;
};

class Reader
{
public:
    explicit Reader(const PcapVisitor& v) : visit_(v) {}

    void tcp(const QByteArray& src, const QByteArray& dst, View& v, int at, int end,
             const Endpoint& from, const Endpoint& to)
    {
        const quint16 sport = quint16(v.be(at, 2));
        const quint16 dport = quint16(v.be(at + 2, 2));
        const quint32 seq = v.be(at + 4, 4);
        const int dataAt = at + int(v.be(at + 12, 1) >> 4) * 4;
        const quint8 flags = quint8(v.be(at + 13, 1));
        if (v.bad || dataAt < at + 20 || dataAt > end) return;
        FlowKey key{src + QByteArray::number(sport) + '>' + dst + QByteArray::number(dport)};
        FlowKey back{dst + QByteArray::number(dport) + '>' + src + QByteArray::number(sport)};
        Conn* c = nullptr;
        bool fromClient = true;
        if (auto it = conns_.find(key); it != conns_.end())
            c = &*it;
        else if (auto jt = conns_.find(back); jt != conns_.end()) {
            c = &*jt;
            fromClient = false;
        } else {
            // A SYN+ACK names its receiver as the client.
            fromClient = (flags & (kSyn | kAck)) != (kSyn | kAck);
            Conn n;
            n.id = ++count_;
            n.clientToServer = fromClient ? key : back;
            c = &*conns_.insert(n.clientToServer, n);
            Endpoint a = from, b = to;
            a.port = sport;
            b.port = dport;
            if (visit_.opened) fromClient ? visit_.opened(c->id, a, b) : visit_.opened(c->id, b, a);
        }
        Flow& f = fromClient ? c->fromClient : c->fromServer;
        QByteArray payload(reinterpret_cast<const char*>(v.p + dataAt), end - dataAt);
        if (flags & kSyn) {
            f.started = true;
            f.next = seq + 1;
            return;
        }
        if (payload.isEmpty()) return;
        if (!f.started) {
            f.started = true;
            f.next = seq;
        }
        arrive(*c, fromClient, f, seq, payload);
    }

    /// The bytes of each direction that never became contiguous, after the
    /// gap before them.
    void finish()
    {
        for (Conn& c : conns_) {
            for (bool fromClient : {true, false}) {
                Flow& f = fromClient ? c.fromClient : c.fromServer;
                while (!f.pending.empty()) {
                    auto it = f.pending.begin();
                    const qint64 missing = it->first;
                    const QByteArray bytes = it->second;
                    f.pending.erase(it);
                    f.pendingBytes -= bytes.size();
                    if (visit_.gap) visit_.gap(c.id, fromClient, missing);
                    f.next += quint32(missing);
                    rebase(f, missing);
                    deliver(c, fromClient, f, bytes);
                }
            }
        }
    }

private:
    void arrive(Conn& c, bool fromClient, Flow& f, quint32 seq, QByteArray payload)
    {
        const qint32 ahead = qint32(seq - f.next);
        if (ahead > 0) {
            if (f.pendingBytes + payload.size() <= kMaxPending && !f.pending.count(ahead)) {
                f.pendingBytes += payload.size();
                f.pending.emplace(ahead, payload);
            }
            return;
        }
        if (-qint64(ahead) >= payload.size()) return; // all of it seen already
        deliver(c, fromClient, f, payload.mid(-ahead));
    }

    void deliver(Conn& c, bool fromClient, Flow& f, const QByteArray& bytes)
    {
        f.next += quint32(bytes.size());
        rebase(f, bytes.size());
        if (visit_.data) visit_.data(c.id, fromClient, bytes);
        while (!f.pending.empty() && f.pending.begin()->first <= 0) {
            auto it = f.pending.begin();
            const qint64 ahead = it->first;
            const QByteArray b = it->second;
            f.pending.erase(it);
            f.pendingBytes -= b.size();
            if (-ahead < b.size()) deliver(c, fromClient, f, b.mid(int(-ahead)));
        }
    }

    /// `next` moved on by `n`: the waiting segments are that much closer.
    static void rebase(Flow& f, qint64 n)
    {
        std::map<qint64, QByteArray> moved;
        for (auto& [ahead, bytes] : f.pending) moved.emplace(ahead - n, std::move(bytes));
        f.pending.swap(moved);
    }

    const PcapVisitor& visit_;
    QHash<FlowKey, Conn> conns_;
    int count_ = 0;
};

} // namespace

QString Endpoint::text() const
{
    if (!v6.isEmpty()) return QStringLiteral("[%1]:%2").arg(v6).arg(port);
    return QStringLiteral("%1:%2").arg(QHostAddress(ip).toString()).arg(port);
}

bool PcapWriter::open(const QString& path, QString* error)
{
    file_.setFileName(path);
    if (!file_.open(QIODevice::WriteOnly | QIODevice::Truncate)) {
        *error = file_.errorString();
        return false;
    }
    QByteArray h(kFileHeader, '\0');
    put32le(h, 0, kMagicMicro);
    put16le(h, 4, 2);
    put16le(h, 6, 4);
    put32le(h, 16, 65535); // snap length
    put32le(h, 20, kLinkRaw);
    if (file_.write(h) != h.size()) {
        *error = file_.errorString();
        return false;
    }
    return true;
}

int PcapWriter::opened(const Endpoint& client, const Endpoint& server)
{
    Connection c;
    c.client.at = client;
    c.client.seq = kClientIsn;
    c.server.at = server;
    c.server.seq = kServerIsn;
    packet(c.client, c.server, kSyn, nullptr, 0);
    ++c.client.seq;
    packet(c.server, c.client, kSyn | kAck, nullptr, 0);
    ++c.server.seq;
    packet(c.client, c.server, kAck, nullptr, 0);
    connections_.append(c);
    return connections_.size() - 1;
}

void PcapWriter::data(int connection, bool fromClient, const QByteArray& bytes)
{
    Connection& c = connections_[connection];
    Side& from = fromClient ? c.client : c.server;
    const Side& to = fromClient ? c.server : c.client;
    for (int at = 0; at < bytes.size(); at += kSegment) {
        const int n = qMin(kSegment, bytes.size() - at);
        packet(from, to, kPsh | kAck, bytes.constData() + at, n);
        from.seq += quint32(n);
    }
    file_.flush();
}

void PcapWriter::closed(int connection)
{
    Connection& c = connections_[connection];
    packet(c.client, c.server, kFin | kAck, nullptr, 0);
    ++c.client.seq;
    packet(c.server, c.client, kFin | kAck, nullptr, 0);
    ++c.server.seq;
    packet(c.client, c.server, kAck, nullptr, 0);
    file_.flush();
}

void PcapWriter::packet(const Side& from, const Side& to, quint8 flags, const char* data, int n)
{
    constexpr int kIp = 20, kTcp = 20;
    QByteArray p(kIp + kTcp, '\0');
    p[0] = char(0x45); // IPv4, 20-byte header
    put16be(p, 2, quint16(kIp + kTcp + n));
    p[6] = char(0x40); // don't fragment
    p[8] = char(64);   // time to live
    p[9] = char(6);    // TCP
    put32be(p, 12, from.at.ip);
    put32be(p, 16, to.at.ip);
    put16be(p, 10, checksum(p.left(kIp)));
    put16be(p, kIp, from.at.port);
    put16be(p, kIp + 2, to.at.port);
    put32be(p, kIp + 4, from.seq);
    put32be(p, kIp + 8, (flags & kAck) ? to.seq : 0);
    p[kIp + 12] = char(0x50); // 20-byte header
    p[kIp + 13] = char(flags);
    put16be(p, kIp + 14, 0xFFFF); // window
    p.append(data, n);
    QByteArray pseudo(12, '\0');
    put32be(pseudo, 0, from.at.ip);
    put32be(pseudo, 4, to.at.ip);
    pseudo[9] = char(6);
    put16be(pseudo, 10, quint16(kTcp + n));
    put16be(p, kIp + 16, checksum(pseudo + p.mid(kIp)));

    const auto now = std::chrono::duration_cast<std::chrono::microseconds>(
                         std::chrono::system_clock::now().time_since_epoch())
                         .count();
    QByteArray r(kRecordHeader, '\0');
    put32le(r, 0, quint32(now / 1000000));
    put32le(r, 4, quint32(now % 1000000));
    put32le(r, 8, quint32(p.size()));
    put32le(r, 12, quint32(p.size()));
    file_.write(r + p);
}

bool isPcap(const QByteArray& head)
{
    if (head.size() < 4) return false;
    const quint32 le = qFromLittleEndian<quint32>(head.constData());
    const quint32 be = qFromBigEndian<quint32>(head.constData());
    return le == kMagicMicro || le == kMagicNano || be == kMagicMicro || be == kMagicNano;
}

bool readPcap(const QByteArray& file, const PcapVisitor& visit, QString* error)
{
    if (file.size() < kFileHeader || !isPcap(file)) {
        *error = QStringLiteral("not a pcap file");
        return false;
    }
    const quint32 magic = qFromLittleEndian<quint32>(file.constData());
    const bool little = magic == kMagicMicro || magic == kMagicNano;
    const auto u32 = [&](int at) {
        return little ? qFromLittleEndian<quint32>(file.constData() + at)
                      : qFromBigEndian<quint32>(file.constData() + at);
    };
    const quint32 link = u32(20) & 0xFFFF;
    if (link != kLinkEthernet && link != kLinkRaw && link != kLinkIPv4 && link != kLinkLinuxSll &&
        link != kLinkLinuxSll2 && link != kLinkNull) {
        *error =
            QStringLiteral("link type %1 is not read (Ethernet, raw IP, Linux cooked)").arg(link);
        return false;
    }
    Reader reader(visit);
    int at = kFileHeader;
    for (int record = 1; at < file.size(); ++record) {
        if (file.size() - at < kRecordHeader) {
            *error = QStringLiteral("the file ends inside the header of record %1").arg(record);
            return false;
        }
        const quint32 len = u32(at + 8);
        if (len > kMaxRecord) {
            *error = QStringLiteral("record %1 claims %2 bytes, more than %3")
                         .arg(record)
                         .arg(len)
                         .arg(kMaxRecord);
            return false;
        }
        if (quint32(file.size() - at - kRecordHeader) < len) {
            *error = QStringLiteral("the file ends inside record %1").arg(record);
            return false;
        }
        View v{reinterpret_cast<const uchar*>(file.constData()) + at + kRecordHeader, int(len)};
        at += kRecordHeader + int(len);

        int ip = 0;
        if (link == kLinkEthernet) {
            ip = 14;
            quint32 type = v.be(12, 2);
            if (type == 0x8100) { // one VLAN tag
                type = v.be(16, 2);
                ip = 18;
            }
            if (type != 0x0800 && type != 0x86DD) continue;
        } else if (link == kLinkLinuxSll) {
            ip = 16;
        } else if (link == kLinkLinuxSll2) {
            ip = 20;
        } else if (link == kLinkNull) {
            ip = 4;
        }
        const quint32 version = v.be(ip, 1) >> 4;
        Endpoint from, to;
        QByteArray src, dst;
        int tcp = 0, end = 0;
        if (version == 4) {
            const int ihl = int(v.be(ip, 1) & 0x0F) * 4;
            const int total = int(v.be(ip + 2, 2));
            if (v.be(ip + 9, 1) != 6 || (v.be(ip + 6, 2) & 0x3FFF) != 0) continue; // TCP, whole
            from.ip = v.be(ip + 12, 4);
            to.ip = v.be(ip + 16, 4);
            src = QByteArray::number(from.ip);
            dst = QByteArray::number(to.ip);
            tcp = ip + ihl;
            end = qMin(ip + total, v.n);
        } else if (version == 6) {
            if (ip + 40 > v.n || v.be(ip + 6, 1) != 6) continue; // TCP right after the fixed header
            const auto* a = v.p + ip + 8;
            src = QByteArray(reinterpret_cast<const char*>(a), 16).toHex();
            dst = QByteArray(reinterpret_cast<const char*>(a) + 16, 16).toHex();
            from.v6 = QHostAddress(a).toString();
            to.v6 = QHostAddress(a + 16).toString();
            tcp = ip + 40;
            end = qMin(tcp + int(v.be(ip + 4, 2)), v.n);
        } else {
            continue;
        }
        if (v.bad || tcp + 20 > end) continue;
        reader.tcp(src, dst, v, tcp, end, from, to);
    }
    reader.finish();
    return true;
}

} // namespace kzdump
