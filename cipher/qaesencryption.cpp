#include "qaesencryption.h"

#include <climits>
#include <cstring>

namespace {

constexpr int kBlock = 16;

// FIPS-197 Figure 7: the S-box, indexed by the byte it substitutes.
const quint8 kSbox[256] = {
    0x63, 0x7c, 0x77, 0x7b, 0xf2, 0x6b, 0x6f, 0xc5, 0x30, 0x01, 0x67, 0x2b, 0xfe, 0xd7, 0xab, 0x76,
    0xca, 0x82, 0xc9, 0x7d, 0xfa, 0x59, 0x47, 0xf0, 0xad, 0xd4, 0xa2, 0xaf, 0x9c, 0xa4, 0x72, 0xc0,
    0xb7, 0xfd, 0x93, 0x26, 0x36, 0x3f, 0xf7, 0xcc, 0x34, 0xa5, 0xe5, 0xf1, 0x71, 0xd8, 0x31, 0x15,
    0x04, 0xc7, 0x23, 0xc3, 0x18, 0x96, 0x05, 0x9a, 0x07, 0x12, 0x80, 0xe2, 0xeb, 0x27, 0xb2, 0x75,
    0x09, 0x83, 0x2c, 0x1a, 0x1b, 0x6e, 0x5a, 0xa0, 0x52, 0x3b, 0xd6, 0xb3, 0x29, 0xe3, 0x2f, 0x84,
    0x53, 0xd1, 0x00, 0xed, 0x20, 0xfc, 0xb1, 0x5b, 0x6a, 0xcb, 0xbe, 0x39, 0x4a, 0x4c, 0x58, 0xcf,
    0xd0, 0xef, 0xaa, 0xfb, 0x43, 0x4d, 0x33, 0x85, 0x45, 0xf9, 0x02, 0x7f, 0x50, 0x3c, 0x9f, 0xa8,
    0x51, 0xa3, 0x40, 0x8f, 0x92, 0x9d, 0x38, 0xf5, 0xbc, 0xb6, 0xda, 0x21, 0x10, 0xff, 0xf3, 0xd2,
    0xcd, 0x0c, 0x13, 0xec, 0x5f, 0x97, 0x44, 0x17, 0xc4, 0xa7, 0x7e, 0x3d, 0x64, 0x5d, 0x19, 0x73,
    0x60, 0x81, 0x4f, 0xdc, 0x22, 0x2a, 0x90, 0x88, 0x46, 0xee, 0xb8, 0x14, 0xde, 0x5e, 0x0b, 0xdb,
    0xe0, 0x32, 0x3a, 0x0a, 0x49, 0x06, 0x24, 0x5c, 0xc2, 0xd3, 0xac, 0x62, 0x91, 0x95, 0xe4, 0x79,
    0xe7, 0xc8, 0x37, 0x6d, 0x8d, 0xd5, 0x4e, 0xa9, 0x6c, 0x56, 0xf4, 0xea, 0x65, 0x7a, 0xae, 0x08,
    0xba, 0x78, 0x25, 0x2e, 0x1c, 0xa6, 0xb4, 0xc6, 0xe8, 0xdd, 0x74, 0x1f, 0x4b, 0xbd, 0x8b, 0x8a,
    0x70, 0x3e, 0xb5, 0x66, 0x48, 0x03, 0xf6, 0x0e, 0x61, 0x35, 0x57, 0xb9, 0x86, 0xc1, 0x1d, 0x9e,
    0xe1, 0xf8, 0x98, 0x11, 0x69, 0xd9, 0x8e, 0x94, 0x9b, 0x1e, 0x87, 0xe9, 0xce, 0x55, 0x28, 0xdf,
    0x8c, 0xa1, 0x89, 0x0d, 0xbf, 0xe6, 0x42, 0x68, 0x41, 0x99, 0x2d, 0x0f, 0xb0, 0x54, 0xbb, 0x16,
};

// FIPS-197 Figure 14: the inverse S-box.
const quint8 kInvSbox[256] = {
    0x52, 0x09, 0x6a, 0xd5, 0x30, 0x36, 0xa5, 0x38, 0xbf, 0x40, 0xa3, 0x9e, 0x81, 0xf3, 0xd7, 0xfb,
    0x7c, 0xe3, 0x39, 0x82, 0x9b, 0x2f, 0xff, 0x87, 0x34, 0x8e, 0x43, 0x44, 0xc4, 0xde, 0xe9, 0xcb,
    0x54, 0x7b, 0x94, 0x32, 0xa6, 0xc2, 0x23, 0x3d, 0xee, 0x4c, 0x95, 0x0b, 0x42, 0xfa, 0xc3, 0x4e,
    0x08, 0x2e, 0xa1, 0x66, 0x28, 0xd9, 0x24, 0xb2, 0x76, 0x5b, 0xa2, 0x49, 0x6d, 0x8b, 0xd1, 0x25,
    0x72, 0xf8, 0xf6, 0x64, 0x86, 0x68, 0x98, 0x16, 0xd4, 0xa4, 0x5c, 0xcc, 0x5d, 0x65, 0xb6, 0x92,
    0x6c, 0x70, 0x48, 0x50, 0xfd, 0xed, 0xb9, 0xda, 0x5e, 0x15, 0x46, 0x57, 0xa7, 0x8d, 0x9d, 0x84,
    0x90, 0xd8, 0xab, 0x00, 0x8c, 0xbc, 0xd3, 0x0a, 0xf7, 0xe4, 0x58, 0x05, 0xb8, 0xb3, 0x45, 0x06,
    0xd0, 0x2c, 0x1e, 0x8f, 0xca, 0x3f, 0x0f, 0x02, 0xc1, 0xaf, 0xbd, 0x03, 0x01, 0x13, 0x8a, 0x6b,
    0x3a, 0x91, 0x11, 0x41, 0x4f, 0x67, 0xdc, 0xea, 0x97, 0xf2, 0xcf, 0xce, 0xf0, 0xb4, 0xe6, 0x73,
    0x96, 0xac, 0x74, 0x22, 0xe7, 0xad, 0x35, 0x85, 0xe2, 0xf9, 0x37, 0xe8, 0x1c, 0x75, 0xdf, 0x6e,
    0x47, 0xf1, 0x1a, 0x71, 0x1d, 0x29, 0xc5, 0x89, 0x6f, 0xb7, 0x62, 0x0e, 0xaa, 0x18, 0xbe, 0x1b,
    0xfc, 0x56, 0x3e, 0x4b, 0xc6, 0xd2, 0x79, 0x20, 0x9a, 0xdb, 0xc0, 0xfe, 0x78, 0xcd, 0x5a, 0xf4,
    0x1f, 0xdd, 0xa8, 0x33, 0x88, 0x07, 0xc7, 0x31, 0xb1, 0x12, 0x10, 0x59, 0x27, 0x80, 0xec, 0x5f,
    0x60, 0x51, 0x7f, 0xa9, 0x19, 0xb5, 0x4a, 0x0d, 0x2d, 0xe5, 0x7a, 0x9f, 0x93, 0xc9, 0x9c, 0xef,
    0xa0, 0xe0, 0x3b, 0x4d, 0xae, 0x2a, 0xf5, 0xb0, 0xc8, 0xeb, 0xbb, 0x3c, 0x83, 0x53, 0x99, 0x61,
    0x17, 0x2b, 0x04, 0x7e, 0xba, 0x77, 0xd6, 0x26, 0xe1, 0x69, 0x14, 0x63, 0x55, 0x21, 0x0c, 0x7d,
};

// Round constants x^(i-1) in GF(2^8) for i = 1..13; entry 0 is never used by
// the key expansion and holds the customary 0x8d. The rest of the 256-entry
// table is zero.
const quint8 kRcon[14] = {0x8d, 0x01, 0x02, 0x04, 0x08, 0x10, 0x20,
                          0x40, 0x80, 0x1b, 0x36, 0x6c, 0xd8, 0xab};

inline quint8 xtime(quint8 x) { return quint8((x << 1) ^ ((x & 0x80) ? 0x1b : 0x00)); }

inline void xorBlock(quint8* dst, const quint8* src, int n)
{
    for (int i = 0; i < n; ++i) dst[i] ^= src[i];
}

inline quint8* bytes(QByteArray& a) { return reinterpret_cast<quint8*>(a.data()); }

} // namespace

