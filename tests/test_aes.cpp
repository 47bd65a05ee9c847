// Tests of QAESEncryption: published AES vectors, the padding and iv rules,
// key-length robustness, and a randomised comparison with OpenSSL's libcrypto
// (used here only as an independent reference).

#include "qaesencryption.h"

#include <gtest/gtest.h>
#include <openssl/evp.h>

#include <QByteArray>

#include <memory>
#include <random>
#include <string>

namespace {

QByteArray hex(const char* s) { return QByteArray::fromHex(QByteArray(s)); }

std::string toHex(const QByteArray& a) { return a.toHex().toStdString(); }

// Zero-extends or truncates a key to n bytes.
QByteArray fitKey(const QByteArray& key, int n)
{
    QByteArray k = key.left(n);
    k.append(QByteArray(n - k.size(), '\0'));
    return k;
}

// Applies the cipher's padding rule to a plaintext.
QByteArray padded(const QByteArray& pt)
{
    const int r = pt.size() % 16;
    return r == 0 ? pt : pt + QByteArray(16 - r, char(16 - r));
}

const int kKeyBytes[3] = {16, 24, 32};

const EVP_CIPHER* evpCipher(int level, int mode)
{
    using Fn = const EVP_CIPHER* (*)();
    static const Fn table[3][3] = {
        {EVP_aes_128_ecb, EVP_aes_128_cbc, EVP_aes_128_cfb128},
        {EVP_aes_192_ecb, EVP_aes_192_cbc, EVP_aes_192_cfb128},
        {EVP_aes_256_ecb, EVP_aes_256_cbc, EVP_aes_256_cfb128},
    };
    return table[level][mode]();
}

// OpenSSL reference, padding disabled: the input must already be padded for
// ECB and CBC.
QByteArray reference(int level, int mode, bool encrypt, const QByteArray& key, const QByteArray& iv,
                     const QByteArray& in)
{
    std::unique_ptr<EVP_CIPHER_CTX, decltype(&EVP_CIPHER_CTX_free)> ctx(EVP_CIPHER_CTX_new(),
                                                                        EVP_CIPHER_CTX_free);
    const auto* k = reinterpret_cast<const unsigned char*>(key.constData());
    const auto* v = mode == QAESEncryption::ECB
                        ? nullptr
                        : reinterpret_cast<const unsigned char*>(iv.constData());
    if (EVP_CipherInit_ex(ctx.get(), evpCipher(level, mode), nullptr, k, v, encrypt ? 1 : 0) != 1)
        return "init failed";
    EVP_CIPHER_CTX_set_padding(ctx.get(), 0);
    QByteArray out(in.size() + 32, '\0');
    int n = 0;
    int fin = 0;
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
    std::uniform_int_distribution<int> byte(0, 255);
    QByteArray a(n, '\0');
    for (char& c : a) c = char(byte(rng));
    return a;
}

// NIST SP 800-38A, Appendix F: the four-block plaintext, the iv and the keys.
const char* const kSpPlain = "6bc1bee22e409f96e93d7e117393172a"
                             "ae2d8a571e03ac9c9eb76fac45af8e51"
                             "30c81c46a35ce411e5fbc1191a0a52ef"
                             "f69f2445df4f9b17ad2b417be66c3710";
const char* const kSpIv = "000102030405060708090a0b0c0d0e0f";
const char* const kSpKey[3] = {
    "2b7e151628aed2a6abf7158809cf4f3c",
    "8e73b0f7da0e6452c810f32b809079e562f8ead2522c6b7b",
    "603deb1015ca71be2b73aef0857d77811f352c073b6108d72d9810a30914dff4",
};

struct SpVector
{
    int mode;
    int level;
    const char* cipher;
};

const SpVector kSpVectors[] = {
    // F.1 ECB
    {QAESEncryption::ECB, QAESEncryption::AES_128,
     "3ad77bb40d7a3660a89ecaf32466ef97f5d3d58503b9699de785895a96fdbaaf"
     "43b1cd7f598ece23881b00e3ed0306887b0c785e27e8ad3f8223207104725dd4"},
    {QAESEncryption::ECB, QAESEncryption::AES_192,
     "bd334f1d6e45f25ff712a214571fa5cc974104846d0ad3ad7734ecb3ecee4eef"
     "ef7afd2270e2e60adce0ba2face6444e9a4b41ba738d6c72fb16691603c18e0e"},
    {QAESEncryption::ECB, QAESEncryption::AES_256,
     "f3eed1bdb5d2a03c064b5a7e3db181f8591ccb10d410ed26dc5ba74a31362870"
     "b6ed21b99ca6f4f9f153e7b1beafed1d23304b7a39f9f3ff067d8d8f9e24ecc7"},
    // F.2 CBC
    {QAESEncryption::CBC, QAESEncryption::AES_128,
     "7649abac8119b246cee98e9b12e9197d5086cb9b507219ee95db113a917678b2"
     "73bed6b8e3c1743b7116e69e222295163ff1caa1681fac09120eca307586e1a7"},
    {QAESEncryption::CBC, QAESEncryption::AES_192,
     "4f021db243bc633d7178183a9fa071e8b4d9ada9ad7dedf4e5e738763f69145a"
     "571b242012fb7ae07fa9baac3df102e008b0e27988598881d920a9e64f5615cd"},
    {QAESEncryption::CBC, QAESEncryption::AES_256,
     "f58c4c04d6e5f1ba779eabfb5f7bfbd69cfc4e967edb808d679f777bc6702c7d"
     "39f23369a9d9bacfa530e26304231461b2eb05e2c39be9fcda6c19078c6a9d1b"},
    // F.3.13, F.3.15, F.3.17 CFB128
    {QAESEncryption::CFB, QAESEncryption::AES_128,
     "3b3fd92eb72dad20333449f8e83cfb4ac8a64537a0b3a93fcde3cdad9f1ce58b"
     "26751f67a3cbb140b1808cf187a4f4dfc04b05357c5d1c0eeac4c66f9ff7f2e6"},
    {QAESEncryption::CFB, QAESEncryption::AES_192,
     "cdc80d6fddf18cab34c25909c99a417467ce7f7f81173621961a2b70171d3d7a"
     "2e1e8a1dd59b88b1c8e60fed1efac4c9c05f9f9ca9834fa042ae8fba584b09ff"},
    {QAESEncryption::CFB, QAESEncryption::AES_256,
     "dc7e84bfda79164b7ecd8486985d386039ffed143b28b1c832113c6331e5407b"
     "df10132415e54b92a13ed0a8267ae2f975a385741ab9cef82031623d55b1e471"},
};

} // namespace

