// Tests of QAESEncryption: published known-answer vectors, the padding, iv and
// key-length rules, and a randomised comparison with OpenSSL's libcrypto (used
// here only as an independent reference).

#include "qaesencryption.h"

#include <gtest/gtest.h>
#include <openssl/evp.h>

#include <QByteArray>

#include <memory>
#include <random>

namespace {

QByteArray hex(const char* s) { return QByteArray::fromHex(QByteArray(s)); }
std::string toHex(const QByteArray& a) { return a.toHex().toStdString(); }

// The cipher's padding rule: nothing for whole blocks, else 16 - r bytes of 16 - r.
QByteArray padded(const QByteArray& pt)
{
    const int r = pt.size() % 16;
    return r == 0 ? pt : pt + QByteArray(16 - r, char(16 - r));
}

const int kKeyBytes[3] = {16, 24, 32};

// OpenSSL with padding disabled: ECB and CBC input must already be padded.
QByteArray reference(int level, int mode, bool encrypt, const QByteArray& key, const QByteArray& iv,
                     const QByteArray& in)
{
    using Fn = const EVP_CIPHER* (*)();
    static const Fn table[3][3] = {{EVP_aes_128_ecb, EVP_aes_128_cbc, EVP_aes_128_cfb128},
                                   {EVP_aes_192_ecb, EVP_aes_192_cbc, EVP_aes_192_cfb128},
                                   {EVP_aes_256_ecb, EVP_aes_256_cbc, EVP_aes_256_cfb128}};
    std::unique_ptr<EVP_CIPHER_CTX, decltype(&EVP_CIPHER_CTX_free)> ctx(EVP_CIPHER_CTX_new(),
                                                                        EVP_CIPHER_CTX_free);
    const auto* k = reinterpret_cast<const unsigned char*>(key.constData());
    const auto* v = mode == QAESEncryption::ECB
                        ? nullptr
                        : reinterpret_cast<const unsigned char*>(iv.constData());
    if (EVP_CipherInit_ex(ctx.get(), table[level][mode](), nullptr, k, v, encrypt) != 1)
        return "init failed";
    EVP_CIPHER_CTX_set_padding(ctx.get(), 0);
    QByteArray out(in.size() + 32, '\0');
    int n = 0, fin = 0;
    auto* o = reinterpret_cast<unsigned char*>(out.data());
    if (EVP_CipherUpdate(ctx.get(), o, &n, reinterpret_cast<const unsigned char*>(in.constData()),
                         in.size()) != 1 ||
        EVP_CipherFinal_ex(ctx.get(), o + n, &fin) != 1)
        return "cipher failed";
    out.resize(n + fin);
    return out;
}

QByteArray randomBytes(std::mt19937& rng, int n)
{
    QByteArray a(n, '\0');
    for (char& c : a) c = char(rng() & 0xFF);
    return a;
}

// SP 800-38A Appendix F: the four-block plaintext, the iv and the keys.
const char* const kSpPlain = "6bc1bee22e409f96e93d7e117393172aae2d8a571e03ac9c9eb76fac45af8e51"
                             "30c81c46a35ce411e5fbc1191a0a52eff69f2445df4f9b17ad2b417be66c3710";
const char* const kSpIv = "000102030405060708090a0b0c0d0e0f";
const char* const kSpKey[3] = {
    "2b7e151628aed2a6abf7158809cf4f3c",
    "8e73b0f7da0e6452c810f32b809079e562f8ead2522c6b7b",
    "603deb1015ca71be2b73aef0857d77811f352c073b6108d72d9810a30914dff4",
};
const char* const kFipsPlain = "00112233445566778899aabbccddeeff";
const char* const kFipsKey = "000102030405060708090a0b0c0d0e0f101112131415161718191a1b1c1d1e1f";

} // namespace

