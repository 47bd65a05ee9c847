// Classic pcap files of TCP/IPv4 traffic: the tap writes what it relays as
// one (Wireshark opens it and follows each stream), and kzdump reads one as
// input, each TCP direction reassembled in sequence order.
#ifndef KZDUMP_PCAP_H
#define KZDUMP_PCAP_H

#include <QByteArray>
#include <QFile>
#include <QString>

#include <functional>

namespace kzdump {

/// One end of a TCP connection.
struct Endpoint
{
    quint32 ip = 0; ///< IPv4 address, host order
    quint16 port = 0;
    QString v6; ///< an IPv6 address read from a capture, as text (ip is then 0)
    QString text() const;
};

/// Writes relayed TCP connections as pcap records of raw IPv4 packets
/// (LINKTYPE_RAW): each connection opens with the SYN handshake, carries its
/// bytes in segments of at most 1460 bytes with consistent sequence and
/// acknowledgement numbers, and closes with FIN in both directions.
class PcapWriter
{
public:
    /// Creates `path` and writes the file header; false with the reason.
    bool open(const QString& path, QString* error);
    /// A new connection, after its handshake: returns its handle.
    int opened(const Endpoint& client, const Endpoint& server);
    void data(int connection, bool fromClient, const QByteArray& bytes);
    void closed(int connection);

private:
    struct Side
    {
        Endpoint at;
        quint32 seq = 0; // next sequence number this side sends
    };
    struct Connection
    {
        Side client, server;
    };
    void packet(const Side& from, const Side& to, quint8 flags, const char* data, int n);

    QFile file_;
    QVector<Connection> connections_;
};

/// What a reader of a pcap file is told, in packet order.
struct PcapVisitor
{
    /// A TCP connection seen for the first time; `connection` counts from 1.
    /// The client is the end that sent the SYN, or the first packet.
    std::function<void(int connection, const Endpoint& client, const Endpoint& server)> opened;
    /// Bytes of one direction, in stream order, as soon as they are contiguous.
    std::function<void(int connection, bool fromClient, const QByteArray& bytes)> data;
    /// A gap in one direction that no packet filled: `missing` bytes are lost
    /// before the bytes that follow.
    std::function<void(int connection, bool fromClient, qint64 missing)> gap;
};

/// True when `head` starts like a classic pcap file (either byte order,
/// microsecond or nanosecond timestamps).
bool isPcap(const QByteArray& head);

/// Reads a classic pcap file of Ethernet, raw IP or Linux cooked captures;
/// packets other than TCP over IPv4 or IPv6 are passed over. Returns false
/// with the reason for a file that is not pcap or ends inside a record.
bool readPcap(const QByteArray& file, const PcapVisitor& visit, QString* error);

} // namespace kzdump

#endif // KZDUMP_PCAP_H