QAESEncryption::QAESEncryption(int level, int mode)
    : QObject(nullptr), m_nb(4), m_blocklen(kBlock), m_level(AES_128), m_mode(mode), m_nk(4),
      m_keyLen(16), m_nr(10), m_expandedKey(176)
{
    switch (level) {
    case AES_192:
        m_level = AES_192;
        m_nk = 6;
        m_keyLen = 24;
        m_nr = 12;
        // 13 round keys need 208 bytes; the extra byte stays zero.
        m_expandedKey = 209;
        break;
    case AES_256:
        m_level = AES_256;
        m_nk = 8;
        m_keyLen = 32;
        m_nr = 14;
        m_expandedKey = 240;
        break;
    default:
        break;
    }
    std::memcpy(m_sbox, kSbox, sizeof m_sbox);
    std::memcpy(m_invSbox, kInvSbox, sizeof m_invSbox);
    std::memset(m_rcon, 0, sizeof m_rcon);
    std::memcpy(m_rcon, kRcon, sizeof kRcon);
}

QAESEncryption::~QAESEncryption() = default;

// FIPS-197 section 5.2. The key is taken as exactly m_keyLen bytes: bytes
// beyond that are ignored and missing ones are zero, so no key length can
// make the expansion read past the key or write past the buffer. Only the
// Nb * (Nr + 1) words of the round keys are written; any remaining bytes of
// the m_expandedKey-sized buffer (one, for AES_192) are left zero.
void QAESEncryption::expandKeyInto(const QByteArray& key, quint8* out) const
{
    std::memset(out, 0, size_t(m_expandedKey));
    const int given = qMin(key.size(), m_keyLen);
    if (given > 0) std::memcpy(out, key.constData(), size_t(given));

    const int words = m_nb * (m_nr + 1);
    for (int i = m_nk; i < words; ++i) {
        quint8 temp[4];
        std::memcpy(temp, out + 4 * (i - 1), 4);
        if (i % m_nk == 0) {
            // RotWord, SubWord, then XOR with Rcon[i / Nk].
            const quint8 first = temp[0];
            temp[0] = quint8(m_sbox[temp[1]] ^ m_rcon[i / m_nk]);
            temp[1] = m_sbox[temp[2]];
            temp[2] = m_sbox[temp[3]];
            temp[3] = m_sbox[first];
        } else if (m_nk > 6 && i % m_nk == 4) {
            for (quint8& b : temp) b = m_sbox[b];
        }
        const quint8* back = out + 4 * (i - m_nk);
        quint8* w = out + 4 * i;
        for (int j = 0; j < 4; ++j) w[j] = quint8(back[j] ^ temp[j]);
    }
}

