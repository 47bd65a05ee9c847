// The README's `myhost.cpp`: a host that moves the resolver's bytes over a
// Qt socket, as the README's own host does, so that its build lines need
// what such a host needs (Qt Network besides the library).
#include <kzprotocolresolver.h>

#include <QCoreApplication>
#include <QTcpSocket>

#include <cstdlib>

static void sendFrame(void* ctx, char* bytes, int n)
{
    static_cast<QTcpSocket*>(ctx)->write(bytes, n);
    free(bytes);
}

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    QTcpSocket socket;
    KZProtocolResolver resolver;
    resolver.setReceiveData(&socket);
    resolver.setParsePackResult(sendFrame);
    QObject::connect(&socket, &QTcpSocket::readyRead,
                     [&] { resolver.parseReceive(socket.readAll()); });
    return 0;
}
