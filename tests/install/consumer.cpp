// Sends a logout through one resolver and receives it on another, and runs
// the cipher on the FIPS-197 example, using only the installed headers and
// library.
#include <kzprotocolresolver.h>
#include <qaesencryption.h>

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
    return received == 42 && known && back ? 0 : 1;
}