QByteArray QAESEncryption::expandKey(const QByteArray& key) const
{
    QByteArray out(m_expandedKey, Qt::Uninitialized);
    expandKeyInto(key, bytes(out));
    return out;
}

// The state is kept as FIPS-197 lays out its input: byte r + 4c holds row r
// of column c.

void QAESEncryption::addRoundKey(int round, const quint8* expKey, quint8* state)
{
    xorBlock(state, expKey + round * kBlock, kBlock);
}

void QAESEncryption::subBytes(quint8* state) const
{
    for (int i = 0; i < kBlock; ++i) state[i] = m_sbox[state[i]];
}

void QAESEncryption::invSubBytes(quint8* state) const
{
    for (int i = 0; i < kBlock; ++i) state[i] = m_invSbox[state[i]];
}

// Row r is rotated left by r columns.
void QAESEncryption::shiftRows(quint8* s)
{
    quint8 t = s[1];
    s[1] = s[5];
    s[5] = s[9];
    s[9] = s[13];
    s[13] = t;

    t = s[2];
    s[2] = s[10];
    s[10] = t;
    t = s[6];
    s[6] = s[14];
    s[14] = t;

    t = s[15];
    s[15] = s[11];
    s[11] = s[7];
    s[7] = s[3];
    s[3] = t;
}

// Row r is rotated right by r columns.
void QAESEncryption::invShiftRows(quint8* s)
{
    quint8 t = s[13];
    s[13] = s[9];
    s[9] = s[5];
    s[5] = s[1];
    s[1] = t;

    t = s[2];
    s[2] = s[10];
    s[10] = t;
    t = s[6];
    s[6] = s[14];
    s[14] = t;

    t = s[3];
    s[3] = s[7];
    s[7] = s[11];
    s[11] = s[15];
    s[15] = t;
}

// Each column is multiplied by {03}x^3 + {01}x^2 + {01}x + {02} modulo x^4 + 1.
// With t = a0 ^ a1 ^ a2 ^ a3, the new a0 is 2*a0 ^ 3*a1 ^ a2 ^ a3
// = a0 ^ t ^ 2*(a0 ^ a1), and likewise for the other rows.
void QAESEncryption::mixColumns(quint8* state)
{
    for (int c = 0; c < 4; ++c) {
        quint8* a = state + 4 * c;
        const quint8 a0 = a[0];
        const quint8 t = quint8(a[0] ^ a[1] ^ a[2] ^ a[3]);
        a[0] = quint8(a[0] ^ t ^ xtime(quint8(a[0] ^ a[1])));
        a[1] = quint8(a[1] ^ t ^ xtime(quint8(a[1] ^ a[2])));
        a[2] = quint8(a[2] ^ t ^ xtime(quint8(a[2] ^ a[3])));
        a[3] = quint8(a[3] ^ t ^ xtime(quint8(a[3] ^ a0)));
    }
}

// The inverse polynomial {0b}x^3 + {0d}x^2 + {09}x + {0e} equals the forward
// one times {04}x^2 + {05}; so multiply each column by the latter first
// (a0 ^= 4*(a0 ^ a2), a1 ^= 4*(a1 ^ a3), ...) and then apply MixColumns.
void QAESEncryption::invMixColumns(quint8* state)
{
    for (int c = 0; c < 4; ++c) {
        quint8* a = state + 4 * c;
        const quint8 u = xtime(xtime(quint8(a[0] ^ a[2])));
        const quint8 v = xtime(xtime(quint8(a[1] ^ a[3])));
        a[0] ^= u;
        a[1] ^= v;
        a[2] ^= u;
        a[3] ^= v;
    }
    mixColumns(state);
}