// FIPS-197 Appendix C: one block, plaintext 00112233..ff, key 000102...
TEST(AesFips197, AppendixCSingleBlockEcb)
{
    const QByteArray plain = hex("00112233445566778899aabbccddeeff");
    const struct
    {
        int level;
        const char* key;
        const char* cipher;
    } cases[] = {
        {QAESEncryption::AES_128, "000102030405060708090a0b0c0d0e0f",
         "69c4e0d86a7b0430d8cdb78070b4c55a"},
        {QAESEncryption::AES_192, "000102030405060708090a0b0c0d0e0f1011121314151617",
         "dda97ca4864cdfe06eaf70a0ec0d7191"},
        {QAESEncryption::AES_256,
         "000102030405060708090a0b0c0d0e0f101112131415161718191a1b1c1d1e1f",
         "8ea2b7ca516745bfeafc49904b496089"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.level);
        QAESEncryption aes(c.level, QAESEncryption::ECB);
        EXPECT_EQ(toHex(aes.encode(plain, hex(c.key), QByteArray())), c.cipher);
        EXPECT_EQ(toHex(aes.decode(hex(c.cipher), hex(c.key), QByteArray())), toHex(plain));
    }
}

// FIPS-197 Appendix A: the last four words of each expansion example, and the
// expanded-key sizes (AES_192 has a 209-byte buffer whose last byte is 0).
TEST(AesFips197, AppendixAKeyExpansion)
{
    const struct
    {
        int level;
        const char* key;
        int size;
        const char* lastWords;
    } cases[] = {
        {QAESEncryption::AES_128, "2b7e151628aed2a6abf7158809cf4f3c", 176,
         "d014f9a8c9ee2589e13f0cc8b6630ca6"},
        {QAESEncryption::AES_192, "8e73b0f7da0e6452c810f32b809079e562f8ead2522c6b7b", 209,
         "e98ba06f448c773c8ecc720401002202"},
        {QAESEncryption::AES_256,
         "603deb1015ca71be2b73aef0857d77811f352c073b6108d72d9810a30914dff4", 240,
         "fe4890d1e6188d0b046df344706c631e"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.level);
        QAESEncryption aes(c.level, QAESEncryption::ECB);
        const QByteArray w = aes.expandKey(hex(c.key));
        ASSERT_EQ(w.size(), c.size);
        EXPECT_EQ(aes.expandedKeyLength(), c.size);
        EXPECT_EQ(toHex(w.left(hex(c.key).size())), c.key);
        const int roundKeyBytes = 16 * (aes.rounds() + 1);
        EXPECT_EQ(toHex(w.mid(roundKeyBytes - 16, 16)), c.lastWords);
        EXPECT_EQ(w.mid(roundKeyBytes), QByteArray(c.size - roundKeyBytes, '\0'));
    }
}

