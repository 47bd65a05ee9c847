// Sends a logout through one resolver and receives it on another, using only
// the installed headers and library.
#include <kzprotocolresolver.h>

#include <cstdio>
#include <cstdlib>

static QByteArray wire;
static int received = -1;

int main()
{
    KZProtocolResolver sender, receiver;
    sender.setParsePackResult([](void*, char* bytes, int n) {
        wire.append(bytes, n);
        std::free(bytes);
    });
    receiver.setLanLogoutCB([](void*, int value) { received = value; });
    sender.lanLogout(42);
    receiver.parseReceive(wire);
    std::printf("received %d\n", received);
    return received == 42 ? 0 : 1;
}