// FIPS-197 Appendix C (one block) and SP 800-38A Appendix F (four blocks),
// both directions.
TEST(AesVectors, KnownAnswers)
{
    const int ECB = QAESEncryption::ECB, CBC = QAESEncryption::CBC, CFB = QAESEncryption::CFB;
    const struct
    {
        int level, mode;
        const char *key, *plain, *cipher;
    } rows[] = {
        {0, ECB, nullptr, kFipsPlain, "69c4e0d86a7b0430d8cdb78070b4c55a"},
        {1, ECB, nullptr, kFipsPlain, "dda97ca4864cdfe06eaf70a0ec0d7191"},
        {2, ECB, nullptr, kFipsPlain, "8ea2b7ca516745bfeafc49904b496089"},
        {0, ECB, kSpKey[0], kSpPlain,
         "3ad77bb40d7a3660a89ecaf32466ef97f5d3d58503b9699de785895a96fdbaaf"
         "43b1cd7f598ece23881b00e3ed0306887b0c785e27e8ad3f8223207104725dd4"},
        {1, ECB, kSpKey[1], kSpPlain,
         "bd334f1d6e45f25ff712a214571fa5cc974104846d0ad3ad7734ecb3ecee4eef"
         "ef7afd2270e2e60adce0ba2face6444e9a4b41ba738d6c72fb16691603c18e0e"},
        {2, ECB, kSpKey[2], kSpPlain,
         "f3eed1bdb5d2a03c064b5a7e3db181f8591ccb10d410ed26dc5ba74a31362870"
         "b6ed21b99ca6f4f9f153e7b1beafed1d23304b7a39f9f3ff067d8d8f9e24ecc7"},
        {0, CBC, kSpKey[0], kSpPlain,
         "7649abac8119b246cee98e9b12e9197d5086cb9b507219ee95db113a917678b2"
         "73bed6b8e3c1743b7116e69e222295163ff1caa1681fac09120eca307586e1a7"},
        {1, CBC, kSpKey[1], kSpPlain,
         "4f021db243bc633d7178183a9fa071e8b4d9ada9ad7dedf4e5e738763f69145a"
         "571b242012fb7ae07fa9baac3df102e008b0e27988598881d920a9e64f5615cd"},
        {2, CBC, kSpKey[2], kSpPlain,
         "f58c4c04d6e5f1ba779eabfb5f7bfbd69cfc4e967edb808d679f777bc6702c7d"
         "39f23369a9d9bacfa530e26304231461b2eb05e2c39be9fcda6c19078c6a9d1b"},
        {0, CFB, kSpKey[0], kSpPlain,
         "3b3fd92eb72dad20333449f8e83cfb4ac8a64537a0b3a93fcde3cdad9f1ce58b"
         "26751f67a3cbb140b1808cf187a4f4dfc04b05357c5d1c0eeac4c66f9ff7f2e6"},
        {1, CFB, kSpKey[1], kSpPlain,
         "cdc80d6fddf18cab34c25909c99a417467ce7f7f81173621961a2b70171d3d7a"
         "2e1e8a1dd59b88b1c8e60fed1efac4c9c05f9f9ca9834fa042ae8fba584b09ff"},
        {2, CFB, kSpKey[2], kSpPlain,
         "dc7e84bfda79164b7ecd8486985d386039ffed143b28b1c832113c6331e5407b"
         "df10132415e54b92a13ed0a8267ae2f975a385741ab9cef82031623d55b1e471"},
    };
    for (const auto& r : rows) {
        SCOPED_TRACE(testing::Message() << "level " << r.level << " mode " << r.mode);
        QAESEncryption aes(r.level, r.mode);
        const QByteArray key = r.key ? hex(r.key) : hex(kFipsKey).left(kKeyBytes[r.level]);
        EXPECT_EQ(toHex(aes.encode(hex(r.plain), key, hex(kSpIv))), r.cipher);
        EXPECT_EQ(toHex(aes.decode(hex(r.cipher), key, hex(kSpIv))), r.plain);
    }
}

// FIPS-197 Appendix A: the last round key of each expansion example; the
// AES_192 buffer is 209 bytes, the byte past the round keys 0.
TEST(AesVectors, KeyExpansion)
{
    const struct
    {
        int level, size;
        const char* lastRoundKey;
    } rows[] = {{0, 176, "d014f9a8c9ee2589e13f0cc8b6630ca6"},
                {1, 209, "e98ba06f448c773c8ecc720401002202"},
                {2, 240, "fe4890d1e6188d0b046df344706c631e"}};
    for (const auto& r : rows) {
        QAESEncryption aes(r.level, QAESEncryption::ECB);
        const QByteArray w = aes.expandKey(hex(kSpKey[r.level]));
        ASSERT_EQ(w.size(), r.size);
        const int used = 16 * (aes.rounds() + 1);
        EXPECT_EQ(toHex(w.mid(used - 16, 16)), r.lastRoundKey);
        EXPECT_EQ(w.mid(used), QByteArray(r.size - used, '\0'));
    }
}