// NIST SP 800-38A Appendix F, four blocks each: encode and decode.
TEST(AesSp80038a, EcbCbcCfbVectors)
{
    const QByteArray plain = hex(kSpPlain);
    const QByteArray iv = hex(kSpIv);
    for (const SpVector& v : kSpVectors) {
        SCOPED_TRACE(testing::Message() << "mode " << v.mode << " level " << v.level);
        QAESEncryption aes(v.level, v.mode);
        const QByteArray key = hex(kSpKey[v.level]);
        EXPECT_EQ(toHex(aes.encode(plain, key, iv)), v.cipher);
        EXPECT_EQ(toHex(aes.decode(hex(v.cipher), key, iv)), kSpPlain);
    }
}

TEST(AesPadding, LengthsAndPadBytes)
{
    const QByteArray key = hex(kSpKey[0]);
    const QByteArray iv = hex(kSpIv);
    QAESEncryption aes(QAESEncryption::AES_128, QAESEncryption::CBC);

    // Whole blocks get no padding block.
    EXPECT_EQ(aes.encode(QByteArray(16, 'a'), key, iv).size(), 16);
    EXPECT_EQ(aes.encode(QByteArray(32, 'a'), key, iv).size(), 32);
    EXPECT_TRUE(aes.encode(QByteArray(), key, iv).isEmpty());

    // 33 bytes: 15 bytes of 0x0f, which decode leaves in place.
    const QByteArray plain33(33, 'x');
    const QByteArray c33 = aes.encode(plain33, key, iv);
    ASSERT_EQ(c33.size(), 48);
    const QByteArray d33 = aes.decode(c33, key, iv);
    ASSERT_EQ(d33.size(), 48);
    EXPECT_EQ(d33.left(33), plain33);
    EXPECT_EQ(d33.mid(33), QByteArray(15, '\x0f'));

    // Every remainder pads with 16 - r bytes of value 16 - r.
    for (int len = 1; len < 48; ++len) {
        SCOPED_TRACE(len);
        const QByteArray plain(len, 'p');
        const QByteArray dec = aes.decode(aes.encode(plain, key, iv), key, iv);
        EXPECT_EQ(dec, padded(plain));
    }
}

TEST(AesIv, CbcAndCfbNeedSixteenByteIv)
{
    const QByteArray key = hex(kSpKey[0]);
    const QByteArray text(32, 't');
    const QByteArray badIvs[] = {QByteArray(), QByteArray(""), QByteArray(15, 'i'),
                                 QByteArray(17, 'i')};
    for (int mode : {QAESEncryption::CBC, QAESEncryption::CFB}) {
        QAESEncryption aes(QAESEncryption::AES_128, mode);
        for (const QByteArray& iv : badIvs) {
            SCOPED_TRACE(testing::Message() << "mode " << mode << " iv size " << iv.size());
            EXPECT_TRUE(aes.encode(text, key, iv).isEmpty());
            EXPECT_TRUE(aes.decode(text, key, iv).isEmpty());
        }
        EXPECT_EQ(aes.encode(text, key, QByteArray(16, 'i')).size(), 32);
    }
}

TEST(AesIv, EcbIgnoresIv)
{
    const QByteArray key = hex(kSpKey[0]);
    const QByteArray plain = hex(kSpPlain);
    QAESEncryption aes(QAESEncryption::AES_128, QAESEncryption::ECB);
    const QByteArray expected = aes.encode(plain, key, QByteArray());
    EXPECT_EQ(toHex(expected), kSpVectors[0].cipher);
    EXPECT_EQ(aes.encode(plain, key, QByteArray(15, 'i')), expected);
    EXPECT_EQ(aes.encode(plain, key, hex(kSpIv)), expected);
    EXPECT_EQ(aes.decode(expected, key, QByteArray(3, 'i')), plain);
}

TEST(AesConstruction, LevelsAndModes)
{
    const struct
    {
        int level;
        int effective;
        int keyLength;
        int rounds;
    } cases[] = {
        {0, QAESEncryption::AES_128, 16, 10},  {1, QAESEncryption::AES_192, 24, 12},
        {2, QAESEncryption::AES_256, 32, 14},  {3, QAESEncryption::AES_128, 16, 10},
        {-1, QAESEncryption::AES_128, 16, 10},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.level);
        QAESEncryption aes(c.level, QAESEncryption::ECB);
        EXPECT_EQ(aes.level(), c.effective);
        EXPECT_EQ(aes.keyLength(), c.keyLength);
        EXPECT_EQ(aes.rounds(), c.rounds);
        EXPECT_EQ(aes.parent(), nullptr);
    }

    // An out-of-range level really enciphers as AES-128.
    QAESEncryption odd(7, QAESEncryption::CBC);
    EXPECT_EQ(toHex(odd.encode(hex(kSpPlain), hex(kSpKey[0]), hex(kSpIv))), kSpVectors[3].cipher);

    // A mode that does not exist yields nothing, whatever the iv.
    QAESEncryption noMode(QAESEncryption::AES_128, 3);
    EXPECT_TRUE(noMode.encode(hex(kSpPlain), hex(kSpKey[0]), hex(kSpIv)).isEmpty());
    EXPECT_TRUE(noMode.decode(hex(kSpPlain), hex(kSpKey[0]), hex(kSpIv)).isEmpty());
}

