/*
 * QAESEncryption — AES block cipher (FIPS-197) for the login exchange.
 *
 * The resolver enciphers the login password with this class (AES-128, CBC).
 * It is a self-contained implementation of the standard: the S-box, inverse
 * S-box, round constants and key expansion are the ones FIPS-197 gives, and
 * the round steps carry the standard's names (AddRoundKey, SubBytes, ...).
 */
/// \file qaesencryption.h
/// The AES cipher class QAESEncryption, carried and exported by the kzresolver library.
#ifndef KZCIPHER_QAESENCRYPTION_H
#define KZCIPHER_QAESENCRYPTION_H

#include <QByteArray>
#include <QObject>
#include <QtGlobal>

/// Exports the class from the shared library kzresolver, which carries it.
#if defined(KZCIPHER_BUILDING)
#define KZCIPHER_EXPORT Q_DECL_EXPORT
#elif defined(KZRESOLVER_STATIC)
#define KZCIPHER_EXPORT
#else
#define KZCIPHER_EXPORT Q_DECL_IMPORT
#endif

/**
 * @brief AES block cipher in ECB, CBC or CFB mode, with a fixed padding rule.
 *
 * An object is configured once with a key size (#Aes) and a mode of
 * operation (#Mode); each call to encode() or decode() then takes the text,
 * the key and the initialisation vector (iv) and returns a new byte array.
 * encode(), decode() and expandKey() do not modify the object (the expanded
 * key lives on the stack of each call), so one object may serve any number of
 * calls, also from several threads at once.
 *
 * @par Padding
 * encode() pads the plaintext before enciphering it. With r = length % 16:
 * if r is 0 nothing is added; otherwise 16 - r bytes are appended, each
 * holding the value 16 - r. A plaintext whose length is already a multiple of
 * 16 therefore gets <b>no</b> padding block (this is not PKCS#7, and the peer
 * of the login exchange depends on it). decode() removes no padding: the
 * padding bytes stay at the end of its result.
 *
 * @par Initialisation vector
 * CBC and CFB need an iv of exactly 16 bytes. If the iv is null or has any
 * other length, encode() and decode() return an empty byte array. ECB
 * ignores the iv entirely (a null iv is fine).
 *
 * @par Keys of the wrong length
 * A key is never rejected. The key expansion uses the first keyLength bytes
 * of the key for the object's level (16, 24 or 32): extra bytes are ignored
 * and missing bytes count as zero. A 10-byte key with AES_128 thus behaves
 * like the same key followed by six zero bytes, and an empty key like an
 * all-zero key. Nothing is read outside the key's own bytes.
 *
 * @par Using it from a host
 * The class is part of the kzresolver package: include `<qaesencryption.h>`
 * and link `KZResolver::kzresolver`. For the login exchange of this
 * protocol the resolver does the enciphering itself; use the class for
 * anything else that needs AES.
 * @code
 * QAESEncryption aes(QAESEncryption::AES_128, QAESEncryption::CBC);
 * const QByteArray sealed = aes.encode(text, key16, iv16);
 * const QByteArray opened = aes.decode(sealed, key16, iv16); // padding kept
 * @endcode
 *
 * @par Input lengths in decode()
 * ECB and CBC decipher whole 16-byte blocks only; trailing bytes that do not
 * fill a block are dropped from the result. CFB deciphers every byte (see
 * #CFB).
 */
class KZCIPHER_EXPORT QAESEncryption : public QObject
{
    Q_OBJECT

public:
    /// Key size. Any other value given to the constructor means AES_128.
    enum Aes { AES_128 = 0, AES_192 = 1, AES_256 = 2 };
    Q_ENUM(Aes)
    /// \var QAESEncryption::AES_128
    /// AES-128: 16-byte key, 10 rounds (the login exchange uses it).
    /// \var QAESEncryption::AES_192
    /// AES-192: 24-byte key, 12 rounds.
    /// \var QAESEncryption::AES_256
    /// AES-256: 32-byte key, 14 rounds.