TEST(AesRules, PaddingIvLevelAndModeRules)
{
    const QByteArray key = hex(kSpKey[0]), iv = hex(kSpIv), plain = hex(kSpPlain);
    QAESEncryption cbc(QAESEncryption::AES_128, QAESEncryption::CBC);

    // Whole blocks get no padding block; 33 bytes get 15 bytes of 0x0f,
    // which decode leaves in place.
    EXPECT_EQ(cbc.encode(QByteArray(32, 'a'), key, iv).size(), 32);
    EXPECT_TRUE(cbc.encode(QByteArray(), key, iv).isEmpty());
    const QByteArray d33 = cbc.decode(cbc.encode(QByteArray(33, 'x'), key, iv), key, iv);
    EXPECT_EQ(d33, QByteArray(33, 'x') + QByteArray(15, '\x0f'));

    // CBC and CFB need an iv of exactly 16 bytes; ECB ignores it.
    for (int mode : {QAESEncryption::CBC, QAESEncryption::CFB}) {
        QAESEncryption aes(QAESEncryption::AES_128, mode);
        for (const QByteArray& bad : {QByteArray(), QByteArray(15, 'i'), QByteArray(17, 'i')}) {
            EXPECT_TRUE(aes.encode(plain, key, bad).isEmpty()) << mode << " " << bad.size();
            EXPECT_TRUE(aes.decode(plain, key, bad).isEmpty()) << mode << " " << bad.size();
        }
    }
    QAESEncryption ecb(QAESEncryption::AES_128, QAESEncryption::ECB);
    EXPECT_EQ(ecb.encode(plain, key, QByteArray(3, 'i')), ecb.encode(plain, key, QByteArray()));

    // ECB and CBC decipher whole blocks only; a trailing partial block is dropped.
    for (QAESEncryption* aes : {&ecb, &cbc}) {
        const QByteArray c = aes->encode(plain, key, iv);
        EXPECT_EQ(aes->decode(c.left(40), key, iv), plain.left(32));
        EXPECT_TRUE(aes->decode(c.left(15), key, iv).isEmpty());
    }

    // A level out of range enciphers as AES-128; a mode that does not exist
    // yields nothing.
    for (int level : {-1, 3, 7}) {
        QAESEncryption odd(level, QAESEncryption::CBC);
        EXPECT_EQ(odd.encode(plain, key, iv), cbc.encode(plain, key, iv)) << level;
    }
    QAESEncryption noMode(QAESEncryption::AES_128, 3);
    EXPECT_TRUE(noMode.encode(plain, key, iv).isEmpty());
    EXPECT_TRUE(noMode.decode(plain, key, iv).isEmpty());
}

// Random keys (also of the wrong length), ivs and texts against OpenSSL, every
// key size and mode, both directions. A short key acts as if zero-extended, a
// long one as if truncated; under ASan this also shows that nothing is read
// beyond the key's bytes.
TEST(AesDifferential, MatchesOpenSsl)
{
    std::mt19937 rng(20010);
    for (int level = 0; level < 3; ++level) {
        for (int mode : {QAESEncryption::ECB, QAESEncryption::CBC, QAESEncryption::CFB}) {
            QAESEncryption aes(level, mode);
            for (int round = 0; round < 300; ++round) {
                const int keyLength = round % 10 ? kKeyBytes[level] : int(rng() % 40);
                const QByteArray key = randomBytes(rng, keyLength);
                QByteArray fitted = key.left(kKeyBytes[level]);
                fitted.append(QByteArray(kKeyBytes[level] - fitted.size(), '\0'));
                const QByteArray iv = randomBytes(rng, 16);
                const QByteArray plain = randomBytes(rng, int(rng() % 101));
                SCOPED_TRACE(testing::Message() << "level " << level << " mode " << mode << " key "
                                                << keyLength << " length " << plain.size());
                EXPECT_EQ(aes.encode(plain, key, iv),
                          reference(level, mode, true, fitted, iv, padded(plain)));
                // Arbitrary ciphertext: whole blocks for ECB and CBC, any length for CFB.
                QByteArray text = randomBytes(rng, int(rng() % 101));
                if (mode != QAESEncryption::CFB) text.chop(text.size() % 16);
                EXPECT_EQ(aes.decode(text, key, iv),
                          reference(level, mode, false, fitted, iv, text));
            }
        }
    }
}
