// Password-based encryption and key derivation: PKCS#12 (RFC 7292 appendix B and C) and PBES2 (RFC 8018), over octets
// and parameters; the structures that carry these parameters stand above.
//
// Iteration counts of 0 or above kMaxPbeIterations are CryptoError (badParameter) everywhere, so that a hostile file
// cannot cost minutes. Salts may have any length.
#pragma once

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

/// The PKCS#12 derivation (RFC 7292 B.2). The password is taken as it is, so it comes from `utf16BePassword`.
[[nodiscard]] SecretBytes pkcs12Derive(KcHashAlgo hash, Pkcs12KeyId id, ByteView utf16Password, ByteView salt,
                                       uint64_t iterations, size_t length);

/// Encryption schemes of RFC 7292 appendix C. The numbers are the cipher selectors of the security file's writer.
enum class PbeAlgo : int { Sha1Rc2Cbc40 = 1, Sha1TripleDesCbc = 4 };

/// pbeWithSHAAnd3-KeyTripleDES-CBC or pbeWithSHAAnd40BitRC2-CBC: key and vector are derived with SHA-1.
[[nodiscard]] Bytes pbeEncrypt(PbeAlgo algo, ByteView utf16Password, ByteView salt, uint64_t iterations,
                               ByteView plain);
/// The reverse; a wrong password or a damaged ciphertext is CryptoError (badData) most of the time, garbage else.
[[nodiscard]] SecretBytes pbeDecrypt(PbeAlgo algo, ByteView utf16Password, ByteView salt, uint64_t iterations,
                                     ByteView ciphertext);

/// PBKDF2 with HMAC over the hash (RFC 8018 5.2).
[[nodiscard]] SecretBytes pbkdf2(KcHashAlgo hash, ByteView password, ByteView salt, uint64_t iterations, size_t length);

/// Parameters of PBES2 with PBKDF2 (RFC 8018 6.2, A.2).
struct Pbes2Params {
    KcHashAlgo prfHash = KcHashAlgo::Sha1;  ///< HMAC-SHA1 is what an absent prf means
    Bytes salt;
    uint64_t iterations = 0;
    CipherAlgo cipher = CipherAlgo::Aes256Cbc;
    Bytes iv;
};

/// Decrypts; the password is the text's own octets (UTF-8), not UTF-16. Errors as `pbeDecrypt`.
[[nodiscard]] SecretBytes pbes2Decrypt(const Pbes2Params& params, ByteView password, ByteView ciphertext);

}  // namespace crv