void QAESEncryption::cipher(const quint8* expKey, quint8* state) const
{
    addRoundKey(0, expKey, state);
    for (int round = 1; round < m_nr; ++round) {
        subBytes(state);
        shiftRows(state);
        mixColumns(state);
        addRoundKey(round, expKey, state);
    }
    subBytes(state);
    shiftRows(state);
    addRoundKey(m_nr, expKey, state);
}

void QAESEncryption::invCipher(const quint8* expKey, quint8* state) const
{
    addRoundKey(m_nr, expKey, state);
    for (int round = m_nr - 1; round > 0; --round) {
        invShiftRows(state);
        invSubBytes(state);
        addRoundKey(round, expKey, state);
        invMixColumns(state);
    }
    invShiftRows(state);
    invSubBytes(state);
    addRoundKey(0, expKey, state);
}

QByteArray QAESEncryption::encode(const QByteArray& input, const QByteArray& key,
                                  const QByteArray& iv) const
{
    if (m_mode != ECB && m_mode != CBC && m_mode != CFB) return QByteArray();
    if (m_mode != ECB && (iv.isNull() || iv.size() != kBlock)) return QByteArray();

    const int len = input.size();
    // Keeps len + padding representable; no QByteArray gets this large anyway.
    if (len > INT_MAX - kBlock) return QByteArray();
    const int rest = len % kBlock;
    const int pad = rest == 0 ? 0 : kBlock - rest;
    if (len + pad == 0) return QByteArray();

    quint8 w[kMaxExpandedKey];
    expandKeyInto(key, w);

    QByteArray out(len + pad, Qt::Uninitialized);
    quint8* o = bytes(out);
    if (len > 0) std::memcpy(o, input.constData(), size_t(len));
    std::memset(o + len, pad, size_t(pad));

    const int total = len + pad;
    if (m_mode == ECB) {
        for (int i = 0; i < total; i += kBlock) cipher(w, o + i);
    } else if (m_mode == CBC) {
        const quint8* prev = reinterpret_cast<const quint8*>(iv.constData());
        for (int i = 0; i < total; i += kBlock) {
            xorBlock(o + i, prev, kBlock);
            cipher(w, o + i);
            prev = o + i;
        }
    } else {
        // CFB-128: keystream block = E(previous ciphertext block, iv first).
        quint8 ks[kBlock];
        std::memcpy(ks, iv.constData(), kBlock);
        for (int i = 0; i < total; i += kBlock) {
            cipher(w, ks);
            xorBlock(o + i, ks, kBlock);
            std::memcpy(ks, o + i, kBlock);
        }
    }
    return out;
}

QByteArray QAESEncryption::decode(const QByteArray& input, const QByteArray& key,
                                  const QByteArray& iv) const
{
    if (m_mode != ECB && m_mode != CBC && m_mode != CFB) return QByteArray();
    if (m_mode != ECB && (iv.isNull() || iv.size() != kBlock)) return QByteArray();

    // ECB and CBC work on whole blocks only; CFB handles a partial last block.
    const int total = m_mode == CFB ? input.size() : input.size() - input.size() % kBlock;
    if (total == 0) return QByteArray();

    quint8 w[kMaxExpandedKey];
    expandKeyInto(key, w);

    QByteArray out(total, Qt::Uninitialized);
    quint8* o = bytes(out);
    std::memcpy(o, input.constData(), size_t(total));

    if (m_mode == ECB) {
        for (int i = 0; i < total; i += kBlock) invCipher(w, o + i);
    } else if (m_mode == CBC) {
        quint8 prev[kBlock];
        quint8 cur[kBlock];
        std::memcpy(prev, iv.constData(), kBlock);
        for (int i = 0; i < total; i += kBlock) {
            std::memcpy(cur, o + i, kBlock);
            invCipher(w, o + i);
            xorBlock(o + i, prev, kBlock);
            std::memcpy(prev, cur, kBlock);
        }
    } else {
        // The keystream is that of encode(); a final partial block uses only
        // as many keystream bytes as it has.
        quint8 ks[kBlock];
        std::memcpy(ks, iv.constData(), kBlock);
        for (int i = 0; i < total; i += kBlock) {
            const int n = qMin(kBlock, total - i);
            cipher(w, ks);
            quint8 next[kBlock];
            std::memcpy(next, o + i, size_t(n));
            xorBlock(o + i, ks, n);
            std::memcpy(ks, next, size_t(n));
        }
    }
    return out;
}
