// The sockets of KZClient: the one place the library uses Qt Network.
#include "kzclient_p.h"

#include <QLocalSocket>
#include <QTcpSocket>

void KZClientPrivate::openSocket()
{
    auto* socket = new QTcpSocket;
    ownSocket.reset(socket);
    attach(socket);
    socket->connectToHost(host, port);
}

KZReply::Error KZClientPrivate::deviceError(QIODevice* dev)
{
    if (auto* s = qobject_cast<QAbstractSocket*>(dev)) {
        switch (s->error()) {
        case QAbstractSocket::RemoteHostClosedError:
            return Error::NoError;
        case QAbstractSocket::ConnectionRefusedError:
            return Error::ConnectionRefusedError;
        case QAbstractSocket::HostNotFoundError:
            return Error::HostNotFoundError;
        case QAbstractSocket::SocketTimeoutError:
            return Error::TimeoutError;
        case QAbstractSocket::NetworkError:
            return Error::ConnectionLostError;
        default:
            return Error::DeviceError;
        }
    }
    if (auto* s = qobject_cast<QLocalSocket*>(dev)) {
        switch (s->error()) {
        case QLocalSocket::PeerClosedError:
            return Error::NoError;
        case QLocalSocket::ConnectionRefusedError:
            return Error::ConnectionRefusedError;
        case QLocalSocket::ServerNotFoundError:
            return Error::HostNotFoundError;
        default:
            return Error::DeviceError;
        }
    }
    return Error::DeviceError;
}

bool KZClientPrivate::isConnecting(QIODevice* dev)
{
    if (auto* s = qobject_cast<QAbstractSocket*>(dev))
        return s->state() != QAbstractSocket::ConnectedState;
    if (auto* s = qobject_cast<QLocalSocket*>(dev))
        return s->state() != QLocalSocket::ConnectedState;
    return false;
}

void KZClientPrivate::watchConnect(QIODevice* dev)
{
    const auto onConnected = [this, dev] {
        if (dev == device && state == State::Connecting) connected();
    };
    if (auto* s = qobject_cast<QAbstractSocket*>(dev))
        QObject::connect(s, &QAbstractSocket::connected, q, onConnected, Qt::QueuedConnection);
    else if (auto* s = qobject_cast<QLocalSocket*>(dev))
        QObject::connect(s, &QLocalSocket::connected, q, onConnected, Qt::QueuedConnection);
}

bool KZClientPrivate::close(QIODevice* dev)
{
    if (auto* s = qobject_cast<QAbstractSocket*>(dev)) {
        s->disconnectFromHost();
        return s->state() != QAbstractSocket::UnconnectedState;
    }
    if (auto* s = qobject_cast<QLocalSocket*>(dev)) {
        s->disconnectFromServer();
        return s->state() != QLocalSocket::UnconnectedState;
    }
    dev->close();
    return false;
}
