// The cipher: decode of arbitrary data, keys and vectors, in every level and
// mode (and in one that is none of them), with the result lengths the class
// documents; then encode of the same data, which decode must undo.
//
// Input: u8 level (modulo 4), u8 mode (modulo 4; 3 is no mode), u8 key
// length (modulo 48), u8 vector length (modulo 24; 23 means a null vector),
// the key, the vector, then the data.
#include "fuzz_util.h"
#include "qaesencryption.h"

using kzfuzz::check;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    kzfuzz::Input in(data, size);
    const int level = in.u8() % 4;
    const int mode = in.u8() % 4;
    const size_t keyLength = in.u8() % 48;
    const size_t ivLength = in.u8() % 24;
    const QByteArray key = in.bytes(keyLength);
    const QByteArray iv = ivLength == 23 ? QByteArray() : in.bytes(ivLength);
    const QByteArray text = in.rest();

    const QAESEncryption aes(level, mode);
    const bool ivOk = iv.size() == 16;
    const bool works = mode == QAESEncryption::ECB ||
                       ((mode == QAESEncryption::CBC || mode == QAESEncryption::CFB) && ivOk);

    const QByteArray plain = aes.decode(text, key, iv);
    if (!works)
        check(plain.isEmpty(), "decode without a usable mode and vector gave bytes");
    else if (mode == QAESEncryption::CFB)
        check(plain.size() == text.size(), "CFB decode changed the length");
    else
        check(plain.size() == text.size() / 16 * 16, "decode kept a partial block");

    const QByteArray cipher = aes.encode(text, key, iv);
    if (!works) {
        check(cipher.isEmpty(), "encode without a usable mode and vector gave bytes");
        return 0;
    }
    check(cipher.size() == (text.size() + 15) / 16 * 16, "encode padded to the wrong length");
    const QByteArray back = aes.decode(cipher, key, iv);
    check(back.size() == cipher.size(), "decode of a whole ciphertext changed its length");
    check(back.left(text.size()) == text, "decode did not undo encode");
    const char pad = char(cipher.size() - text.size());
    for (int i = text.size(); i < back.size(); ++i) check(back[i] == pad, "wrong padding byte");
    return 0;
}