    /// Mode of operation.
    enum Mode {
        /// Electronic codebook: each block enciphered on its own; no iv.
        ECB = 0,
        /// Cipher block chaining: each plaintext block is XORed with the
        /// previous ciphertext block (the iv for the first) before it is
        /// enciphered.
        CBC = 1,
        /// Cipher feedback with 128-bit segments (CFB-128): each block of
        /// text is XORed with the encipherment of the previous ciphertext
        /// block (the iv for the first). encode() still pads, so its result
        /// is always a whole number of blocks; decode() also accepts a text
        /// that ends in a partial block, which it XORs with the leading bytes
        /// of that block's keystream, so its result has the input's length.
        CFB = 2
    };
    Q_ENUM(Mode)

    /**
     * @brief Creates a cipher for one key size and one mode.
     * @param level #Aes value; anything other than AES_192 (1) or AES_256 (2)
     *        selects AES_128.
     * @param mode #Mode value, kept as given. A value that is none of ECB,
     *        CBC and CFB makes every encode() and decode() return an empty
     *        array.
     */
    QAESEncryption(int level, int mode);
    ~QAESEncryption() override;

    /**
     * @brief Pads @p input and enciphers it in the object's mode.
     * @param input plaintext of any length (an empty one gives an empty result).
     * @param key cipher key; see the class notes on keys of the wrong length.
     * @param iv initialisation vector (16 bytes) for CBC and CFB; unused by ECB.
     * @return the ciphertext, a multiple of 16 bytes long, or an empty array
     *         when the mode needs an iv and @p iv is null or not 16 bytes.
     */
    QByteArray encode(const QByteArray& input, const QByteArray& key, const QByteArray& iv) const;

    /**
     * @brief Deciphers @p input in the object's mode; removes no padding.
     * @param input ciphertext (see the class notes for lengths that are not a
     *        multiple of 16).
     * @param key cipher key, as given to encode().
     * @param iv initialisation vector, as given to encode().
     * @return the plaintext including any padding bytes, or an empty array
     *         when the mode needs an iv and @p iv is null or not 16 bytes.
     */
    QByteArray decode(const QByteArray& input, const QByteArray& key, const QByteArray& iv) const;

    /**
     * @brief Runs the FIPS-197 key expansion for the object's level.
     * @return the round keys one after the other, expandedKeyLength() bytes:
     *         176 for AES_128, 240 for AES_256, and 209 for AES_192, whose
     *         13 round keys fill the first 208 bytes and whose last byte is 0.
     */
    QByteArray expandKey(const QByteArray& key) const;

    /// Key size in effect (#Aes), after the constructor's mapping.
    int level() const { return m_level; }
    /// Mode of operation as given to the constructor (#Mode).
    int mode() const { return m_mode; }
    /// Key length that the level uses, in bytes (16, 24 or 32).
    int keyLength() const { return m_keyLen; }
    /// Number of rounds (10, 12 or 14).
    int rounds() const { return m_nr; }
    /// Size of the expanded key in bytes (176, 209 or 240).
    int expandedKeyLength() const { return m_expandedKey; }

private:
    /// Largest expanded key of any level (AES_256: 15 round keys).
    static constexpr int kMaxExpandedKey = 240;

    void expandKeyInto(const QByteArray& key, quint8* out) const;

    void cipher(const quint8* expKey, quint8* state) const;
    void invCipher(const quint8* expKey, quint8* state) const;

    static void addRoundKey(int round, const quint8* expKey, quint8* state);
    void subBytes(quint8* state) const;
    void invSubBytes(quint8* state) const;
    static void shiftRows(quint8* state);
    static void invShiftRows(quint8* state);
    static void mixColumns(quint8* state);
    static void invMixColumns(quint8* state);

    int m_nb;          ///< words per block (4)
    int m_blocklen;    ///< block length in bytes (16)
    int m_level;       ///< #Aes
    int m_mode;        ///< #Mode
    int m_nk;          ///< key length in 32-bit words
    int m_keyLen;      ///< key length in bytes
    int m_nr;          ///< number of rounds
    int m_expandedKey; ///< expanded key length in bytes

    quint8 m_sbox[256];
    quint8 m_invSbox[256];
    quint8 m_rcon[256];
};

#endif // KZCIPHER_QAESENCRYPTION_H
