// Password-based encryption and key derivation: PKCS#12 (RFC 7292 appendix B and C) and PBES2 (RFC 8018, RFC 7914),
// over octets and parameters; the structures that carry these parameters stand above.
//
// An iteration count of 0 is CryptoError (badParameter) everywhere, one above kMaxPbeIterations CryptoError
// (unsupported), so that a hostile file cannot cost minutes. Salts may have any length.
#pragma once

#include <functional>
#include <variant>

#include "crypto/cipher.h"
#include "crypto/kc_hash.h"
#include "misc/secret.h"

namespace crv {

inline constexpr uint64_t kMaxPbeIterations = 10'000'000;

/// A password in UTF-8 as PKCS#12 wants it: UTF-16 big-endian, characters beyond U+FFFF as surrogate pairs, and a
/// terminating zero pair (RFC 7292 B.1). Octets that are not UTF-8 are CryptoError (badParameter).
[[nodiscard]] SecretBytes utf16BePassword(std::string_view utf8);

/// What a derivation is for: the ID octet of RFC 7292 B.3.
enum class Pkcs12KeyId : int { EncryptionKey = 1, InitialVector = 2, MacKey = 3 };

/// Asked every few thousand rounds of a derivation; false ends it with CryptoError (cancelled).
using PbeProgress = std::function<bool()>;

/// The PKCS#12 derivation (RFC 7292 B.2). The password is taken as it is, so it comes from `utf16BePassword`.
[[nodiscard]] SecretBytes pkcs12Derive(KcHashAlgo hash, Pkcs12KeyId id, ByteView utf16Password, ByteView salt,
                                       uint64_t iterations, size_t length, const PbeProgress& progress = {});

/// Encryption schemes of RFC 7292 appendix C that are written. The numbers are the cipher selectors of the security
/// file's writer.
enum class PbeAlgo : int { Sha1Rc2Cbc40 = 1, Sha1TripleDesCbc = 4 };
/// CryptoError (badParameter) for a number that is no selector.
[[nodiscard]] CipherAlgo cipherOf(PbeAlgo algo);

/// pbeWithSHAAnd3-KeyTripleDES-CBC or pbeWithSHAAnd40BitRC2-CBC: key and vector are derived with SHA-1.
[[nodiscard]] Bytes pbeEncrypt(PbeAlgo algo, ByteView utf16Password, ByteView salt, uint64_t iterations,
                               ByteView plain);
/// The reverse, for every cipher of RFC 7292 appendix C; a wrong password or a damaged ciphertext is CryptoError
/// (badData) most of the time, garbage else.
[[nodiscard]] SecretBytes pbeDecrypt(CipherAlgo cipher, ByteView utf16Password, ByteView salt, uint64_t iterations,
                                     ByteView ciphertext, const PbeProgress& progress = {});

/// Hashes that HMAC is used with in PBKDF2 and PBMAC1. The first numbers are those of KcHashAlgo.
enum class PrfAlgo : uint8_t {
    Sha1 = 1,
    Sha224 = 2,
    Sha256 = 3,
    Sha384 = 4,
    Sha512 = 5,
    Sha3224 = 10,
    Sha3256 = 11,
    Sha3384 = 12,
    Sha3512 = 13,
    Sha512Of224 = 14,
    Sha512Of256 = 15,
};

[[nodiscard]] SecretBytes hmac(PrfAlgo prf, ByteView key, ByteView message);

/// PBKDF2 with HMAC (RFC 8018 5.2).
struct Pbkdf2Params {
    PrfAlgo prf = PrfAlgo::Sha1;  ///< HMAC-SHA1 is what an absent prf means
    Bytes salt;
    uint64_t iterations = 0;
    bool operator==(const Pbkdf2Params&) const = default;
};
/// scrypt (RFC 7914). It cannot be stopped, so its cost is bounded: more than 256 MiB of memory, or of work, is
/// CryptoError (unsupported).
struct ScryptParams {
    Bytes salt;
    uint64_t cost = 0, blockSize = 0, parallel = 0;
    bool operator==(const ScryptParams&) const = default;
};
using KeyDerivation = std::variant<Pbkdf2Params, ScryptParams>;

/// A key from a password, which is the text's own octets (UTF-8) and not UTF-16.
[[nodiscard]] SecretBytes deriveKey(const KeyDerivation& how, ByteView password, size_t length,
                                    const PbeProgress& progress = {});

/// Parameters of PBES2 (RFC 8018 6.2, A.4).
struct Pbes2Params {
    KeyDerivation derivation;
    CipherAlgo cipher = CipherAlgo::Aes256Cbc;
    Bytes iv;
};

}  // namespace crv