// Short keys behave as if zero-extended, long ones as if truncated; an empty
// key is the all-zero key. (Under ASan this also shows nothing is read beyond
// the key's bytes.)
TEST(AesKeys, WrongLengthKeysAreFittedNotRejected)
{
    std::mt19937 rng(197);
    const QByteArray iv = hex(kSpIv);
    const QByteArray plain = randomBytes(rng, 40);
    for (int level = 0; level < 3; ++level) {
        QAESEncryption aes(level, QAESEncryption::CBC);
        const int need = kKeyBytes[level];
        for (int len : {0, 1, 5, 15, 16, 17, 23, 24, 25, 31, 32, 33, 64}) {
            SCOPED_TRACE(testing::Message() << "level " << level << " key size " << len);
            const QByteArray key = randomBytes(rng, len);
            const QByteArray fitted = fitKey(key, need);
            EXPECT_EQ(aes.expandKey(key), aes.expandKey(fitted));
            const QByteArray c = aes.encode(plain, key, iv);
            EXPECT_EQ(c, aes.encode(plain, fitted, iv));
            EXPECT_EQ(c, reference(level, QAESEncryption::CBC, true, fitted, iv, padded(plain)));
            EXPECT_EQ(aes.decode(c, key, iv), padded(plain));
        }
    }
}

// ECB and CBC decipher whole blocks; a trailing partial block is dropped.
TEST(AesDecode, PartialTrailingBlockIsDropped)
{
    const QByteArray key = hex(kSpKey[0]);
    const QByteArray iv = hex(kSpIv);
    const QByteArray full = hex(kSpPlain);
    for (int mode : {QAESEncryption::ECB, QAESEncryption::CBC}) {
        SCOPED_TRACE(mode);
        QAESEncryption aes(QAESEncryption::AES_128, mode);
        const QByteArray c = aes.encode(full, key, iv);
        EXPECT_EQ(aes.decode(c.left(40), key, iv), full.left(32));
        EXPECT_TRUE(aes.decode(c.left(15), key, iv).isEmpty());
    }
}

TEST(AesCfb, RoundTripAndPartialFinalBlock)
{
    std::mt19937 rng(38);
    for (int level = 0; level < 3; ++level) {
        QAESEncryption aes(level, QAESEncryption::CFB);
        for (int len = 0; len <= 70; ++len) {
            SCOPED_TRACE(testing::Message() << "level " << level << " length " << len);
            const QByteArray key = randomBytes(rng, kKeyBytes[level]);
            const QByteArray iv = randomBytes(rng, 16);
            const QByteArray plain = randomBytes(rng, len);
            const QByteArray c = aes.encode(plain, key, iv);
            EXPECT_EQ(c.size() % 16, 0);
            EXPECT_EQ(aes.decode(c, key, iv), padded(plain));
            // A stream cut anywhere deciphers to the matching prefix.
            EXPECT_EQ(aes.decode(c.left(len), key, iv), plain);
        }
    }
}

// Random keys, ivs and texts of 0..100 bytes against OpenSSL, all key sizes
// and modes, both directions.
TEST(AesDifferential, MatchesOpenSsl)
{
    std::mt19937 rng(20010);
    std::uniform_int_distribution<int> length(0, 100);
    for (int level = 0; level < 3; ++level) {
        for (int mode : {QAESEncryption::ECB, QAESEncryption::CBC, QAESEncryption::CFB}) {
            QAESEncryption aes(level, mode);
            for (int round = 0; round < 300; ++round) {
                const QByteArray key = randomBytes(rng, kKeyBytes[level]);
                const QByteArray iv = randomBytes(rng, 16);
                const QByteArray plain = randomBytes(rng, length(rng));
                SCOPED_TRACE(testing::Message() << "level " << level << " mode " << mode
                                                << " length " << plain.size());

                EXPECT_EQ(aes.encode(plain, key, iv),
                          reference(level, mode, true, key, iv, padded(plain)));

                // Decode of arbitrary ciphertext: whole blocks for ECB and CBC,
                // any length for CFB.
                QByteArray text = randomBytes(rng, length(rng));
                if (mode != QAESEncryption::CFB) text.chop(text.size() % 16);
                EXPECT_EQ(aes.decode(text, key, iv), reference(level, mode, false, key, iv, text));
            }
        }
    }
}
