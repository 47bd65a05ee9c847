// Sends a logout through one resolver and receives it on another, sends one
// through a connection class into a buffer, and runs the cipher on the
// FIPS-197 example, using only the installed headers and library. Built with
// KZ_EXPECT_QT, the Qt major the package must have brought in.
#include <kzconnection.h>
#include <kzprotocolresolver.h>
#include <qaesencryption.h>

#include <QBuffer>

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
    const bool sent = received == 42;
    std::printf("received %d\n", received);

    // The connection class writes its frames to the device it is given.
    QBuffer device;
    device.open(QIODevice::WriteOnly);
    KZConnection conn(&device);
    conn.resolver()->lanLogout(43);
    receiver.parseReceive(device.data());
    std::printf("connection %d\n", received);
    const bool viaConnection = received == 43;

    // FIPS-197 appendix C.1 (AES-128), then a CBC round trip.
    const QByteArray key = QByteArray::fromHex("000102030405060708090a0b0c0d0e0f");
    const QByteArray plain = QByteArray::fromHex("00112233445566778899aabbccddeeff");
    QAESEncryption ecb(QAESEncryption::AES_128, QAESEncryption::ECB);
    const bool known =
        ecb.encode(plain, key, QByteArray()).toHex() == "69c4e0d86a7b0430d8cdb78070b4c55a";
    QAESEncryption cbc(QAESEncryption::AES_128, QAESEncryption::CBC);
    const QByteArray iv(16, '\x5a');
    const bool back = cbc.decode(cbc.encode(plain + plain, key, iv), key, iv) == plain + plain;
    std::printf("aes %s %s\n", known ? "known-answer" : "WRONG", back ? "round-trip" : "WRONG");
#ifdef KZ_EXPECT_QT
    const bool rightQt = QT_VERSION_MAJOR == KZ_EXPECT_QT && qVersion()[0] == '0' + KZ_EXPECT_QT;
    std::printf("Qt %s\n", qVersion());
#else
    const bool rightQt = true;
#endif
    return sent && viaConnection && known && back && rightQt ? 0 : 1;
}
